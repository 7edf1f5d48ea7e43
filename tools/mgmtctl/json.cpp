#include "tools/mgmtctl/json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <utility>

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

// An instance while it is written. No name comes twice, so that none has to be looked for.
class InstanceJson {
 public:
    InstanceJson(IWbemClassObject& instance, std::size_t count) {
        constexpr std::size_t SYSTEM_PROPERTIES = 3;
        members_.reserve(count + SYSTEM_PROPERTIES);
        members_.emplace_back("__CLASS", TextOrNull(TextOf(instance, L"__CLASS")));
        members_.emplace_back("__RELPATH", TextOrNull(TextOf(instance, L"__RELPATH")));
    }

    void Add(const Property& property) {
        std::string name = Utf8(property.name);
        if (property.is_unset) unset_.push_back(name);
        members_.emplace_back(std::move(name), ToJson(property.type, property.value));
    }

    OrderedJson Finish() {
        members_.emplace_back("__UNSET", std::move(unset_));
        return std::move(members_);
    }

 private:
    OrderedJson::object_t members_;
    OrderedJson::array_t unset_;
};

}  // namespace

OrderedJson ToJson(CIMTYPE type, const VARIANT& value) {
    if (IsNull(value)) return nullptr;
    if (!IsArray(type)) return Scalar(type, value);
    OrderedJson elements = OrderedJson::array();
    for (const _variant_t& element : ElementsOf(value))
        elements.push_back(ToJson(ElementType(type), element));
    return elements;
}

OrderedJson ToJson(IWbemClassObject& instance) {
    const std::vector<Property> properties = PropertiesOf(instance);
    InstanceJson json(instance, properties.size());
    for (const Property& property : properties)
        json.Add(property);
    return json.Finish();
}

OrderedJson ToJson(IWbemClassObject& instance, const std::vector<std::wstring>& names) {
    InstanceJson json(instance, names.size());
    for (const std::wstring& name : names) {
        const bool is_there = name == L"__CLASS" || name == L"__RELPATH";
        if (!is_there) json.Add(PropertyOf(instance, name).value_or(Property{name, CIM_EMPTY, {}, false}));
    }
    return json.Finish();
}

OrderedJson TextOrNull(const std::string& text) {
    return text.empty() ? OrderedJson() : OrderedJson(text);
}

void PrintJson(const OrderedJson& json) {
    std::cout << json.dump(2) << '\n';
}

}  // namespace mgmtctl
