#include <atomic>
#include <string>
#include <utility>

#include <atlbase.h>
#include <comdef.h>
#include <gtest/gtest.h>

#include "tests/platform/automation_values.h"
#include "tests/platform/threads.h"

namespace {

std::wstring Units(const _bstr_t& text) {
    return ::Units(text.GetBSTR());
}

_bstr_t WithNull() {
    return _bstr_t(MakeText(WITH_NULL), false);
}

TEST(BstrWrapper, NullEmptyAndTextAreOrdered) {
    const _bstr_t ordered[] = {_bstr_t(), L"", L"a", WithNull()};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            EXPECT_EQ(ordered[i] < ordered[j], i < j);
            EXPECT_EQ(ordered[i] == ordered[j], i == j);
        }
    EXPECT_TRUE(!ordered[0] && !!ordered[1]);
    EXPECT_TRUE(L"a" == ordered[2] && ordered[2] >= L"a" && WithNull() != L"a");
    EXPECT_EQ(ordered[0].length(), 0u);
    EXPECT_EQ(static_cast<const wchar_t*>(ordered[0]), nullptr);
}

TEST(BstrWrapper, JoinsOverTheFullLength) {
    _bstr_t text = WithNull();
    text += text;
    EXPECT_EQ(Units(text), WITH_NULL + WITH_NULL);
    EXPECT_EQ(Units(L"x" + WithNull() + "y"), L"x" + WITH_NULL + L"y");
    EXPECT_TRUE(!(_bstr_t() + _bstr_t()));
    EXPECT_TRUE(_bstr_t() + L"" == L"");
}

TEST(BstrWrapper, CopiesShareOneString) {
    _bstr_t first(L"shared");
    const _bstr_t second(first);
    EXPECT_EQ(static_cast<const wchar_t*>(first), static_cast<const wchar_t*>(second));

    // To hand the string out for good, or for change, the other copy must keep its own.
    SysFreeString(first.Detach());
    EXPECT_TRUE(!first);
    first = second;
    EXPECT_EQ(SysReAllocString(&first.GetBSTR(), L"changed"), TRUE);
    EXPECT_TRUE(first == L"changed");
    first = second;
    *first.GetAddress() = SysAllocString(L"given");
    EXPECT_TRUE(first == L"given");
    first.Attach(SysAllocString(L"attached"));
    first = *&first;
    EXPECT_TRUE(first == L"attached");
    EXPECT_TRUE(second == L"shared");
}

TEST(BstrWrapper, SharedStringIsFreedOnceByManyThreads) {
    const long before = doubles::LiveAllocations();
    {
        _bstr_t shared(L"shared");
        RunInThreads(4, [copy = shared] {
            for (int round = 0; round < 20000; ++round) {
                _bstr_t own(copy);
                const _bstr_t other(std::move(own));
                if (other.length() != 6) ADD_FAILURE();
            }
        });
    }
    EXPECT_EQ(doubles::LiveAllocations(), before);
}

TEST(BstrWrapper, NarrowTextIsReadAsUtf8) {
    EXPECT_TRUE(_bstr_t("A\xC3\xA9\xF0\x9F\x98\x80") == L"A\u00E9\U0001F600");
    EXPECT_TRUE(!_bstr_t(static_cast<const char*>(nullptr)));
    const HRESULT refused = HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(ComErrorOf([] { _bstr_t wide("ok\xE2\x82"); }), refused);
    EXPECT_EQ(AtlErrorOf([] { CComBSTR wide("\xED\xA0\x80"); }), refused);
}

TEST(ComError, CarriesStatusAndReason) {
    ReportError(E_ACCESSDENIED, L"Not allowed.");
    IErrorInfo* reason = nullptr;
    ASSERT_EQ(GetErrorInfo(0, &reason), S_OK);
    _com_error copy(S_OK);
    try {
        _com_raise_error(E_ACCESSDENIED, reason);
    } catch (const _com_error& error) {
        copy = error;
    }
    EXPECT_EQ(copy.Error(), E_ACCESSDENIED);
    EXPECT_TRUE(copy.Description() == L"Not allowed.");
    EXPECT_STREQ(copy.ErrorMessage(), L"Access is denied.");
    CComPtr<IErrorInfo> held;
    held.Attach(copy.ErrorInfo());
    EXPECT_TRUE(held == reason);

    EXPECT_STREQ(_com_error(static_cast<HRESULT>(0x80049999)).ErrorMessage(), L"Unknown error 0x80049999");
    EXPECT_TRUE(!_com_error(E_FAIL).Description());
    EXPECT_EQ(ComErrorOf([] { _com_util::CheckError(S_FALSE); }), S_OK);
    EXPECT_EQ(ComErrorOf([] { _com_util::CheckError(E_FAIL); }), E_FAIL);
}

TEST(AtlString, CopiesAppendsAndCompares) {
    CComBSTR text(3, WITH_NULL.data());
    CComBSTR copy(text);
    EXPECT_NE(copy.m_str, text.m_str);
    EXPECT_TRUE(copy == text && !(copy == L"a"));
    copy += copy.m_str + 2;
    const CComBSTR& itself = copy;
    copy = itself;
    EXPECT_EQ(::Units(copy), WITH_NULL + L"b");
    EXPECT_EQ(copy.Append(nullptr), S_OK);
    BSTR given = nullptr;
    EXPECT_EQ(copy.CopyTo(&given), S_OK);
    copy = CComBSTR(L"moved");
    EXPECT_TRUE(copy == L"moved");
    copy.Attach(given);
    EXPECT_EQ(copy.Length(), 4u);
    copy.Empty();
    EXPECT_TRUE(!copy && copy == L"");
    EXPECT_EQ(AtlErrorOf([] { CComBSTR(-1); }), E_INVALIDARG);
}

TEST(AtlPointer, CountsReferences) {
    std::atomic<long> live{0};
    {
        CComPtr<IUnknown> first(new CountedObject(live));
        CComPtr<IUnknown> second(first), third;
        EXPECT_EQ(second.QueryInterface(&third), S_OK);
        third = std::move(second);
        EXPECT_TRUE(!second);
        first = first.p;
        EXPECT_TRUE(first == third);
        first.Release();
        first.Attach(third.Detach());
        EXPECT_EQ(first.CopyTo(&third), S_OK);
        CComPtr<IClassFactory> factory;
        EXPECT_EQ(first.QueryInterface(&factory), E_NOINTERFACE);
        EXPECT_TRUE(!factory);
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

TEST(Wrappers, ExhaustedMemoryThrowsAndLeaksNothing) {
    const _bstr_t text(L"text");
    const _variant_t value(text);
    SAFEARRAY* const array = SafeArrayCreateVector(VT_I4, 0, 2);
    FailEachAllocation([&] {
        const HRESULT status = ComErrorOf([&] {
            _bstr_t wide(L"wide");
            _bstr_t narrow("narrow");
            narrow += wide + text;
            _bstr_t shared(text);
            SysFreeString(shared.Detach());
            _variant_t copy(value);
            copy = L"other";
            copy = text;
            copy = static_cast<const VARIANT&>(value);
            const _bstr_t number(_variant_t(5L));
        });
        EXPECT_TRUE(status == S_OK || status == E_OUTOFMEMORY);
    });
    FailEachAllocation([&] {
        const HRESULT status = AtlErrorOf([&] {
            CComBSTR wide(L"wide");
            const CComBSTR narrow("narrow");
            wide += narrow;
            wide = narrow;
            const CComVariant fromText(wide);
            const CComVariant fromArray(array);
            CComVariant copy(fromText);
            copy = fromArray;
            copy = L"other";
        });
        EXPECT_TRUE(status == S_OK || status == E_OUTOFMEMORY);
    });
    SafeArrayDestroy(array);
}

}  // namespace
