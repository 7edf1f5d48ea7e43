// Enumerations of instances: which come, in which state, and what Next promises.
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using EnumPointer = CComPtr<IEnumWbemClassObject>;

class EnumerationTest : public ServiceClient {
 protected:
    EnumerationTest() {
        EXPECT_CODE(S_OK, Import("class Pol { [key] string ID; uint32 Days = 7; };"
                                 "class Policy { [key] string ID; uint32 Days = 7; string Tags[]; };"
                                 "class PolicyMore : Policy { string More = \"m\"; };"
                                 "class Part { sint32 N; };"
                                 "class PolicyMost : PolicyMore { Part Inside; };"
                                 "[abstract] class Nothing { [key] string ID; };"));
    }

    HRESULT Enumerate(const wchar_t* class_name, EnumPointer& found, long flags = 0) {
        found.Release();
        return services->CreateInstanceEnum(CComBSTR(class_name), flags, nullptr, &found);
    }

    HRESULT Query(const wchar_t* text, EnumPointer& found, long flags = 0, const wchar_t* language = L"WQL") {
        found.Release();
        return services->ExecQuery(CComBSTR(language), CComBSTR(text), flags, nullptr, &found);
    }

    // The next one, or none when there is a fault or the end.
    static HRESULT Next(IEnumWbemClassObject* found, ObjectPointer& object) {
        object.Release();
        ULONG returned = 0;
        const HRESULT result = found->Next(30'000, 1, &object, &returned);
        EXPECT_EQ(returned, result == S_OK ? 1U : 0U);
        return result;
    }

    static ObjectPointer NextOf(IEnumWbemClassObject* found) {
        ObjectPointer object;
        EXPECT_CODE(S_OK, Next(found, object));
        return object;
    }

    // "Class.id=days" for what is left of the enumeration.
    static std::vector<std::string> Rest(IEnumWbemClassObject* found) {
        std::vector<std::string> seen;
        ObjectPointer object;
        HRESULT result = S_OK;
        while ((result = Next(found, object)) == S_OK)
            seen.push_back(Describe(object));
        EXPECT_CODE(WBEM_S_FALSE, result) << TakeReason();
        return seen;
    }

    static std::string Describe(IWbemClassObject* object) {
        return Show(object, L"__CLASS").substr(5) + "." + Show(object, L"ID").substr(5) + "=" +
               Show(object, L"Days").substr(3);
    }

    std::vector<std::string> All(const wchar_t* class_name, long flags = 0) {
        EnumPointer found;
        EXPECT_CODE(S_OK, Enumerate(class_name, found, flags));
        return found ? Rest(found) : std::vector<std::string>();
    }
};

TEST_F(EnumerationTest, DerivedClassesComeWithTheirOwnClass) {
    PutPolicy(L"p", 1, L"Pol");
    PutPolicy(L"b", 1);
    PutPolicy(L"a", 1);
    PutPolicy(L"a", 2, L"PolicyMore");
    PutPolicy(L"z", 3, L"PolicyMost");
    EXPECT_THAT(All(L"policy"),
                UnorderedElementsAre("Policy.a=1", "Policy.b=1", "PolicyMore.a=2", "PolicyMost.z=3"));
    EXPECT_THAT(All(L"Policy", WBEM_FLAG_SHALLOW), UnorderedElementsAre("Policy.a=1", "Policy.b=1"));
    EXPECT_THAT(All(L"Pol"), ElementsAre("Pol.p=1")) << "whose name is the beginning of another's";
    EXPECT_THAT(All(L"Nothing"), IsEmpty()) << "no instance is no error";
    EnumPointer found;
    EXPECT_CODE(WBEM_E_INVALID_CLASS, Enumerate(L"Polic", found));
    EXPECT_THAT(TakeReason(), HasSubstr("Polic"));
    EXPECT_FALSE(found);
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, Enumerate(L"Policy", found, 0x4000));
}

TEST_F(EnumerationTest, ShowsTheStateItBeganWith) {
    std::string instances;
    for (int i = 100; i < 400; ++i)
        instances += "instance of Policy { ID = \"" + std::to_string(i) + "\"; };";
    ASSERT_CODE(S_OK, Import(instances));
    EnumPointer found, clone;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found));
    EXPECT_EQ(Describe(NextOf(found)), "Policy.100=7");
    PutPolicy(L"new", 1);
    PutPolicy(L"399", 2);
    EXPECT_CODE(S_OK, DeleteInstance(L"Policy.ID=\"398\""));
    ASSERT_CODE(S_OK, found->Clone(&clone));
    for (IEnumWbemClassObject* each : {found.p, clone.p}) {
        const std::vector<std::string> seen = Rest(each);
        EXPECT_EQ(seen.size(), 299U);
        EXPECT_THAT(seen, AllOf(Contains("Policy.398=7"), Contains("Policy.399=7")));
    }
    // From the beginning, as it is now.
    ASSERT_CODE(S_OK, found->Reset());
    EXPECT_EQ(Rest(found).size(), 300U);
}

TEST_F(EnumerationTest, NextKeepsItsPromises) {
    for (const wchar_t* id : {L"a", L"b", L"c"})
        PutPolicy(id, 1);
    EnumPointer found;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY));
    std::vector<ObjectPointer> kept(8);
    IWbemClassObject** const objects = &kept[0].p;
    ULONG returned = 99;
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, found->Next(0, 1, nullptr, &returned));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, found->Next(0, 1, objects, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, found->Next(-2, 1, objects, &returned));
    EXPECT_CODE(S_OK, found->Next(0, 0, objects, &returned));
    EXPECT_EQ(returned, 0U);
    EXPECT_CODE(S_OK, found->Skip(0, 1));
    EXPECT_CODE(WBEM_S_FALSE, found->Next(0, 8, objects, &returned));
    ASSERT_EQ(returned, 2U);
    EXPECT_EQ(Describe(objects[0]), "Policy.b=1");
    kept[0].Release();
    EXPECT_CODE(WBEM_S_FALSE, found->Next(WBEM_INFINITE, 1, objects, &returned));
    EXPECT_CODE(WBEM_S_FALSE, found->Skip(0, 1));
    EnumPointer clone;
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, found->Clone(&clone));
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, found->Reset());
}

// The classes as they were when the enumeration began go on being what its instances, and the objects in
// them, are of.
TEST_F(EnumerationTest, ClassesMayChangeMeanwhile) {
    std::string instances;
    for (int i = 0; i < 40; ++i)
        instances += "instance of PolicyMost { ID = \"" + std::to_string(i) +
                     "\"; Inside = instance of Part { N = 1; }; };";
    ASSERT_CODE(S_OK, Import(instances));
    EnumPointer found;
    ASSERT_CODE(S_OK, Query(L"SELECT * FROM PolicyMost WHERE Inside.N = 1", found));
    NextOf(found);
    EXPECT_CODE(S_OK,
                Import("class PolicyMore : Policy { string More = \"new\"; string Further = \"f\"; };"));
    const ObjectPointer second = NextOf(found);
    EXPECT_EQ(Show(second, L"More"), "BSTR m");
    // What comes of an object that was gone before it was looked at again.
    const std::wstring path(GetValue(second, L"__RELPATH").bstrVal);
    EXPECT_CODE(S_OK, DeleteInstance(path));
    EXPECT_CODE(WBEM_E_NOT_FOUND, CodeOf(path));
    EXPECT_CODE(WBEM_E_NOT_FOUND, PutInstance(second, WBEM_FLAG_UPDATE_ONLY));

    for (int i = 0; i < 40; ++i)
        DeleteInstance(L"PolicyMost.ID=\"" + std::to_wstring(i) + L"\"");
    ASSERT_CODE(S_OK, DeleteClass(L"PolicyMost"));
    ASSERT_CODE(S_OK, DeleteClass(L"Part"));
    int left = 0;
    for (ObjectPointer object; Next(found, object) == S_OK; ++left)
        EXPECT_EQ(Show(object, L"Inside"), "UNKNOWN object");
    EXPECT_EQ(left, 38);
    EXPECT_THAT(All(L"Policy"), IsEmpty());
}

class QueryTest : public EnumerationTest {
 protected:
    QueryTest() {
        std::string instances = "instance of PolicyMore { ID = \"id-4\"; Days = 44; };";
        for (int i = 0; i < 30; ++i) {
            const std::string number = std::to_string(i);
            instances += std::string("instance of ") + (i % 2 ? "PolicyMore" : "Policy") + " { ID = \"id-" +
                         number + "\"; Days = " + number + "; };";
        }
        EXPECT_CODE(S_OK, Import(instances));
    }

    std::vector<std::string> Matches(const wchar_t* text) {
        EnumPointer found;
        EXPECT_CODE(S_OK, Query(text, found)) << TakeReason();
        return found ? Rest(found) : std::vector<std::string>();
    }
};

TEST_F(QueryTest, GivesWhatMatches) {
    EXPECT_EQ(Matches(L"select * from policy").size(), 31U);
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE Days < 2 OR Days = 29"),
                UnorderedElementsAre("Policy.id-0=0", "PolicyMore.id-1=1", "PolicyMore.id-29=29"));
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE ID = 'ID-4'"),
                UnorderedElementsAre("Policy.id-4=4", "PolicyMore.id-4=44"));
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE ID = 'id-4' AND Days > 4"),
                ElementsAre("PolicyMore.id-4=44"));
    EXPECT_EQ(Matches(L"SELECT * FROM PolicyMore WHERE More = 'M' AND ID LIKE '%-1_'").size(), 5U);
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE ID = 'none'"), IsEmpty());
}

// What was not asked for is not there; such an instance cannot be mistaken for the whole one.
TEST_F(QueryTest, AListLeavesTheRestOut) {
    EnumPointer found;
    for (const wchar_t* text :
         {L"SELECT days FROM Policy WHERE ID = 'id-5'", L"SELECT Days FROM Policy WHERE Days = 5"}) {
        ASSERT_CODE(S_OK, Query(text, found));
        const ObjectPointer object = NextOf(found);
        EXPECT_EQ(Show(object, L"Days"), "I4 5");
        EXPECT_EQ(Show(object, L"__CLASS"), "BSTR PolicyMore");
        EXPECT_EQ(Show(object, L"__RELPATH"), "NULL");
        _variant_t id;
        EXPECT_CODE(WBEM_E_NOT_FOUND, object->Get(L"ID", 0, &id, nullptr, nullptr));
        EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(object));
        EXPECT_THAT(TakeReason(), HasSubstr("query"));
    }
    ASSERT_CODE(S_OK, Query(L"SELECT Days FROM Policy WHERE Days = 5", found, WBEM_FLAG_ENSURE_LOCATABLE));
    EXPECT_EQ(Show(NextOf(found), L"__RELPATH"), "BSTR PolicyMore.ID=\"id-5\"");
    EXPECT_EQ(Show(Get(L"PolicyMore.ID=\"id-5\""), L"Days"), "I4 5") << "what was refused changed nothing";
}

TEST_F(QueryTest, AWrongQueryIsAStatus) {
    EnumPointer found;
    const std::pair<const wchar_t*, HRESULT> cases[] = {
        {L"SELECT * FROM Policy WHERE", WBEM_E_UNPARSABLE_QUERY},
        {L"", WBEM_E_UNPARSABLE_QUERY},
        {L"SELECT * FROM NoClass", WBEM_E_INVALID_CLASS},
        {L"SELECT * FROM Policy WITHIN 1", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Policy WHERE NoProperty = 1", WBEM_E_INVALID_QUERY},
        {L"SELECT NoProperty FROM Policy", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Policy WHERE Days = 'many'", WBEM_E_INVALID_QUERY}};
    for (const auto& [text, expected] : cases) {
        EXPECT_CODE(expected, Query(text, found)) << Narrow(std::wstring_view(text));
        EXPECT_FALSE(TakeReason().empty());
        EXPECT_FALSE(found);
    }
    EXPECT_CODE(WBEM_E_INVALID_QUERY_TYPE, Query(L"SELECT * FROM Policy", found, 0, L"SQL"));
    EXPECT_CODE(S_OK, Query(L"SELECT * FROM Policy", found, 0, L"wql"));
}

TEST_F(EnumerationTest, ADamagedRecordIsAFaultAndTheRestComes) {
    std::string instances;
    for (int i = 10; i < 60; ++i) {
        const std::string number = std::to_string(i);
        instances += "instance of Policy { ID = \"" + number + "\"; Tags = {\"mark-" + number + "\"}; };";
    }
    ASSERT_CODE(S_OK, Import(instances));
    std::fstream file(store + "/data.mdb", std::ios::binary | std::ios::in | std::ios::out);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (size_t at = bytes.find("mark-25"); at != std::string::npos; at = bytes.find("mark-25", at + 1))
        file.seekp(static_cast<std::streamoff>(at)).put('M');
    file.close();
    EnumPointer found;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found));
    ObjectPointer object;
    int seen = 0, faults = 0;
    for (HRESULT result = S_OK; (result = Next(found, object)) != WBEM_S_FALSE && faults < 3;) {
        ++(result == S_OK ? seen : faults);
        if (result == S_OK) continue;
        EXPECT_CODE(WBEM_E_CRITICAL_ERROR, result);
        EXPECT_THAT(TakeReason(), HasSubstr("class Policy"));
    }
    EXPECT_EQ(faults, 1);
    EXPECT_EQ(seen, 49);
}

}  // namespace
