#include "utility/management/util_MgmtObject.h"

#include <functional>
#include <memory>

#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ObjectTest : public ServiceTest {
 protected:
    void SetUp() override {
        ServiceTest::SetUp();
        service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"answer")}});
        // The connection is made here, so that the cases see their own requests only.
        CMgmtScope::GetDefaultMgmtScope().Connect();
        Requests();
    }
};

using NewObjectTest = ServiceTest;

TEST_F(NewObjectTest, AsksForNothingBeforeTheFirstRequest) {
    CMgmtObject object(L"Cls", L"42", L"server");
    const CMgmtObject empty;
    const CMgmtObject byPath(L"Cls.INSTANCE_ID=\"42\"");
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_FALSE(object.Get());
    EXPECT_THAT(Requests(), AfterConnecting({L"GetObject Cls.INSTANCE_ID=\"42\""}));
}

TEST_F(NewObjectTest, NamesCanBeSetAndNullsAreEmpty) {
    CMgmtObject object(nullptr, nullptr, nullptr);
    EXPECT_STREQ(object.GetCategoryID(), L"");
    EXPECT_STREQ(object.GetInstanceId(), L"");
    EXPECT_TRUE(object.SetVirtualServerName(L""));
    EXPECT_TRUE(object.SetCategoryID(L"Cls") && object.SetInstanceID(object.GetCategoryID()));
    EXPECT_STREQ(object.GetCategoryID(), L"Cls");
    EXPECT_STREQ(object.GetInstanceId(), L"Cls");
}

TEST_F(NewObjectTest, WithoutAnIdentityNothingIsRequestedButTheConnection) {
    CMgmtObject nothing, onlyId(nullptr, L"42", nullptr), onlyCategory(L"Cls", nullptr, nullptr);
    EXPECT_FALSE(nothing.Get() || nothing.Put(true) || onlyId.Get() || onlyCategory.Put(true));
    EXPECT_THAT(Requests(), AfterConnecting({}));
}

TEST_F(NewObjectTest, WithoutAConnectionEveryOperationFails) {
    service.connectResult = WBEM_E_INVALID_NAMESPACE;
    CMgmtObject object(L"Cls", L"42", nullptr);
    EXPECT_FALSE(object.Get() || object.Put(true) || object.DeleteInstance());
    const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
    EXPECT_STREQ(CMgmtObject(&reference).GetInstanceId(), L"42");
    EXPECT_EQ(Requests().size(), 8U) << "four attempts to connect, nothing else";
}

TEST_F(ObjectTest, GetFillsTheBagAndLaterReadsTheHeldObject) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    object.SetPropertyValue(L"mine", 1);
    object.SetPropertyValue(L"DisplayName", L"old");
    ASSERT_TRUE(object.Get());
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_EQ(object.GetPropertyValue(L"mine")->intVal, 1) << "names that the instance lacks stay";
    EXPECT_EQ(object.GetProperties()->GetTotalItemCount(), 7U);

    CMgmtObject another(L"Cls.INSTANCE_ID=\"42\"");
    another.SetPropertyValue(L"DisplayName", L"changed");
    ASSERT_TRUE(another.Put(false));
    Requests();
    ASSERT_TRUE(object.Get());
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(ObjectTest, CategoryAloneReadsTheClass) {
    CMgmtObject object(L"Cls", L"", nullptr);
    ASSERT_TRUE(object.Get());
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls"));
    EXPECT_EQ(object.GetPropertyValue(L"KeepDays")->lVal, 7) << "the class's default value";
    EXPECT_EQ(object.GetPropertyValue(L"DisplayName")->vt, VT_NULL);
    EXPECT_FALSE(object.Put(false)) << "a class is held, and no instance";
}

TEST_F(ObjectTest, PutUpdatesOrCreatesAsAsked) {
    CMgmtObject missing(L"Cls", L"new", nullptr);
    missing.SetPropertyValue(L"INSTANCE_ID", L"new");
    missing.SetPropertyValue(L"KeepDays", 9);
    missing.SetPropertyValue(L"Changed", DateValue(2.25));
    missing.SetPropertyValue(L"DisplayName", NullValue());
    EXPECT_FALSE(missing.Put(false));
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"new\""));

    ASSERT_TRUE(missing.Put(true));
    EXPECT_THAT(Requests(),
                ElementsAre(L"GetObject Cls.INSTANCE_ID=\"new\"", L"GetObject Cls", L"SpawnInstance",
                            L"Put Changed 8", L"Put INSTANCE_ID 8", L"Put KeepDays 3", L"PutInstance"));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"new", L"Changed")), L"19000101060000.000000+000");
    EXPECT_EQ(missing.GetPropertyValue(L"KeepDays")->vt, VT_INT);

    missing.SetPropertyValue(L"KeepDays", 10L);
    ASSERT_TRUE(missing.Put(false));
    EXPECT_EQ(Requests().back(), L"PutInstance flags=1");
    EXPECT_EQ(service.Stored(L"Cls", L"new", L"KeepDays").lVal, 10);
}

TEST_F(ObjectTest, PutStopsAtTheFirstRefusedPropertyAndStoresNothing) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    object.SetPropertyValue(L"DisplayName", L"written first");
    object.SetPropertyValue(L"Enabled", 5);
    object.SetPropertyValue(L"KeepDays", 5);
    EXPECT_FALSE(object.Put(true));
    EXPECT_EQ(Requests().back(), L"Put Enabled 3");
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"answer");
}

TEST_F(ObjectTest, PutThroughAHeldObjectNeedsSomethingToWrite) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    Requests();
    ASSERT_TRUE(object.Put(false));
    EXPECT_THAT(Requests(), ElementsAre(L"Put DisplayName 8", L"Put INSTANCE_ID 8", L"Put KeepDays 3",
                                        L"PutInstance flags=1"));
    // With nothing but nulls there is no request whose success could be told.
    for (const wchar_t* name : {L"DisplayName", L"INSTANCE_ID", L"KeepDays"})
        object.SetPropertyValue(name, NullValue());
    EXPECT_FALSE(object.Put(false));
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_TRUE(CMgmtObject(L"Cls", L"42", nullptr).Put(false)) << "the fetched instance is stored as it is";
}

TEST_F(ObjectTest, SetScopeMovesTheObjectAndMayMakePutFetch) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    CMgmtScope elsewhere(L"\\\\.\\root\\Elsewhere");
    Requests();
    object.SetScope(elsewhere, true);
    ASSERT_TRUE(object.Put(false));
    const auto requests = Requests();
    EXPECT_EQ(requests.at(1), L"ConnectServer \\\\.\\root\\Elsewhere");
    EXPECT_EQ(requests.at(3), L"GetObject Cls.INSTANCE_ID=\"42\"");
    object.SetScope(elsewhere, false);
    ASSERT_TRUE(object.Put(false));
    EXPECT_EQ(Requests().front(), L"Put DisplayName 8");
}

TEST_F(ObjectTest, ObjectPathIsUsedWholeButNotForDeleting) {
    CMgmtObject object(L"Cls.INSTANCE_ID=\"42\"");
    EXPECT_TRUE(object.Put(false));
    EXPECT_FALSE(object.DeleteInstance());
    EXPECT_EQ(Requests().back(), L"DeleteInstance .INSTANCE_ID=\"\"");
    EXPECT_FALSE(CMgmtObject(L"Cls.INSTANCE_ID=\"gone\"").Put(true)) << "there is no category to make it of";
    EXPECT_FALSE(CMgmtObject(static_cast<const wchar_t*>(nullptr)).Get());
    EXPECT_EQ(Requests().back(), L"GetObject (null)");
}

TEST_F(ObjectTest, DeleteInstanceLeavesTheObjectAlone) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    EXPECT_TRUE(object.DeleteInstance());
    EXPECT_FALSE(service.HasInstance(L"Cls", L"42") || object.DeleteInstance());
    EXPECT_TRUE(object.Get()) << "of the held object";
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
}

TEST_F(ObjectTest, PathsTakeAnyTextAndAreCutAt255Units) {
    const auto requested = [&](const std::wstring& category, const std::wstring& id) {
        CMgmtObject object(category.c_str(), nullptr, nullptr);
        object.SetInstanceID(id);
        EXPECT_FALSE(object.Get());
        return Requests().back().substr(std::wstring(L"GetObject ").size());
    };
    EXPECT_EQ(requested(L"Cls", L"a\"b\\c\n\u00e4\u6f22\U0001F600%s"),
              L"Cls.INSTANCE_ID=\"a\"b\\c\n\u00e4\u6f22\U0001F600%s\"");
    EXPECT_EQ(requested(L"Cls", std::wstring(L"a\0b", 3)), L"Cls.INSTANCE_ID=\"a\"");

    const std::wstring whole(255 - 18, L'x');  // 18 units around the id
    EXPECT_EQ(requested(L"Cls", whole), L"Cls.INSTANCE_ID=\"" + whole + L"\"");
    EXPECT_EQ(requested(L"Cls", whole + L"yz"), L"Cls.INSTANCE_ID=\"" + whole + L"y");
    EXPECT_EQ(requested(std::wstring(300, L'c'), L"1"), std::wstring(255, L'c'));
    EXPECT_EQ(requested(std::wstring(250, L'c'), L"1"), std::wstring(250, L'c') + L".INST");

    EXPECT_EQ(CMgmtObject::MakeReferenceObjectPath(L"Cls", L"42"), L"Cls.INSTANCE_ID=\"42\"");
    EXPECT_EQ(CMgmtObject::MakeReferenceObjectPath(nullptr, nullptr), L".INSTANCE_ID=\"\"");
    EXPECT_EQ(CMgmtObject::MakeReferenceObjectPath(L"Cls", std::wstring(1000, L'x').c_str()).length(), 1018U);
}

TEST_F(ObjectTest, ReferenceIsParsedAndLoaded) {
    const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
    CMgmtObject object(&reference);
    EXPECT_STREQ(object.GetCategoryID(), L"Cls");
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"42\""));
    CMgmtObject copy(object);
    EXPECT_STREQ(copy.GetInstanceId(), L"42");
    copy.SetPropertyValue(L"DisplayName", L"changed");
    EXPECT_TRUE(object.Put(false)) << "through the bag that the copy shares";
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"changed");
}

TEST_F(ObjectTest, ReferenceIsParsedAsFarAsItGoes) {
    const struct {
        _variant_t reference;
        const wchar_t* category;
        const wchar_t* id = L"";
        bool asks = false;
    } cases[] = {{5L, L""},
                 {L"Cls", L""},
                 {static_cast<const wchar_t*>(nullptr), L""},
                 {L"Cls.K=1", L"Cls"},
                 {L"Cls.K=\"1", L"Cls"},
                 {(L"Cls.INSTANCE_ID=\"" + std::wstring(300, L'x') + L"\"").c_str(), L"Cls"},
                 {L"A.B=\"\"", L"A", L"", true},
                 {L"A.B=\"x\",C=\"y\"", L"A", L"x", true}};
    for (const auto& [reference, category, id, asks] : cases) {
        CMgmtObject object(&reference);
        EXPECT_STREQ(object.GetCategoryID(), category);
        EXPECT_STREQ(object.GetInstanceId(), id);
        EXPECT_EQ(!Requests().empty(), asks);
        EXPECT_EQ(object.GetProperties()->GetTotalItemCount(), 0U);
    }
    const CMgmtObject null(static_cast<const _variant_t*>(nullptr));
    EXPECT_THAT(Requests(), IsEmpty());
}

// The service fails at the first request of an operation, at its second, and so on until it makes fewer. A
// failure must be soft, leave nothing behind and leave the object usable.
TEST_F(NewObjectTest, ServiceFailingAtAnyRequestIsSoft) {
    using Object = std::unique_ptr<CMgmtObject>;
    const auto made = [](const wchar_t* id) {
        auto object = std::make_unique<CMgmtObject>(L"Cls", id, nullptr);
        object->SetPropertyValue(L"INSTANCE_ID", id);
        object->SetPropertyValue(L"KeepDays", 5);
        return object;
    };
    const std::function<bool(Object&)> operations[] = {
        [&](Object& object) { return (object = made(L"42"))->Get(); },
        [&](Object& object) { return (object = made(L"42"))->Put(false); },
        [&](Object& object) { return (object = made(L"new"))->Put(true); },
        [&](Object& object) { return (object = made(L"42"))->DeleteInstance(); },
        [&](Object& object) {
            const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
            object = std::make_unique<CMgmtObject>(&reference);
            return object->GetProperties()->GetTotalItemCount() == 6;
        }};
    for (const auto& operation : operations) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            SCOPED_TRACE(n);
            MgmtInitialize(L"\\\\.\\root\\Test");
            service.AddInstance(L"Cls", L"42", {});
            service.FailAt(n, WBEM_E_FAILED);
            Object object;
            const bool succeeded = operation(object);
            failed = service.HasFailed();
            service.FailAt(0, S_OK);
            EXPECT_TRUE(succeeded || failed) << "without a fault it must succeed";
            object->SetInstanceID(L"42");
            object->SetPropertyValue(L"INSTANCE_ID", L"42");
            object->SetPropertyValue(L"DisplayName", L"usable");
            EXPECT_TRUE(object->Put(true));
            EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"usable");
            EXPECT_TRUE(object->Get() && object->DeleteInstance());
        }
    }
}

}  // namespace
