// Splits the text of a WQL query into tokens.
//
//   WqlLexer lexer(text);
//   WqlToken token;
//   if (Status fault = lexer.Next(token); !fault.ok()) ...
//
// Takes each byte once. A copy of a lexer reads on from the same place, which is how a parser looks ahead. A
// lexer belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "service/language/wql_query.h"
#include "service/model/status.h"

namespace service {

enum class WqlTokenKind : uint8_t {
    kEnd,
    kName,        // keywords too: which names are keywords depends on where they stand
    kText,        // in single or double quotes
    kNumber,      // whole or real
    kComparison,  // one of = != <> < > <= >=
    kSymbol,      // one of . , * ( )
};

struct WqlToken {
    WqlTokenKind kind = WqlTokenKind::kEnd;
    size_t position = 0;        // of its first character, from 1
    std::string_view spelling;  // as it stands in the query
    WqlLiteral literal;         // kText, kNumber
    WqlOperator comparison = WqlOperator::kEqual;

    bool IsSymbol(char symbol) const noexcept {
        return kind == WqlTokenKind::kSymbol && spelling.front() == symbol;
    }
    // Whether the token is `keyword`, in any case.
    bool IsKeyword(std::string_view keyword) const;
    // What stands there, for a message.
    std::string Describe() const;
};

class WqlLexer {
 public:
    // `text` is valid UTF-8 and outlives the tokens.
    explicit WqlLexer(std::string_view text) noexcept : text_(text) {}

    // Reads the next token; WBEM_E_UNPARSABLE_QUERY says where none is to be had. After the last token every
    // call yields kEnd.
    //
    // In a quoted text a backslash in front of a backslash or of a quote stands for that character; in front
    // of anything else it is part of the text, so that an id with single backslashes that was put into a
    // query unescaped is read as it was meant. A quote of the other kind needs no backslash.
    Status Next(WqlToken& token) { return Read(token, Quoting::kEscapes); }

    // The same behind LIKE, where a backslash is always part of the text. So a pattern cannot hold the quote
    // that it stands in: it is written in the other one, or with _ for one of the two.
    Status NextPattern(WqlToken& token) { return Read(token, Quoting::kVerbatim); }

 private:
    enum class Quoting : uint8_t { kEscapes, kVerbatim };

    char Peek(size_t ahead = 0) const noexcept {
        return offset_ + ahead < text_.size() ? text_[offset_ + ahead] : '\0';
    }
    Status Read(WqlToken& token, Quoting quoting);
    Status ReadText(WqlToken& token, Quoting quoting);
    Status ReadNumber(WqlToken& token);
    bool ReadSymbol(WqlToken& token) noexcept;
    void Take(WqlToken& token, WqlTokenKind kind, size_t length) noexcept;

    std::string_view text_;
    size_t offset_ = 0;
    size_t position_ = 1;  // of the character at offset_
};

}  // namespace service
