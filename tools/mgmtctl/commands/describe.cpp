#include <algorithm>
#include <array>
#include <iostream>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/class_details.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/rendering.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"
#include "tools/mgmtctl/wrapping.h"

namespace mgmtctl {
namespace {

constexpr std::size_t USUAL_COLUMNS = 80;
constexpr std::size_t FEWEST_COLUMNS = 40;

// Empty for a property that the class introduces itself.
std::string InheritedFrom(const ClassSummary& summary, const std::string& origin) {
    return origin == summary.name ? std::string() : origin;
}

OrderedJson QualifiersAsJson(const std::vector<NamedQualifier>& qualifiers) {
    OrderedJson json = OrderedJson::object();
    for (const NamedQualifier& each : qualifiers)
        json[Utf8(each.name)] = ToJson(each.type, each.value);
    return json;
}

OrderedJson MethodAsJson(const ClassSummary& summary, const DeclaredMethod& method) {
    OrderedJson parameters = OrderedJson::array();
    for (const DeclaredParameter& each : method.parameters) {
        parameters.push_back({{"name", each.name},
                              {"type", each.type_name},
                              {"in", each.is_in},
                              {"out", each.is_out},
                              {"description", TextOrNull(each.description)}});
    }
    return {{"name", method.name},
            {"returns", method.result == "void" ? OrderedJson() : OrderedJson(method.result)},
            {"inheritedFrom", TextOrNull(InheritedFrom(summary, method.origin))},
            {"description", TextOrNull(method.description)},
            {"parameters", parameters},
            {"qualifiers", QualifiersAsJson(method.qualifiers)}};
}

void PrintAsJson(const ClassDeclaration& declaration, const ClassDetails& details) {
    const ClassSummary& summary = declaration.summary;
    OrderedJson properties = OrderedJson::array();
    for (const DeclaredProperty& each : declaration.properties) {
        properties.push_back({{"name", Utf8(each.name)},
                              {"type", each.type_name},
                              {"key", each.is_key},
                              {"inheritedFrom", TextOrNull(InheritedFrom(summary, each.origin))},
                              {"default", ToJson(each.type, each.value)},
                              {"description", TextOrNull(each.description)},
                              {"qualifiers", QualifiersAsJson(details.property_qualifiers.at(each.name))}});
    }
    OrderedJson methods = OrderedJson::array();
    for (const DeclaredMethod& each : details.methods)
        methods.push_back(MethodAsJson(summary, each));
    PrintJson({{"name", summary.name},
               {"superclass", TextOrNull(summary.superclass)},
               {"superclasses", details.superclasses},
               {"subclasses", details.subclasses},
               {"abstract", summary.is_abstract},
               {"description", TextOrNull(summary.description)},
               {"qualifiers", QualifiersAsJson(details.qualifiers)},
               {"properties", properties},
               {"methods", methods}});
}

// A qualifier that is worth a word to who reads the class, and the word.
struct Remark {
    const wchar_t* qualifier;
    const char* word;
};
constexpr std::array REMARKS{Remark{L"key", "key"},
                             Remark{L"not_null", "not null"},
                             Remark{L"required", "required"},
                             Remark{L"read", "read"},
                             Remark{L"write", "write"},
                             Remark{L"deprecated", "deprecated"},
                             Remark{L"experimental", "experimental"}};

// Whether there is such a qualifier and it says anything but no.
bool Says(const NamedQualifier* qualifier) {
    if (qualifier == nullptr || IsNull(qualifier->value)) return false;
    return qualifier->value.vt != VT_BOOL || qualifier->value.boolVal != VARIANT_FALSE;
}

std::string Remarks(const std::vector<NamedQualifier>& qualifiers) {
    std::string text;
    for (const auto& [qualifier, word] : REMARKS) {
        if (Says(FindQualifier(qualifiers, qualifier))) text += std::string(text.empty() ? "" : ", ") + word;
    }
    return text;
}

std::vector<std::string> TextsOf(const NamedQualifier* qualifier) {
    std::vector<std::string> texts;
    if (qualifier == nullptr || !IsArray(qualifier->type)) return texts;
    for (const _variant_t& element : ElementsOf(qualifier->value))
        texts.push_back(ToText(ElementType(qualifier->type), element, Length::WHOLE));
    return texts;
}

// "0 = Unknown, 1 = Low": what the values of a property mean.
std::string Meanings(const std::vector<NamedQualifier>& qualifiers) {
    const std::vector<std::string> values = TextsOf(FindQualifier(qualifiers, L"ValueMap"));
    const std::vector<std::string> names = TextsOf(FindQualifier(qualifiers, L"Values"));
    std::string text;
    for (std::size_t i = 0; i < std::max(values.size(), names.size()); ++i) {
        if (i != 0) text += ", ";
        // Without a map the names stand for 0, 1, 2 and so on; one that a map leaves out for nothing known.
        const bool has_value = values.empty() || i < values.size();
        if (has_value) text += values.empty() ? std::to_string(i) : values[i];
        if (has_value && i < names.size()) text += " = ";
        if (i < names.size()) text += names[i];
    }
    return text;
}

std::string Joined(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : separator) + part;
    return text;
}

// Lines on the terminal, indented by how deep they belong.
class Page {
 public:
    Page() {
        const std::size_t terminal = TerminalColumns();
        columns_ = std::max(terminal == 0 ? USUAL_COLUMNS : terminal, FEWEST_COLUMNS);
    }

    void Text(std::size_t depth, const std::string& text) const {
        const std::string indent(depth * 4, ' ');
        for (const std::string& line : Wrapped(text, columns_ - indent.size()))
            std::cout << (line.empty() ? "" : indent) << line << '\n';
    }

    void Line(std::size_t depth, const std::string& text) const {
        std::cout << std::string(depth * 4, ' ') << Printable(text) << '\n';
    }

    void Heading(const std::string& text) const { std::cout << '\n' << Printable(text) << '\n'; }

 private:
    std::size_t columns_;
};

class Description {
 public:
    Description(const ClassDeclaration& declaration, const ClassDetails& details)
        : declaration_(declaration), summary_(declaration.summary), details_(details) {}

    void Print() const {
        PrintHead();
        PrintOf(summary_.name, "Properties", "Methods");
        for (const std::string& origin : details_.superclasses)
            PrintOf(origin, "Properties inherited from " + origin, "Methods inherited from " + origin);
    }

 private:
    void PrintHead() const {
        std::vector<std::string> chain = details_.superclasses;
        chain.insert(chain.begin(), summary_.name);
        page_.Line(0, (summary_.is_abstract ? "abstract class " : "class ") + Joined(chain, " : "));
        page_.Text(1, summary_.description);
        const std::string remarks = Remarks(details_.qualifiers);
        if (!remarks.empty()) page_.Line(1, remarks);
        if (Says(FindQualifier(details_.qualifiers, L"association"))) page_.Line(1, "association");
        if (Says(FindQualifier(details_.qualifiers, L"singleton"))) page_.Line(1, "singleton");
        if (!summary_.keys.empty()) page_.Text(1, "Key: " + Joined(summary_.keys, ", "));
        if (!details_.subclasses.empty())
            page_.Text(1, "Directly below: " + Joined(details_.subclasses, ", "));
    }

    // What the class of that name introduces.
    void PrintOf(const std::string& origin, const std::string& properties, const std::string& methods) const {
        bool is_first = true;
        for (const bool keys : {true, false}) {
            for (const DeclaredProperty& each : declaration_.properties) {
                if (each.origin != origin || each.is_key != keys) continue;
                if (std::exchange(is_first, false)) page_.Heading(properties);
                PrintProperty(each);
            }
        }
        is_first = true;
        for (const DeclaredMethod& each : details_.methods) {
            if (each.origin != origin) continue;
            if (std::exchange(is_first, false)) page_.Heading(methods);
            PrintMethod(each);
        }
    }

    void PrintProperty(const DeclaredProperty& property) const {
        const std::vector<NamedQualifier>& qualifiers = details_.property_qualifiers.at(property.name);
        std::string line = property.type_name + " " + Utf8(property.name);
        if (!IsNull(property.value)) line += " = " + ToText(property.type, property.value, Length::SHORT);
        const std::string remarks = Remarks(qualifiers);
        if (!remarks.empty()) line += "  (" + remarks + ")";
        page_.Line(1, line);
        page_.Text(2, property.description);
        const NamedQualifier* const units = FindQualifier(qualifiers, L"Units");
        if (Says(units)) page_.Text(2, "Units: " + ToText(units->type, units->value, Length::WHOLE));
        const std::string meanings = Meanings(qualifiers);
        if (!meanings.empty()) page_.Text(2, "Values: " + meanings);
    }

    void PrintMethod(const DeclaredMethod& method) const {
        std::vector<std::string> parameters;
        for (const DeclaredParameter& each : method.parameters) {
            const char* const direction = each.is_in && each.is_out ? "in out "
                                          : each.is_out             ? "out "
                                                                    : "in ";
            parameters.push_back(direction + each.type_name + " " + each.name);
        }
        page_.Text(1, method.result + " " + method.name + "(" + Joined(parameters, ", ") + ")");
        page_.Text(2, method.description);
        for (const DeclaredParameter& each : method.parameters) {
            if (!each.description.empty()) page_.Text(2, each.name + ": " + each.description);
        }
    }

    const ClassDeclaration& declaration_;
    const ClassSummary& summary_;
    const ClassDetails& details_;
    const Page page_;
};

}  // namespace

void Describe(const Arguments& arguments) {
    const ClassDeclaration declaration = ReadClass(arguments.class_name);
    const ClassDetails details = ReadDetails(*Connect(arguments.namespace_path), declaration);
    arguments.is_json ? PrintAsJson(declaration, details) : Description(declaration, details).Print();
}

}  // namespace mgmtctl
