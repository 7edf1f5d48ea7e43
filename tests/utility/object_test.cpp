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
    EXPECT_THAT(Requests(), ElementsAre(L"CreateLocator", L"ConnectServer \\\\.\\root\\Test", L"SetBlanket",
                                        L"GetObject Cls.INSTANCE_ID=\"42\""));
}

TEST_F(NewObjectTest, NamesCanBeSetAndNullsAreEmpty) {
    CMgmtObject object(nullptr, nullptr, nullptr);
    EXPECT_STREQ(object.GetCategoryID(), L"");
    EXPECT_STREQ(object.GetInstanceId(), L"");
    EXPECT_TRUE(object.SetCategoryID(L"Cls"));
    EXPECT_TRUE(object.SetInstanceID(object.GetCategoryID()));
    EXPECT_TRUE(object.SetInstanceID(L""));
    EXPECT_TRUE(object.SetVirtualServerName(L""));
    EXPECT_STREQ(object.GetCategoryID(), L"Cls");
    EXPECT_STREQ(object.GetInstanceId(), L"");
}

TEST_F(NewObjectTest, WithoutAnIdentityNothingIsRequestedButTheConnection) {
    CMgmtObject nothing;
    EXPECT_FALSE(nothing.Get());
    EXPECT_FALSE(nothing.Put(true));
    CMgmtObject onlyId(nullptr, L"42", nullptr);
    EXPECT_FALSE(onlyId.Get());
    CMgmtObject onlyCategory(L"Cls", nullptr, nullptr);
    EXPECT_FALSE(onlyCategory.Put(true));
    EXPECT_THAT(Requests(), AfterConnecting({}));
}

TEST_F(NewObjectTest, WithoutAConnectionEveryOperationFails) {
    service.connectResult = WBEM_E_INVALID_NAMESPACE;
    CMgmtObject object(L"Cls", L"42", nullptr);
    EXPECT_FALSE(object.Get());
    EXPECT_FALSE(object.Put(true));
    EXPECT_FALSE(object.DeleteInstance());
    const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
    CMgmtObject referenced(&reference);
    EXPECT_STREQ(referenced.GetInstanceId(), L"42");
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

    service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"changed")}});
    ASSERT_TRUE(object.Get());
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"42\""));

    CMgmtObject another(L"Cls.INSTANCE_ID=\"42\"");
    ASSERT_TRUE(another.Get());
    EXPECT_EQ(TextOf(another.GetPropertyValue(L"DisplayName")), L"changed");
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
    EXPECT_FALSE(service.HasInstance(L"Cls", L"new"));
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"new\""));

    ASSERT_TRUE(missing.Put(true));
    EXPECT_THAT(Requests(),
                ElementsAre(L"GetObject Cls.INSTANCE_ID=\"new\"", L"GetObject Cls", L"SpawnInstance",
                            L"Put Changed 8", L"Put INSTANCE_ID 8", L"Put KeepDays 3", L"PutInstance"));
    EXPECT_EQ(service.Stored(L"Cls", L"new", L"KeepDays").lVal, 9);
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
    EXPECT_THAT(Requests(),
                ElementsAre(L"GetObject Cls.INSTANCE_ID=\"42\"", L"Put DisplayName 8", L"Put Enabled 3"));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"answer");
}

TEST_F(ObjectTest, PutThroughAHeldObjectNeedsSomethingToWrite) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    object.SetPropertyValue(L"DisplayName", L"changed");
    Requests();
    ASSERT_TRUE(object.Put(false));
    EXPECT_THAT(Requests(), ElementsAre(L"Put DisplayName 8", L"Put INSTANCE_ID 8", L"Put KeepDays 3",
                                        L"PutInstance flags=1"));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"changed");

    // With nothing but nulls there is no request whose success could be told.
    for (const wchar_t* name : {L"DisplayName", L"INSTANCE_ID", L"KeepDays"})
        object.SetPropertyValue(name, NullValue());
    EXPECT_FALSE(object.Put(false));
    EXPECT_THAT(Requests(), IsEmpty());

    CMgmtObject fetching(L"Cls", L"42", nullptr);
    EXPECT_TRUE(fetching.Put(false)) << "the fetched instance is stored as it is";
}

TEST_F(ObjectTest, SetScopeMovesTheObjectAndMayMakePutFetch) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    CMgmtScope elsewhere(L"\\\\.\\root\\Elsewhere");
    object.SetScope(elsewhere, true);
    Requests();
    ASSERT_TRUE(object.Put(false));
    const auto requests = Requests();
    EXPECT_EQ(requests.at(1), L"ConnectServer \\\\.\\root\\Elsewhere");
    EXPECT_EQ(requests.at(3), L"GetObject Cls.INSTANCE_ID=\"42\"");
    EXPECT_TRUE(elsewhere.IsConnected());

    object.SetScope(elsewhere, false);
    ASSERT_TRUE(object.Put(false));
    EXPECT_EQ(Requests().front(), L"Put DisplayName 8");
}

TEST_F(ObjectTest, ObjectPathIsUsedWholeButNotForDeleting) {
    CMgmtObject object(L"Cls.INSTANCE_ID=\"42\"");
    object.SetPropertyValue(L"KeepDays", 1);
    EXPECT_TRUE(object.Put(false));
    EXPECT_FALSE(object.DeleteInstance());
    EXPECT_EQ(Requests().back(), L"DeleteInstance .INSTANCE_ID=\"\"");

    CMgmtObject gone(L"Cls.INSTANCE_ID=\"gone\"");
    EXPECT_FALSE(gone.Put(true)) << "there is no category to create an instance of";
    CMgmtObject null(static_cast<const wchar_t*>(nullptr));
    EXPECT_FALSE(null.Get());
    EXPECT_EQ(Requests().back(), L"GetObject (null)");
}

TEST_F(ObjectTest, DeleteInstanceLeavesTheObjectAlone) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    EXPECT_TRUE(object.DeleteInstance());
    EXPECT_FALSE(service.HasInstance(L"Cls", L"42"));
    EXPECT_FALSE(object.DeleteInstance());
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_TRUE(object.Get()) << "of the held object";
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
    EXPECT_STREQ(object.GetInstanceId(), L"42");
    EXPECT_EQ(TextOf(object.GetPropertyValue(L"DisplayName")), L"answer");
    EXPECT_THAT(Requests(), ElementsAre(L"GetObject Cls.INSTANCE_ID=\"42\""));
    object.SetPropertyValue(L"DisplayName", L"changed");
    EXPECT_TRUE(object.Put(false));
    EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"changed");

    CMgmtObject copy(object);
    EXPECT_STREQ(copy.GetInstanceId(), L"42");
    EXPECT_EQ(copy.GetProperties(), object.GetProperties());
}

TEST_F(ObjectTest, ReferenceIsParsedAsFarAsItGoes) {
    struct Case {
        _variant_t reference;
        const wchar_t* category;
        const wchar_t* id;
        bool asks;
    };
    const std::wstring longText = L"Cls.INSTANCE_ID=\"" + std::wstring(300, L'x') + L"\"";
    const Case cases[] = {{_variant_t(5L), L"", L"", false},
                          {_variant_t(L"Cls"), L"", L"", false},
                          {_variant_t(L""), L"", L"", false},
                          {_variant_t(static_cast<const wchar_t*>(nullptr)), L"", L"", false},
                          {_variant_t(L"Cls.K=1"), L"Cls", L"", false},
                          {_variant_t(L"Cls.K=\"1"), L"Cls", L"", false},
                          {_variant_t(longText.c_str()), L"Cls", L"", false},
                          {_variant_t(L"A.B=\"\""), L"A", L"", true},
                          {_variant_t(L"A.B=\"x\",C=\"y\""), L"A", L"x", true}};
    for (const Case& tested : cases) {
        CMgmtObject object(&tested.reference);
        EXPECT_STREQ(object.GetCategoryID(), tested.category) << TextOf(tested.reference).size();
        EXPECT_STREQ(object.GetInstanceId(), tested.id);
        EXPECT_EQ(!Requests().empty(), tested.asks);
        EXPECT_EQ(object.GetProperties()->GetTotalItemCount(), 0U);
    }
    const CMgmtObject null(static_cast<const _variant_t*>(nullptr));
    EXPECT_THAT(Requests(), IsEmpty());
}

// Runs `attempt` with the service failing at its first request, its second, and so on until the attempt makes
// fewer requests than that. A failure must be soft, leave nothing behind and leave the object usable.
void FailAtEachRequest(doubles::FakeService& service,
                       const std::function<std::unique_ptr<CMgmtObject>(bool& succeeded)>& attempt) {
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        ASSERT_LT(n, 100);
        MgmtInitialize(L"\\\\.\\root\\Test");
        service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"answer")}});
        service.FailAt(n, WBEM_E_FAILED);
        bool succeeded = false;
        const std::unique_ptr<CMgmtObject> object = attempt(succeeded);
        const bool failed = service.HasFailed();
        service.FailAt(0, S_OK);

        EXPECT_TRUE(succeeded || failed) << "without a fault it must succeed";
        object->SetPropertyValue(L"DisplayName", L"usable");
        object->SetPropertyValue(L"INSTANCE_ID", L"42");
        EXPECT_TRUE(object->Put(true));
        EXPECT_EQ(TextOf(service.Stored(L"Cls", L"42", L"DisplayName")), L"usable");
        EXPECT_TRUE(object->Get());
        EXPECT_TRUE(object->DeleteInstance());
        if (!failed) return;
    }
}

TEST_F(NewObjectTest, ServiceFailingAtAnyRequestOfGetIsSoft) {
    FailAtEachRequest(service, [](bool& succeeded) {
        auto object = std::make_unique<CMgmtObject>(L"Cls", L"42", nullptr);
        succeeded = object->Get();
        return object;
    });
}

TEST_F(NewObjectTest, ServiceFailingAtAnyRequestOfPutIsSoft) {
    for (const bool createIfMissing : {false, true})
        FailAtEachRequest(service, [&](bool& succeeded) {
            auto object = std::make_unique<CMgmtObject>(L"Cls", createIfMissing ? L"new" : L"42", nullptr);
            object->SetPropertyValue(L"INSTANCE_ID", object->GetInstanceId());
            object->SetPropertyValue(L"KeepDays", 5);
            succeeded = object->Put(createIfMissing);
            object->SetInstanceID(L"42");
            return object;
        });
}

TEST_F(NewObjectTest, ServiceFailingAtAnyRequestOfDeleteInstanceIsSoft) {
    FailAtEachRequest(service, [](bool& succeeded) {
        auto object = std::make_unique<CMgmtObject>(L"Cls", L"42", nullptr);
        succeeded = object->DeleteInstance();
        return object;
    });
}

TEST_F(NewObjectTest, ServiceFailingAtAnyRequestOfALoadedReferenceIsSoft) {
    FailAtEachRequest(service, [](bool& succeeded) {
        const _variant_t reference(L"Cls.INSTANCE_ID=\"42\"");
        auto object = std::make_unique<CMgmtObject>(&reference);
        succeeded = object->GetProperties()->GetTotalItemCount() == 6;
        return object;
    });
}

}  // namespace
