// Enumerations of instances: which come, in which state, and what Next promises.
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

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
                                 "class PolicyMost : PolicyMore { };"
                                 "[abstract] class Nothing { [key] string ID; };"));
    }

    void PutPolicy(const std::wstring& class_name, const std::wstring& id, int days = 1) {
        const ObjectPointer instance = Spawn(class_name);
        PutValue(instance, L"ID", Text(id));
        PutValue(instance, L"Days", days);
        EXPECT_CODE(S_OK, PutInstance(instance));
    }

    HRESULT Enumerate(const wchar_t* class_name, EnumPointer& found, long flags = 0) {
        found.Release();
        return services->CreateInstanceEnum(CComBSTR(class_name), flags, nullptr, &found);
    }

    // "Class.id=days" for what is left of the enumeration.
    static std::vector<std::string> Rest(IEnumWbemClassObject* found) {
        std::vector<std::string> seen;
        while (true) {
            ObjectPointer object;
            ULONG returned = 0;
            const HRESULT result = found->Next(30'000, 1, &object, &returned);
            if (result != S_OK) {
                EXPECT_CODE(WBEM_S_FALSE, result) << TakeReason();
                EXPECT_EQ(returned, 0U);
                return seen;
            }
            seen.push_back(Describe(object));
        }
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
    PutPolicy(L"Pol", L"p");
    PutPolicy(L"Policy", L"b");
    PutPolicy(L"Policy", L"a");
    PutPolicy(L"PolicyMore", L"a", 2);
    PutPolicy(L"PolicyMost", L"z", 3);
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
    constexpr int kCount = 300;
    std::set<std::string> expected;
    std::string before, after;
    for (int i = 0; i < kCount; ++i) {
        const std::string number = std::to_string(i);
        before += "instance of Policy { ID = \"" + number + "\"; Days = " + number + "; };";
        if (i % 3 == 0) after += "instance of Policy { ID = \"" + number + "\"; Days = 10000; };";
        after += "instance of Policy { ID = \"new-" + number + "\"; };";
        expected.insert("Policy." + number + "=" + number);
    }
    ASSERT_CODE(S_OK, Import(before));
    EnumPointer found, clone;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found));
    IWbemClassObject* first[3] = {};
    ULONG returned = 0;
    ASSERT_CODE(S_OK, found->Next(WBEM_INFINITE, 3, first, &returned));
    ASSERT_EQ(returned, 3U);
    std::vector<std::string> head;
    for (IWbemClassObject* each : first) {
        head.push_back(Describe(each));
        each->Release();
    }
    ASSERT_CODE(S_OK, Import(after));
    for (int i = 1; i < kCount; i += 30)
        EXPECT_CODE(S_OK, DeleteInstance(L"Policy.ID=\"" + std::to_wstring(i) + L"\""));
    ASSERT_CODE(S_OK, found->Clone(&clone));
    for (IEnumWbemClassObject* each : {found.p, clone.p}) {
        std::vector<std::string> seen = Rest(each);
        seen.insert(seen.end(), head.begin(), head.end());
        EXPECT_EQ(seen.size(), size_t{kCount});
        EXPECT_TRUE(std::set<std::string>(seen.begin(), seen.end()) == expected);
    }
    // From the beginning, as it is now.
    ASSERT_CODE(S_OK, found->Reset());
    EXPECT_EQ(Rest(found).size(), size_t{2 * kCount - kCount / 30});
}

TEST_F(EnumerationTest, NextKeepsItsPromises) {
    for (const wchar_t* id : {L"a", L"b", L"c"})
        PutPolicy(L"Policy", id);
    EnumPointer found;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY));
    IWbemClassObject* objects[8] = {};
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
    objects[0]->Release();
    objects[1]->Release();
    EXPECT_CODE(WBEM_S_FALSE, found->Next(WBEM_INFINITE, 1, objects, &returned));
    EXPECT_CODE(WBEM_S_FALSE, found->Skip(0, 1));
    EnumPointer clone;
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, found->Clone(&clone));
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, found->Reset());
}

// The class as it was when the enumeration began goes on being what its instances are of.
TEST_F(EnumerationTest, ClassesMayChangeMeanwhile) {
    std::string instances;
    for (int i = 0; i < 40; ++i)
        instances += "instance of PolicyMost { ID = \"" + std::to_string(i) + "\"; };";
    ASSERT_CODE(S_OK, Import(instances));
    EnumPointer found;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found));
    ObjectPointer first;
    ULONG returned = 0;
    ASSERT_CODE(S_OK, found->Next(0, 1, &first, &returned));
    EXPECT_CODE(S_OK,
                Import("class PolicyMore : Policy { string More = \"new\"; string Further = \"f\"; };"));
    ObjectPointer second;
    ASSERT_CODE(S_OK, found->Next(0, 1, &second, &returned));
    EXPECT_EQ(Show(second, L"More"), "BSTR m");
    // What comes of an object that was gone before it was looked at again.
    const std::wstring path(GetValue(second, L"__RELPATH").bstrVal);
    EXPECT_CODE(S_OK, DeleteInstance(path));
    ObjectPointer again;
    EXPECT_CODE(WBEM_E_NOT_FOUND, GetObject(path, again));
    EXPECT_CODE(WBEM_E_NOT_FOUND, PutInstance(second, WBEM_FLAG_UPDATE_ONLY));

    for (int i = 0; i < 40; ++i)
        DeleteInstance(L"PolicyMost.ID=\"" + std::to_wstring(i) + L"\"");
    ASSERT_CODE(S_OK, services->DeleteClass(CComBSTR(L"PolicyMost"), 0, nullptr, nullptr));
    EXPECT_EQ(Rest(found).size(), 38U);
    EXPECT_THAT(All(L"Policy"), IsEmpty());
}

// The classes of embedded objects, too.
TEST_F(EnumerationTest, ClassesOfEmbeddedObjectsMayGo) {
    std::string instances = "class Part { sint32 N; }; class Holder { [key] string ID; Part Inside; };";
    for (int i = 0; i < 40; ++i) {
        instances += "instance of Holder { ID = \"" + std::to_string(i) +
                     "\"; Inside = instance of Part { N = 1; }; };";
    }
    ASSERT_CODE(S_OK, Import(instances));
    EnumPointer found;
    ASSERT_CODE(S_OK,
                services->ExecQuery(CComBSTR(L"WQL"), CComBSTR(L"SELECT * FROM Holder WHERE Inside.N = 1"), 0,
                                    nullptr, &found));
    for (int i = 0; i < 40; ++i)
        EXPECT_CODE(S_OK, DeleteInstance(L"Holder.ID=\"" + std::to_wstring(i) + L"\""));
    for (const wchar_t* name : {L"Holder", L"Part"})
        ASSERT_CODE(S_OK, services->DeleteClass(CComBSTR(name), 0, nullptr, nullptr));
    int seen = 0;
    ObjectPointer object;
    for (ULONG returned = 0; found->Next(WBEM_INFINITE, 1, &object, &returned) == S_OK; ++seen) {
        EXPECT_EQ(Show(object, L"Inside"), "UNKNOWN object");
        object.Release();
    }
    EXPECT_EQ(seen, 40);
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

    HRESULT Query(const wchar_t* text, EnumPointer& found, long flags = 0, const wchar_t* language = L"WQL") {
        found.Release();
        return services->ExecQuery(CComBSTR(language), CComBSTR(text), flags, nullptr, &found);
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
    EXPECT_THAT(Matches(L"SELECT * FROM PolicyMore WHERE More = 'M' AND ID LIKE '%-1_'"),
                UnorderedElementsAre("PolicyMore.id-11=11", "PolicyMore.id-13=13", "PolicyMore.id-15=15",
                                     "PolicyMore.id-17=17", "PolicyMore.id-19=19"));
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE ID = 'none'"), IsEmpty());
    EXPECT_THAT(Matches(L"SELECT * FROM Policy WHERE Tags IS NOT NULL"), IsEmpty());
}

// What was not asked for is not there; such an instance cannot be mistaken for the whole one.
TEST_F(QueryTest, AListLeavesTheRestOut) {
    EnumPointer found;
    for (const wchar_t* text :
         {L"SELECT days FROM Policy WHERE ID = 'id-5'", L"SELECT Days FROM Policy WHERE Days = 5"}) {
        ASSERT_CODE(S_OK, Query(text, found));
        ObjectPointer object;
        ULONG returned = 0;
        ASSERT_CODE(S_OK, found->Next(WBEM_INFINITE, 1, &object, &returned));
        EXPECT_EQ(Show(object, L"Days"), "I4 5");
        EXPECT_EQ(Show(object, L"__CLASS"), "BSTR PolicyMore");
        EXPECT_EQ(Show(object, L"__RELPATH"), "NULL");
        _variant_t id;
        EXPECT_CODE(WBEM_E_NOT_FOUND, object->Get(L"ID", 0, &id, nullptr, nullptr));
        EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(object));
        EXPECT_THAT(TakeReason(), HasSubstr("query"));
    }
    ASSERT_CODE(S_OK, Query(L"SELECT Days FROM Policy WHERE Days = 5", found, WBEM_FLAG_ENSURE_LOCATABLE));
    ObjectPointer object;
    ULONG returned = 0;
    ASSERT_CODE(S_OK, found->Next(WBEM_INFINITE, 1, &object, &returned));
    EXPECT_EQ(Show(object, L"__RELPATH"), "BSTR PolicyMore.ID=\"id-5\"");
    EXPECT_EQ(Show(Get(L"PolicyMore.ID=\"id-5\""), L"Days"), "I4 5") << "what was refused changed nothing";
}

TEST_F(QueryTest, AWrongQueryIsAStatus) {
    EnumPointer found;
    const struct {
        const wchar_t* text;
        HRESULT expected;
    } cases[] = {
        {L"SELECT * FROM Policy WHERE", WBEM_E_UNPARSABLE_QUERY},
        {L"SELECT * FROM Policy WITHIN 1", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM NoClass", WBEM_E_INVALID_CLASS},
        {L"SELECT * FROM Policy WHERE NoProperty = 1", WBEM_E_INVALID_QUERY},
        {L"SELECT NoProperty FROM Policy", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Policy WHERE Days = 'many'", WBEM_E_INVALID_QUERY},
        {L"", WBEM_E_UNPARSABLE_QUERY},
    };
    for (const auto& each : cases) {
        EXPECT_CODE(each.expected, Query(each.text, found)) << Narrow(std::wstring_view(each.text));
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
    const std::string path = store + "/data.mdb";
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    std::fstream out(path, std::ios::binary | std::ios::in | std::ios::out);
    for (size_t at = bytes.find("mark-25"); at != std::string::npos; at = bytes.find("mark-25", at + 1)) {
        out.seekp(static_cast<std::streamoff>(at));
        out.write("M", 1);
    }
    out.close();
    EnumPointer found;
    ASSERT_CODE(S_OK, Enumerate(L"Policy", found));
    int seen = 0, faults = 0;
    while (true) {
        ObjectPointer object;
        ULONG returned = 0;
        const HRESULT result = found->Next(30'000, 1, &object, &returned);
        if (result == WBEM_S_FALSE) break;
        if (result == S_OK) {
            ++seen;
            continue;
        }
        EXPECT_CODE(WBEM_E_CRITICAL_ERROR, result);
        EXPECT_THAT(TakeReason(), HasSubstr("class Policy"));
        ASSERT_LT(++faults, 3);
    }
    EXPECT_EQ(faults, 1);
    EXPECT_EQ(seen, 49);
}

}  // namespace
