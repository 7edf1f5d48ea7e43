#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/wql_parser.h"
#include "service/model/text.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string Print(const WqlPath& path) {
    std::string text;
    for (const std::string& name : path.names)
        text += (text.empty() ? "" : ".") + name;
    return text;
}

std::string Print(const WqlLiteral& literal) {
    if (const auto* flag = std::get_if<bool>(&literal)) return *flag ? "true" : "false";
    if (const auto* number = std::get_if<int64_t>(&literal)) return "i" + std::to_string(*number);
    if (const auto* natural = std::get_if<uint64_t>(&literal)) return "u" + std::to_string(*natural);
    if (const auto* real = std::get_if<double>(&literal)) return "r" + std::to_string(*real);
    if (const auto* text = std::get_if<WqlText>(&literal)) return '<' + text->text + '>';
    return "null";
}

std::string Print(const WqlExpression& expression) {
    static const std::vector<std::string> kOperators{
        " = ", " != ", " < ", " > ", " <= ", " >= ", " like ", " isa ", " is ", " is not "};
    if (expression.kind == WqlExpression::Kind::kTerm) {
        const WqlTerm& term = expression.term;
        return Print(term.path) + kOperators[static_cast<size_t>(term.comparison)] + Print(term.literal);
    }
    if (expression.kind == WqlExpression::Kind::kNot)
        return "not(" + Print(expression.operands.front()) + ")";
    std::string text = expression.kind == WqlExpression::Kind::kAnd ? "and(" : "or(";
    for (const WqlExpression& operand : expression.operands)
        text += (text.back() == '(' ? "" : ", ") + Print(operand);
    return text + ")";
}

// The WHERE clause as a tree, or the fault.
std::string Where(std::string_view condition) {
    const Result<WqlQuery> query = ParseWql("SELECT * FROM C WHERE " + std::string(condition));
    if (!query.ok()) return query.status().reason();
    return query->where ? Print(*query->where) : "none";
}

struct Refusal {
    std::string text;
    size_t character;
    std::string fragment;  // of the reason
};

void ExpectRefusals(const std::vector<Refusal>& cases, int32_t code = WBEM_E_UNPARSABLE_QUERY) {
    for (const auto& [text, character, fragment] : cases) {
        const Result<WqlQuery> query = ParseWql(text);
        EXPECT_EQ(query.code(), code) << text;
        EXPECT_THAT(query.status().reason(),
                    AllOf(StartsWith("character " + std::to_string(character) + " of the query: "),
                          HasSubstr(fragment)))
            << text;
    }
}

TEST(WqlParser, ReadsTheWatchersQueries) {
    const Result<WqlQuery> query = ParseWql(
        R"(SELECT * FROM __InstanceDeletionEvent WITHIN 5 WHERE TargetInstance ISA "Policy" AND TargetInstance.INSTANCE_ID="a\b\\c")");
    ASSERT_OK(query);
    EXPECT_TRUE(query->properties.empty());
    EXPECT_EQ(query->class_name, "__InstanceDeletionEvent");
    EXPECT_EQ(query->class_position, 15U);
    EXPECT_EQ(query->within_seconds, 5.0);
    EXPECT_EQ(Print(*query->where),
              R"(and(TargetInstance isa <Policy>, TargetInstance.INSTANCE_ID = <a\b\c>))");
}

TEST(WqlParser, ReadsListsClausesAndBlanks) {
    const Result<WqlQuery> query = ParseWql("\tselect A , b.C,\r\nB.c.D From _Klässe9\n");
    ASSERT_OK(query);
    std::vector<std::string> properties;
    for (const WqlPath& path : query->properties)
        properties.push_back(Print(path));
    EXPECT_THAT(properties, testing::ElementsAre("A", "b.C", "B.c.D"));
    EXPECT_EQ(query->class_name, "_Klässe9");
    EXPECT_FALSE(query->within_seconds || query->where);

    EXPECT_EQ(ParseWql("SELECT*FROM C WITHIN.25WHERE a=1").code(), WBEM_E_UNPARSABLE_QUERY);
    EXPECT_EQ(ParseWql("SELECT*FROM C WITHIN .25 WHERE(a)=1").code(), WBEM_E_UNPARSABLE_QUERY);
    const Result<WqlQuery> dense = ParseWql("SELECT*FROM C WITHIN .25 WHERE(a=1)AND(b='x')OR'y'>c");
    ASSERT_OK(dense);
    EXPECT_EQ(dense->within_seconds, 0.25);
    EXPECT_EQ(Print(*dense->where), "or(and(a = u1, b = <x>), c < <y>)");
}

TEST(WqlParser, BindsNotTighterThanAndTighterThanOr) {
    EXPECT_EQ(Where("a=1 OR b=1 AND c=1 AND NOT d=1 OR e=1"),
              "or(a = u1, and(b = u1, c = u1, not(d = u1)), e = u1)");
    EXPECT_EQ(Where("NOT (a=1 OR b=1) AND ((c=1))"), "and(not(or(a = u1, b = u1)), c = u1)");
    EXPECT_EQ(Where("NOT NOT NOT a=1 AND not NOT b=1"), "and(not(a = u1), b = u1)");
}

TEST(WqlParser, ReadsEveryOperatorFromBothSides) {
    EXPECT_EQ(Where("a!=1 AND a<>1 AND a<1 AND a>1 AND a<=1 AND a>=1"),
              "and(a != u1, a != u1, a < u1, a > u1, a <= u1, a >= u1)");
    EXPECT_EQ(Where("1=a AND 1<>a AND 1<a AND 1>a AND 1<=a AND 1>=a.b"),
              "and(a = u1, a != u1, a > u1, a < u1, a >= u1, a.b <= u1)");
    EXPECT_EQ(Where("a IS NULL OR a is not null OR a = NULL OR a <> null OR NULL != a"),
              "or(a is null, a is not null, a is null, a is not null, a is not null)");
    EXPECT_EQ(Where("a ISA B OR a isa 'B' OR a ISA \"B\""), "or(a isa <B>, a isa <B>, a isa <B>)");
}

TEST(WqlParser, ReadsConstants) {
    EXPECT_EQ(Where("a=true AND b=FALSE AND c=-9223372036854775808 AND d=18446744073709551615 AND e=+7"),
              "and(a = true, b = false, c = i-9223372036854775808, d = u18446744073709551615, e = u7)");
    EXPECT_EQ(Where("a=1.5 AND b=-.25 AND c=2e3 AND d=1.E-1 AND e=007 AND f=-0"),
              "and(a = r1.500000, b = r-0.250000, c = r2000.000000, d = r0.100000, e = u7, f = u0)");
    EXPECT_EQ(Where(R"(a='it\'s "x"' AND b="\"\\\n\" 'y'")"), R"(and(a = <it's "x">, b = <"\\n" 'y'>))");
    EXPECT_EQ(Where(R"(a='' AND b='two
lines' AND c='\\')"),
              "and(a = <>, b = <two\nlines>, c = <\\>)");
    // A pattern ends at its quote whatever stands before it.
    EXPECT_EQ(Where(R"(a LIKE 'C:\\%\' AND b LIKE "it's [%]")"),
              R"(and(a like <C:\\%\>, b like <it's [%]>))");
    EXPECT_EQ(Where(R"(Like LIKE '\' OR Like = '\'')"), R"(or(Like like <\>, Like = <'>))");
}

TEST(WqlParser, TakesKeywordsAsNamesWhereNothingElseFits) {
    EXPECT_EQ(Where("From=1 AND is.Null IS NULL AND NOT not=1 AND isa isa isa2 AND x.True = TRUE"),
              "and(From = u1, is.Null is null, not(not = u1), isa isa <isa2>, x.True = true)");
    const Result<WqlQuery> query = ParseWql("SELECT Select, from, x.Where FROM LIKE WHERE where = 1");
    ASSERT_OK(query);
    EXPECT_EQ(query->properties.size(), 3U);
    EXPECT_EQ(query->class_name, "LIKE");
}

TEST(WqlParser, SaysWhereAndWhatWasExpected) {
    ExpectRefusals({
        {"", 1, "\"SELECT\" was expected, the end of the query"},
        {"SELECT FROM C", 8, "\"*\" or a property"},
        {"SELECT *, A FROM C", 9, "\"FROM\" was expected"},
        {"SELECT A. FROM", 15, "\",\" or \"FROM\""},
        {"SELECT * FROM 'C'", 15, "the text 'C'"},
        {"SELECT * FROM C,D", 16, "\"WITHIN\", \"WHERE\" or the end"},
        {"SELECT * FROM C WITHIN x", 24, "a number of seconds"},
        {"SELECT * FROM C WITHIN 1 AND", 26, "\"WHERE\" or the end"},
        {"SELECT * FROM C WHERE a", 24, "an operator"},
        {"SELECT * FROM C WHERE a==1", 25, "a constant"},
        {"SELECT * FROM C WHERE a NOT LIKE 'x'", 25, "NOT stands in front"},
        {"SELECT * FROM C WHERE a IS 5", 28, "\"NULL\" or \"NOT NULL\""},
        {"SELECT * FROM C WHERE a IS NOT 5", 32, "the number 5"},
        {"SELECT * FROM C WHERE a LIKE b", 30, "a pattern in quotes"},
        {"SELECT * FROM C WHERE a ISA 5", 29, "the name of a class"},
        {"SELECT * FROM C WHERE 'x' LIKE a", 27, "behind the constant"},
        {"SELECT * FROM C WHERE 1 = 1", 27, "a property"},
        {"SELECT * FROM C WHERE (a=1 OR (b=2)", 36, "\"AND\", \"OR\" or \")\""},
        {"SELECT * FROM C WHERE a=1)", 26, "\"AND\", \"OR\" or the end"},
        {"SELECT * FROM C WHERE a=1;", 26, "\";\" has no meaning"},
        {std::string("SELECT * FROM C\0", 16), 16, "U+0000"},
        {R"(SELECT * FROM C WHERE a='x\')", 25, "no closing '"},
        {"SELECT * FROM C WHERE a=- 5", 25, "\"-\" is no number"},
        {"SELECT * FROM C WHERE a=0x1F", 25, "\"0x1F\" is no number"},
        {"SELECT * FROM C WHERE a=18446744073709551616", 25, "more than 64 bits"},
        {"SELECT * FROM C WHERE a=-9223372036854775809", 25, "more than 64 bits"},
        {"SELECT * FROM C WHERE a=1e999", 25, "real64"},
        {"SELECT * FROM Größe WHERE Straße = 'äöü€😀' ,", 44, "\"AND\", \"OR\""},
    });
    EXPECT_EQ(ParseWql("SELECT * FROM C WHERE a='\xC3'").code(), WBEM_E_UNPARSABLE_QUERY);
    // What the watcher cuts off at 255 characters ends within the id: the closing quote is gone.
    const std::string start = "SELECT * FROM __InstanceModificationEvent WHERE TargetInstance.ID=";
    ExpectRefusals({{start + '"' + std::string(255 - start.size(), 'k'), start.size() + 1, "no closing \""}});
}

TEST(WqlParser, RefusesWhatHasNoMeaning) {
    ExpectRefusals(
        {
            {"SELECT COUNT(*) FROM C", 8, "\"COUNT\""},
            {"SELECT * FROM C WITHIN -1", 24, "from 0 to 4294967295"},
            {"SELECT * FROM C WITHIN 4294967296", 24, "from 0 to 4294967295"},
            {"SELECT * FROM C GROUP WITHIN 5", 17, "GROUP"},
            {"SELECT * FROM C WHERE a = b", 27, "\"b\" is none"},
            {"SELECT * FROM C WHERE a < NULL", 27, "NULL has no order"},
            {"SELECT * FROM C WHERE NULL >= a", 23, "NULL has no order"},
            {"SELECT * FROM C WHERE a LIKE 5", 30, "no number"},
        },
        WBEM_E_INVALID_QUERY);
    EXPECT_EQ(ParseWql("SELECT * FROM C WHERE a='" + std::string(kMaxQueryBytes, 'x') + "'").code(),
              WBEM_E_INVALID_QUERY);
}

TEST(WqlParser, BoundsParenthesesAndNothingElse) {
    const auto nested = [](size_t depth) {
        return "SELECT * FROM C WHERE " + std::string(depth, '(') + "a=1" + std::string(depth, ')');
    };
    EXPECT_OK(ParseWql(nested(kMaxQueryDepth)));
    ExpectRefusals({{nested(kMaxQueryDepth + 1), 22 + kMaxQueryDepth + 1, "200 deep"}}, WBEM_E_INVALID_QUERY);
    EXPECT_EQ(ParseWql("SELECT * FROM C WHERE " + std::string(60'000, '(')).code(), WBEM_E_INVALID_QUERY);

    std::string negations, terms = "a=1";
    for (int i = 0; i < 15'001; ++i)
        negations += "NOT ";
    EXPECT_EQ(Where(negations + "a=1"), "not(a = u1)");
    while (terms.size() < 60'000)
        terms += terms.size() % 2 ? " OR a=1" : " AND a=12";
    EXPECT_OK(ParseWql("SELECT * FROM C WHERE " + terms));
}

// A fault's place lies within the text or at its end, and its reason is text.
void ExpectOutcome(std::string_view text) {
    const Result<WqlQuery> query = ParseWql(text);
    if (query.ok()) return;
    const std::string& reason = query.status().reason();
    EXPECT_THAT(query.code(), AnyOf(WBEM_E_UNPARSABLE_QUERY, WBEM_E_INVALID_QUERY)) << text;
    EXPECT_TRUE(IsValidUtf8(reason)) << text;
    size_t character = 0;
    ASSERT_EQ(std::sscanf(reason.c_str(), "character %zu of the query: ", &character), 1) << reason;
    EXPECT_TRUE(character >= 1 && character <= text.size() + 1) << reason;
}

TEST(WqlParser, SurvivesEveryCutAndTokenSoup) {
    constexpr std::string_view kSample =
        R"(SELECT TargetInstance, A.B FROM C WITHIN 2.5 WHERE TargetInstance ISA "Policy" AND NOT )"
        R"((TargetInstance.N >= -12 OR 'x\'y' <> T.S) AND T.P LIKE "[^a-f]_%" AND T.Q IS NOT NULL)";
    EXPECT_OK(ParseWql(kSample));
    for (size_t i = 0; i <= kSample.size(); ++i) {
        ExpectOutcome(kSample.substr(0, i));
        ExpectOutcome(kSample.substr(i));
    }
    const std::vector<std::string> tokens{
        "SELECT", "*", "FROM", "C",   "WHERE", "WITHIN", "AND",    "OR",   "NOT", "LIKE", "ISA", "IS",
        "NULL",   "(", ")",    ",",   ".",     "=",      "<>",     "<=",   "1",   "-2.5", "'x'", "\"y",
        "TRUE",   "a", "a.b",  "'%'", "[",     "\\",     "Straße", "'\\'", "+",   "e5"};
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        std::string text = round % 2 ? "SELECT * FROM C WHERE " : "";
        for (size_t count = random() % 12; count > 0; --count)
            text += tokens[random() % tokens.size()] + (random() % 4 ? " " : "");
        ExpectOutcome(text);
    }
}

}  // namespace
}  // namespace service
