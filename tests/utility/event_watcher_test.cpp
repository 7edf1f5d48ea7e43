#include "utility/management/util_MgmtEventWatcher.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <atlbase.h>
#include <comdef.h>
#include <windows.h>

#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t RELOAD_EVENT[] = L"_KESTO_POLICY_RELOAD_SETTING_EVENT_";
constexpr wchar_t SUBSCRIBE[] = L"ExecNotificationQueryAsync WQL ";
constexpr wchar_t FLAGS[] = L" flags=128";

// Writes down what it is told, as "A one" for the event of the instance named "one".
class Recorder final : public CMgmtEventArrivedHandler {
 public:
    Recorder(std::wstring name, std::vector<std::wstring>& calls) : m_Name(std::move(name)), m_Calls(calls) {}

    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        const _variant_t* const value = args.GetNewEvent()->GetPropertyValue(L"DisplayName");
        m_Calls.push_back(m_Name + L" " + TextOf(value));
        // A copy, because what it does may be to set another one.
        if (const auto action = during) action(args);
        return -1;
    }
    void Release() override { m_Calls.push_back(m_Name + L" released"); }

    std::function<void(CMgmtEventArrivedArgs&)> during;

 private:
    std::wstring m_Name;
    std::vector<std::wstring>& m_Calls;
};

class EventWatcherTest : public ServiceTest {
 protected:
    void SetUp() override {
        setenv("MGMT_LOG", "stderr", 1);
        ServiceTest::SetUp();
        CMgmtScope::GetDefaultMgmtScope().Connect();
        service.Forget();
    }

    CComPtr<IWbemClassObject> Object(const doubles::Content& content) {
        CComPtr<IWbemClassObject> object;
        object.Attach(service.MakeObject(content));
        return object;
    }

    // An event about the instance of this name.
    CComPtr<IWbemClassObject> Event(const wchar_t* name) {
        const CComPtr<IWbemClassObject> target =
            Object({L"Cls", false, {{L"DisplayName", CIM_STRING, _variant_t(name)}}});
        return Object({L"__InstanceModificationEvent",
                       false,
                       {{L"TargetInstance", CIM_OBJECT, _variant_t(static_cast<IUnknown*>(target))}}});
    }

    // Hands the events over in one call.
    static HRESULT Indicate(IWbemObjectSink* sink, const std::vector<CComPtr<IWbemClassObject>>& events) {
        std::vector<IWbemClassObject*> pointers(events.begin(), events.end());
        return sink->Indicate(static_cast<long>(pointers.size()), pointers.data());
    }

    CComPtr<IWbemObjectSink> LatestSink() { return service.Sinks().back(); }

    std::vector<std::wstring> TakeCalls() { return std::exchange(calls, {}); }

    // The lines that are logged meanwhile, as "failure text", each of the watcher's file.
    static std::vector<std::string> Logged(const std::function<void()>& work) {
        testing::internal::CaptureStderr();
        work();
        std::istringstream text(testing::internal::GetCapturedStderr());
        const std::regex shape(R"(\S+ (\w+) \[\d+:\d+\] util_MgmtEventWatcher\.cpp:\d+ (.*))");
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(std::regex_replace(line, shape, "$1 $2"));
        return lines;
    }

    std::vector<std::wstring> calls;
    Recorder a{L"A", calls};
    Recorder b{L"B", calls};
};

TEST_F(EventWatcherTest, QueriesOfTheWatchesOfAClass) {
    const struct {
        int type;
        const wchar_t* instanceId;
        int interval;
        const wchar_t* query;
    } cases[] = {
        {0, nullptr, 5,
         L"SELECT * FROM __InstanceModificationEvent WITHIN 5 WHERE TargetInstance ISA \"Cls\""},
        {1, L"", 0, L"SELECT * FROM __InstanceCreationEvent WITHIN 0 WHERE TargetInstance ISA \"Cls\""},
        {2, L"42", 86400,
         L"SELECT * FROM __InstanceDeletionEvent WITHIN 86400 WHERE TargetInstance ISA \"Cls\" AND "
         L"TargetInstance.INSTANCE_ID=\"42\""},
        {0, L"a \"b\" \\c", INT_MIN,
         L"SELECT * FROM __InstanceModificationEvent WITHIN -2147483648 WHERE TargetInstance ISA \"Cls\" AND "
         L"TargetInstance.INSTANCE_ID=\"a \"b\" \\c\""}};
    for (const auto& [type, instanceId, interval, query] : cases) {
        CMgmtEventWatcher watcher(type, L"Cls", instanceId, interval);
        EXPECT_THAT(service.TakeRequests(), IsEmpty()) << "nothing is asked before";
        EXPECT_TRUE(watcher.Start());
        EXPECT_THAT(service.TakeRequests(), ElementsAre(SUBSCRIBE + std::wstring(query) + FLAGS));
        EXPECT_TRUE(watcher.Stop());
        EXPECT_THAT(service.TakeRequests(), ElementsAre(L"CancelAsyncCall"));
        EXPECT_TRUE(service.Sinks().empty());
    }
}

TEST_F(EventWatcherTest, QueriesAreCutAt255UnitsUnlessTheyAreTheCallers) {
    const std::wstring form = L"SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA \"\"";
    for (const std::size_t length : {255U, 256U, 257U, 2000U}) {
        SCOPED_TRACE(length);
        const std::wstring name(length - form.size(), L'c');
        CMgmtEventWatcher watcher(1, name.c_str(), nullptr, 1);
        EXPECT_TRUE(watcher.Start());
        const std::wstring whole = form.substr(0, form.size() - 1) + name + L"\"";
        EXPECT_THAT(service.TakeRequests(), ElementsAre(SUBSCRIBE + whole.substr(0, 255) + FLAGS));
        EXPECT_TRUE(watcher.Stop());
        service.Forget();
    }

    const std::wstring longText = L"SELECT * FROM X WHERE A=\"" + std::wstring(5000, L'x') + L"\"";
    CMgmtEventWatcher watcher(longText.c_str());
    EXPECT_TRUE(watcher.Start());
    EXPECT_THAT(service.TakeRequests(), ElementsAre(SUBSCRIBE + longText + FLAGS));
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventWatcherTest, NothingToWatchIsRefusedWithoutAskingTheService) {
    CMgmtEventWatcher watchers[] = {{-1, L"Cls", nullptr, 5},   {3, L"Cls", nullptr, 5},
                                    {INT_MAX, L"Cls", L"a", 5}, {INT_MIN, L"Cls", L"a", 5},
                                    {0, nullptr, L"a", 5},      {0, L"", L"a", 5},
                                    CMgmtEventWatcher(L""),     CMgmtEventWatcher(nullptr)};
    const std::vector<std::string> log = Logged([&] {
        for (CMgmtEventWatcher& watcher : watchers) {
            EXPECT_FALSE(watcher.Start());
            EXPECT_FALSE(watcher.Stop());
        }
    });
    EXPECT_THAT(log, IsEmpty());
    EXPECT_THAT(service.TakeRequests(), IsEmpty());

    MgmtInitialize(L"\\\\.\\root\\Test");
    CMgmtEventWatcher unconnected(L"");
    EXPECT_FALSE(unconnected.Start());
    EXPECT_THAT(service.TakeRequests(), AfterConnecting({})) << "the connection comes first";
}

TEST_F(EventWatcherTest, ServiceFailingAtAnyRequestIsSoft) {
    for (const HRESULT result : {HRESULT{WBEM_E_FAILED}, HRESULT{WBEM_S_FALSE}})
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            ASSERT_LT(n, 10);
            MgmtInitialize(L"\\\\.\\root\\Test");
            CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
            EXPECT_FALSE(watcher.Stop()) << "nothing was started";
            MgmtInitialize(L"\\\\.\\root\\Test");
            watcher = CMgmtEventWatcher(0, L"Cls", nullptr, 5);
            service.FailAt(n, result);
            const bool started = watcher.Start();
            const bool stopped = watcher.Stop();
            const bool failed = service.HasFailed();
            service.FailAt(0, S_OK);
            EXPECT_TRUE(failed || (started && stopped)) << "without a fault it must succeed";
            EXPECT_EQ(started && !stopped, !service.Sinks().empty());

            EXPECT_EQ(watcher.Stop(), started && !stopped) << "what still runs can be stopped, once";
            EXPECT_TRUE(watcher.Start());
            EXPECT_TRUE(watcher.Stop());
            if (!failed) break;
        }
}

TEST_F(EventWatcherTest, WatchesThroughTheDefaultScopeOfItsConstruction) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    MgmtInitialize(L"\\\\.\\root\\Later");
    EXPECT_TRUE(watcher.Start());
    EXPECT_TRUE(watcher.Stop());
    EXPECT_EQ(service.TakeRequests().size(), 2U) << "over the connection there was";
}

TEST_F(EventWatcherTest, HandlersAreCalledInOrderOnceForEachEvent) {
    std::vector<CMgmtEventArrivedArgs*> arguments;
    a.during = b.during = [&](CMgmtEventArrivedArgs& args) { arguments.push_back(&args); };
    CMgmtObjectBase* built = nullptr;
    std::optional<CMgmtEventWatcher> watcher(std::in_place, 0, L"Cls", nullptr, 5);
    for (CMgmtEventArrivedHandler* handler :
         {static_cast<CMgmtEventArrivedHandler*>(&b), static_cast<CMgmtEventArrivedHandler*>(nullptr),
          static_cast<CMgmtEventArrivedHandler*>(&a), static_cast<CMgmtEventArrivedHandler*>(&b)})
        watcher->AddEventArrivedEventHandler(handler);
    ASSERT_TRUE(watcher->Start());
    const CComPtr<IWbemObjectSink> sink = LatestSink();
    EXPECT_EQ(sink->Indicate(0, nullptr), WBEM_S_NO_ERROR);
    EXPECT_THAT(calls, IsEmpty());

    EXPECT_EQ(Indicate(sink, {Event(L"one"), Event(L"two")}), WBEM_S_NO_ERROR);
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B one", L"A one", L"B two", L"A two"));
    EXPECT_EQ(arguments[0], arguments[1]) << "one argument object for all handlers";

    b.during = [&](CMgmtEventArrivedArgs& args) { built = args.GetNewEvent(); };
    a.during = [&](CMgmtEventArrivedArgs& args) { EXPECT_EQ(args.GetNewEvent(), built); };
    EXPECT_EQ(Indicate(sink, {Object({L"__TimerEvent", false, {}})}), WBEM_S_NO_ERROR);
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B (null)", L"A (null)")) << "an event without an instance";

    EXPECT_TRUE(watcher->Stop());
    watcher.reset();
    EXPECT_THAT(calls, ElementsAre(L"B released", L"A released"));
}

TEST_F(EventWatcherTest, WhatAHandlerThrowsIsLoggedAndEndsThatEventAlone) {
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { throw std::runtime_error("no room for gr\xC3\xBC\xC3\x9F"); },
         "no room for gr\xC3\xBC\xC3\x9F"},
        {[] { throw std::runtime_error("broken \xFF text"); }, "broken ? text"},
        {[] { throw std::bad_alloc(); }, "std::bad_alloc"},
        {[] { throw CManagementException(MGMT_ERR_VALUE_TYPE, L"x.cpp", 1); }, "error = -95006"},
        {[] { throw _com_error(E_OUTOFMEMORY); }, "hr=0x8007000e"},
        {[] { AtlThrow(E_FAIL); }, "hr=0x80004005"},
        {[] { throw 5; }, "unknown"}};
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&a);
    watcher.AddEventArrivedEventHandler(&b);
    ASSERT_TRUE(watcher.Start());
    for (const auto& [fail, reason] : cases) {
        a.during = [&, failing = fail](CMgmtEventArrivedArgs&) {
            a.during = nullptr;
            failing();
        };
        const std::vector<std::string> log = Logged([&] {
            EXPECT_EQ(Indicate(LatestSink(), {Event(L"one"), Event(L"two")}), WBEM_S_NO_ERROR);
        });
        EXPECT_THAT(TakeCalls(), ElementsAre(L"A one", L"A two", L"B two"));
        EXPECT_THAT(log, ElementsAre("failure WMI EventSink->Indicate() exception. " + std::string(reason)));
    }

    a.during = [](CMgmtEventArrivedArgs&) { throw std::runtime_error(std::string(100000, 'x')); };
    const std::vector<std::string> log = Logged([&] { Indicate(LatestSink(), {Event(L"one")}); });
    ASSERT_EQ(log.size(), 1U);
    EXPECT_TRUE(log[0].ends_with("xxxx"));
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventWatcherTest, StatusesAreLogged) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    ASSERT_TRUE(watcher.Start());
    const CComPtr<IWbemObjectSink> sink = LatestSink();
    const std::pair<HRESULT, const char*> cases[] = {
        {WBEM_S_NO_ERROR, "notice WMI EventSink->SetStatus() ok"},
        {WBEM_S_TIMEDOUT, "notice WMI EventSink->SetStatus() ok"},
        {WBEM_E_CALL_CANCELLED, "notice WMI EventSink->SetStatus(WBEM_E_CALL_CANCELLED)."},
        {WBEM_E_FAILED, "failure WMI EventSink->SetStatus(0x80041001)."},
        {E_OUTOFMEMORY, "failure WMI EventSink->SetStatus(0x8007000e)."}};
    for (const auto& [status, line] : cases) {
        const HRESULT given = status;
        EXPECT_THAT(Logged([&] { EXPECT_EQ(sink->SetStatus(0, given, nullptr, nullptr), WBEM_S_NO_ERROR); }),
                    ElementsAre(line));
    }
    EXPECT_THAT(Logged([&] { EXPECT_TRUE(watcher.Stop()); }),
                ElementsAre("notice WMI EventSink->SetStatus(WBEM_E_CALL_CANCELLED)."));
}

TEST_F(EventWatcherTest, AnOverflowSignalsTheReloadEventWhereThereIsOne) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    ASSERT_TRUE(watcher.Start());
    const auto overflow = [&] {
        EXPECT_EQ(LatestSink()->SetStatus(0, WBEM_E_QUEUE_OVERFLOW, nullptr, nullptr), WBEM_S_NO_ERROR);
    };
    constexpr const char* STATUS = "failure WMI EventSink->SetStatus(0x80041061).";
    constexpr const char* SIGNAL = "notice Set policy reload setting event";
    ASSERT_EQ(OpenEventW(EVENT_MODIFY_STATE, FALSE, RELOAD_EVENT), nullptr) << "another process has it";
    EXPECT_THAT(Logged(overflow), ElementsAre(STATUS, SIGNAL, "failure Set reload event fail. error = 2"));

    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, RELOAD_EVENT);
    ASSERT_NE(event, nullptr);
    LatestSink()->SetStatus(0, WBEM_E_FAILED, nullptr, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT) << "no other failure signals";
    EXPECT_THAT(Logged(overflow), ElementsAre(STATUS, SIGNAL));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_THAT(Logged(overflow), ElementsAre(STATUS, SIGNAL, "failure Set reload event fail. error = 2"))
        << "the sink has left no handle open";
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventWatcherTest, TheSinkCountsItsReferencesAndAnswersForTwoInterfaces) {
    std::optional<CMgmtEventWatcher> watcher(std::in_place, 0, L"Cls", nullptr, 5);
    ASSERT_TRUE(watcher->Start());
    IWbemObjectSink* const sink = LatestSink().Detach();
    for (const IID& iid : {IID_IUnknown, IID_IWbemObjectSink}) {
        void* found = nullptr;
        EXPECT_EQ(sink->QueryInterface(iid, &found), S_OK);
        EXPECT_EQ(found, sink);
        EXPECT_EQ(sink->Release(), 3U) << "this one's, the watcher's and the service's";
    }
    void* none = sink;
    EXPECT_EQ(sink->QueryInterface(IID_IWbemServices, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(sink->QueryInterface(IID_IUnknown, nullptr), E_POINTER);

    EXPECT_TRUE(watcher->Stop());
    EXPECT_EQ(sink->AddRef(), 3U) << "the watcher keeps the sink after the service let it go";
    CMgmtEventWatcher copy(*watcher);
    EXPECT_EQ(sink->AddRef(), 5U);
    watcher.reset();
    copy = CMgmtEventWatcher(L"");
    EXPECT_EQ(sink->Release(), 2U);
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_EQ(sink->Release(), 0U);
}

TEST_F(EventWatcherTest, ACopyStopsTheOriginalsSubscription) {
    std::optional<CMgmtEventWatcher> original(std::in_place, 0, L"Cls", L"42", 5);
    original->AddEventArrivedEventHandler(&a);
    ASSERT_TRUE(original->Start());
    CMgmtEventWatcher copy(*original);
    copy.AddEventArrivedEventHandler(&b);
    Indicate(LatestSink(), {Event(L"one")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A one")) << "the original's handlers alone";
    EXPECT_TRUE(copy.Stop());
    EXPECT_FALSE(original->Stop()) << "it is cancelled already";
    original.reset();
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A released"));

    service.Forget();
    EXPECT_TRUE(copy.Start());
    EXPECT_THAT(service.TakeRequests(),
                ElementsAre(SUBSCRIBE +
                            std::wstring(L"SELECT * FROM __InstanceModificationEvent WITHIN 5 "
                                         L"WHERE TargetInstance ISA \"Cls\" AND "
                                         L"TargetInstance.INSTANCE_ID=\"42\"") +
                            FLAGS));
    Indicate(LatestSink(), {Event(L"two")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A two", L"B two"));
    EXPECT_TRUE(copy.Stop());
}

TEST_F(EventWatcherTest, AssignmentTakesEverythingAndReleasesNoHandler) {
    {
        CMgmtEventWatcher assigned(0, L"Cls", nullptr, 5);
        assigned.AddEventArrivedEventHandler(&a);
        MgmtInitialize(L"\\\\.\\root\\Later");
        CMgmtEventWatcher other(L"SELECT * FROM __TimerEvent");
        other.AddEventArrivedEventHandler(&b);
        assigned = other;
        const CMgmtEventWatcher& itself = assigned;
        assigned = itself;
        EXPECT_THAT(TakeCalls(), IsEmpty());
        EXPECT_TRUE(assigned.Start());
        EXPECT_THAT(service.TakeRequests(),
                    ElementsAre(L"CreateLocator", L"ConnectServer \\\\.\\root\\Later", L"SetBlanket",
                                SUBSCRIBE + std::wstring(L"SELECT * FROM __TimerEvent") + FLAGS))
            << "its query, through its scope";
        EXPECT_FALSE(other.Stop()) << "the subscription began after the assignment";
        EXPECT_TRUE(assigned.Stop());
    }
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B released", L"B released")) << "by each of the two";
}

TEST_F(EventWatcherTest, StartedAgainWithoutStopItCanOnlyCancelTheLater) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&a);
    ASSERT_TRUE(watcher.Start());
    const CComPtr<IWbemObjectSink> first = LatestSink();
    ASSERT_TRUE(watcher.Start());
    ASSERT_EQ(service.Sinks().size(), 2U);
    for (const CComPtr<IWbemObjectSink>& sink : service.Sinks())
        Indicate(sink, {Event(L"one")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A one", L"A one"));

    EXPECT_TRUE(watcher.Stop());
    EXPECT_FALSE(watcher.Stop());
    ASSERT_EQ(service.Sinks().size(), 1U);
    EXPECT_EQ(LatestSink(), first);
    Indicate(first, {Event(L"two")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A two"));
}

TEST_F(EventWatcherTest, AHandlerOfTwoWatchersServesBothAndIsReleasedByBoth) {
    {
        CMgmtEventWatcher creations(1, L"Cls", nullptr, 5);
        CMgmtEventWatcher deletions(2, L"Cls", nullptr, 5);
        creations.AddEventArrivedEventHandler(&a);
        deletions.AddEventArrivedEventHandler(&b);
        deletions.AddEventArrivedEventHandler(&a);
        ASSERT_TRUE(creations.Start());
        ASSERT_TRUE(deletions.Start());
        Indicate(service.Sinks().front(), {Event(L"one")});
        Indicate(service.Sinks().back(), {Event(L"one")});
        EXPECT_THAT(TakeCalls(), ElementsAre(L"A one", L"B one", L"A one"));
        service.Forget();
        EXPECT_TRUE(creations.Stop());
        EXPECT_TRUE(deletions.Stop());
        service.Forget();
    }
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B released", L"A released", L"A released"));
    EXPECT_THAT(service.TakeRequests(), IsEmpty()) << "destroying a watcher cancels nothing";
}

TEST_F(EventWatcherTest, AHandlerMayStopAndRestartItsWatcher) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&a);
    a.during = [&](CMgmtEventArrivedArgs&) {
        a.during = nullptr;
        EXPECT_TRUE(watcher.Stop());
        EXPECT_TRUE(watcher.Start());
    };
    ASSERT_TRUE(watcher.Start());
    Indicate(LatestSink(), {Event(L"one"), Event(L"two")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A one", L"A two"));
    Indicate(LatestSink(), {Event(L"three")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A three"));
    EXPECT_TRUE(watcher.Stop());
}

// Counts; every third call fails.
class Counter final : public CMgmtEventArrivedHandler {
 public:
    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        if (TextOf(args.GetNewEvent()->GetPropertyValue(L"DisplayName")) == L"one") ++right;
        if (++calls % 3 == 0) throw std::runtime_error("every third");
        return 0;
    }
    void Release() override {}

    std::atomic<int> calls{0};
    std::atomic<int> right{0};
};

TEST_F(EventWatcherTest, TheServiceMayCallFromManyThreadsAtOnce) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 50;
    Counter counter;
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&counter);
    ASSERT_TRUE(watcher.Start());
    const CComPtr<IWbemObjectSink> sink = LatestSink();
    const std::vector<std::string> log = Logged([&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < THREADS; ++t)
            threads.emplace_back([&, held = sink] {
                for (int i = 0; i < ROUNDS; ++i) {
                    const CComPtr<IWbemObjectSink> another(held);
                    Indicate(another, {Event(L"one"), Event(L"one")});
                }
                held->SetStatus(0, WBEM_S_NO_ERROR, nullptr, nullptr);
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    constexpr int EVENTS = THREADS * ROUNDS * 2;
    EXPECT_EQ(counter.calls, EVENTS);
    EXPECT_EQ(counter.right, EVENTS);
    EXPECT_EQ(std::count(log.begin(), log.end(), "failure WMI EventSink->Indicate() exception. every third"),
              EVENTS / 3);
    EXPECT_EQ(std::count(log.begin(), log.end(), "notice WMI EventSink->SetStatus() ok"), THREADS);
    EXPECT_EQ(log.size(), static_cast<std::size_t>(EVENTS / 3 + THREADS)) << "no line is torn";
    EXPECT_TRUE(watcher.Stop());
}

}  // namespace
