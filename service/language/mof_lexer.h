// Splits the text of a MOF file into tokens.
//
//   MofLexer lexer(text, storage);
//   for (MofToken token; lexer.Next(token) && token.kind != MofTokenKind::kEnd;) ...
//   if (lexer.fault()) ...
//
// Takes each byte once. A lexer belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "service/language/mof_syntax.h"

namespace service {

enum class MofTokenKind : uint8_t {
    kEnd,
    kName,   // keywords too: which names are keywords depends on where they stand
    kAlias,  // $Name
    kText,   // one quoted piece of a string
    kChar,   // 'x'
    kInteger,
    kGreatInteger,  // a decimal one of more than 64 bits
    kReal,
    kSymbol,  // one of # { } [ ] ( ) ; : , =
};

struct MofToken {
    MofTokenKind kind = MofTokenKind::kEnd;
    size_t offset = 0;          // of its first byte
    std::string_view spelling;  // as it stands in the file
    std::string_view text;      // kText: what it says; kAlias: the name behind the $; kName: the name
    MofInteger integer;         // kInteger
    double real = 0;            // kReal; kGreatInteger: the nearest one
    char16_t unit = 0;          // kChar

    bool IsSymbol(char symbol) const noexcept {
        return kind == MofTokenKind::kSymbol && spelling.front() == symbol;
    }
    // Whether the token is `keyword`, in any case.
    bool IsKeyword(std::string_view keyword) const;
};

class MofLexer {
 public:
    struct Fault {
        size_t offset;
        std::string message;
    };

    // `text` is valid UTF-8 without zero bytes. Texts with escapes are put into `storage`. Both outlive the
    // tokens.
    MofLexer(std::string_view text, std::deque<std::string>& storage) noexcept
        : text_(text), storage_(storage) {}

    // Reads the next token; false, with fault() set, when there is none. After the last token every call
    // yields kEnd.
    [[nodiscard]] bool Next(MofToken& token);

    const std::optional<Fault>& fault() const noexcept { return fault_; }

 private:
    bool AtEnd() const noexcept { return position_ == text_.size(); }
    char Peek(size_t ahead = 0) const noexcept {
        return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
    }
    bool Fail(size_t offset, std::string message);
    bool SkipBlanks();
    bool ReadAlias(MofToken& token);
    bool ReadText(MofToken& token);
    bool ReadEscapedText(MofToken& token);
    bool ReadEscape(char32_t& code_unit);
    bool AppendEscape(std::string& text);
    bool ReadChar(MofToken& token);
    bool ReadCharContent(MofToken& token);
    bool ReadNumber(MofToken& token);
    bool ReadInteger(MofToken& token, std::string_view digits, int base);
    bool ReadReal(MofToken& token, size_t start);
    bool TakeReal(MofToken& token, std::string_view digits, MofTokenKind kind);
    bool FailAtNumber(size_t offset);
    void Finish(MofToken& token, MofTokenKind kind) const noexcept;

    std::string_view text_;
    std::deque<std::string>& storage_;
    size_t position_ = 0;
    std::optional<Fault> fault_;
};

}  // namespace service
