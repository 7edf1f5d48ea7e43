// Every allocation of an operation fails in turn. The exception must be one of those that the library names,
// nothing may leak, and the object must work as if the attempt had not been made.
#include <cstdlib>
#include <functional>
#include <new>
#include <optional>

#include <comdef.h>

#include "tests/utility/exhausted_memory.h"
#include "tests/utility/service_fixture.h"

namespace {

class OutOfMemoryTest : public ServiceTest {
 protected:
    void SetUp() override {
        setenv("MGMT_LOG", "off", 1);
        ServiceTest::SetUp();
        service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"answer")}});
    }

    // Runs `attempt` until no allocation fails any more, `check` after each. Returns how many
    // CManagementExceptions were thrown.
    int FailAtEachAllocation(
        const std::function<void()>& attempt, const std::function<void()>& check = [] {}) {
        int count = 0;
        service.Forget();
        FailEachAllocation([&] {
            const bool done = Succeeds(attempt, &count);
            EXPECT_NE(done, doubles::g_allocationSwitches.failed) << "a failed allocation is told";
            const doubles::SparedAllocations spared;
            check();
            service.Forget();
        });
        return count;
    }

    // A service's object with one property.
    _variant_t Made(const wchar_t* className, const wchar_t* name, CIMTYPE type, const _variant_t& value) {
        return {service.MakeObject({className, false, {{name, type, value}}}), false};
    }
};

TEST_F(OutOfMemoryTest, MakingAndConnectingScopes) {
    EXPECT_EQ(FailAtEachAllocation([] { CMgmtScope scope(L"path"); }), 1)
        << "the record; the path's string is the wrapper's";
    EXPECT_EQ(FailAtEachAllocation(
                  [] {
                      MgmtInitialize(L"other");
                      const doubles::SparedAllocations spared;
                      MgmtInitialize(L"\\\\.\\root\\Test");
                  },
                  [] { EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"\\\\.\\root\\Test"); }),
              1);
    FailAtEachAllocation([] {
        CMgmtScope fresh(L"path");
        fresh.SetUserName(L"LAB\\operator");
        fresh.SetPassword(L"secret");
        fresh.Connect();
        EXPECT_TRUE(fresh.IsConnected());
    });
}

TEST_F(OutOfMemoryTest, BuildingAnObject) {
    FailAtEachAllocation([] { CMgmtObject object(L"Category", L"a long instance id", L"server"); });
    FailAtEachAllocation([] { CMgmtObject object(L"Cls.INSTANCE_ID=\"42\""); });
    FailAtEachAllocation([] { CMgmtClass listing(L"A class's name", true); });
    const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
    CMgmtScope::GetDefaultMgmtScope().Connect();
    FailAtEachAllocation([&] { CMgmtObject object(&reference); });
    const _variant_t held = Made(L"Cls", L"Name of the object", CIM_STRING, L"n");
    FailAtEachAllocation([&] {
        const CMgmtObjectBase bag(&held, false);
        ASSERT_NE(bag.GetPropertyValue(L"Name of the object"), nullptr);
    });
}

TEST_F(OutOfMemoryTest, Get) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    FailAtEachAllocation([] { ASSERT_TRUE(CMgmtObject(L"Cls", L"42", nullptr).Get()); });
    // The held object must not be left in the middle of an enumeration.
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    FailAtEachAllocation([&] { ASSERT_TRUE(object.Get()); },
                         [&] {
                             EXPECT_EQ(object.GetProperties()->GetTotalItemCount(), 6U);
                             EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
                         });
}

TEST_F(OutOfMemoryTest, ListingLeavesInTheCacheWhatWasListedBefore) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    service.AddClass(L"Empty", {});
    service.AddInstance(L"Cls", L"an id of some length",
                        {{L"Changed", _variant_t(L"19000101060000.000000+000")}});
    service.AddInstance(L"Cls", L"another one", {});
    for (const bool useInstanceId : {true, false})
        FailAtEachAllocation([&] {
            CMgmtClass listing(L"Empty", useInstanceId);
            const CMgmtObjectCollection* const instances = listing.GetInstances();
            listing.SetCategoryID(L"Cls");
            try {
                listing.GetInstances();
                ASSERT_EQ(instances->GetTotalItemCount(), 3U);
            } catch (...) {
                const doubles::SparedAllocations spared;
                EXPECT_LT(instances->GetTotalItemCount(), 3U);
                for (size_t i = 0; i < instances->GetTotalItemCount(); ++i)
                    EXPECT_EQ(instances->GetItem(i)->GetProperties()->GetTotalItemCount(), 6U);
                EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 3U);
                throw;
            }
        });
}

TEST_F(OutOfMemoryTest, SettingAPropertyKeepsTheOldRecordUntilTheNewOneStands) {
    CMgmtObjectBase bag;
    bag.SetPropertyValue(L"a name of some length", L"old");
    bag.SetPropertyValue(L"b", 1);
    FailAtEachAllocation(
        [&] {
            bag.SetPropertyValue(L"a name of some length", L"a new text");
            const doubles::SparedAllocations spared;
            bag.SetPropertyValue(L"a name of some length", L"old");
        },
        [&] {
            EXPECT_EQ(TextOf(bag.GetPropertyValue(L"a name of some length")), L"old");
            EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 2U);
        });
    FailAtEachAllocation([] {
        CMgmtObjectBase fresh;
        fresh.SetPropertyValue(L"another long name", L"value");
        fresh.SetPropertyValue(std::wstring(L"another long name"), _variant_t(L"value"));
        const CMgmtObjectBase copy(fresh);
    });
}

class EventCounter final : public CMgmtEventArrivedHandler {
 public:
    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        if (args.GetNewEvent()->GetProperties()->GetTotalItemCount() == 1) ++whole;
        return 0;
    }
    void Release() override {}

    int whole = 0;
};

TEST_F(OutOfMemoryTest, MakingAndStartingWatchers) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    EventCounter handler;
    FailAtEachAllocation([&] {
        CMgmtEventWatcher made(0, L"a class's name of some length", L"an id of some length", 5);
        made.AddEventArrivedEventHandler(&handler);
        const CMgmtEventWatcher copy(made);
    });

    constexpr const wchar_t* QUERY = L"SELECT * FROM the first one";
    std::optional<CMgmtEventWatcher> watcher(QUERY);
    ASSERT_TRUE(watcher->Start() && watcher->Stop()) << "the double's list has its room before leaks count";
    watcher.emplace(QUERY);
    FailAtEachAllocation(
        [&] {
            ASSERT_TRUE(watcher->Start() && watcher->Stop());
            // The sink goes with the watcher; here its place must be empty again.
            const doubles::SparedAllocations spared;
            watcher.emplace(QUERY);
        },
        [&] {
            watcher.emplace(QUERY);
            EXPECT_TRUE(service.Sinks().empty());
        });

    CMgmtEventWatcher other(2, L"a class's name of some length", L"an id of some length", 5);
    other.AddEventArrivedEventHandler(&handler);
    FailAtEachAllocation([&] {
        CMgmtEventWatcher assigned(QUERY);
        try {
            assigned = other;
        } catch (...) {
            const doubles::SparedAllocations spared;
            EXPECT_TRUE(assigned.Start());
            EXPECT_EQ(service.TakeRequests().back(),
                      std::wstring(L"ExecNotificationQueryAsync WQL ") + QUERY + L" flags=128");
            EXPECT_TRUE(assigned.Stop());
            throw;
        }
    });
}

TEST_F(OutOfMemoryTest, AnEventThatCannotBeDispatchedIsLostAloneAndSilently) {
    const _variant_t event = Made(L"__InstanceCreationEvent", L"TargetInstance", CIM_OBJECT,
                                  Made(L"Cls", L"DisplayName", CIM_STRING, L"n"));
    auto* const object = static_cast<IWbemClassObject*>(event.punkVal);
    IWbemClassObject* events[] = {object, object};
    EventCounter handler;
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&handler);
    ASSERT_TRUE(watcher.Start());
    const CComPtr<IWbemObjectSink> sink = service.Sinks().back();
    FailAtEachAllocation([&] {
        handler.whole = 0;
        EXPECT_EQ(sink->Indicate(2, events), WBEM_S_NO_ERROR);
        const bool failed = doubles::g_allocationSwitches.failed;
        EXPECT_EQ(handler.whole, failed ? 1 : 2);
        if (failed) throw std::bad_alloc();  // as the others do
    });
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(OutOfMemoryTest, TheEventObjectIsBuiltByALaterCall) {
    const _variant_t instance = Made(L"Cls", L"DisplayName", CIM_STRING, L"n");
    const _variant_t text(L"a target that is text");
    FailAtEachAllocation([&] {
        CMgmtEventArrivedArgs args(instance);
        try {
            args.GetNewEvent();
        } catch (...) {
            const doubles::SparedAllocations spared;
            EXPECT_EQ(args.GetNewEvent()->GetProperties()->GetTotalItemCount(), 1U);
            throw;
        }
        CMgmtObjectBase* const built = args.GetNewEvent();
        const CMgmtEventArrivedArgs other(text);
        try {
            args = other;
        } catch (...) {
            EXPECT_EQ(args.GetNewEvent(), built) << "nothing has changed";
            throw;
        }
    });
}

}  // namespace
