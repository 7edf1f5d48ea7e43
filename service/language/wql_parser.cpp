#include "service/language/wql_parser.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "service/language/wql_lexer.h"
#include "service/model/text.h"

namespace service {
namespace {

// Those that end what stands in front of them, or that stand for a constant.
constexpr std::array<std::string_view, 13> kKeywords{
    "SELECT", "FROM", "WITHIN", "WHERE", "AND", "OR", "NOT", "LIKE", "ISA", "IS", "NULL", "TRUE", "FALSE"};

bool IsKeyword(const WqlToken& token) {
    return std::any_of(kKeywords.begin(), kKeywords.end(),
                       [&](std::string_view keyword) { return token.IsKeyword(keyword); });
}

// Whether the token is TRUE, FALSE or NULL; then `literal` is set.
bool IsNamedConstant(const WqlToken& token, WqlLiteral& literal) {
    if (token.IsKeyword("TRUE")) {
        literal = true;
    } else if (token.IsKeyword("FALSE")) {
        literal = false;
    } else if (token.IsKeyword("NULL")) {
        literal = std::monostate();
    } else {
        return false;
    }
    return true;
}

// `constant < path` says the same as `path > constant`.
WqlOperator TurnedRound(WqlOperator comparison) noexcept {
    switch (comparison) {
        case WqlOperator::kLess:
            return WqlOperator::kGreater;
        case WqlOperator::kGreater:
            return WqlOperator::kLess;
        case WqlOperator::kLessOrEqual:
            return WqlOperator::kGreaterOrEqual;
        case WqlOperator::kGreaterOrEqual:
            return WqlOperator::kLessOrEqual;
        default:
            return comparison;
    }
}

// Recursive descent, one token ahead. Every Parse function begins at the first token of what it reads and
// ends behind its last.
class Parser {
 public:
    explicit Parser(std::string_view text) : lexer_(text) {}

    Result<WqlQuery> Parse() {
        WqlQuery query;
        SERVICE_RETURN_IF_ERROR(Advance());
        SERVICE_RETURN_IF_ERROR(ParseSelect(query));
        SERVICE_RETURN_IF_ERROR(ParseFrom(query));
        std::string_view rest = "\"WITHIN\", \"WHERE\" or the end of the query";
        if (token_.IsKeyword("WITHIN")) {
            SERVICE_RETURN_IF_ERROR(ParseWithin(query));
            rest = "\"WHERE\" or the end of the query";
        }
        if (token_.IsKeyword("WHERE")) {
            SERVICE_RETURN_IF_ERROR(Advance());
            SERVICE_RETURN_IF_ERROR(ParseAny(query.where.emplace()));
            rest = "\"AND\", \"OR\" or the end of the query";
        }
        if (token_.IsKeyword("GROUP")) return Invalid(token_.position, "GROUP is not supported");
        if (token_.kind != WqlTokenKind::kEnd) return Expected(rest);
        return query;
    }

 private:
    Status Advance() { return lexer_.Next(token_); }

    Result<WqlToken> LookAhead() const {
        WqlLexer lexer = lexer_;
        WqlToken next;
        SERVICE_RETURN_IF_ERROR(lexer.Next(next));
        return next;
    }

    Status Expected(std::string_view what) const {
        return WqlFault(WBEM_E_UNPARSABLE_QUERY, token_.position,
                        std::string(what) + " was expected, " + token_.Describe() + " was found");
    }

    static Status Invalid(size_t position, const std::string& message) {
        return WqlFault(WBEM_E_INVALID_QUERY, position, message);
    }

    Status TakeKeyword(std::string_view keyword) {
        if (token_.IsKeyword(keyword)) return Advance();
        return Expected('"' + std::string(keyword) + '"');
    }

    Status ParseSelect(WqlQuery& query) {
        SERVICE_RETURN_IF_ERROR(TakeKeyword("SELECT"));
        if (token_.IsSymbol('*')) return Advance();
        while (true) {
            SERVICE_RETURN_IF_ERROR(ParseSelected(query.properties.emplace_back()));
            if (!token_.IsSymbol(',')) return {};
            SERVICE_RETURN_IF_ERROR(Advance());
        }
    }

    Status ParseSelected(WqlPath& path) {
        constexpr std::string_view kWhat = "\"*\" or a property";
        if (token_.kind != WqlTokenKind::kName) return Expected(kWhat);
        SERVICE_ASSIGN_OR_RETURN(const WqlToken next, LookAhead());
        if (next.IsSymbol('(')) {
            return Invalid(token_.position,
                           "only properties can be selected, no function such as " + token_.Describe());
        }
        const bool goes_on = next.IsSymbol(',') || next.IsSymbol('.') || next.IsKeyword("FROM");
        if (IsKeyword(token_) && !goes_on) return Expected(kWhat);
        return ParsePath(path);
    }

    Status ParseFrom(WqlQuery& query) {
        if (!token_.IsKeyword("FROM"))
            return Expected(query.properties.empty() ? "\"FROM\"" : "\",\" or \"FROM\"");
        SERVICE_RETURN_IF_ERROR(Advance());
        const bool ends_class = token_.IsKeyword("WITHIN") || token_.IsKeyword("WHERE");
        if (token_.kind != WqlTokenKind::kName || ends_class) return Expected("the name of a class");
        query.class_name = token_.spelling;
        query.class_position = token_.position;
        return Advance();
    }

    Status ParseWithin(WqlQuery& query) {
        SERVICE_RETURN_IF_ERROR(Advance());
        if (token_.kind != WqlTokenKind::kNumber) return Expected("a number of seconds");
        double seconds = 0;
        if (const auto* real = std::get_if<double>(&token_.literal)) seconds = *real;
        if (const auto* whole = std::get_if<uint64_t>(&token_.literal)) seconds = static_cast<double>(*whole);
        if (const auto* negative = std::get_if<int64_t>(&token_.literal))
            seconds = static_cast<double>(*negative);
        if (seconds < 0 || seconds > kMaxWithinSeconds) {
            return Invalid(token_.position,
                           "WITHIN takes from 0 to 4294967295 seconds, " + token_.Describe() + " was found");
        }
        query.within_seconds = seconds;
        return Advance();
    }

    Status ParseAny(WqlExpression& expression) {
        return ParseChain("OR", WqlExpression::Kind::kOr, expression,
                          [this](WqlExpression& operand) { return ParseAll(operand); });
    }

    Status ParseAll(WqlExpression& expression) {
        return ParseChain("AND", WqlExpression::Kind::kAnd, expression,
                          [this](WqlExpression& operand) { return ParseCondition(operand); });
    }

    // Operands with `keyword` between them; a single one stands for itself.
    template <typename ParseOperand>
    Status ParseChain(std::string_view keyword, WqlExpression::Kind kind, WqlExpression& expression,
                      ParseOperand parse_operand) {
        SERVICE_RETURN_IF_ERROR(parse_operand(expression));
        if (!token_.IsKeyword(keyword)) return {};
        WqlExpression chain;
        chain.kind = kind;
        chain.operands.push_back(std::move(expression));
        while (token_.IsKeyword(keyword)) {
            SERVICE_RETURN_IF_ERROR(Advance());
            SERVICE_RETURN_IF_ERROR(parse_operand(chain.operands.emplace_back()));
        }
        expression = std::move(chain);
        return {};
    }

    Status ParseCondition(WqlExpression& expression) {
        bool is_negated = false;
        while (true) {
            SERVICE_ASSIGN_OR_RETURN(const bool negates, IsNegation());
            if (!negates) break;
            is_negated = !is_negated;
            SERVICE_RETURN_IF_ERROR(Advance());
        }
        SERVICE_RETURN_IF_ERROR(ParsePrimary(expression));
        if (!is_negated) return {};
        WqlExpression negation;
        negation.kind = WqlExpression::Kind::kNot;
        negation.operands.push_back(std::move(expression));
        expression = std::move(negation);
        return {};
    }

    // NOT may name a property, too: then a comparison or the dot of a path follows.
    Result<bool> IsNegation() {
        if (!token_.IsKeyword("NOT")) return false;
        SERVICE_ASSIGN_OR_RETURN(const WqlToken next, LookAhead());
        return next.kind != WqlTokenKind::kComparison && !next.IsSymbol('.');
    }

    Status ParsePrimary(WqlExpression& expression) {
        if (!token_.IsSymbol('(')) return ParseTerm(expression.term);
        if (depth_ == kMaxQueryDepth) {
            return Invalid(token_.position, "parentheses stand more than " + std::to_string(kMaxQueryDepth) +
                                                " deep within each other");
        }
        ++depth_;
        SERVICE_RETURN_IF_ERROR(Advance());
        SERVICE_RETURN_IF_ERROR(ParseAny(expression));
        if (!token_.IsSymbol(')')) return Expected("\"AND\", \"OR\" or \")\"");
        --depth_;
        return Advance();
    }

    Status ParseTerm(WqlTerm& term) {
        const bool is_constant = token_.kind == WqlTokenKind::kText || token_.kind == WqlTokenKind::kNumber ||
                                 IsNamedConstant(token_, token_.literal);
        SERVICE_RETURN_IF_ERROR(is_constant ? ParseConstantFirst(term) : ParsePathFirst(term));
        return NormalizeNull(term);
    }

    Status ParseConstantFirst(WqlTerm& term) {
        term.literal = std::move(token_.literal);
        term.literal_position = token_.position;
        SERVICE_RETURN_IF_ERROR(Advance());
        if (token_.kind != WqlTokenKind::kComparison)
            return Expected("a comparison (= != <> < > <= >=) behind the constant");
        term.comparison = TurnedRound(token_.comparison);
        SERVICE_RETURN_IF_ERROR(Advance());
        WqlLiteral other;
        const bool is_name = token_.kind == WqlTokenKind::kName && !IsNamedConstant(token_, other);
        if (!is_name) return Expected("a property to compare the constant with");
        return ParsePath(term.path);
    }

    Status ParsePathFirst(WqlTerm& term) {
        SERVICE_ASSIGN_OR_RETURN(const bool is_path, BeginsPath());
        if (!is_path) return Expected("a condition");
        SERVICE_RETURN_IF_ERROR(ParsePath(term.path));
        if (token_.kind == WqlTokenKind::kComparison) return ParseComparison(term);
        if (token_.IsKeyword("LIKE")) return ParseLike(term);
        if (token_.IsKeyword("ISA")) return ParseIsA(term);
        if (token_.IsKeyword("IS")) return ParseIs(term);
        if (token_.IsKeyword("NOT")) return Expected("an operator (NOT stands in front of the property)");
        return Expected("an operator (= != <> < > <= >= LIKE ISA IS)");
    }

    Result<bool> BeginsPath() const {
        if (token_.kind != WqlTokenKind::kName) return false;
        if (!IsKeyword(token_)) return true;
        SERVICE_ASSIGN_OR_RETURN(const WqlToken next, LookAhead());
        return next.kind == WqlTokenKind::kComparison || next.IsSymbol('.') || next.IsKeyword("LIKE") ||
               next.IsKeyword("ISA") || next.IsKeyword("IS");
    }

    Status ParsePath(WqlPath& path) {
        path.position = token_.position;
        path.names.emplace_back(token_.spelling);
        SERVICE_RETURN_IF_ERROR(Advance());
        while (token_.IsSymbol('.')) {
            SERVICE_RETURN_IF_ERROR(Advance());
            if (token_.kind != WqlTokenKind::kName) return Expected("the name of a property");
            path.names.emplace_back(token_.spelling);
            SERVICE_RETURN_IF_ERROR(Advance());
        }
        return {};
    }

    Status ParseComparison(WqlTerm& term) {
        term.comparison = token_.comparison;
        SERVICE_RETURN_IF_ERROR(Advance());
        term.literal_position = token_.position;
        const bool is_constant = token_.kind == WqlTokenKind::kText || token_.kind == WqlTokenKind::kNumber ||
                                 IsNamedConstant(token_, token_.literal);
        if (is_constant) {
            term.literal = std::move(token_.literal);
            return Advance();
        }
        if (token_.kind != WqlTokenKind::kName || IsKeyword(token_)) return Expected("a constant");
        return Invalid(token_.position,
                       "a property is compared with a constant, " + token_.Describe() +
                           " is none (texts stand in quotes, one property is not compared with another)");
    }

    Status ParseLike(WqlTerm& term) {
        term.comparison = WqlOperator::kLike;
        SERVICE_RETURN_IF_ERROR(lexer_.NextPattern(token_));
        if (token_.kind == WqlTokenKind::kNumber)
            return Invalid(token_.position, "LIKE takes a pattern in quotes, no number");
        if (token_.kind != WqlTokenKind::kText) return Expected("a pattern in quotes");
        return TakeLiteral(term);
    }

    Status ParseIsA(WqlTerm& term) {
        term.comparison = WqlOperator::kIsA;
        SERVICE_RETURN_IF_ERROR(Advance());
        if (token_.kind == WqlTokenKind::kName) token_.literal = WqlText{std::string(token_.spelling)};
        const bool is_class =
            token_.kind == WqlTokenKind::kText || (token_.kind == WqlTokenKind::kName && !IsKeyword(token_));
        if (!is_class) return Expected("the name of a class");
        return TakeLiteral(term);
    }

    Status TakeLiteral(WqlTerm& term) {
        term.literal = std::move(token_.literal);
        term.literal_position = token_.position;
        return Advance();
    }

    Status ParseIs(WqlTerm& term) {
        term.comparison = WqlOperator::kIsNull;
        SERVICE_RETURN_IF_ERROR(Advance());
        if (token_.IsKeyword("NOT")) {
            term.comparison = WqlOperator::kIsNotNull;
            SERVICE_RETURN_IF_ERROR(Advance());
        }
        term.literal_position = token_.position;
        if (term.comparison == WqlOperator::kIsNull && !token_.IsKeyword("NULL"))
            return Expected("\"NULL\" or \"NOT NULL\"");
        return TakeKeyword("NULL");
    }

    static Status NormalizeNull(WqlTerm& term) {
        const bool is_null = std::holds_alternative<std::monostate>(term.literal);
        const bool is_test =
            term.comparison == WqlOperator::kIsNull || term.comparison == WqlOperator::kIsNotNull;
        if (!is_null || is_test) return {};
        if (term.comparison == WqlOperator::kEqual) {
            term.comparison = WqlOperator::kIsNull;
        } else if (term.comparison == WqlOperator::kNotEqual) {
            term.comparison = WqlOperator::kIsNotNull;
        } else {
            return Invalid(term.literal_position,
                           "NULL has no order, it is compared with IS, IS NOT, = and != only");
        }
        return {};
    }

    WqlLexer lexer_;
    WqlToken token_;
    size_t depth_ = 0;
};

}  // namespace

Result<WqlQuery> ParseWql(std::string_view utf8) {
    if (utf8.size() > kMaxQueryBytes) {
        return {WBEM_E_INVALID_QUERY, "the query has " + std::to_string(utf8.size()) + " bytes, " +
                                          std::to_string(kMaxQueryBytes) + " are allowed"};
    }
    if (!IsValidUtf8(utf8)) return {WBEM_E_UNPARSABLE_QUERY, "the query is not valid text"};
    return Parser(utf8).Parse();
}

}  // namespace service
