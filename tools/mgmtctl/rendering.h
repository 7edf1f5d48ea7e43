// An instance as a table for people: Name, Type, Value, with embedded objects indented below their property.
//
//   PrintInstance(*object);
//
// Arrays read [a, b], null is null, dates stand with a readable form behind them. Stateless.
#pragma once

#include <string>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

// One value on one line; texts are quoted where they stand in an array.
std::string ToText(CIMTYPE type, const VARIANT& value);

void PrintInstance(IWbemClassObject& object);

}  // namespace mgmtctl
