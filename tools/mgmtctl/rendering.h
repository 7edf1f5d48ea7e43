// Values and instances as text for people.
//
//   PrintInstance(*object, Length::SHORT);       // a table: Name, Type, Value
//   table.Add({CellText(type, value, Length::SHORT)});
//
// Arrays read [a, b], objects Class {Name: value}, null is null. What is shortened says how much there is:
// [1, 2, ... 1,000,000 elements]. Stateless.
#pragma once

#include <string>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

enum class Length { SHORT, WHOLE };

// One value on one line; texts are quoted where they stand in an array. Of an object the class alone.
std::string ToText(CIMTYPE type, const VARIANT& value, Length length);

// One value as it stands among others in a row: dates in a readable form where that has all of it, and
// objects with those of their properties that have a value.
std::string CellText(CIMTYPE type, const VARIANT& value, Length length);

// Embedded objects are indented below their property; dates have a readable form behind them, and what was
// never set has "(default)".
void PrintInstance(IWbemClassObject& object, Length length);

}  // namespace mgmtctl
