// What the tests of events and their worker share: the class that is watched, one change of an instance, and
// a handler that keeps what it is told.
//
//   EventRecorder recorder;
//   CMgmtEventWatcher watcher(1, L"Thing", nullptr, 1);
//   watcher.AddEventArrivedEventHandler(&recorder);
//   watcher.Start();   ...   recorder.WaitFor(10);
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <vector>

#include "tests/system/library_calls.h"

inline constexpr const char* kThingSchema = R"(
class Thing { [key] string INSTANCE_ID; uint32 N; uint32 Days; string Text; };
class SubThing : Thing {};
class Other { [key] string INSTANCE_ID; uint32 N; uint32 Days; };)";

inline bool PutThing(const std::wstring& id, long n, const wchar_t* class_name = L"Thing", long days = 0) {
    CMgmtObject thing(class_name, id.c_str(), nullptr);
    thing.SetPropertyValue(L"INSTANCE_ID", id.c_str());
    thing.SetPropertyValue(L"N", n);
    thing.SetPropertyValue(L"Days", days);
    return thing.Put(true);
}

// An event as it is kept: the number that the change had, which no other has, and the first unit of the id.
struct KeptEvent {
    int64_t n = 0;
    int64_t unit = 0;
    bool operator==(const KeptEvent&) const = default;
};

// Any thread may ask; `during` is set before the start.
class EventRecorder final : public CMgmtEventArrivedHandler {
 public:
    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        CMgmtObjectBase& event = *args.GetNewEvent();
        const _variant_t* const n = event.GetPropertyValue(L"N");
        const _variant_t* const id = event.GetPropertyValue(L"INSTANCE_ID");
        const KeptEvent kept{n && n->vt == VT_I4 ? n->lVal : -1,
                             id && id->vt == VT_BSTR && id->bstrVal ? id->bstrVal[0] : 0};
        if (during) during(kept);
        const std::lock_guard lock(mutex_);
        events_.push_back(kept);
        changed_.notify_all();
        return 0;
    }
    void Release() override {}

    // The events so far, once there are `count`; those that there are when none has come for 60 s otherwise.
    std::vector<KeptEvent> WaitFor(size_t count) {
        std::unique_lock lock(mutex_);
        size_t before = 0;
        do {
            before = events_.size();
            changed_.wait_for(lock, std::chrono::seconds(60), [&] { return events_.size() >= count; });
        } while (events_.size() < count && events_.size() > before);
        return events_;
    }

    std::function<void(const KeptEvent&)> during;

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<KeptEvent> events_;
};

// Whether to take the time for everything that was promised, and not a part of it.
inline bool IsLongRun() {
    const char* const setting = std::getenv("MGMT_LONG");
    return setting && *setting == '1';
}
