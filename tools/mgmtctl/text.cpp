#include "tools/mgmtctl/text.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

#include <oleauto.h>

#include "tools/mgmtctl/failure.h"

namespace mgmtctl {
namespace {

constexpr char32_t LAST_CODE_POINT = 0x10FFFF;
constexpr char32_t REPLACEMENT = 0xFFFD;
constexpr const char* ELLIPSIS = "\u2026";

bool IsSurrogate(char32_t point) {
    return point >= 0xD800 && point <= 0xDFFF;
}

// Takes one code point off the front of `rest`; nothing for a malformed one.
std::optional<char32_t> TakePoint(std::string_view& rest) {
    const auto first = static_cast<unsigned char>(rest.front());
    const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || rest.size() < length) return std::nullopt;

    constexpr unsigned char LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    char32_t point = first & LEAD_BITS[length];
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(rest[i]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        point = point << 6 | (next & 0x3F);
    }
    constexpr char32_t LOWEST[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < LOWEST[length] || point > LAST_CODE_POINT || IsSurrogate(point)) return std::nullopt;

    rest.remove_prefix(length);
    return point;
}

char32_t TakePoint(std::wstring_view& rest) {
    const auto unit = static_cast<char32_t>(rest.front());
    rest.remove_prefix(1);
    if constexpr (sizeof(wchar_t) == 2) {
        const char32_t next = rest.empty() ? 0 : static_cast<char32_t>(rest.front());
        if (unit >= 0xD800 && unit <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
            rest.remove_prefix(1);
            return 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
        }
    }
    return unit > LAST_CODE_POINT || IsSurrogate(unit) ? REPLACEMENT : unit;
}

void Append(char32_t point, std::wstring& text) {
    if (sizeof(wchar_t) > 2 || point < 0x10000) {
        text += static_cast<wchar_t>(point);
        return;
    }
    text += static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10));
    text += static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
}

void Append(char32_t point, std::string& text) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (point >> shift & 0x3F)); };
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += static_cast<char>(0xC0 | point >> 6);
        tail(0);
    } else if (point < 0x10000) {
        text += static_cast<char>(0xE0 | point >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | point >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

void AppendEscape(char32_t point, std::string& text) {
    if (point == '\n') {
        text += "\\n";
    } else if (point == '\t') {
        text += "\\t";
    } else if (point == '\r') {
        text += "\\r";
    } else {
        char digits[16];
        std::snprintf(digits, sizeof digits, "\\u%04x", static_cast<unsigned>(point));
        text += digits;
    }
}

// Controls, and the marks that make a terminal reorder what follows them.
bool IsControl(char32_t point) {
    return point < 0x20 || (point >= 0x7F && point < 0xA0) || (point >= 0x2028 && point <= 0x202E) ||
           (point >= 0x2066 && point <= 0x2069);
}

// Nothing but visible ASCII, of which every byte takes a column.
bool IsPlain(std::string_view utf8) {
    return std::all_of(utf8.begin(), utf8.end(), [](char byte) { return byte >= 0x20 && byte < 0x7F; });
}

// Takes a code point off the front and returns the columns that it takes on a terminal.
std::size_t TakeColumns(std::string_view& utf8) {
    const std::optional<char32_t> point = TakePoint(utf8);
    if (!point) utf8.remove_prefix(1);
    const int columns = wcwidth(static_cast<wchar_t>(point.value_or(REPLACEMENT)));
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

wchar_t FoldAscii(wchar_t unit) {
    return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit - L'A' + L'a') : unit;
}

}  // namespace

std::optional<std::wstring> TryWide(std::string_view utf8) {
    std::wstring wide;
    wide.reserve(utf8.size());
    while (!utf8.empty()) {
        const std::optional<char32_t> point = TakePoint(utf8);
        if (!point) return std::nullopt;
        Append(*point, wide);
    }
    return wide;
}

std::wstring Wide(std::string_view utf8) {
    std::optional<std::wstring> wide = TryWide(utf8);
    if (!wide) throw UsageFailure("an argument is not valid UTF-8");
    return *std::move(wide);
}

std::string Utf8(std::wstring_view wide) {
    // Listings spend their time here, and most of what they list is ASCII.
    const auto special = std::find_if(wide.begin(), wide.end(),
                                      [](wchar_t unit) { return static_cast<char32_t>(unit) >= 0x80; });
    std::string utf8(static_cast<std::size_t>(special - wide.begin()), '\0');
    std::transform(wide.begin(), special, utf8.begin(), [](wchar_t unit) { return static_cast<char>(unit); });
    wide.remove_prefix(utf8.size());
    while (!wide.empty())
        Append(TakePoint(wide), utf8);
    return utf8;
}

std::string Utf8(BSTR text) {
    return text == nullptr ? std::string() : Utf8(std::wstring_view(text, SysStringLen(text)));
}

std::string Printable(std::string_view utf8) {
    if (IsPlain(utf8)) return std::string(utf8);
    std::string shown;
    while (!utf8.empty()) {
        const std::optional<char32_t> point = TakePoint(utf8);
        if (!point) {
            Append(REPLACEMENT, shown);
            utf8.remove_prefix(1);
        } else if (IsControl(*point)) {
            AppendEscape(*point, shown);
        } else {
            Append(*point, shown);
        }
    }
    return shown;
}

std::size_t DisplayWidth(std::string_view utf8) {
    if (IsPlain(utf8)) return utf8.size();
    std::size_t width = 0;
    while (!utf8.empty())
        width += TakeColumns(utf8);
    return width;
}

std::string Cut(const std::string& utf8, std::size_t columns) {
    if (DisplayWidth(utf8) <= columns) return utf8;
    std::string_view rest = utf8;
    std::size_t kept = 0;
    for (std::size_t width = 0; !rest.empty(); kept = utf8.size() - rest.size()) {
        width += TakeColumns(rest);
        if (width >= columns) break;
    }
    return utf8.substr(0, kept) + ELLIPSIS;
}

std::string Grouped(std::uint64_t number) {
    std::string grouped;
    const std::string digits = std::to_string(number);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) grouped += ',';
        grouped += digits[i];
    }
    return grouped;
}

bool EqualNames(std::wstring_view left, std::wstring_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](wchar_t a, wchar_t b) { return FoldAscii(a) == FoldAscii(b); });
}

}  // namespace mgmtctl
