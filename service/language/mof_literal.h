// Literals of a MOF text as values of CIM types.
//
//   Scalar scalar;
//   if (Status fault = ConvertLiteral(type, literal, scalar); !fault.ok()) ...
//
// All functions are stateless and may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/language/mof_syntax.h"
#include "service/model/class_definition.h"
#include "service/model/status.h"
#include "service/model/value.h"

namespace service {

// `literal`, neither an array nor an object nor an alias, as one value (or one element) of `type`.
// WBEM_E_TYPE_MISMATCH says what was found and what is allowed.
Status ConvertLiteral(const PropertyType& type, const MofValue& literal, Scalar& scalar);

// `literal`, neither an object nor an alias nor an array of them, as a value of `type`, an array or not.
Status ConvertConstant(const PropertyType& type, const MofValue& literal, Value& value);

// The value of a qualifier that is not declared: its type is taken from the literal. None is a boolean; a
// whole number the first of sint32, sint64 and uint64 that holds it, and all elements of an array; among
// reals it is a real64; an empty array and NULL are strings.
Status ConvertQualifierValue(const MofQualifier& qualifier, PropertyType& type, Value& value);

// The flavors that the qualifier has: those of its name, changed by those it is given. Qualifiers travel to
// subclasses unless they say otherwise, or DMTF says so of their name.
uint32_t FlavorOf(const MofQualifier& qualifier);

// The flavors that a qualifier of that name has where neither a declaration nor its use says otherwise.
uint32_t DefaultFlavorOf(std::string_view qualifier);

// `flavor` with what was written beside it.
uint32_t ChangedFlavor(uint32_t flavor, const std::vector<MofFlavor>& changes);

// What stands there, for a message: "the number 300", "the text \"a\"", "an array".
std::string DescribeLiteral(const MofValue& literal);

}  // namespace service
