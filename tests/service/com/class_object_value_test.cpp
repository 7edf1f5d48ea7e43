// The values of properties on their way into the service and back.
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
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

template <typename Number>
_variant_t Numbers(VARTYPE type, std::initializer_list<Number> numbers) {
    return ArrayOf(type, std::vector<_variant_t>(numbers.begin(), numbers.end()));
}

_variant_t Texts(const std::vector<_variant_t>& texts) {
    return ArrayOf(VT_BSTR, texts);
}

class ValueTest : public ServiceClient {
 protected:
    ValueTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    // Put, read back at once, stored and read back from there: as `comes_back`, or just as it was given.
    void Check(const wchar_t* property, const std::vector<_variant_t>& values, std::string comes_back = {}) {
        for (const _variant_t& given : values) {
            const std::string expected = comes_back.empty() ? ::Show(given) : comes_back;
            const auto object = Spawn(L"Wide");
            ASSERT_CODE(S_OK, PutValue(object, L"ID", L"k"));
            ASSERT_CODE(S_OK, PutValue(object, property, given))
                << Narrow(std::wstring_view(property)) << " " << ::Show(given) << ": " << TakeReason();
            EXPECT_EQ(Show(object, property), expected);
            ASSERT_CODE(S_OK, PutInstance(object));
            EXPECT_EQ(Show(Get(L"Wide.ID=\"k\""), property), expected);
        }
    }
};

TEST_F(ValueTest, ScalarsTravelAsTheirPublishedVariant) {
    Check(L"S8", {short{-128}, short{127}});
    Check(L"U8", {BYTE{255}});
    Check(L"S16", {short{-32768}});
    Check(L"U16", {65535L});
    Check(L"S32", {static_cast<long>(INT32_MIN), 0L});
    Check(L"U32", {static_cast<long>(INT32_MAX), -1L, Null()});  // -1 is what the upper half comes back as
    Check(L"C16", {short{65}, short{-1}});
    Check(L"S64", {L"-9223372036854775808", L"9223372036854775807"});
    Check(L"U64", {L"18446744073709551615"});
    Check(L"R32", {0.1F, std::nanf(""), -HUGE_VALF});
    Check(L"R64", {-0.0, std::nan(""), 5e-324});
    Check(L"B", {true, false});
    Check(L"S", {L"", Text({}), Text({L"a\0b\0", 4}), L"\x1F600\xE4\n\"\\", Null()});
    Check(L"D", {L"20240131235958.000000+060"});
    Check(L"R", {L"Wide.ID=\"other\""});
    // A string without a string is an empty one, not null.
    Check(L"S", {_variant_t(static_cast<const wchar_t*>(nullptr))}, "BSTR ");
}

TEST_F(ValueTest, WhatFitsWithoutLossIsTaken) {
    Check(L"U32", {4294967295.0, 4294967295UL, 4294967295LL, L"4294967295"}, "I4 -1");
    Check(L"U32", {30}, "I4 30");
    Check(L"S8", {-128L, L"-128"}, "I2 -128");
    Check(L"U8", {255}, "UI1 255");
    Check(L"U16", {65535.0}, "I4 65535");
    Check(L"C16", {65535L}, "I2 -1");
    Check(L"S64", {-7L, L"-0007"}, "BSTR -7");
    Check(L"U64", {18446744073709551615ULL}, "BSTR 18446744073709551615");
    Check(L"U64", {9007199254740992.0}, "BSTR 9007199254740992");
    Check(L"R32", {0.5}, "R4 0.5/3F000000");
    Check(L"R32", {16777216L}, "R4 1.67772e+07/4B800000");
    Check(L"R64", {3}, "R8 3/4008000000000000");
    Check(L"R64", {1.5F}, "R8 1.5/3FF8000000000000");
    Check(L"B", {1L, -1L, L"True"}, "BOOL -1");
    Check(L"B", {0L}, "BOOL 0");
}

TEST_F(ValueTest, ArraysTravelAsTheirPublishedVariant) {
    Check(L"S8s", {Numbers<short>(VT_I2, {-128, 127})});
    Check(L"U8s", {Numbers<BYTE>(VT_UI1, {0, 255})});
    Check(L"S16s", {Numbers<short>(VT_I2, {-32768, 32767})});
    Check(L"U16s", {Numbers<long>(VT_I4, {0, 65535})});
    Check(L"S32s", {Numbers<long>(VT_I4, {INT32_MIN, INT32_MAX})});
    Check(L"U32s", {Numbers<long>(VT_I4, {0, -1})});
    Check(L"C16s", {Numbers<short>(VT_I2, {-1, 65})});
    Check(L"S64s", {Texts({L"-9223372036854775808", L"0"})});
    Check(L"U64s", {Texts({L"18446744073709551615"})});
    Check(L"R32s", {Numbers<float>(VT_R4, {0.5F, -0.0F})});
    Check(L"R64s", {Numbers<double>(VT_R8, {0.5})});
    Check(L"Bs", {ArrayOf(VT_BOOL, {true, false})});
    Check(L"Ss", {Texts({L"a", Null(), L"", Text({L"\0", 1})}), Null()});
    Check(L"Ds", {Texts({L"20240131235958.000000+060"})});
    Check(L"Rs", {Texts({L"Wide.ID=\"a\""})});
    Check(L"Three", {Numbers<long>(VT_I4, {1, 2, 3})});
    Check(L"U32s", {Numbers<double>(VT_R8, {4294967295.0})}, "I4[] -1");
    Check(L"Ss", {ArrayOf(VT_VARIANT, {L"a", Null(), L"b"})}, "BSTR[] a|(null)|b");
    Check(L"U32s", {ArrayOf(VT_VARIANT, {1L, short{2}, 3.0, L"4"})}, "I4[] 1|2|3|4");
    const std::pair<const wchar_t*, VARTYPE> empty[] = {
        {L"S8s", VT_I2},  {L"U8s", VT_UI1}, {L"U32s", VT_I4},    {L"S64s", VT_BSTR},
        {L"R32s", VT_R4}, {L"Bs", VT_BOOL}, {L"Os", VT_UNKNOWN}, {L"Ss", VT_BSTR}};
    for (const auto& [property, type] : empty)
        Check(property, {ArrayOf(type, {}), ArrayOf(VT_VARIANT, {})}, ::Show(ArrayOf(type, {})));
}

// An array need not begin at 0.
TEST_F(ValueTest, ArraysOfAnyLowerBoundAreTaken) {
    _variant_t given;
    given.parray = SafeArrayCreateVector(VT_I4, -3, 2);
    given.vt = VT_ARRAY | VT_I4;
    for (LONG i = -3; i < -1; ++i)
        SafeArrayPutElement(given.parray, &i, &i);
    Check(L"S32s", {given}, "I4[] -3|-2");

    _variant_t plane;
    SAFEARRAYBOUND bounds[2] = {{2, 0}, {2, 0}};
    plane.parray = SafeArrayCreate(VT_I4, 2, bounds);
    plane.vt = VT_ARRAY | VT_I4;
    EXPECT_CODE(WBEM_E_TYPE_MISMATCH, PutValue(Spawn(L"Wide"), L"S32s", plane));
}

TEST_F(ValueTest, WhatDoesNotFitIsRefusedAndChangesNothing) {
    _variant_t empty, error, date(45000.0, VT_DATE);
    error.vt = VT_ERROR;
    const auto object = Spawn(L"Wide");
    const auto refused = [&](const wchar_t* property, const std::vector<_variant_t>& values,
                             HRESULT code = WBEM_E_TYPE_MISMATCH) {
        const std::string before = Show(object, property), name = Narrow(std::wstring_view(property));
        for (const _variant_t& value : values) {
            EXPECT_CODE(code, PutValue(object, property, value)) << name << " " << ::Show(value);
            EXPECT_THAT(TakeReason(), HasSubstr("Wide." + name));
            EXPECT_EQ(Show(object, property), before);
        }
    };
    refused(L"S8", {short{128}, short{-129}});
    refused(L"U8", {256L, -1L});
    refused(L"U16", {-1L});
    refused(L"S32", {2147483648.0});
    refused(L"U32", {4294967296.0, 1.5, -1.0, std::nan(""), L"", L"1 ", L"0x10", true});
    refused(L"S64", {L"9223372036854775808", 9223372036854775808.0});
    refused(L"U64", {L"18446744073709551616", L"-1"});
    refused(L"R32", {0.1, 16777217L});
    refused(L"R64", {9007199254740993LL});
    refused(L"B", {2L, L"yes"});
    refused(L"S", {5L, empty, error, Texts({})});
    refused(L"S", {L"\xD800", L"a\x110000"}, WBEM_E_INVALID_PARAMETER);
    refused(L"D", {L"yesterday", date});
    refused(L"O", {L"text"});
    refused(L"U8s", {Numbers<long>(VT_I4, {1, 256})});
    refused(L"U32s", {ArrayOf(VT_VARIANT, {1L, Null()}), ArrayOf(VT_VARIANT, {empty})});
    refused(L"Ss", {L"a", ArrayOf(VT_VARIANT, {Texts({L"a"})})});
    refused(L"Ss", {Texts({L"\xDFFF"})}, WBEM_E_INVALID_PARAMETER);
    refused(L"Three", {Numbers<long>(VT_I4, {1, 2, 3, 4})});
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
    const auto content_of = [](IWbemClassObject* object, const wchar_t* property) {
        ObjectPointer content;
        const _variant_t held = GetValue(object, property);
        EXPECT_EQ(::Show(held), "UNKNOWN object");
        if (held.vt == VT_UNKNOWN) held.punkVal->QueryInterface(IID_PPV_ARGS(&content));
        return content;
    };
    const auto inner = Spawn(L"Inner"), outer = Spawn(L"Wide");
    const _variant_t within(inner.p);
    ASSERT_CODE(S_OK, PutValue(inner, L"A", L"first"));
    ASSERT_CODE(S_OK, PutValue(outer, L"ID", L"k"));
    ASSERT_CODE(S_OK, PutValue(outer, L"I", within));
    ASSERT_CODE(S_OK, PutValue(outer, L"O", within));
    ASSERT_CODE(S_OK, PutValue(outer, L"Is", ArrayOf(VT_UNKNOWN, {within, Null(), within})));
    ASSERT_CODE(S_OK, PutValue(inner, L"A", L"changed later"));
    ASSERT_CODE(S_OK, PutInstance(outer));

    const auto stored = Get(L"Wide.ID=\"k\"");
    EXPECT_EQ(Show(stored, L"Is"), "UNKNOWN[] object|(null)|object");
    for (const wchar_t* property : {L"I", L"O"}) {
        const ObjectPointer content = content_of(stored, property);
        EXPECT_EQ(Show(content, L"A"), "BSTR first");
        EXPECT_EQ(Show(content, L"__CLASS"), "BSTR Inner");
        EXPECT_EQ(Show(content, L"__GENUS"), "I4 2");
        // What came out is a copy, too.
        ASSERT_CODE(S_OK, PutValue(content, L"A", L"aside"));
    }
    ASSERT_CODE(S_OK, PutInstance(stored));
    EXPECT_EQ(Show(content_of(Get(L"Wide.ID=\"k\""), L"I"), L"A"), "BSTR first");

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
    _variant_t text = Text(L"within");
    VARIANT reference{};
    reference.vt = VT_BYREF | VT_I4;
    reference.plVal = &number;
    const auto object = Spawn(L"Wide");
    EXPECT_CODE(S_OK, object->Put(L"U32", 0, &reference, 0));
    EXPECT_EQ(Show(object, L"U32"), "I4 5");
    reference.vt = VT_BYREF | VT_VARIANT;
    reference.pvarVal = &text;
    EXPECT_CODE(S_OK, object->Put(L"S", 0, &reference, 0));
    EXPECT_EQ(Show(object, L"S"), "BSTR within");
}

}  // namespace
