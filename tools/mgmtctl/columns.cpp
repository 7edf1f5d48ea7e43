#include "tools/mgmtctl/columns.h"

#include <algorithm>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const wchar_t* CLASS = L"__CLASS";

std::string NamesOf(const ClassDeclaration& declaration) {
    std::string names;
    for (const DeclaredProperty& property : declaration.properties)
        names += (names.empty() ? "" : ", ") + Utf8(property.name);
    return names.empty() ? "It has none." : "It has " + names + ".";
}

std::vector<Column> AllColumns(const ClassDeclaration& declaration, bool has_subclasses) {
    std::vector<Column> columns;
    for (const DeclaredProperty& property : declaration.properties) {
        if (property.is_key) columns.push_back({property.name, property.type});
    }
    if (has_subclasses) columns.push_back({CLASS, CIM_STRING});
    for (const DeclaredProperty& property : declaration.properties) {
        if (!property.is_key) columns.push_back({property.name, property.type});
    }
    return columns;
}

}  // namespace

Column ColumnOf(const ClassDeclaration& declaration, const std::string& name) {
    const std::wstring wide = Wide(name);
    if (const DeclaredProperty* const property = declaration.Find(wide))
        return {property->name, property->type};
    const std::optional<Property> system =
        wide.starts_with(L"__") ? PropertyOf(*declaration.object, wide) : std::nullopt;
    if (system) return {wide, system->type};
    throw OperationFailure("the class " + declaration.summary.name + " has no property " + name,
                           NamesOf(declaration));
}

std::vector<Column> ColumnsOf(const ClassDeclaration& declaration, const std::vector<std::string>& names,
                              bool has_subclasses) {
    if (names.empty()) return AllColumns(declaration, has_subclasses);
    std::vector<Column> columns;
    for (const std::string& name : names) {
        Column column = ColumnOf(declaration, name);
        const auto is_same = [&](const Column& other) { return EqualNames(other.name, column.name); };
        if (std::any_of(columns.begin(), columns.end(), is_same))
            throw UsageFailure(name + " is given twice");
        columns.push_back(std::move(column));
    }
    return columns;
}

}  // namespace mgmtctl
