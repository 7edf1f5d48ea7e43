#include "service/language/mof_parser.h"

#include <utility>

#include "service/language/mof_scope_words.h"
#include "service/language/mof_text.h"
#include "service/language/mof_value_parser.h"
#include "service/model/class_definition.h"
#include "service/model/limits.h"
#include "service/model/status.h"
#include "service/model/text.h"

namespace service {
namespace {

class Parser : public MofValueParser {
 public:
    using MofValueParser::MofValueParser;

    std::optional<MofDiagnostic> Parse() {
        if (Advance()) {
            while (token().kind != MofTokenKind::kEnd && ParseDeclaration()) {
            }
        }
        return TakeFault();
    }

 private:
    template <typename Node>
    Node& Add() {
        return std::get<Node>(file().declarations.emplace_back(Node()));
    }

    bool ParseDeclaration() {
        if (token().IsSymbol('#')) return ParsePragma();
        if (token().IsKeyword("qualifier")) return ParseQualifierDeclaration(Add<MofQualifierType>());
        std::vector<MofQualifier> qualifiers;
        const size_t offset = token().offset;
        const bool is_qualified = token().IsSymbol('[');
        if (is_qualified && !ParseQualifiers(qualifiers)) return false;
        if (token().IsKeyword("class")) {
            MofClass& declared = Add<MofClass>();
            declared.qualifiers = std::move(qualifiers);
            return ParseClass(declared);
        }
        if (token().IsKeyword("instance")) {
            if (is_qualified) Notice(offset, std::string(kQualifiersNotKept));
            return ParseObject(0, Add<MofObject>()) && TakeSymbol(';');
        }
        return Expected(is_qualified
                            ? "\"class\" or \"instance\""
                            : "\"class\", \"instance\", \"Qualifier\", \"#pragma\" or a list of qualifiers");
    }

    bool ParsePragma() {
        MofName name;
        if (!Advance() || !TakeKeyword("pragma") || !TakeName("the name of a pragma", name)) return false;
        if (EqualFolded(name.text, "namespace")) return ParsePragmaText(Add<MofNamespace>().path);
        if (EqualFolded(name.text, "include")) return ParsePragmaText(Add<MofInclude>().file);
        if (EqualFolded(name.text, "deleteclass")) return ParseDeletion(true);
        if (EqualFolded(name.text, "deleteinstance")) return ParseDeletion(false);
        if (EqualFolded(name.text, "classflags")) return ParseUpdateFlags(true);
        if (EqualFolded(name.text, "instanceflags")) return ParseUpdateFlags(false);
        Notice(name.offset, "#pragma " + Clip(name.text) + " has no effect here");
        return SkipPragmaArguments();
    }

    bool ParsePragmaText(MofName& text) {
        return TakeSymbol('(') && ParseText("a text in double quotes", text) && TakeSymbol(')');
    }

    bool ParseDeletion(bool is_class) {
        MofDeletion& deletion = Add<MofDeletion>();
        deletion.is_class = is_class;
        const char* what =
            is_class ? "the name of a class in double quotes" : "the path of an instance in double quotes";
        if (!TakeSymbol('(') || !ParseText(what, deletion.target)) return false;
        if (token().IsSymbol(',')) {
            if (!Advance()) return false;
            deletion.may_fail = token().IsKeyword("nofail");
            if (!deletion.may_fail && !token().IsKeyword("fail")) return Expected("\"fail\" or \"nofail\"");
            if (!Advance()) return false;
        }
        return TakeSymbol(')');
    }

    bool ParseUpdateFlags(bool is_for_classes) {
        MofUpdateFlags& flags = Add<MofUpdateFlags>();
        flags.is_for_classes = is_for_classes;
        if (!TakeSymbol('(')) return false;
        flags.first = {token().text, token().offset};
        return ParseList(')', [&] { return ParseUpdateFlag(flags); });
    }

    bool ParseUpdateFlag(MofUpdateFlags& flags) {
        const std::string_view what =
            flags.is_for_classes
                ? "\"forceupdate\", \"safeupdate\", \"updateonly\" or \"createonly\" in double quotes"
                : "\"updateonly\" or \"createonly\" in double quotes";
        const size_t offset = token().offset;
        MofName flag;
        if (!ParseText(what, flag)) return false;
        if (EqualFolded(flag.text, "updateonly")) {
            flags.update.is_update_only = true;
        } else if (EqualFolded(flag.text, "createonly")) {
            flags.update.is_create_only = true;
        } else if (flags.is_for_classes && EqualFolded(flag.text, "forceupdate")) {
            flags.update.is_forced = true;
        } else if (!flags.is_for_classes || !EqualFolded(flag.text, "safeupdate")) {
            return Fail(offset, std::string(what) + " was expected, " + Quote(flag.text) + " was found");
        }
        if (flags.update.is_update_only && flags.update.is_create_only)
            return Fail(offset, "the flags updateonly and createonly exclude each other");
        return true;
    }

    // An unknown pragma is its name and what may stand in parentheses behind it.
    bool SkipPragmaArguments() {
        if (!token().IsSymbol('(')) return true;
        size_t open = 0;
        do {
            if (token().kind == MofTokenKind::kEnd) return Expected("\")\"");
            if (token().IsSymbol('(')) ++open;
            if (token().IsSymbol(')')) --open;
            if (!Advance()) return false;
        } while (open > 0);
        return true;
    }

    bool ParseQualifierDeclaration(MofQualifierType& declared) {
        if (!Advance() || !TakeName("the name of a qualifier", declared.name) || !TakeSymbol(':') ||
            !TakeName("the type of the qualifier", declared.type.name) || !ParseArraySize(declared.type)) {
            return false;
        }
        if (token().IsSymbol('=')) {
            if (!Advance() || !ParseValue(0, declared.default_value.emplace())) return false;
        }
        if (!TakeSymbol(',') || !TakeKeyword("Scope") || !TakeSymbol('(') ||
            !ParseList(')', [&] { return ParseScope(declared.scope); })) {
            return false;
        }
        if (token().IsSymbol(',')) {
            if (!Advance() || !TakeKeyword("Flavor") || !TakeSymbol('(') ||
                !ParseList(')', [&] { return ParseFlavor(declared.flavors); })) {
                return false;
            }
        }
        return TakeSymbol(';');
    }

    bool ParseScope(uint32_t& scopes) {
        for (const MofScopeWord& word : kMofScopeWords) {
            if (!token().IsKeyword(word.name)) continue;
            scopes |= word.bits;
            return Advance();
        }
        return Expected("what the qualifier may stand at, \"class\", \"property\" or another,");
    }

    bool ParseClass(MofClass& declared) {
        if (!Advance() || !TakeName("the name of a class", declared.name)) return false;
        if (token().IsKeyword("as")) {
            if (!Advance() || !TakeAlias(declared.alias)) return false;
        }
        if (token().IsSymbol(':')) {
            if (!Advance() || !TakeName("the name of the superclass", declared.superclass)) return false;
        }
        if (!TakeSymbol('{')) return false;
        while (!token().IsSymbol('}')) {
            if (!ParseFeature(declared)) return false;
        }
        return Advance() && TakeSymbol(';');
    }

    // A property or a method: only what follows the name tells which.
    bool ParseFeature(MofClass& declared) {
        MofProperty property;
        if (token().IsSymbol('[') && !ParseQualifiers(property.qualifiers)) return false;
        if (!ParseTypeAndName("a type or \"}\"", "the name of a property or method", property.type,
                              property.name)) {
            return false;
        }
        if (token().IsSymbol('(')) {
            MofMethod& method = declared.methods.emplace_back();
            method.qualifiers = std::move(property.qualifiers);
            method.type = property.type;
            method.name = property.name;
            return ParseMethodRest(method);
        }
        if (!ParseArraySize(property.type)) return false;
        if (token().IsSymbol('=')) {
            if (!Advance() || !ParseValue(0, property.default_value.emplace())) return false;
        }
        if (!token().IsSymbol(';')) return Expected(property.default_value ? "\";\"" : "\"=\" or \";\"");
        declared.properties.push_back(std::move(property));
        return Advance();
    }

    // `ref` is a keyword only where a name follows it.
    bool ParseTypeAndName(std::string_view what_type, std::string_view what_name, MofType& type,
                          MofName& name) {
        if (!TakeName(what_type, type.name) || !TakeName(what_name, name)) return false;
        type.is_reference = EqualFolded(name.text, "ref") && token().kind == MofTokenKind::kName;
        return !type.is_reference || TakeName(what_name, name);
    }

    bool ParseMethodRest(MofMethod& method) {
        if (!Advance()) return false;
        if (token().IsSymbol(')')) return Advance() && TakeSymbol(';');
        return ParseList(')', [&] { return ParseParameter(method); }) && TakeSymbol(';');
    }

    bool ParseParameter(MofMethod& method) {
        if (method.parameters.size() == kMaxParameters) {
            return Fail(token().offset,
                        "a method has at most " + std::to_string(kMaxParameters) + " parameters");
        }
        MofParameter& parameter = method.parameters.emplace_back();
        if (token().IsSymbol('[') && !ParseQualifiers(parameter.qualifiers)) return false;
        if (!ParseTypeAndName("the type of a parameter", "the name of a parameter", parameter.type,
                              parameter.name) ||
            !ParseArraySize(parameter.type)) {
            return false;
        }
        if (!token().IsSymbol('=')) return true;
        Notice(token().offset, "the defaults of parameters are not kept");
        MofValue unused;
        return Advance() && ParseValue(0, unused);
    }
};

}  // namespace

MofDiagnostic MofFile::FaultAt(size_t offset, MofPhase phase, int32_t code, std::string message) const {
    const MofLocation location = LocateInMof(text, offset);
    return {name, location.line, location.column, phase, code, std::move(message)};
}

std::optional<MofDiagnostic> ParseMof(std::string name, std::string bytes, MofFile& file) {
    file.name = std::move(name);
    DecodedMof decoded = DecodeMof(std::move(bytes));
    file.text = std::move(decoded.text);
    if (!decoded.fault.empty()) {
        return file.FaultAt(file.text.size(), MofPhase::kParse, WBEM_E_INVALID_SYNTAX,
                            std::move(decoded.fault));
    }
    return Parser(file).Parse();
}

std::optional<MofDiagnostic> ParseMof(const MofSource& source, MofFile& file) {
    return ParseMof(source.name, std::string(source.bytes), file);
}

std::optional<MofDiagnostic> ParseMofObject(std::string_view text, size_t depth, MofFile& file,
                                            MofObject& object) {
    file.text = text;
    MofValueParser parser(file);
    if (!parser.Advance() || !parser.ParseObject(depth, object) || !parser.SkipSemicolon() ||
        !parser.ExpectEnd()) {
        return parser.TakeFault();
    }
    return std::nullopt;
}

}  // namespace service
