// The keys that stand in an instance's path, as values for a new instance.
//
//   Check(Apply(ReadKeys(declaration, L"Link.From=\"a\",Weight=5"), *instance), "cannot set the keys");
//
// Stateless.
#pragma once

#include <string>
#include <vector>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/class_declaration.h"

namespace mgmtctl {

// Of a path without a namespace that the service has found well-formed; none for that of a singleton.
std::vector<Change> ReadKeys(const ClassDeclaration& declaration, const std::wstring& path);

}  // namespace mgmtctl
