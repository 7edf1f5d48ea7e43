// Schemas that are imported again, changed: what is kept, what is refused, and what is done by force.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mgmtstore.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::HasSubstr;

class SchemaUpdateTest : public ServiceClient {
 protected:
    void TearDown() override {
        CComPtr<IMgmtStore> care;
        MgmtStoreCounts counts = {};
        ASSERT_CODE(S_OK, care.CoCreateInstance(CLSID_MgmtStore));
        EXPECT_CODE(S_OK, care->Check(nullptr, &counts)) << "the store is sound, whatever a test did";
    }

    HRESULT Force(const std::string& text) const {
        return ImportInto(kNamespace, text, nullptr, 0, WBEM_FLAG_UPDATE_FORCE_MODE);
    }
    void Refused(const std::string& text, HRESULT code, const std::string& fragment) {
        EXPECT_CODE(code, Import(text)) << text;
        EXPECT_THAT(TakeReason(), HasSubstr(fragment));
    }
    std::string ValueOf(const wchar_t* path, const wchar_t* property) const {
        return Show(Get(path), property);
    }
};

TEST_F(SchemaUpdateTest, PropertiesMoveWithTheirValues) {
    ASSERT_CODE(S_OK,
                Import("class Base { [key] string K; uint32 P; }; class Sub : Base {};"
                       "class Holder { [key] string K; Base Held; };"
                       "instance of Sub { K = \"1\"; P = 42; };"
                       "instance of Holder { K = \"h\"; Held = instance of Sub { K = \"2\"; P = 43; }; };"));
    ASSERT_CODE(S_OK,
                Import("class Base { [key] string K; }; class Mid : Base { uint32 P; }; class Sub : Mid {};"))
        << TakeReason();
    EXPECT_EQ(ValueOf(L"Sub=\"1\"", L"P"), "I4 42");
    const _variant_t held = GetValue(Get(L"Holder=\"h\""), L"Held");
    ObjectPointer object;
    ASSERT_CODE(S_OK, held.punkVal->QueryInterface(IID_PPV_ARGS(&object)));
    EXPECT_EQ(Show(object, L"P"), "I4 43");
    // With its type the property changes in the subclass that declares it anew, too.
    ASSERT_CODE(S_OK, Import("class Top { [key] string K; uint32 N; }; class Low : Top { uint32 N = 7; };"
                             "instance of Low { K = \"1\"; N = 8; };"));
    const std::string texts =
        "class Top { [key] string K; string N; }; class Low : Top { string N = \"7\"; };";
    Refused(texts, WBEM_E_CLASS_HAS_INSTANCES, "changes the type of the property N");
    ASSERT_CODE(S_OK, Force(texts)) << TakeReason();
    EXPECT_EQ(ValueOf(L"Low=\"1\"", L"N"), "BSTR 8");
    Refused("class Top { [key] string K; uint8 N; };", WBEM_E_TYPE_MISMATCH,
            "Low.N is declared as string, but Top declares it as uint8. Declare the subclass anew");
    ASSERT_CODE(S_OK, Import("class TOP { [key] string K; string N; };"));
    EXPECT_EQ(ValueOf(L"Low", L"__SUPERCLASS"), "BSTR TOP");
    CComBSTR text;
    ASSERT_CODE(S_OK, Get(L"Low")->GetObjectText(0, &text));
    EXPECT_THAT(Narrow(text.m_str), HasSubstr("class Low : TOP"));
    // Superclass and subclass may change places.
    ASSERT_CODE(S_OK, Import("class Upper { [key] string K; }; class Lower : Upper {};"));
    EXPECT_CODE(S_OK, Import("class Upper : Lower {}; class Lower { [key] string K; };")) << TakeReason();
}

TEST_F(SchemaUpdateTest, AKeyThatADefaultGaveStays) {
    ASSERT_CODE(S_OK, Import("class C { [key] string K = \"a\"; uint32 N; }; instance of C { N = 1; };"
                             "instance of C { K = \"b\"; N = 2; };"));
    ASSERT_CODE(S_OK, Import("class C { [key] string K = \"b\"; uint32 N; };"));
    EXPECT_EQ(ValueOf(L"C=\"a\"", L"N"), "I4 1");
    EXPECT_EQ(ValueOf(L"C=\"b\"", L"N"), "I4 2");
    ASSERT_CODE(S_OK, Import("class C { [key] string K; uint32 N; };"));
    EXPECT_EQ(ValueOf(L"C=\"a\"", L"K"), "BSTR a");
}

TEST_F(SchemaUpdateTest, ObjectsFitTheirProperties) {
    const std::string holder = "class C { [key] string K; One Held; One Many[]; };";
    ASSERT_CODE(S_OK,
                Import("class Root { uint32 A; }; class One : Root {}; class Two { uint32 A; };" + holder +
                       "class Any { [key] string K; Root Held; };"
                       "instance of C { K = \"1\"; Held = instance of One { A = 5; };"
                       "                Many = { instance of One { A = 6; } }; };"
                       "instance of Any { K = \"1\"; Held = instance of One { A = 5; }; };"));
    const std::string narrower = "class C { [key] string K; Two Held; One Many[]; };";
    Refused(narrower, WBEM_E_CLASS_HAS_INSTANCES, "leaves the property Held to objects of class Two");
    Refused("class One { uint32 A; };", WBEM_E_CLASS_HAS_INSTANCES, "takes class One from under class Root");
    Refused("class D : C { Two Held; };", WBEM_E_TYPE_MISMATCH, "take a class that derives from it");
    ASSERT_CODE(S_OK, Force(narrower)) << TakeReason();
    EXPECT_EQ(ValueOf(L"C=\"1\"", L"Held"), "NULL");
    EXPECT_EQ(ValueOf(L"C=\"1\"", L"Many"), "UNKNOWN[] object");
    ASSERT_CODE(S_OK, Force("class One { uint32 A; };")) << TakeReason();
    EXPECT_EQ(ValueOf(L"Any=\"1\"", L"Held"), "NULL");
    // Wider is safe.
    EXPECT_CODE(S_OK, Import("class C { [key] string K; object Held; object Many[]; };")) << TakeReason();

    Refused("#pragma deleteclass(\"Two\", fail)\nclass X {};", S_OK, "");
    Refused("#pragma deleteclass(\"Root\", fail)", WBEM_E_INVALID_OPERATION, "property Any.Held");
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, Force("#pragma deleteclass(\"Root\", fail)"));
    EXPECT_CODE(S_OK, Import("class Ring { [key] string K; Ring ref Next; };"));
    EXPECT_CODE(S_OK, Import("#pragma deleteclass(\"Ring\", fail)")) << TakeReason();
}

TEST_F(SchemaUpdateTest, WhatIsAskedForMustBeThere) {
    const std::string c = "class C { [key] string K; uint32 N; string S; };";
    ASSERT_CODE(S_OK, Import(c + "instance of C { K = \"1\"; }; instance of C { K = \"2\"; N = 5; };"));
    const std::string asking = "class C { [key] string K; [not_null] uint32 N; string S; };";
    Refused(asking, WBEM_E_CLASS_HAS_INSTANCES,
            "asks for a value of the property N, which concerns 1 instance");
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, Force(asking));
    EXPECT_THAT(TakeReason(), HasSubstr("C.K=\"1\""));
    Refused("class C { [key] string K; uint32 N; string S; [required] string T; };",
            WBEM_E_CLASS_HAS_INSTANCES, "asks for a value of the property T, which concerns 2 instances");
    EXPECT_CODE(S_OK, Import("class C { [key] string K; [not_null] uint32 N = 9; string S; };"))
        << TakeReason();
    EXPECT_EQ(ValueOf(L"C=\"1\"", L"N"), "I4 9");

    Refused("[abstract] class C { [key] string K; uint32 N = 9; string S; };", WBEM_E_CLASS_HAS_INSTANCES,
            "which deletes them");
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, Force("class C { [key] datetime K; uint32 N; string S; };"));
    EXPECT_THAT(TakeReason(), HasSubstr("the value of its property K is none of type datetime"));
}

TEST_F(SchemaUpdateTest, DeclaredQualifiersFitTheirUses) {
    ASSERT_CODE(S_OK, Import("Qualifier Q : uint32 = 1, Scope(any); [Q(5)] class C { [key] string K; };"
                             "class D { [Bare(\"text\")] string P; };"));
    Refused("Qualifier Q : string = \"x\", Scope(any);", WBEM_E_TYPE_MISMATCH,
            "buffer:1:11: qualifier Q cannot be declared as string: class C has it as uint32");
    Refused("Qualifier Bare : uint32, Scope(any);", WBEM_E_TYPE_MISMATCH, "property D.P has it as string");
    EXPECT_CODE(S_OK, Import("Qualifier Q : string, Scope(any); [Q(\"5\")] class C { [key] string K; };"))
        << TakeReason();
    EXPECT_CODE(S_OK, Import("Qualifier Bare : string, Scope(any);")) << TakeReason();
}

}  // namespace
