#include "service/notify/subscription.h"

#include <new>
#include <utility>

#include "service/model/no_destructor.h"
#include "service/notify/delivery.h"
#include "service/notify/event_classes.h"
#include "service/store/fork.h"
#include "service/store/record_codec.h"

namespace service {
namespace {

// Events that are delivered at once, and their records' bytes; changes that are looked at in one transaction.
constexpr size_t kEventsAtOnce = 16;
constexpr size_t kBytesAtOnce = size_t{1} << 20;
constexpr size_t kChangesAtOnce = 4096;
// After a fault of the store the subscription tries again so often.
constexpr std::chrono::seconds kRetry{1};

// The subscription that this thread delivers for.
thread_local Subscription* t_delivering = nullptr;

// Who waits for whom; see Subscription::waits_for_.
ForkSafeMutex& WaitingMutex() {
    static NoDestructor<ForkSafeMutex> mutex;
    return *mutex;
}

Result<ObjectPtr> Decode(const ClassPtr& definition, std::string_view record,
                         const std::shared_ptr<const ClassSource>& classes) {
    if (record.empty()) return ObjectPtr();
    SERVICE_ASSIGN_OR_RETURN(Instance instance, DecodeInstance(definition, record, classes));
    return ObjectPtr(std::make_shared<const Instance>(std::move(instance)));
}

}  // namespace

void Subscription::Start() {
    thread_ = std::thread([self = shared_from_this()] { self->Run(); });
}

void Subscription::LookUpTo(uint64_t number) {
    const std::lock_guard lock(mutex_);
    if (number <= last_) return;
    last_ = number;
    changed_.notify_all();
}

void Subscription::SeeForYourself() {
    const std::lock_guard lock(mutex_);
    is_to_see_ = true;
    changed_.notify_all();
}

// A subscription that is busy passes them with what it is busy with. If it were left behind, nothing would
// bring it here until the next change of interest.
void Subscription::Pass(uint64_t up_to) {
    const std::lock_guard lock(mutex_);
    if (up_to <= last_) return;
    if (cursor_ == last_) cursor_ = up_to;
    last_ = up_to;
}

void Subscription::Run() {
    t_delivering = this;
    bool goes_on = true;
    while (goes_on) {
        try {
            goes_on = DeliverNext();
        } catch (const std::bad_alloc&) {
            if (const Delivery delivery; delivery)
                settings_.receiver->Report(WBEM_E_OUT_OF_MEMORY, "there is no memory for the events");
            goes_on = PauseAfterFault();
        }
    }
    settings_.receiver->Report(WBEM_E_CALL_CANCELLED, "the subscription was cancelled");
    settings_.receiver.reset();
    t_delivering = nullptr;
}

// False when the subscription is to end.
bool Subscription::DeliverNext() {
    Rest();
    uint64_t cursor = 0;
    {
        const std::lock_guard lock(mutex_);
        if (is_cancelled_) return false;
        cursor = cursor_;
        is_to_see_ = false;
    }
    Batch batch;
    const Status fault = Collect(cursor, batch);
    {
        const Delivery delivery;
        if (!delivery) return AwaitCancel();
        if (fault.ok()) {
            last_fault_.clear();
            return HandOver(batch);
        }
        if (last_fault_ != fault.reason()) settings_.receiver->Report(fault.code(), fault.reason());
        last_fault_ = fault.reason();
    }
    return PauseAfterFault();
}

// False, as the subscription is to end then.
bool Subscription::AwaitCancel() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return is_cancelled_; });
    return false;
}

// False when the subscription is to end.
bool Subscription::PauseAfterFault() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kRetry, [this] { return is_cancelled_; });
    return !is_cancelled_;
}

bool Subscription::IsWanted() {
    const std::lock_guard lock(mutex_);
    return is_cancelled_ || is_to_see_ || cursor_ < last_;
}

void Subscription::AwaitCall() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return is_called_ || is_cancelled_ || is_to_see_ || cursor_ < last_; });
    is_called_ = false;
}

void Subscription::Call() {
    const std::lock_guard lock(mutex_);
    is_called_ = true;
    changed_.notify_all();
}

bool Subscription::HandOver(Batch& batch) noexcept {
    {
        const std::lock_guard lock(mutex_);
        cursor_ = batch.last;
        if (last_ < cursor_) last_ = cursor_;
        if (is_cancelled_) return false;
    }
    if (batch.has_gap) {
        settings_.receiver->Report(WBEM_E_QUEUE_OVERFLOW,
                                   "events were lost: more was changed than the change log keeps, and the "
                                   "receiver had not taken the events before");
    }
    if (!batch.events.empty()) settings_.receiver->Deliver(std::move(batch.events));
    if (!batch.fault.ok()) settings_.receiver->Report(batch.fault.code(), batch.fault.reason());
    return true;
}

Status Subscription::Collect(uint64_t after, Batch& batch) {
    return settings_.repository->Read([&](RepositoryReader& reader) {
        batch = {};
        return CollectIn(reader, after, batch);
    });
}

Status Subscription::CollectIn(RepositoryReader& reader, uint64_t after, Batch& batch) {
    uint64_t newest = 0;
    SERVICE_RETURN_IF_ERROR(reader.LastChange(newest));
    bool is_complete = true;
    bool is_enough = false;
    size_t changes = 0;
    size_t bytes = 0;
    batch.last = newest;
    SERVICE_RETURN_IF_ERROR(reader.ScanChanges(after, is_complete, [&](const ChangeView& change) {
        if (!is_complete) return false;
        batch.fault = Examine(reader, change, batch);
        bytes += change.before.size() + change.after.size();
        is_enough = !batch.fault.ok() || ++changes == kChangesAtOnce ||
                    batch.events.size() == kEventsAtOnce || bytes >= kBytesAtOnce;
        if (is_enough) batch.last = change.number;
        return !is_enough;
    }));
    batch.has_gap = !is_complete;
    return {};
}

Status Subscription::Examine(RepositoryReader& reader, const ChangeView& change, Batch& batch) {
    if (!CoversKind(*settings_.condition.Class(), change.kind)) return {};
    const WatchedClasses::Watched* watched = nullptr;
    SERVICE_RETURN_IF_ERROR(settings_.classes.Find(reader, change.class_id, watched));
    if (!watched || !watched->demand.MayMatch(change.key)) return {};
    const auto classes = settings_.classes.EmbeddedClassesOf(*watched->definition);
    SERVICE_ASSIGN_OR_RETURN(ObjectPtr before, Decode(watched->definition, change.before, classes));
    SERVICE_ASSIGN_OR_RETURN(ObjectPtr after, Decode(watched->definition, change.after, classes));
    SERVICE_ASSIGN_OR_RETURN(Instance event,
                             MakeEvent(change.kind, change.time_ns, std::move(before), std::move(after)));
    SERVICE_ASSIGN_OR_RETURN(const bool matches, settings_.condition.Matches(event));
    if (matches) batch.events.push_back(std::move(event));
    return {};
}

// Called with the mutex of all held.
bool Subscription::WaitsInTurnFor(const Subscription* other) const {
    for (const Subscription* each = this; each; each = each->waits_for_) {
        if (each == other) return true;
    }
    return false;
}

void Subscription::Cancel() {
    {
        const std::lock_guard lock(mutex_);
        is_cancelled_ = true;
        changed_.notify_all();
    }
    EndRest();
    Subscription* const caller = t_delivering;
    if (caller) {
        const std::lock_guard lock(WaitingMutex());
        if (WaitsInTurnFor(caller)) {
            thread_.detach();
            return;
        }
        caller->waits_for_ = this;
    }
    thread_.join();
    if (!caller) return;
    const std::lock_guard lock(WaitingMutex());
    caller->waits_for_ = nullptr;
}

}  // namespace service
