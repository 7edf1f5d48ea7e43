// The signatures of a class's methods, as IWbemClassObject shows them. Only for service/com.
//
//   Result<MethodPtr> method = FindMethod(*object.Definition(), L"Run");
//   Result<CComPtr<ClassObject>> in = SignatureOf(connection, **method, Direction::kIn);
//
// A signature is a class named __PARAMETERS with a property for each parameter, its qualifiers, and a
// qualifier ID with its place, from 0 on; an out signature has the result, if there is one, as ReturnValue. A
// parameter is passed in unless it says otherwise or is declared as Out only. All functions are stateless.
#pragma once

#include <string_view>

#include "service/com/class_object.h"
#include "service/model/class_definition.h"

namespace service {

// WBEM_E_NOT_FOUND where there is none of that name.
Result<MethodPtr> FindMethod(const ClassDefinition& definition, std::wstring_view name);

enum class Direction { kIn, kOut };

// Null for a method that has nothing in that direction.
Result<CComPtr<ClassObject>> SignatureOf(const ConnectionPtr& connection, const MethodDefinition& method,
                                         Direction direction);

}  // namespace service
