#include "service/language/mof_value_parser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include "service/model/limits.h"
#include "service/model/status.h"
#include "service/model/text.h"

namespace service {
namespace {

// Assignments that room is made for ahead: one long instance must not make all that follow take as much.
constexpr size_t kMostReserved = 32;

// Notices kept of a file: a hostile one has no end of them.
constexpr size_t kMaxNotices = 1'000;

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

}  // namespace

bool MofValueParser::Fail(size_t offset, std::string message) {
    fault_ = file_.FaultAt(offset, MofPhase::kParse, WBEM_E_INVALID_SYNTAX, std::move(message));
    return false;
}

bool MofValueParser::Expected(std::string_view what) {
    const std::string found =
        token_.kind == MofTokenKind::kEnd ? "the end of the file" : Quote(token_.spelling);
    return Fail(token_.offset, std::string(what) + " was expected, " + found + " was found");
}

bool MofValueParser::Advance() {
    if (lexer_.Next(token_)) return true;
    return Fail(lexer_.fault()->offset, lexer_.fault()->message);
}

void MofValueParser::Notice(size_t offset, std::string message) {
    if (file_.notices.size() < kMaxNotices) file_.notices.push_back({offset, std::move(message)});
}

bool MofValueParser::ExpectEnd() {
    return token_.kind == MofTokenKind::kEnd || Expected("the end of the text");
}

bool MofValueParser::TakeSymbol(char symbol) {
    if (token_.IsSymbol(symbol)) return Advance();
    return Expected(std::string("\"") + symbol + '"');
}

bool MofValueParser::TakeKeyword(std::string_view keyword) {
    return token_.IsKeyword(keyword) ? Advance() : Expected(Quote(keyword));
}

bool MofValueParser::TakeName(std::string_view what, MofName& name) {
    if (token_.kind != MofTokenKind::kName) return Expected(what);
    name = {token_.text, token_.offset};
    return Advance();
}

bool MofValueParser::TakeAlias(MofName& alias) {
    if (token_.kind != MofTokenKind::kAlias) return Expected("an alias, $ and a name,");
    alias = {token_.text, token_.offset};
    return Advance();
}

bool MofValueParser::ParseList(char close, FunctionRef<bool()> parse_element) {
    if (!parse_element()) return false;
    while (token_.IsSymbol(',')) {
        if (!Advance() || !parse_element()) return false;
    }
    if (token_.IsSymbol(close)) return Advance();
    return Expected(std::string("\",\" or \"") + close + '"');
}

bool MofValueParser::ParseText(std::string_view what, MofName& text) {
    if (token_.kind != MofTokenKind::kText) return Expected(what);
    text = {token_.text, token_.offset};
    if (!Advance()) return false;
    if (token_.kind != MofTokenKind::kText) return true;
    std::string joined(text.text);
    while (token_.kind == MofTokenKind::kText) {
        joined += token_.text;
        if (!Advance()) return false;
    }
    joined.shrink_to_fit();
    text.text = file_.storage.emplace_back(std::move(joined));
    return true;
}

bool MofValueParser::ParseConstant(std::string_view what, MofValue& value) {
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
        case MofTokenKind::kGreatInteger:
            value.content = MofGreatInteger{token_.real};
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
    if (token_.IsKeyword("nan")) return ParseNotANumber(value);
    if (token_.IsKeyword("null")) {
        value.content = std::monostate();
    } else if (token_.IsKeyword("true")) {
        value.content = true;
    } else if (token_.IsKeyword("false")) {
        value.content = false;
    } else if (token_.IsKeyword("inf")) {
        value.content = std::numeric_limits<double>::infinity();
    } else {
        return Expected(what);
    }
    return Advance();
}

// `NaN`, or `NaN(bits)` for one of other bits than usual.
bool MofValueParser::ParseNotANumber(MofValue& value) {
    value.content = std::numeric_limits<double>::quiet_NaN();
    if (!Advance()) return false;
    if (!token_.IsSymbol('(')) return true;
    if (!Advance()) return false;
    const double real = std::bit_cast<double>(token_.integer.magnitude);
    if (token_.kind != MofTokenKind::kInteger || token_.integer.is_negative || !std::isnan(real))
        return Expected("the bits of a real64 that is no number");
    value.content = real;
    return Advance() && TakeSymbol(')');
}

// An element of an array, or a value that is none. `depth` objects stand around it.
bool MofValueParser::ParseElement(size_t depth, MofValue& value) {
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

bool MofValueParser::ParseArray(MofValue& value, FunctionRef<bool(MofValue& element)> parse_one) {
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

bool MofValueParser::ParseValue(size_t depth, MofValue& value) {
    if (!token_.IsSymbol('{')) return ParseElement(depth, value);
    return ParseArray(value, [&](MofValue& element) { return ParseElement(depth, element); });
}

bool MofValueParser::ExpectedSize() {
    return Expected("a size of 1 to " + std::to_string(kMaxArrayElements) + " elements");
}

bool MofValueParser::ParseArraySize(MofType& type) {
    type.is_array = token_.IsSymbol('[');
    if (!type.is_array) return true;
    if (!Advance()) return false;
    if (token_.kind == MofTokenKind::kGreatInteger) return ExpectedSize();
    if (token_.kind == MofTokenKind::kInteger) {
        const MofInteger number = token_.integer;
        if (number.is_negative || number.magnitude == 0 || number.magnitude > kMaxArrayElements)
            return ExpectedSize();
        type.max_elements = static_cast<uint32_t>(number.magnitude);
        if (!Advance()) return false;
    }
    return TakeSymbol(']');
}

bool MofValueParser::ParseQualifiers(std::vector<MofQualifier>& qualifiers) {
    return TakeSymbol('[') && ParseList(']', [&] { return ParseQualifier(qualifiers.emplace_back()); });
}

bool MofValueParser::SkipQualifiers() {
    if (!token_.IsSymbol('[')) return true;
    Notice(token_.offset, std::string(kQualifiersNotKept));
    std::vector<MofQualifier> unused;
    return ParseQualifiers(unused);
}

bool MofValueParser::ParseQualifier(MofQualifier& qualifier) {
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

bool MofValueParser::ParseFlavor(std::vector<MofFlavor>& flavors) {
    for (const auto& [name, flavor] : kFlavors) {
        if (!token_.IsKeyword(name)) continue;
        flavors.push_back(flavor);
        return Advance();
    }
    return Expected(
        "a flavor, one of EnableOverride, DisableOverride, ToSubclass, Restricted, NotToSubclass, "
        "ToInstance, NotToInstance, Translatable and Amended,");
}

bool MofValueParser::ParseObject(size_t depth, MofObject& object) {
    if (depth > kMaxEmbeddingDepth) {
        return Fail(token_.offset,
                    "objects are embedded more than " + std::to_string(kMaxEmbeddingDepth) + " deep");
    }
    if (!TakeKeyword("instance") || !TakeKeyword("of") ||
        !TakeName("the name of a class", object.class_name)) {
        return false;
    }
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

}  // namespace service
