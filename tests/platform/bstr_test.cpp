#include <climits>
#include <cstring>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

TEST(Bstr, KeepsItsLengthBesideTheText) {
    BSTR text = MakeText(WITH_NULL);
    EXPECT_EQ(SysStringLen(text), 3u);
    EXPECT_EQ(SysStringByteLen(text), 3 * sizeof(wchar_t));
    EXPECT_EQ(text[3], L'\0');
    SysFreeString(text);

    BSTR cut = SysAllocString(WITH_NULL.c_str());
    EXPECT_EQ(Units(cut), L"a");
    SysFreeString(cut);

    BSTR empty = SysAllocString(L"");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(SysStringLen(empty), 0u);
    EXPECT_EQ(empty[0], L'\0');
    SysFreeString(empty);
}

TEST(Bstr, NullIsAnEmptyString) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    SysFreeString(nullptr);
}

TEST(Bstr, BytesThatAreNoWholeUnitsAreFilledUpWithZeros) {
    // Memory that was used before, so that the zeros are not there by chance.
    const std::string filled(40, '\xFF');
    SysFreeString(SysAllocStringByteLen(filled.data(), 40));

    BSTR bytes = SysAllocStringByteLen(filled.data(), 37);
    EXPECT_EQ(SysStringByteLen(bytes), 37u);
    EXPECT_EQ(SysStringLen(bytes), 9u);
    const std::string expected = filled.substr(0, 37) + std::string(3 + sizeof(wchar_t), '\0');
    EXPECT_EQ(std::memcmp(bytes, expected.data(), expected.size()), 0);
    SysFreeString(bytes);
}

TEST(Bstr, RefusesLengthsBeyond32Bits) {
    EXPECT_EQ(SysAllocStringLen(nullptr, UINT_MAX), nullptr);
    EXPECT_EQ(SysAllocStringLen(nullptr, UINT_MAX / sizeof(wchar_t) + 1), nullptr);
    EXPECT_EQ(SysAllocStringByteLen(nullptr, UINT_MAX), nullptr);
    BSTR text = SysAllocString(L"kept");
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, UINT_MAX), FALSE);
    EXPECT_EQ(Units(text), L"kept");
    SysFreeString(text);
}

TEST(Bstr, ReallocationMayTakeAPartOfTheOldText) {
    BSTR text = SysAllocString(L"whole text");
    EXPECT_EQ(SysReAllocString(&text, text + 6), TRUE);
    EXPECT_EQ(Units(text), L"text");
    EXPECT_EQ(SysReAllocStringLen(&text, text + 1, 2), TRUE);
    EXPECT_EQ(Units(text), L"ex");
    EXPECT_EQ(SysReAllocString(&text, nullptr), TRUE);
    EXPECT_EQ(text, nullptr);
}

TEST(Bstr, ReallocationWithoutTextKeepsTheOldAsFarAsItGoes) {
    BSTR text = MakeText(WITH_NULL);
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, 1000), TRUE);
    EXPECT_EQ(SysStringLen(text), 1000u);
    EXPECT_EQ(std::wmemcmp(text, WITH_NULL.data(), 3), 0);
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, 2), TRUE);
    EXPECT_EQ(Units(text), WITH_NULL.substr(0, 2));
    SysFreeString(text);
}

TEST(Bstr, ExhaustedMemoryLeavesTheOldText) {
    BSTR text = SysAllocString(L"kept");
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SysReAllocString(&text, L"new"), FALSE);
    }
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SysAllocString(L"new"), nullptr);
    }
    EXPECT_EQ(Units(text), L"kept");
    SysFreeString(text);
}

}  // namespace
