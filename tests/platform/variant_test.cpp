#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

VARIANT Text(const std::wstring& units) {
    VARIANT value{};
    value.vt = VT_BSTR;
    value.bstrVal = MakeText(units);
    return value;
}

VARIANT Real(double number, VARTYPE type = VT_R8) {
    VARIANT value{};
    value.vt = type;
    value.dblVal = number;
    return value;
}

VARIANT Integer(LONGLONG number, VARTYPE type = VT_I8) {
    VARIANT value{};
    value.vt = type;
    value.llVal = number;
    return value;
}

VARIANT Boolean(bool truth) {
    VARIANT value{};
    value.vt = VT_BOOL;
    value.boolVal = truth ? VARIANT_TRUE : VARIANT_FALSE;
    return value;
}

VARIANT OfType(VARTYPE type) {
    VARIANT value{};
    value.vt = type;
    return value;
}

// Converts `source`, which is consumed, in place.
HRESULT Change(VARIANT& source, VARTYPE type, USHORT flags = 0) {
    return VariantChangeType(&source, &source, flags, type);
}

std::wstring AsText(VARIANT source, USHORT flags = 0) {
    EXPECT_EQ(Change(source, VT_BSTR, flags), S_OK);
    const std::wstring text = source.vt == VT_BSTR ? Units(source.bstrVal) : L"(no text)";
    VariantClear(&source);
    return text;
}

TEST(Variant, CopiesAreDeep) {
    VARIANT source = Text(WITH_NULL);
    VARIANT copy{};
    EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_NE(copy.bstrVal, source.bstrVal);
    EXPECT_EQ(VariantClear(&source), S_OK);
    EXPECT_EQ(source.vt, VT_EMPTY);
    EXPECT_EQ(Units(copy.bstrVal), WITH_NULL);

    // Onto itself: nothing happens.
    const BSTR text = copy.bstrVal;
    EXPECT_EQ(VariantCopy(&copy, &copy), S_OK);
    EXPECT_EQ(copy.bstrVal, text);

    // A null string stays null.
    const VARIANT null = OfType(VT_BSTR);
    EXPECT_EQ(VariantCopy(&copy, &null), S_OK);
    EXPECT_EQ(copy.vt, VT_BSTR);
    EXPECT_EQ(copy.bstrVal, nullptr);
}

TEST(Variant, CopyMayComeFromWhatTheTargetHolds) {
    VARIANT holder = OfType(VT_ARRAY | VT_VARIANT);
    holder.parray = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    static_cast<VARIANT*>(holder.parray->pvData)[0] = Text(L"inner");
    EXPECT_EQ(VariantCopy(&holder, static_cast<VARIANT*>(holder.parray->pvData)), S_OK);
    EXPECT_EQ(Units(holder.bstrVal), L"inner");
    EXPECT_EQ(VariantClear(&holder), S_OK);
}

TEST(Variant, InterfacesAreCounted) {
    std::atomic<long> live{0};
    VARIANT source = OfType(VT_UNKNOWN);
    source.punkVal = new CountedObject(live);
    source.punkVal->AddRef();
    VARIANT copy{};
    EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(VariantClear(&source), S_OK);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(VariantClear(&copy), S_OK);
    EXPECT_EQ(live, 0);

    const VARIANT null = OfType(VT_UNKNOWN);
    EXPECT_EQ(VariantCopy(&copy, &null), S_OK);
    EXPECT_EQ(VariantClear(&copy), S_OK);
}

TEST(Variant, ReferencesAreCopiedAsSuchOrFollowed) {
    BSTR text = SysAllocString(L"text");
    VARIANT source = OfType(VT_BYREF | VT_BSTR);
    source.pbstrVal = &text;
    VARIANT copy{};
    EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(copy.pbstrVal, &text);
    EXPECT_EQ(VariantClear(&copy), S_OK);

    VARIANT outer = OfType(VT_BYREF | VT_VARIANT);
    outer.pvarVal = &source;
    EXPECT_EQ(VariantCopyInd(&copy, &outer), S_OK);
    EXPECT_EQ(copy.vt, VT_BSTR);
    EXPECT_EQ(Units(copy.bstrVal), L"text");
    EXPECT_NE(copy.bstrVal, text);
    EXPECT_EQ(VariantClear(&copy), S_OK);

    // In place, a variant becomes what it referred to.
    EXPECT_EQ(VariantCopyInd(&source, &source), S_OK);
    EXPECT_EQ(Units(source.bstrVal), L"text");
    EXPECT_EQ(VariantClear(&source), S_OK);
    SysFreeString(text);

    outer.pvarVal = &outer;
    EXPECT_EQ(VariantCopyInd(&copy, &outer), E_INVALIDARG);
    outer.pvarVal = nullptr;
    EXPECT_EQ(VariantCopyInd(&copy, &outer), E_INVALIDARG);
}

TEST(Variant, TypesThatNoVariantCanHaveAreRefused) {
    for (const VARTYPE type :
         {VARTYPE{VT_VARIANT}, VARTYPE{VT_ARRAY}, VARTYPE{VT_BYREF | VT_NULL}, VARTYPE{15}, VARTYPE{VT_VOID},
          VARTYPE{VT_VECTOR | VT_I4}, VARTYPE{VT_ILLEGAL}}) {
        SCOPED_TRACE(type);
        VARIANT bad = OfType(type);
        EXPECT_EQ(VariantClear(&bad), DISP_E_BADVARTYPE);
        EXPECT_EQ(bad.vt, type);
        VARIANT target = Text(L"old");
        EXPECT_EQ(VariantCopy(&target, &bad), DISP_E_BADVARTYPE);
        EXPECT_EQ(target.vt, VT_EMPTY);
    }
}

TEST(Variant, ALockedArrayHoldsItsVariant) {
    VARIANT holder = OfType(VT_ARRAY | VT_I4);
    holder.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SafeArrayLock(holder.parray);
    const VARIANT other = Integer(5);
    EXPECT_EQ(VariantClear(&holder), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(VariantCopy(&holder, &other), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(holder.vt, VT_ARRAY | VT_I4);
    SafeArrayUnlock(holder.parray);
    EXPECT_EQ(VariantCopy(&holder, &other), S_OK);
    EXPECT_EQ(holder.llVal, 5);
}

TEST(Variant, ExhaustedMemoryLeavesTheTargetEmpty) {
    VARIANT texts = OfType(VT_ARRAY | VT_BSTR);
    texts.parray = SafeArrayCreateVector(VT_BSTR, 0, 2);
    static_cast<BSTR*>(texts.parray->pvData)[0] = SysAllocString(L"one");
    static_cast<BSTR*>(texts.parray->pvData)[1] = SysAllocString(L"two");
    FailEachAllocation([&] {
        VARIANT target = Text(L"old");
        const HRESULT status = VariantCopy(&target, &texts);
        EXPECT_TRUE(status == S_OK || (status == E_OUTOFMEMORY && target.vt == VT_EMPTY));
        VariantClear(&target);
    });
    VariantClear(&texts);

    VARIANT number = Integer(5);
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(Change(number, VT_BSTR), E_OUTOFMEMORY);
    }
    EXPECT_EQ(number.vt, VT_I8);
    EXPECT_EQ(number.llVal, 5);
}

TEST(VariantChangeType, IntegersAreCheckedForRange) {
    struct Case {
        LONGLONG number;
        VARTYPE type;
        bool fits;
    };
    const Case cases[] = {{127, VT_I1, true},       {128, VT_I1, false},           {-128, VT_I1, true},
                          {-129, VT_I1, false},     {255, VT_UI1, true},           {256, VT_UI1, false},
                          {-1, VT_UI1, false},      {32767, VT_I2, true},          {32768, VT_I2, false},
                          {65535, VT_UI2, true},    {65536, VT_UI2, false},        {INT_MAX, VT_I4, true},
                          {INT_MIN, VT_INT, true},  {INT_MAX + 1LL, VT_I4, false}, {UINT32_MAX, VT_UI4, true},
                          {-1, VT_UINT, false},     {1LL << 32, VT_UINT, false},   {-1, VT_UI8, false},
                          {LLONG_MAX, VT_UI8, true}};
    for (const Case& test : cases) {
        SCOPED_TRACE(std::to_string(test.number) + " as " + std::to_string(test.type));
        VARIANT value = Integer(test.number);
        EXPECT_EQ(Change(value, test.type), test.fits ? S_OK : DISP_E_OVERFLOW);
        EXPECT_EQ(value.vt, test.fits ? test.type : VARTYPE{VT_I8});
        EXPECT_EQ(Change(value, VT_I8), S_OK);
        EXPECT_EQ(value.llVal, test.number);
    }
    VARIANT large = Integer(-1, VT_UI8);
    EXPECT_EQ(Change(large, VT_I8), DISP_E_OVERFLOW);
    EXPECT_EQ(AsText(large), L"18446744073709551615");
}

TEST(VariantChangeType, RealsRoundHalvesToEven) {
    const struct {
        double real;
        LONG integer;
    } cases[] = {{0.5, 0}, {1.5, 2}, {2.5, 2}, {-0.5, 0}, {-1.5, -2}, {-2.5, -2}, {2.4999, 2}, {-2.51, -3}};
    for (const auto& test : cases) {
        VARIANT value = Real(test.real);
        EXPECT_EQ(Change(value, VT_I4), S_OK) << test.real;
        EXPECT_EQ(value.lVal, test.integer) << test.real;
    }

    const struct {
        double real;
        VARTYPE type;
        HRESULT status;
    } edges[] = {{INT_MAX + 0.4, VT_I4, S_OK},
                 {INT_MAX + 0.5, VT_I4, DISP_E_OVERFLOW},
                 {INT_MIN - 0.5, VT_I4, S_OK},
                 {INT_MIN - 0.6, VT_I4, DISP_E_OVERFLOW},
                 {-0.5, VT_UI1, S_OK},
                 {-0.6, VT_UI1, DISP_E_OVERFLOW},
                 {std::ldexp(1.0, 63), VT_I8, DISP_E_OVERFLOW},
                 {-std::ldexp(1.0, 63), VT_I8, S_OK},
                 {std::ldexp(1.0, 64), VT_UI8, DISP_E_OVERFLOW},
                 {NAN, VT_I4, DISP_E_OVERFLOW},
                 {DBL_MAX, VT_R4, DISP_E_OVERFLOW},
                 {2958465.9, VT_DATE, S_OK},
                 {2958466.0, VT_DATE, DISP_E_OVERFLOW},
                 {-657434.9, VT_DATE, S_OK},
                 {-657435.0, VT_DATE, DISP_E_OVERFLOW},
                 {NAN, VT_DATE, DISP_E_OVERFLOW}};
    for (const auto& test : edges) {
        VARIANT value = Real(test.real);
        EXPECT_EQ(Change(value, test.type), test.status) << test.real << " as " << test.type;
    }
}

TEST(VariantChangeType, BooleansAreAllBitsOrNone) {
    VARIANT value = Boolean(true);
    EXPECT_EQ(Change(value, VT_I4), S_OK);
    EXPECT_EQ(value.lVal, -1);
    value = Boolean(true);
    EXPECT_EQ(Change(value, VT_UI1), S_OK);
    EXPECT_EQ(value.bVal, 255);
    value = Real(0.25);
    EXPECT_EQ(Change(value, VT_BOOL), S_OK);
    EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    value = OfType(VT_EMPTY);
    EXPECT_EQ(Change(value, VT_BOOL), S_OK);
    EXPECT_EQ(value.boolVal, VARIANT_FALSE);

    for (const wchar_t* const word : {L"True", L"TRUE", L" true ", L"-1", L"0.5"}) {
        value = Text(word);
        EXPECT_EQ(Change(value, VT_BOOL), S_OK);
        EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    }
    for (const wchar_t* const word : {L"tru", L"truee", L"", L"yes"}) {
        value = Text(word);
        EXPECT_EQ(Change(value, VT_BOOL), DISP_E_TYPEMISMATCH);
        VariantClear(&value);
    }
    EXPECT_EQ(AsText(Boolean(true)), L"-1");
    EXPECT_EQ(AsText(Boolean(true), VARIANT_ALPHABOOL), L"True");
    EXPECT_EQ(AsText(Boolean(false), VARIANT_ALPHABOOL), L"False");
}

TEST(VariantChangeType, TextIsReadAsANumber) {
    const struct {
        const wchar_t* text;
        VARTYPE type;
        HRESULT status;
        LONGLONG number;
    } cases[] = {{L"42", VT_I4, S_OK, 42},
                 {L" -42\t", VT_I4, S_OK, -42},
                 {L"+7", VT_I8, S_OK, 7},
                 {L"2.5", VT_I8, S_OK, 2},
                 {L"1e3", VT_I8, S_OK, 1000},
                 {L"9223372036854775807", VT_I8, S_OK, LLONG_MAX},
                 {L"-9223372036854775808", VT_I8, S_OK, LLONG_MIN},
                 {L"9223372036854775808", VT_I8, DISP_E_OVERFLOW, 0},
                 {L"18446744073709551615", VT_UI8, S_OK, -1},
                 {L"18446744073709551616", VT_UI8, DISP_E_OVERFLOW, 0},
                 {L"1e999", VT_R8, DISP_E_OVERFLOW, 0},
                 {L"", VT_I8, DISP_E_TYPEMISMATCH, 0},
                 {L"+-1", VT_I8, DISP_E_TYPEMISMATCH, 0},
                 {L"1 2", VT_I8, DISP_E_TYPEMISMATCH, 0},
                 {L"12x", VT_I8, DISP_E_TYPEMISMATCH, 0},
                 {L"nan", VT_R8, DISP_E_TYPEMISMATCH, 0},
                 {L"\x0661", VT_I8, DISP_E_TYPEMISMATCH, 0}};
    for (const auto& test : cases) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(test.text)));
        VARIANT value = Text(test.text);
        ASSERT_EQ(Change(value, test.type), test.status);
        if (test.status != S_OK) {
            EXPECT_EQ(Units(value.bstrVal), test.text);
        } else if (test.type == VT_I4) {
            EXPECT_EQ(value.lVal, test.number);
        } else {
            EXPECT_EQ(value.llVal, test.number);
        }
        VariantClear(&value);
    }
    VARIANT cut = Text(std::wstring(L"1\0", 2));
    EXPECT_EQ(Change(cut, VT_I4), DISP_E_TYPEMISMATCH);
    VariantClear(&cut);
    // The longest text that is read, a number far beyond a real, and one that is a digit longer.
    VARIANT longest = Text(std::wstring(1100, L'1'));
    EXPECT_EQ(Change(longest, VT_R8), DISP_E_OVERFLOW);
    VariantClear(&longest);
    VARIANT longer = Text(std::wstring(1101, L'1'));
    EXPECT_EQ(Change(longer, VT_R8), DISP_E_TYPEMISMATCH);
    VariantClear(&longer);
}

TEST(VariantChangeType, RealsBecomeTheShortestTextThatReadsBack) {
    EXPECT_EQ(AsText(Real(0.1)), L"0.1");
    EXPECT_EQ(AsText(Real(1000000.0)), L"1000000");
    EXPECT_EQ(AsText(Real(-2.5)), L"-2.5");
    EXPECT_EQ(AsText(Real(1e20)), L"1E+20");
    EXPECT_EQ(AsText(Real(0.0)), L"0");
    EXPECT_EQ(AsText(OfType(VT_EMPTY)), L"");
    VARIANT single = OfType(VT_R4);
    single.fltVal = 0.1f;
    EXPECT_EQ(AsText(single), L"0.1");

    for (const double real : {1.0 / 3.0, DBL_MAX, DBL_MIN, 123456789012345680.0, -1e-5}) {
        VARIANT value = Real(real);
        EXPECT_EQ(Change(value, VT_BSTR), S_OK);
        EXPECT_EQ(Change(value, VT_R8), S_OK);
        EXPECT_EQ(value.dblVal, real);
    }
    VARIANT infinite = Real(INFINITY);
    EXPECT_EQ(Change(infinite, VT_BSTR), DISP_E_OVERFLOW);
}

TEST(VariantChangeType, WhatHasNoConversionIsAMismatch) {
    VARIANT value = OfType(VT_NULL);
    EXPECT_EQ(Change(value, VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Change(value, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Change(value, VT_NULL), S_OK);
    value = Integer(1, VT_ERROR);
    EXPECT_EQ(Change(value, VT_I4), DISP_E_TYPEMISMATCH);
    value = Real(2.0, VT_DATE);
    EXPECT_EQ(Change(value, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Change(value, VT_UNKNOWN), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Change(value, VT_ARRAY | VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Change(value, VT_VOID), DISP_E_BADVARTYPE);
    EXPECT_EQ(value.date, 2.0);
}

TEST(VariantChangeType, FollowsReferencesAndReplacesTheTarget) {
    BSTR text = SysAllocString(L"42");
    VARIANT source = OfType(VT_BYREF | VT_BSTR);
    source.pbstrVal = &text;
    VARIANT target = Text(L"old");
    EXPECT_EQ(VariantChangeType(&target, &source, 0, VT_UI1), S_OK);
    EXPECT_EQ(target.vt, VT_UI1);
    EXPECT_EQ(target.bVal, 42);
    EXPECT_EQ(VariantChangeType(&target, &source, 0, VT_BSTR), S_OK);
    EXPECT_NE(target.bstrVal, text);
    SysFreeString(text);
    EXPECT_EQ(Units(target.bstrVal), L"42");
    VariantClear(&target);
}

}  // namespace
