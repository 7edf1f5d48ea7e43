// Variants taken apart: what the commands need to know of values, types and class objects.
//
//   for (const Property& property : PropertiesOf(*object))
//       std::cout << Utf8(property.name) << ' ' << TypeName(property.type) << '\n';
//
// A class object and its values belong to one thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <atlbase.h>
#include <comutil.h>
#include <wbemidl.h>

namespace mgmtctl {

struct Property {
    std::wstring name;
    CIMTYPE type = CIM_EMPTY;
    _variant_t value;
    bool is_unset = false;  // of an instance: nobody has set it, and it reads as its class's default
};

// The properties of an instance or class in the object's order, system properties left out.
std::vector<Property> PropertiesOf(IWbemClassObject& object);

// One property's value, system properties included; empty where there is none of that name.
_variant_t ValueOf(IWbemClassObject& object, const wchar_t* name);
// The same, with all that the object has for it; nothing where there is none of that name.
std::optional<Property> PropertyOf(IWbemClassObject& object, const std::wstring& name);
// The same as text; empty where it is none.
std::string TextOf(IWbemClassObject& object, const wchar_t* name);

// The class object that a value carries; null for any other value.
CComPtr<IWbemClassObject> ObjectOf(const VARIANT& value);

// The elements of an array value, counted from 0; a text or an object that is null is VT_NULL. None for any
// other value.
std::size_t CountElements(const VARIANT& array);
_variant_t ElementOf(const VARIANT& array, std::size_t index);
std::vector<_variant_t> ElementsOf(const VARIANT& array);

bool IsNull(const VARIANT& value);
bool IsArray(CIMTYPE type);
CIMTYPE ElementType(CIMTYPE type);

// "uint32", "string[]".
std::string TypeName(CIMTYPE type);

}  // namespace mgmtctl
