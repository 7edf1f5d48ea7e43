// The comparison of a property's values with a query's constant, made ready for the property's type.
//
//   Result<WqlComparison> comparison = WqlComparison::Prepare(property.type, term, pattern);
//   if (!comparison.ok()) return comparison.status();  // the two cannot be compared
//   if (comparison->Compare(view) == WqlTruth::kTrue) ...
//
// A comparison with null is neither true nor false. Beyond that:
// - Numbers compare as the numbers they are, whatever their types: no rounding, no overflow. Only a real32 is
//   compared with the constant as a real32 holds it, so that a property set to 1.1 is equal to 1.1. What is
//   no number (NaN) is unequal to every constant, and neither less nor greater.
// - A boolean takes TRUE, FALSE, 1 and 0, and only = and !=.
// - Texts and references compare without regard to case, folded code point by folded code point; so does a
//   char16 with a text of one UTF-16 unit. With a number it compares as a number.
// - Datetimes compare as points in time, the offset heeded, and intervals as lengths. The constant is a whole
//   datetime or interval; with a value of the other kind, and with one that has unknown fields (asterisks), a
//   comparison is neither true nor false.
// - LIKE takes strings, references and datetimes, these as they are written.
// - Arrays and embedded objects are not compared.
//
// A comparison never changes, so any number of threads may use one.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "service/language/wql_like.h"
#include "service/language/wql_query.h"
#include "service/model/status.h"
#include "service/model/value.h"

namespace service {

// In this order AND is the least of its operands and OR the greatest.
enum class WqlTruth : uint8_t { kFalse, kUnknown, kTrue };

constexpr WqlTruth TruthOf(bool holds) noexcept {
    return holds ? WqlTruth::kTrue : WqlTruth::kFalse;
}

constexpr WqlTruth Negated(WqlTruth truth) noexcept {
    return static_cast<WqlTruth>(static_cast<uint8_t>(WqlTruth::kTrue) - static_cast<uint8_t>(truth));
}

using WqlNumber = std::variant<int64_t, uint64_t, double>;

// As real numbers, exactly; unordered when one is NaN.
std::partial_ordering CompareNumbers(const WqlNumber& a, const WqlNumber& b) noexcept;

class WqlComparison {
 public:
    // For values of `type` and a term other than ISA, IS NULL and IS NOT NULL. `pattern` is the term's, null
    // unless it is a LIKE. WBEM_E_INVALID_QUERY says what the type cannot be compared with.
    static Result<WqlComparison> Prepare(const PropertyType& type, const WqlTerm& term,
                                         std::shared_ptr<const WqlPattern> pattern);

    WqlTruth Compare(const ValueView& value) const;

 private:
    enum class Kind : uint8_t { kBoolean, kNumber, kCharacter, kText, kInstant, kInterval, kPattern };

    WqlComparison() = default;
    bool TakeBoolean(const WqlLiteral& literal);
    bool TakeNumber(CimType type, const WqlLiteral& literal);
    bool TakeCharacter(const WqlLiteral& literal);
    bool TakeDatetime(const WqlLiteral& literal);
    bool TakeText(const WqlLiteral& literal);
    bool TakeLiteral(CimType type, const WqlLiteral& literal);
    WqlTruth CompareText(std::string_view text) const;
    WqlTruth Decide(std::partial_ordering order) const noexcept;

    Kind kind_ = Kind::kText;
    WqlOperator operator_ = WqlOperator::kEqual;
    bool flag_ = false;         // kBoolean
    WqlNumber number_;          // kNumber
    std::string text_;          // kText and kCharacter, folded
    int64_t microseconds_ = 0;  // kInstant, kInterval
    std::shared_ptr<const WqlPattern> pattern_;
};

}  // namespace service
