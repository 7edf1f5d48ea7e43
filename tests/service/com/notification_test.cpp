// Subscriptions: which events come, in which order, and how they end.
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/com_object.h"
#include "tests/service/com/service_client.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Takes what the service says. Everything may be asked on any thread.
class Sink final : public doubles::ComObject<IWbemObjectSink> {
 public:
    explicit Sink(std::atomic<long>& live) noexcept : ComObject(live) {}

    HRESULT STDMETHODCALLTYPE Indicate(long count, IWbemClassObject** objects) override {
        for (long i = 0; i < count; ++i) {
            const std::string event = Describe(objects[i]);
            if (on_event) on_event(event);
            const std::lock_guard lock(mutex_);
            events_.push_back(event);
            changed_.notify_all();
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetStatus(long, HRESULT result, BSTR, IWbemClassObject*) override {
        const std::lock_guard lock(mutex_);
        statuses_.push_back(Code(result));
        changed_.notify_all();
        return S_OK;
    }

    // The events so far, once there are `count`; those that came within 20 s otherwise.
    std::vector<std::string> WaitForEvents(size_t count) { return WaitFor(events_, count); }
    std::vector<std::string> WaitForStatuses(size_t count) { return WaitFor(statuses_, count); }

    std::function<void(const std::string&)> on_event;

 private:
    std::vector<std::string> WaitFor(const std::vector<std::string>& told, size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return told.size() >= count; });
        return told;
    }

    // "Modification id 1 -> 2".
    static std::string Describe(IWbemClassObject* event) {
        const auto text = [](IWbemClassObject* object, const wchar_t* name) {
            _variant_t value;
            object->Get(name, 0, &value, nullptr, nullptr);
            const std::string shown = ::Show(value);
            return shown.substr(shown.find(' ') + 1);
        };
        const auto embedded = [&](const wchar_t* name) {
            _variant_t value;
            CComPtr<IWbemClassObject> object;
            if (event->Get(name, 0, &value, nullptr, nullptr) == S_OK && value.vt == VT_UNKNOWN)
                value.punkVal->QueryInterface(IID_PPV_ARGS(&object));
            return object;
        };
        const CComPtr<IWbemClassObject> target = embedded(L"TargetInstance");
        const CComPtr<IWbemClassObject> previous = embedded(L"PreviousInstance");
        std::string shown = text(event, L"__CLASS");
        shown = shown.substr(10, shown.size() - 15) + " " + text(target, L"ID") + " ";
        if (previous) shown += text(previous, L"Days") + " -> ";
        return shown + text(target, L"Days");
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
    std::vector<std::string> statuses_;
};

class NotificationTest : public ServiceClient {
 protected:
    NotificationTest() {
        EXPECT_CODE(S_OK, Import("class Policy { [key] string ID; sint32 Days = 7; };"
                                 "class MailPolicy : Policy { string Box; };"
                                 "class Other { [key] string ID; sint32 Days; };"));
    }
    ~NotificationTest() override {
        for (const CComPtr<Sink>& sink : sinks_)
            services->CancelAsyncCall(sink);
        sinks_.clear();
        EXPECT_EQ(live_, 0) << "a sink was not let go";
    }

    CComPtr<Sink> MakeSink() { return CComPtr<Sink>(new Sink(live_)); }

    HRESULT Subscribe(const wchar_t* query, IWbemObjectSink* sink, const wchar_t* language = L"WQL") {
        return services->ExecNotificationQueryAsync(CComBSTR(language), CComBSTR(query),
                                                    WBEM_FLAG_SEND_STATUS, nullptr, sink);
    }

    // A sink with a subscription that must be accepted.
    CComPtr<Sink> Subscribed(const wchar_t* query) {
        CComPtr<Sink> sink = MakeSink();
        EXPECT_CODE(S_OK, Subscribe(query, sink)) << TakeReason();
        sinks_.push_back(sink);
        return sink;
    }

    std::atomic<long> live_{0};
    std::vector<CComPtr<Sink>> sinks_;
};

TEST_F(NotificationTest, EachKindOfChangeOnceAndInOrder) {
    PutPolicy(L"before", 1);
    const auto all = Subscribed(L"SELECT * FROM __InstanceOperationEvent WHERE TargetInstance ISA 'Policy'");
    const auto created =
        Subscribed(L"select * from __instancecreationevent within 60 where TargetInstance isa \"policy\"");
    const std::wstring modified =
        L"SELECT * FROM __InstanceModificationEvent WITHIN 60 WHERE TargetInstance ISA \"Policy\" AND ";
    const auto one = Subscribed((modified + L"TargetInstance.ID=\"A\"").c_str());
    const auto longer =
        Subscribed((modified + L"TargetInstance.Days > 3 AND PreviousInstance.Days <= 3").c_str());
    PutPolicy(L"a", 1);
    PutPolicy(L"a", 2);
    PutPolicy(L"a", 2);
    PutPolicy(L"other", 2, L"Other");
    PutPolicy(L"m", 3, L"MailPolicy");
    PutPolicy(L"m", 4, L"MailPolicy");
    PutPolicy(L"a", 1);
    EXPECT_CODE(S_OK, DeleteInstance(L"Policy.ID=\"a\""));
    PutPolicy(L"last", 0);
    EXPECT_THAT(all->WaitForEvents(7),
                ElementsAre("Creation a 1", "Modification a 1 -> 2", "Creation m 3", "Modification m 3 -> 4",
                            "Modification a 2 -> 1", "Deletion a 1", "Creation last 0"));
    EXPECT_THAT(created->WaitForEvents(3), ElementsAre("Creation a 1", "Creation m 3", "Creation last 0"));
    EXPECT_THAT(one->WaitForEvents(2), ElementsAre("Modification a 1 -> 2", "Modification a 2 -> 1"));
    EXPECT_THAT(longer->WaitForEvents(1), ElementsAre("Modification m 3 -> 4"));
    Subscribed(L"SELECT * FROM __InstanceDeletionEvent");  // one more, while the others wait
    for (const auto& sink : sinks_) {
        EXPECT_CODE(S_OK, services->CancelAsyncCall(sink));
        EXPECT_THAT(sink->WaitForStatuses(1), ElementsAre(Code(WBEM_E_CALL_CANCELLED)));
        EXPECT_CODE(WBEM_E_NOT_FOUND, services->CancelAsyncCall(sink));
    }
    PutPolicy(L"after", 0);
    EXPECT_EQ(all->WaitForEvents(0).size(), 7U);
}

TEST_F(NotificationTest, WhatIsWrongIsRefused) {
    const CComPtr<Sink> sink = MakeSink();
    const std::pair<const wchar_t*, HRESULT> cases[] = {
        {L"SELECT * FROM Policy WITHIN 1", WBEM_E_INVALID_CLASS},
        {L"SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA 'None'",
         WBEM_E_INVALID_CLASS},
        {L"SELECT * FROM __InstanceCreationEvent WITHIN", WBEM_E_UNPARSABLE_QUERY},
        {L"SELECT * FROM __InstanceCreationEvent WHERE PreviousInstance ISA 'Policy'", WBEM_E_INVALID_QUERY}};
    for (const auto& [query, expected] : cases) {
        EXPECT_CODE(expected, Subscribe(query, sink)) << Narrow(std::wstring_view(query));
        EXPECT_FALSE(TakeReason().empty());
    }
    EXPECT_CODE(WBEM_E_INVALID_QUERY_TYPE, Subscribe(L"SELECT * FROM __InstanceCreationEvent", sink, L"SQL"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, Subscribe(L"SELECT * FROM __InstanceCreationEvent", nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, services->CancelAsyncCall(nullptr));
    EXPECT_CODE(WBEM_E_NOT_FOUND, services->CancelAsyncCall(sink));
    EXPECT_THAT(sink->WaitForStatuses(0), IsEmpty());
}

// A cancel returns when the running call has ended, but for one from within it.
TEST_F(NotificationTest, CancelWaitsForOthersAndNotForItself) {
    const auto slow = Subscribed(L"SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA 'Policy'");
    std::atomic<bool> is_inside{false}, may_leave{false}, has_left{false};
    slow->on_event = [&](const std::string&) {
        is_inside = true;
        while (!may_leave)
            std::this_thread::yield();
        has_left = true;
    };
    const auto self = Subscribed(L"SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA 'Policy'");
    Sink* const raw = self;
    // Both events may come in one call; what is in it is still told.
    self->on_event = [&, raw](const std::string& event) {
        EXPECT_CODE(event == "Creation 1 1" ? S_OK : WBEM_E_NOT_FOUND, services->CancelAsyncCall(raw));
    };
    PutPolicy(L"1", 1);
    PutPolicy(L"2", 2);
    EXPECT_THAT(self->WaitForStatuses(1), ElementsAre(Code(WBEM_E_CALL_CANCELLED)));
    EXPECT_THAT(self->WaitForEvents(1), testing::Contains("Creation 1 1"));
    while (!is_inside)
        std::this_thread::yield();
    std::jthread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        may_leave = true;
    });
    EXPECT_CODE(S_OK, services->CancelAsyncCall(slow));
    EXPECT_TRUE(has_left);
    EXPECT_THAT(slow->WaitForStatuses(0), ElementsAre(Code(WBEM_E_CALL_CANCELLED)));
    slow->on_event = nullptr;
    self->on_event = nullptr;
}

// Two receivers that each cancel the other's subscription must not wait for each other.
TEST_F(NotificationTest, ReceiversMayCancelEachOther) {
    for (int round = 0; round < 20; ++round) {
        const CComPtr<Sink> a = MakeSink(), b = MakeSink();
        std::atomic<int> inside{0};
        const auto meet = [&](Sink* other) {
            ++inside;
            while (inside < 2)
                std::this_thread::yield();
            services->CancelAsyncCall(other);
        };
        a->on_event = [&](const std::string&) { meet(b); };
        b->on_event = [&](const std::string&) { meet(a); };
        EXPECT_CODE(S_OK, Subscribe(L"SELECT * FROM __InstanceCreationEvent", a));
        EXPECT_CODE(S_OK, Subscribe(L"SELECT * FROM __InstanceCreationEvent", b));
        PutPolicy(L"round-" + std::to_wstring(round), 1);
        EXPECT_THAT(a->WaitForStatuses(1), ElementsAre(Code(WBEM_E_CALL_CANCELLED)));
        EXPECT_THAT(b->WaitForStatuses(1), ElementsAre(Code(WBEM_E_CALL_CANCELLED)));
    }
    // Their threads may still be about to let the sinks go.
    for (int i = 0; i < 2000 && live_ != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST_F(NotificationTest, ClassesMayComeAndGo) {
    const auto all = Subscribed(L"SELECT * FROM __InstanceOperationEvent WHERE TargetInstance ISA 'Policy'");
    ASSERT_CODE(S_OK,
                Import("class NewPolicy : Policy {}; instance of NewPolicy { ID = \"n\"; Days = 1; };"));
    EXPECT_THAT(all->WaitForEvents(1), ElementsAre("Creation n 1"));
    EXPECT_CODE(S_OK, DeleteInstance(L"NewPolicy.ID=\"n\""));
    ASSERT_CODE(S_OK, DeleteClass(L"NewPolicy"));
    EXPECT_THAT(all->WaitForEvents(2), ElementsAre("Creation n 1", "Deletion n 1"));
}

}  // namespace
