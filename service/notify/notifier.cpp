#include "service/notify/notifier.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <utility>

#include "service/model/no_destructor.h"
#include "service/notify/event_classes.h"
#include "service/notify/signals_blocked.h"
#include "service/store/fork.h"

namespace service {
namespace {

// A query without WITHIN, and the shortest time that one may name: what is seen at once is seen without
// looking, so a look more often would find nothing but what a killed writer left.
constexpr std::chrono::milliseconds kUsualWithin{1'000};
constexpr std::chrono::milliseconds kShortestWithin{100};
constexpr std::chrono::hours kLongestWithin{24};

std::chrono::nanoseconds WithinOf(const WqlQuery& query) {
    if (!query.within_seconds) return kUsualWithin;
    const std::chrono::duration<double> asked(*query.within_seconds);
    if (asked >= kLongestWithin) return kLongestWithin;
    return std::max<std::chrono::nanoseconds>(std::chrono::duration_cast<std::chrono::nanoseconds>(asked),
                                              kShortestWithin);
}

// The notifiers of the process, by the store. Those of the process that it was forked from are left alone.
struct Registry {
    explicit Registry(unsigned forks) noexcept : fork_count(forks) {}

    const unsigned fork_count;
    std::mutex mutex;
    std::map<const void*, std::shared_ptr<Notifier>> notifiers;
};

Registry& TheRegistry() {
    static std::atomic<Registry*> current{nullptr};
    Registry* registry = current.load(std::memory_order_acquire);
    while (!registry || registry->fork_count != ForkCount()) {
        auto fresh = std::make_unique<Registry>(ForkCount());
        // The one before is never freed: its threads, or memory that they held, may be in any state.
        if (current.compare_exchange_strong(registry, fresh.get())) registry = fresh.release();
    }
    return *registry;
}

}  // namespace

std::shared_ptr<Notifier> Notifier::Of(const std::shared_ptr<const Repository>& repository) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    std::shared_ptr<Notifier>& notifier = registry.notifiers[repository->store()->Identity()];
    if (!notifier) notifier.reset(new Notifier(repository));
    return notifier;
}

Status Notifier::Subscribe(const std::shared_ptr<const Repository>& repository, const Namespace& space,
                           const WqlQuery& query, std::shared_ptr<EventReceiver> receiver) {
    if (!FindEventClass(query.class_name)) {
        return WqlFault(WBEM_E_INVALID_CLASS, query.class_position,
                        "events of class " + query.class_name +
                            " are not reported: __InstanceCreationEvent, __InstanceModificationEvent, "
                            "__InstanceDeletionEvent or __InstanceOperationEvent was expected");
    }
    SERVICE_ASSIGN_OR_RETURN(WqlCondition condition,
                             WqlCondition::Bind(query, [&](std::string_view name) -> Result<ClassPtr> {
                                 if (ClassPtr event_class = FindEventClass(name)) return event_class;
                                 return repository->FindClass(space, name);
                             }));
    WatchedClasses classes(space, WqlEventFilter(query));
    uint64_t last = 0;
    SERVICE_RETURN_IF_ERROR(repository->Read([&](RepositoryReader& reader) {
        Status fault = classes.Learn(reader);
        return fault.ok() ? reader.LastChange(last) : std::move(fault);
    }));
    Subscription::Settings settings{repository, std::move(condition), std::move(classes), WithinOf(query),
                                    std::move(receiver)};
    Add(std::make_shared<Entry>(shared_from_this(), std::move(settings), last));
    return {};
}

// Whoever looks out is woken, or it would sleep as long as those before were content with.
void Notifier::Add(std::shared_ptr<Entry> entry) {
    {
        const SignalsBlocked blocked;
        const std::lock_guard lock(mutex_);
        auto entries = std::make_shared<Entries>(*entries_);
        entries->push_back(entry);
        entry->Start();
        entries_ = std::move(entries);
        if (!lookout_) return;
    }
    store().RaiseChangeSignal();
}

size_t Notifier::Cancel(FunctionRef<bool(const EventReceiver&)> is_meant) {
    Entries meant;
    {
        const std::lock_guard lock(mutex_);
        auto others = std::make_shared<Entries>();
        for (const std::shared_ptr<Entry>& entry : *entries_)
            (is_meant(*entry->receiver()) ? meant : *others).push_back(entry);
        entries_ = std::move(others);
    }
    for (const std::shared_ptr<Entry>& entry : meant)
        entry->Cancel();
    return meant.size();
}

void Notifier::LookOutOrWait(Entry& entry) {
    while (!entry.IsWanted()) {
        if (BecomeLookout(entry)) {
            LookOut(entry);
            const std::lock_guard lock(mutex_);
            lookout_ = nullptr;
        } else {
            entry.AwaitCall();
            const std::lock_guard lock(mutex_);
            entry.is_waiting = false;
        }
    }
    const std::lock_guard lock(mutex_);
    if (lookout_) return;
    const auto waiting = std::find_if(entries_->begin(), entries_->end(),
                                      [](const std::shared_ptr<Entry>& other) { return other->is_waiting; });
    if (waiting != entries_->end()) (*waiting)->Call();
}

// Where somebody looks out already the entry is noted as waiting, in the same moment: whoever gives up
// looking out finds it.
bool Notifier::BecomeLookout(Entry& entry) {
    const std::lock_guard lock(mutex_);
    if (lookout_) {
        entry.is_waiting = true;
        return false;
    }
    lookout_ = &entry;
    return true;
}

// Until the entry is wanted itself.
void Notifier::LookOut(Entry& entry) {
    while (!entry.IsWanted()) {
        // Before the look, or a change that comes right after it would not end the wait.
        const uint32_t signal = store().ChangeSignal();
        std::shared_ptr<const Entries> entries;
        {
            const std::lock_guard lock(mutex_);
            entries = entries_;
        }
        try {
            // A store that cannot be read now is looked at again; each subscription tells its receiver.
            if (!Look(*entries).ok()) {
                for (const std::shared_ptr<Entry>& each : *entries)
                    each->SeeForYourself();
            }
        } catch (const std::bad_alloc&) {
            store().WaitForChange(signal, kShortestWithin);
            continue;
        }
        if (!entry.IsWanted()) store().WaitForChange(signal, Patience(*entries));
    }
}

void Notifier::WakeIfLookingOut(const Entry& entry) {
    {
        const std::lock_guard lock(mutex_);
        if (lookout_ != &entry) return;
    }
    store().RaiseChangeSignal();
}

std::chrono::nanoseconds Notifier::Patience(const Entries& entries) noexcept {
    std::chrono::nanoseconds shortest = kLongestWithin;
    for (const std::shared_ptr<Entry>& entry : entries)
        shortest = std::min(shortest, entry->within());
    return shortest;
}

Status Notifier::Look(const Entries& entries) {
    if (entries.empty()) return {};
    return repository_->Read([&](RepositoryReader& reader) { return LookIn(reader, entries); });
}

Status Notifier::LookIn(RepositoryReader& reader, const Entries& entries) {
    uint64_t newest = 0;
    SERVICE_RETURN_IF_ERROR(reader.LastChange(newest));
    uint64_t seen = newest;
    for (const std::shared_ptr<Entry>& entry : entries) {
        entry->is_concerned = false;
        seen = std::min(seen, entry->seen);
    }
    if (seen == newest) return {};
    bool is_complete = true;
    Status fault;
    const Status scanned = reader.ScanChanges(seen, is_complete, [&](const ChangeView& change) {
        for (const std::shared_ptr<Entry>& entry : entries) {
            if (entry->is_concerned || change.number <= entry->seen) continue;
            const WatchedClasses::Watched* watched = nullptr;
            fault = entry->classes.Find(reader, change.class_id, watched);
            if (!fault.ok()) return false;
            entry->is_concerned = watched && watched->demand.MayMatch(change.key);
        }
        return is_complete;
    });
    // Where not everything could be looked at, each subscription is to see for itself.
    is_complete = is_complete && scanned.ok() && fault.ok();
    for (const std::shared_ptr<Entry>& entry : entries) {
        if (entry->is_concerned || !is_complete) {
            entry->LookUpTo(newest);
        } else {
            entry->Pass(newest);
        }
        entry->seen = newest;
    }
    return {};
}

}  // namespace service
