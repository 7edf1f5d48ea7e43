#include "utility/management/util_MgmtEventWatcher.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <functional>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <atlbase.h>
#include <comdef.h>
#include <windows.h>

#include "tests/platform/threads.h"
#include "tests/utility/service_fixture.h"

namespace {

using ::testing::Each;
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
    const std::wstring longText = L"SELECT * FROM X WHERE A=\"" + std::wstring(5000, L'x') + L"\"";
    const std::wstring name(255, L'c');
    const std::wstring ofName =
        L"SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA \"" + name;
    const std::pair<CMgmtEventWatcher, std::wstring> cases[] = {
        {{0, L"Cls", nullptr, 5},
         L"SELECT * FROM __InstanceModificationEvent WITHIN 5 WHERE TargetInstance ISA \"Cls\""},
        {{1, L"Cls", L"", 0},
         L"SELECT * FROM __InstanceCreationEvent WITHIN 0 WHERE TargetInstance ISA \"Cls\""},
        {{2, L"Cls", L"a \"b\" \\c", INT_MIN},
         L"SELECT * FROM __InstanceDeletionEvent WITHIN -2147483648 WHERE TargetInstance ISA \"Cls\" AND "
         L"TargetInstance.INSTANCE_ID=\"a \"b\" \\c\""},
        {{1, name.c_str(), nullptr, 1}, ofName.substr(0, 255)},
        {CMgmtEventWatcher(longText.c_str()), longText}};
    EXPECT_THAT(service.TakeRequests(), IsEmpty()) << "nothing is asked before";
    for (const auto& [made, query] : cases) {
        CMgmtEventWatcher watcher(made);
        EXPECT_TRUE(watcher.Start());
        EXPECT_THAT(service.TakeRequests(), ElementsAre(SUBSCRIBE + query + FLAGS));
        EXPECT_TRUE(watcher.Stop());
        EXPECT_THAT(service.TakeRequests(), ElementsAre(L"CancelAsyncCall"));
        EXPECT_TRUE(service.Sinks().empty());
    }
}

TEST_F(EventWatcherTest, NothingToWatchIsRefusedWithoutAskingTheService) {
    CMgmtEventWatcher watchers[] = {{-1, L"Cls", nullptr, 5}, {3, L"Cls", nullptr, 5},
                                    {0, nullptr, L"a", 5},    {0, L"", L"a", 5},
                                    CMgmtEventWatcher(L""),   CMgmtEventWatcher(nullptr)};
    for (CMgmtEventWatcher& watcher : watchers)
        EXPECT_THAT(Logged([&] { EXPECT_FALSE(watcher.Start() || watcher.Stop()); }), IsEmpty());
    EXPECT_THAT(service.TakeRequests(), IsEmpty());

    MgmtInitialize(L"\\\\.\\root\\Test");
    EXPECT_FALSE(CMgmtEventWatcher(L"").Start());
    EXPECT_THAT(service.TakeRequests(), AfterConnecting({})) << "the connection comes first";
}

TEST_F(EventWatcherTest, ServiceFailingAtAnyRequestIsSoft) {
    for (const HRESULT result : {HRESULT{WBEM_E_FAILED}, HRESULT{WBEM_S_FALSE}}) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            SCOPED_TRACE(n);
            MgmtInitialize(L"\\\\.\\root\\Test");
            CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
            service.FailAt(n, result);
            const bool started = watcher.Start();
            const bool stopped = watcher.Stop();
            failed = service.HasFailed();
            service.FailAt(0, S_OK);
            EXPECT_TRUE(failed || (started && stopped)) << "without a fault it must succeed";
            EXPECT_EQ(started && !stopped, !service.Sinks().empty());

            EXPECT_EQ(watcher.Stop(), started && !stopped) << "what still runs can be stopped, once";
            EXPECT_TRUE(watcher.Start());
            EXPECT_TRUE(watcher.Stop());
        }
    }
}

TEST_F(EventWatcherTest, HandlersAreCalledInOrderOnceForEachEvent) {
    CMgmtEventArrivedArgs* arguments = nullptr;
    CMgmtObjectBase* built = nullptr;
    std::optional<CMgmtEventWatcher> watcher(std::in_place, 0, L"Cls", nullptr, 5);
    for (CMgmtEventArrivedHandler* handler : {&b, static_cast<Recorder*>(nullptr), &a, &b})
        watcher->AddEventArrivedEventHandler(handler);
    ASSERT_TRUE(watcher->Start());
    const CComPtr<IWbemObjectSink> sink = LatestSink();
    EXPECT_EQ(sink->Indicate(0, nullptr), WBEM_S_NO_ERROR);
    EXPECT_THAT(calls, IsEmpty());

    b.during = [&](CMgmtEventArrivedArgs& args) {
        arguments = &args;
        built = args.GetNewEvent();
    };
    a.during = [&](CMgmtEventArrivedArgs& args) {
        EXPECT_EQ(&args, arguments) << "one argument object for all handlers";
        EXPECT_EQ(args.GetNewEvent(), built);
    };
    EXPECT_EQ(Indicate(sink, {Event(L"one"), Event(L"two")}), WBEM_S_NO_ERROR);
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B one", L"A one", L"B two", L"A two"));
    EXPECT_EQ(Indicate(sink, {Object({L"__TimerEvent", false, {}})}), WBEM_S_NO_ERROR);
    EXPECT_THAT(TakeCalls(), ElementsAre(L"B (null)", L"A (null)")) << "an event without an instance";

    EXPECT_TRUE(watcher->Stop());
    service.Forget();
    watcher.reset();
    EXPECT_THAT(calls, ElementsAre(L"B released", L"A released"));
    EXPECT_THAT(service.TakeRequests(), IsEmpty()) << "destroying a watcher cancels nothing";
}

TEST_F(EventWatcherTest, WhatAHandlerThrowsIsLoggedAndEndsThatEventAlone) {
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { throw std::runtime_error("no room for gr\xC3\xBC\xC3\x9F"); },
         "no room for gr\xC3\xBC\xC3\x9F"},
        {[] { throw std::runtime_error("broken \xFF text"); }, "broken ? text"},
        {[] { throw std::runtime_error(std::string(100000, 'x')); }, std::string(100, 'x')},
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
        ASSERT_EQ(log.size(), 1U);
        EXPECT_EQ(log[0].find("failure WMI EventSink->Indicate() exception. "), 0U);
        EXPECT_TRUE(log[0].ends_with(reason));
    }
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventWatcherTest, StatusesAreLoggedAndAnOverflowSignalsTheReloadEvent) {
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    ASSERT_TRUE(watcher.Start());
    const auto logOf = [&](HRESULT status) {
        return Logged(
            [&] { EXPECT_EQ(LatestSink()->SetStatus(0, status, nullptr, nullptr), WBEM_S_NO_ERROR); });
    };
    EXPECT_THAT(logOf(WBEM_S_TIMEDOUT), ElementsAre("notice WMI EventSink->SetStatus() ok"));
    EXPECT_THAT(logOf(WBEM_E_CALL_CANCELLED),
                ElementsAre("notice WMI EventSink->SetStatus(WBEM_E_CALL_CANCELLED)."));

    constexpr const char* STATUS = "failure WMI EventSink->SetStatus(0x80041061).";
    constexpr const char* SIGNAL = "notice Set policy reload setting event";
    constexpr const char* NO_EVENT = "failure Set reload event fail. error = 2";
    ASSERT_EQ(OpenEventW(EVENT_MODIFY_STATE, FALSE, RELOAD_EVENT), nullptr) << "another process has it";
    EXPECT_THAT(logOf(WBEM_E_QUEUE_OVERFLOW), ElementsAre(STATUS, SIGNAL, NO_EVENT));
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, RELOAD_EVENT);
    ASSERT_NE(event, nullptr);
    EXPECT_THAT(logOf(E_OUTOFMEMORY), ElementsAre("failure WMI EventSink->SetStatus(0x8007000e)."));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT) << "no other failure signals";
    EXPECT_THAT(logOf(WBEM_E_QUEUE_OVERFLOW), ElementsAre(STATUS, SIGNAL));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_THAT(logOf(WBEM_E_QUEUE_OVERFLOW), ElementsAre(STATUS, SIGNAL, NO_EVENT))
        << "the sink has left no handle open";
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventWatcherTest, TheSinkCountsItsReferencesAndAnswersForTwoInterfaces) {
    std::optional<CMgmtEventWatcher> watcher(std::in_place, 0, L"Cls", nullptr, 5);
    ASSERT_TRUE(watcher->Start());
    IWbemObjectSink* const sink = LatestSink().Detach();
    void* found = nullptr;
    for (const IID& iid : {IID_IUnknown, IID_IWbemObjectSink}) {
        EXPECT_EQ(sink->QueryInterface(iid, &found), S_OK);
        EXPECT_EQ(found, sink);
        EXPECT_EQ(sink->Release(), 3U) << "this one's, the watcher's and the service's";
    }
    EXPECT_EQ(sink->QueryInterface(IID_IWbemServices, &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(sink->QueryInterface(IID_IUnknown, nullptr), E_POINTER);

    EXPECT_TRUE(watcher->Stop());
    CMgmtEventWatcher copy(*watcher);
    EXPECT_EQ(sink->AddRef(), 4U) << "the watchers keep the sink after the service let it go";
    watcher.reset();
    copy = CMgmtEventWatcher(L"");
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_EQ(sink->Release(), 0U);
}

TEST_F(EventWatcherTest, ACopyStopsTheOriginalsSubscription) {
    std::optional<CMgmtEventWatcher> original(std::in_place, 0, L"Cls", L"42", 5);
    original->AddEventArrivedEventHandler(&a);
    ASSERT_TRUE(original->Start());
    const std::wstring subscription = service.TakeRequests().at(0);
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
    EXPECT_THAT(service.TakeRequests(), ElementsAre(subscription));
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
    for (const CComPtr<IWbemObjectSink>& sink : service.Sinks())
        Indicate(sink, {Event(L"one")});
    EXPECT_THAT(TakeCalls(), ElementsAre(L"A one", L"A one"));
    EXPECT_TRUE(watcher.Stop());
    EXPECT_FALSE(watcher.Stop());
    EXPECT_THAT(service.Sinks(), ElementsAre(first));
}

// Counts; every third call fails.
class Counter final : public CMgmtEventArrivedHandler {
 public:
    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        EXPECT_EQ(TextOf(args.GetNewEvent()->GetPropertyValue(L"DisplayName")), L"one");
        if (++calls % 3 == 0) throw std::runtime_error("every third");
        return 0;
    }
    void Release() override {}

    std::atomic<int> calls{0};
};

TEST_F(EventWatcherTest, TheServiceMayCallFromManyThreadsAtOnce) {
    Counter counter;
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&counter);
    ASSERT_TRUE(watcher.Start());
    const std::vector<std::string> log = Logged([&] {
        RunInThreads(4, [&, held = LatestSink()] {
            for (int i = 0; i < 75; ++i)
                Indicate(CComPtr<IWbemObjectSink>(held), {Event(L"one"), Event(L"one")});
        });
    });
    EXPECT_EQ(counter.calls, 600);
    EXPECT_EQ(log.size(), 200U);
    EXPECT_THAT(log, Each("failure WMI EventSink->Indicate() exception. every third")) << "no line is torn";
    EXPECT_TRUE(watcher.Stop());
}

}  // namespace
