// Names, enumeration and copies of class objects.
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kSchema = R"(
class Base { [key] string ID; uint32 Days = 7; };
class Policy : Base { string Name; Policy ref Parent; [not_null] boolean Enabled = TRUE; };
class Größe : Base { string Straße; };
)";

// A property's value, type and flavor, for comparison and failure messages.
std::string Told(const _variant_t& value, CIMTYPE type, long flavor) {
    return Show(value) + " of type " + std::to_string(type) + ", flavor " + std::to_string(flavor);
}

class ClassObjectTest : public ServiceClient {
 protected:
    ClassObjectTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    // What is told of each, in the order of the names.
    static std::vector<std::string> Names(IWbemClassObject* object, long flags,
                                          std::map<std::string, std::string>* told = nullptr) {
        std::vector<std::string> names;
        EXPECT_CODE(S_OK, object->BeginEnumeration(flags));
        while (true) {
            CComBSTR name;
            _variant_t value;
            CIMTYPE type = 0;
            long flavor = 0;
            const HRESULT result = object->Next(0, &name, &value, &type, &flavor);
            if (result != S_OK) {
                EXPECT_CODE(WBEM_S_NO_MORE_DATA, result);
                EXPECT_EQ(value.vt, VT_EMPTY);
                EXPECT_FALSE(name.m_str);
                break;
            }
            names.push_back(Narrow(name.m_str));
            if (told) (*told)[names.back()] = Told(value, type, flavor);
        }
        EXPECT_CODE(WBEM_S_NO_MORE_DATA, object->Next(0, nullptr, nullptr, nullptr, nullptr));
        EXPECT_CODE(S_OK, object->EndEnumeration());
        return names;
    }
};

TEST_F(ClassObjectTest, AnUnknownNameLeavesTheOutputsAlone) {
    const auto policy = Spawn(L"Policy");
    for (const wchar_t* name : {L"Nothing", L"", L"__NOTHING", L"Day", L"Dayss", L"\xD800"}) {
        _variant_t value(42L);
        CIMTYPE type = 77;
        long flavor = 78;
        EXPECT_CODE(WBEM_E_NOT_FOUND, policy->Get(name, 0, &value, &type, &flavor));
        EXPECT_EQ(::Show(value), "I4 42");
        EXPECT_EQ(type, 77);
        EXPECT_EQ(flavor, 78);
    }
    EXPECT_CODE(WBEM_E_NOT_FOUND, policy->Get(L"Nothing", 0, nullptr, nullptr, nullptr));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Policy"), HasSubstr("Nothing")));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Get(nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Get(L"ID", 1, nullptr, nullptr, nullptr));
}

TEST_F(ClassObjectTest, NamesAreFoundWithoutRegardToCase) {
    const auto policy = Spawn(L"POLICY");
    EXPECT_CODE(S_OK, PutValue(policy, L"dAYS", 9L));
    EXPECT_EQ(Show(policy, L"DAYS"), "I4 9");
    EXPECT_EQ(Show(policy, L"__class"), "BSTR Policy") << "the class's own spelling";
    const auto umlaut = Spawn(L"GRÖßE");
    EXPECT_CODE(S_OK, PutValue(umlaut, L"STRAßE", L"x"));
    EXPECT_EQ(Show(umlaut, L"straße"), "BSTR x");
}

TEST_F(ClassObjectTest, PutRefusesWhatIsNoProperty) {
    const auto policy = Spawn(L"Policy");
    EXPECT_CODE(WBEM_E_NOT_FOUND, PutValue(policy, L"Nothing", 1L));
    _variant_t value(1L);
    const std::vector<HRESULT> invalid = {
        PutValue(policy, L"_Name", value), PutValue(policy, L"Name_", value),
        PutValue(policy, L"Days", value, CIM_UINT32), policy->Put(nullptr, 0, nullptr, 0),
        policy->Put(L"Days", 1, &value, 0)};
    EXPECT_THAT(invalid, Each(WBEM_E_INVALID_PARAMETER));
    EXPECT_CODE(WBEM_E_READ_ONLY, PutValue(policy, L"__CLASS", L"Base"));
    EXPECT_CODE(WBEM_E_READ_ONLY, PutValue(policy, L"__path", L"x"));
    EXPECT_THAT(Names(policy, WBEM_FLAG_LOCAL_ONLY), IsEmpty());
}

TEST_F(ClassObjectTest, PropertiesAreListedInOneOrderByTheFlags) {
    const auto policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", L"n"));
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"i"));
    const auto all = ElementsAre("Days", "Enabled", "ID", "Name", "Parent");
    EXPECT_THAT(Names(policy, WBEM_FLAG_NONSYSTEM_ONLY), all);
    EXPECT_THAT(Names(policy, WBEM_FLAG_KEYS_ONLY), ElementsAre("ID"));
    EXPECT_THAT(Names(policy, WBEM_FLAG_REFS_ONLY), ElementsAre("Parent"));
    EXPECT_THAT(Names(policy, WBEM_FLAG_KEYS_ONLY | WBEM_FLAG_REFS_ONLY), IsEmpty());
    EXPECT_THAT(Names(policy, WBEM_FLAG_LOCAL_ONLY), ElementsAre("ID", "Name"));
    EXPECT_THAT(Names(policy, WBEM_FLAG_PROPAGATED_ONLY), ElementsAre("Days", "Enabled", "Parent"));
    EXPECT_THAT(Names(policy, WBEM_FLAG_KEYS_ONLY | WBEM_FLAG_PROPAGATED_ONLY), IsEmpty());
    const auto system = ElementsAre("__GENUS", "__CLASS", "__SUPERCLASS", "__DYNASTY", "__RELPATH",
                                    "__PROPERTY_COUNT", "__DERIVATION", "__SERVER", "__NAMESPACE", "__PATH");
    EXPECT_THAT(Names(policy, WBEM_FLAG_SYSTEM_ONLY), system);
    EXPECT_EQ(Names(policy, 0).size(), 15U);

    const auto definition = Get(L"Policy");
    EXPECT_THAT(Names(definition, WBEM_FLAG_LOCAL_ONLY), ElementsAre("Enabled", "Name", "Parent"));
    EXPECT_THAT(Names(definition, WBEM_FLAG_PROPAGATED_ONLY), ElementsAre("Days", "ID"));
    EXPECT_THAT(Names(definition, WBEM_FLAG_NONSYSTEM_ONLY), all);

    for (const long flags : {1L, 2L, 0x80L, 0x50L, 0x60L, 0x70L, 0x100L, -1L})
        EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->BeginEnumeration(flags)) << flags;
    EXPECT_CODE(WBEM_E_UNEXPECTED, policy->Next(0, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(ClassObjectTest, ListedPropertiesHaveTypeValueAndFlavor) {
    const auto policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"i"));
    std::map<std::string, std::string> told;
    Names(policy, 0, &told);
    EXPECT_EQ(told["ID"], Told(L"i", CIM_STRING, WBEM_FLAVOR_ORIGIN_LOCAL));
    EXPECT_EQ(told["Days"], Told(7L, CIM_UINT32, WBEM_FLAVOR_ORIGIN_PROPAGATED));
    EXPECT_EQ(told["Parent"], Told(Null(), CIM_REFERENCE, WBEM_FLAVOR_ORIGIN_PROPAGATED));
    EXPECT_EQ(told["__GENUS"], Told(2L, CIM_SINT32, WBEM_FLAVOR_ORIGIN_SYSTEM));
    EXPECT_EQ(told["__DERIVATION"],
              Told(ArrayOf(VT_BSTR, {L"Base"}), CIM_STRING | CIM_FLAG_ARRAY, WBEM_FLAVOR_ORIGIN_SYSTEM));
    for (const auto& [name, expected] : told) {
        _variant_t value;
        CIMTYPE type = 0;
        long flavor = -1;
        EXPECT_CODE(S_OK, policy->Get(CComBSTR(name.c_str()), 0, &value, &type, &flavor));
        EXPECT_EQ(Told(value, type, flavor), expected);
    }
}

TEST_F(ClassObjectTest, AnEnumerationHasBeginAndEnd) {
    const auto policy = Spawn(L"Policy");
    CComBSTR name;
    _variant_t value(42L);
    EXPECT_CODE(WBEM_E_UNEXPECTED, policy->Next(0, &name, &value, nullptr, nullptr));
    EXPECT_FALSE(name.m_str);
    EXPECT_EQ(::Show(value), "I4 42");
    EXPECT_CODE(S_OK, policy->EndEnumeration());
    EXPECT_CODE(S_OK, policy->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY));
    EXPECT_CODE(S_OK, policy->Next(0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_UNEXPECTED, policy->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Next(1, nullptr, nullptr, nullptr, nullptr));
    // The one that runs goes on, also while values are put.
    EXPECT_CODE(S_OK, PutValue(policy, L"Name", L"n"));
    EXPECT_CODE(S_OK, policy->Next(0, &name, nullptr, nullptr, nullptr));
    EXPECT_EQ(Narrow(name.m_str), "Enabled");
}

TEST_F(ClassObjectTest, SystemPropertiesTellWhatAnObjectIs) {
    const auto policy = Spawn(L"Policy");
    EXPECT_EQ(Show(policy, L"__RELPATH"), "NULL");
    EXPECT_EQ(Show(policy, L"__PATH"), "NULL");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"a\"b\\c"));
    EXPECT_EQ(Show(policy, L"__RELPATH"), "BSTR Policy.ID=\"a\\\"b\\\\c\"");
    const std::string path = Show(policy, L"__PATH");
    EXPECT_EQ(path,
              "BSTR \\\\" + Show(policy, L"__SERVER").substr(5) + "\\root\\Test:Policy.ID=\"a\\\"b\\\\c\"");
    EXPECT_EQ(Show(policy, L"__NAMESPACE"), "BSTR root\\Test");
    EXPECT_EQ(Show(policy, L"__SUPERCLASS"), "BSTR Base");
    EXPECT_EQ(Show(policy, L"__DYNASTY"), "BSTR Base");
    EXPECT_EQ(Show(policy, L"__PROPERTY_COUNT"), "I4 5");

    ASSERT_CODE(S_OK, PutInstance(policy));
    const _variant_t own_path = GetValue(policy, L"__PATH");
    EXPECT_EQ(Show(Get({own_path.bstrVal, SysStringLen(own_path.bstrVal)}), L"ID"), "BSTR a\"b\\c");

    const auto base = Get(L"Base");
    EXPECT_EQ(Show(base, L"__GENUS"), "I4 1");
    EXPECT_EQ(Show(base, L"__SUPERCLASS"), "NULL");
    EXPECT_EQ(Show(base, L"__DERIVATION"), "BSTR[]");
    EXPECT_EQ(Show(base, L"__RELPATH"), "BSTR Base");
    services.Release();
    EXPECT_EQ(Show(base, L"__NAMESPACE"), "BSTR root\\Test") << "objects outlive their connection";
}

TEST_F(ClassObjectTest, ACloneIsAnObjectOfItsOwn) {
    const auto policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", L"n"));
    ASSERT_CODE(S_OK, policy->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY));
    ObjectPointer clone;
    ASSERT_CODE(S_OK, policy->Clone(&clone));
    EXPECT_CODE(WBEM_E_UNEXPECTED, clone->Next(0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_CODE(S_OK, policy->CompareTo(0, clone));
    ASSERT_CODE(S_OK, PutValue(clone, L"Name", L"other"));
    EXPECT_EQ(Show(policy, L"Name"), "BSTR n");
    EXPECT_CODE(WBEM_S_FALSE, policy->CompareTo(0, clone));
    ObjectPointer class_clone;
    ASSERT_CODE(S_OK, Get(L"Policy")->Clone(&class_clone));
    EXPECT_CODE(S_OK, class_clone->CompareTo(0, Get(L"policy")));
    EXPECT_CODE(WBEM_S_FALSE, class_clone->CompareTo(0, Get(L"Base")));
    EXPECT_CODE(S_OK, policy->InheritsFrom(L"BASE"));
    EXPECT_CODE(WBEM_S_FALSE, policy->InheritsFrom(L"Größe"));
    CComBSTR origin;
    EXPECT_CODE(S_OK, policy->GetPropertyOrigin(L"days", &origin));
    EXPECT_EQ(Narrow(origin.m_str), "Base");
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Clone(nullptr));
}

// What a call hands out as an array of names.
template <typename Call>
std::vector<std::string> NamesFrom(Call call) {
    SAFEARRAY* names = nullptr;
    EXPECT_CODE(S_OK, call(&names));
    std::vector<std::string> list;
    for (ULONG i = 0; names && i < names->rgsabound[0].cElements; ++i)
        list.push_back(Narrow(static_cast<BSTR*>(names->pvData)[i]));
    SafeArrayDestroy(names);
    return list;
}

TEST_F(ClassObjectTest, NamesAreHandedOutAtOnce) {
    const auto policy = Get(L"Policy");
    const auto names = [&](long flags) {
        return NamesFrom([&](SAFEARRAY** list) { return policy->GetNames(nullptr, flags, nullptr, list); });
    };
    for (const long flags : {0L, long{WBEM_FLAG_LOCAL_ONLY}, long{WBEM_FLAG_PROPAGATED_ONLY},
                             long{WBEM_FLAG_SYSTEM_ONLY}, long{WBEM_FLAG_KEYS_ONLY}})
        EXPECT_EQ(names(flags), Names(policy, flags)) << flags;
    EXPECT_THAT(names(WBEM_FLAG_KEYS_ONLY | WBEM_FLAG_NONSYSTEM_ONLY), ElementsAre("ID"));
    SAFEARRAY* none = nullptr;
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, policy->GetNames(L"key", WBEM_FLAG_ONLY_IF_TRUE, nullptr, &none));
}

TEST_F(ClassObjectTest, AMethodsSignaturesAreClasses) {
    ASSERT_CODE(S_OK, Import("class Doer : Base { [Static, Description(\"d\")] uint32 Do([In] string What, "
                             "[Out] uint8 Count, [In, Out] boolean Both); };"));
    const auto doer = Get(L"Doer");
    ObjectPointer in, out;
    ASSERT_CODE(S_OK, doer->GetMethod(L"do", 0, &in, &out));
    EXPECT_THAT(Names(in, WBEM_FLAG_NONSYSTEM_ONLY), ElementsAre("Both", "What"));
    EXPECT_THAT(Names(out, WBEM_FLAG_NONSYSTEM_ONLY), ElementsAre("Both", "Count", "ReturnValue"));
    CComPtr<IWbemQualifierSet> qualifiers;
    ASSERT_CODE(S_OK, doer->GetMethodQualifierSet(L"DO", &qualifiers));
    EXPECT_THAT(NamesFrom([&](SAFEARRAY** list) { return qualifiers->GetNames(0, list); }),
                ElementsAre("Static", "Description"));
    EXPECT_CODE(WBEM_E_NOT_FOUND, doer->GetMethod(L"Undo", 0, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, doer->DeleteMethod(L"Do"));
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, Spawn(L"Doer")->GetMethod(L"Do", 0, nullptr, nullptr));
}

TEST_F(ClassObjectTest, AListOfClassesMayBeSkippedClonedAndBegunAgain) {
    CComPtr<IEnumWbemClassObject> classes, rest;
    ASSERT_CODE(S_OK, services->CreateClassEnum(CComBSTR(L"Base"), 0, nullptr, &classes));
    const auto next = [](IEnumWbemClassObject* list) {
        ObjectPointer object;
        ULONG count = 0;
        return list->Next(WBEM_INFINITE, 1, &object, &count) == S_OK ? Show(object, L"__CLASS") : "none";
    };
    const std::string first = next(classes);
    ASSERT_CODE(S_OK, classes->Clone(&rest));
    const std::string second = next(classes);
    EXPECT_EQ(next(classes), "none");
    EXPECT_EQ(next(rest), second) << "a clone stands where the list stood";
    ASSERT_CODE(S_OK, classes->Reset());
    EXPECT_EQ(next(classes), first);
    EXPECT_CODE(S_OK, classes->Skip(0, 1));
    EXPECT_CODE(WBEM_S_FALSE, classes->Skip(0, 1));
}

}  // namespace
