// XML text of objects, as a caller gets it, and the contexts that say how it is wanted.
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

using testing::Each;
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

std::string Utf8(BSTR text) {
    std::string utf8;
    for (UINT i = 0; i < SysStringLen(text); ++i)
        AppendUtf8Of(static_cast<char32_t>(text[i]), utf8);
    return utf8;
}

// A context that is not the service's: it has one value, or fails.
class OneValue : public doubles::ComObject<IWbemContext> {
 public:
    OneValue(std::atomic<long>& live, const wchar_t* name, HRESULT otherwise)
        : ComObject(live), m_Name(name), m_Otherwise(otherwise) {}
    HRESULT Clone(IWbemContext**) override { return doubles::REFUSED; }
    HRESULT GetNames(long, SAFEARRAY**) override { return doubles::REFUSED; }
    HRESULT BeginEnumeration(long) override { return doubles::REFUSED; }
    HRESULT Next(long, BSTR*, VARIANT*) override { return doubles::REFUSED; }
    HRESULT EndEnumeration() override { return doubles::REFUSED; }
    HRESULT SetValue(LPCWSTR, long, VARIANT*) override { return doubles::REFUSED; }
    HRESULT GetValue(LPCWSTR name, long, VARIANT* value) override {
        if (m_Name != name) return m_Otherwise;
        *value = _variant_t(true);
        return S_OK;
    }
    HRESULT DeleteValue(LPCWSTR, long) override { return doubles::REFUSED; }
    HRESULT DeleteAll() override { return doubles::REFUSED; }

 private:
    const std::wstring m_Name;
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

    void Set(const wchar_t* name, _variant_t value) { EXPECT_CODE(S_OK, context->SetValue(name, 0, &value)); }

    // What the library asks for.
    void SetUsual() {
        Set(L"LocalOnly", true);
        Set(L"IncludeQualifiers", false);
        Set(L"PathLevel", 0L);
        Set(L"ExcludeSystemProperties", true);
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
    CComPtr<IWbemObjectTextSrc> source;
};

TEST_F(ObjectTextTest, ShowsWhatWasSetAsTheLibraryAsksForIt) {
    SetUsual();
    const ObjectPointer policy = Spawn(L"Policy");
    EXPECT_EQ(Text(policy), "<INSTANCE CLASSNAME=\"Policy\"/>");
    const ObjectPointer inner = Spawn(L"Inner");
    ASSERT_CODE(S_OK, PutValue(inner, L"S", L"<x>"));
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"a"));
    ASSERT_CODE(S_OK, PutValue(policy, L"Name", Null()));
    ASSERT_CODE(S_OK, PutValue(policy, L"Tags", ArrayOf(VT_BSTR, {::Text(L"x"), Null()})));
    ASSERT_CODE(S_OK, PutValue(policy, L"Parent", L"Policy.ID=\"b\""));
    ASSERT_CODE(S_OK, PutValue(policy, L"Detail", _variant_t(static_cast<IUnknown*>(inner))));
    ASSERT_CODE(S_OK, PutValue(policy, L"At", L"20240229235959.000000+060"));
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
    ASSERT_CODE(S_OK, PutValue(stored, L"Days", 3L));
    EXPECT_THAT(Text(stored),
                HasSubstr("<PROPERTY NAME=\"Days\" TYPE=\"uint32\"><VALUE>3</VALUE></PROPERTY>"));
    EXPECT_THAT(Text(stored, WMI_OBJ_TEXT_CIM_DTD_2_0),
                HasSubstr("<PROPERTY NAME=\"Detail\" TYPE=\"string\" EmbeddedObject=\"instance\"><VALUE>"
                          "&lt;INSTANCE CLASSNAME=&quot;Inner&quot;&gt;"));
}

TEST_F(ObjectTextTest, ShowsAllPropertiesAndTheSystemsWithoutAContext) {
    context.Release();
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"a"));
    ASSERT_CODE(S_OK, PutValue(policy, L"Detail", _variant_t(static_cast<IUnknown*>(Spawn(L"Inner")))));
    for (const ULONG format : {WMI_OBJ_TEXT_WMI_DTD_2_0, WMI_OBJ_TEXT_CIM_DTD_2_0}) {
        const XmlDocument document(Text(policy, format));
        const auto own = [&](const std::string& name) {
            return document.Texts("/INSTANCE/*[@NAME='" + name + "']//VALUE");
        };
        EXPECT_THAT(own("__GENUS"), ElementsAre("2"));
        EXPECT_THAT(own("__DERIVATION"), ElementsAre("Base"));
        EXPECT_THAT(own("__RELPATH"), ElementsAre("Policy.ID=\"a\""));
        EXPECT_THAT(own("__PATH").at(0), HasSubstr("root\\Test:Policy.ID=\"a\""));
        EXPECT_THAT(own("Days"), ElementsAre("7"));
        EXPECT_THAT(own("Name"), IsEmpty());
        EXPECT_THAT(document.Texts("/INSTANCE/*[@NAME='Name']/@PROPAGATED"), ElementsAre("true"));
        EXPECT_THAT(document.Texts("//QUALIFIER | //@CLASSORIGIN"), IsEmpty());
    }
    EXPECT_EQ(XmlDocument(Text(policy)).Text("//VALUE.OBJECT/INSTANCE/PROPERTY[@NAME='__CLASS']/VALUE"),
              "Inner");
}

TEST_F(ObjectTextTest, ShowsAClassWithItsQualifiersAndOrigins) {
    SetUsual();
    Set(L"IncludeClassOrigin", true);
    ObjectPointer unnamed;
    ASSERT_CODE(S_OK, Get(L"Base")->SpawnDerivedClass(0, &unnamed));
    ASSERT_CODE(S_OK, PutValue(unnamed, L"Mine", L"x", CIM_STRING));
    EXPECT_EQ(Text(unnamed),
              "<CLASS NAME=\"\" SUPERCLASS=\"Base\"><PROPERTY NAME=\"Mine\" TYPE=\"string\" CLASSORIGIN=\"\">"
              "<VALUE>x</VALUE></PROPERTY></CLASS>");
    Set(L"LocalOnly", false);
    Set(L"IncludeQualifiers", true);
    const XmlDocument document(Text(Get(L"Policy")));
    EXPECT_EQ(document.Text("/CLASS[@SUPERCLASS='Base']/QUALIFIER[@NAME='Description']/VALUE"), "a & b");
    EXPECT_EQ(document.Text("/CLASS/PROPERTY[@NAME='ID'][@CLASSORIGIN='Base'][@PROPAGATED='true']/"
                            "QUALIFIER[@NAME='key'][@TYPE='boolean']/VALUE"),
              "TRUE");
    EXPECT_EQ(document.Text("/CLASS/PROPERTY.REFERENCE[@NAME='Parent'][not(@PROPAGATED)]/@CLASSORIGIN"),
              "Policy");
}

TEST_F(ObjectTextTest, ThePathLevelsNameThisNamespaceAndMachine) {
    SetUsual();
    const ObjectPointer policy = Spawn(L"Policy");
    ASSERT_CODE(S_OK, PutValue(policy, L"ID", L"a"));
    const std::string server = Narrow(GetValue(policy, L"__SERVER").bstrVal);
    Set(L"PathLevel", 1L);
    EXPECT_THAT(Text(policy), StartsWith("<VALUE.NAMEDOBJECT><INSTANCENAME CLASSNAME=\"Policy\">"));
    Set(L"PathLevel", 2L);
    EXPECT_THAT(
        XmlDocument(Text(policy)).Texts("/VALUE.OBJECTWITHLOCALPATH/LOCALINSTANCEPATH//NAMESPACE/@NAME"),
        ElementsAre("root", "Test"));
    Set(L"PathLevel", 3L);
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
    SetErrorInfo(0, nullptr);
    for (const _variant_t& value : {_variant_t(1L), Null(), _variant_t()})
        EXPECT_CODE(S_OK, ResultWith(L"localonly", value));
    EXPECT_CODE(S_OK, ResultWith(L"PathLevel", short{3}));
    EXPECT_CODE(S_OK, ResultWith(L"AnythingElse", L"x"));
    EXPECT_EQ(TakeReason(), "");
    for (const wchar_t* name : {L"LocalOnly", L"IncludeQualifiers", L"IncludeClassOrigin",
                                L"ExcludeSystemProperties", L"PathLevel"}) {
        EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(name, 4L));
        EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(name, -2L));
        EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(name, L"maybe"));
        EXPECT_THAT(TakeReason(), HasSubstr(Narrow(std::wstring_view(name))));
    }
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(L"LocalOnly", 2L));
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, ResultWith(L"PathLevel", -1L));
    EXPECT_THAT(TakeReason(), HasSubstr("0 to 3"));
}

TEST_F(ObjectTextTest, SomebodyElsesContextCounts) {
    std::atomic<long> live{0};
    CComBSTR text;
    context = new OneValue(live, L"ExcludeSystemProperties", WBEM_E_NOT_FOUND);
    EXPECT_EQ(Text(Get(L"Inner")), "<CLASS NAME=\"Inner\"><PROPERTY NAME=\"S\" TYPE=\"string\"/></CLASS>");
    context = new OneValue(live, L"Other", WBEM_E_FAILED);
    EXPECT_CODE(WBEM_E_INVALID_CONTEXT, GetText(Get(L"Inner"), text));
    context.Release();
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
    std::atomic<long> live{0};
    const ObjectPointer foreign(new ForeignObject(live));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, refused(0, foreign, WMI_OBJ_TEXT_WMI_DTD_2_0));
    EXPECT_THAT(TakeReason(), HasSubstr("not one of this service"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(1, object, WMI_OBJ_TEXT_WMI_DTD_2_0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, refused(0, nullptr, WMI_OBJ_TEXT_WMI_DTD_2_0));
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

TEST_F(ObjectTextTest, ThreadsMayShareASource) {
    context.Release();
    const ObjectPointer policy = Spawn(L"Policy");
    const std::string expected = Text(policy);
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            ObjectPointer own;
            EXPECT_CODE(S_OK, policy->Clone(&own));
            for (int i = 0; i < 100; ++i) {
                CComBSTR text;
                EXPECT_CODE(S_OK, GetText(own, text));
                EXPECT_EQ(Utf8(text), expected);
            }
        });
    }
}

class ContextTest : public testing::Test {
 protected:
    ContextTest() {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        EXPECT_CODE(S_OK, context.CoCreateInstance(CLSID_WbemContext));
    }
    ~ContextTest() override {
        context.Release();
        CoUninitialize();
    }

    HRESULT Set(const wchar_t* name, _variant_t value) { return context->SetValue(name, 0, &value); }

    static std::string Value(IWbemContext* of, const wchar_t* name) {
        _variant_t value;
        const HRESULT result = of->GetValue(name, 0, &value);
        return result == S_OK ? Show(value) : Code(result);
    }

    static std::string Names(IWbemContext* of) {
        _variant_t names;
        EXPECT_CODE(S_OK, of->GetNames(0, &names.parray));
        names.vt = VT_ARRAY | VT_BSTR;
        return Show(names);
    }

    // The next name and value, or the status.
    std::string Next() {
        CComBSTR name;
        _variant_t value;
        const HRESULT result = context->Next(0, &name, &value);
        return result == S_OK ? Narrow(name.m_str) + " " + Show(value) : Code(result);
    }

    ContextPointer context;
};

TEST_F(ContextTest, KeepsValuesOfAllKindsByNameWithoutRegardToCase) {
    EXPECT_EQ(Names(context), "BSTR[]");
    EXPECT_CODE(S_OK, Set(L"LocalOnly", _variant_t(true)));
    EXPECT_CODE(S_OK, Set(L"Straße", Text(L"a")));
    EXPECT_CODE(S_OK, Set(L"Array", ArrayOf(VT_BSTR, {Text(L"x"), Null()})));
    EXPECT_EQ(Value(context, L"localonly"), "BOOL -1");
    EXPECT_EQ(Value(context, L"STRAßE"), "BSTR a");
    EXPECT_EQ(Value(context, L"Array"), "BSTR[] x|(null)");

    EXPECT_CODE(S_OK, Set(L"LOCALONLY", _variant_t(5L)));
    EXPECT_EQ(Value(context, L"LocalOnly"), "I4 5");
    EXPECT_EQ(Names(context), "BSTR[] LocalOnly|Stra<DF>e|Array");

    EXPECT_CODE(S_OK, context->DeleteValue(L"STRAßE", 0));
    EXPECT_CODE(WBEM_E_NOT_FOUND, context->DeleteValue(L"Straße", 0));
    EXPECT_EQ(Names(context), "BSTR[] LocalOnly|Array");
    EXPECT_CODE(S_OK, context->DeleteAll());
    EXPECT_EQ(Names(context), "BSTR[]");
}

TEST_F(ContextTest, ValuesAreCopiesAlsoOfWhatTheyReferTo) {
    _variant_t text = Text(L"before");
    EXPECT_CODE(S_OK, Set(L"Text", text));
    text.bstrVal[0] = L'X';
    LONG number = 1;
    VARIANT reference{};
    reference.vt = VT_BYREF | VT_I4;
    reference.plVal = &number;
    EXPECT_CODE(S_OK, context->SetValue(L"Number", 0, &reference));
    number = 2;
    ContextPointer copy;
    EXPECT_CODE(S_OK, context->Clone(&copy));
    EXPECT_CODE(S_OK, Set(L"Text", Null()));
    EXPECT_CODE(S_OK, context->DeleteValue(L"Number", 0));
    EXPECT_EQ(Value(copy, L"Text"), "BSTR before");
    EXPECT_EQ(Value(copy, L"Number"), "I4 1");
    EXPECT_EQ(Names(copy), "BSTR[] Text|Number");
}

TEST_F(ContextTest, AnInterfaceIsSharedAndReleased) {
    ContextPointer held;
    ASSERT_CODE(S_OK, held.CoCreateInstance(CLSID_WbemContext));
    const auto references = [&] {
        held->AddRef();
        return held->Release();
    };
    EXPECT_CODE(S_OK, Set(L"Object", _variant_t(static_cast<IUnknown*>(held))));
    EXPECT_EQ(references(), 2U);
    EXPECT_EQ(Value(context, L"Object"), "UNKNOWN object");
    EXPECT_EQ(references(), 2U);
    context.Release();
    EXPECT_EQ(references(), 1U);
}

TEST_F(ContextTest, EnumeratesInTheOrderOfSetting) {
    EXPECT_EQ(Next(), Code(WBEM_E_UNEXPECTED));
    for (const wchar_t* name : {L"b", L"a", L"c"})
        EXPECT_CODE(S_OK, Set(name, Text(name)));
    for (int round = 0; round < 2; ++round) {
        EXPECT_CODE(S_OK, context->BeginEnumeration(0));
        EXPECT_EQ(Next(), "b BSTR b");
    }
    EXPECT_EQ(Next(), "a BSTR a");
    // Values that come and go meanwhile make it neither skip nor repeat any.
    for (const wchar_t* name : {L"b", L"a"})
        EXPECT_CODE(S_OK, context->DeleteValue(name, 0));
    EXPECT_CODE(S_OK, Set(L"d", Null()));
    EXPECT_EQ(Next(), "c BSTR c");
    EXPECT_CODE(S_OK, context->Next(0, nullptr, nullptr));
    CComBSTR name;
    _variant_t value;
    for (int round = 0; round < 2; ++round)
        EXPECT_CODE(WBEM_S_NO_MORE_DATA, context->Next(0, &name, &value));
    EXPECT_FALSE(name.m_str);
    EXPECT_EQ(value.vt, VT_EMPTY);
    ContextPointer copy;
    EXPECT_CODE(S_OK, context->Clone(&copy));
    EXPECT_CODE(WBEM_E_UNEXPECTED, copy->Next(0, &name, &value));
    EXPECT_CODE(S_OK, context->DeleteAll());
    EXPECT_CODE(S_OK, Set(L"e", Null()));
    EXPECT_EQ(Next(), "e NULL");
    EXPECT_CODE(S_OK, context->EndEnumeration());
    EXPECT_CODE(S_OK, context->EndEnumeration());
    EXPECT_EQ(Next(), Code(WBEM_E_UNEXPECTED));
}

TEST_F(ContextTest, RefusesWhatIsNoRequest) {
    _variant_t value = Text(L"kept");
    VARIANT unknown{};
    unknown.vt = 0x0FF0;
    SAFEARRAY* names = nullptr;
    EXPECT_CODE(WBEM_E_NOT_FOUND, context->GetValue(L"a", 0, &value));
    EXPECT_THAT(TakeReason(), HasSubstr("no value a"));
    EXPECT_CODE(S_OK, context->BeginEnumeration(0));
    const std::vector<HRESULT> refused = {context->SetValue(nullptr, 0, &value),
                                          context->SetValue(L"", 0, &value),
                                          context->SetValue(L"a", 0, nullptr),
                                          context->SetValue(L"a", 1, &value),
                                          context->SetValue(L"a", 0, &unknown),
                                          context->GetValue(L"a", 0, nullptr),
                                          context->GetValue(nullptr, 0, &value),
                                          context->GetValue(L"a", 1, &value),
                                          context->DeleteValue(nullptr, 0),
                                          context->DeleteValue(L"a", 1),
                                          context->GetNames(0, nullptr),
                                          context->GetNames(1, &names),
                                          context->Clone(nullptr),
                                          context->BeginEnumeration(1),
                                          context->Next(1, nullptr, &value),
                                          context->SetValue(L"a\xD800", 0, &value)};
    EXPECT_THAT(refused, Each(WBEM_E_INVALID_PARAMETER));
    EXPECT_THAT(TakeReason(), HasSubstr("surrogate"));
    EXPECT_EQ(Names(context), "BSTR[]");
    EXPECT_EQ(Show(value), "BSTR kept");
}

}  // namespace
