// Notifier: the subscriptions of this process to one store, and the thread that looks for changes.
//
//   const std::shared_ptr<Notifier> notifier = Notifier::Of(repository);
//   Status fault = notifier->Subscribe(repository, space, query, receiver);
//   notifier->Cancel([&](const EventReceiver& each) { return &each == receiver.get(); });
//
// One thread waits for the store's signal, for all subscriptions together, and looks for itself as often as
// the most impatient of them asks for, because a writer may die before it signals. It looks at numbers,
// classes and keys only and wakes the subscriptions that may be concerned; each has a thread of its own to
// read, test and deliver. The threads are there as long as there are subscriptions. They leave signals to the
// program's own threads. In a forked child there are none: it begins without a subscription.
//
// Any thread.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "service/language/wql_query.h"
#include "service/model/function_ref.h"
#include "service/model/status.h"
#include "service/notify/subscription.h"
#include "service/notify/watched_classes.h"
#include "service/store/repository.h"

namespace service {

class Notifier : public std::enable_shared_from_this<Notifier> {
 public:
    // Of the repository's store, one a process.
    static std::shared_ptr<Notifier> Of(const std::shared_ptr<const Repository>& repository);

    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    // The receiver gets the events of what is committed from now on. WBEM_E_INVALID_CLASS where the query is
    // not for one of the event classes.
    Status Subscribe(const std::shared_ptr<const Repository>& repository, const Namespace& space,
                     const WqlQuery& query, std::shared_ptr<EventReceiver> receiver);

    // Cancels the subscriptions with the receivers that `is_meant`; see Subscription::Cancel. Returns how
    // many.
    size_t Cancel(FunctionRef<bool(const EventReceiver&)> is_meant);

 private:
    struct Entry {
        Entry(std::shared_ptr<Subscription> added, WatchedClasses watched, uint64_t last)
            : subscription(std::move(added)), classes(std::move(watched)), seen(last) {}

        const std::shared_ptr<Subscription> subscription;
        // What follows is the looking thread's.
        WatchedClasses classes;
        uint64_t seen;  // the changes up to this one were looked at
        bool is_concerned = false;
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;

    // The looking thread, and whether it is to end, which is under the mutex.
    struct Watch {
        std::thread thread;
        bool is_ended = false;
    };

    explicit Notifier(std::shared_ptr<const Repository> repository) : repository_(std::move(repository)) {}

    Store& store() const noexcept { return *repository_->store(); }
    void Add(std::shared_ptr<Entry> entry);
    void Run(const Watch& watch);
    static std::chrono::nanoseconds Patience(const Entries& entries) noexcept;
    Status Look(const Entries& entries);
    Status LookIn(RepositoryReader& reader, const Entries& entries);

    const std::shared_ptr<const Repository> repository_;

    std::mutex mutex_;
    Entries entries_;
    std::shared_ptr<Watch> watch_;  // null while there are no entries
};

}  // namespace service
