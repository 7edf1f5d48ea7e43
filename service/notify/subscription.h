// Subscription: a query for events, its place in the change log, and the thread that delivers.
//
//   auto subscription = std::make_shared<Mine>(std::move(settings), last_change);  // Mine can Rest
//   subscription->Start();
//   subscription->LookUpTo(number);  // there may be something up to this change
//   subscription->Cancel();          // returns when the receiver was called for the last time
//
// The log is the queue: the thread reads the changes behind its cursor, and what the receiver is slow to take
// stays in the log. A receiver that falls behind what the log keeps is told of the gap, once, and goes on
// with the changes from then on.
//
// Any thread may call, but Start and Cancel are called once. The receiver is called by the subscription's own
// thread, one call at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "service/language/wql_condition.h"
#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/notify/watched_classes.h"
#include "service/store/repository.h"

namespace service {

// Who gets the events.
class EventReceiver {
 public:
    virtual ~EventReceiver() = default;
    // In commit order. Must not throw.
    virtual void Deliver(std::vector<Instance> events) noexcept = 0;
    // WBEM_E_QUEUE_OVERFLOW when events were lost, WBEM_E_CALL_CANCELLED at the end, and other faults that
    // keep the subscription from going on for now. There may be no memory.
    virtual void Report(int32_t code, std::string_view reason) noexcept = 0;
};

class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
    struct Settings {
        std::shared_ptr<const Repository> repository;
        WqlCondition condition;
        WatchedClasses classes;
        std::chrono::nanoseconds within;  // what an event may take at most
        std::shared_ptr<EventReceiver> receiver;
    };

    // Reports what comes after the change `last`.
    Subscription(Settings settings, uint64_t last)
        : settings_(std::move(settings)), cursor_(last), last_(last) {}
    virtual ~Subscription() = default;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    // Throws what std::thread does.
    void Start();

    // What there is up to that change may be of interest.
    void LookUpTo(uint64_t number);
    // The store cannot be read: the receiver is to be told.
    void SeeForYourself();
    // There is nothing of interest behind what LookUpTo or Pass was called with last, up to that change. A
    // cursor that was left behind would look like one of a slow receiver once the log gives up what it stands
    // at.
    void Pass(uint64_t up_to);

    // Ends the subscription: no event is delivered any more. Waits until the receiver's running call has
    // ended and it was told of the end; not so in a call from the receiver itself, and not where two
    // receivers would wait for each other: then the receiver is told as soon as its running call has ended.
    void Cancel();

    std::chrono::nanoseconds within() const noexcept { return settings_.within; }
    // Until Cancel is called. The subscription's own thread lets it go.
    const std::shared_ptr<EventReceiver>& receiver() const noexcept { return settings_.receiver; }

 protected:
    // Called by the subscription's thread when it has nothing to do. Returns once it IsWanted.
    virtual void Rest() = 0;
    // The subscription IsWanted now and Rest must return, wherever it waits.
    virtual void EndRest() = 0;

    // Whether there are changes to look at or the subscription is to end.
    bool IsWanted();
    // Waits until the subscription IsWanted or Call was called since the last time.
    void AwaitCall();
    void Call();

 private:
    struct Batch {
        std::vector<Instance> events;
        uint64_t last = 0;  // the change that was looked at last
        bool has_gap = false;
        Status fault;  // what keeps the change `last` from being reported
    };

    void Run();
    bool DeliverNext();
    bool PauseAfterFault();
    bool AwaitCancel();
    Status Collect(uint64_t after, Batch& batch);
    Status CollectIn(RepositoryReader& reader, uint64_t after, Batch& batch);
    Status Examine(RepositoryReader& reader, const ChangeView& change, Batch& batch);
    bool HandOver(Batch& batch) noexcept;
    bool WaitsInTurnFor(const Subscription* other) const;

    Settings settings_;
    std::thread thread_;

    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t cursor_;  // changes up to this one are done with
    uint64_t last_;    // changes up to this one are there to look at
    bool is_cancelled_ = false;
    bool is_called_ = false;
    bool is_to_see_ = false;
    std::string last_fault_;  // its reason; told once while it lasts

    const Subscription* waits_for_ = nullptr;  // under a mutex of all subscriptions
};

}  // namespace service
