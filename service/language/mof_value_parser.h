// Reads what stands within declarations: names, values, objects and qualifiers. Internal to the MOF parser,
// which derives from it.
//
//   MofValueParser parser(file);
//   if (!parser.Advance() || !parser.ParseObject(0, object)) return parser.TakeFault();
//
// Recursive descent, one token ahead. Every Parse function begins at the first token of what it reads, ends
// behind its last, and returns false with the fault set when the text is otherwise. Belongs to one thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/language/mof_lexer.h"
#include "service/language/mof_syntax.h"
#include "service/model/function_ref.h"

namespace service {

class MofValueParser {
 public:
    explicit MofValueParser(MofFile& file) : file_(file), lexer_(file.text, file.storage) {}

    [[nodiscard]] bool Advance();
    std::optional<MofDiagnostic> TakeFault() { return std::move(fault_); }

    // `instance of Class { ... }`; `depth` objects stand around it.
    [[nodiscard]] bool ParseObject(size_t depth, MofObject& object);

    // Takes a semicolon, if there is one.
    [[nodiscard]] bool SkipSemicolon() { return !token_.IsSymbol(';') || Advance(); }

    // Nothing but white space and comments is left.
    [[nodiscard]] bool ExpectEnd();

 protected:
    static constexpr std::string_view kQualifiersNotKept =
        "the qualifiers of instances and of their values are not kept";

    [[nodiscard]] bool Fail(size_t offset, std::string message);
    // Says what stands where `what` should.
    [[nodiscard]] bool Expected(std::string_view what);
    [[nodiscard]] bool TakeSymbol(char symbol);
    [[nodiscard]] bool TakeKeyword(std::string_view keyword);
    [[nodiscard]] bool TakeName(std::string_view what, MofName& name);
    [[nodiscard]] bool TakeAlias(MofName& alias);
    // Takes all pieces of a text; one piece without escapes stays where it is.
    [[nodiscard]] bool ParseText(std::string_view what, MofName& text);
    // Calls `parse_element` for each element of a list up to `close`, which is taken; at least one.
    [[nodiscard]] bool ParseList(char close, FunctionRef<bool()> parse_element);

    // A value that is neither an array nor an object.
    [[nodiscard]] bool ParseConstant(std::string_view what, MofValue& value);
    // Any value; `depth` objects stand around it.
    [[nodiscard]] bool ParseValue(size_t depth, MofValue& value);
    [[nodiscard]] bool ParseArraySize(MofType& type);
    [[nodiscard]] bool ParseQualifiers(std::vector<MofQualifier>& qualifiers);
    [[nodiscard]] bool ParseFlavor(std::vector<MofFlavor>& flavors);
    void Notice(size_t offset, std::string message);
    const MofToken& token() const noexcept { return token_; }
    MofFile& file() noexcept { return file_; }
    // Reads past the qualifiers of what keeps none.
    [[nodiscard]] bool SkipQualifiers();

 private:
    bool ParseElement(size_t depth, MofValue& value);
    bool ParseNotANumber(MofValue& value);
    bool ParseArray(MofValue& value, FunctionRef<bool(MofValue& element)> parse_one);
    bool ParseQualifier(MofQualifier& qualifier);
    bool ExpectedSize();

    MofFile& file_;
    MofLexer lexer_;
    MofToken token_;
    std::optional<MofDiagnostic> fault_;
    // In the instance parsed last: the next one will have as many, as a rule, and takes no more room than it
    // needs.
    size_t assignments_before_ = 0;
};

}  // namespace service
