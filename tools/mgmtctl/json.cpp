#include "tools/mgmtctl/json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iostream>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

template <typename Integer>
OrderedJson DecimalText(const std::string& digits) {
    Integer number{};
    const char* const end = digits.data() + digits.size();
    const auto [stop, fault] = std::from_chars(digits.data(), end, number);
    return fault == std::errc() && stop == end ? OrderedJson(number) : OrderedJson(digits);
}

OrderedJson Real(double number) {
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return number > 0 ? "INF" : "-INF";
    return number;
}

// The double with the fewest digits among those that read back as `number`: 0.1, not 0.10000000149011612.
OrderedJson ShortReal(float number) {
    if (!std::isfinite(number)) return Real(number);
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    double shortest = number;
    std::from_chars(digits.data(), end, shortest);
    return shortest;
}

OrderedJson Character(std::uint16_t unit) {
    const bool is_surrogate = unit >= 0xD800 && unit <= 0xDFFF;
    if (is_surrogate) return unit;
    const auto wide = static_cast<wchar_t>(unit);
    return Utf8(std::wstring_view(&wide, 1));
}

OrderedJson Embedded(const VARIANT& value) {
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    return object == nullptr ? OrderedJson() : ToJson(*object);
}

OrderedJson Scalar(CIMTYPE type, const VARIANT& value) {
    switch (type) {
        case CIM_SINT8:
        case CIM_SINT16:
            return value.iVal;
        case CIM_CHAR16:
            return Character(static_cast<std::uint16_t>(value.iVal));
        case CIM_UINT8:
            return value.bVal;
        case CIM_UINT16:
        case CIM_SINT32:
            return value.lVal;
        case CIM_UINT32:
            return value.ulVal;
        case CIM_SINT64:
            return DecimalText<std::int64_t>(Utf8(value.bstrVal));
        case CIM_UINT64:
            return DecimalText<std::uint64_t>(Utf8(value.bstrVal));
        case CIM_REAL32:
            return ShortReal(value.fltVal);
        case CIM_REAL64:
            return Real(value.dblVal);
        case CIM_BOOLEAN:
            return value.boolVal != VARIANT_FALSE;
        case CIM_OBJECT:
            return Embedded(value);
        default:
            return Utf8(value.bstrVal);
    }
}

}  // namespace

OrderedJson ToJson(CIMTYPE type, const VARIANT& value) {
    if (IsNull(value)) return nullptr;
    if (!IsArray(type)) return Scalar(type, value);
    OrderedJson elements = OrderedJson::array();
    for (const _variant_t& element : ElementsOf(value))
        elements.push_back(ToJson(ElementType(type), element));
    return elements;
}

OrderedJson NameAsJson(IWbemClassObject& object) {
    OrderedJson json = OrderedJson::object();
    json["__CLASS"] = TextOrNull(TextOf(object, L"__CLASS"));
    json["__RELPATH"] = TextOrNull(TextOf(object, L"__RELPATH"));
    return json;
}

OrderedJson ToJson(IWbemClassObject& object) {
    OrderedJson json = NameAsJson(object);
    for (const Property& property : PropertiesOf(object))
        json[Utf8(property.name)] = ToJson(property.type, property.value);
    return json;
}

OrderedJson TextOrNull(const std::string& text) {
    return text.empty() ? OrderedJson() : OrderedJson(text);
}

void PrintJson(const OrderedJson& json) {
    std::cout << json.dump(2) << '\n';
}

}  // namespace mgmtctl
