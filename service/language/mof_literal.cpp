#include "service/language/mof_literal.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <type_traits>
#include <utility>

#include "service/model/text.h"

namespace service {
namespace {

std::string DescribeInteger(const MofInteger& number) {
    return (number.is_negative ? "-" : "") + std::to_string(number.magnitude);
}

std::string DescribeReal(double number) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", number);
    return text;
}

std::string DescribeAllowed(CimType type) {
    const std::string name(CimTypeName(type));
    const IntegerRange range = RangeOf(type);
    switch (RepresentationOf(type)) {
        case Representation::kSigned:
        case Representation::kUnsigned: {
            const std::string numbers = name + " takes whole numbers from " + std::to_string(range.low) +
                                        " to " + std::to_string(range.high);
            return type == CimType::kChar16 ? numbers + " and a character in single quotes" : numbers;
        }
        case Representation::kReal:
            return name + " takes numbers" +
                   (type == CimType::kReal32 ? " of at most 3.4028235e+38 and, but for 0, of at least 1.4e-45"
                                             : "");
        case Representation::kBoolean:
            return "a boolean takes TRUE and FALSE";
        case Representation::kText:
            if (type == CimType::kReference)
                return "a reference takes an object path in double quotes and an alias";
            if (type == CimType::kDatetime) {
                return "a datetime takes a text of 25 characters, yyyymmddHHMMSS.mmmmmm+UUU or "
                       "ddddddddHHMMSS.mmmmmm:000";
            }
            return "a string takes a text in double quotes";
        case Representation::kObject:
            break;
    }
    return "an embedded object is written instance of Class { ... }";
}

Status Mismatch(CimType type, const MofValue& literal) {
    return {WBEM_E_TYPE_MISMATCH, DescribeLiteral(literal) + " was found, " + DescribeAllowed(type)};
}

bool ConvertSigned(const MofInteger& number, IntegerRange range, Scalar& scalar) {
    // The magnitude of the lowest value is one more than that of the highest.
    const uint64_t limit = number.is_negative ? uint64_t{0} - static_cast<uint64_t>(range.low) : range.high;
    if (number.magnitude > limit) return false;
    scalar = static_cast<int64_t>(number.is_negative ? uint64_t{0} - number.magnitude : number.magnitude);
    return true;
}

bool ConvertUnsigned(const MofInteger& number, IntegerRange range, Scalar& scalar) {
    if (number.magnitude > range.high || (number.is_negative && number.magnitude != 0)) return false;
    scalar = number.magnitude;
    return true;
}

bool ConvertReal(CimType type, const MofValue& literal, Scalar& scalar) {
    double number = 0;
    if (const auto* real = std::get_if<double>(&literal.content)) {
        number = *real;
    } else if (const auto* great = std::get_if<MofGreatInteger>(&literal.content)) {
        number = great->nearest;
    } else if (const auto* integer = std::get_if<MofInteger>(&literal.content)) {
        number = static_cast<double>(integer->magnitude);
        if (integer->is_negative) number = -number;
    } else {
        return false;
    }
    if (type == CimType::kReal32) {
        const auto rounded = static_cast<float>(number);
        if (std::isinf(rounded) && !std::isinf(number)) return false;
        if (rounded == 0 && number != 0) return false;
        number = double{rounded};
    }
    scalar = number;
    return true;
}

bool ConvertText(CimType type, const MofValue& literal, Scalar& scalar) {
    const auto* text = std::get_if<std::string_view>(&literal.content);
    if (!text || (type == CimType::kDatetime && !IsCimDatetime(*text))) return false;
    scalar = std::string(*text);
    return true;
}

// The smallest of sint32, sint64 and uint64 that holds `number` beside what `type` held.
CimType Widened(CimType type, const MofInteger& number) {
    Scalar unused;
    for (const CimType wider : {CimType::kSint32, CimType::kSint64}) {
        const bool holds_earlier = type == wider || type == CimType::kSint32;
        if (holds_earlier && ConvertSigned(number, RangeOf(wider), unused)) return wider;
    }
    return CimType::kUint64;
}

CimType TypeOfLiteral(const MofValue& literal) {
    if (std::holds_alternative<bool>(literal.content)) return CimType::kBoolean;
    if (std::holds_alternative<MofInteger>(literal.content)) return CimType::kSint32;
    if (std::holds_alternative<MofGreatInteger>(literal.content)) return CimType::kUint64;
    if (std::holds_alternative<double>(literal.content)) return CimType::kReal64;
    if (std::holds_alternative<char16_t>(literal.content)) return CimType::kChar16;
    return CimType::kString;
}

// The type that all of `literals` fit into; the elements that do not are found when they are converted.
CimType TypeOfLiterals(const MofValue* literals, size_t count) {
    CimType type = CimType::kString;
    bool is_known = false;
    for (const MofValue* literal = literals; literal != literals + count; ++literal) {
        if (std::holds_alternative<std::monostate>(literal->content)) continue;
        if (!std::exchange(is_known, true)) type = TypeOfLiteral(*literal);
        const bool is_whole =
            type == CimType::kSint32 || type == CimType::kSint64 || type == CimType::kUint64;
        if (!is_whole) continue;
        if (const auto* number = std::get_if<MofInteger>(&literal->content)) type = Widened(type, *number);
        if (std::holds_alternative<MofGreatInteger>(literal->content)) type = CimType::kUint64;
        if (std::holds_alternative<double>(literal->content)) type = CimType::kReal64;
    }
    return type;
}

}  // namespace

std::string DescribeLiteral(const MofValue& literal) {
    return std::visit(
        [](const auto& held) -> std::string {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::monostate>) {
                return "NULL";
            } else if constexpr (std::is_same_v<Held, bool>) {
                return held ? "TRUE" : "FALSE";
            } else if constexpr (std::is_same_v<Held, MofInteger>) {
                return "the number " + DescribeInteger(held);
            } else if constexpr (std::is_same_v<Held, MofGreatInteger>) {
                return "a number of more than 64 bits";
            } else if constexpr (std::is_same_v<Held, double>) {
                return "the number " + DescribeReal(held);
            } else if constexpr (std::is_same_v<Held, char16_t>) {
                return "a character";
            } else if constexpr (std::is_same_v<Held, std::string_view>) {
                return "the text " + Quote(held);
            } else if constexpr (std::is_same_v<Held, MofAlias>) {
                return "the alias $" + Clip(held.name);
            } else if constexpr (std::is_same_v<Held, MofArray>) {
                return "an array";
            } else {
                return "an embedded object of class " + Clip(held->class_name.text);
            }
        },
        literal.content);
}

Status ConvertLiteral(const PropertyType& type, const MofValue& literal, Scalar& scalar) {
    scalar = std::monostate();
    if (std::holds_alternative<std::monostate>(literal.content)) return {};
    const IntegerRange range = RangeOf(type.type);
    const auto* number = std::get_if<MofInteger>(&literal.content);
    bool is_converted = false;
    switch (RepresentationOf(type.type)) {
        case Representation::kSigned:
            is_converted = number && ConvertSigned(*number, range, scalar);
            break;
        case Representation::kUnsigned:
            if (const auto* unit = std::get_if<char16_t>(&literal.content);
                unit && type.type == CimType::kChar16) {
                scalar = uint64_t{*unit};
                is_converted = true;
            } else {
                is_converted = number && ConvertUnsigned(*number, range, scalar);
            }
            break;
        case Representation::kReal:
            is_converted = ConvertReal(type.type, literal, scalar);
            break;
        case Representation::kBoolean:
            if (const auto* flag = std::get_if<bool>(&literal.content)) {
                scalar = *flag;
                is_converted = true;
            }
            break;
        case Representation::kText:
            is_converted = ConvertText(type.type, literal, scalar);
            break;
        case Representation::kObject:
            break;
    }
    if (is_converted) return {};
    return Mismatch(type.type, literal);
}

Status ConvertConstant(const PropertyType& type, const MofValue& literal, Value& value) {
    const auto* array = std::get_if<MofArray>(&literal.content);
    if (!type.is_array || std::holds_alternative<std::monostate>(literal.content)) {
        if (array) {
            return {WBEM_E_TYPE_MISMATCH,
                    "an array was found, " + DescribeType(type) + " takes one value, in parentheses"};
        }
        Scalar scalar;
        SERVICE_RETURN_IF_ERROR(ConvertLiteral(type, literal, scalar));
        value = std::visit([](auto& held) -> Value { return std::move(held); }, scalar);
        return {};
    }
    if (!array) {
        return {WBEM_E_TYPE_MISMATCH, DescribeLiteral(literal) + " was found, " + DescribeType(type) +
                                          " takes an array, { value, ... }"};
    }
    Array converted(array->size());
    for (size_t i = 0; i < array->size(); ++i) {
        if (Status fault = ConvertLiteral(type, (*array)[i], converted[i]); !fault.ok())
            return {fault.code(), "element " + std::to_string(i) + ": " + fault.reason()};
    }
    value = std::move(converted);
    return {};
}

Status ConvertQualifierValue(const MofQualifier& qualifier, PropertyType& type, Value& value) {
    type = {CimType::kBoolean, false, 0, {}};
    value = true;
    if (!qualifier.value) return {};
    const auto* array = std::get_if<MofArray>(&qualifier.value->content);
    type.is_array = array != nullptr;
    type.type = array ? TypeOfLiterals(array->data(), array->size()) : TypeOfLiterals(&*qualifier.value, 1);
    return ConvertConstant(type, *qualifier.value, value);
}

uint32_t DefaultFlavorOf(std::string_view qualifier) {
    constexpr std::array<std::string_view, 3> kRestricted{"abstract", "terminal", "deprecated"};
    constexpr std::array<std::string_view, 5> kNotOverridable{"key", "association", "indication", "in",
                                                              "out"};
    uint32_t flavor = kFlavorToSubclass;
    for (const std::string_view name : kRestricted) {
        if (EqualFolded(name, qualifier)) flavor = 0;
    }
    for (const std::string_view name : kNotOverridable) {
        if (EqualFolded(name, qualifier)) flavor |= kFlavorNotOverridable;
    }
    return flavor;
}

uint32_t FlavorOf(const MofQualifier& qualifier) {
    return ChangedFlavor(DefaultFlavorOf(qualifier.name.text), qualifier.flavors);
}

uint32_t ChangedFlavor(uint32_t flavor, const std::vector<MofFlavor>& changes) {
    for (const MofFlavor given : changes) {
        switch (given) {
            case MofFlavor::kEnableOverride:
                flavor &= ~kFlavorNotOverridable;
                break;
            case MofFlavor::kDisableOverride:
                flavor |= kFlavorNotOverridable;
                break;
            case MofFlavor::kToSubclass:
                flavor |= kFlavorToSubclass;
                break;
            case MofFlavor::kNotToSubclass:
                flavor &= ~kFlavorToSubclass;
                break;
            case MofFlavor::kToInstance:
                flavor |= kFlavorToInstance;
                break;
            case MofFlavor::kNotToInstance:
                flavor &= ~kFlavorToInstance;
                break;
            case MofFlavor::kAmended:
                flavor |= kFlavorAmended;
                break;
        }
    }
    return flavor;
}

}  // namespace service
