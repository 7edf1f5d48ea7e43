#include "service/language/mof_writer.h"

#include <array>
#include <utility>
#include <variant>
#include <vector>

#include "service/language/mof_literal.h"
#include "service/language/mof_scope_words.h"
#include "service/language/mof_value_writer.h"
#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr size_t kIndent = 4;
constexpr size_t kLineBytes = 100;

Status CheckLength(const std::string& out, const std::string& what) {
    if (out.size() <= kMaxMofBytes) return {};
    return {WBEM_E_TOO_MUCH_DATA, "the MOF text of " + what + " has more than " +
                                      std::to_string(kMaxMofBytes) +
                                      " bytes: read its properties one by one"};
}

// Values, with the objects that are embedded in them.
class ValueWriter {
 public:
    explicit ValueWriter(std::string& out) : out_(out) {}

    // `depth` objects stand around the value.
    Status Write(CimType type, const ValueView& value, size_t depth) {
        const auto* array = std::get_if<const Array*>(&value);
        if (!array) return WriteElement(type, value, depth);
        const bool has_lines = type == CimType::kObject && !(*array)->empty();
        out_ += '{';
        bool is_first = true;
        for (const Scalar& element : **array) {
            if (!std::exchange(is_first, false)) out_ += has_lines ? "," : ", ";
            if (has_lines) BeginLine(depth + 2);
            SERVICE_RETURN_IF_ERROR(WriteElement(type, ViewOf(element), depth + (has_lines ? 1 : 0)));
            if (out_.size() > kMaxMofBytes) return CheckLength(out_, "an array");
        }
        if (has_lines) BeginLine(depth + 1);
        out_ += '}';
        return {};
    }

    Status WriteProperties(const Instance& instance, size_t depth) {
        const auto& properties = instance.Class()->Properties();
        for (size_t i = 0; i < properties.size(); ++i) {
            bool is_set = false;
            Value storage;
            ValueView view;
            SERVICE_RETURN_IF_ERROR(instance.ReadOwn(i, is_set, storage, view));
            if (!is_set) continue;
            BeginLine(depth + 1);
            out_ += properties[i].name;
            out_ += " = ";
            SERVICE_RETURN_IF_ERROR(Write(properties[i].type.type, view, depth));
            out_ += ';';
            SERVICE_RETURN_IF_ERROR(CheckLength(out_, "an instance of class " + instance.Class()->Name()));
        }
        return {};
    }

 private:
    void BeginLine(size_t depth) {
        out_ += '\n';
        out_.append(depth * kIndent, ' ');
    }

    Status WriteElement(CimType type, const ValueView& value, size_t depth) {
        const auto* object = std::get_if<const ObjectPtr*>(&value);
        if (!object) {
            AppendMofScalar(type, value, out_);
            return {};
        }
        const Instance& embedded = ***object;
        if (depth > kMaxEmbeddingDepth) {
            return {WBEM_E_INVALID_OBJECT, "an object of class " + embedded.Class()->Name() +
                                               " is embedded more than " +
                                               std::to_string(kMaxEmbeddingDepth) + " deep"};
        }
        out_ += "instance of " + embedded.Class()->Name() + " {";
        SERVICE_RETURN_IF_ERROR(WriteProperties(embedded, depth + 1));
        BeginLine(depth + 1);
        out_ += '}';
        return {};
    }

    std::string& out_;
};

struct FlavorWords {
    uint32_t bit;
    std::string_view set;
    std::string_view unset;  // empty where nothing takes the flavor away
};
constexpr std::array kFlavors{
    FlavorWords{kFlavorNotOverridable, "DisableOverride", "EnableOverride"},
    FlavorWords{kFlavorToSubclass, "ToSubclass", "Restricted"},
    FlavorWords{kFlavorToInstance, "ToInstance", "NotToInstance"},
    FlavorWords{kFlavorAmended, "Translatable", ""},
};

// The words for those of `flavor` that `asked` names, with `separator` between them.
std::string FlavorText(uint32_t flavor, uint32_t asked, std::string_view separator) {
    std::string text;
    for (const FlavorWords& words : kFlavors) {
        const std::string_view word = (flavor & words.bit) ? words.set : words.unset;
        if (!(asked & words.bit) || word.empty()) continue;
        if (!text.empty()) text += separator;
        text += word;
    }
    return text;
}

bool IsTrue(const Qualifier& qualifier) noexcept {
    const bool* flag = std::get_if<bool>(&qualifier.value);
    return flag && *flag;
}

void AppendPlainArray(CimType type, const Array& array, std::string& out) {
    out += '{';
    for (size_t i = 0; i < array.size(); ++i) {
        if (i > 0) out += ", ";
        AppendMofScalar(type, ViewOf(array[i]), out);
    }
    out += '}';
}

// A class, in the order in which it stands in the text.
class ClassWriter {
 public:
    ClassWriter(const MofForm& form, std::string& out) : form_(form), out_(out) {}

    Status Write(const ClassDeclaration& declaration) {
        WriteQualifiers(declaration.qualifiers, 0, "\n");
        out_ += "class " + declaration.name;
        if (!declaration.superclass.empty()) out_ += " : " + declaration.superclass;
        out_ += "\n{\n";
        for (const PropertyDeclaration& property : declaration.properties) {
            SERVICE_RETURN_IF_ERROR(WriteProperty(property));
            SERVICE_RETURN_IF_ERROR(CheckLength(out_, "class " + declaration.name));
        }
        for (const MethodDeclaration& method : declaration.methods) {
            WriteMethod(method);
            SERVICE_RETURN_IF_ERROR(CheckLength(out_, "class " + declaration.name));
        }
        out_ += "};\n";
        return {};
    }

 private:
    // A list of qualifiers, if there are any: on the line of what follows where it is short and `behind` is a
    // blank, else on lines of its own.
    void WriteQualifiers(const std::vector<Qualifier>& qualifiers, size_t indent, const char* behind) {
        if (qualifiers.empty()) return;
        std::string line = "[";
        for (const Qualifier& qualifier : qualifiers) {
            if (line.size() > 1) line += ", ";
            AppendQualifier(qualifier, nullptr, line);
            if (line.size() > kLineBytes) return WriteQualifierLines(qualifiers, indent);
        }
        out_ += line + "]" + behind;
    }

    void WriteQualifierLines(const std::vector<Qualifier>& qualifiers, size_t indent) {
        out_ += '[';
        const size_t inside = indent + 1;
        for (size_t i = 0; i < qualifiers.size(); ++i) {
            if (i > 0) (out_ += ",\n").append(inside, ' ');
            AppendQualifier(qualifiers[i], &inside, out_);
        }
        (out_ += "]\n").append(indent, ' ');
    }

    // With `indent` long texts are broken into pieces below one another.
    void AppendQualifier(const Qualifier& qualifier, const size_t* indent, std::string& out) const {
        out += qualifier.name;
        const auto* text = std::get_if<std::string>(&qualifier.value);
        if (const auto* array = std::get_if<Array>(&qualifier.value)) {
            out += ' ';
            indent ? AppendArrayLines(qualifier.type.type, *array, *indent + kIndent, out)
                   : AppendPlainArray(qualifier.type.type, *array, out);
        } else if (text && indent) {
            out += '(';
            AppendMofTextInPieces(*text, *indent + qualifier.name.size() + 1, *indent + kIndent, out);
            out += ')';
        } else if (!IsTrue(qualifier)) {
            out += '(';
            AppendMofScalar(qualifier.type.type, ViewOf(qualifier.value), out);
            out += ')';
        }
        AppendFlavors(qualifier, out);
    }

    static void AppendArrayLines(CimType type, const Array& array, size_t indent, std::string& out) {
        std::string element;
        size_t line = kLineBytes;
        out += '{';
        for (size_t i = 0; i < array.size(); ++i) {
            element.clear();
            AppendMofScalar(type, ViewOf(array[i]), element);
            if (i + 1 < array.size()) element += ',';
            if (line + element.size() >= kLineBytes) {
                (out += '\n').append(indent, ' ');
                line = indent;
            } else {
                out += ' ';
                ++line;
            }
            out += element;
            line += element.size();
        }
        out += '}';
    }

    void AppendFlavors(const Qualifier& qualifier, std::string& out) const {
        if (!form_.with_flavors) return;
        const uint32_t usual = UsualFlavor(qualifier.name);
        const std::string flavors = FlavorText(qualifier.flavor, qualifier.flavor ^ usual, " ");
        if (!flavors.empty()) out += " : " + flavors;
    }

    uint32_t UsualFlavor(std::string_view name) const {
        if (form_.declared_flavor) {
            if (const auto declared = form_.declared_flavor(name)) return *declared;
        }
        return DefaultFlavorOf(name);
    }

    // `string` with its qualifier where an object is declared in DMTF's way.
    static std::string TypeText(const PropertyType& type, const std::vector<Qualifier>& qualifiers) {
        const std::string of_class = type.class_name.empty() ? "object" : type.class_name;
        if (type.type == CimType::kReference) return of_class + " ref";
        if (type.type != CimType::kObject) return std::string(CimTypeName(type.type));
        const bool is_string =
            FindQualifier(qualifiers, "EmbeddedInstance") || HasTrueQualifier(qualifiers, "EmbeddedObject");
        return is_string ? "string" : of_class;
    }

    static std::string ArrayText(const PropertyType& type) {
        if (!type.is_array) return {};
        return type.max_elements ? "[" + std::to_string(type.max_elements) + "]" : "[]";
    }

    Status WriteProperty(const PropertyDeclaration& property) {
        out_.append(kIndent, ' ');
        WriteQualifiers(property.qualifiers, kIndent, " ");
        out_ += TypeText(property.type, property.qualifiers) + ' ' + property.name + ArrayText(property.type);
        if (!IsNull(property.default_value)) {
            out_ += " = ";
            SERVICE_RETURN_IF_ERROR(
                ValueWriter(out_).Write(property.type.type, ViewOf(property.default_value), 0));
        }
        out_ += ";\n";
        return {};
    }

    void WriteMethod(const MethodDeclaration& method) {
        out_.append(kIndent, ' ');
        WriteQualifiers(method.qualifiers, kIndent, " ");
        out_ += method.return_type
                    ? TypeText(*method.return_type, method.qualifiers) + ArrayText(*method.return_type)
                    : "void";
        out_ += ' ' + method.name + '(';
        constexpr size_t kInside = 2 * kIndent;
        for (size_t i = 0; i < method.parameters.size(); ++i) {
            const ParameterDeclaration& parameter = method.parameters[i];
            (out_ += i == 0 ? "\n" : ",\n").append(kInside, ' ');
            WriteQualifiers(parameter.qualifiers, kInside, " ");
            out_ += TypeText(parameter.type, parameter.qualifiers) + ' ' + parameter.name +
                    ArrayText(parameter.type);
        }
        out_ += ");\n";
    }

    const MofForm& form_;
    std::string& out_;
};

}  // namespace

Status AppendClassMof(const ClassDeclaration& declaration, const MofForm& form, std::string& out) {
    return ClassWriter(form, out).Write(declaration);
}

Status AppendInstanceMof(const Instance& instance, std::string& out) {
    out += "instance of " + instance.Class()->Name() + "\n{";
    SERVICE_RETURN_IF_ERROR(ValueWriter(out).WriteProperties(instance, 0));
    out += "\n};\n";
    return {};
}

void AppendQualifierDeclarationMof(const QualifierDeclaration& declaration, std::string& out) {
    out += "Qualifier " + declaration.name + " : " + std::string(CimTypeName(declaration.type.type));
    if (declaration.type.is_array) {
        out +=
            declaration.type.max_elements ? "[" + std::to_string(declaration.type.max_elements) + "]" : "[]";
    }
    out += " = ";
    if (const auto* array = std::get_if<Array>(&declaration.default_value)) {
        AppendPlainArray(declaration.type.type, *array, out);
    } else {
        AppendMofScalar(declaration.type.type, ViewOf(declaration.default_value), out);
    }
    constexpr uint32_t kAlwaysSaid = kFlavorNotOverridable | kFlavorToSubclass;
    out += ",\n    Scope(" + MofScopeText(declaration.scope) + "), Flavor(" +
           FlavorText(declaration.flavor, kAlwaysSaid | declaration.flavor, ", ") + ");\n";
}

}  // namespace service
