#include "service/language/wql_lexer.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <utility>

#include "service/model/text.h"

namespace service {
namespace {

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsNamePart(char c) noexcept {
    return IsNameStart(c) || IsDigit(c);
}

bool IsBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

size_t CountCharacters(std::string_view utf8) noexcept {
    size_t count = 0;
    for (const char c : utf8)
        count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

std::string Quoted(std::string_view text) {
    return '"' + ClipForMessage(text, 80) + '"';
}

// A character below 0x80 for a message; one that does not show, by its number.
std::string DescribeCharacter(char c) {
    if (c > ' ' && c < 0x7F) return Quoted(std::string_view(&c, 1));
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "the character U+%04X",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    return text.data();
}

struct Comparison {
    std::string_view spelling;
    WqlOperator meaning;
};

// The longer ones first.
constexpr std::array kComparisons{
    Comparison{"!=", WqlOperator::kNotEqual},    Comparison{"<>", WqlOperator::kNotEqual},
    Comparison{"<=", WqlOperator::kLessOrEqual}, Comparison{">=", WqlOperator::kGreaterOrEqual},
    Comparison{"=", WqlOperator::kEqual},        Comparison{"<", WqlOperator::kLess},
    Comparison{">", WqlOperator::kGreater},
};

// A text's end, seen from its first character: where the closing quote stands.
size_t FindClosingQuote(std::string_view text, char quote, bool escapes) noexcept {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == quote) return i;
        if (escapes && text[i] == '\\') ++i;
    }
    return std::string_view::npos;
}

std::string Unescape(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const bool escapes = text[i] == '\\' && i + 1 < text.size() &&
                             (text[i + 1] == '\\' || text[i + 1] == '"' || text[i + 1] == '\'');
        if (escapes) ++i;
        plain.push_back(text[i]);
    }
    return plain;
}

enum class NumberFault : uint8_t { kNone, kMalformed, kTooLarge };

NumberFault ReadWhole(std::string_view digits, bool is_negative, WqlLiteral& literal) {
    uint64_t magnitude = 0;
    const char* end = digits.data() + digits.size();
    if (std::from_chars(digits.data(), end, magnitude).ec != std::errc()) return NumberFault::kTooLarge;
    if (!is_negative || magnitude == 0) {
        literal = magnitude;
        return NumberFault::kNone;
    }
    constexpr auto kLowest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + 1;
    if (magnitude > kLowest) return NumberFault::kTooLarge;
    literal = static_cast<int64_t>(uint64_t{0} - magnitude);
    return NumberFault::kNone;
}

NumberFault ReadReal(std::string_view digits, bool is_negative, WqlLiteral& literal) {
    double magnitude = 0;
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, magnitude);
    if (parsed.ec == std::errc::result_out_of_range) return NumberFault::kTooLarge;
    if (parsed.ec != std::errc() || parsed.ptr != end) return NumberFault::kMalformed;
    literal = is_negative ? -magnitude : magnitude;
    return NumberFault::kNone;
}

}  // namespace

bool WqlToken::IsKeyword(std::string_view keyword) const {
    return kind == WqlTokenKind::kName && spelling.size() == keyword.size() && EqualFolded(spelling, keyword);
}

std::string WqlToken::Describe() const {
    switch (kind) {
        case WqlTokenKind::kEnd:
            return "the end of the query";
        case WqlTokenKind::kText:
            return "the text " + ClipForMessage(spelling, 80);
        case WqlTokenKind::kNumber:
            return "the number " + ClipForMessage(spelling, 80);
        default:
            return Quoted(spelling);
    }
}

void WqlLexer::Take(WqlToken& token, WqlTokenKind kind, size_t length) noexcept {
    token.kind = kind;
    token.spelling = text_.substr(offset_, length);
    offset_ += length;
    position_ += CountCharacters(token.spelling);
}

Status WqlLexer::Read(WqlToken& token, Quoting quoting) {
    while (IsBlank(Peek())) {
        ++offset_;
        ++position_;
    }
    token = {};
    token.position = position_;
    if (offset_ == text_.size()) return {};

    const char c = Peek();
    if (IsNameStart(c)) {
        size_t length = 1;
        while (IsNamePart(Peek(length)))
            ++length;
        Take(token, WqlTokenKind::kName, length);
        return {};
    }
    if (c == '"' || c == '\'') return ReadText(token, quoting);
    if (IsDigit(c) || c == '+' || c == '-' || (c == '.' && IsDigit(Peek(1)))) return ReadNumber(token);
    if (ReadSymbol(token)) return {};
    return WqlFault(WBEM_E_UNPARSABLE_QUERY, position_,
                    DescribeCharacter(c) + " has no meaning in a query outside a quoted text");
}

bool WqlLexer::ReadSymbol(WqlToken& token) noexcept {
    const std::string_view rest = text_.substr(offset_);
    for (const Comparison& comparison : kComparisons) {
        if (!rest.starts_with(comparison.spelling)) continue;
        token.comparison = comparison.meaning;
        Take(token, WqlTokenKind::kComparison, comparison.spelling.size());
        return true;
    }
    if (std::string_view(".,*()").find(rest.front()) == std::string_view::npos) return false;
    Take(token, WqlTokenKind::kSymbol, 1);
    return true;
}

Status WqlLexer::ReadText(WqlToken& token, Quoting quoting) {
    const char quote = Peek();
    const std::string_view rest = text_.substr(offset_ + 1);
    const size_t length = FindClosingQuote(rest, quote, quoting == Quoting::kEscapes);
    if (length == std::string_view::npos) {
        return WqlFault(WBEM_E_UNPARSABLE_QUERY, position_,
                        "the text that begins here has no closing " + std::string(1, quote) +
                            ", it runs to " + "the end of the query");
    }
    const std::string_view text = rest.substr(0, length);
    token.literal = WqlText{quoting == Quoting::kEscapes ? Unescape(text) : std::string(text)};
    Take(token, WqlTokenKind::kText, length + 2);
    return {};
}

Status WqlLexer::ReadNumber(WqlToken& token) {
    const bool has_sign = Peek() == '+' || Peek() == '-';
    const bool is_negative = Peek() == '-';
    const size_t start = has_sign ? 1 : 0;
    size_t length = start;
    const auto is_exponent_sign = [&] {
        const char before = length > start ? Peek(length - 1) : '\0';
        return (before == 'e' || before == 'E') && (Peek(length) == '+' || Peek(length) == '-');
    };
    while (IsNamePart(Peek(length)) || Peek(length) == '.' || is_exponent_sign())
        ++length;

    Take(token, WqlTokenKind::kNumber, length);
    const std::string_view digits = token.spelling.substr(start);
    const bool is_whole = !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
    // The standard library reads words for infinity and for what is no number; a query has none.
    const bool may_be_real = !digits.empty() && !IsNameStart(digits.front());
    NumberFault fault = NumberFault::kMalformed;
    if (is_whole) {
        fault = ReadWhole(digits, is_negative, token.literal);
    } else if (may_be_real) {
        fault = ReadReal(digits, is_negative, token.literal);
    }
    if (fault == NumberFault::kNone) return {};
    if (fault == NumberFault::kMalformed) {
        return WqlFault(WBEM_E_UNPARSABLE_QUERY, token.position, Quoted(token.spelling) + " is no number");
    }
    return WqlFault(WBEM_E_UNPARSABLE_QUERY, token.position,
                    "the number " + ClipForMessage(token.spelling, 80) +
                        (is_whole ? " has more than 64 bits" : " is beyond what a real64 can hold"));
}

}  // namespace service
