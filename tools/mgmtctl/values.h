// A value as it is typed on the command line, in the variant that its property takes.
//
//   const _variant_t value = ReadValue({L"Tags", CIM_STRING | CIM_FLAG_ARRAY, {}}, "[\"hr\",\"legal\"]");
//
// The text "null" is null; text in double quotes is read as a JSON string; arrays are JSON arrays. What
// --json prints of a value is read back as that value, but for objects. Integers travel as decimal text.
// Stateless.
#pragma once

#include <string>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

// `property` says the name and the type; its value is not looked at. Throws UsageFailure, naming the property
// and what was expected, for text that cannot be read as that type.
_variant_t ReadValue(const Property& property, const std::string& text);

}  // namespace mgmtctl
