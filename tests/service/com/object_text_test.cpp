// XML text of objects, as a caller gets it.
#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/refusing_interfaces.h"
#include "tests/service/cim_dtd.h"
#include "tests/service/com/service_client.h"
#include "tests/service/xml_document.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kSchema = R"(
[Description("a & b")] class Base { [key] string ID; uint32 Days = 7; };
class Inner { string S; };
class Policy : Base { string Name; string Tags[]; Policy ref Parent; Inner Detail; object Any[]; datetime At; };
)";

using ContextPointer = CComPtr<IWbemContext>;
using SourcePointer = CComPtr<IWbemObjectTextSrc>;

std::string Utf8(BSTR text) {
    std::string utf8;
    for (UINT i = 0; i < SysStringLen(text); ++i)
        AppendUtf8Of(static_cast<char32_t>(text[i]), utf8);
    return utf8;
}

// A context that is not the service's: it has one value, or fails.
class OneValue : public doubles::ComObject<IWbemContext> {
 public:
    OneValue(std::atomic<long>& live, std::wstring name, VARIANT value, HRESULT otherwise)
        : ComObject(live), m_Name(std::move(name)), m_Value(value), m_Otherwise(otherwise) {}
    HRESULT Clone(IWbemContext**) override { return doubles::REFUSED; }
    HRESULT GetNames(long, SAFEARRAY**) override { return doubles::REFUSED; }
    HRESULT BeginEnumeration(long) override { return doubles::REFUSED; }
    HRESULT Next(long, BSTR*, VARIANT*) override { return doubles::REFUSED; }
    HRESULT EndEnumeration() override { return doubles::REFUSED; }
    HRESULT SetValue(LPCWSTR, long, VARIANT*) override { return doubles::REFUSED; }
    HRESULT GetValue(LPCWSTR name, long, VARIANT* value) override {
        if (m_Name != name) return m_Otherwise;
        *value = m_Value;
        return S_OK;
    }
    HRESULT DeleteValue(LPCWSTR, long) override { return doubles::REFUSED; }
    HRESULT DeleteAll() override { return doubles::REFUSED; }

 private:
    const std::wstring m_Name;
    const VARIANT m_Value;
    const HRESULT m_Otherwise;
};

class ForeignObject : public doubles::RefusingClassObject {
 public:
    explicit ForeignObject(std::atomic<long>& live) : RefusingClassObject(live) {}
};

class ObjectTextTest : public ServiceClient {
 protected:
    ObjectTextTest() {
        EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason();
        EXPECT_CODE(S_OK, context.CoCreateInstance(CLSID_WbemContext));
        EXPECT_CODE(S_OK, source.CoCreateInstance(CLSID_WbemObjectTextSrc));
    }
    ~ObjectTextTest() override {
        context.Release();
        source.Release();
    }

    void Set(const wchar_t* name, _variant_t value) { EXPECT_CODE(S_OK, context->SetValue(name, 0, &value)); }

    // What the library asks for.
    void SetUsual() {
        Set(L"LocalOnly", _variant_t(true));
        Set(L"IncludeQualifiers", _variant_t(false));
        Set(L"PathLevel", _variant_t(0L));
        Set(L"ExcludeSystemProperties", _variant_t(true));
    }

    HRESULT GetText(IWbemClassObject* object, CComBSTR& text, ULONG format = WMI_OBJ_TEXT_WMI_DTD_2_0) {
        return source->GetText(0, object, format, context, &text);
    }

    // Well-formed and valid, or the test fails.
    std::string Text(IWbemClassObject* object, ULONG format = WMI_OBJ_TEXT_WMI_DTD_2_0) {
        CComBSTR text;
        EXPECT_CODE(S_OK, GetText(object, text, format)) << TakeReason();
        const std::string utf8 = Utf8(text);
        const DtdForm form = format == WMI_OBJ_TEXT_CIM_DTD_2_0 ? DtdForm::kCim : DtdForm::kExtended;
        EXPECT_EQ(XmlDocument(utf8).FaultsAgainst(CimDtd(form)), "") << utf8.substr(0, 2000);
        return utf8;
    }

    HRESULT ResultWith(const wchar_t* name, _variant_t value) {
        Set(name, value);
        CComBSTR text;
        const HRESULT result = GetText(Get(L"Base"), text);
        EXPECT_EQ(FAILED(result), !text.m_str);
        EXPECT_CODE(S_OK, context->DeleteAll());
        return result;
    }

    ContextPointer context;
    SourcePointer source;
};

TEST_F(ObjectTextTest, ShowsWhatWasSetAsTheLibraryAsksForIt) {
    SetUsual();
    const ObjectPointer policy = Spawn(L"Policy");
    EXPECT_EQ(Text(policy), "<INSTANCE CLASSNAME=\"Policy\"/>");
    const ObjectPointer inner = Spawn(L"Inner");
    ASSERT_CODE(S_OK, PutValue(inner, L"S", ::Text(L"<x>")));
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", ::Text(L"a")));
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", Null()));
    ASSERT_CODE(S_OK, PutValue(policy, L"Tags", ArrayOf(VT_BSTR, {::Text(L"x"), Null()})));
    ASSERT_CODE(S_OK, PutValue(policy, L"Parent", ::Text(L"Policy.ID=\"b\"")));
    ASSERT_CODE(S_OK, PutValue(policy, L"Detail", _variant_t(static_cast<IUnknown*>(inner))));
    ASSERT_CODE(S_OK, PutValue(policy, L"At", ::Text(L"20240229235959.000000+060")));
    const std::string expected =
        "<INSTANCE CLASSNAME=\"Policy\"><PROPERTY NAME=\"ID\" TYPE=\"string\"><VALUE>a</VALUE></PROPERTY>"
        "<PROPERTY NAME=\"Name\" TYPE=\"string\"/><PROPERTY.ARRAY NAME=\"Tags\" TYPE=\"string\"><VALUE.ARRAY>"
        "<VALUE>x</VALUE><VALUE.NULL/></VALUE.ARRAY></PROPERTY.ARRAY>"
        "<PROPERTY.REFERENCE NAME=\"Parent\" REFERENCECLASS=\"Policy\"><VALUE.REFERENCE>"
        "<INSTANCENAME CLASSNAME=\"Policy\"><KEYBINDING NAME=\"ID\"><KEYVALUE VALUETYPE=\"string\">b"
        "</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></PROPERTY.REFERENCE>"
        "<PROPERTY.OBJECT NAME=\"Detail\"><VALUE.OBJECT><INSTANCE CLASSNAME=\"Inner\">"
        "<PROPERTY NAME=\"S\" TYPE=\"string\"><VALUE>&lt;x&gt;</VALUE></PROPERTY></INSTANCE></VALUE.OBJECT>"
        "</PROPERTY.OBJECT><PROPERTY NAME=\"At\" TYPE=\"datetime\"><VALUE>20240229235959.000000+060</VALUE>"
        "</PROPERTY></INSTANCE>";
    EXPECT_EQ(Text(policy), expected);
    // Stored and read again it is the same, and the object shows changes that are not stored.
    ASSERT_CODE(S_OK, PutInstance(policy));
    const ObjectPointer stored = Get(L"Policy.ID=\"a\"");
    EXPECT_EQ(Text(stored), expected);
    ASSERT_CODE(S_OK, PutValue(stored, L"Days", _variant_t(3L)));
    EXPECT_THAT(Text(stored),
                HasSubstr("<PROPERTY NAME=\"Days\" TYPE=\"uint32\"><VALUE>3</VALUE></PROPERTY>"));
    EXPECT_THAT(Text(stored, WMI_OBJ_TEXT_CIM_DTD_2_0),
                HasSubstr("<PROPERTY NAME=\"Detail\" TYPE=\"string\" EmbeddedObject=\"instance\"><VALUE>"
                          "&lt;INSTANCE CLASSNAME=&quot;Inner&quot;&gt;"));
}

TEST_F(ObjectTextTest, ShowsAllPropertiesAndTheSystemsWithoutAContext) {
    context.Release();
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", ::Text(L"a")));
    ASSERT_CODE(S_OK, PutValue(policy, L"Detail", _variant_t(static_cast<IUnknown*>(Spawn(L"Inner")))));
    for (const ULONG format : {WMI_OBJ_TEXT_WMI_DTD_2_0, WMI_OBJ_TEXT_CIM_DTD_2_0}) {
        const XmlDocument document(Text(policy, format));
        const auto own = [&](const std::string& name) {
            return document.Texts("/INSTANCE/*[@NAME='" + name + "']//VALUE");
        };
        EXPECT_THAT(own("__GENUS"), ElementsAre("2"));
        EXPECT_THAT(own("__CLASS"), ElementsAre("Policy"));
        EXPECT_THAT(own("__DERIVATION"), ElementsAre("Base"));
        EXPECT_THAT(own("__RELPATH"), ElementsAre("Policy.ID=\"a\""));
        EXPECT_THAT(own("__PATH").at(0), HasSubstr("root\\Test:Policy.ID=\"a\""));
        EXPECT_THAT(own("Days"), ElementsAre("7"));
        EXPECT_THAT(own("Name"), IsEmpty());
        EXPECT_THAT(document.Texts("/INSTANCE/*[@NAME='Name']/@PROPAGATED"), ElementsAre("true"));
        EXPECT_THAT(document.Texts("//QUALIFIER"), IsEmpty());
        EXPECT_THAT(document.Texts("//@CLASSORIGIN"), IsEmpty());
    }
    const XmlDocument document(Text(policy));
    EXPECT_EQ(document.Text("//VALUE.OBJECT/INSTANCE/PROPERTY[@NAME='__CLASS']/VALUE"), "Inner");
    EXPECT_EQ(document.Text("//VALUE.OBJECT/INSTANCE/PROPERTY[@NAME='__PATH']"), "");
}

TEST_F(ObjectTextTest, ShowsAClassWithItsQualifiersAndOrigins) {
    SetUsual();
    Set(L"LocalOnly", _variant_t(false));
    Set(L"IncludeQualifiers", _variant_t(true));
    Set(L"IncludeClassOrigin", _variant_t(true));
    const XmlDocument document(Text(Get(L"Policy")));
    EXPECT_EQ(
        document.Text("/CLASS[@NAME='Policy'][@SUPERCLASS='Base']/QUALIFIER[@NAME='Description']/VALUE"),
        "a & b");
    EXPECT_EQ(document.Text("/CLASS/PROPERTY[@NAME='ID'][@CLASSORIGIN='Base'][@PROPAGATED='true']/"
                            "QUALIFIER[@NAME='key'][@TYPE='boolean']/VALUE"),
              "TRUE");
    EXPECT_EQ(document.Text("/CLASS/PROPERTY[@NAME='Days']/VALUE"), "7");
    EXPECT_EQ(document.Text("/CLASS/PROPERTY.REFERENCE[@NAME='Parent'][not(@PROPAGATED)]/@CLASSORIGIN"),
              "Policy");
    Set(L"ExcludeSystemProperties", _variant_t(false));
    EXPECT_THAT(XmlDocument(Text(Get(L"Policy"))).Texts("//PROPERTY[@NAME='__GENUS']/VALUE"),
                ElementsAre("1"));

    SetUsual();
    ObjectPointer unnamed;
    ASSERT_CODE(S_OK, Get(L"Base")->SpawnDerivedClass(0, &unnamed));
    ASSERT_CODE(S_OK, PutValue(unnamed, L"Mine", ::Text(L"x"), CIM_STRING));
    EXPECT_EQ(Text(unnamed),
              "<CLASS NAME=\"\" SUPERCLASS=\"Base\"><PROPERTY NAME=\"Mine\" TYPE=\"string\" CLASSORIGIN=\"\">"
              "<VALUE>x</VALUE></PROPERTY></CLASS>");
}

TEST_F(ObjectTextTest, ThePathLevelsNameThisNamespaceAndMachine) {
    SetUsual();
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", ::Text(L"a")));
    const std::string server = Narrow(GetValue(policy, L"__SERVER").bstrVal);
    Set(L"PathLevel", _variant_t(1L));
    EXPECT_THAT(Text(policy), StartsWith("<VALUE.NAMEDOBJECT><INSTANCENAME CLASSNAME=\"Policy\">"));
    Set(L"PathLevel", _variant_t(2L));
    const XmlDocument local(Text(policy));
    EXPECT_THAT(local.Texts("/VALUE.OBJECTWITHLOCALPATH/LOCALINSTANCEPATH//NAMESPACE/@NAME"),
                ElementsAre("root", "Test"));
    Set(L"PathLevel", _variant_t(3L));
    EXPECT_EQ(XmlDocument(Text(policy)).Text("/VALUE.OBJECTWITHPATH/INSTANCEPATH/NAMESPACEPATH/HOST"),
              server);
    EXPECT_EQ(XmlDocument(Text(Get(L"Policy"))).Text("/VALUE.OBJECTWITHPATH/CLASSPATH/CLASSNAME/@NAME"),
              "Policy");
    CComBSTR text;
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, GetText(Spawn(L"Inner"), text));
    EXPECT_THAT(TakeReason(), HasSubstr("Inner"));
    EXPECT_FALSE(text.m_str);
}

TEST_F(ObjectTextTest, ContextValuesHaveTheirTypes) {
    EXPECT_CODE(S_OK, ResultWith(L"localonly", _variant_t(1L)));
    EXPECT_CODE(S_OK, ResultWith(L"LocalOnly", Null()));
    EXPECT_CODE(S_OK, ResultWith(L"LocalOnly", _variant_t()));
    EXPECT_CODE(S_OK, ResultWith(L"PathLevel", _variant_t(static_cast<short>(3))));
    EXPECT_CODE(S_OK, ResultWith(L"AnythingElse", ::Text(L"x")));
    for (const wchar_t* name :
         {L"LocalOnly", L"IncludeQualifiers", L"IncludeClassOrigin", L"ExcludeSystemProperties"}) {
        EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(name, _variant_t(2L)));
        EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(name, ::Text(L"maybe")));
        EXPECT_THAT(TakeReason(), HasSubstr(Narrow(std::wstring_view(name))));
    }
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(L"PathLevel", _variant_t(-1L)));
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(L"PathLevel", _variant_t(4L)));
    EXPECT_THAT(TakeReason(), HasSubstr("0 to 3"));
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(L"PathLevel", ::Text(L"x")));
}

TEST_F(ObjectTextTest, ASuccessLeavesNoReason) {
    SetErrorInfo(0, nullptr);
    Text(Get(L"Base"));
    EXPECT_EQ(TakeReason(), "");
}

TEST_F(ObjectTextTest, SomebodyElsesContextCountsAndSomebodyElsesObjectDoesNot) {
    std::atomic<long> live{0};
    CComBSTR text;
    context = new OneValue(live, L"ExcludeSystemProperties", _variant_t(true), WBEM_E_NOT_FOUND);
    EXPECT_EQ(Text(Get(L"Inner")), "<CLASS NAME=\"Inner\"><PROPERTY NAME=\"S\" TYPE=\"string\"/></CLASS>");
    context = new OneValue(live, L"Other", _variant_t(true), WBEM_E_FAILED);
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, GetText(Get(L"Inner"), text));
    context.Release();
    {
        const ObjectPointer foreign(new ForeignObject(live));
        EXPECT_CODE(WBEM_E_INVALID_OBJECT, GetText(foreign, text));
        EXPECT_THAT(TakeReason(), HasSubstr("not one of this service"));
    }
    EXPECT_EQ(live, 0);
}

TEST_F(ObjectTextTest, RefusesWhatIsNoRequest) {
    const ObjectPointer object = Get(L"Base");
    BSTR text = nullptr;
    const auto refused = [&](long flags, IWbemClassObject* of, ULONG format) {
        text = const_cast<BSTR>(L"not the caller's to free on a failure");
        const HRESULT result = source->GetText(flags, of, format, nullptr, &text);
        EXPECT_FALSE(text);
        return result;
    };
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(1, object, WMI_OBJ_TEXT_WMI_DTD_2_0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(0, nullptr, WMI_OBJ_TEXT_WMI_DTD_2_0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(0, object, 0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(0, object, 3));
    EXPECT_THAT(TakeReason(), HasSubstr("format 3"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                source->GetText(0, object, WMI_OBJ_TEXT_WMI_DTD_2_0, nullptr, nullptr));

    ObjectPointer made;
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, source->CreateFromText(0, CComBSTR(L"<INSTANCE CLASSNAME=\"Base\"/>"),
                                                             WMI_OBJ_TEXT_WMI_DTD_2_0, nullptr, &made));
    EXPECT_FALSE(made);
    EXPECT_THAT(TakeReason(), HasSubstr("XML"));
}

TEST_F(ObjectTextTest, EveryCharacterOfAValueComesBackOrIsReplacedByTheRule) {
    SetUsual();
    std::wstring wide;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (!IsSurrogate(c)) wide.push_back(static_cast<wchar_t>(c));
    }
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", ::Text(wide)));
    const std::string expected = Characters(0, 0x10FFFF).read;
    EXPECT_TRUE(XmlDocument(Text(policy)).Text("//VALUE") == expected);
    EXPECT_TRUE(XmlDocument(Text(policy, WMI_OBJ_TEXT_CIM_DTD_2_0)).Text("//VALUE") == expected);
}

TEST_F(ObjectTextTest, ThreadsMayShareASource) {
    SetUsual();
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", ::Text(L"a")));
    const std::string expected = Text(policy);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        ObjectPointer own;
        ContextPointer own_context;
        ASSERT_CODE(S_OK, policy->Clone(&own));
        ASSERT_CODE(S_OK, context->Clone(&own_context));
        threads.emplace_back([this, &expected, own, own_context] {
            for (int i = 0; i < 100; ++i) {
                CComBSTR text;
                EXPECT_CODE(S_OK, source->GetText(0, own, WMI_OBJ_TEXT_WMI_DTD_2_0, own_context, &text));
                EXPECT_EQ(Utf8(text), expected);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
