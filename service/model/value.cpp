#include "service/model/value.h"

#include <array>
#include <bit>
#include <limits>
#include <utility>

#include "service/model/instance.h"
#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

struct TypeFacts {
    CimType type;
    std::string_view name;
    IntegerRange range;
};

template <typename Integer>
constexpr IntegerRange RangeOfInteger() {
    return {static_cast<int64_t>(std::numeric_limits<Integer>::min()),
            static_cast<uint64_t>(std::numeric_limits<Integer>::max())};
}

constexpr IntegerRange kNoRange{0, 0};

constexpr std::array kTypes{
    TypeFacts{CimType::kSint8, "sint8", RangeOfInteger<int8_t>()},
    TypeFacts{CimType::kUint8, "uint8", RangeOfInteger<uint8_t>()},
    TypeFacts{CimType::kSint16, "sint16", RangeOfInteger<int16_t>()},
    TypeFacts{CimType::kUint16, "uint16", RangeOfInteger<uint16_t>()},
    TypeFacts{CimType::kSint32, "sint32", RangeOfInteger<int32_t>()},
    TypeFacts{CimType::kUint32, "uint32", RangeOfInteger<uint32_t>()},
    TypeFacts{CimType::kSint64, "sint64", RangeOfInteger<int64_t>()},
    TypeFacts{CimType::kUint64, "uint64", RangeOfInteger<uint64_t>()},
    TypeFacts{CimType::kReal32, "real32", kNoRange},
    TypeFacts{CimType::kReal64, "real64", kNoRange},
    TypeFacts{CimType::kChar16, "char16", RangeOfInteger<uint16_t>()},
    TypeFacts{CimType::kBoolean, "boolean", kNoRange},
    TypeFacts{CimType::kString, "string", kNoRange},
    TypeFacts{CimType::kDatetime, "datetime", kNoRange},
    TypeFacts{CimType::kReference, "reference", kNoRange},
    TypeFacts{CimType::kObject, "object", kNoRange},
};

const TypeFacts& FactsOf(CimType type) noexcept {
    for (const TypeFacts& facts : kTypes) {
        if (facts.type == type) return facts;
    }
    return kTypes.back();
}

std::string DescribeFound(const ValueView& value) {
    switch (value.index()) {
        case 1:
            return "a boolean";
        case 2:
            return "the number " + std::to_string(std::get<int64_t>(value));
        case 3:
            return "the number " + std::to_string(std::get<uint64_t>(value));
        case 4:
            return "the number " + std::to_string(std::get<double>(value));
        case 5:
            return "a text";
        case 6:
            return "an object";
        case 7:
            return "an array";
        default:
            return "null";
    }
}

Status Mismatch(CimType type, const std::string& found) {
    return {WBEM_E_TYPE_MISMATCH, found + " is no value of type " + std::string(CimTypeName(type))};
}

Status CheckScalar(const PropertyType& type, const ValueView& value) {
    if (IsNull(value)) return {};
    const IntegerRange range = RangeOf(type.type);
    switch (RepresentationOf(type.type)) {
        case Representation::kBoolean:
            if (std::holds_alternative<bool>(value)) return {};
            break;
        case Representation::kSigned:
            if (const auto* number = std::get_if<int64_t>(&value)) {
                const bool in_range =
                    *number >= range.low && (*number < 0 || static_cast<uint64_t>(*number) <= range.high);
                if (in_range) return {};
            }
            break;
        case Representation::kUnsigned:
            if (const auto* number = std::get_if<uint64_t>(&value); number && *number <= range.high) {
                return {};
            }
            break;
        case Representation::kReal:
            if (std::holds_alternative<double>(value)) return {};
            break;
        case Representation::kText: {
            const auto* text = std::get_if<std::string_view>(&value);
            if (!text) break;
            if (type.type == CimType::kDatetime && !IsCimDatetime(*text)) {
                return {WBEM_E_TYPE_MISMATCH,
                        "\"" + ClipForMessage(*text, 64) +
                            "\" is no datetime: 25 characters yyyymmddHHMMSS.mmmmmm+UUU were expected"};
            }
            return {};
        }
        case Representation::kObject: {
            const auto* object = std::get_if<const ObjectPtr*>(&value);
            if (!object || !**object) break;
            if (!type.class_name.empty() && !(**object)->Class()->IsA(type.class_name)) {
                return {WBEM_E_TYPE_MISMATCH, "an embedded object of class " + (**object)->Class()->Name() +
                                                  " stands where one of class " + type.class_name +
                                                  " was expected"};
            }
            return {};
        }
    }
    return Mismatch(type.type, DescribeFound(value));
}

bool AreDigits(std::string_view text, bool allow_asterisks) noexcept {
    const bool unknown = allow_asterisks && text.find_first_not_of('*') == std::string_view::npos;
    return unknown || text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsFieldWithin(std::string_view field, int low, int high) noexcept {
    if (!AreDigits(field, true)) return false;
    if (field.front() == '*') return true;
    int number = 0;
    for (const char digit : field)
        number = number * 10 + (digit - '0');
    return number >= low && number <= high;
}

}  // namespace

bool IsCimType(uint16_t code) noexcept {
    for (const TypeFacts& facts : kTypes) {
        if (static_cast<uint16_t>(facts.type) == code) return true;
    }
    return false;
}

std::string_view CimTypeName(CimType type) noexcept {
    return FactsOf(type).name;
}

std::string DescribeType(const PropertyType& type) {
    std::string text(type.type == CimType::kReference ? "ref" : CimTypeName(type.type));
    if (!type.class_name.empty()) text += ":" + type.class_name;
    if (type.is_array) text += type.max_elements ? "[" + std::to_string(type.max_elements) + "]" : "[]";
    return text;
}

IntegerRange RangeOf(CimType type) noexcept {
    return FactsOf(type).range;
}

ValueView ViewOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> ValueView {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::string>) {
                return std::string_view(held);
            } else if constexpr (std::is_same_v<Held, ObjectPtr> || std::is_same_v<Held, Array>) {
                return &held;
            } else {
                return held;
            }
        },
        value);
}

Value OwnedCopy(const ValueView& view) {
    return std::visit(
        [](const auto& held) -> Value {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::string_view>) {
                return std::string(held);
            } else if constexpr (std::is_pointer_v<Held>) {
                return *held;
            } else {
                return held;
            }
        },
        view);
}

ValueView ViewOf(const Scalar& value) {
    return std::visit(
        [](const auto& held) -> ValueView {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::string>) {
                return std::string_view(held);
            } else if constexpr (std::is_same_v<Held, ObjectPtr>) {
                return &held;
            } else {
                return held;
            }
        },
        value);
}

Status CheckValue(const PropertyType& type, const Value& value) {
    if (IsNull(value)) return {};
    const auto* array = std::get_if<Array>(&value);
    if ((array != nullptr) != type.is_array) {
        return {WBEM_E_TYPE_MISMATCH,
                type.is_array ? DescribeFound(ViewOf(value)) + " stands where an array was expected"
                              : "an array stands where one value was expected"};
    }
    if (!array) return CheckScalar(type, ViewOf(value));

    const size_t limit = type.max_elements ? type.max_elements : kMaxArrayElements;
    if (array->size() > limit) {
        return {WBEM_E_TYPE_MISMATCH, "the array has " + std::to_string(array->size()) + " elements, " +
                                          std::to_string(limit) + " are allowed"};
    }
    // Numbers and booleans travel in arrays that have no place for "no value".
    const Representation representation = RepresentationOf(type.type);
    const bool may_be_null =
        representation == Representation::kText || representation == Representation::kObject;
    for (size_t i = 0; i < array->size(); ++i) {
        if (!may_be_null && (*array)[i].index() == 0) {
            return {WBEM_E_TYPE_MISMATCH,
                    "element " + std::to_string(i) + " is null, which only arrays of texts and objects hold"};
        }
        if (Status fault = CheckScalar(type, ViewOf((*array)[i])); !fault.ok()) {
            return {fault.code(), "element " + std::to_string(i) + ": " + fault.reason()};
        }
    }
    return {};
}

bool SameValue(const Value& a, const Value& b) {
    if (a.index() != b.index()) return false;
    if (const auto* real = std::get_if<double>(&a)) {
        return std::bit_cast<uint64_t>(*real) == std::bit_cast<uint64_t>(std::get<double>(b));
    }
    if (const auto* object = std::get_if<ObjectPtr>(&a)) {
        return SameInstance(**object, *std::get<ObjectPtr>(b));
    }
    const auto* array = std::get_if<Array>(&a);
    if (!array) return a == b;
    const auto& other = std::get<Array>(b);
    if (array->size() != other.size()) return false;
    for (size_t i = 0; i < array->size(); ++i) {
        const auto widen = [](const Scalar& element) {
            return std::visit([](const auto& held) -> Value { return held; }, element);
        };
        if (!SameValue(widen((*array)[i]), widen(other[i]))) return false;
    }
    return true;
}

bool IsCimDatetime(std::string_view text) noexcept {
    if (text.size() != 25 || text[14] != '.') return false;
    const char sign = text[21];
    if (sign == ':') {
        return AreDigits(text.substr(0, 8), true) && IsFieldWithin(text.substr(8, 2), 0, 23) &&
               IsFieldWithin(text.substr(10, 2), 0, 59) && IsFieldWithin(text.substr(12, 2), 0, 59) &&
               AreDigits(text.substr(15, 6), true) && text.substr(22) == "000";
    }
    return (sign == '+' || sign == '-') && AreDigits(text.substr(0, 4), true) &&
           IsFieldWithin(text.substr(4, 2), 1, 12) && IsFieldWithin(text.substr(6, 2), 1, 31) &&
           IsFieldWithin(text.substr(8, 2), 0, 23) && IsFieldWithin(text.substr(10, 2), 0, 59) &&
           IsFieldWithin(text.substr(12, 2), 0, 59) && AreDigits(text.substr(15, 6), true) &&
           AreDigits(text.substr(22, 3), true);
}

}  // namespace service
