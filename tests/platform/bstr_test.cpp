#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

TEST(Bstr, KeepsItsLengthBesideTheText) {
    CComBSTR text;
    text.Attach(MakeText(WITH_NULL));
    EXPECT_EQ(SysStringLen(text), 3u);
    EXPECT_EQ(SysStringByteLen(text), 3 * sizeof(wchar_t));
    EXPECT_EQ(text[3], L'\0');
    for (const wchar_t* const source : {L"a", L""}) {
        text.Attach(SysAllocString(source));
        ASSERT_NE(text.m_str, nullptr);
        EXPECT_EQ(Units(text), source);
    }
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    SysFreeString(nullptr);
}

TEST(Bstr, BytesThatAreNoWholeUnitsAreFilledUpWithZeros) {
    // Memory that was used before, so that the zeros are not there by chance.
    const std::string filled(40, '\xFF');
    SysFreeString(SysAllocStringByteLen(filled.data(), 40));

    CComBSTR bytes;
    bytes.Attach(SysAllocStringByteLen(filled.data(), 37));
    EXPECT_EQ(SysStringByteLen(bytes), 37u);
    EXPECT_EQ(SysStringLen(bytes), 9u);
    const std::string expected = filled.substr(0, 37) + std::string(3 + sizeof(wchar_t), '\0');
    EXPECT_EQ(std::memcmp(bytes, expected.data(), expected.size()), 0);
}

TEST(Bstr, WhatCannotBeAllocatedLeavesTheOldText) {
    EXPECT_EQ(SysAllocStringLen(nullptr, UINT_MAX / sizeof(wchar_t) + 1), nullptr);
    EXPECT_EQ(SysAllocStringByteLen(nullptr, UINT_MAX), nullptr);
    CComBSTR text(L"kept");
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, UINT_MAX), FALSE);
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SysReAllocString(&text, L"new"), FALSE);
    }
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SysAllocString(L"new"), nullptr);
    }
    EXPECT_EQ(Units(text), L"kept");
}

TEST(Bstr, ReallocationTakesFromTheOldText) {
    CComBSTR text(L"whole text");
    EXPECT_EQ(SysReAllocString(&text, text.m_str + 6), TRUE);
    EXPECT_EQ(Units(text), L"text");
    EXPECT_EQ(SysReAllocStringLen(&text, text.m_str + 1, 2), TRUE);
    EXPECT_EQ(Units(text), L"ex");
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, 1000), TRUE);
    EXPECT_EQ(Units(text).substr(0, 2), L"ex") << "without a new text the old one stays";
    EXPECT_EQ(SysStringLen(text), 1000u);
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, 1), TRUE);
    EXPECT_EQ(Units(text), L"e");
    EXPECT_EQ(SysReAllocString(&text, nullptr), TRUE);
    EXPECT_EQ(text.m_str, nullptr);
}

}  // namespace
