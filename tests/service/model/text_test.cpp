#include "service/model/text.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace service {
namespace {

std::wstring ToWide(const std::string& utf8) {
    const long units = CountWideUnits(utf8);
    EXPECT_GE(units, 0);
    std::wstring wide(static_cast<size_t>(units), L'\0');
    WriteWide(utf8, wide.data());
    return wide;
}

TEST(Text, EveryCodePointComesBackAndNothingElseGoes) {
    for (uint32_t code = 0; code <= 0x110010; ++code) {
        const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
        const std::wstring wide = L"a" + std::wstring(1, static_cast<wchar_t>(code));
        std::string utf8 = "kept";
        const bool done = AppendUtf8(wide, utf8);
        ASSERT_EQ(done, !is_surrogate && code <= 0x10FFFF) << std::hex << code;
        if (!done) {
            ASSERT_EQ(utf8, "kept") << std::hex << code;
            continue;
        }
        ASSERT_TRUE(IsValidUtf8(utf8)) << std::hex << code;
        ASSERT_EQ(ToWide(utf8.substr(4)), wide) << std::hex << code;
        // What was folded once must not fold further, or a key would depend on how often it was folded.
        const std::string folded = Fold(utf8);
        ASSERT_TRUE(IsValidUtf8(folded)) << std::hex << code;
        ASSERT_EQ(Fold(folded), folded) << std::hex << code;
    }
    std::string utf8;
    EXPECT_FALSE(AppendUtf8(std::wstring(1, static_cast<wchar_t>(0xFFFFFFFF)), utf8));
    EXPECT_TRUE(AppendUtf8(std::wstring(L"a\0b", 3), utf8));
    EXPECT_EQ(utf8, std::string("a\0b", 3));
}

TEST(Text, IllFormedUtf8IsRefused) {
    // Continuations alone, cut and overlong sequences, a surrogate, and what lies above 0x10FFFF.
    for (const std::string text : {"\x80", "a\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xC0\xAF", "\xE0\x80\xAF",
                                   "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF", "ok\xF8\x88\x80\x80\x80"}) {
        EXPECT_FALSE(IsValidUtf8(text));
        EXPECT_EQ(CountWideUnits(text), -1);
        EXPECT_NE(ToWideLossy(text).find(L'\xFFFD'), std::wstring::npos);
        // Folding has to live with what a damaged store holds.
        EXPECT_NO_FATAL_FAILURE(Fold(text));
    }
    EXPECT_EQ(ToUtf8Lossy(std::wstring(L"a\xD800") + L"b"), "a\xEF\xBF\xBD\x62");
}

TEST(Text, FoldingComparesWithoutRegardToCase) {
    EXPECT_TRUE(EqualFolded("Instance_ID", "INSTANCE_id"));
    EXPECT_FALSE(EqualFolded("INSTANCE_ID", "INSTANCE_I"));
    EXPECT_FALSE(EqualFolded("a[", "a{"));  // letters only
    EXPECT_TRUE(EqualFolded("Größe", "GRÖßE"));
    EXPECT_FALSE(EqualFolded("straße", "strasse"));  // other letters, so another id
    EXPECT_FALSE(EqualFolded("\u0130", "\u0131") || EqualFolded("\u0130", "i") || EqualFolded("\u0131", "I"));
    EXPECT_FALSE(EqualFolded("ﬁx", "fix"));
    EXPECT_TRUE(EqualFolded("ΣΊΣΥΦΟΣ", "σίσυφος"));
    EXPECT_TRUE(EqualFolded("\xE2\x84\xAA", "k"));  // the Kelvin sign
    EXPECT_FALSE(EqualFolded("é", "e"));
    EXPECT_FALSE(EqualFolded(std::string("a\0b", 3), "a"));
    EXPECT_EQ(Fold("😀A"), "😀a");
}

TEST(Text, MessagesAreCutBetweenCharacters) {
    EXPECT_EQ(ClipForMessage("äöü", 6), "äöü");
    EXPECT_EQ(ClipForMessage("äöü", 5), "äö...");
    EXPECT_EQ(ClipForMessage("äöü", 1), "...");
    EXPECT_EQ(ClipForMessage("\x80\x80\x80", 2), "...");
}

}  // namespace
}  // namespace service
