#include "service/language/mof_lexer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <utility>

#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kInfinity = "INF";

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsHexDigit(char c) noexcept {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

unsigned HexDigitOf(char c) noexcept {
    if (IsDigit(c)) return static_cast<unsigned>(c - '0');
    return static_cast<unsigned>((c | 0x20) - 'a') + 10;
}

bool IsNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsNamePart(char c) noexcept {
    return IsNameStart(c) || IsDigit(c);
}

bool IsLineEnd(char c) noexcept {
    return c == '\n' || c == '\r';
}

bool IsHighSurrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The bytes of the code point that begins at the front of valid UTF-8.
size_t CodePointLength(std::string_view text) noexcept {
    size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

void AppendCodePoint(char32_t code_point, std::string& text) {
    wchar_t wide[2] = {static_cast<wchar_t>(code_point), 0};
    size_t units = 1;
    if constexpr (sizeof(wchar_t) == 2) {
        if (code_point > 0xFFFF) {
            wide[0] = static_cast<wchar_t>(0xD800 + ((code_point - 0x10000) >> 10));
            wide[1] = static_cast<wchar_t>(0xDC00 + ((code_point - 0x10000) & 0x3FF));
            units = 2;
        }
    }
    static_cast<void>(AppendUtf8({wide, units}, text));
}

// Of digits that no real64 holds, whether they are too near to 0; the others are too far from it.
bool IsTooSmall(std::string_view digits) {
    const size_t mantissa_end = std::min(digits.find_first_of("eE"), digits.size());
    const std::string_view mantissa = digits.substr(0, mantissa_end);
    std::string_view exponent = digits.substr(std::min(mantissa_end + 1, digits.size()));
    if (exponent.starts_with('+')) exponent.remove_prefix(1);
    int64_t power = 0;
    const auto parsed = std::from_chars(exponent.data(), exponent.data() + exponent.size(), power);
    if (parsed.ec == std::errc::result_out_of_range) return exponent.starts_with('-');
    const auto point = static_cast<int64_t>(std::min(mantissa.find('.'), mantissa.size()));
    const auto first = static_cast<int64_t>(mantissa.find_first_of("123456789"));
    return power < first - point;
}

// A character for a message; one that does not show, by its number.
std::string DescribeCharacter(std::string_view character) {
    const char c = character.front();
    if (c > ' ' && c < 0x7F) return '"' + std::string(1, c) + '"';
    if (static_cast<unsigned char>(c) >= 0x80) return '"' + std::string(character) + '"';
    char text[32];
    std::snprintf(text, sizeof text, "the character U+%04X",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

bool MofToken::IsKeyword(std::string_view keyword) const {
    return kind == MofTokenKind::kName && text.size() == keyword.size() && EqualFolded(text, keyword);
}

bool MofLexer::Fail(size_t offset, std::string message) {
    fault_ = Fault{offset, std::move(message)};
    position_ = text_.size();
    return false;
}

void MofLexer::Finish(MofToken& token, MofTokenKind kind) const noexcept {
    token.kind = kind;
    token.spelling = text_.substr(token.offset, position_ - token.offset);
}

bool MofLexer::Next(MofToken& token) {
    if (!SkipBlanks()) return false;
    token = {};
    token.offset = position_;
    if (AtEnd()) return true;

    const char c = Peek();
    if (IsNameStart(c)) {
        while (IsNamePart(Peek()))
            ++position_;
        Finish(token, MofTokenKind::kName);
        token.text = token.spelling;
        return true;
    }
    if (c == '"') return ReadText(token);
    if (c == '\'') return ReadChar(token);
    if (c == '$') return ReadAlias(token);
    if (IsDigit(c) || c == '+' || c == '-' || c == '.') return ReadNumber(token);
    if (std::string_view("#{}[]();:,=").find(c) != std::string_view::npos) {
        ++position_;
        Finish(token, MofTokenKind::kSymbol);
        return true;
    }
    const std::string_view rest = text_.substr(position_);
    return Fail(position_,
                DescribeCharacter(rest.substr(0, CodePointLength(rest))) + " has no meaning in MOF");
}

bool MofLexer::SkipBlanks() {
    while (!AtEnd()) {
        const char c = Peek();
        if (c == ' ' || c == '\t' || c == '\f' || c == '\v' || IsLineEnd(c)) {
            ++position_;
        } else if (c == '/' && Peek(1) == '/') {
            while (!AtEnd() && !IsLineEnd(Peek()))
                ++position_;
        } else if (c == '/' && Peek(1) == '*') {
            const size_t end = text_.find("*/", position_ + 2);
            if (end == std::string_view::npos)
                return Fail(position_, "the comment that begins here has no end");
            position_ = end + 2;
        } else {
            return true;
        }
    }
    return true;
}

bool MofLexer::ReadAlias(MofToken& token) {
    ++position_;
    if (!IsNameStart(Peek())) return Fail(token.offset, "a name was expected behind \"$\"");
    while (IsNamePart(Peek()))
        ++position_;
    Finish(token, MofTokenKind::kAlias);
    token.text = token.spelling.substr(1);
    return true;
}

bool MofLexer::ReadText(MofToken& token) {
    const size_t start = ++position_;
    while (!AtEnd()) {
        const char c = Peek();
        if (c == '\\') return ReadEscapedText(token);
        if (IsLineEnd(c)) break;
        ++position_;
        if (c != '"') continue;
        Finish(token, MofTokenKind::kText);
        token.text = text_.substr(start, position_ - 1 - start);
        return true;
    }
    return Fail(token.offset, "the text that begins here is not closed on its line");
}

bool MofLexer::ReadEscapedText(MofToken& token) {
    std::string text(text_.substr(token.offset + 1, position_ - token.offset - 1));
    while (!AtEnd() && !IsLineEnd(Peek())) {
        const char c = Peek();
        if (c == '\\') {
            if (!AppendEscape(text)) return false;
            continue;
        }
        ++position_;
        if (c == '"') {
            Finish(token, MofTokenKind::kText);
            token.text = storage_.emplace_back(std::move(text));
            return true;
        }
        text.push_back(c);
    }
    return Fail(token.offset, "the text that begins here is not closed on its line");
}

bool MofLexer::ReadEscape(char32_t& code_unit) {
    const size_t start = position_++;
    const char c = Peek();
    constexpr std::string_view kLetters = "btnfr\"'\\";
    constexpr std::string_view kMeanings = "\b\t\n\f\r\"'\\";
    if (const size_t index = AtEnd() ? std::string_view::npos : kLetters.find(c);
        index != std::string_view::npos) {
        ++position_;
        code_unit = static_cast<char32_t>(kMeanings[index]);
        return true;
    }
    if (c != 'x' && c != 'X') {
        return Fail(
            start,
            R"(after a backslash one of b t n f r " ' \ or x and up to four hexadecimal digits was expected)");
    }
    ++position_;
    if (!IsHexDigit(Peek())) return Fail(start, "a hexadecimal digit was expected behind \"\\x\"");
    code_unit = 0;
    for (int digits = 0; digits < 4 && IsHexDigit(Peek()); ++digits) {
        code_unit = (code_unit << 4) + HexDigitOf(text_[position_++]);
    }
    return true;
}

bool MofLexer::AppendEscape(std::string& text) {
    const size_t start = position_;
    char32_t unit = 0;
    if (!ReadEscape(unit)) return false;
    if (IsHighSurrogate(unit) && Peek() == '\\' && (Peek(1) == 'x' || Peek(1) == 'X')) {
        char32_t low = 0;
        if (!ReadEscape(low)) return false;
        if (!IsLowSurrogate(low))
            return Fail(start, "the surrogate is not followed by the second of its pair");
        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
        return Fail(start, "half of a UTF-16 surrogate pair is no text");
    }
    AppendCodePoint(unit, text);
    return true;
}

bool MofLexer::ReadChar(MofToken& token) {
    ++position_;
    if (!ReadCharContent(token)) return false;
    if (Peek() != '\'') return Fail(token.offset, "one character in single quotes was expected");
    ++position_;
    Finish(token, MofTokenKind::kChar);
    return true;
}

bool MofLexer::ReadCharContent(MofToken& token) {
    const char c = Peek();
    if (c == '\\') {
        char32_t unit = 0;
        if (!ReadEscape(unit)) return false;
        token.unit = static_cast<char16_t>(unit);
        return true;
    }
    if (AtEnd() || c == '\'' || IsLineEnd(c)) {
        return Fail(token.offset, "one character in single quotes was expected");
    }
    const std::string_view rest = text_.substr(position_);
    const std::string_view character = rest.substr(0, CodePointLength(rest));
    const std::wstring wide = ToWideLossy(character);
    if (wide.size() != 1 || static_cast<char32_t>(wide.front()) > 0xFFFF) {
        return Fail(token.offset, "a char16 is one UTF-16 unit, this character has two");
    }
    token.unit = static_cast<char16_t>(wide.front());
    position_ += character.size();
    return true;
}

bool MofLexer::ReadNumber(MofToken& token) {
    const char sign = Peek();
    if (sign == '+' || sign == '-') ++position_;
    token.integer.is_negative = sign == '-';
    const size_t start = position_;
    if (start > token.offset && EqualFolded(text_.substr(start, kInfinity.size()), kInfinity) &&
        !IsNamePart(Peek(kInfinity.size()))) {
        position_ += kInfinity.size();
        token.real = std::numeric_limits<double>::infinity() * (token.integer.is_negative ? -1 : 1);
        Finish(token, MofTokenKind::kReal);
        return true;
    }
    if (Peek() == '0' && (Peek(1) == 'x' || Peek(1) == 'X')) {
        position_ += 2;
        while (IsHexDigit(Peek()))
            ++position_;
        return ReadInteger(token, text_.substr(start + 2, position_ - start - 2), 16);
    }
    while (IsDigit(Peek()))
        ++position_;
    const std::string_view digits = text_.substr(start, position_ - start);
    if (Peek() == '.' || (!digits.empty() && (Peek() == 'e' || Peek() == 'E'))) return ReadReal(token, start);
    if (Peek() == 'b' || Peek() == 'B') {
        ++position_;
        return ReadInteger(token, digits, 2);
    }
    const bool is_octal = digits.size() > 1 && digits.front() == '0';
    return ReadInteger(token, digits, is_octal ? 8 : 10);
}

bool MofLexer::ReadInteger(MofToken& token, std::string_view digits, int base) {
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, token.integer.magnitude, base);
    if (parsed.ec == std::errc::result_out_of_range) {
        if (base == 10) return TakeReal(token, digits, MofTokenKind::kGreatInteger);
        return Fail(token.offset, "the number has more than 64 bits");
    }
    if (parsed.ec != std::errc() || parsed.ptr != end || IsNamePart(Peek()) || Peek() == '.')
        return FailAtNumber(token.offset);
    Finish(token, MofTokenKind::kInteger);
    return true;
}

bool MofLexer::ReadReal(MofToken& token, size_t start) {
    if (Peek() == '.') ++position_;
    while (IsDigit(Peek()))
        ++position_;
    if (Peek() == 'e' || Peek() == 'E') {
        ++position_;
        if (Peek() == '+' || Peek() == '-') ++position_;
        while (IsDigit(Peek()))
            ++position_;
    }
    return TakeReal(token, text_.substr(start, position_ - start), MofTokenKind::kReal);
}

bool MofLexer::TakeReal(MofToken& token, std::string_view digits, MofTokenKind kind) {
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, token.real);
    if (parsed.ec == std::errc::result_out_of_range) {
        return Fail(token.offset, IsTooSmall(digits)
                                      ? "the number is nearer to 0 than any that a real64 can hold"
                                      : "the number is beyond what a real64 can hold");
    }
    if (parsed.ec != std::errc() || parsed.ptr != end || IsNamePart(Peek()) || Peek() == '.')
        return FailAtNumber(token.offset);
    if (token.integer.is_negative) token.real = -token.real;
    Finish(token, kind);
    return true;
}

bool MofLexer::FailAtNumber(size_t offset) {
    while (IsNamePart(Peek()) || Peek() == '.')
        ++position_;
    return Fail(offset, Quote(text_.substr(offset, position_ - offset)) + " is no number");
}

}  // namespace service
