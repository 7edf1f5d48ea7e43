// The columns of a listing: which properties it shows, and in which order.
//
//   const std::vector<Column> columns = ColumnsOf(ReadClass("Policy"), {"INSTANCE_ID", "Days"});
//   for (const Column& column : columns)
//       const std::optional<Property> cell = PropertyOf(*object, column.name);
//
// Plain values.
#pragma once

#include <string>
#include <vector>

#include "tools/mgmtctl/class_declaration.h"

namespace mgmtctl {

struct Column {
    std::wstring name;
    CIMTYPE type = CIM_STRING;  // as the class declares it; an instance may have another meanwhile
};

// The property of that name, system properties included. Throws OperationFailure, which names the class's
// properties, when there is none.
Column ColumnOf(const ClassDeclaration& declaration, const std::string& name);

// The named ones in their order; where there are no names all properties of the class, keys first, and behind
// these with `has_subclasses` the instance's class.
std::vector<Column> ColumnsOf(const ClassDeclaration& declaration, const std::vector<std::string>& names,
                              bool has_subclasses);

}  // namespace mgmtctl
