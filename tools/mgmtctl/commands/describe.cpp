#include <iostream>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/rendering.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

// Empty for a property that the class introduces itself.
std::string InheritedFrom(const ClassSummary& summary, const DeclaredProperty& property) {
    return property.origin == summary.name ? std::string() : property.origin;
}

void PrintAsJson(const ClassDeclaration& declaration) {
    const ClassSummary& summary = declaration.summary;
    OrderedJson properties = OrderedJson::array();
    for (const DeclaredProperty& each : declaration.properties) {
        properties.push_back({{"name", Utf8(each.name)},
                              {"type", each.type_name},
                              {"key", each.is_key},
                              {"inheritedFrom", TextOrNull(InheritedFrom(summary, each))},
                              {"default", ToJson(each.type, each.value)},
                              {"description", TextOrNull(each.description)}});
    }
    PrintJson({{"name", summary.name},
               {"superclass", TextOrNull(summary.superclass)},
               {"abstract", summary.is_abstract},
               {"description", TextOrNull(summary.description)},
               {"properties", properties}});
}

void PrintHeading(const ClassSummary& summary) {
    std::cout << (summary.is_abstract ? "abstract class " : "class ") << Printable(summary.name);
    if (!summary.superclass.empty()) std::cout << " : " << Printable(summary.superclass);
    std::cout << '\n';
    if (!summary.description.empty()) std::cout << Printable(summary.description) << '\n';
    std::cout << '\n';
}

void PrintAsTable(const ClassDeclaration& declaration) {
    PrintHeading(declaration.summary);
    Table table({"Property", "Type", "Key", "Inherited from", "Default", "Description"});
    for (const DeclaredProperty& each : declaration.properties) {
        table.Add({Utf8(each.name), each.type_name, each.is_key ? "key" : "",
                   InheritedFrom(declaration.summary, each),
                   IsNull(each.value) ? std::string() : ToText(each.type, each.value, Length::SHORT),
                   each.description});
    }
    table.Print(std::cout);
}

}  // namespace

void Describe(const Arguments& arguments) {
    const ClassDeclaration declaration = ReadClass(arguments.class_name);
    arguments.is_json ? PrintAsJson(declaration) : PrintAsTable(declaration);
}

}  // namespace mgmtctl
