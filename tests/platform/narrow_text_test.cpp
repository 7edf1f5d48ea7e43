#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <unistd.h>
#include <windows.h>

#include "tests/platform/automation_values.h"

namespace {

struct Outcome {
    std::wstring text;
    DWORD error = ERROR_SUCCESS;
};

// The text's wide form as a caller gets it, asking for the size first, or the last error of the call that
// failed.
Outcome Widen(UINT codePage, std::string_view text, DWORD flags = MB_ERR_INVALID_CHARS) {
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(codePage, flags, text.data(), length, nullptr, 0);
    if (size == 0) return {L"", GetLastError()};
    std::wstring wide(static_cast<std::size_t>(size), L'?');
    const int stored = MultiByteToWideChar(codePage, flags, text.data(), length, wide.data(), size);
    EXPECT_EQ(stored, size);
    return {wide, stored != 0 ? DWORD{ERROR_SUCCESS} : GetLastError()};
}

constexpr DWORD INVALID = ERROR_NO_UNICODE_TRANSLATION;

TEST(MultiByteToWideChar, ReadsUtf8WhereNoLocaleIsSet) {
    for (const UINT codePage : {CP_ACP, CP_UTF8}) {
        EXPECT_EQ(Widen(codePage, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80").text, L"A\u00E9\u20AC\U0001F600");
        EXPECT_EQ(Widen(codePage, std::string_view("a\0b", 3)).text, WITH_NULL);
        // The least and the greatest of each length, and the neighbours of the surrogates.
        EXPECT_EQ(
            Widen(codePage, "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF").text,
            L"\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF");
        EXPECT_EQ(Widen(codePage, "\xED\x9F\xBF\xEE\x80\x80").text, L"\uD7FF\uE000");
    }
}

TEST(MultiByteToWideChar, RefusesWhatIsNotValidInsteadOfReplacingIt) {
    for (const DWORD flags : {DWORD{0}, MB_ERR_INVALID_CHARS})
        for (const std::string_view text :
             {"\x80", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xED\xBF\xBF",
              "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xE2\x82", "\xE2\x82(",
              "\xF0\x9F\x98"})
            EXPECT_EQ(Widen(CP_UTF8, text, flags).error, INVALID) << ::testing::PrintToString(text);
    // The bytes behind the given ones do not count as a part of the text.
    EXPECT_EQ(Widen(CP_UTF8, std::string_view("\xC3\xA9", 1)).error, INVALID);
}

TEST(MultiByteToWideChar, CountsTheClosingNullOnlyWhereNoLengthIsGiven) {
    wchar_t wide[4] = {L'x', L'x', L'x', L'x'};
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA9z", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA9z", 3, nullptr, 0), 2);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "", -1, nullptr, 0), 1);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA9z", -1, wide, 3), 3);
    EXPECT_EQ(std::wstring(wide, 4), std::wstring(L"\u00E9z\0x", 4));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND) << "a success leaves it";

    wide[2] = L'x';
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA9z", -1, wide, 2), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(wide[2], L'x');
}

TEST(MultiByteToWideChar, RefusesWrongArguments) {
    wchar_t wide[4] = {};
    const struct {
        UINT page;
        DWORD flags;
        const char* text;
        int length;
        wchar_t* place;
        int room;
        DWORD error = ERROR_INVALID_PARAMETER;
    } cases[] = {{CP_UTF8, 0, nullptr, 1, wide, 4},
                 {CP_UTF8, 0, "a", 0, wide, 4},
                 {CP_UTF8, 0, "a", -2, wide, 4},
                 {CP_UTF8, 0, "a", 1, nullptr, 4},
                 {CP_UTF8, 0, "a", 1, wide, -1},
                 {CP_UTF8, 0, reinterpret_cast<const char*>(wide), 1, wide, 4},
                 {99999, 0, "a", 1, wide, 4},
                 {CP_ACP, 0x10 | MB_ERR_INVALID_CHARS, "a", 1, wide, 4, ERROR_INVALID_FLAGS}};
    for (const auto& [page, flags, text, length, place, room, error] : cases) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(MultiByteToWideChar(page, flags, text, length, place, room), 0);
        EXPECT_EQ(GetLastError(), error);
    }
}

TEST(MultiByteToWideChar, ReadsOtherCodePages) {
    EXPECT_EQ(Widen(1252, "\x80 \xE9").text, L"\u20AC \u00E9");
    EXPECT_EQ(Widen(1252, "a\x81").error, INVALID);
    EXPECT_EQ(Widen(932, "\x83\x65x").text, L"\u30C6x");
    EXPECT_EQ(Widen(932, "x\x83").error, INVALID) << "ends within a character";
    // Vietnamese: a letter is held back until it is known whether an accent follows it.
    EXPECT_EQ(Widen(1258, "xA").text, L"xA");

    const std::string longText(10'000, '\xE9');
    EXPECT_EQ(Widen(1252, longText).text, std::wstring(10'000, L'\u00E9'));
    wchar_t wide[300];
    EXPECT_EQ(MultiByteToWideChar(1252, 0, longText.data(), 300, wide, 299), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(LocalEncodingTest, IsTheOneOfTheLocale) {
    const auto folder = std::filesystem::temp_directory_path() / ("locale-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const std::string command = "localedef -i en_US -f ISO-8859-15 " + (folder / "latin").string();
    // Its result is not asked for: a warning counts as a failure there.
    [[maybe_unused]] const int result = std::system((command + " >/dev/null 2>&1").c_str());
    setenv("LOCPATH", folder.c_str(), 1);
    const bool is_set = std::setlocale(LC_ALL, "latin") != nullptr;
    unsetenv("LOCPATH");
    std::filesystem::remove_all(folder);
    if (!is_set) GTEST_SKIP() << "no locale can be made here";
    EXPECT_EQ(Widen(CP_ACP, "\xA4\xE9").text, L"\u20AC\u00E9");
    EXPECT_EQ(Widen(CP_UTF8, "\xA4\xE9").error, INVALID);
    EXPECT_TRUE(_bstr_t("\xA4") == L"\u20AC");
    EXPECT_TRUE(CComBSTR("\xA4") == L"\u20AC");
    std::setlocale(LC_ALL, "C");
}

}  // namespace
