#include "tools/mgmtctl/values.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>

#include <nlohmann/json.hpp>

#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

using Json = nlohmann::json;

_variant_t TextVariant(const std::string& utf8) {
    const std::wstring wide = Wide(utf8);
    _variant_t value;
    value.bstrVal = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    if (value.bstrVal == nullptr) throw std::bad_alloc();
    value.vt = VT_BSTR;
    return value;
}

// The whole of `text` as a number in the given base.
template <typename Number, typename... Base>
std::optional<Number> WholeNumber(std::string_view text, Base... base) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data(), end, number, base...);
    if (fault != std::errc() || stop != end) return std::nullopt;
    return number;
}

// What an integer of a type may be.
struct Range {
    std::int64_t low;
    std::uint64_t high;
};

template <typename Integer>
Range RangeOf() {
    return {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()};
}

Range RangeOf(CIMTYPE type) {
    switch (type) {
        case CIM_SINT8:
            return RangeOf<std::int8_t>();
        case CIM_UINT8:
            return RangeOf<std::uint8_t>();
        case CIM_SINT16:
            return RangeOf<std::int16_t>();
        case CIM_UINT16:
            return RangeOf<std::uint16_t>();
        case CIM_SINT32:
            return RangeOf<std::int32_t>();
        case CIM_UINT32:
            return RangeOf<std::uint32_t>();
        case CIM_SINT64:
            return RangeOf<std::int64_t>();
        default:
            return RangeOf<std::uint64_t>();
    }
}

// What is expected in place of a text that is refused.
std::string ExpectedFor(CIMTYPE type) {
    switch (type) {
        case CIM_REAL32:
            return "a real number (0, 1.4e-45 to 3.4028235e38 or the negative of one) or NaN, INF or -INF";
        case CIM_REAL64:
            return "a real number (0, 4.9e-324 to 1.7976931348623157e308 or the negative of one) or NaN, INF "
                   "or -INF";
        case CIM_BOOLEAN:
            return "true or false";
        case CIM_CHAR16:
            return "one character up to U+FFFF, or its number with two digits or more";
        case CIM_DATETIME:
            return "a date such as 2026-11-22T10:30:00+01:00 or 20261122103000.000000+060, or an interval "
                   "such as 00000001120000.000000:000";
        default:
            const Range range = RangeOf(type);
            return "an integer from " + std::to_string(range.low) + " to " + std::to_string(range.high);
    }
}

std::optional<_variant_t> ReadInteger(std::string_view text, const Range& range) {
    const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const auto natural =
        is_hexadecimal ? WholeNumber<std::uint64_t>(text.substr(2), 16) : WholeNumber<std::uint64_t>(text);
    if (natural && *natural <= range.high) return TextVariant(std::to_string(*natural));
    const auto negative = WholeNumber<std::int64_t>(text);
    const bool fits = negative && *negative <= 0 && *negative >= range.low;
    if (!fits) return std::nullopt;
    return TextVariant(std::to_string(*negative));
}

std::optional<_variant_t> ReadBoolean(const std::string& text) {
    if (text == "true" || text == "TRUE" || text == "True") return _variant_t(true);
    if (text == "false" || text == "FALSE" || text == "False") return _variant_t(false);
    return std::nullopt;
}

template <typename Real>
std::optional<_variant_t> ReadReal(std::string_view text) {
    const auto number = WholeNumber<Real>(text);
    if (!number) return std::nullopt;
    return _variant_t(*number);
}

// Travels as its number, as every integer does. Half a surrogate pair can be written as its number only; a
// single digit is the character that it is.
std::optional<_variant_t> ReadCharacter(const std::string& text) {
    const std::wstring wide = Wide(text);
    if (wide.size() != 1) return ReadInteger(text, RangeOf<std::uint16_t>());
    const auto point = static_cast<char32_t>(wide.front());
    if (point > 0xFFFF) return std::nullopt;
    return TextVariant(std::to_string(std::uint32_t{point}));
}

std::optional<_variant_t> ReadDatetime(const std::string& text) {
    const std::optional<std::string> cim = CimDatetime(text);
    if (!cim) return std::nullopt;
    return TextVariant(*cim);
}

std::optional<_variant_t> TryScalar(CIMTYPE type, const std::string& text) {
    switch (type) {
        case CIM_STRING:
        case CIM_REFERENCE:
            return TextVariant(text);
        case CIM_DATETIME:
            return ReadDatetime(text);
        case CIM_CHAR16:
            return ReadCharacter(text);
        case CIM_BOOLEAN:
            return ReadBoolean(text);
        case CIM_REAL32:
            return ReadReal<float>(text);
        case CIM_REAL64:
            return ReadReal<double>(text);
        default:
            return ReadInteger(text, RangeOf(type));
    }
}

bool IsTextType(CIMTYPE type) {
    return type == CIM_STRING || type == CIM_REFERENCE || type == CIM_DATETIME || type == CIM_CHAR16;
}

[[noreturn]] void Refuse(const Property& property, const std::string& found, const std::string& expected) {
    throw UsageFailure(Utf8(property.name) + " is of type " + TypeName(property.type) + ": " + found +
                       " is not " + expected);
}

_variant_t ReadScalar(const Property& property, const std::string& text) {
    const CIMTYPE type = ElementType(property.type);
    std::optional<_variant_t> value = TryScalar(type, text);
    if (!value) Refuse(property, "\"" + text + "\"", ExpectedFor(type));
    return *std::move(value);
}

// Text in double quotes as the JSON string that it is, any other text as it stands.
std::string Unquoted(const Property& property, const std::string& text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return text;
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_string()) Refuse(property, text, "a JSON string, as text in double quotes has to be");
    return json.get<std::string>();
}

// The text of a JSON element, to be read as the property's type.
std::string ElementText(const Property& property, const Json& element) {
    if (element.is_string()) return element.get<std::string>();
    if (ElementType(property.type) == CIM_CHAR16 && element.is_number_unsigned() && element > 9)
        return element.dump();
    const bool is_text_type = IsTextType(ElementType(property.type));
    if (is_text_type || !(element.is_number() || element.is_boolean()))
        Refuse(property, element.dump(), is_text_type ? "a JSON string" : "a JSON number, string or boolean");
    return element.dump();
}

_variant_t NullElement(const Property& property) {
    if (ElementType(property.type) == CIM_CHAR16 || !IsTextType(ElementType(property.type)))
        Refuse(property, "null", "an element that this type can hold");
    return _variant_t(static_cast<const wchar_t*>(nullptr));
}

VARTYPE VariantTypeOf(CIMTYPE type) {
    switch (type) {
        case CIM_BOOLEAN:
            return VT_BOOL;
        case CIM_REAL32:
            return VT_R4;
        case CIM_REAL64:
            return VT_R8;
        default:
            return VT_BSTR;
    }
}

_variant_t ArrayVariant(VARTYPE type, const std::vector<_variant_t>& elements) {
    _variant_t array;
    array.parray = SafeArrayCreateVector(type, 0, static_cast<ULONG>(elements.size()));
    if (array.parray == nullptr) throw std::bad_alloc();
    array.vt = static_cast<VARTYPE>(VT_ARRAY | type);
    LONG index = 0;
    for (const _variant_t& element : elements) {
        void* const value =
            type == VT_BSTR ? static_cast<void*>(element.bstrVal) : const_cast<LONGLONG*>(&element.llVal);
        Check(SafeArrayPutElement(array.parray, &index, value), "cannot make an array");
        ++index;
    }
    return array;
}

_variant_t ReadArray(const Property& property, const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_array()) Refuse(property, text, R"(a JSON array such as ["a","b"] or [1,2])");
    std::vector<_variant_t> elements;
    elements.reserve(json.size());
    for (const Json& element : json) {
        elements.push_back(element.is_null() ? NullElement(property)
                                             : ReadScalar(property, ElementText(property, element)));
    }
    return ArrayVariant(VariantTypeOf(ElementType(property.type)), elements);
}

}  // namespace

_variant_t ReadValue(const Property& property, const std::string& text) {
    if (text == "null") {
        _variant_t null;
        null.vt = VT_NULL;
        return null;
    }
    if (ElementType(property.type) == CIM_OBJECT) {
        throw UsageFailure(Utf8(property.name) +
                           " holds an embedded object: it can be set to null here, and to an object by "
                           "importing an instance that has one");
    }
    if (IsArray(property.type)) return ReadArray(property, text);
    return ReadScalar(property, Unquoted(property, text));
}

}  // namespace mgmtctl
