// Literals of a MOF text as values of CIM types.
//
//   Scalar scalar;
//   if (Status fault = ConvertLiteral(type, literal, scalar); !fault.ok()) ...
//
// All functions are stateless and may be called from any thread.
#pragma once

#include <string>

#include "service/language/mof_syntax.h"
#include "service/model/class_definition.h"
#include "service/model/status.h"
#include "service/model/value.h"

namespace service {

// `literal`, neither an array nor an object nor an alias, as one value (or one element) of `type`.
// WBEM_E_TYPE_MISMATCH says what was found and what is allowed.
Status ConvertLiteral(const PropertyType& type, const MofValue& literal, Scalar& scalar);

// A qualifier's value has no declared type: it is taken from the literal. None is a boolean; a whole number
// the first of sint32, sint64 and uint64 that holds it, and all elements of an array; an empty array and NULL
// are strings.
Status ConvertQualifierValue(const MofQualifier& qualifier, PropertyType& type, Value& value);

// The flavors that the qualifier has: those of its name, changed by those it is given. Qualifiers travel to
// subclasses unless they say otherwise, or DMTF says so of their name.
uint32_t FlavorOf(const MofQualifier& qualifier);

// What stands there, for a message: "the number 300", "the text \"a\"", "an array".
std::string DescribeLiteral(const MofValue& literal);

}  // namespace service
