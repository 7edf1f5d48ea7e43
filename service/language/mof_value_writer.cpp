#include "service/language/mof_value_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "service/model/real_text.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr size_t kLineBytes = 100;

void AppendEscape(uint32_t unit, std::string& out) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%04X", static_cast<unsigned>(unit));
    out += text;
}

// Characters that do not show as themselves: control characters, the marks of line, paragraph and byte order,
// and those that set the direction in which text runs.
bool IsUnseen(uint32_t code_point) noexcept {
    return code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0) || code_point == 0x200E ||
           code_point == 0x200F || (code_point >= 0x2028 && code_point <= 0x202E) ||
           (code_point >= 0x2066 && code_point <= 0x2069) || code_point == 0xFEFF;
}

// The letter behind the backslash; 0 where there is none.
char EscapeLetter(uint32_t code_point) noexcept {
    switch (code_point) {
        case '\b':
            return 'b';
        case '\t':
            return 't';
        case '\n':
            return 'n';
        case '\f':
            return 'f';
        case '\r':
            return 'r';
        default:
            return 0;
    }
}

// The code point of two or three bytes that valid UTF-8 begins with; 0 for one of four, which is never
// escaped.
uint32_t DecodeShort(std::string_view text, size_t& length) noexcept {
    const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(text[i])); };
    if (byte(0) < 0xE0) {
        length = 2;
        return (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F);
    }
    if (byte(0) < 0xF0) {
        length = 3;
        return (byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    }
    length = 4;
    return 0;
}

void AppendUnseen(uint32_t code_point, std::string& out) {
    if (const char letter = EscapeLetter(code_point)) {
        (out += '\\') += letter;
    } else {
        AppendEscape(code_point, out);
    }
}

// Everything between the quotes.
void AppendEscaped(std::string_view text, char quote, std::string& out) {
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (static_cast<unsigned char>(c) < 0x80) {
            if (c == quote || c == '\\') out += '\\';
            IsUnseen(static_cast<unsigned char>(c)) ? AppendUnseen(static_cast<unsigned char>(c), out)
                                                    : static_cast<void>(out += c);
            ++i;
            continue;
        }
        size_t length = 0;
        const uint32_t code_point = DecodeShort(text.substr(i), length);
        if (code_point != 0 && IsUnseen(code_point)) {
            AppendEscape(code_point, out);
        } else {
            out += text.substr(i, length);
        }
        i += length;
    }
}

void AppendCharacter(uint64_t unit, std::string& out) {
    out += '\'';
    if (unit >= 0xD800 && unit <= 0xDFFF) {
        AppendEscape(static_cast<uint32_t>(unit), out);
    } else {
        const auto wide = static_cast<wchar_t>(unit);
        std::string utf8;
        static_cast<void>(AppendUtf8({&wide, 1}, utf8));
        AppendEscaped(utf8, '\'', out);
    }
    out += '\'';
}

template <typename Number>
void AppendNumber(Number number, std::string& out) {
    std::array<char, 40> room{};
    out.append(room.data(), std::to_chars(room.data(), room.data() + room.size(), number).ptr);
}

void AppendReal(CimType type, double real, std::string& out) {
    out += PointedRealText(type, real);
    const auto bits = std::bit_cast<uint64_t>(real);
    if (!std::isnan(real) || bits == std::bit_cast<uint64_t>(std::numeric_limits<double>::quiet_NaN()))
        return;
    char text[32];
    std::snprintf(text, sizeof text, "(0x%016llX)", static_cast<unsigned long long>(bits));
    out += text;
}

}  // namespace

void AppendMofText(std::string_view text, std::string& out) {
    out += '"';
    AppendEscaped(text, '"', out);
    out += '"';
}

void AppendMofTextInPieces(std::string_view text, size_t column, size_t indent, std::string& out) {
    size_t line = column + 1;
    bool is_begun = false;
    std::string word;
    out += '"';
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find_first_of(" \n", start), text.size() - 1) + 1;
        word.clear();
        AppendEscaped(text.substr(start, end - start), '"', word);
        const bool is_behind_line_end = start > 0 && text[start - 1] == '\n';
        if (is_begun && (is_behind_line_end || line + word.size() > kLineBytes)) {
            out += "\"\n";
            out.append(indent, ' ');
            out += '"';
            line = indent + 1;
        }
        out += word;
        line += word.size();
        is_begun = true;
        start = end;
    }
    out += '"';
}

void AppendMofScalar(CimType type, const ValueView& value, std::string& out) {
    if (IsNull(value)) {
        out += "NULL";
    } else if (const auto* text = std::get_if<std::string_view>(&value)) {
        AppendMofText(*text, out);
    } else if (const auto* number = std::get_if<int64_t>(&value)) {
        AppendNumber(*number, out);
    } else if (const auto* natural = std::get_if<uint64_t>(&value)) {
        type == CimType::kChar16 ? AppendCharacter(*natural, out) : AppendNumber(*natural, out);
    } else if (const auto* real = std::get_if<double>(&value)) {
        AppendReal(type, *real, out);
    } else if (const auto* flag = std::get_if<bool>(&value)) {
        out += *flag ? "TRUE" : "FALSE";
    }
}

}  // namespace service
