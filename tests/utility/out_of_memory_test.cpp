// Every allocation of an operation fails in turn. The exception must be one of those that the library names,
// nothing may leak, and the object must work as if the attempt had not been made.
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

}  // namespace
