#include "tools/mgmtctl/values.h"

#include <charconv>
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

// What is expected in place of `text`, for the sentence that refuses it.
const char* ExpectedFor(CIMTYPE type) {
    switch (type) {
        case CIM_REAL32:
        case CIM_REAL64:
            return "a real number within the type's range";
        case CIM_BOOLEAN:
            return "true or false";
        case CIM_CHAR16:
            return "one character up to U+FFFF";
        case CIM_DATETIME:
            return "a date such as 2026-11-22T10:30:00+01:00 or 20261122103000.000000+060, or an interval "
                   "such "
                   "as 00000001120000.000000:000";
        default:
            return "an integer of at most 64 bits";
    }
}

std::optional<_variant_t> ReadInteger(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        const auto number = WholeNumber<std::uint64_t>(text.substr(2), 16);
        if (!number) return std::nullopt;
        return TextVariant(std::to_string(*number));
    }
    if (const auto number = WholeNumber<std::int64_t>(text)) return TextVariant(std::to_string(*number));
    if (const auto number = WholeNumber<std::uint64_t>(text)) return TextVariant(std::to_string(*number));
    return std::nullopt;
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

// Travels as its number, as every integer does.
std::optional<_variant_t> ReadCharacter(const std::string& text) {
    const std::wstring wide = Wide(text);
    if (wide.size() != 1 || static_cast<std::uint32_t>(wide.front()) > 0xFFFF) return std::nullopt;
    return TextVariant(std::to_string(static_cast<std::uint32_t>(wide.front())));
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
            return ReadInteger(text);
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
    const bool is_text_type = IsTextType(ElementType(property.type));
    if (element.is_string()) return element.get<std::string>();
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
    return ReadScalar(property, IsTextType(property.type) ? Unquoted(property, text) : text);
}

}  // namespace mgmtctl
