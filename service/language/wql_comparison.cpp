#include "service/language/wql_comparison.h"

#include <chrono>
#include <cmath>
#include <optional>
#include <utility>

#include "service/model/text.h"

namespace service {
namespace {

std::partial_ordering CompareWholes(const WqlNumber& a, const WqlNumber& b) noexcept {
    const auto is_negative = [](const WqlNumber& number) {
        const auto* value = std::get_if<int64_t>(&number);
        return value && *value < 0;
    };
    const auto bits = [](const WqlNumber& number) {
        const auto* value = std::get_if<int64_t>(&number);
        return value ? static_cast<uint64_t>(*value) : *std::get_if<uint64_t>(&number);
    };
    if (is_negative(a) != is_negative(b))
        return is_negative(a) ? std::partial_ordering::less : std::partial_ordering::greater;
    // Two's complement keeps the order among the negative ones.
    return bits(a) <=> bits(b);
}

std::partial_ordering CompareWholeWithReal(const WqlNumber& whole, double real) noexcept {
    constexpr double kAboveAll = 18446744073709551616.0;  // 2^64
    constexpr double kLowest = -9223372036854775808.0;    // -2^63
    if (std::isnan(real)) return std::partial_ordering::unordered;
    if (real >= kAboveAll) return std::partial_ordering::less;
    if (real < kLowest) return std::partial_ordering::greater;
    const double below = std::floor(real);
    const WqlNumber rounded =
        below < 0 ? WqlNumber(static_cast<int64_t>(below)) : WqlNumber(static_cast<uint64_t>(below));
    const std::partial_ordering order = CompareWholes(whole, rounded);
    return std::is_eq(order) && real > below ? std::partial_ordering::less : order;
}

std::partial_ordering Reversed(std::partial_ordering order) noexcept {
    if (std::is_lt(order)) return std::partial_ordering::greater;
    return std::is_gt(order) ? std::partial_ordering::less : order;
}

int64_t NumberOf(std::string_view digits) noexcept {
    int64_t number = 0;
    for (const char digit : digits)
        number = number * 10 + (digit - '0');
    return number;
}

struct Moment {
    bool is_interval = false;
    int64_t microseconds = 0;  // since 1970-01-01 00:00 UTC, or the interval's length
};

// Nothing for a datetime with unknown fields. A day that its month does not have is one of the next.
std::optional<Moment> MomentOf(std::string_view datetime) {
    if (!IsCimDatetime(datetime) || datetime.find('*') != std::string_view::npos) return std::nullopt;
    const auto field = [&](size_t start, size_t length) { return NumberOf(datetime.substr(start, length)); };
    Moment moment;
    moment.is_interval = datetime[21] == ':';
    int64_t days = 0;
    int64_t offset_minutes = 0;
    if (moment.is_interval) {
        days = field(0, 8);
    } else {
        using namespace std::chrono;
        const year_month month = year(static_cast<int>(field(0, 4))) / static_cast<int>(field(4, 2));
        days = sys_days(month / day(1)).time_since_epoch().count() + field(6, 2) - 1;
        offset_minutes = datetime[21] == '-' ? -field(22, 3) : field(22, 3);
    }
    const int64_t minutes = (days * 24 + field(8, 2)) * 60 + field(10, 2) - offset_minutes;
    moment.microseconds = (minutes * 60 + field(12, 2)) * 1'000'000 + field(15, 6);
    return moment;
}

// The character that a char16 is; nothing for half of a surrogate pair, which is none.
std::optional<std::string> FoldedCharacter(uint64_t unit) {
    const auto wide = static_cast<wchar_t>(unit);
    std::string utf8;
    if (!AppendUtf8({&wide, 1}, utf8)) return std::nullopt;
    return Fold(utf8);
}

bool IsOneUnit(std::string_view utf8) {
    const std::wstring wide = ToWideLossy(utf8);
    return wide.size() == 1 && static_cast<char32_t>(wide.front()) <= 0xFFFF;
}

bool IsEquality(WqlOperator comparison) noexcept {
    return comparison == WqlOperator::kEqual || comparison == WqlOperator::kNotEqual;
}

std::string DescribeLiteral(const WqlLiteral& literal) {
    if (const auto* flag = std::get_if<bool>(&literal)) return *flag ? "TRUE" : "FALSE";
    if (const auto* text = std::get_if<WqlText>(&literal))
        return "the text \"" + ClipForMessage(text->text, 80) + '"';
    return std::holds_alternative<std::monostate>(literal) ? "NULL" : "a number";
}

std::string DescribeAllowed(CimType type) {
    switch (RepresentationOf(type)) {
        case Representation::kBoolean:
            return "TRUE, FALSE, 1 or 0";
        case Representation::kSigned:
        case Representation::kReal:
            return "a number";
        case Representation::kUnsigned:
            return type == CimType::kChar16 ? "a text of one UTF-16 unit or a number" : "a number";
        default:
            return type == CimType::kDatetime
                       ? "a text of 25 characters, yyyymmddHHMMSS.mmmmmm+UUU or ddddddddHHMMSS.mmmmmm:000, "
                         "without asterisks"
                       : "a text";
    }
}

Status Invalid(size_t position, const std::string& message) {
    return WqlFault(WBEM_E_INVALID_QUERY, position, message);
}

}  // namespace

std::partial_ordering CompareNumbers(const WqlNumber& a, const WqlNumber& b) noexcept {
    const auto* real_a = std::get_if<double>(&a);
    const auto* real_b = std::get_if<double>(&b);
    if (real_a && real_b) return *real_a <=> *real_b;
    if (real_b) return CompareWholeWithReal(a, *real_b);
    if (real_a) return Reversed(CompareWholeWithReal(b, *real_a));
    return CompareWholes(a, b);
}

Result<WqlComparison> WqlComparison::Prepare(const PropertyType& type, const WqlTerm& term,
                                             std::shared_ptr<const WqlPattern> pattern) {
    const std::string& name = term.path.names.back();
    const Representation representation = RepresentationOf(type.type);
    if (type.is_array || representation == Representation::kObject) {
        return Invalid(term.path.position,
                       name + (type.is_array ? " is an array" : " is an embedded object") +
                           ", it is compared with NULL only" + (type.is_array ? "" : " and by ISA"));
    }
    WqlComparison comparison;
    comparison.operator_ = term.comparison;
    if (term.comparison == WqlOperator::kLike) {
        if (representation != Representation::kText) {
            return Invalid(term.path.position, name + " is of type " + std::string(CimTypeName(type.type)) +
                                                   ", LIKE compares texts only");
        }
        comparison.kind_ = Kind::kPattern;
        comparison.pattern_ = std::move(pattern);
        return comparison;
    }
    if (representation == Representation::kBoolean && !IsEquality(term.comparison)) {
        return Invalid(term.path.position, name + " is a boolean, it is compared with = and != only");
    }
    if (!comparison.TakeLiteral(type.type, term.literal)) {
        return Invalid(term.literal_position, name + " is of type " + std::string(CimTypeName(type.type)) +
                                                  ", it is compared with " + DescribeAllowed(type.type) +
                                                  ", " + DescribeLiteral(term.literal) + " was found");
    }
    return comparison;
}

bool WqlComparison::TakeLiteral(CimType type, const WqlLiteral& literal) {
    if (type == CimType::kDatetime) return TakeDatetime(literal);
    if (type == CimType::kChar16 && TakeCharacter(literal)) return true;
    switch (RepresentationOf(type)) {
        case Representation::kBoolean:
            return TakeBoolean(literal);
        case Representation::kText:
            return TakeText(literal);
        default:
            return TakeNumber(type, literal);
    }
}

bool WqlComparison::TakeBoolean(const WqlLiteral& literal) {
    kind_ = Kind::kBoolean;
    if (const auto* flag = std::get_if<bool>(&literal)) {
        flag_ = *flag;
        return true;
    }
    const auto* number = std::get_if<uint64_t>(&literal);
    if (!number || *number > 1) return false;
    flag_ = *number == 1;
    return true;
}

bool WqlComparison::TakeNumber(CimType type, const WqlLiteral& literal) {
    kind_ = Kind::kNumber;
    if (const auto* negative = std::get_if<int64_t>(&literal)) {
        number_ = *negative;
    } else if (const auto* whole = std::get_if<uint64_t>(&literal)) {
        number_ = *whole;
    } else if (const auto* real = std::get_if<double>(&literal)) {
        const auto rounded = static_cast<double>(static_cast<float>(*real));
        number_ = type == CimType::kReal32 && std::isfinite(rounded) ? rounded : *real;
    } else {
        return false;
    }
    return true;
}

bool WqlComparison::TakeCharacter(const WqlLiteral& literal) {
    const auto* text = std::get_if<WqlText>(&literal);
    if (!text || !IsOneUnit(text->text)) return false;
    kind_ = Kind::kCharacter;
    text_ = Fold(text->text);
    return true;
}

bool WqlComparison::TakeDatetime(const WqlLiteral& literal) {
    const auto* text = std::get_if<WqlText>(&literal);
    const std::optional<Moment> moment = text ? MomentOf(text->text) : std::nullopt;
    if (!moment) return false;
    kind_ = moment->is_interval ? Kind::kInterval : Kind::kInstant;
    microseconds_ = moment->microseconds;
    return true;
}

bool WqlComparison::TakeText(const WqlLiteral& literal) {
    const auto* text = std::get_if<WqlText>(&literal);
    if (!text) return false;
    kind_ = Kind::kText;
    text_ = Fold(text->text);
    return true;
}

WqlTruth WqlComparison::Compare(const ValueView& value) const {
    if (const auto* text = std::get_if<std::string_view>(&value)) return CompareText(*text);
    if (const auto* flag = std::get_if<bool>(&value)) {
        return kind_ == Kind::kBoolean ? TruthOf((*flag == flag_) == (operator_ == WqlOperator::kEqual))
                                       : WqlTruth::kUnknown;
    }
    const auto* natural = std::get_if<uint64_t>(&value);
    if (natural && kind_ == Kind::kCharacter) {
        const std::optional<std::string> character = FoldedCharacter(*natural);
        return character ? Decide(*character <=> text_) : WqlTruth::kUnknown;
    }
    if (kind_ != Kind::kNumber) return WqlTruth::kUnknown;
    if (natural) return Decide(CompareNumbers(*natural, number_));
    if (const auto* number = std::get_if<int64_t>(&value)) return Decide(CompareNumbers(*number, number_));
    if (const auto* real = std::get_if<double>(&value)) return Decide(CompareNumbers(*real, number_));
    return WqlTruth::kUnknown;
}

WqlTruth WqlComparison::CompareText(std::string_view text) const {
    switch (kind_) {
        case Kind::kPattern:
            return TruthOf(pattern_->Matches(text));
        case Kind::kText:
            // The constant is folded already, and folding it again leaves it as it is.
            if (IsEquality(operator_))
                return TruthOf(EqualFolded(text, text_) == (operator_ == WqlOperator::kEqual));
            // Bytes of UTF-8 have the order of their code points.
            return Decide(Fold(text) <=> text_);
        case Kind::kInstant:
        case Kind::kInterval: {
            const std::optional<Moment> moment = MomentOf(text);
            if (!moment || moment->is_interval != (kind_ == Kind::kInterval)) return WqlTruth::kUnknown;
            return Decide(moment->microseconds <=> microseconds_);
        }
        default:
            return WqlTruth::kUnknown;
    }
}

WqlTruth WqlComparison::Decide(std::partial_ordering order) const noexcept {
    switch (operator_) {
        case WqlOperator::kEqual:
            return TruthOf(std::is_eq(order));
        case WqlOperator::kNotEqual:
            return TruthOf(std::is_neq(order));
        case WqlOperator::kLess:
            return TruthOf(std::is_lt(order));
        case WqlOperator::kGreater:
            return TruthOf(std::is_gt(order));
        case WqlOperator::kLessOrEqual:
            return TruthOf(std::is_lteq(order));
        default:
            return TruthOf(std::is_gteq(order));
    }
}

}  // namespace service
