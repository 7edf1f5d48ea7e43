#include <winnls.h>

#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string_view>

#include <winbase.h>
#include <winerror.h>

namespace {

static_assert(sizeof(wchar_t) == 4, "one unit holds one code point");

// Takes the units one after the other: stores them while there is room, or only counts.
class Units {
 public:
    Units(wchar_t* place, std::size_t room) noexcept : m_place(room != 0 ? place : nullptr), m_room(room) {}

    // ERROR_SUCCESS, or why there can be no more units.
    DWORD Add(wchar_t unit) noexcept {
        if (m_place == nullptr) {
            if (m_count == std::numeric_limits<int>::max()) return ERROR_OUTOFMEMORY;
        } else {
            if (m_count == m_room) return ERROR_INSUFFICIENT_BUFFER;
            m_place[m_count] = unit;
        }
        ++m_count;
        return ERROR_SUCCESS;
    }

    std::size_t Count() const noexcept { return m_count; }

 private:
    wchar_t* m_place;
    std::size_t m_room;
    std::size_t m_count = 0;
};

constexpr char32_t NOT_WELL_FORMED = 0xFFFFFFFF;

struct Sequence {
    char32_t code_point;
    std::size_t length;
};

// The UTF-8 sequence at the start of the text, which is not empty. Overlong forms, surrogates and values
// above 0x10FFFF are not well-formed.
Sequence Decode(std::string_view text) noexcept {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || length > text.size()) return {NOT_WELL_FORMED, 1};

    char32_t code_point = lead & (0x7Fu >> length);
    for (const char byte : text.substr(1, length - 1)) {
        if ((byte & 0xC0) != 0x80) return {NOT_WELL_FORMED, 1};
        code_point = (code_point << 6) | (byte & 0x3Fu);
    }
    constexpr char32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
    if (code_point < SMALLEST[length] || code_point > 0x10FFFF || is_surrogate) return {NOT_WELL_FORMED, 1};
    return {code_point, length};
}

DWORD ReadUtf8(std::string_view text, Units& units) noexcept {
    while (!text.empty()) {
        const Sequence sequence = Decode(text);
        if (sequence.code_point == NOT_WELL_FORMED) return ERROR_NO_UNICODE_TRANSLATION;
        const DWORD error = units.Add(static_cast<wchar_t>(sequence.code_point));
        if (error != ERROR_SUCCESS) return error;
        text.remove_prefix(sequence.length);
    }
    return ERROR_SUCCESS;
}

// A conversion from one encoding to wide units.
class Converter {
 public:
    explicit Converter(const char* encoding) noexcept : m_handle(iconv_open("WCHAR_T", encoding)) {}
    ~Converter() {
        if (IsOpen()) iconv_close(m_handle);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const noexcept { return reinterpret_cast<std::intptr_t>(m_handle) != -1; }

    DWORD Read(std::string_view text, Units& units) noexcept {
        char* input = const_cast<char*>(text.data());
        std::size_t left = text.size();
        while (left != 0) {
            const DWORD error = Step(&input, &left, units);
            if (error != ERROR_SUCCESS) return error;
        }
        // Some encodings hold a character back until they know that no accent follows.
        return Step(nullptr, nullptr, units);
    }

 private:
    DWORD Step(char** input, std::size_t* left, Units& units) noexcept {
        wchar_t buffer[256];
        char* output = reinterpret_cast<char*>(buffer);
        std::size_t room = sizeof buffer;
        const std::size_t result = iconv(m_handle, input, left, &output, &room);
        if (result == static_cast<std::size_t>(-1) && errno != E2BIG) return ERROR_NO_UNICODE_TRANSLATION;

        const std::size_t count = (sizeof buffer - room) / sizeof(wchar_t);
        for (const wchar_t unit : std::wstring_view(buffer, count)) {
            const DWORD error = units.Add(unit);
            if (error != ERROR_SUCCESS) return error;
        }
        return ERROR_SUCCESS;
    }

    iconv_t m_handle;
};

DWORD ReadEncoding(const char* encoding, std::string_view text, Units& units) noexcept {
    Converter converter(encoding);
    if (converter.IsOpen()) return converter.Read(text, units);
    return errno == EINVAL ? ERROR_INVALID_PARAMETER : ERROR_OUTOFMEMORY;
}

DWORD ReadLocal(std::string_view text, Units& units) noexcept {
    // The locale "C" says that it has ASCII, of which UTF-8 is an extension.
    constexpr std::string_view READ_AS_UTF8[] = {"UTF-8", "ANSI_X3.4-1968", "US-ASCII", "ASCII"};
    const char* const encoding = nl_langinfo(CODESET);
    if (std::ranges::find(READ_AS_UTF8, encoding) != std::end(READ_AS_UTF8)) return ReadUtf8(text, units);
    return ReadEncoding(encoding, text, units);
}

DWORD Read(UINT code_page, std::string_view text, Units& units) noexcept {
    if (code_page == CP_UTF8) return ReadUtf8(text, units);
    if (code_page == CP_ACP) return ReadLocal(text, units);
    char encoding[16];
    std::snprintf(encoding, sizeof encoding, "CP%u", code_page);
    return ReadEncoding(encoding, text, units);
}

}  // namespace

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar) noexcept {
    const auto fail = [](DWORD error) {
        SetLastError(error);
        return 0;
    };
    const bool is_same = static_cast<const void*>(lpMultiByteStr) == lpWideCharStr;
    if (lpMultiByteStr == nullptr || is_same || cbMultiByte == 0 || cbMultiByte < -1)
        return fail(ERROR_INVALID_PARAMETER);
    if (cchWideChar < 0 || (cchWideChar > 0 && lpWideCharStr == nullptr))
        return fail(ERROR_INVALID_PARAMETER);
    if ((dwFlags & ~MB_ERR_INVALID_CHARS) != 0) return fail(ERROR_INVALID_FLAGS);

    std::string_view text(lpMultiByteStr, cbMultiByte == -1 ? std::string_view(lpMultiByteStr).size() + 1
                                                            : static_cast<std::size_t>(cbMultiByte));
    Units units(lpWideCharStr, static_cast<std::size_t>(cchWideChar));
    const DWORD error = Read(CodePage, text, units);
    return error == ERROR_SUCCESS ? static_cast<int>(units.Count()) : fail(error);
}
