#include "service/store/value_conversion.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

#include "service/model/real_text.h"

namespace service {
namespace {

template <typename Number>
std::string Printed(Number number) {
    char digits[32];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    return {digits, end};
}

// The number that `text` is printed from; none for any other text.
template <typename Number>
std::optional<Number> Parsed(const std::string& text) {
    Number number{};
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || Printed(number) != text) return std::nullopt;
    return number;
}

std::optional<Scalar> ParsedReal(CimType type, const std::string& text) {
    const char* const end = text.data() + text.size();
    double number = 0;
    float single = 0;
    const auto parsed = type == CimType::kReal32 ? std::from_chars(text.data(), end, single)
                                                 : std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc()) return std::nullopt;
    if (type == CimType::kReal32) number = double{single};
    if (RealText(type, number) != text) return std::nullopt;
    return number;
}

std::optional<Scalar> ToText(CimType from, const Scalar& value) {
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    if (const auto* flag = std::get_if<bool>(&value)) return std::string(*flag ? "TRUE" : "FALSE");
    if (const auto* number = std::get_if<int64_t>(&value)) return Printed(*number);
    if (const auto* number = std::get_if<uint64_t>(&value)) return Printed(*number);
    if (const auto* real = std::get_if<double>(&value)) return RealText(from, *real);
    return std::nullopt;
}

std::optional<Scalar> ToBoolean(const Scalar& value) {
    if (std::holds_alternative<bool>(value)) return value;
    if (value == Scalar(int64_t{0}) || value == Scalar(uint64_t{0}) || value == Scalar(std::string("FALSE")))
        return false;
    if (value == Scalar(int64_t{1}) || value == Scalar(uint64_t{1}) || value == Scalar(std::string("TRUE")))
        return true;
    return std::nullopt;
}

std::optional<Scalar> ToSigned(const Scalar& value) {
    constexpr double kBeyond = 0x1p63;
    if (const auto* flag = std::get_if<bool>(&value)) return int64_t{*flag};
    if (std::holds_alternative<int64_t>(value)) return value;
    if (const auto* number = std::get_if<uint64_t>(&value)) {
        if (*number <= uint64_t{INT64_MAX}) return static_cast<int64_t>(*number);
    }
    if (const auto* real = std::get_if<double>(&value)) {
        const bool is_whole = *real >= -kBeyond && *real < kBeyond && std::trunc(*real) == *real;
        if (is_whole && !(*real == 0 && std::signbit(*real))) return static_cast<int64_t>(*real);
    }
    if (const auto* text = std::get_if<std::string>(&value)) return Parsed<int64_t>(*text);
    return std::nullopt;
}

std::optional<Scalar> ToUnsigned(const Scalar& value) {
    if (std::holds_alternative<uint64_t>(value)) return value;
    if (const auto* text = std::get_if<std::string>(&value)) return Parsed<uint64_t>(*text);
    constexpr double kBeyond = 0x1p64;
    if (const auto* real = std::get_if<double>(&value); real && *real >= 0x1p63) {
        if (*real < kBeyond) return static_cast<uint64_t>(*real);
        return std::nullopt;
    }
    const auto number = ToSigned(value);
    if (!number || std::get<int64_t>(*number) < 0) return std::nullopt;
    return static_cast<uint64_t>(std::get<int64_t>(*number));
}

// An integer that a real cannot hold exactly would come back as another one.
std::optional<Scalar> ToReal(const Scalar& value) {
    if (std::holds_alternative<double>(value)) return value;
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1.0 : 0.0;
    if (const auto* text = std::get_if<std::string>(&value)) return ParsedReal(CimType::kReal64, *text);
    if (std::holds_alternative<ObjectPtr>(value)) return std::nullopt;
    const Scalar real = std::holds_alternative<int64_t>(value)
                            ? static_cast<double>(std::get<int64_t>(value))
                            : static_cast<double>(std::get<uint64_t>(value));
    const auto back = std::holds_alternative<int64_t>(value) ? ToSigned(real) : ToUnsigned(real);
    if (!back || *back != value) return std::nullopt;
    return real;
}

std::optional<Scalar> ConvertedScalar(CimType from, CimType to, const Scalar& value) {
    if (value.index() == 0 || from == to) return value;
    const bool is_text = RepresentationOf(from) == Representation::kText;
    const bool to_text = RepresentationOf(to) == Representation::kText;
    const bool is_character = from == CimType::kChar16 || to == CimType::kChar16;
    if (is_character && (is_text || to_text)) return std::nullopt;
    switch (RepresentationOf(to)) {
        case Representation::kBoolean:
            return ToBoolean(value);
        case Representation::kSigned:
            return ToSigned(value);
        case Representation::kUnsigned:
            return ToUnsigned(value);
        case Representation::kReal: {
            if (const auto* text = std::get_if<std::string>(&value); text && to == CimType::kReal32) {
                if (auto single = ParsedReal(to, *text)) return single;
            }
            const auto real = ToReal(value);
            if (!real || to != CimType::kReal32) return real;
            const double number = std::get<double>(*real);
            const bool fits = std::isnan(number) || double{static_cast<float>(number)} == number;
            return fits ? real : std::nullopt;
        }
        case Representation::kText:
            return ToText(from, value);
        case Representation::kObject:
            break;
    }
    return std::nullopt;
}

Scalar ScalarOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> Scalar {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, Array>) {
                return {};
            } else {
                return held;
            }
        },
        value);
}

Value ValueOfScalar(Scalar scalar) {
    return std::visit([](auto& held) -> Value { return std::move(held); }, scalar);
}

}  // namespace

std::optional<Value> ConvertedValue(const PropertyType& from, const PropertyType& to, const Value& value) {
    if (IsNull(value)) return value;
    Array converted;
    if (const auto* array = std::get_if<Array>(&value)) {
        for (const Scalar& element : *array) {
            auto scalar = ConvertedScalar(from.type, to.type, element);
            if (!scalar) return std::nullopt;
            converted.push_back(std::move(*scalar));
        }
    } else {
        auto scalar = ConvertedScalar(from.type, to.type, ScalarOf(value));
        if (!scalar) return std::nullopt;
        converted.push_back(std::move(*scalar));
    }
    if (!to.is_array && (converted.size() != 1 || converted[0].index() == 0)) return std::nullopt;
    Value result = to.is_array ? Value(std::move(converted)) : ValueOfScalar(std::move(converted[0]));
    if (!CheckValue(to, result).ok()) return std::nullopt;
    return result;
}

}  // namespace service
