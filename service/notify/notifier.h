// Notifier: the subscriptions of this process to one store, and who of them looks for changes.
//
//   const std::shared_ptr<Notifier> notifier = Notifier::Of(repository);
//   Status fault = notifier->Subscribe(repository, space, query, receiver);
//   notifier->Cancel([&](const EventReceiver& each) { return &each == receiver.get(); });
//
// Each subscription has a thread of its own to read, test and deliver. One of those that have nothing to do
// looks out for all of them together: it waits for the store's signal, and looks for itself as often as the
// most impatient asks for, because a writer may die before it signals. It looks at numbers, classes and keys
// only, and wakes the subscriptions that may be concerned. Where it is concerned itself it delivers at once,
// which saves the way over another thread, and another one looks out from then on; where all have something
// to do nobody needs to. The threads leave signals to the program's own. In a forked child there are none: it
// begins without a subscription.
//
// Any thread.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
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
    class Entry final : public Subscription {
     public:
        Entry(std::shared_ptr<Notifier> notifier, Settings settings, uint64_t last)
            : Subscription(settings, last),
              notifier_(std::move(notifier)),
              classes(std::move(settings.classes)),
              seen(last) {}

     private:
        friend class Notifier;
        void Rest() override { notifier_->LookOutOrWait(*this); }
        void EndRest() override { notifier_->WakeIfLookingOut(*this); }

        const std::shared_ptr<Notifier> notifier_;
        bool is_waiting = false;  // under the notifier's mutex
        // What follows belongs to whoever looks out.
        WatchedClasses classes;
        uint64_t seen;  // the changes up to this one were looked at
        bool is_concerned = false;
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;

    explicit Notifier(std::shared_ptr<const Repository> repository) : repository_(std::move(repository)) {}

    Store& store() const noexcept { return *repository_->store(); }
    void Add(std::shared_ptr<Entry> entry);
    void LookOutOrWait(Entry& entry);
    bool BecomeLookout(Entry& entry);
    void LookOut(Entry& entry);
    void WakeIfLookingOut(const Entry& entry);
    static std::chrono::nanoseconds Patience(const Entries& entries) noexcept;
    Status Look(const Entries& entries);
    Status LookIn(RepositoryReader& reader, const Entries& entries);

    const std::shared_ptr<const Repository> repository_;

    std::mutex mutex_;
    std::shared_ptr<const Entries> entries_ = std::make_shared<Entries>();
    const Entry* lookout_ = nullptr;
};

}  // namespace service
