// A value of one CIM type as a value of another, where nothing of it is lost. Only for service/store.
//
//   std::optional<Value> days = ConvertedValue(text_type, number_type, Value(std::string("30")));
//
// Texts and numbers become each other where the number is written as it is printed, a real as RealText does;
// numbers where the other type has the very number; booleans are 0 and 1, TRUE and FALSE; one value and an
// array of one element are the same. Characters (char16) become numbers, no texts. Stateless.
#pragma once

#include <optional>

#include "service/model/value.h"

namespace service {

// Null becomes null. None where the value does not fit.
std::optional<Value> ConvertedValue(const PropertyType& from, const PropertyType& to, const Value& value);

}  // namespace service
