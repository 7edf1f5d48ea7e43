// Names, enumeration and copies of class objects.
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kSchema = R"(
class Base { [key] string ID; uint32 Days = 7; };
class Policy : Base { string Name; Policy ref Parent; [not_null] boolean Enabled = TRUE; };
class Größe : Base { string Straße; };
)";

struct Listed {
    std::string name, value;
    CIMTYPE type = 0;
    long flavor = 0;
};

class ClassObjectTest : public ServiceClient {
 protected:
    ClassObjectTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    static std::vector<Listed> List(IWbemClassObject* object, long flags) {
        std::vector<Listed> all;
        EXPECT_CODE(S_OK, object->BeginEnumeration(flags));
        while (true) {
            CComBSTR name;
            _variant_t value;
            Listed listed;
            const HRESULT result = object->Next(0, &name, &value, &listed.type, &listed.flavor);
            if (result != S_OK) {
                EXPECT_CODE(WBEM_S_NO_MORE_DATA, result);
                EXPECT_EQ(value.vt, VT_EMPTY);
                EXPECT_FALSE(name.m_str);
                break;
            }
            listed.name = Narrow(name.m_str);
            listed.value = ::Show(value);
            all.push_back(listed);
        }
        EXPECT_CODE(WBEM_S_NO_MORE_DATA, object->Next(0, nullptr, nullptr, nullptr, nullptr));
        EXPECT_CODE(S_OK, object->EndEnumeration());
        return all;
    }

    static std::vector<std::string> Names(IWbemClassObject* object, long flags) {
        std::vector<std::string> names;
        for (const Listed& listed : List(object, flags))
            names.push_back(listed.name);
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
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(policy, L"_Name", 1L));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(policy, L"Name_", 1L));
    EXPECT_CODE(WBEM_E_READ_ONLY, PutValue(policy, L"__CLASS", L"Base"));
    EXPECT_CODE(WBEM_E_READ_ONLY, PutValue(policy, L"__path", L"x"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(policy, L"Days", 1L, CIM_UINT32))
        << "the type is the class's";
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Put(nullptr, 0, nullptr, 0));
    _variant_t value(1L);
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, policy->Put(L"Days", 1, &value, 0));
    EXPECT_THAT(List(policy, WBEM_FLAG_LOCAL_ONLY), IsEmpty());
}

TEST_F(ClassObjectTest, PropertiesAreListedInOneOrderByTheFlags) {
    const auto policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", L"n"));
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"i"));
    const auto all = ElementsAre("Days", "Enabled", "ID", "Name", "Parent");
    EXPECT_THAT(Names(policy, WBEM_FLAG_NONSYSTEM_ONLY), all);
    EXPECT_THAT(Names(policy, WBEM_FLAG_NONSYSTEM_ONLY), all) << "and again";
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
    const std::vector<Listed> listed = List(policy, 0);
    const auto named = [&](const std::string& name) {
        for (const Listed& each : listed) {
            if (each.name == name) return each;
        }
        return Listed{};
    };
    EXPECT_EQ(named("ID").value, "BSTR i");
    EXPECT_EQ(named("ID").type, CIM_STRING);
    EXPECT_EQ(named("ID").flavor, WBEM_FLAVOR_ORIGIN_LOCAL);
    EXPECT_EQ(named("Days").value, "I4 7");
    EXPECT_EQ(named("Days").type, CIM_UINT32);
    EXPECT_EQ(named("Days").flavor, WBEM_FLAVOR_ORIGIN_PROPAGATED);
    EXPECT_EQ(named("Parent").type, CIM_REFERENCE);
    EXPECT_EQ(named("Enabled").value, "BOOL -1");
    EXPECT_EQ(named("__GENUS").value, "I4 2");
    EXPECT_EQ(named("__GENUS").flavor, WBEM_FLAVOR_ORIGIN_SYSTEM);
    EXPECT_EQ(named("__DERIVATION").value, "BSTR[] Base");
    EXPECT_EQ(named("__DERIVATION").type, CIM_STRING | CIM_FLAG_ARRAY);
    for (const Listed& each : listed) {
        _variant_t value;
        CIMTYPE type = 0;
        long flavor = -1;
        EXPECT_CODE(S_OK, policy->Get(CComBSTR(each.name.c_str()), 0, &value, &type, &flavor));
        EXPECT_EQ(std::make_tuple(::Show(value), type, flavor),
                  std::make_tuple(each.value, each.type, each.flavor));
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
    EXPECT_CODE(S_OK, policy->EndEnumeration());
    EXPECT_CODE(WBEM_E_UNEXPECTED, policy->Next(0, nullptr, nullptr, nullptr, nullptr));
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

// An instance in hand stays what it was; storing it is what changes the store.
TEST_F(ClassObjectTest, ObjectsAreValues) {
    auto policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"i"));
    ASSERT_CODE(S_OK, PutInstance(policy));
    const auto one = Get(L"Policy.ID=\"i\"");
    const auto two = Get(L"Policy.ID=\"i\"");
    ASSERT_CODE(S_OK, PutValue(one, L"Name", L"one"));
    EXPECT_EQ(Show(two, L"Name"), "NULL");
    ASSERT_CODE(S_OK, PutInstance(one));
    EXPECT_EQ(Show(two, L"Name"), "NULL");
    EXPECT_EQ(Show(Get(L"Policy.ID=\"i\""), L"Name"), "BSTR one");
    // Objects outlive the connection that they came from.
    services.Release();
    EXPECT_EQ(Show(one, L"Name"), "BSTR one");
    EXPECT_EQ(Show(one, L"__NAMESPACE"), "BSTR root\\Test");
}

}  // namespace
