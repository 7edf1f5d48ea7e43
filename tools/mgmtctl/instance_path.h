// The path of an instance, Class.INSTANCE_ID="id", with the id escaped: any id can be named by it.
//
//   CMgmtObject object(InstancePath(class_name, id).c_str());
//
// Stateless.
#pragma once

#include <string>

#include "tools/mgmtctl/arguments.h"

namespace mgmtctl {

// The id as it stands within the quotes of a path: a backslash in front of each backslash and quote.
std::wstring EscapeId(const std::wstring& id);

std::wstring InstancePath(const std::wstring& class_name, const std::wstring& id);

// What a command line names by a path, or by a class and an id.
std::wstring TargetPath(const Arguments& arguments);

// The class of the path that a command line gave, up to what cannot be part of a name.
std::string ClassOfPath(const std::string& path);

}  // namespace mgmtctl
