#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using ContextPointer = CComPtr<IWbemContext>;

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
    std::string Value(const wchar_t* name) { return Value(context, name); }

    static std::vector<std::string> Names(IWbemContext* of) {
        SAFEARRAY* names = nullptr;
        EXPECT_CODE(S_OK, of->GetNames(0, &names));
        std::vector<std::string> all;
        LONG upper = -1;
        EXPECT_EQ(SafeArrayGetUBound(names, 1, &upper), S_OK);
        for (LONG i = 0; i <= upper; ++i) {
            CComBSTR name;
            EXPECT_EQ(SafeArrayGetElement(names, &i, &name), S_OK);
            all.push_back(Narrow(name.m_str));
        }
        SafeArrayDestroy(names);
        return all;
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
    EXPECT_THAT(Names(context), IsEmpty());
    EXPECT_CODE(S_OK, Set(L"LocalOnly", _variant_t(true)));
    EXPECT_CODE(S_OK, Set(L"Straße", Text(L"a")));
    EXPECT_CODE(S_OK, Set(L"Array", ArrayOf(VT_BSTR, {Text(L"x"), Null()})));
    EXPECT_CODE(S_OK, Set(L"Null", Null()));
    EXPECT_EQ(Value(L"localonly"), "BOOL -1");
    EXPECT_EQ(Value(L"STRAßE"), "BSTR a");
    EXPECT_EQ(Value(L"Array"), "BSTR[] x|(null)");
    EXPECT_EQ(Value(L"Null"), "NULL");
    EXPECT_EQ(Value(L"Other"), Code(WBEM_E_NOT_FOUND));

    EXPECT_CODE(S_OK, Set(L"LOCALONLY", _variant_t(5L)));
    EXPECT_EQ(Value(L"LocalOnly"), "I4 5");
    EXPECT_THAT(Names(context), ElementsAre("LocalOnly", "Stra<DF>e", "Array", "Null"));

    EXPECT_CODE(S_OK, context->DeleteValue(L"STRAßE", 0));
    EXPECT_CODE(WBEM_E_NOT_FOUND, context->DeleteValue(L"Straße", 0));
    EXPECT_THAT(Names(context), ElementsAre("LocalOnly", "Array", "Null"));
    EXPECT_CODE(S_OK, context->DeleteAll());
    EXPECT_THAT(Names(context), IsEmpty());
    EXPECT_EQ(Value(L"LocalOnly"), Code(WBEM_E_NOT_FOUND));
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
    EXPECT_THAT(Names(copy), ElementsAre("Text", "Number"));
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
    {
        _variant_t got;
        EXPECT_CODE(S_OK, context->GetValue(L"Object", 0, &got));
        EXPECT_EQ(got.punkVal, held);
    }
    EXPECT_EQ(references(), 2U);
    context.Release();
    EXPECT_EQ(references(), 1U);
}

TEST_F(ContextTest, EnumeratesInTheOrderOfSetting) {
    EXPECT_EQ(Next(), Code(WBEM_E_UNEXPECTED));
    for (const wchar_t* name : {L"b", L"a", L"c"})
        EXPECT_CODE(S_OK, Set(name, Text(name)));
    EXPECT_CODE(S_OK, context->BeginEnumeration(0));
    EXPECT_EQ(Next(), "b BSTR b");
    EXPECT_CODE(S_OK, context->BeginEnumeration(0));
    EXPECT_EQ(Next(), "b BSTR b");
    EXPECT_EQ(Next(), "a BSTR a");
    // Values that come and go meanwhile make it neither skip nor repeat any.
    EXPECT_CODE(S_OK, context->DeleteValue(L"b", 0));
    EXPECT_CODE(S_OK, Set(L"d", Null()));
    EXPECT_EQ(Next(), "c BSTR c");
    EXPECT_CODE(S_OK, context->Next(0, nullptr, nullptr));
    CComBSTR name;
    _variant_t value;
    EXPECT_CODE(WBEM_S_NO_MORE_DATA, context->Next(0, &name, &value));
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
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(nullptr, 0, &value));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(L"", 0, &value));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(L"a", 0, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(L"a", 1, &value));
    const wchar_t surrogate[] = {L'a', static_cast<wchar_t>(0xD800), 0};
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(surrogate, 0, &value));
    EXPECT_THAT(TakeReason(), HasSubstr("surrogate"));
    VARIANT unknown{};
    unknown.vt = 0x0FF0;
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->SetValue(L"a", 0, &unknown));
    EXPECT_THAT(Names(context), IsEmpty());

    EXPECT_CODE(WBEM_E_NOT_FOUND, context->GetValue(L"a", 0, &value));
    EXPECT_THAT(TakeReason(), HasSubstr("no value a"));
    EXPECT_EQ(Show(value), "BSTR kept");
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->GetValue(L"a", 0, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->GetValue(nullptr, 0, &value));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->GetValue(L"a", 1, &value));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->DeleteValue(nullptr, 0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->DeleteValue(L"a", 1));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->GetNames(0, nullptr));
    SAFEARRAY* names = nullptr;
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->GetNames(1, &names));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->Clone(nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->BeginEnumeration(1));
    EXPECT_CODE(S_OK, context->BeginEnumeration(0));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, context->Next(1, nullptr, &value));
}

}  // namespace
