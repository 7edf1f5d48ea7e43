// The values of properties on their way into the service and back.
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::HasSubstr;

constexpr const char* kSchema = R"(
class Inner { string A; uint32 N; };
class Wide {
    [key] string ID;
    sint8 S8; uint8 U8; sint16 S16; uint16 U16; sint32 S32; uint32 U32; sint64 S64; uint64 U64;
    real32 R32; real64 R64; char16 C16; boolean B; string S = "default"; datetime D; Wide ref R;
    object O; Inner I;
    sint8 S8s[]; uint8 U8s[]; sint16 S16s[]; uint16 U16s[]; sint32 S32s[]; uint32 U32s[]; sint64 S64s[];
    uint64 U64s[]; real32 R32s[]; real64 R64s[]; char16 C16s[]; boolean Bs[]; string Ss[]; datetime Ds[];
    Wide ref Rs[]; object Os[]; Inner Is[]; uint32 Three[3];
};)";

_variant_t Signed(long long value) {
    return {value};
}

template <typename Number>
std::vector<_variant_t> Variants(std::initializer_list<Number> numbers) {
    std::vector<_variant_t> variants;
    for (const Number number : numbers)
        variants.emplace_back(number);
    return variants;
}

std::vector<_variant_t> Booleans() {
    return {_variant_t(true), _variant_t(false)};
}

struct Case {
    const wchar_t* property;
    _variant_t given;
    std::string comes_back;
};

class ValueTest : public ServiceClient {
 protected:
    ValueTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    // Put, read back at once, stored and read back from there.
    void Check(const std::vector<Case>& cases) {
        for (const Case& each : cases) {
            const auto object = Spawn(L"Wide");
            ASSERT_CODE(S_OK, PutValue(object, L"ID", L"k"));
            ASSERT_CODE(S_OK, PutValue(object, each.property, each.given))
                << Narrow(std::wstring_view(each.property)) << " " << ::Show(each.given) << ": "
                << TakeReason();
            EXPECT_EQ(Show(object, each.property), each.comes_back);
            ASSERT_CODE(S_OK, PutInstance(object));
            EXPECT_EQ(Show(Get(L"Wide.ID=\"k\""), each.property), each.comes_back);
        }
    }
};

TEST_F(ValueTest, ScalarsTravelAsTheirPublishedVariant) {
    const float nan32 = std::numeric_limits<float>::quiet_NaN();
    const double nan64 = std::numeric_limits<double>::quiet_NaN();
    Check({
        {L"S8", short{-128}, "I2 -128"},
        {L"S8", short{127}, "I2 127"},
        {L"U8", BYTE{255}, "UI1 255"},
        {L"S16", short{-32768}, "I2 -32768"},
        {L"U16", 65535L, "I4 65535"},
        {L"S32", static_cast<long>(INT32_MIN), "I4 -2147483648"},
        {L"S32", 0L, "I4 0"},
        {L"U32", static_cast<long>(INT32_MAX), "I4 2147483647"},
        {L"U32", -1L, "I4 -1"},  // the upper half, as it comes back
        {L"C16", short{65}, "I2 65"},
        {L"C16", short{-1}, "I2 -1"},
        {L"S64", L"-9223372036854775808", "BSTR -9223372036854775808"},
        {L"S64", L"9223372036854775807", "BSTR 9223372036854775807"},
        {L"U64", L"18446744073709551615", "BSTR 18446744073709551615"},
        {L"R32", 0.1F, "R4 " + ShowReal<float, uint32_t>(0.1F)},
        {L"R32", nan32, "R4 " + ShowReal<float, uint32_t>(nan32)},
        {L"R32", -std::numeric_limits<float>::infinity(), "R4 -inf/FF800000"},
        {L"R64", -0.0, "R8 -0/8000000000000000"},
        {L"R64", nan64, "R8 " + ShowReal<double, uint64_t>(nan64)},
        {L"R64", 5e-324, "R8 " + ShowReal<double, uint64_t>(5e-324)},
        {L"B", true, "BOOL -1"},
        {L"B", false, "BOOL 0"},
        {L"S", L"", "BSTR "},
        {L"S", Text({}), "BSTR "},
        {L"S", Text(std::wstring_view(L"a\0b\0", 4)), "BSTR a<0>b<0>"},
        {L"S", L"\x1F600\xE4\n\"\\", "BSTR <1F600><E4><A>\"\\"},
        {L"S", Null(), "NULL"},
        {L"D", L"20240131235958.000000+060", "BSTR 20240131235958.000000+060"},
        {L"R", L"Wide.ID=\"other\"", "BSTR Wide.ID=\"other\""},
        {L"U32", Null(), "NULL"},
    });
    // A string without a string is an empty one, not null.
    Check({{L"S", _variant_t(static_cast<const wchar_t*>(nullptr)), "BSTR "}});
}

TEST_F(ValueTest, WhatFitsWithoutLossIsTaken) {
    Check({
        {L"U32", 4294967295.0, "I4 -1"},
        {L"U32", 4294967295UL, "I4 -1"},
        {L"U32", Signed(4294967295), "I4 -1"},
        {L"U32", L"4294967295", "I4 -1"},
        {L"U32", 30, "I4 30"},
        {L"S8", -128L, "I2 -128"},
        {L"S8", L"-128", "I2 -128"},
        {L"U8", 255, "UI1 255"},
        {L"U16", 65535.0, "I4 65535"},
        {L"C16", 65535L, "I2 -1"},
        {L"S64", -5L, "BSTR -5"},
        {L"S64", L"-0007", "BSTR -7"},
        {L"U64", 18446744073709551615ULL, "BSTR 18446744073709551615"},
        {L"U64", 9007199254740992.0, "BSTR 9007199254740992"},
        {L"R32", 0.5, "R4 " + ShowReal<float, uint32_t>(0.5F)},
        {L"R32", 16777216L, "R4 " + ShowReal<float, uint32_t>(16777216.0F)},
        {L"R64", 3, "R8 " + ShowReal<double, uint64_t>(3.0)},
        {L"R64", 1.5F, "R8 " + ShowReal<double, uint64_t>(1.5)},
        {L"B", 1L, "BOOL -1"},
        {L"B", -1L, "BOOL -1"},
        {L"B", 0L, "BOOL 0"},
        {L"B", L"True", "BOOL -1"},
    });
}

TEST_F(ValueTest, ArraysTravelAsTheirPublishedVariant) {
    Check({
        {L"S8s", ArrayOf(VT_I2, Variants<short>({-128, 127})), "I2[] -128|127"},
        {L"U8s", ArrayOf(VT_UI1, Variants<BYTE>({0, 255})), "UI1[] 0|255"},
        {L"S16s", ArrayOf(VT_I2, Variants<short>({-32768, 32767})), "I2[] -32768|32767"},
        {L"U16s", ArrayOf(VT_I4, Variants<long>({0, 65535})), "I4[] 0|65535"},
        {L"S32s", ArrayOf(VT_I4, Variants<long>({INT32_MIN, INT32_MAX})), "I4[] -2147483648|2147483647"},
        {L"U32s", ArrayOf(VT_I4, Variants<long>({0, -1})), "I4[] 0|-1"},
        {L"U32s", ArrayOf(VT_R8, Variants<double>({4294967295.0})), "I4[] -1"},
        {L"C16s", ArrayOf(VT_I2, Variants<short>({-1, 65})), "I2[] -1|65"},
        {L"S64s", ArrayOf(VT_BSTR, Variants<const wchar_t*>({L"-9223372036854775808", L"0"})),
         "BSTR[] -9223372036854775808|0"},
        {L"U64s", ArrayOf(VT_BSTR, Variants<const wchar_t*>({L"18446744073709551615"})),
         "BSTR[] 18446744073709551615"},
        {L"R32s", ArrayOf(VT_R4, Variants<float>({0.5F, -0.0F})), "R4[] 0.5/3F000000|-0/80000000"},
        {L"R64s", ArrayOf(VT_R8, Variants<double>({0.5})), "R8[] 0.5/3FE0000000000000"},
        {L"Bs", ArrayOf(VT_BOOL, Booleans()), "BOOL[] -1|0"},
        {L"Ss", ArrayOf(VT_BSTR, {Text(L"a"), Null(), Text(L""), Text(std::wstring_view(L"\0", 1))}),
         "BSTR[] a|(null)||<0>"},
        {L"Ds", ArrayOf(VT_BSTR, {Text(L"20240131235958.000000+060")}), "BSTR[] 20240131235958.000000+060"},
        {L"Rs", ArrayOf(VT_BSTR, {Text(L"Wide.ID=\"a\"")}), "BSTR[] Wide.ID=\"a\""},
        {L"Ss", ArrayOf(VT_VARIANT, {Text(L"a"), Null(), Text(L"b")}), "BSTR[] a|(null)|b"},
        {L"U32s", ArrayOf(VT_VARIANT, {_variant_t(1L), _variant_t(short{2}), _variant_t(3.0), Text(L"4")}),
         "I4[] 1|2|3|4"},
        {L"Three", ArrayOf(VT_I4, Variants<long>({1, 2, 3})), "I4[] 1|2|3"},
        {L"Ss", Null(), "NULL"},
    });
    const std::vector<std::tuple<const wchar_t*, VARTYPE, const char*>> empty = {
        {L"S8s", VT_I2, "I2[]"},          {L"U8s", VT_UI1, "UI1[]"}, {L"U32s", VT_I4, "I4[]"},
        {L"S64s", VT_BSTR, "BSTR[]"},     {L"R32s", VT_R4, "R4[]"},  {L"Bs", VT_BOOL, "BOOL[]"},
        {L"Os", VT_UNKNOWN, "UNKNOWN[]"}, {L"Ss", VT_BSTR, "BSTR[]"}};
    for (const auto& [property, type, shown] : empty) {
        Check({{property, ArrayOf(type, {}), shown}});
        Check({{property, ArrayOf(VT_VARIANT, {}), shown}});
    }
}

// An array need not begin at 0.
TEST_F(ValueTest, ArraysOfAnyLowerBoundAreTaken) {
    _variant_t given;
    given.parray = SafeArrayCreateVector(VT_I4, -3, 2);
    given.vt = VT_ARRAY | VT_I4;
    for (LONG i = -3; i < -1; ++i)
        SafeArrayPutElement(given.parray, &i, &i);
    Check({{L"S32s", given, "I4[] -3|-2"}});

    _variant_t plane;
    SAFEARRAYBOUND bounds[2] = {{2, 0}, {2, 0}};
    plane.parray = SafeArrayCreate(VT_I4, 2, bounds);
    plane.vt = VT_ARRAY | VT_I4;
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(Spawn(L"Wide"), L"S32s", plane));
}

TEST_F(ValueTest, WhatDoesNotFitIsRefusedAndChangesNothing) {
    _variant_t empty;
    _variant_t error;
    error.vt = VT_ERROR;
    _variant_t date(45000.0, VT_DATE);
    const std::vector<std::tuple<const wchar_t*, _variant_t, HRESULT>> cases = {
        {L"S8", short{128}, WBEM_E_TYPE_MISMATCH},
        {L"S8", short{-129}, WBEM_E_TYPE_MISMATCH},
        {L"U8", 256L, WBEM_E_TYPE_MISMATCH},
        {L"U8", -1L, WBEM_E_TYPE_MISMATCH},
        {L"U16", -1L, WBEM_E_TYPE_MISMATCH},
        {L"S32", 2147483648.0, WBEM_E_TYPE_MISMATCH},
        {L"U32", 4294967296.0, WBEM_E_TYPE_MISMATCH},
        {L"U32", 1.5, WBEM_E_TYPE_MISMATCH},
        {L"U32", -1.0, WBEM_E_TYPE_MISMATCH},
        {L"U32", std::nan(""), WBEM_E_TYPE_MISMATCH},
        {L"U32", L"", WBEM_E_TYPE_MISMATCH},
        {L"U32", L"1 ", WBEM_E_TYPE_MISMATCH},
        {L"U32", L"0x10", WBEM_E_TYPE_MISMATCH},
        {L"U32", true, WBEM_E_TYPE_MISMATCH},
        {L"S64", L"9223372036854775808", WBEM_E_TYPE_MISMATCH},
        {L"S64", 9223372036854775808.0, WBEM_E_TYPE_MISMATCH},
        {L"U64", L"18446744073709551616", WBEM_E_TYPE_MISMATCH},
        {L"U64", L"-1", WBEM_E_TYPE_MISMATCH},
        {L"R32", 0.1, WBEM_E_TYPE_MISMATCH},
        {L"R32", 16777217L, WBEM_E_TYPE_MISMATCH},
        {L"R64", 9007199254740993LL, WBEM_E_TYPE_MISMATCH},
        {L"B", 2L, WBEM_E_TYPE_MISMATCH},
        {L"B", L"yes", WBEM_E_TYPE_MISMATCH},
        {L"S", 5L, WBEM_E_TYPE_MISMATCH},
        {L"S", L"\xD800", WBEM_E_INVALID_PARAMETER},
        {L"S", L"a\x110000", WBEM_E_INVALID_PARAMETER},
        {L"D", L"yesterday", WBEM_E_TYPE_MISMATCH},
        {L"D", date, WBEM_E_TYPE_MISMATCH},
        {L"S", empty, WBEM_E_TYPE_MISMATCH},
        {L"S", error, WBEM_E_TYPE_MISMATCH},
        {L"S", ArrayOf(VT_BSTR, {}), WBEM_E_TYPE_MISMATCH},
        {L"Ss", L"a", WBEM_E_TYPE_MISMATCH},
        {L"Ss", ArrayOf(VT_BSTR, {Text(L"\xDFFF")}), WBEM_E_INVALID_PARAMETER},
        {L"U8s", ArrayOf(VT_I4, Variants<long>({1, 256})), WBEM_E_TYPE_MISMATCH},
        {L"U32s", ArrayOf(VT_VARIANT, {_variant_t(1L), Null()}), WBEM_E_TYPE_MISMATCH},
        {L"U32s", ArrayOf(VT_VARIANT, {empty}), WBEM_E_TYPE_MISMATCH},
        {L"Ss", ArrayOf(VT_VARIANT, {ArrayOf(VT_BSTR, {Text(L"a")})}), WBEM_E_TYPE_MISMATCH},
        {L"Three", ArrayOf(VT_I4, Variants<long>({1, 2, 3, 4})), WBEM_E_TYPE_MISMATCH},
        {L"O", L"text", WBEM_E_TYPE_MISMATCH},
    };
    const auto object = Spawn(L"Wide");
    for (const auto& [property, value, code] : cases) {
        const std::string before = Show(object, property);
        EXPECT_CODE(code, PutValue(object, property, value))
            << Narrow(std::wstring_view(property)) << " " << ::Show(value);
        EXPECT_THAT(TakeReason(), HasSubstr("Wide." + Narrow(std::wstring_view(property))));
        EXPECT_EQ(Show(object, property), before);
    }
}

TEST_F(ValueTest, ANullPointerIsNullAndNeverSetIsTheDefault) {
    const auto object = Spawn(L"Wide");
    EXPECT_EQ(Show(object, L"S"), "BSTR default");
    EXPECT_CODE(S_OK, object->Put(L"S", 0, nullptr, 0));
    EXPECT_EQ(Show(object, L"S"), "NULL");
    EXPECT_CODE(S_OK, object->Delete(L"s"));
    EXPECT_EQ(Show(object, L"S"), "BSTR default");
    EXPECT_EQ(Show(object, L"Ss"), "NULL");
}

TEST_F(ValueTest, EmbeddedObjectsAreCopied) {
    const auto inner = Spawn(L"Inner");
    ASSERT_CODE(S_OK, PutValue(inner, L"A", L"first"));
    const auto outer = Spawn(L"Wide");
    ASSERT_CODE(S_OK, PutValue(outer, L"ID", L"k"));
    ASSERT_CODE(S_OK, PutValue(outer, L"I", _variant_t(inner.p)));
    ASSERT_CODE(S_OK, PutValue(outer, L"O", _variant_t(inner.p)));
    ASSERT_CODE(S_OK, PutValue(outer, L"Is",
                               ArrayOf(VT_UNKNOWN, {_variant_t(inner.p), Null(), _variant_t(inner.p)})));
    ASSERT_CODE(S_OK, PutValue(inner, L"A", L"changed later"));
    ASSERT_CODE(S_OK, PutInstance(outer));

    const auto stored = Get(L"Wide.ID=\"k\"");
    EXPECT_EQ(Show(stored, L"Is"), "UNKNOWN[] object|(null)|object");
    for (const wchar_t* property : {L"I", L"O"}) {
        const _variant_t held = GetValue(stored, property);
        ASSERT_EQ(held.vt, VT_UNKNOWN);
        ObjectPointer content;
        ASSERT_CODE(S_OK, held.punkVal->QueryInterface(IID_PPV_ARGS(&content)));
        EXPECT_EQ(Show(content, L"A"), "BSTR first");
        EXPECT_EQ(Show(content, L"__CLASS"), "BSTR Inner");
        EXPECT_EQ(Show(content, L"__GENUS"), "I4 2");
        // What came out is a copy, too.
        ASSERT_CODE(S_OK, PutValue(content, L"A", L"aside"));
    }
    ASSERT_CODE(S_OK, PutInstance(stored));
    const _variant_t again = GetValue(Get(L"Wide.ID=\"k\""), L"I");
    ObjectPointer content;
    ASSERT_CODE(S_OK, again.punkVal->QueryInterface(IID_PPV_ARGS(&content)));
    EXPECT_EQ(Show(content, L"A"), "BSTR first");

    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(outer, L"I", _variant_t(outer.p)));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(outer, L"I", _variant_t(Get(L"Inner").p)));
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(outer, L"O", _variant_t(static_cast<IUnknown*>(services.p))));
    EXPECT_CODE(S_OK, PutValue(outer, L"I", _variant_t(static_cast<IUnknown*>(nullptr))));
    EXPECT_EQ(Show(outer, L"I"), "NULL");
    // An object within itself is a copy of what it was.
    EXPECT_CODE(S_OK, PutValue(outer, L"O", _variant_t(outer.p)));
    EXPECT_CODE(S_OK, PutInstance(outer));
}

TEST_F(ValueTest, ValuesByReferenceAreTaken) {
    LONG number = 5;
    VARIANT by_reference{};
    by_reference.vt = VT_BYREF | VT_I4;
    by_reference.plVal = &number;
    const auto object = Spawn(L"Wide");
    EXPECT_CODE(S_OK, object->Put(L"U32", 0, &by_reference, 0));
    EXPECT_EQ(Show(object, L"U32"), "I4 5");
    _variant_t text = Text(L"within");
    VARIANT variant_by_reference{};
    variant_by_reference.vt = VT_BYREF | VT_VARIANT;
    variant_by_reference.pvarVal = &text;
    EXPECT_CODE(S_OK, object->Put(L"S", 0, &variant_by_reference, 0));
    EXPECT_EQ(Show(object, L"S"), "BSTR within");
}

}  // namespace
