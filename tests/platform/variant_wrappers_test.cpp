#include <atomic>
#include <climits>
#include <utility>
#include <vector>

#include <atlbase.h>
#include <comdef.h>
#include <gtest/gtest.h>

#include "tests/platform/automation_values.h"

namespace {

constexpr long BEYOND_32_BITS = 5'000'000'000;

TEST(VariantWrapper, ConstructorsChooseTheType) {
    const wchar_t* const no_text = nullptr;
    const _variant_t made[] = {
        static_cast<short>(1), 1, 1L, 1LL, 1u, 1ul, 1ull, BYTE{1}, 'a', 1.0f, 1.0, no_text};
    std::vector<VARTYPE> types;
    for (const _variant_t& value : made)
        types.push_back(value.vt);
    EXPECT_EQ(types, (std::vector<VARTYPE>{VT_I2, VT_INT, VT_I4, VT_I8, VT_UINT, VT_UI4, VT_UI8, VT_UI1,
                                           VT_I1, VT_R4, VT_R8, VT_BSTR}));
    EXPECT_EQ(_variant_t(1.0, VT_DATE).vt, VT_DATE);
    EXPECT_EQ(_variant_t(true).boolVal, VARIANT_TRUE);
    EXPECT_EQ(_variant_t(static_cast<short>(7), VT_BOOL).boolVal, VARIANT_TRUE);
    EXPECT_EQ(CComVariant(true).boolVal, VARIANT_TRUE);
    EXPECT_TRUE(CComVariant(1).vt == VT_I4 && CComVariant(1L).vt == VT_I4 && CComVariant(1u).vt == VT_UI4);

    EXPECT_EQ(ComErrorOf([] { _variant_t(1L, VT_I2); }), E_INVALIDARG);
    EXPECT_EQ(ComErrorOf([] { _variant_t(static_cast<short>(1), VT_I4); }), E_INVALIDARG);
    EXPECT_EQ(ComErrorOf([] { _variant_t(1.0, VT_R4); }), E_INVALIDARG);
    EXPECT_EQ(ComErrorOf([] { _variant_t(static_cast<const VARIANT*>(nullptr)); }), E_POINTER);
    EXPECT_EQ(AtlErrorOf([] { CComVariant(1, VT_I2); }), E_INVALIDARG);
    EXPECT_EQ(AtlErrorOf([] { CComVariant(1L, VT_BOOL); }), E_INVALIDARG);
    EXPECT_EQ(AtlErrorOf([] { CComVariant(static_cast<const SAFEARRAY*>(nullptr)); }), E_INVALIDARG);
}

TEST(VariantWrapper, ALongIsNeverCut) {
    const _variant_t large(BEYOND_32_BITS);
    EXPECT_EQ(large.vt, VT_I8);
    EXPECT_EQ(static_cast<long>(large), BEYOND_32_BITS);
    EXPECT_EQ(_variant_t(static_cast<long>(INT_MIN)).lVal, INT_MIN);
    EXPECT_EQ(_variant_t(INT_MIN - 1L).vt, VT_I8);
    EXPECT_EQ(_variant_t(static_cast<unsigned long>(BEYOND_32_BITS)).vt, VT_UI8);
    EXPECT_EQ(CComVariant(BEYOND_32_BITS).llVal, BEYOND_32_BITS);

    EXPECT_EQ(_variant_t(0x80004005L, VT_ERROR).scode, E_FAIL);
    EXPECT_EQ(ComErrorOf([] { _variant_t(BEYOND_32_BITS, VT_ERROR); }), E_INVALIDARG);
    EXPECT_EQ(_variant_t(1L << 40, VT_BOOL).boolVal, VARIANT_TRUE);
}

TEST(VariantWrapper, AssignmentKeepsKindredTypes) {
    _variant_t value(false);
    value = 5L;
    EXPECT_EQ(value.vt, VT_BOOL);
    EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    value = _variant_t(0.0, VT_DATE);
    value = 2.5;
    EXPECT_EQ(value.vt, VT_DATE);
    value = L"text";
    value = 5L;
    EXPECT_EQ(value.vt, VT_I4);
    EXPECT_EQ(ComErrorOf([&] { value = static_cast<const VARIANT*>(nullptr); }), E_POINTER);
}

TEST(VariantWrapper, OwnsWhatItHolds) {
    std::atomic<long> live{0};
    IUnknown* const object = new CountedObject(live);
    object->AddRef();
    {
        _variant_t value(object);
        value = object;
        _variant_t copy(value);
        _variant_t moved(std::move(copy));
        EXPECT_EQ(copy.vt, VT_EMPTY);
        object->AddRef();
        const _variant_t taken(object, false);
        EXPECT_TRUE(taken == moved);
        value = std::move(moved);
        value = *&value;

        VARIANT plain = value.Detach();
        EXPECT_EQ(value.vt, VT_EMPTY);
        _variant_t attached(plain, false);
        EXPECT_EQ(plain.vt, VT_EMPTY);
        value.Attach(attached);
        CComVariant other(value);
        EXPECT_EQ(other.Detach(&plain), S_OK);
        EXPECT_EQ(other.Attach(&plain), S_OK);
        EXPECT_EQ(other.punkVal, object);
    }
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(live, 0);
}

TEST(VariantWrapper, ComparesTypeAndValue) {
    const _variant_t text(_bstr_t(MakeText(WITH_NULL), false));
    EXPECT_TRUE(_variant_t() == _variant_t() && _variant_t(1L) == _variant_t(1L) && text == _variant_t(text));
    EXPECT_TRUE(_variant_t(static_cast<const wchar_t*>(nullptr)) == _variant_t(L""));
    EXPECT_TRUE(_variant_t(1L) != _variant_t(1) && _variant_t(1LL << 32) != _variant_t(0LL));
    EXPECT_TRUE(text != _variant_t(L"a"));
    _variant_t array;
    array.vt = VT_ARRAY | VT_I4;
    array.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    EXPECT_EQ(ComErrorOf([&] { (void)(array == _variant_t(array)); }), E_INVALIDARG);
}

TEST(VariantWrapper, ConvertsOrThrows) {
    const _variant_t text(L"300");
    EXPECT_EQ(static_cast<int>(text), 300);
    EXPECT_EQ(static_cast<double>(text), 300.0);
    EXPECT_TRUE(static_cast<bool>(text));
    EXPECT_EQ(ComErrorOf([&] { (void)static_cast<BYTE>(text); }), DISP_E_OVERFLOW);
    _variant_t value;
    value.ChangeType(VT_I8, &text);
    EXPECT_EQ(value.llVal, 300);
    EXPECT_EQ(ComErrorOf([&] { value.ChangeType(VT_UNKNOWN); }), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(value.llVal, 300);
}

TEST(AtlVariant, AssignmentReplacesTypeAndValue) {
    CComVariant value(L"text");
    value = 5;
    EXPECT_EQ(value.vt, VT_I4);
    value = CComBSTR(3, WITH_NULL.data());
    EXPECT_EQ(Units(value.bstrVal), WITH_NULL);
    const CComVariant copy(value);
    EXPECT_NE(copy.bstrVal, value.bstrVal);
    value = _variant_t(2.5);
    EXPECT_EQ(value.ChangeType(VT_I4), S_OK);
    EXPECT_EQ(value.lVal, 2);
}

}  // namespace
