// __Namespace: the class through which namespaces are looked at and made. Only for service/com.
//
//   class __Namespace { [key] string Name; };
//
// It is in every namespace; its instances there are the namespaces directly below.
#pragma once

#include <string_view>
#include <vector>

#include "service/com/connection.h"
#include "service/model/instance.h"
#include "service/model/object_path.h"

namespace service {

const ClassPtr& NamespaceClass();
bool IsNamespaceClass(std::string_view name);

Result<std::vector<Instance>> NamespaceInstances(const Connection& connection);
Result<Instance> FindNamespaceInstance(const Connection& connection, const ObjectPath& path);
// Makes the namespace that the instance names.
Status PutNamespaceInstance(const Connection& connection, const Instance& instance, PutCondition condition);

}  // namespace service
