// Values as JSON: what --json prints.
//
//   std::cout << ToJson(*object).dump(2) << '\n';
//
// Numbers are numbers, 64-bit ones too; a real that JSON cannot say is the text "NaN", "INF" or "-INF"; dates
// stay CIM text; char16 is a text of one character, or its number where it has no UTF-8 form. Instances begin
// with their __CLASS and __RELPATH and end with __UNSET, the names of the properties that read as their
// class's default because nobody has set them. Stateless.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

using OrderedJson = nlohmann::ordered_json;

OrderedJson ToJson(CIMTYPE type, const VARIANT& value);
OrderedJson ToJson(IWbemClassObject& instance);
// With these properties of it; one that it does not have is null.
OrderedJson ToJson(IWbemClassObject& instance, const std::vector<std::wstring>& names);

// Null for an empty text.
OrderedJson TextOrNull(const std::string& text);

// Prints it, indented, with a line end.
void PrintJson(const OrderedJson& json);

}  // namespace mgmtctl
