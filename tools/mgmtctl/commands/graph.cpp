#include <iostream>
#include <string>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/qualifiers.h"
#include "tools/mgmtctl/schema.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

// A name or label in double quotes.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : Printable(text)) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

// Text within a label that is written like HTML.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : Printable(text)) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

// A row for each property that the class declares itself; keys are underlined.
std::string PropertyRows(IWbemClassObject& object) {
    std::string rows;
    for (const Property& property : PropertiesOf(object)) {
        long flavor = 0;
        object.Get(property.name.c_str(), 0, nullptr, nullptr, &flavor);
        if (flavor != WBEM_FLAVOR_ORIGIN_LOCAL) continue;
        const Qualifiers qualifiers = PropertyQualifiers(object, property.name);
        const std::string name = Escaped(Utf8(property.name));
        rows += BooleanQualifier(qualifiers, L"key") ? "<U>" + name + "</U>" : name;
        rows += " : " + Escaped(DeclaredTypeName(property.type, qualifiers)) + "<BR ALIGN=\"LEFT\"/>";
    }
    return rows;
}

void PrintBox(const SchemaClass& each) {
    const std::string name = Escaped(Utf8(each.name));
    const bool is_abstract = BooleanQualifier(ClassQualifiers(*each.object), L"abstract");
    const std::string rows = PropertyRows(*each.object);
    std::cout << "    " << Quoted(Utf8(each.name))
              << " [label=<<TABLE BORDER=\"0\" CELLBORDER=\"1\" CELLSPACING=\"0\"><TR><TD>"
              << (is_abstract ? "<I>" : "<B>") << name << (is_abstract ? "</I>" : "</B>") << "</TD></TR>";
    if (!rows.empty()) std::cout << "<TR><TD ALIGN=\"LEFT\">" << rows << "</TD></TR>";
    std::cout << "</TABLE>>];\n";
}

void PrintArrow(const std::wstring& from, const std::wstring& to, const std::string& attributes) {
    std::cout << "    " << Quoted(Utf8(from)) << " -> " << Quoted(Utf8(to)) << " [" << attributes << "];\n";
}

class Diagram {
 public:
    Diagram(const Schema& schema, Schema::Names names) : schema_(schema), names_(std::move(names)) {}

    void Print(const std::string& title) const {
        std::cout << "digraph " << Quoted(title) << " {\n"
                  << "    charset=\"UTF-8\";\n    rankdir=BT;\n    node [shape=plain];\n";
        const std::vector<const SchemaClass*> classes = schema_.InOrder(names_);
        for (const SchemaClass* each : classes)
            PrintBox(*each);
        for (const SchemaClass* each : classes)
            PrintArrows(*each);
        std::cout << "}\n";
    }

 private:
    // The class of that name, if it is in the diagram.
    const SchemaClass* Shown(const std::wstring& name) const {
        return names_.contains(Schema::Fold(name)) ? schema_.Find(name) : nullptr;
    }

    void PrintArrows(const SchemaClass& each) const {
        if (const SchemaClass* above = Shown(each.superclass))
            PrintArrow(each.name, above->name, "arrowhead=onormal");
        for (const ClassLink& link : each.links) {
            const SchemaClass* target = Shown(link.target);
            if (target == nullptr) continue;
            const std::string label = "label=" + Quoted(Utf8(link.property)) + ", constraint=false, ";
            PrintArrow(each.name, target->name,
                       label + (link.is_reference ? "style=dashed, arrowhead=vee"
                                                  : "dir=both, arrowtail=diamond, arrowhead=none"));
        }
    }

    const Schema& schema_;
    const Schema::Names names_;
};

// The class, those above and below it, and those that these refer to or embed, or that do so with them.
Schema::Names Around(const Schema& schema, const std::wstring& name) {
    Schema::Names kin = schema.WithSubclasses({name});
    for (const SchemaClass* each = schema.Find(name); each != nullptr; each = schema.Find(each->superclass))
        kin.insert(Schema::Fold(each->name));
    Schema::Names around = kin;
    for (const SchemaClass* each : schema.InOrder(schema.All())) {
        const bool is_kin = kin.contains(Schema::Fold(each->name));
        for (const ClassLink& link : each->links) {
            if (is_kin && schema.Find(link.target) != nullptr) around.insert(Schema::Fold(link.target));
            if (kin.contains(Schema::Fold(link.target))) around.insert(Schema::Fold(each->name));
        }
    }
    return around;
}

}  // namespace

void Graph(const Arguments& arguments) {
    const Schema schema = Schema::Read(*Connect(arguments.namespace_path));
    if (arguments.class_name.empty())
        return Diagram(schema, schema.All()).Print(Utf8(arguments.namespace_path));
    const std::wstring name = Wide(arguments.class_name);
    const SchemaClass* const chosen = schema.Find(name);
    if (chosen == nullptr) {
        throw OperationFailure("there is no class " + arguments.class_name + " in the namespace " +
                                   Utf8(arguments.namespace_path),
                               "\"mgmtctl classes\" lists the classes.");
    }
    Diagram(schema, Around(schema, name)).Print(Utf8(chosen->name));
}

}  // namespace mgmtctl
