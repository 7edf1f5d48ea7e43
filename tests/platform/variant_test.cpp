#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

VARIANT OfType(VARTYPE type) {
    VARIANT value{};
    value.vt = type;
    return value;
}

VARIANT Text(const std::wstring& units) {
    VARIANT value = OfType(VT_BSTR);
    value.bstrVal = MakeText(units);
    return value;
}

VARIANT Real(double number, VARTYPE type = VT_R8) {
    VARIANT value = OfType(type);
    value.dblVal = number;
    return value;
}

VARIANT Integer(LONGLONG number, VARTYPE type = VT_I8) {
    VARIANT value = OfType(type);
    value.llVal = number;
    return value;
}

VARIANT Boolean(bool truth) {
    return Integer(static_cast<USHORT>(truth ? VARIANT_TRUE : VARIANT_FALSE), VT_BOOL);
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

TEST(Variant, CopiesAreDeepAndCounted) {
    VARIANT source = Text(WITH_NULL);
    VARIANT copy{};
    EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(VariantClear(&source), S_OK);
    EXPECT_EQ(source.vt, VT_EMPTY);
    EXPECT_EQ(Units(copy.bstrVal), WITH_NULL);
    const BSTR text = copy.bstrVal;
    EXPECT_EQ(VariantCopy(&copy, &copy), S_OK);
    EXPECT_EQ(copy.bstrVal, text) << "onto itself: nothing happens";

    std::atomic<long> live{0};
    source = OfType(VT_UNKNOWN);
    source.punkVal = new CountedObject(live);
    source.punkVal->AddRef();
    EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(VariantClear(&source), S_OK);
    EXPECT_EQ(live, 1);
    for (const VARTYPE type : {VT_BSTR, VT_UNKNOWN}) {
        const VARIANT null = OfType(type);
        EXPECT_EQ(VariantCopy(&copy, &null), S_OK);
        EXPECT_EQ(copy.vt, type);
        EXPECT_EQ(copy.bstrVal, nullptr) << "a null stays one";
    }
    EXPECT_EQ(VariantClear(&copy), S_OK);
    EXPECT_EQ(live, 0);
}

TEST(Variant, ReferencesAreCopiedAsSuchOrFollowed) {
    CComBSTR text(L"42");
    VARIANT source = OfType(VT_BYREF | VT_BSTR);
    source.pbstrVal = &text;
    VARIANT target = Text(L"old");
    EXPECT_EQ(VariantCopy(&target, &source), S_OK);
    EXPECT_EQ(target.pbstrVal, &text);
    EXPECT_EQ(VariantChangeType(&target, &source, 0, VT_UI1), S_OK);
    EXPECT_EQ(target.vt, VT_UI1);
    EXPECT_EQ(target.bVal, 42);

    VARIANT outer = OfType(VT_BYREF | VT_VARIANT);
    outer.pvarVal = &source;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(i == 0 ? VariantCopyInd(&target, &outer) : VariantChangeType(&target, &source, 0, VT_BSTR),
                  S_OK);
        EXPECT_EQ(target.vt, VT_BSTR);
        EXPECT_NE(target.bstrVal, text.m_str);
        EXPECT_EQ(Units(target.bstrVal), L"42");
    }
    EXPECT_EQ(VariantClear(&target), S_OK);

    // In place, a variant becomes what it referred to, also when it holds that itself.
    EXPECT_EQ(VariantCopyInd(&source, &source), S_OK);
    VARIANT holder = OfType(VT_ARRAY | VT_VARIANT);
    holder.parray = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    static_cast<VARIANT*>(holder.parray->pvData)[0] = source;
    EXPECT_EQ(VariantCopy(&holder, static_cast<VARIANT*>(holder.parray->pvData)), S_OK);
    EXPECT_EQ(Units(holder.bstrVal), L"42");
    EXPECT_EQ(VariantClear(&holder), S_OK);

    for (VARIANT* const nowhere : {&outer, static_cast<VARIANT*>(nullptr)}) {
        outer.pvarVal = nowhere;
        EXPECT_EQ(VariantCopyInd(&target, &outer), E_INVALIDARG);
    }
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
    for (int i = 0; i < 2; ++i)
        static_cast<BSTR*>(texts.parray->pvData)[i] = SysAllocString(L"text");
    FailEachAllocation([&] {
        VARIANT target = Text(L"old");
        const HRESULT status = VariantCopy(&target, &texts);
        EXPECT_TRUE(status == S_OK || (status == E_OUTOFMEMORY && target.vt == VT_EMPTY));
        VariantClear(&target);
    });
    VariantClear(&texts);

    VARIANT number = Integer(5);
    const doubles::FailingAllocation failing(1);
    EXPECT_EQ(Change(number, VT_BSTR), E_OUTOFMEMORY);
    EXPECT_TRUE(number.vt == VT_I8 && number.llVal == 5);
}

TEST(VariantChangeType, IntegersAreCheckedForRange) {
    const struct {
        VARTYPE type;
        LONGLONG fits, overflows;
    } cases[] = {{VT_I1, 127, 128},
                 {VT_I1, -128, -129},
                 {VT_UI1, 255, 256},
                 {VT_UI1, 0, -1},
                 {VT_I2, 32767, 32768},
                 {VT_UI2, 65535, 65536},
                 {VT_I4, INT_MAX, INT_MAX + 1LL},
                 {VT_INT, INT_MIN, INT_MIN - 1LL},
                 {VT_UI4, UINT32_MAX, 1LL << 32},
                 {VT_UINT, 0, -1},
                 {VT_UI8, LLONG_MAX, -1}};
    for (const auto& [type, fits, overflows] : cases) {
        SCOPED_TRACE(std::to_string(fits) + " as " + std::to_string(type));
        VARIANT value = Integer(fits);
        EXPECT_EQ(Change(value, type), S_OK);
        EXPECT_EQ(value.vt, type);
        EXPECT_EQ(Change(value, VT_I8), S_OK);
        EXPECT_EQ(value.llVal, fits);
        value = Integer(overflows);
        EXPECT_EQ(Change(value, type), DISP_E_OVERFLOW);
        EXPECT_TRUE(value.vt == VT_I8 && value.llVal == overflows) << "left as it was";
    }
    VARIANT large = Integer(-1, VT_UI8);
    EXPECT_EQ(Change(large, VT_I8), DISP_E_OVERFLOW);
    EXPECT_EQ(AsText(large), L"18446744073709551615");
}

TEST(VariantChangeType, RealsRoundHalvesToEven) {
    const std::pair<double, LONG> rounded[] = {{0.5, 0},   {1.5, 2},   {2.5, 2},    {-0.5, 0},
                                               {-1.5, -2}, {-2.5, -2}, {2.4999, 2}, {-2.51, -3}};
    for (const auto& [real, integer] : rounded) {
        VARIANT value = Real(real);
        EXPECT_EQ(Change(value, VT_I4), S_OK) << real;
        EXPECT_EQ(value.lVal, integer) << real;
    }
    // The last value that fits, and the first that does not.
    const struct {
        VARTYPE type;
        double fits, overflows;
    } edges[] = {{VT_I4, INT_MAX + 0.4, INT_MAX + 0.5},
                 {VT_I4, INT_MIN - 0.5, INT_MIN - 0.6},
                 {VT_UI1, -0.5, -0.6},
                 {VT_I8, -std::ldexp(1.0, 63), std::ldexp(1.0, 63)},
                 {VT_UI8, 0.0, std::ldexp(1.0, 64)},
                 {VT_R4, FLT_MAX, DBL_MAX},
                 {VT_DATE, 2958465.9, 2958466.0},
                 {VT_DATE, -657434.9, -657435.0},
                 {VT_DATE, 0.0, NAN},
                 {VT_I4, 0.0, NAN}};
    for (const auto& [type, fits, overflows] : edges) {
        VARIANT value = Real(fits);
        EXPECT_EQ(Change(value, type), S_OK) << fits << " as " << type;
        value = Real(overflows);
        EXPECT_EQ(Change(value, type), DISP_E_OVERFLOW) << overflows << " as " << type;
    }
}

TEST(VariantChangeType, BooleansAreAllBitsOrNone) {
    VARIANT value = Boolean(true);
    EXPECT_EQ(Change(value, VT_I4), S_OK);
    EXPECT_EQ(value.lVal, -1);
    value = Boolean(true);
    EXPECT_EQ(Change(value, VT_UI1), S_OK);
    EXPECT_EQ(value.bVal, 255);
    for (const VARIANT& truth :
         {Real(0.25), Text(L"True"), Text(L"TRUE"), Text(L" true "), Text(L"-1"), Text(L"0.5")}) {
        value = truth;
        EXPECT_EQ(Change(value, VT_BOOL), S_OK);
        EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    }
    for (const VARIANT& untruth : {OfType(VT_EMPTY), Text(L"false"), Text(L"0")}) {
        value = untruth;
        EXPECT_EQ(Change(value, VT_BOOL), S_OK);
        EXPECT_EQ(value.boolVal, VARIANT_FALSE);
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
    const std::pair<const wchar_t*, LONGLONG> numbers[] = {{L"42", 42},
                                                           {L" -42\t", -42},
                                                           {L"+7", 7},
                                                           {L"2.5", 2},
                                                           {L"1e3", 1000},
                                                           {L"9223372036854775807", LLONG_MAX},
                                                           {L"-9223372036854775808", LLONG_MIN}};
    for (const auto& [text, number] : numbers) {
        VARIANT value = Text(text);
        ASSERT_EQ(Change(value, VT_I8), S_OK) << number;
        EXPECT_EQ(value.llVal, number);
    }
    VARIANT largest = Text(L"18446744073709551615");
    EXPECT_EQ(Change(largest, VT_UI8), S_OK);
    EXPECT_EQ(largest.ullVal, ULLONG_MAX);

    // The longest text that is read is a number far beyond a real; the next is a
    // digit longer.
    const struct {
        std::wstring text;
        VARTYPE type;
        HRESULT status;
    } refused[] = {{L"9223372036854775808", VT_I8, DISP_E_OVERFLOW},
                   {L"18446744073709551616", VT_UI8, DISP_E_OVERFLOW},
                   {L"1e999", VT_R8, DISP_E_OVERFLOW},
                   {std::wstring(1100, L'1'), VT_R8, DISP_E_OVERFLOW},
                   {std::wstring(1101, L'1'), VT_R8, DISP_E_TYPEMISMATCH},
                   {L"", VT_I8, DISP_E_TYPEMISMATCH},
                   {L"+-1", VT_I8, DISP_E_TYPEMISMATCH},
                   {L"1 2", VT_I8, DISP_E_TYPEMISMATCH},
                   {L"12x", VT_I8, DISP_E_TYPEMISMATCH},
                   {L"nan", VT_R8, DISP_E_TYPEMISMATCH},
                   {L"\x0661", VT_I8, DISP_E_TYPEMISMATCH},
                   {std::wstring(L"1\0", 2), VT_I4, DISP_E_TYPEMISMATCH}};
    for (const auto& [text, type, status] : refused) {
        SCOPED_TRACE(::testing::PrintToString(text));
        VARIANT value = Text(text);
        EXPECT_EQ(Change(value, type), status);
        EXPECT_EQ(Units(value.bstrVal), text) << "a failure leaves the value";
        VariantClear(&value);
    }
}

TEST(VariantChangeType, RealsBecomeTheShortestTextThatReadsBack) {
    const std::pair<double, const wchar_t*> texts[] = {
        {0.1, L"0.1"}, {1000000.0, L"1000000"}, {-2.5, L"-2.5"}, {1e20, L"1E+20"}, {0.0, L"0"}};
    for (const auto& [real, text] : texts)
        EXPECT_EQ(AsText(Real(real)), text);
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
    EXPECT_EQ(Change(value, VT_NULL), S_OK);
    const std::pair<VARTYPE, VARTYPE> mismatches[] = {{VT_NULL, VT_I4},      {VT_NULL, VT_BSTR},
                                                      {VT_ERROR, VT_I4},     {VT_DATE, VT_BSTR},
                                                      {VT_DATE, VT_UNKNOWN}, {VT_DATE, VT_ARRAY | VT_I4}};
    for (const auto& [from, to] : mismatches) {
        value = Integer(2, from);
        EXPECT_EQ(Change(value, to), DISP_E_TYPEMISMATCH) << from << " as " << to;
        EXPECT_EQ(value.vt, from);
    }
    EXPECT_EQ(Change(value, VT_VOID), DISP_E_BADVARTYPE);
}

}  // namespace
