// The syntax tree of a WQL query, as the parser builds it: names as spelled, nothing looked up yet.
//
//   Result<WqlQuery> query = ParseWql("SELECT * FROM Policy WHERE Days > 30");
//   query->class_name ...              // "Policy"
//   query->where->term.path.names ...  // {"Days"}
//
// Plain values: one thread at a time, or any number of readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "service/model/status.h"

namespace service {

// Bytes of UTF-8 in a query. This bounds its names and terms, too.
inline constexpr size_t kMaxQueryBytes = 65'536;

// Parentheses within parentheses.
inline constexpr size_t kMaxQueryDepth = 200;

// Seconds that WITHIN may name.
inline constexpr double kMaxWithinSeconds = 4'294'967'295.0;

// The text of a literal. A type of its own, because of the standard library's variant: GCC 12's takes one
// whose alternatives are all of well-known types for never being without a value, and goes wrong when copying
// such a one throws.
struct WqlText {
    std::string text;
};

// std::monostate is NULL. Whole numbers are uint64_t, the negative ones int64_t.
using WqlLiteral = std::variant<std::monostate, bool, int64_t, uint64_t, double, WqlText>;

// Places in a query are counted in characters, from 1.

// A property: `Days`, or over embedded objects `TargetInstance.Schedule.Hour`.
struct WqlPath {
    std::vector<std::string> names;
    size_t position = 0;
};

enum class WqlOperator : uint8_t {
    kEqual,
    kNotEqual,
    kLess,
    kGreater,
    kLessOrEqual,
    kGreaterOrEqual,
    kLike,
    kIsA,
    kIsNull,
    kIsNotNull,
};

// One comparison. A constant that stood on the left is on the right here, with the operator turned round.
struct WqlTerm {
    WqlPath path;
    WqlOperator comparison = WqlOperator::kEqual;
    WqlLiteral literal;  // a text for kLike (the pattern) and kIsA (the class); NULL for kIsNull, kIsNotNull
    size_t literal_position = 0;
};

struct WqlExpression {
    enum class Kind : uint8_t { kTerm, kNot, kAnd, kOr };

    Kind kind = Kind::kTerm;
    WqlTerm term;                         // kTerm
    std::vector<WqlExpression> operands;  // one for kNot, two and more for kAnd and kOr
};

struct WqlQuery {
    std::vector<WqlPath> properties;  // what SELECT lists; empty for *
    std::string class_name;
    size_t class_position = 0;
    std::optional<double> within_seconds;
    std::optional<WqlExpression> where;
};

// "character 27: ...".
inline Status WqlFault(int32_t code, size_t position, const std::string& message) {
    return {code, "character " + std::to_string(position) + " of the query: " + message};
}

}  // namespace service
