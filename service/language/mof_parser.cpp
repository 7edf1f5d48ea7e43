#include "service/language/mof_parser.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "service/language/mof_lexer.h"
#include "service/language/mof_text.h"
#include "service/model/limits.h"
#include "service/model/status.h"
#include "service/model/text.h"

namespace service {
namespace {

// Assignments that room is made for ahead: one long instance must not make all that follow take as much.
constexpr size_t kMostReserved = 32;

struct FlavorName {
    std::string_view name;
    MofFlavor flavor;
};

constexpr std::array kFlavors{
    FlavorName{"EnableOverride", MofFlavor::kEnableOverride},
    FlavorName{"DisableOverride", MofFlavor::kDisableOverride},
    FlavorName{"ToSubclass", MofFlavor::kToSubclass},
    FlavorName{"Restricted", MofFlavor::kNotToSubclass},
    FlavorName{"NotToSubclass", MofFlavor::kNotToSubclass},
    FlavorName{"ToInstance", MofFlavor::kToInstance},
    FlavorName{"NotToInstance", MofFlavor::kNotToInstance},
    FlavorName{"Translatable", MofFlavor::kAmended},
    FlavorName{"Amended", MofFlavor::kAmended},
};

constexpr std::array<std::string_view, 12> kScopes{"any",       "association", "class",     "indication",
                                                   "instance",  "method",      "parameter", "property",
                                                   "reference", "qualifier",   "namespace", "schema"};

// Recursive descent, one token ahead. Every Parse function begins at the first token of what it reads, ends
// behind its last, and returns false with the fault set when the text is otherwise.
class Parser {
 public:
    explicit Parser(MofFile& file) : file_(file), lexer_(file.text, file.storage) {}

    std::optional<MofDiagnostic> Parse() {
        if (Advance()) {
            while (token_.kind != MofTokenKind::kEnd && ParseDeclaration()) {
            }
        }
        return std::move(fault_);
    }

 private:
    [[nodiscard]] bool Fail(size_t offset, std::string message) {
        fault_ = file_.FaultAt(offset, MofPhase::kParse, WBEM_E_INVALID_SYNTAX, std::move(message));
        return false;
    }

    [[nodiscard]] bool Expected(std::string_view what) {
        const std::string found =
            token_.kind == MofTokenKind::kEnd ? "the end of the file" : Quote(token_.spelling);
        return Fail(token_.offset, std::string(what) + " was expected, " + found + " was found");
    }

    [[nodiscard]] bool Advance() {
        if (lexer_.Next(token_)) return true;
        return Fail(lexer_.fault()->offset, lexer_.fault()->message);
    }

    [[nodiscard]] bool TakeSymbol(char symbol) {
        if (token_.IsSymbol(symbol)) return Advance();
        return Expected(std::string("\"") + symbol + '"');
    }

    [[nodiscard]] bool TakeKeyword(std::string_view keyword) {
        return token_.IsKeyword(keyword) ? Advance() : Expected(Quote(keyword));
    }

    [[nodiscard]] bool TakeName(std::string_view what, MofName& name) {
        if (token_.kind != MofTokenKind::kName) return Expected(what);
        name = {token_.text, token_.offset};
        return Advance();
    }

    [[nodiscard]] bool TakeAlias(MofName& alias) {
        if (token_.kind != MofTokenKind::kAlias) return Expected("an alias, $ and a name,");
        alias = {token_.text, token_.offset};
        return Advance();
    }

    // Calls `parse_element` for each element of a list up to `close`, which is taken; at least one.
    template <typename ParseElement>
    [[nodiscard]] bool ParseList(char close, ParseElement parse_element) {
        if (!parse_element()) return false;
        while (token_.IsSymbol(',')) {
            if (!Advance() || !parse_element()) return false;
        }
        if (token_.IsSymbol(close)) return Advance();
        return Expected(std::string("\",\" or \"") + close + '"');
    }

    bool ParseDeclaration() {
        if (token_.IsSymbol('#')) return ParsePragma();
        if (token_.IsKeyword("qualifier")) return ParseQualifierDeclaration();
        std::vector<MofQualifier> qualifiers;
        const bool is_qualified = token_.IsSymbol('[');
        if (is_qualified && !ParseQualifiers(qualifiers)) return false;
        if (token_.IsKeyword("class")) {
            MofClass& declared = std::get<MofClass>(file_.declarations.emplace_back(MofClass()));
            declared.qualifiers = std::move(qualifiers);
            return ParseClass(declared);
        }
        if (token_.IsKeyword("instance")) {
            return ParseObject(0, std::get<MofObject>(file_.declarations.emplace_back(MofObject()))) &&
                   TakeSymbol(';');
        }
        return Expected(is_qualified
                            ? "\"class\" or \"instance\""
                            : "\"class\", \"instance\", \"Qualifier\", \"#pragma\" or a list of qualifiers");
    }

    bool ParsePragma() {
        MofName name;
        if (!Advance() || !TakeKeyword("pragma") || !TakeName("the name of a pragma", name)) return false;
        if (EqualFolded(name.text, "namespace")) {
            MofNamespace pragma;
            if (!ParsePragmaText(pragma.path)) return false;
            file_.declarations.emplace_back(pragma);
            return true;
        }
        if (EqualFolded(name.text, "include")) {
            MofInclude pragma;
            if (!ParsePragmaText(pragma.file)) return false;
            file_.declarations.emplace_back(pragma);
            return true;
        }
        return SkipPragmaArguments();
    }

    bool ParsePragmaText(MofName& text) {
        return TakeSymbol('(') && ParseText("a text in double quotes", text) && TakeSymbol(')');
    }

    // An unknown pragma is its name and what may stand in parentheses behind it.
    bool SkipPragmaArguments() {
        if (!token_.IsSymbol('(')) return true;
        size_t open = 0;
        do {
            if (token_.kind == MofTokenKind::kEnd) return Expected("\")\"");
            if (token_.IsSymbol('(')) ++open;
            if (token_.IsSymbol(')')) --open;
            if (!Advance()) return false;
        } while (open > 0);
        return true;
    }

    // Takes all pieces of a text; one piece without escapes stays where it is.
    bool ParseText(std::string_view what, MofName& text) {
        if (token_.kind != MofTokenKind::kText) return Expected(what);
        text = {token_.text, token_.offset};
        if (!Advance()) return false;
        if (token_.kind != MofTokenKind::kText) return true;
        std::string joined(text.text);
        while (token_.kind == MofTokenKind::kText) {
            joined += token_.text;
            if (!Advance()) return false;
        }
        text.text = file_.storage.emplace_back(std::move(joined));
        return true;
    }

    // A value that is neither an array nor an object.
    bool ParseConstant(std::string_view what, MofValue& value) {
        value.offset = token_.offset;
        switch (token_.kind) {
            case MofTokenKind::kText: {
                MofName text;
                if (!ParseText(what, text)) return false;
                value.content = text.text;
                return true;
            }
            case MofTokenKind::kInteger:
                value.content = token_.integer;
                return Advance();
            case MofTokenKind::kReal:
                value.content = token_.real;
                return Advance();
            case MofTokenKind::kChar:
                value.content = token_.unit;
                return Advance();
            default:
                break;
        }
        if (token_.IsKeyword("null")) {
            value.content = std::monostate();
        } else if (token_.IsKeyword("true")) {
            value.content = true;
        } else if (token_.IsKeyword("false")) {
            value.content = false;
        } else {
            return Expected(what);
        }
        return Advance();
    }

    // An element of an array, or a value that is none. `depth` objects stand around it.
    bool ParseElement(size_t depth, MofValue& value) {
        if (token_.IsKeyword("instance")) {
            value.offset = token_.offset;
            auto object = std::make_unique<MofObject>();
            if (!ParseObject(depth + 1, *object)) return false;
            value.content = std::move(object);
            return true;
        }
        if (token_.kind == MofTokenKind::kAlias) {
            value.offset = token_.offset;
            value.content = MofAlias{token_.text};
            return Advance();
        }
        if (token_.IsSymbol('{')) return Fail(token_.offset, "an array cannot be an element of an array");
        return ParseConstant("a value", value);
    }

    template <typename ParseOne>
    bool ParseArray(MofValue& value, ParseOne parse_one) {
        value.offset = token_.offset;
        if (!TakeSymbol('{')) return false;
        MofArray array;
        if (token_.IsSymbol('}')) {
            value.content = std::move(array);
            return Advance();
        }
        const bool is_read = ParseList('}', [&] {
            if (array.size() == kMaxArrayElements) {
                return Fail(token_.offset,
                            "an array has at most " + std::to_string(kMaxArrayElements) + " elements");
            }
            return parse_one(array.emplace_back());
        });
        value.content = std::move(array);
        return is_read;
    }

    bool ParseValue(size_t depth, MofValue& value) {
        if (!token_.IsSymbol('{')) return ParseElement(depth, value);
        return ParseArray(value, [&](MofValue& element) { return ParseElement(depth, element); });
    }

    bool ParseQualifiers(std::vector<MofQualifier>& qualifiers) {
        return TakeSymbol('[') && ParseList(']', [&] { return ParseQualifier(qualifiers.emplace_back()); });
    }

    bool SkipQualifiers() {
        std::vector<MofQualifier> unused;
        return !token_.IsSymbol('[') || ParseQualifiers(unused);
    }

    bool ParseQualifier(MofQualifier& qualifier) {
        if (!TakeName("the name of a qualifier", qualifier.name)) return false;
        constexpr std::string_view kConstant = "a text, a number, TRUE, FALSE or NULL";
        if (token_.IsSymbol('(')) {
            if (!Advance() || !ParseConstant(kConstant, qualifier.value.emplace()) || !TakeSymbol(')'))
                return false;
        } else if (token_.IsSymbol('{')) {
            const auto parse_one = [&](MofValue& element) { return ParseConstant(kConstant, element); };
            if (!ParseArray(qualifier.value.emplace(), parse_one)) return false;
        }
        if (!token_.IsSymbol(':')) return true;
        if (!Advance()) return false;
        do {
            if (!ParseFlavor(qualifier.flavors)) return false;
        } while (token_.kind == MofTokenKind::kName);
        return true;
    }

    bool ParseFlavor(std::vector<MofFlavor>& flavors) {
        for (const auto& [name, flavor] : kFlavors) {
            if (!token_.IsKeyword(name)) continue;
            flavors.push_back(flavor);
            return Advance();
        }
        return Expected(
            "a flavor, one of EnableOverride, DisableOverride, ToSubclass, Restricted, NotToSubclass, "
            "ToInstance, NotToInstance, Translatable and Amended,");
    }

    bool ParseQualifierDeclaration() {
        MofName name;
        MofName type;
        bool is_array = false;
        uint32_t size = 0;
        if (!Advance() || !TakeName("the name of a qualifier", name) || !TakeSymbol(':') ||
            !TakeName("the type of the qualifier", type) || !ParseArraySize(is_array, size)) {
            return false;
        }
        if (token_.IsSymbol('=')) {
            MofValue value;
            if (!Advance() || !ParseValue(0, value)) return false;
        }
        if (!TakeSymbol(',') || !TakeKeyword("Scope") || !TakeSymbol('(') ||
            !ParseList(')', [this] { return ParseScope(); })) {
            return false;
        }
        if (token_.IsSymbol(',')) {
            std::vector<MofFlavor> flavors;
            if (!Advance() || !TakeKeyword("Flavor") || !TakeSymbol('(') ||
                !ParseList(')', [&] { return ParseFlavor(flavors); })) {
                return false;
            }
        }
        return TakeSymbol(';');
    }

    bool ParseScope() {
        for (const std::string_view scope : kScopes) {
            if (token_.IsKeyword(scope)) return Advance();
        }
        return Expected("what the qualifier may stand at, \"class\", \"property\" or another,");
    }

    bool ParseClass(MofClass& declared) {
        if (!Advance() || !TakeName("the name of a class", declared.name)) return false;
        if (token_.IsKeyword("as")) {
            if (!Advance() || !TakeAlias(declared.alias)) return false;
        }
        if (token_.IsSymbol(':')) {
            if (!Advance() || !TakeName("the name of the superclass", declared.superclass)) return false;
        }
        if (!TakeSymbol('{')) return false;
        while (!token_.IsSymbol('}')) {
            if (!ParseFeature(declared)) return false;
        }
        return Advance() && TakeSymbol(';');
    }

    // A property or a method: only what follows the name tells which.
    bool ParseFeature(MofClass& declared) {
        MofProperty property;
        if (token_.IsSymbol('[') && !ParseQualifiers(property.qualifiers)) return false;
        if (!TakeName("a type or \"}\"", property.type)) return false;
        if (!ParseNameAfterType("the name of a property or method", property.is_reference, property.name))
            return false;
        if (token_.IsSymbol('(')) return ParseMethodRest();
        if (!ParseArraySize(property.is_array, property.max_elements)) return false;
        if (token_.IsSymbol('=')) {
            if (!Advance() || !ParseValue(0, property.default_value.emplace())) return false;
        }
        if (!token_.IsSymbol(';')) return Expected(property.default_value ? "\";\"" : "\"=\" or \";\"");
        declared.properties.push_back(std::move(property));
        return Advance();
    }

    // `ref` is a keyword only where a name follows it.
    bool ParseNameAfterType(std::string_view what, bool& is_reference, MofName& name) {
        if (!TakeName(what, name)) return false;
        is_reference = EqualFolded(name.text, "ref") && token_.kind == MofTokenKind::kName;
        return !is_reference || TakeName(what, name);
    }

    bool ParseArraySize(bool& is_array, uint32_t& size) {
        is_array = token_.IsSymbol('[');
        if (!is_array) return true;
        if (!Advance()) return false;
        if (token_.kind == MofTokenKind::kInteger) {
            const MofInteger number = token_.integer;
            if (number.is_negative || number.magnitude == 0 || number.magnitude > kMaxArrayElements) {
                return Expected("a size of 1 to " + std::to_string(kMaxArrayElements) + " elements");
            }
            size = static_cast<uint32_t>(number.magnitude);
            if (!Advance()) return false;
        }
        return TakeSymbol(']');
    }

    bool ParseMethodRest() {
        if (!Advance()) return false;
        if (token_.IsSymbol(')')) return Advance() && TakeSymbol(';');
        return ParseList(')', [this] { return ParseParameter(); }) && TakeSymbol(';');
    }

    bool ParseParameter() {
        MofName type;
        MofName name;
        bool is_reference = false;
        bool is_array = false;
        uint32_t size = 0;
        if (!SkipQualifiers() || !TakeName("the type of a parameter", type) ||
            !ParseNameAfterType("the name of a parameter", is_reference, name) ||
            !ParseArraySize(is_array, size)) {
            return false;
        }
        if (!token_.IsSymbol('=')) return true;
        MofValue value;
        return Advance() && ParseValue(0, value);
    }

    // `depth` objects stand around it.
    bool ParseObject(size_t depth, MofObject& object) {
        if (depth > kMaxEmbeddingDepth) {
            return Fail(token_.offset,
                        "objects are embedded more than " + std::to_string(kMaxEmbeddingDepth) + " deep");
        }
        if (!Advance() || !TakeKeyword("of") || !TakeName("the name of a class", object.class_name))
            return false;
        if (depth == 0 && token_.IsKeyword("as")) {
            if (!Advance() || !TakeAlias(object.alias)) return false;
        }
        if (!TakeSymbol('{')) return false;
        if (depth == 0) object.assignments.reserve(std::min(assignments_before_, kMostReserved));
        while (!token_.IsSymbol('}')) {
            MofAssignment& assignment = object.assignments.emplace_back();
            if (!SkipQualifiers() || !TakeName("the name of a property or \"}\"", assignment.property) ||
                !TakeSymbol('=') || !ParseValue(depth, assignment.value) || !TakeSymbol(';')) {
                return false;
            }
        }
        if (depth == 0) assignments_before_ = object.assignments.size();
        return Advance();
    }

    MofFile& file_;
    MofLexer lexer_;
    MofToken token_;
    std::optional<MofDiagnostic> fault_;
    // In the instance parsed last: the next one will have as many, as a rule, and takes no more room than it
    // needs.
    size_t assignments_before_ = 0;
};

}  // namespace

MofDiagnostic MofFile::FaultAt(size_t offset, MofPhase phase, int32_t code, std::string message) const {
    const MofLocation location = LocateInMof(text, offset);
    return {name, location.line, location.column, phase, code, std::move(message)};
}

std::optional<MofDiagnostic> ParseMof(const MofSource& source, MofFile& file) {
    file.name = source.name;
    DecodedMof decoded = DecodeMof(source.bytes);
    file.text = std::move(decoded.text);
    if (!decoded.fault.empty()) {
        return file.FaultAt(file.text.size(), MofPhase::kParse, WBEM_E_INVALID_SYNTAX,
                            std::move(decoded.fault));
    }
    return Parser(file).Parse();
}

}  // namespace service
