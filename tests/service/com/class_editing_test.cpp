// Classes that a caller puts together or changes through their objects.
#include <string>

#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

class ClassEditingTest : public ServiceClient {
 protected:
    ClassEditingTest() {
        EXPECT_CODE(S_OK, Import("class Base { [key] string ID; [Description(\"d\")] uint32 Days = 7; };"))
            << TakeReason();
    }

    HRESULT PutClass(IWbemClassObject* object, long flags = 0) const {
        return services->PutClass(object, flags, nullptr, nullptr);
    }

    // The qualifiers of the object, or of one of its properties.
    static HRESULT QualifiersOf(IWbemClassObject* object, const wchar_t* property,
                                CComPtr<IWbemQualifierSet>& set) {
        return property ? object->GetPropertyQualifierSet(property, &set) : object->GetQualifierSet(&set);
    }

    static HRESULT PutQualifier(IWbemClassObject* object, const wchar_t* property, const wchar_t* name,
                                _variant_t value, long flavor = WBEM_FLAVOR_FLAG_PROPAGATE_TO_DERIVED_CLASS) {
        CComPtr<IWbemQualifierSet> set;
        const HRESULT got = QualifiersOf(object, property, set);
        return FAILED(got) ? got : set->Put(name, &value, flavor);
    }

    static std::string ShowQualifier(IWbemClassObject* object, const wchar_t* property, const wchar_t* name) {
        CComPtr<IWbemQualifierSet> set;
        _variant_t value;
        HRESULT result = QualifiersOf(object, property, set);
        if (SUCCEEDED(result)) result = set->Get(name, 0, &value, nullptr);
        return FAILED(result) ? Code(result) : ::Show(value);
    }
};

TEST_F(ClassEditingTest, AClassCanBePutTogether) {
    ObjectPointer made;
    ASSERT_CODE(S_OK, services->GetObject(nullptr, 0, nullptr, &made, nullptr));
    ASSERT_CODE(S_OK, PutValue(made, L"__CLASS", L"Made"));
    ASSERT_CODE(S_OK, made->Put(L"ID", 0, nullptr, CIM_STRING));
    ASSERT_CODE(S_OK, PutQualifier(made, L"ID", L"key", true));
    ASSERT_CODE(S_OK, PutValue(made, L"Size", 5L, CIM_UINT8));
    ASSERT_CODE(S_OK, PutValue(made, L"Tags", ArrayOf(VT_BSTR, {Text(L"a")}), CIM_STRING | CIM_FLAG_ARRAY));
    ASSERT_CODE(S_OK, PutClass(made, WBEM_FLAG_CREATE_ONLY)) << TakeReason();
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, PutClass(made, WBEM_FLAG_CREATE_ONLY));

    const auto instance = Spawn(L"made");
    EXPECT_EQ(Show(instance, L"Tags"), "BSTR[] a");
    ASSERT_CODE(S_OK, PutValue(instance, L"ID", L"x"));
    EXPECT_CODE(S_OK, PutInstance(instance));
    EXPECT_EQ(Show(Get(L"Made.ID=\"x\""), L"Size"), "UI1 5");
}

TEST_F(ClassEditingTest, ARefusedChangeLeavesTheClassAsItWas) {
    const auto base = Get(L"Base");
    for (const wchar_t* name : {L"_Odd", L"Odd_", L"a b"})
        EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(base, name, 1L, CIM_UINT8));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(base, L"Unknown", 1L)) << "a new property needs its type";
    EXPECT_CODE(WBEM_E_INVALID_PROPERTY_TYPE, PutValue(base, L"Odd", 1L, 9999));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(base, L"Days", L"many"));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(base, L"Small", 256L, CIM_UINT8));
    EXPECT_CODE(S_OK, PutValue(base, L"Real", Null(), CIM_REAL64));
    EXPECT_CODE(WBEM_E_INVALID_PROPERTY_TYPE, PutQualifier(base, L"Real", L"key", true));
    EXPECT_CODE(S_OK, base->Delete(L"Real"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(base, L"__CLASS", L"1x"));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(base, L"__CLASS", 5L));
    EXPECT_CODE(WBEM_E_READ_ONLY, PutValue(base, L"__SUPERCLASS", L"x"));
    ASSERT_CODE(S_OK, PutValue(base, L"Text", Null(), CIM_STRING));
    ASSERT_CODE(S_OK, PutQualifier(base, L"Text", L"EmbeddedInstance", L"Base"));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutClass(base)) << "it would be an object once it is exported";
    EXPECT_CODE(S_OK, base->Delete(L"Text"));
    EXPECT_EQ(Show(base, L"__PROPERTY_COUNT"), "I4 2");
    EXPECT_CODE(S_OK, PutClass(base));
    EXPECT_EQ(Show(Get(L"Base"), L"Days"), "I4 7");
}

TEST_F(ClassEditingTest, ADefaultChangesForInstancesThatSetNone) {
    auto instance = Spawn(L"Base");
    ASSERT_CODE(S_OK, PutValue(instance, L"ID", L"a"));
    ASSERT_CODE(S_OK, PutInstance(instance));
    const auto base = Get(L"Base");
    ASSERT_CODE(S_OK, PutValue(base, L"Days", 99L));
    EXPECT_EQ(Show(Get(L"Base.ID=\"a\""), L"Days"), "I4 7") << "not before it is put";
    ASSERT_CODE(S_OK, PutClass(base));
    EXPECT_EQ(Show(instance, L"Days"), "I4 7") << "an object in hand stays what it was";
    EXPECT_CODE(S_OK, PutInstance(instance));
    EXPECT_EQ(Show(Get(L"Base.ID=\"a\""), L"Days"), "I4 99");
    ASSERT_CODE(S_OK, base->Delete(L"Days"));
    EXPECT_CODE(S_OK, PutClass(base));
    // What was spawned before has a value that there is no place for now.
    ASSERT_CODE(S_OK, PutValue(instance, L"Days", 1L));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(instance));
}

TEST_F(ClassEditingTest, AClassCanBeDerived) {
    ObjectPointer derived, nothing;
    ASSERT_CODE(S_OK, Get(L"Base")->SpawnDerivedClass(0, &derived));
    EXPECT_CODE(WBEM_E_INCOMPLETE_CLASS, PutClass(derived));
    EXPECT_CODE(WBEM_E_INCOMPLETE_CLASS, derived->SpawnInstance(0, &nothing));
    EXPECT_FALSE(nothing.p);
    EXPECT_EQ(Show(derived, L"__CLASS"), "NULL");
    ASSERT_CODE(S_OK, PutValue(derived, L"__CLASS", L"Derived"));
    ASSERT_CODE(S_OK, PutValue(derived, L"Own", L"o", CIM_STRING));
    ASSERT_CODE(S_OK, PutValue(derived, L"days", 30L));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(derived, L"Days", L"x", CIM_STRING));
    EXPECT_CODE(WBEM_E_PROPAGATED_PROPERTY, derived->Delete(L"ID"));
    ASSERT_CODE(S_OK, PutClass(derived)) << TakeReason();

    const auto instance = Spawn(L"Derived");
    EXPECT_EQ(Show(instance, L"__DERIVATION"), "BSTR[] Base");
    EXPECT_EQ(Show(instance, L"Days"), "I4 30");
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, instance->SpawnDerivedClass(0, &nothing));
    EXPECT_CODE(WBEM_E_CLASS_HAS_CHILDREN, DeleteClass(L"Base"));
    // Without its own declaration the property is the inherited one again.
    const auto definition = Get(L"Derived");
    ASSERT_CODE(S_OK, definition->Delete(L"Days"));
    EXPECT_EQ(Show(definition, L"Days"), "I4 7");
    EXPECT_CODE(S_OK, DeleteClass(L"derived"));
    EXPECT_CODE(S_OK, DeleteClass(L"Base"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, DeleteClass(L"Base"));
}

TEST_F(ClassEditingTest, QualifiersAreReadAndChanged) {
    const auto base = Get(L"Base");
    EXPECT_EQ(ShowQualifier(base, L"ID", L"Key"), "BOOL -1");
    EXPECT_EQ(ShowQualifier(base, L"Days", L"key"), Code(WBEM_E_NOT_FOUND));
    EXPECT_EQ(ShowQualifier(base, L"Nothing", L"key"), Code(WBEM_E_NOT_FOUND));
    EXPECT_EQ(ShowQualifier(base, L"__CLASS", L"key"), Code(WBEM_E_INVALID_OPERATION));

    ASSERT_CODE(S_OK, PutQualifier(base, nullptr, L"Version", L"1.0"));
    ASSERT_CODE(S_OK, PutQualifier(base, L"Days", L"Values", ArrayOf(VT_BSTR, {Text(L"a"), Text(L"b")})));
    ASSERT_CODE(S_OK, PutQualifier(base, L"days", L"description", L"changed"));
    EXPECT_CODE(WBEM_E_INVALID_QUALIFIER_TYPE, PutQualifier(base, nullptr, L"Odd", short{1}));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutQualifier(base, nullptr, L"Odd", 1L, 0x40));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutQualifier(base, nullptr, L"o d", 1L));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutQualifier(base, L"Days", L"key", L"yes"));
    ASSERT_CODE(S_OK, PutClass(base));

    const auto again = Get(L"Base");
    EXPECT_EQ(ShowQualifier(again, nullptr, L"version"), "BSTR 1.0");
    EXPECT_EQ(ShowQualifier(again, L"Days", L"Values"), "BSTR[] a|b");
    EXPECT_EQ(ShowQualifier(Spawn(L"Base"), L"Days", L"Description"), "BSTR changed");
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, PutQualifier(Spawn(L"Base"), L"Days", L"Description", L"x"));

    CComPtr<IWbemQualifierSet> set, inherited;
    ASSERT_CODE(S_OK, again->GetPropertyQualifierSet(L"Days", &set));
    EXPECT_CODE(WBEM_E_UNEXPECTED, set->Next(0, nullptr, nullptr, nullptr));
    ASSERT_CODE(S_OK, set->BeginEnumeration(0));
    int count = 0;
    for (CComBSTR name; set->Next(0, &name, nullptr, nullptr) == S_OK; name.Attach(nullptr))
        ++count;
    EXPECT_EQ(count, 2);
    EXPECT_CODE(S_OK, set->Delete(L"values"));
    EXPECT_CODE(WBEM_E_NOT_FOUND, set->Delete(L"values"));
    ObjectPointer derived;
    ASSERT_CODE(S_OK, again->SpawnDerivedClass(0, &derived));
    ASSERT_CODE(S_OK, derived->GetPropertyQualifierSet(L"ID", &inherited));
    EXPECT_CODE(WBEM_E_PROPAGATED_QUALIFIER, inherited->Delete(L"key"));
}

}  // namespace
