#include "service/model/text.h"

#include <array>

#include <utf8proc.h>

namespace service {
namespace {

constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;
constexpr char32_t kReplacement = 0xFFFD;

bool IsAscii(std::string_view text) noexcept {
    unsigned char seen = 0;
    for (const char c : text)
        seen |= static_cast<unsigned char>(c);
    return seen < 0x80;
}

bool IsScalarValue(char32_t code_point) noexcept {
    return code_point < 0xD800 || (code_point > 0xDFFF && code_point <= 0x10FFFF);
}

// Takes the code point that starts at `position` and moves past it; false for a unit that stands for none.
bool NextCodePoint(std::wstring_view wide, size_t& position, char32_t& code_point) noexcept {
    const auto unit = static_cast<char32_t>(wide[position++]);
    if constexpr (kWideIsUtf16) {
        const bool is_high = unit >= 0xD800 && unit <= 0xDBFF;
        if (is_high && position < wide.size()) {
            const auto low = static_cast<char32_t>(wide[position]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                ++position;
                code_point = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                return true;
            }
        }
    }
    code_point = unit;
    return IsScalarValue(unit);
}

void AppendCodePoint(char32_t code_point, std::string& utf8) {
    if (code_point < 0x80) {
        utf8.push_back(static_cast<char>(code_point));
        return;
    }
    std::array<utf8proc_uint8_t, 4> bytes{};
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(code_point), bytes.data());
    utf8.append(reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(length));
}

// Takes the code point that starts at `position` and moves past it; false, one byte on, when none does.
bool NextCodePoint(std::string_view utf8, size_t& position, char32_t& code_point) noexcept {
    const auto lead = static_cast<unsigned char>(utf8[position]);
    if (lead < 0x80) {
        ++position;
        code_point = lead;
        return true;
    }
    utf8proc_int32_t decoded = 0;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data() + position),
                                         static_cast<utf8proc_ssize_t>(utf8.size() - position), &decoded);
    if (length <= 0) {
        ++position;
        return false;
    }
    position += static_cast<size_t>(length);
    code_point = static_cast<char32_t>(decoded);
    return true;
}

size_t WideUnitsOf(char32_t code_point) noexcept {
    return kWideIsUtf16 && code_point > 0xFFFF ? 2 : 1;
}

wchar_t* WriteWideCodePoint(char32_t code_point, wchar_t* wide) noexcept {
    if (WideUnitsOf(code_point) == 2) {
        *wide++ = static_cast<wchar_t>(0xD800 + ((code_point - 0x10000) >> 10));
        *wide++ = static_cast<wchar_t>(0xDC00 + ((code_point - 0x10000) & 0x3FF));
        return wide;
    }
    *wide++ = static_cast<wchar_t>(code_point);
    return wide;
}

char FoldAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// One code point for one, so that texts of different letters never become the same: full folding would take
// the German sharp s for two of the plain one. By way of the upper case, which makes one of letters that have
// several lower cases. The I with a dot and the one without are letters of their own, as in Unicode's simple
// folding, which leaves both as they are.
void AppendFoldedCodePoint(char32_t code_point, std::string& folded) {
    constexpr char32_t kCapitalIWithDot = 0x130;
    constexpr char32_t kDotlessI = 0x131;
    if (code_point == kCapitalIWithDot || code_point == kDotlessI) return AppendCodePoint(code_point, folded);
    const utf8proc_int32_t upper = utf8proc_toupper(static_cast<utf8proc_int32_t>(code_point));
    AppendCodePoint(static_cast<char32_t>(utf8proc_tolower(upper)), folded);
}

}  // namespace

bool AppendUtf8(std::wstring_view wide, std::string& utf8) {
    const size_t start = utf8.size();
    utf8.resize(start + wide.size());
    char* out = utf8.data() + start;
    size_t ascii = 0;
    while (ascii < wide.size() && static_cast<char32_t>(wide[ascii]) < 0x80) {
        out[ascii] = static_cast<char>(wide[ascii]);
        ++ascii;
    }
    if (ascii == wide.size()) return true;

    utf8.resize(start + ascii);
    for (size_t position = ascii; position < wide.size();) {
        char32_t code_point = 0;
        if (!NextCodePoint(wide, position, code_point)) {
            utf8.resize(start);
            return false;
        }
        AppendCodePoint(code_point, utf8);
    }
    return true;
}

long CountWideUnits(std::string_view utf8) noexcept {
    if (IsAscii(utf8)) return static_cast<long>(utf8.size());
    size_t units = 0;
    for (size_t position = 0; position < utf8.size();) {
        char32_t code_point = 0;
        if (!NextCodePoint(utf8, position, code_point)) return -1;
        units += WideUnitsOf(code_point);
    }
    return static_cast<long>(units);
}

bool WriteWideAscii(std::string_view utf8, wchar_t* wide) noexcept {
    unsigned char seen = 0;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        seen |= byte;
        wide[i] = static_cast<wchar_t>(byte);
    }
    return seen < 0x80;
}

void WriteWide(std::string_view utf8, wchar_t* wide) noexcept {
    size_t ascii = 0;
    for (; ascii < utf8.size() && static_cast<unsigned char>(utf8[ascii]) < 0x80; ++ascii) {
        wide[ascii] = static_cast<wchar_t>(utf8[ascii]);
    }
    wide += ascii;
    for (size_t position = ascii; position < utf8.size();) {
        char32_t code_point = kReplacement;
        NextCodePoint(utf8, position, code_point);
        wide = WriteWideCodePoint(code_point, wide);
    }
}

std::wstring ToWideLossy(std::string_view utf8) {
    std::wstring wide;
    wide.reserve(utf8.size());
    for (size_t position = 0; position < utf8.size();) {
        char32_t code_point = 0;
        if (!NextCodePoint(utf8, position, code_point)) code_point = kReplacement;
        std::array<wchar_t, 2> units{};
        wide.append(units.data(), WriteWideCodePoint(code_point, units.data()));
    }
    return wide;
}

std::string ToUtf8Lossy(std::wstring_view wide) {
    std::string utf8;
    utf8.reserve(wide.size());
    for (size_t position = 0; position < wide.size();) {
        char32_t code_point = 0;
        if (!NextCodePoint(wide, position, code_point)) code_point = kReplacement;
        AppendCodePoint(code_point, utf8);
    }
    return utf8;
}

std::string ClipForMessage(std::string_view utf8, size_t max_bytes) {
    if (utf8.size() <= max_bytes) return std::string(utf8);
    size_t end = max_bytes;
    while (end > 0 && (static_cast<unsigned char>(utf8[end]) & 0xC0) == 0x80)
        --end;
    return std::string(utf8.substr(0, end)) + "...";
}

bool IsValidUtf8(std::string_view text) noexcept {
    return CountWideUnits(text) >= 0;
}

void AppendFolded(std::string_view text, std::string& folded) {
    if (IsAscii(text)) {
        const size_t start = folded.size();
        folded.resize(start + text.size());
        char* out = folded.data() + start;
        for (size_t i = 0; i < text.size(); ++i)
            out[i] = FoldAscii(text[i]);
        return;
    }
    for (size_t position = 0; position < text.size();) {
        char32_t code_point = kReplacement;
        NextCodePoint(text, position, code_point);
        if (code_point < 0x80) {
            folded.push_back(FoldAscii(static_cast<char>(code_point)));
        } else {
            AppendFoldedCodePoint(code_point, folded);
        }
    }
}

std::string Fold(std::string_view text) {
    std::string folded;
    AppendFolded(text, folded);
    return folded;
}

bool EqualFolded(std::string_view a, std::string_view b) {
    if (a == b) return true;
    if (IsAscii(a) && IsAscii(b)) {
        if (a.size() != b.size()) return false;
        for (size_t i = 0; i < a.size(); ++i) {
            if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
        }
        return true;
    }
    return Fold(a) == Fold(b);
}

}  // namespace service
