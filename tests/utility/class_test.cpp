#include "utility/management/util_MgmtClass.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>

#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr wchar_t DATE_TEXT[] = L"19000101060000.000000+000";
constexpr wchar_t INTERVAL_TEXT[] = L"00000008120000.000000:000";

// Shows what a derived class may do.
class OpenClass final : public CMgmtClass {
 public:
    using CMgmtClass::CMgmtClass;
    using CMgmtClass::Reset;
};

class ClassTest : public ServiceTest {
 protected:
    void SetUp() override {
        unsetenv("MGMT_LOG");
        ServiceTest::SetUp();
        for (const wchar_t* id : {L"a", L"b", L"c"})
            service.AddInstance(L"Cls", id, {{L"DisplayName", _variant_t(id)}});
        CMgmtScope::GetDefaultMgmtScope().Connect();
        Requests();
    }

    // An instance as the service would list it; `className` may be that of a subclass.
    static doubles::Content Listed(const wchar_t* className, const _variant_t& id,
                                   std::vector<doubles::Property> properties = {}) {
        properties.insert(properties.begin(), {{L"__CLASS", CIM_STRING, _variant_t(className)},
                                               {L"__RELPATH", CIM_STRING, _variant_t(L"the path")},
                                               {L"INSTANCE_ID", CIM_STRING, id}});
        return {className, false, std::move(properties)};
    }

    static std::vector<std::wstring> Ids(const CMgmtObjectCollection* instances) {
        std::vector<std::wstring> ids;
        for (size_t i = 0; i < instances->GetTotalItemCount(); ++i)
            ids.emplace_back(instances->GetItem(i)->GetInstanceId());
        return ids;
    }
};

TEST_F(ClassTest, ListsInstancesByTheirOwnClassNameAndId) {
    service.ScriptEnumeration(
        {{WBEM_S_NO_ERROR, Listed(L"Derived", L"x",
                                  {{L"Changed", CIM_DATETIME, _variant_t(DATE_TEXT)},
                                   {L"Interval", CIM_DATETIME, _variant_t(INTERVAL_TEXT)},
                                   {L"Never", CIM_DATETIME},
                                   {L"Text", CIM_STRING, _variant_t(DATE_TEXT)}})}});
    CMgmtClass listing(L"Cls", true);
    EXPECT_THAT(service.TakeRequests(), IsEmpty()) << "nothing is asked before";
    CMgmtObjectCollection* const instances = listing.GetInstances();
    EXPECT_THAT(Requests(), ElementsAre(L"CreateInstanceEnum Cls", L"NextObject 30000 1", L"Get __CLASS",
                                        L"Get INSTANCE_ID", L"NextObject 30000 1"));
    ASSERT_EQ(instances->GetTotalItemCount(), 1U);
    CMgmtObject& instance = *instances->GetItem(0);
    EXPECT_STREQ(instance.GetCategoryID(), L"Derived");
    EXPECT_STREQ(instance.GetInstanceId(), L"x");
    EXPECT_EQ(instance.GetProperties()->GetTotalItemCount(), 5U) << "all but the system's";
    EXPECT_TRUE(*instance.GetPropertyValue(L"Changed") == DateValue(2.25));
    EXPECT_EQ(TextOf(instance.GetPropertyValue(L"Interval")), INTERVAL_TEXT) << "an interval is no date";
    EXPECT_EQ(instance.GetPropertyValue(L"Never")->vt, VT_NULL);
    EXPECT_EQ(TextOf(instance.GetPropertyValue(L"Text")), DATE_TEXT) << "not by its looks";
}

TEST_F(ClassTest, ListsInstancesByTheirPathWithTheirTexts) {
    service.AddInstance(L"Cls", L"a", {{L"Changed", _variant_t(DATE_TEXT)}});
    CMgmtClass listing(L"Cls", false);
    CMgmtObjectCollection* const instances = listing.GetInstances();
    ASSERT_EQ(instances->GetTotalItemCount(), 3U);
    EXPECT_EQ(Requests().at(2), L"Get __RELPATH");
    CMgmtObject& instance = *instances->GetItem(0);
    EXPECT_STREQ(instance.GetCategoryID(), L"");
    EXPECT_STREQ(instance.GetInstanceId(), L"");
    EXPECT_EQ(TextOf(instance.GetPropertyValue(L"Changed")), DATE_TEXT);
    instance.SetPropertyValue(L"DisplayName", L"changed");
    EXPECT_TRUE(instance.Put(false));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"a", L"DisplayName")), L"changed");
}

TEST_F(ClassTest, ListedObjectsHoldNoServiceObjectAndTheDefaultScope) {
    CMgmtScope elsewhere(L"\\\\.\\root\\Elsewhere");
    CMgmtClass listing(L"Cls", true);
    listing.SetScope(elsewhere, false);
    CMgmtObjectCollection* const instances = listing.GetInstances();
    EXPECT_EQ(Requests().at(1), L"ConnectServer \\\\.\\root\\Elsewhere");
    MgmtInitialize(L"\\\\.\\root\\Later");
    CMgmtObject& instance = *instances->GetItem(1);
    EXPECT_EQ(instance.GetPropertyValue(L"Unknown"), nullptr) << "an unbound bag";
    EXPECT_TRUE(instance.Get());
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"b\"")) << "over the connection it had";
}

TEST_F(ClassTest, CollectionStaysAndShowsTheLastListing) {
    CMgmtClass listing(L"Cls", true);
    CMgmtObjectCollection* const instances = listing.GetInstances();
    EXPECT_THAT(Ids(instances), ElementsAre(L"a", L"b", L"c"));
    service.AddInstance(L"Cls", L"d", {});
    EXPECT_EQ(listing.GetInstances(), instances);
    EXPECT_THAT(Ids(instances), ElementsAre(L"a", L"b", L"c", L"d"));
    service.ScriptEnumeration({});
    EXPECT_EQ(listing.GetInstances(), instances);
    EXPECT_THAT(Ids(instances), IsEmpty());
}

TEST_F(ClassTest, DefaultConstructedListsWithoutShowing) {
    CMgmtClass listing;
    EXPECT_EQ(listing.GetInstances(), nullptr);
    ASSERT_TRUE(listing.SetCategoryID(L"Cls"));
    Requests();
    EXPECT_EQ(listing.GetInstances(), nullptr);
    EXPECT_EQ(Requests().at(2), L"Get __CLASS") << "by id";
    CMgmtClass copy(listing);
    EXPECT_EQ(copy.GetInstances()->GetTotalItemCount(), 3U);
}

TEST_F(ClassTest, TimeOutsAreWaitedOutAndAFailureEndsTheListUnlogged) {
    service.ScriptEnumeration({{WBEM_S_TIMEDOUT, {}},
                               {WBEM_S_NO_ERROR, Listed(L"Cls", L"x")},
                               {WBEM_S_TIMEDOUT, {}},
                               {WBEM_S_TIMEDOUT, {}},
                               {WBEM_S_NO_ERROR, Listed(L"Cls", L"y")},
                               {WBEM_E_PROVIDER_FAILURE, {}},
                               {WBEM_S_NO_ERROR, Listed(L"Cls", L"z")}});
    CMgmtClass listing(L"Cls", true);
    testing::internal::CaptureStderr();
    EXPECT_THAT(Ids(listing.GetInstances()), ElementsAre(L"x", L"y"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Requests().back(), L"NextObject 30000 1");
}

TEST_F(ClassTest, InstancesWithoutAReadableIdentityAreLeftOutAndNoTextIsEmpty) {
    const auto without = [](const wchar_t* name) {
        doubles::Content content = Listed(L"Cls", L"x");
        content.Find(name)->name = L"Other";
        return doubles::EnumerationStep{WBEM_S_NO_ERROR, content};
    };
    doubles::Content numbers = Listed(L"Cls", _variant_t(5L));
    numbers.Find(L"__CLASS")->value = _variant_t(6L);
    numbers.Find(L"__RELPATH")->value = NullValue();
    service.ScriptEnumeration({without(L"__CLASS"),
                               without(L"INSTANCE_ID"),
                               {WBEM_S_NO_ERROR, Listed(L"Cls", NullValue())},
                               {WBEM_S_NO_ERROR, numbers}});
    CMgmtClass listing(L"Cls", true);
    CMgmtObjectCollection* const instances = listing.GetInstances();
    ASSERT_THAT(Ids(instances), ElementsAre(L"", L""));
    EXPECT_STREQ(instances->GetItem(0)->GetCategoryID(), L"Cls");
    EXPECT_STREQ(instances->GetItem(1)->GetCategoryID(), L"");
    EXPECT_EQ(instances->GetItem(1)->GetPropertyValue(L"INSTANCE_ID")->lVal, 5);

    service.ScriptEnumeration({without(L"__RELPATH"), {WBEM_S_NO_ERROR, numbers}});
    CMgmtClass byPath(L"Cls", false);
    CMgmtObjectCollection* const pathless = byPath.GetInstances();
    ASSERT_EQ(pathless->GetTotalItemCount(), 1U);
    EXPECT_EQ(pathless->GetItem(0)->GetPropertyValue(L"INSTANCE_ID")->lVal, 5);
    EXPECT_FALSE(pathless->GetItem(0)->Get());
}

TEST_F(ClassTest, RefusedListIsLoggedAndEmpty) {
    CMgmtClass listing(L"Missing", true);
    testing::internal::CaptureStderr();
    EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 0U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex(
                    "[^\n]+ util_MgmtClass.cpp:[0-9]+ [^\n]*CreateInstanceEnum\\(\\) fail. hr=0x80041010\n"));
    listing.SetCategoryID(L"Cls");
    EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 3U);
}

TEST_F(ClassTest, WithoutAConnectionNothingIsListedCreatedOrLogged) {
    CMgmtClass listing(L"Cls", true);
    EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 3U);
    service.connectResult = WBEM_E_INVALID_NAMESPACE;
    CMgmtScope elsewhere(L"\\\\.\\root\\Elsewhere");
    listing.SetScope(elsewhere, false);
    CMgmtObject source(L"Cls", L"new", nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 0U);
    EXPECT_FALSE(listing.CreateInstance() || listing.CreateInstance(L"new") ||
                 listing.CreateInstance(source));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ClassTest, RemovedObjectsAreTheCallers) {
    CMgmtClass listing(L"Cls", true);
    CMgmtObjectCollection* const instances = listing.GetInstances();
    EXPECT_TRUE(listing.RemoveObject(3));
    EXPECT_THAT(Ids(instances), ElementsAre(L"a", L"b", L"c"));
    std::unique_ptr<CMgmtObject> removed[3];
    for (size_t i = 0; i < 3; ++i)
        removed[i].reset(instances->GetItem(i));
    EXPECT_TRUE(listing.RemoveObject(0));
    EXPECT_THAT(Ids(instances), ElementsAre(L"b", L"c"));
    listing.RemoveAllObject();
    EXPECT_THAT(Ids(instances), IsEmpty());
    EXPECT_TRUE(listing.RemoveObject(0));
    listing.GetInstances();
    EXPECT_STREQ(removed[0]->GetInstanceId(), L"a");
    EXPECT_TRUE(removed[2]->Get());
}

TEST_F(ClassTest, SpawnedObjectsAreInMemoryOnlyAndLiveAsLongAsTheClass) {
    std::optional<OpenClass> listing(std::in_place, L"Cls", true);
    CMgmtObjectBase* const first = listing->CreateInstance();
    EXPECT_THAT(service.TakeRequests(), ElementsAre(L"GetObject Cls", L"SpawnInstance"));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetProperties()->GetTotalItemCount(), 0U);
    EXPECT_EQ(first->GetPropertyValue(L"KeepDays")->lVal, 7) << "read from the instance, the default";
    first->SetPropertyValue(L"DisplayName", L"mine");

    EXPECT_NE(listing->CreateInstance(), first);
    listing->GetInstances();
    listing->Reset();
    listing->GetInstances();
    EXPECT_EQ(TextOf(first->GetPropertyValue(L"DisplayName")), L"mine");

    const _variant_t embedded = *first;
    listing.reset();
    CMgmtObjectBase reader(&embedded, true);
    EXPECT_EQ(TextOf(reader.GetPropertyValue(L"DisplayName")), L"mine") << "the instance outlives the class";
}

TEST_F(ClassTest, CreatesTheInstanceThatASourceDescribes) {
    CMgmtClass listing(L"Cls", true);
    CMgmtObject source(L"Other", L"new", nullptr);
    source.SetPropertyValue(L"Changed", DateValue(2.25));
    source.SetPropertyValue(L"DisplayName", L"a text");
    source.SetPropertyValue(L"Enabled", NullValue());
    source.SetPropertyValue(L"INSTANCE_ID", L"replaced");
    source.SetPropertyValue(L"Ratio", _variant_t());
    ASSERT_TRUE(listing.CreateInstance(source));
    EXPECT_THAT(service.TakeRequests(),
                ElementsAre(L"GetObject Cls", L"SpawnInstance", L"Put Changed 8", L"Put DisplayName 8",
                            L"Put INSTANCE_ID 8", L"Put INSTANCE_ID 8", L"PutInstance flags=2"));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"new", L"Changed")), DATE_TEXT);
    EXPECT_FALSE(service.HasInstance(L"Cls", L"replaced"));
    EXPECT_EQ(source.GetPropertyValue(L"Changed")->vt, VT_DATE) << "the source is as it was";
    EXPECT_EQ(TextOf(source.GetPropertyValue(L"INSTANCE_ID")), L"replaced");

    source.SetPropertyValue(L"DisplayName", L"another text");
    EXPECT_FALSE(listing.CreateInstance(source)) << "there is one";
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"new", L"DisplayName")), L"a text");
    source.SetInstanceID(L"another");
    source.SetPropertyValue(L"DisplayName", 5);
    EXPECT_FALSE(listing.CreateInstance(source)) << "a value that the service refuses";
    EXPECT_EQ(Requests().back(), L"Put DisplayName 3") << "nothing after it";
    listing.SetCategoryID(L"Missing");
    EXPECT_FALSE(listing.CreateInstance(source));
}

TEST_F(ClassTest, CreatesABareInstanceThatIsTheCallers) {
    std::unique_ptr<CMgmtObjectBase> created;
    {
        CMgmtClass listing(L"Cls", true);
        created.reset(listing.CreateInstance(L"new"));
        EXPECT_EQ(Requests().back(), L"PutInstance flags=2");
        EXPECT_EQ(listing.CreateInstance(L"a"), nullptr) << "there is one";
        EXPECT_EQ(TextOf(service.Stored(L"Cls", L"a", L"DisplayName")), L"a");
    }
    ASSERT_NE(created, nullptr);
    EXPECT_TRUE(service.HasInstance(L"Cls", L"new"));
    EXPECT_EQ(created->GetProperties()->GetTotalItemCount(), 1U);
    EXPECT_EQ(TextOf(created->GetPropertyValue(L"INSTANCE_ID")), L"new");
    EXPECT_EQ(created->GetPropertyValue(L"DisplayName")->vt, VT_NULL) << "read from the instance it holds";
}

TEST_F(ClassTest, CopyHasACacheAndACollectionOfItsOwn) {
    std::optional<CMgmtClass> original(std::in_place, L"Cls", false);
    original->SetPropertyValue(L"shared", 1);
    CMgmtObjectCollection* const instances = original->GetInstances();
    CMgmtClass copy(*original);
    EXPECT_EQ(copy.GetPropertyValue(L"shared")->intVal, 1);
    EXPECT_STREQ(copy.GetCategoryID(), L"Cls");
    copy.RemoveObject(0);
    EXPECT_EQ(instances->GetTotalItemCount(), 3U) << "the copy's cache is empty";
    CMgmtObjectCollection* const copied = copy.GetInstances();
    EXPECT_NE(copied, instances);
    EXPECT_STREQ(copied->GetItem(0)->GetInstanceId(), L"") << "by path, as the original";
    original.reset();
    EXPECT_EQ(copied->GetTotalItemCount(), 3U);
}

// Every request of each operation fails in turn, or reports success without effect. Nothing may be thrown,
// left behind or stored, and the class goes on working.
TEST_F(ClassTest, ServiceFailingAtAnyRequestIsSoft) {
    const std::function<bool(CMgmtClass&)> operations[] = {
        [](CMgmtClass& listing) { return listing.GetInstances()->GetTotalItemCount() == 3; },
        [](CMgmtClass& listing) { return listing.CreateInstance() != nullptr; },
        [](CMgmtClass& listing) {
            CMgmtObject source(L"Cls", L"new", nullptr);
            source.SetPropertyValue(L"KeepDays", 5);
            return listing.CreateInstance(source);
        },
        [](CMgmtClass& listing) {
            return std::unique_ptr<CMgmtObjectBase>(listing.CreateInstance(L"new")) != nullptr;
        }};
    for (const auto& operation : operations)
        for (const HRESULT result : {HRESULT{WBEM_E_FAILED}, HRESULT{WBEM_S_FALSE}}) {
            bool failed = true;
            for (int n = 1; failed; ++n) {
                SCOPED_TRACE(n);
                MgmtInitialize(L"\\\\.\\root\\Test");
                CMgmtClass listing(L"Cls", true);
                service.FailAt(n, result);
                const bool succeeded = operation(listing);
                failed = service.HasFailed();
                service.FailAt(0, S_OK);
                EXPECT_TRUE(succeeded || failed) << "without a fault it must succeed";
                EXPECT_TRUE(succeeded || !service.HasInstance(L"Cls", L"new"));
                CMgmtObject(L"Cls", L"new", nullptr).DeleteInstance();
                EXPECT_EQ(listing.GetInstances()->GetTotalItemCount(), 3U);
            }
        }
}

}  // namespace
