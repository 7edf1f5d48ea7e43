// Every allocation of an operation fails in turn. The exception must be one of those that the library names,
// nothing may leak, and the object must work as if the attempt had not been made.
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>

#include <comdef.h>

#include "tests/doubles/failing_allocations.h"
#include "tests/utility/service_fixture.h"

namespace {

class OutOfMemoryTest : public ServiceTest {
 protected:
    void SetUp() override {
        setenv("MGMT_LOG", "off", 1);
        ServiceTest::SetUp();
        service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"answer")}});
    }

    // Runs `attempt` until no allocation fails any more, `check` after each. Returns the codes of the
    // CManagementExceptions that were thrown.
    std::vector<int> FailAtEachAllocation(const std::function<void()>& attempt,
                                          const std::function<void()>& check) {
        std::vector<int> codes;
        codes.reserve(100);
        for (long n = 1; n < 1000; ++n) {
            SCOPED_TRACE(n);
            service.Forget();
            const long before = doubles::LiveAllocations();
            bool failed = false;
            bool thrown = true;
            {
                const doubles::FailingAllocation failing(n);
                try {
                    attempt();
                    thrown = false;
                } catch (const CManagementException& failure) {
                    const doubles::SparedAllocations spared;
                    EXPECT_EQ(failure.GetErrorCode(), MGMT_ERR_SHARED_DATA);
                    codes.push_back(failure.GetErrorCode());
                } catch (const _com_error& failure) {
                    EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
                } catch (const CAtlException& failure) {
                    EXPECT_EQ(failure.m_hr, E_OUTOFMEMORY);
                } catch (const std::bad_alloc&) {
                }
                failed = failing.HasFailed();
            }
            service.Forget();
            EXPECT_EQ(thrown, failed) << "a failed allocation is told, and nothing else";
            EXPECT_EQ(doubles::LiveAllocations(), before) << "leaked";
            check();
            if (!failed) return codes;
        }
        ADD_FAILURE() << "never succeeded";
        return codes;
    }
};

TEST_F(OutOfMemoryTest, MakingScopesAndDefaults) {
    const auto codes = FailAtEachAllocation([] { CMgmtScope scope(L"path"); }, [] {});
    EXPECT_EQ(codes.size(), 1U) << "the record; the path's string is the wrapper's";

    const auto defaultCodes = FailAtEachAllocation(
        [] {
            MgmtInitialize(L"other");
            const doubles::SparedAllocations spared;
            MgmtInitialize(L"\\\\.\\root\\Test");
        },
        [] { EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"\\\\.\\root\\Test"); });
    EXPECT_EQ(defaultCodes.size(), 1U);
}

TEST_F(OutOfMemoryTest, ConnectingReleasesTheLock) {
    std::optional<CMgmtScope> scope;
    FailAtEachAllocation(
        [&] {
            CMgmtScope fresh(L"path");
            fresh.SetUserName(L"LAB\\operator");
            fresh.SetPassword(L"secret");
            fresh.Connect();
            const doubles::SparedAllocations spared;
            EXPECT_TRUE(fresh.IsConnected());
        },
        [] {});
}

TEST_F(OutOfMemoryTest, BuildingAnObject) {
    FailAtEachAllocation([] { CMgmtObject object(L"Category", L"a long instance id", L"server"); }, [] {});
    FailAtEachAllocation([] { CMgmtObject object(L"Cls.INSTANCE_ID=\"42\""); }, [] {});
    FailAtEachAllocation([] { CMgmtClass listing(L"A class's name", true); }, [] {});
    const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
    CMgmtScope::GetDefaultMgmtScope().Connect();
    FailAtEachAllocation([&] { CMgmtObject object(&reference); }, [] {});
}

TEST_F(OutOfMemoryTest, Get) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    FailAtEachAllocation(
        [] {
            CMgmtObject object(L"Cls", L"42", nullptr);
            ASSERT_TRUE(object.Get());
        },
        [] {});

    // The held object must not be left in the middle of an enumeration.
    std::optional<CMgmtObject> object(std::in_place, L"Cls", L"42", nullptr);
    ASSERT_TRUE(object->Get());
    FailAtEachAllocation([&] { ASSERT_TRUE(object->Get()); },
                         [&] {
                             EXPECT_EQ(object->GetProperties()->GetTotalItemCount(), 6U);
                             EXPECT_EQ(TextOf(object->GetPropertyValue(L"DisplayName")), L"answer");
                         });
}

TEST_F(OutOfMemoryTest, Put) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    CMgmtObject object(L"Cls", L"new", nullptr);
    object.SetPropertyValue(L"INSTANCE_ID", L"new");
    object.SetPropertyValue(L"Changed", DateValue(2.25));
    object.SetPropertyValue(L"KeepDays", 5);
    FailAtEachAllocation(
        [&] {
            ASSERT_TRUE(object.Put(true));
            const doubles::SparedAllocations spared;
            ASSERT_TRUE(object.DeleteInstance());
        },
        [&] { EXPECT_FALSE(service.HasInstance(L"Cls", L"new")); });
}

TEST_F(OutOfMemoryTest, ListingLeavesInTheCacheWhatWasListedBefore) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    service.AddClass(L"Empty", {{L"INSTANCE_ID", CIM_STRING}});
    service.AddInstance(L"Cls", L"an id of some length",
                        {{L"Changed", _variant_t(L"19000101060000.000000+000")}});
    service.AddInstance(L"Cls", L"another one", {});
    for (const bool useInstanceId : {true, false})
        FailAtEachAllocation(
            [&] {
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
            },
            [] {});
}

TEST_F(OutOfMemoryTest, CreatingInstances) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    std::optional<CMgmtClass> listing(std::in_place, L"Cls", true);
    CMgmtObject source(L"Cls", L"the new instance", nullptr);
    source.SetPropertyValue(L"Changed", DateValue(2.25));
    const auto nothingStored = [&] {
        EXPECT_FALSE(service.HasInstance(L"Cls", L"the new instance"));
        EXPECT_NE(std::make_unique<CMgmtClass>(*listing)->CreateInstance(), nullptr);
    };
    FailAtEachAllocation(
        [&] {
            ASSERT_TRUE(listing->CreateInstance(source));
            const doubles::SparedAllocations spared;
            ASSERT_TRUE(source.DeleteInstance());
        },
        nothingStored);
    FailAtEachAllocation(
        [&] {
            const std::unique_ptr<CMgmtObjectBase> created(listing->CreateInstance(L"the new instance"));
            ASSERT_NE(created, nullptr);
            const doubles::SparedAllocations spared;
            ASSERT_TRUE(source.DeleteInstance());
        },
        nothingStored);
    FailAtEachAllocation(
        [&] {
            CMgmtClass copy(*listing);
            ASSERT_NE(copy.CreateInstance(), nullptr);
        },
        nothingStored);
}

TEST_F(OutOfMemoryTest, SettingAPropertyKeepsTheOldRecordUntilTheNewOneStands) {
    std::optional<CMgmtObjectBase> bag(std::in_place);
    bag->SetPropertyValue(L"a name of some length", L"old");
    bag->SetPropertyValue(L"b", 1);
    FailAtEachAllocation(
        [&] {
            bag->SetPropertyValue(L"a name of some length", L"a new text");
            const doubles::SparedAllocations spared;
            bag->SetPropertyValue(L"a name of some length", L"old");
        },
        [&] {
            EXPECT_EQ(TextOf(bag->GetPropertyValue(L"a name of some length")), L"old");
            EXPECT_EQ(bag->GetProperties()->GetTotalItemCount(), 2U);
        });

    FailAtEachAllocation(
        [&] {
            CMgmtObjectBase fresh;
            fresh.SetPropertyValue(L"another long name", L"value");
            fresh.SetPropertyValue(std::wstring(L"another long name"), _variant_t(L"value"));
            const CMgmtObjectBase copy(fresh);
        },
        [] {});
}

TEST_F(OutOfMemoryTest, ReadingAPropertyOnDemand) {
    doubles::Content content{L"Cls", false, {{L"Name of the object", CIM_STRING, _variant_t(L"n")}}};
    const _variant_t object(service.MakeObject(content), false);
    FailAtEachAllocation(
        [&] {
            const CMgmtObjectBase bag(&object, false);
            ASSERT_NE(bag.GetPropertyValue(L"Name of the object"), nullptr);
        },
        [] {});
}

class EventCounter final : public CMgmtEventArrivedHandler {
 public:
    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        ++begun;
        if (args.GetNewEvent()->GetProperties()->GetTotalItemCount() == 1) ++whole;
        return 0;
    }
    void Release() override {}

    int begun = 0;
    int whole = 0;
};

TEST_F(OutOfMemoryTest, MakingAndStartingWatchers) {
    CMgmtScope::GetDefaultMgmtScope().Connect();
    EventCounter handler;
    FailAtEachAllocation(
        [&] {
            CMgmtEventWatcher made(0, L"a class's name of some length", L"an id of some length", 5);
            made.AddEventArrivedEventHandler(&handler);
            const CMgmtEventWatcher copy(made);
        },
        [] {});

    std::optional<CMgmtEventWatcher> watcher(std::in_place, L"SELECT * FROM the first one");
    ASSERT_TRUE(watcher->Start() && watcher->Stop()) << "the double's list has its room before leaks count";
    watcher.emplace(L"SELECT * FROM the first one");
    FailAtEachAllocation(
        [&] {
            ASSERT_TRUE(watcher->Start());
            ASSERT_TRUE(watcher->Stop());
            // The sink goes with the watcher; here its place must be empty again.
            const doubles::SparedAllocations spared;
            watcher.emplace(L"SELECT * FROM the first one");
        },
        [&] {
            watcher.emplace(L"SELECT * FROM the first one");
            EXPECT_TRUE(service.Sinks().empty());
        });

    CMgmtEventWatcher other(2, L"a class's name of some length", L"an id of some length", 5);
    other.AddEventArrivedEventHandler(&handler);
    FailAtEachAllocation(
        [&] {
            CMgmtEventWatcher assigned(L"SELECT * FROM the first one");
            try {
                assigned = other;
            } catch (...) {
                const doubles::SparedAllocations spared;
                EXPECT_TRUE(assigned.Start());
                EXPECT_EQ(service.TakeRequests().back(),
                          L"ExecNotificationQueryAsync WQL SELECT * FROM the first one flags=128");
                EXPECT_TRUE(assigned.Stop());
                throw;
            }
        },
        [] {});
}

TEST_F(OutOfMemoryTest, AnEventThatCannotBeDispatchedIsLostAloneAndSilently) {
    const doubles::Content target{L"Cls", false, {{L"DisplayName", CIM_STRING, _variant_t(L"n")}}};
    const doubles::Content event{
        L"__InstanceCreationEvent",
        false,
        {{L"TargetInstance", CIM_OBJECT, _variant_t(service.MakeObject(target), false)}}};
    const CComPtr<IWbemClassObject> object = [&] {
        CComPtr<IWbemClassObject> made;
        made.Attach(service.MakeObject(event));
        return made;
    }();
    EventCounter handler;
    CMgmtEventWatcher watcher(0, L"Cls", nullptr, 5);
    watcher.AddEventArrivedEventHandler(&handler);
    ASSERT_TRUE(watcher.Start());
    const CComPtr<IWbemObjectSink> sink = service.Sinks().back();
    IWbemClassObject* events[] = {object, object};
    for (long n = 1;; ++n) {
        SCOPED_TRACE(n);
        ASSERT_LT(n, 100);
        service.Forget();
        handler.whole = 0;
        const long before = doubles::LiveAllocations();
        bool failed = false;
        {
            const doubles::FailingAllocation failing(n);
            EXPECT_EQ(sink->Indicate(2, events), WBEM_S_NO_ERROR);
            failed = failing.HasFailed();
        }
        service.Forget();
        EXPECT_EQ(doubles::LiveAllocations(), before) << "leaked";
        EXPECT_EQ(handler.whole, failed ? 1 : 2);
        if (!failed) break;
    }
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(OutOfMemoryTest, TheEventObjectIsBuiltByALaterCall) {
    const doubles::Content content{L"Cls", false, {{L"DisplayName", CIM_STRING, _variant_t(L"n")}}};
    const _variant_t instance(service.MakeObject(content), false);
    const _variant_t text(L"a target that is text");
    FailAtEachAllocation(
        [&] {
            CMgmtEventArrivedArgs args(instance);
            try {
                args.GetNewEvent();
            } catch (...) {
                const doubles::SparedAllocations spared;
                EXPECT_EQ(args.GetNewEvent()->GetProperties()->GetTotalItemCount(), 1U);
                throw;
            }
        },
        [] {});
    FailAtEachAllocation(
        [&] {
            CMgmtEventArrivedArgs args(instance);
            CMgmtObjectBase* const built = args.GetNewEvent();
            const CMgmtEventArrivedArgs other(text);
            try {
                args = other;
            } catch (...) {
                EXPECT_EQ(args.GetNewEvent(), built) << "nothing has changed";
                throw;
            }
        },
        [] {});
}

}  // namespace
