#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/wql_condition.h"
#include "service/language/wql_parser.h"
#include "tests/service/language/memory_target.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// Conditions, and what is expected of each.
using Cases = std::vector<std::pair<std::string, std::string>>;

bool IsMatch(WqlCondition& condition, const Instance& object) {
    const Result<bool> matches = condition.Matches(object);
    EXPECT_OK(matches);
    return matches.ok() && *matches;
}

// Classes to bind to, and instances of them.
class Schema {
 public:
    explicit Schema(const std::string& mof) {
        EXPECT_EQ(FaultIn(Import(target_, mof + "class Holder { [key] uint8 K; object Held; };")), "");
    }

    ClassPtr At(const std::string& name) const { return target_.Class(name); }

    // What MOF makes of "instance of ...".
    Instance Make(const std::string& text) {
        EXPECT_EQ(FaultIn(Import(target_, "instance of Holder { K = 1; Held = instance of " + text + "; };")),
                  "");
        return *std::get<ObjectPtr>(ValueOf(*target_.FindInstance("Holder.K=1"), "Held"));
    }

    Result<WqlCondition> Bind(const std::string& text) const {
        const Result<WqlQuery> query = ParseWql(text);
        EXPECT_OK(query) << text;
        return WqlCondition::Bind(*query, [this](std::string_view name) -> Result<ClassPtr> {
            if (ClassPtr found = At(std::string(name))) return found;
            return Status(WBEM_E_INVALID_CLASS, "there is no class " + std::string(name));
        });
    }

    // "true", "false" or "neither".
    std::string Ask(const Instance& row, const std::string& where) const {
        const std::string from = "SELECT * FROM " + row.Class()->Name() + " WHERE ";
        Result<WqlCondition> plain = Bind(from + where);
        Result<WqlCondition> negated = Bind(from + "NOT (" + where + ")");
        if (!plain.ok() || !negated.ok()) return plain.status().reason();
        const bool holds = IsMatch(*plain, row);
        const bool does_not = IsMatch(*negated, row);
        EXPECT_FALSE(holds && does_not) << where;
        return holds ? "true" : does_not ? "false" : "neither";
    }

    void ExpectAnswers(const Instance& row, const Cases& cases) const {
        for (const auto& [where, answer] : cases)
            EXPECT_EQ(Ask(row, where), answer) << where;
    }

    void ExpectRefusals(const std::string& class_name, const Cases& cases) const {
        for (const auto& [where, fragment] : cases) {
            const Status fault = Bind("SELECT * FROM " + class_name + " WHERE " + where).status();
            EXPECT_EQ(fault.code(), WBEM_E_INVALID_QUERY) << where;
            EXPECT_THAT(fault.reason(), HasSubstr(fragment)) << where;
        }
    }

 private:
    MemoryTarget target_;
};

struct Comparison {
    std::string type, literal;  // of the row's one property, V
    std::string where, answer;
};

void ExpectAnswers(const std::vector<Comparison>& cases) {
    for (const auto& [type, literal, where, answer] : cases) {
        const Schema schema("class Row { " + type + " V = " + literal + "; };");
        EXPECT_EQ(schema.Ask(Instance(schema.At("Row")), where), answer) << literal << ": " << where;
    }
}

void ExpectRefusals(const std::string& type, const Cases& cases) {
    Schema("class Row { " + type + " V; };").ExpectRefusals("Row", cases);
}

TEST(WqlCondition, ComparesNumbersOfEveryWidthExactly) {
    const std::string highest = "18446744073709551615";
    ExpectAnswers({
        {"uint64", highest, "V > -1 AND V = 18446744073709551615 AND V < 18446744073709551616.0", "true"},
        {"uint64", highest, "V = -1 OR V = 18446744073709551616.0", "false"},
        {"uint64", "9007199254740993", "V > 9007199254740992.0", "true"},
        {"sint64", "-9223372036854775808", "V < 0 AND V < 18446744073709551615 AND V <= -1", "true"},
        {"sint64", "-9223372036854775808", "V = -9223372036854775808.0 AND V > -1e30 AND V < 1e30", "true"},
        {"sint8", "-2", "V < -1.5 AND V > -2.5 AND V <> -1.5", "true"},
        {"uint8", "2", "V > 1.5 AND V < 2.5 AND V = 2.0 AND 2 >= V", "true"},
        {"sint32", "5", "V <= 5 AND V >= 5 AND NOT V <> 5", "true"},
        {"sint32", "5", "V >= 6", "false"},
        {"real64", "1.1", "V = 1.1 AND V > 1 AND V < 2 AND V != 1", "true"},
        {"real64", "18446744073709551616.0", "V > 18446744073709551615", "true"},
        {"real64", "-0.0", "V = 0", "true"},
        {"real32", "1.1", "V = 1.1 AND V < 1e300", "true"},
        {"real64", "NaN", "V = 1 OR V < 1 OR V >= 1.5 OR 0 <= V", "false"},
        {"real64", "NaN", "V <> 1", "true"},
        {"real64", "INF", "V > 18446744073709551615 AND V > 1e308", "true"},
    });
    ExpectRefusals("uint8", {{"V = TRUE", "a number"}, {"V = '1'", "a number"}});
}

TEST(WqlCondition, ComparesTextsWithoutRegardToCase) {
    ExpectAnswers({
        {"string", "\"Straße\"", "V = 'sTRAßE'", "true"},
        {"string", "\"ÄPFEL\"", "V = 'äpfel' AND V LIKE 'Äpf%'", "true"},
        {"string", "\"B\"", "V > 'a' AND V < 'C' AND V <= 'b' AND V != 'a'", "true"},
        {"string", "\"_\"", "V < 'A'", "true"},
        {"string", "\"z\"", "V > 'é'", "false"},
        {"string", "\"\"", "V = '' AND V IS NOT NULL AND V < 'a'", "true"},
        {"object ref", R"("C.K=\"x\"")", R"(V = 'c.k="X"' AND V LIKE 'C.%')", "true"},
        {"char16", "'Q'", "V = 'q' AND V > 'P' AND V < 'r' AND V = 81", "true"},
        {"char16", "'Ä'", "V = 'ä'", "true"},
        {"char16", "0xD800", "V = 'a'", "neither"},
        {"char16", "0xD800", "V = 55296", "true"},
    });
    ExpectRefusals("string", {{"V = 5", "V is of type string"}, {"V = 5", "a text"}});
    ExpectRefusals("char16", {{"V = 'ab'", "one UTF-16 unit"}, {"V = '😀'", "one UTF-16 unit"}});
}

TEST(WqlCondition, ComparesBooleansForEqualityOnly) {
    ExpectAnswers({{"boolean", "TRUE", "V = TRUE AND V = 1 AND V <> FALSE AND V != 0 AND TRUE = V", "true"},
                   {"boolean", "FALSE", "V = 1", "false"}});
    ExpectRefusals("boolean", {{"V < TRUE", "= and != only"},
                               {"V = 2", "TRUE, FALSE, 1 or 0"},
                               {"V = 'TRUE'", "TRUE, FALSE, 1 or 0"},
                               {"V LIKE 'T%'", "LIKE compares texts only"}});
}

TEST(WqlCondition, ComparesDatetimesAsPointsInTime) {
    const std::string noon = "\"20240229120000.500000+060\"", week = "\"00000007000000.000000:000\"";
    ExpectAnswers({
        {"datetime", noon, "V = '20240229110000.500000+000' AND V > '20240229115959.999999+060'", "true"},
        {"datetime", noon, "V < '20240229120000.500000-001' AND V LIKE '2024022912%'", "true"},
        {"datetime", noon, "V = '00000001000000.000000:000'", "neither"},
        {"datetime", "\"20240301003000.000000+120\"", "V < '20240229230000.000000+000'", "true"},
        {"datetime", "\"00000101000000.000000+000\"", "V < '99991231235959.999999+999'", "true"},
        {"datetime", "\"2024022912****.******+060\"", "V > '20240229110000.500000+000'", "neither"},
        {"datetime", week, "V > '00000006235959.999999:000' AND V < '99999999235959.999999:000'", "true"},
        {"datetime", week, "V <> '20240229110000.500000+000'", "neither"},
    });
    ExpectRefusals("datetime", {{"V = '2024'", "25 characters"},
                                {"V = 20240229", "25 characters"},
                                {"V = '2024022912****.******+060'", "25 characters"},
                                {"V = '20241329120000.500000+060'", "25 characters"}});
}

TEST(WqlCondition, ComparesArraysAndObjectsWithNullOnly) {
    Schema schema("class Row { string Tags[]; object Inner; };");
    schema.ExpectAnswers(schema.Make("Row {}"), {{"Tags IS NULL AND Inner = NULL", "true"}});
    schema.ExpectAnswers(schema.Make("Row { Tags = {}; Inner = instance of Row {}; }"),
                         {{"Tags IS NOT NULL AND Inner <> NULL AND Inner ISA row", "true"}});
    schema.ExpectRefusals("Row", {{"Tags = 'a'", "Tags is an array"},
                                  {"Tags LIKE 'a'", "Tags is an array"},
                                  {"Inner = 'a'", "Inner is an embedded object"},
                                  {"Tags ISA Row", "no embedded object"},
                                  {"Tags.X = 1", "Tags is no embedded object"}});
}

// Null is neither true nor false, and the logic around it is that of three values.
TEST(WqlCondition, HasThreeValues) {
    Schema schema("class Row { uint8 N; string S = \"a\"; uint8 D = 5; };");
    const Instance row = schema.Make("Row { S = NULL; }");
    const std::map<std::string, std::string> operands{
        {"true", "D = 5"}, {"false", "D = 6"}, {"neither", "N = 1"}};
    const auto rank = [](const std::string& truth) {
        return truth == "false" ? 0 : truth == "neither" ? 1 : 2;
    };
    for (const auto& [a, left] : operands) {
        for (const auto& [b, right] : operands) {
            schema.ExpectAnswers(row, {{left, a},
                                       {left + " AND " + right, rank(a) < rank(b) ? a : b},
                                       {left + " OR " + right, rank(a) > rank(b) ? a : b}});
        }
    }
    for (const char* unknown : {"N <> 1", "N < 1", "S = ''", "S LIKE '%'", "NOT N = 1", "1 = N"})
        EXPECT_EQ(schema.Ask(row, unknown), "neither") << unknown;
    schema.ExpectAnswers(
        row, {{"N IS NULL AND S IS NULL AND NULL = S AND D IS NOT NULL", "true"}, {"N <> NULL", "false"}});
}

TEST(WqlCondition, AnswersSystemProperties) {
    Schema schema("class Top { [key] string K; }; class Middle : Top {};");
    schema.ExpectAnswers(schema.Make("Middle { K = \"x\"; }"),
                         {{"__CLASS = 'middle' AND __SUPERCLASS = 'Top' AND __DYNASTY LIKE 't%'", "true"},
                          {R"(__relpath = 'Middle.K="x"' AND __CLASS IS NOT NULL)", "true"}});
    schema.ExpectAnswers(schema.Make("Top {}"), {{"__SUPERCLASS IS NULL AND __RELPATH IS NULL", "true"},
                                                 {"__SUPERCLASS = 'x'", "neither"}});
    schema.ExpectRefusals("Middle", {{"__PATH = 'x'", "__PATH has no place in a condition"},
                                     {"__CLASS = 5", "a text"},
                                     {"__CLASS ISA Top", "no embedded object"}});
}

// The class behind FROM must have what is asked for; rows of subclasses and of newer versions of a class are
// read by their own definition.
TEST(WqlCondition, FollowsPropertiesIntoOtherClasses) {
    const Schema schema("class Base { [key] string K; uint8 N; }; class Sub : Base { uint8 M; };");
    const ClassPtr moved = Schema("class Base { uint8 M; uint64 n; };").At("Base");
    const ClassPtr changed = Schema("class Base { string N = \"4\"; };").At("Base");
    const ClassPtr without = Schema("class Base { [key] string K; };").At("Base");

    Result<WqlCondition> condition = schema.Bind("SELECT K, __PATH FROM Base WHERE N > 3 OR N IS NULL");
    ASSERT_OK(condition);
    for (int round = 0; round < 2; ++round) {
        for (const ClassPtr& definition : {schema.At("Base"), schema.At("Sub"), moved}) {
            Instance row(definition);
            ASSERT_OK(SetProperty(row, "N", uint64_t{4}));
            EXPECT_TRUE(IsMatch(*condition, row));
            ASSERT_OK(SetProperty(row, "N", uint64_t{3}));
            EXPECT_FALSE(IsMatch(*condition, row));
        }
        EXPECT_FALSE(IsMatch(*condition, Instance(changed)));
        EXPECT_FALSE(IsMatch(*condition, Instance(without)));
    }
    for (const char* query :
         {"SELECT M FROM Base", "SELECT K.X FROM Base", "SELECT * FROM Base WHERE K LIKE '[x'"})
        EXPECT_EQ(schema.Bind(query).code(), WBEM_E_INVALID_QUERY) << query;
    EXPECT_THAT(schema.Bind("SELECT * FROM Base WHERE K='x' AND M = 1").status().reason(),
                AllOf(StartsWith("character 36"), HasSubstr("class Base has no property M")));
    const Result<WqlCondition> unknown = schema.Bind("SELECT * FROM None");
    EXPECT_EQ(unknown.code(), WBEM_E_INVALID_CLASS);
    EXPECT_THAT(unknown.status().reason(), HasSubstr("character 15"));
    EXPECT_TRUE(*schema.Bind("SELECT * FROM Base")->Matches(Instance(schema.At("Sub"))));
}

class WqlEvents : public testing::Test {
 protected:
    Schema schema_{R"(
        class __Event { uint64 TIME_CREATED; };
        class __InstanceOperationEvent : __Event { object TargetInstance; };
        class __InstanceCreationEvent : __InstanceOperationEvent {};
        class __InstanceModificationEvent : __InstanceOperationEvent { object PreviousInstance; };
        class Plan { uint8 Hour; };
        class Policy { [key] string INSTANCE_ID; uint32 Days; Plan Plan; object Any; };
        class MailPolicy : Policy { string Box; };
        class Other { [key] string INSTANCE_ID; string Days; };)"};
};

TEST_F(WqlEvents, AsksTheEmbeddedInstance) {
    const auto expect = [&](const std::string& target, const Cases& cases) {
        schema_.ExpectAnswers(
            schema_.Make("__InstanceCreationEvent { TargetInstance = instance of " + target + "; }"), cases);
    };
    expect("MailPolicy { INSTANCE_ID = \"P1\"; Days = 30; }",
           {{R"(TargetInstance ISA "Policy" AND TargetInstance.INSTANCE_ID="p1")", "true"},
            {"targetinstance isa mailpolicy and targetinstance.days >= 30", "true"},
            {"TargetInstance ISA 'Other' OR TargetInstance.INSTANCE_ID = 'p2'", "false"},
            {"TargetInstance.__CLASS = 'MailPolicy' AND TargetInstance.Box IS NULL", "true"},
            {"TIME_CREATED IS NULL AND __CLASS LIKE '%Creation%'", "true"}});
    // What a class does not have is neither null nor anything else.
    expect("Plan {}", {{"TargetInstance.Days IS NULL", "neither"}});
    expect("Policy { INSTANCE_ID = \"P1\"; Plan = instance of Plan { Hour = 22; }; }",
           {{"TargetInstance.Plan.Hour = 22 AND TargetInstance.Plan ISA Plan", "true"},
            {"TargetInstance.INSTANCE_ID.X IS NULL", "neither"}});
    expect("Policy {}", {{"TargetInstance.Plan.Hour IS NULL AND TargetInstance.Any.X.Y IS NULL", "true"},
                         {"TargetInstance.Plan.Hour = 22", "neither"},
                         {"TargetInstance.Plan ISA Plan", "neither"}});
    schema_.ExpectAnswers(
        schema_.Make("__InstanceModificationEvent { PreviousInstance = instance of Policy { Days = 1; }; "
                     "TargetInstance = instance of Policy { Days = 2; }; }"),
        {{"PreviousInstance.Days = 1 AND TargetInstance.Days = 2 AND PreviousInstance ISA Policy", "true"}});
}

// Without ISA nothing is known of the class: each event is asked for what it has.
TEST_F(WqlEvents, LooksUpByNameWhereTheClassIsNotKnown) {
    Result<WqlCondition> condition =
        schema_.Bind("SELECT * FROM __InstanceOperationEvent WHERE TargetInstance.Days > 3");
    ASSERT_OK(condition);
    const auto matches = [&](const Instance& target) {
        Instance event(schema_.At("__InstanceCreationEvent"));
        EXPECT_OK(SetProperty(event, "TargetInstance", ObjectPtr(std::make_shared<const Instance>(target))));
        return IsMatch(*condition, event);
    };
    for (int round = 0; round < 40; ++round) {
        EXPECT_TRUE(matches(schema_.Make("Policy { Days = 4; }")));
        EXPECT_FALSE(matches(schema_.Make("MailPolicy { Days = 3; }")));
        EXPECT_FALSE(matches(schema_.Make("Other { Days = \"9\"; }")));
        EXPECT_FALSE(matches(schema_.Make("Plan {}")));
        // More classes, and so more versions of them, than a condition remembers.
        const std::string before = round % 2 ? "uint8 X; " : "";
        const Schema newer("class Policy { " + before + "sint8 Days = 4; };");
        EXPECT_TRUE(matches(Instance(newer.At("Policy"))));
    }
}

TEST_F(WqlEvents, ChecksWhatIsKnown) {
    schema_.ExpectRefusals(
        "__InstanceModificationEvent",
        {{"TargetInstance ISA 'Policy' AND TargetInstance.Nights = 1", "class Policy has no property Nights"},
         {"(TargetInstance.Days LIKE '1') AND TargetInstance ISA Policy", "uint32"},
         {"TargetInstance ISA Policy AND (TIME_CREATED = 1 OR TargetInstance.Plan.Day = 1)",
          "class Plan has no property Day"},
         {"NextInstance.Days = 1", "no property NextInstance"},
         {"TIME_CREATED ISA Policy", "no embedded object"}});
    const std::string from = "SELECT * FROM __InstanceModificationEvent WHERE ";
    EXPECT_EQ(schema_.Bind(from + "TIME_CREATED = 1 OR NOT TargetInstance ISA 'Polcy'").code(),
              WBEM_E_INVALID_CLASS);
    for (const char* sound :
         {"TargetInstance ISA 'Policy' AND TargetInstance ISA MailPolicy AND TargetInstance.Box = 'a'",
          "(TargetInstance ISA 'Policy' AND TargetInstance.Days = 1) OR "
          "(TargetInstance ISA 'Other' AND TargetInstance.Days = '1')",
          "NOT TargetInstance ISA 'Policy' AND TargetInstance.Nights = 1",
          "TargetInstance.__CLASS = 'Gone' AND TargetInstance.Nights = 1"}) {
        EXPECT_OK(schema_.Bind(from + sound)) << sound;
    }
}

// A record that cannot be read is a fault and no answer.
TEST(WqlCondition, PassesOnFaultsOfReading) {
    class Damaged : public StoredProperties {
     public:
        Status Read(const PropertyDefinition&, size_t index, bool& is_set, Value&,
                    ValueView& view) const override {
            if (index == 1) return {WBEM_E_FAILED, "the record is damaged"};
            is_set = true;
            view = uint64_t{1};
            return {};
        }
        bool Has(const PropertyDefinition&, size_t) const noexcept override { return true; }
    };
    const Schema schema("class Row { uint8 A; uint8 B; };");
    const Instance damaged(schema.At("Row"), std::make_shared<Damaged>());
    EXPECT_EQ(schema.Bind("SELECT * FROM Row WHERE A = 1 AND B = 1")->Matches(damaged).code(), WBEM_E_FAILED);
    EXPECT_TRUE(*schema.Bind("SELECT * FROM Row WHERE A = 2 AND B = 1 OR A = 1 OR B = 1")->Matches(damaged));
}

}  // namespace
}  // namespace service
