#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/wql_condition.h"
#include "service/language/wql_parser.h"
#include "service/model/text.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// A schema to bind to.
class Classes {
 public:
    ClassPtr Add(ClassDeclaration declaration) {
        const ClassPtr superclass = declaration.superclass.empty() ? nullptr : At(declaration.superclass);
        ClassPtr definition = Resolved(std::move(declaration), superclass);
        classes_[definition->FoldedName()] = definition;
        return definition;
    }
    ClassPtr At(std::string_view name) const { return classes_.at(Fold(name)); }

    Result<ClassPtr> Find(std::string_view name) const {
        const auto found = classes_.find(Fold(name));
        if (found == classes_.end()) return {WBEM_E_INVALID_CLASS, "there is no class " + std::string(name)};
        return found->second;
    }

    Result<WqlCondition> Bind(const std::string& text) const {
        const Result<WqlQuery> query = ParseWql(text);
        EXPECT_OK(query) << text;
        if (!query.ok()) return Status(query.code(), query.status().reason());
        return WqlCondition::Bind(*query, [this](std::string_view name) { return Find(name); });
    }

 private:
    std::map<std::string, ClassPtr> classes_;
};

bool IsMatch(WqlCondition& condition, const Instance& object) {
    const Result<bool> matches = condition.Matches(object);
    EXPECT_OK(matches);
    return matches.ok() && *matches;
}

// "true", "false", "neither" or the reason why it cannot be asked, of an instance of Row.
std::string Ask(const Classes& classes, const Instance& row, const std::string& where) {
    const std::string from = "SELECT * FROM " + row.Class()->Name() + " WHERE ";
    Result<WqlCondition> plain = classes.Bind(from + where);
    if (!plain.ok()) {
        EXPECT_EQ(plain.code(), WBEM_E_INVALID_QUERY) << plain.status().reason();
        return plain.status().reason();
    }
    Result<WqlCondition> negated = classes.Bind(from + "NOT (" + where + ")");
    const bool holds = IsMatch(*plain, row);
    const bool does_not = negated.ok() && IsMatch(*negated, row);
    EXPECT_FALSE(holds && does_not) << where;
    return holds ? "true" : does_not ? "false" : "neither";
}

// The same of one property V of that type and value.
std::string Ask(CimType type, Value value, const std::string& where) {
    Classes classes;
    Instance row(classes.Add(Declare("Row", {Property("V", type)})));
    EXPECT_OK(SetProperty(row, "V", std::move(value)));
    return Ask(classes, row, where);
}

TEST(WqlCondition, ComparesWholeNumbersOfEveryWidthExactly) {
    constexpr auto kLowest = std::numeric_limits<int64_t>::min();
    constexpr auto kHighest = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(Ask(CimType::kUint64, kHighest, "V > -1"), "true");
    EXPECT_EQ(Ask(CimType::kUint64, kHighest, "V = -1"), "false");
    EXPECT_EQ(Ask(CimType::kUint64, kHighest, "V = 18446744073709551615"), "true");
    EXPECT_EQ(Ask(CimType::kUint64, kHighest, "V < 18446744073709551616.0"), "true");
    EXPECT_EQ(Ask(CimType::kUint64, kHighest, "V = 18446744073709551616.0"), "false");
    EXPECT_EQ(Ask(CimType::kUint64, (uint64_t{1} << 53) + 1, "V > 9007199254740992.0"), "true");
    EXPECT_EQ(Ask(CimType::kSint64, kLowest, "V < 0 AND V < 18446744073709551615 AND V <= -1"), "true");
    EXPECT_EQ(Ask(CimType::kSint64, kLowest, "V = -9223372036854775808.0"), "true");
    EXPECT_EQ(Ask(CimType::kSint64, kLowest, "V > -1e30 AND V < 1e30"), "true");
    EXPECT_EQ(Ask(CimType::kSint8, int64_t{-2}, "V < -1.5 AND V > -2.5 AND V <> -1.5"), "true");
    EXPECT_EQ(Ask(CimType::kUint8, uint64_t{2}, "V > 1.5 AND V < 2.5 AND V = 2.0 AND 2 >= V"), "true");
    EXPECT_EQ(Ask(CimType::kSint32, int64_t{5}, "V >= 6"), "false");
    EXPECT_EQ(Ask(CimType::kSint32, int64_t{5}, "V <= 5 AND V >= 5 AND NOT V <> 5"), "true");
}

TEST(WqlCondition, ComparesReals) {
    EXPECT_EQ(Ask(CimType::kReal64, 1.1, "V = 1.1 AND V > 1 AND V < 2 AND V != 1"), "true");
    EXPECT_EQ(Ask(CimType::kReal64, 18446744073709551616.0, "V > 18446744073709551615"), "true");
    EXPECT_EQ(Ask(CimType::kReal64, -0.0, "V = 0"), "true");
    EXPECT_EQ(Ask(CimType::kReal32, double{1.1F}, "V = 1.1"), "true");
    EXPECT_EQ(Ask(CimType::kReal32, double{1.1F}, "V < 1e300"), "true");
    const double nothing = std::nan("");
    EXPECT_EQ(Ask(CimType::kReal64, nothing, "V = 1 OR V < 1 OR V >= 1.5 OR 0 <= V"), "false");
    EXPECT_EQ(Ask(CimType::kReal64, nothing, "V <> 1"), "true");
    EXPECT_EQ(Ask(CimType::kReal64, HUGE_VAL, "V > 18446744073709551615 AND V > 1e308"), "true");
}

TEST(WqlCondition, ComparesTextsWithoutRegardToCase) {
    EXPECT_EQ(Ask(CimType::kString, std::string("Straße"), "V = 'sTRAßE'"), "true");
    EXPECT_EQ(Ask(CimType::kString, std::string("ÄPFEL"), "V = 'äpfel' AND V LIKE 'Äpf%'"), "true");
    EXPECT_EQ(Ask(CimType::kString, std::string("B"), "V > 'a' AND V < 'C' AND V <= 'b' AND V != 'a'"),
              "true");
    EXPECT_EQ(Ask(CimType::kString, std::string("_"), "V < 'A'"), "true");
    EXPECT_EQ(Ask(CimType::kString, std::string("z"), "V > 'é'"), "false");
    EXPECT_EQ(Ask(CimType::kString, std::string(), "V = '' AND V IS NOT NULL AND V < 'a'"), "true");
    EXPECT_EQ(Ask(CimType::kReference, std::string("C.K=\"x\""), R"(V = 'c.k="X"' AND V LIKE 'C.%')"),
              "true");
    EXPECT_THAT(Ask(CimType::kString, std::string("5"), "V = 5"),
                AllOf(StartsWith("character 29"), HasSubstr("V is of type string"), HasSubstr("a text")));
}

TEST(WqlCondition, ComparesBooleansForEqualityOnly) {
    EXPECT_EQ(Ask(CimType::kBoolean, true, "V = TRUE AND V = 1 AND V <> FALSE AND V != 0 AND TRUE = V"),
              "true");
    EXPECT_EQ(Ask(CimType::kBoolean, false, "V = 1"), "false");
    EXPECT_THAT(Ask(CimType::kBoolean, true, "V < TRUE"), HasSubstr("= and != only"));
    EXPECT_THAT(Ask(CimType::kBoolean, true, "V = 2"), HasSubstr("TRUE, FALSE, 1 or 0"));
    EXPECT_THAT(Ask(CimType::kBoolean, true, "V = 'TRUE'"), HasSubstr("TRUE, FALSE, 1 or 0"));
    EXPECT_THAT(Ask(CimType::kBoolean, true, "V LIKE 'T%'"), HasSubstr("LIKE compares texts only"));
    EXPECT_THAT(Ask(CimType::kUint8, uint64_t{1}, "V = TRUE"), HasSubstr("a number"));
    EXPECT_THAT(Ask(CimType::kUint8, uint64_t{1}, "V = '1'"), HasSubstr("a number"));
}

TEST(WqlCondition, ComparesCharactersAsTextAndNumber) {
    EXPECT_EQ(Ask(CimType::kChar16, uint64_t{'Q'}, "V = 'q' AND V > 'P' AND V < 'r' AND V = 81"), "true");
    EXPECT_EQ(Ask(CimType::kChar16, uint64_t{0xC4}, "V = 'ä'"), "true");
    EXPECT_EQ(Ask(CimType::kChar16, uint64_t{0xD800}, "V = 'a'"), "neither");
    EXPECT_EQ(Ask(CimType::kChar16, uint64_t{0xD800}, "V = 55296"), "true");
    EXPECT_THAT(Ask(CimType::kChar16, uint64_t{'a'}, "V = 'ab'"), HasSubstr("one UTF-16 unit"));
    EXPECT_THAT(Ask(CimType::kChar16, uint64_t{'a'}, "V = '😀'"), HasSubstr("one UTF-16 unit"));
}

TEST(WqlCondition, ComparesDatetimesAsPointsInTime) {
    const auto at = [](const char* text) { return Value(std::string(text)); };
    const Value noon = at("20240229120000.500000+060");
    EXPECT_EQ(Ask(CimType::kDatetime, noon, "V = '20240229110000.500000+000'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, noon, "V > '20240229115959.999999+060'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, noon, "V < '20240229120000.500000-001'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, at("20240301003000.000000+120"), "V < '20240229230000.000000+000'"),
              "true");
    EXPECT_EQ(Ask(CimType::kDatetime, at("00000101000000.000000+000"), "V < '99991231235959.999999+999'"),
              "true");
    EXPECT_EQ(Ask(CimType::kDatetime, noon, "V LIKE '2024022912%'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, noon, "V = '00000001000000.000000:000'"), "neither");
    EXPECT_EQ(Ask(CimType::kDatetime, at("2024022912****.******+060"), "V > '20240229110000.500000+000'"),
              "neither");
    const Value week = at("00000007000000.000000:000");
    EXPECT_EQ(Ask(CimType::kDatetime, week, "V > '00000006235959.999999:000'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, week, "V < '99999999235959.999999:000'"), "true");
    EXPECT_EQ(Ask(CimType::kDatetime, week, "V <> '20240229110000.500000+000'"), "neither");
    for (const char* constant :
         {"'2024'", "20240229", "'2024022912****.******+060'", "'20241329120000.500000+060'"})
        EXPECT_THAT(Ask(CimType::kDatetime, noon, std::string("V = ") + constant),
                    HasSubstr("25 characters"));
}

TEST(WqlCondition, ComparesArraysAndObjectsWithNullOnly) {
    Classes classes;
    const ClassPtr row = classes.Add(
        Declare("Row", {ArrayProperty("Tags", CimType::kString), Property("Inner", CimType::kObject)}));
    Instance empty(row);
    EXPECT_EQ(Ask(classes, empty, "Tags IS NULL AND Inner = NULL"), "true");
    Instance full(row);
    ASSERT_OK(SetProperty(full, "Tags", Array{}));
    ASSERT_OK(SetProperty(full, "Inner", ObjectPtr(std::make_shared<const Instance>(row))));
    EXPECT_EQ(Ask(classes, full, "Tags IS NOT NULL AND Inner <> NULL AND Inner ISA row"), "true");
    EXPECT_THAT(Ask(classes, full, "Tags = 'a'"), HasSubstr("Tags is an array"));
    EXPECT_THAT(Ask(classes, full, "Tags LIKE 'a'"), HasSubstr("Tags is an array"));
    EXPECT_THAT(Ask(classes, full, "Inner = 'a'"), HasSubstr("Inner is an embedded object"));
    EXPECT_THAT(Ask(classes, full, "Tags ISA Row"), HasSubstr("no embedded object"));
    EXPECT_THAT(Ask(classes, full, "Tags.X = 1"), HasSubstr("Tags is no embedded object"));
}

// Null is neither true nor false, and the logic around it is that of three values.
TEST(WqlCondition, HasThreeValues) {
    Classes classes;
    Instance row(classes.Add(Declare("Row", {Property("N", CimType::kUint8), Property("S", CimType::kString),
                                             Property("D", CimType::kUint8, uint64_t{5})})));
    ASSERT_OK(SetProperty(row, "S", std::monostate()));
    const std::map<std::string, std::string> operands{
        {"true", "D = 5"}, {"false", "D = 6"}, {"neither", "N = 1"}};
    const auto rank = [](const std::string& truth) {
        return truth == "false" ? 0 : truth == "neither" ? 1 : 2;
    };
    for (const auto& [a, left] : operands) {
        EXPECT_EQ(Ask(classes, row, left), a);
        for (const auto& [b, right] : operands) {
            EXPECT_EQ(Ask(classes, row, left + " AND " + right), rank(a) < rank(b) ? a : b) << left << right;
            EXPECT_EQ(Ask(classes, row, left + " OR " + right), rank(a) > rank(b) ? a : b) << left << right;
        }
    }
    for (const char* unknown : {"N <> 1", "N < 1", "S = ''", "S LIKE '%'", "NOT N = 1", "1 = N"})
        EXPECT_EQ(Ask(classes, row, unknown), "neither") << unknown;
    EXPECT_EQ(Ask(classes, row, "N IS NULL AND S IS NULL AND NULL = S AND D IS NOT NULL"), "true");
    EXPECT_EQ(Ask(classes, row, "N <> NULL"), "false");
}

TEST(WqlCondition, AnswersSystemProperties) {
    Classes classes;
    classes.Add(Declare("Top", {Key("K")}));
    Instance row(classes.Add(Declare("Middle", {}, "Top")));
    ASSERT_OK(SetProperty(row, "K", std::string("x")));
    EXPECT_EQ(Ask(classes, row, "__CLASS = 'middle' AND __SUPERCLASS = 'Top' AND __DYNASTY LIKE 't%'"),
              "true");
    EXPECT_EQ(Ask(classes, row, R"(__relpath = 'Middle.K="x"' AND __CLASS IS NOT NULL)"), "true");
    Instance top(classes.At("Top"));
    EXPECT_EQ(Ask(classes, top, "__SUPERCLASS IS NULL AND __RELPATH IS NULL"), "true");
    EXPECT_EQ(Ask(classes, top, "__SUPERCLASS = 'x'"), "neither");
    EXPECT_THAT(Ask(classes, row, "__PATH = 'x'"), HasSubstr("__PATH has no place in a condition"));
    EXPECT_THAT(Ask(classes, row, "__CLASS = 5"), HasSubstr("a text"));
    EXPECT_THAT(Ask(classes, row, "__CLASS ISA Top"), HasSubstr("no embedded object"));
}

// The class behind FROM must have what is asked for; rows of subclasses and of newer versions of a class are
// read by their own definition.
TEST(WqlCondition, FollowsPropertiesIntoOtherClasses) {
    Classes classes;
    classes.Add(Declare("Base", {Key("K"), Property("N", CimType::kUint8)}));
    const ClassPtr sub = classes.Add(Declare("Sub", {Property("M", CimType::kUint8)}, "Base"));
    const ClassPtr moved =
        Resolved(Declare("Base", {Property("M", CimType::kUint8), Property("n", CimType::kUint64)}));
    const ClassPtr changed = Resolved(Declare("Base", {Property("N", CimType::kString)}));
    const ClassPtr without = Resolved(Declare("Base", {Key("K")}));

    Result<WqlCondition> condition = classes.Bind("SELECT K, __PATH FROM Base WHERE N > 3 OR N IS NULL");
    ASSERT_OK(condition);
    for (int round = 0; round < 2; ++round) {
        for (const ClassPtr& definition : {classes.At("Base"), sub, moved}) {
            Instance row(definition);
            ASSERT_OK(SetProperty(row, "N", uint64_t{4}));
            EXPECT_TRUE(IsMatch(*condition, row));
            ASSERT_OK(SetProperty(row, "N", uint64_t{3}));
            EXPECT_FALSE(IsMatch(*condition, row));
        }
        Instance text(changed);
        ASSERT_OK(SetProperty(text, "N", std::string("4")));
        EXPECT_FALSE(IsMatch(*condition, text));
        EXPECT_FALSE(IsMatch(*condition, Instance(without)));
    }
    for (const char* query : {"SELECT * FROM Base WHERE M = 1", "SELECT M FROM Base", "SELECT K.X FROM Base"})
        EXPECT_EQ(classes.Bind(query).code(), WBEM_E_INVALID_QUERY) << query;
    EXPECT_THAT(classes.Bind("SELECT * FROM Base WHERE K='x' AND M = 1").status().reason(),
                AllOf(StartsWith("character 36"), HasSubstr("class Base has no property M")));
    const Result<WqlCondition> unknown = classes.Bind("SELECT * FROM None");
    EXPECT_EQ(unknown.code(), WBEM_E_INVALID_CLASS);
    EXPECT_THAT(unknown.status().reason(), HasSubstr("character 15"));
    EXPECT_EQ(classes.Bind("SELECT * FROM Base WHERE K LIKE '[x'").code(), WBEM_E_INVALID_QUERY);
    Result<WqlCondition> everything = classes.Bind("SELECT * FROM Base");
    ASSERT_OK(everything);
    EXPECT_TRUE(IsMatch(*everything, Instance(sub)));
}

class WqlEvents : public testing::Test {
 protected:
    WqlEvents() {
        classes_.Add(Declare("__Event", {Property("TIME_CREATED", CimType::kUint64)}));
        classes_.Add(
            Declare("__InstanceOperationEvent", {Property("TargetInstance", CimType::kObject)}, "__Event"));
        classes_.Add(Declare("__InstanceCreationEvent", {}, "__InstanceOperationEvent"));
        classes_.Add(Declare("__InstanceModificationEvent", {Property("PreviousInstance", CimType::kObject)},
                             "__InstanceOperationEvent"));
        classes_.Add(Declare("Plan", {Property("Hour", CimType::kUint8)}));
        classes_.Add(Declare("Policy", {Key("INSTANCE_ID"), Property("Days", CimType::kUint32),
                                        Property("Plan", PropertyType{CimType::kObject, false, 0, "Plan"}),
                                        Property("Any", CimType::kObject)}));
        classes_.Add(Declare("MailPolicy", {Property("Box", CimType::kString)}, "Policy"));
        classes_.Add(Declare("Other", {Key("INSTANCE_ID"), Property("Days", CimType::kString)}));
    }

    Instance Make(const std::string& name, const std::string& id) const {
        Instance instance(classes_.At(name));
        EXPECT_OK(SetProperty(instance, "INSTANCE_ID", id));
        return instance;
    }

    Instance Policy(uint64_t days, const std::string& name = "Policy") const {
        Instance policy = Make(name, "P1");
        EXPECT_OK(SetProperty(policy, "Days", days));
        return policy;
    }

    Instance Event(const std::string& name, Instance target) const {
        Instance event(classes_.At(name));
        EXPECT_OK(SetProperty(event, "TargetInstance",
                              ObjectPtr(std::make_shared<const Instance>(std::move(target)))));
        return event;
    }
    Instance Created(Instance target) const { return Event("__InstanceCreationEvent", std::move(target)); }
    Instance Modified(Instance before, Instance after) const {
        Instance event = Event("__InstanceModificationEvent", std::move(after));
        EXPECT_OK(SetProperty(event, "PreviousInstance",
                              ObjectPtr(std::make_shared<const Instance>(std::move(before)))));
        return event;
    }

    bool Matches(const Instance& event, const std::string& where) const {
        Result<WqlCondition> condition =
            classes_.Bind("SELECT * FROM " + event.Class()->Name() + " WITHIN 1 WHERE " + where);
        EXPECT_OK(condition) << where;
        return condition.ok() && IsMatch(*condition, event);
    }

    Status Refusal(const std::string& where) const {
        return classes_.Bind("SELECT * FROM __InstanceModificationEvent WHERE " + where).status();
    }

    Classes classes_;
};

TEST_F(WqlEvents, AsksTheEmbeddedInstance) {
    const Instance event = Created(Policy(30, "MailPolicy"));
    EXPECT_TRUE(Matches(event, R"(TargetInstance ISA "Policy" AND TargetInstance.INSTANCE_ID="p1")"));
    EXPECT_TRUE(Matches(event, "targetinstance isa mailpolicy and targetinstance.days >= 30"));
    EXPECT_FALSE(Matches(event, "TargetInstance ISA 'Other' OR TargetInstance.INSTANCE_ID = 'p2'"));
    EXPECT_TRUE(Matches(event, "NOT TargetInstance ISA 'Other'"));
    EXPECT_TRUE(Matches(event, "TargetInstance.__CLASS = 'MailPolicy' AND TargetInstance.Box IS NULL"));
    EXPECT_TRUE(Matches(event, "TIME_CREATED IS NULL AND __CLASS LIKE '%Creation%'"));
    EXPECT_TRUE(
        Matches(Modified(Policy(1), Policy(2)),
                "PreviousInstance.Days = 1 AND TargetInstance.Days = 2 AND PreviousInstance ISA Policy"));
}

// Without ISA nothing is known of the class: each event is asked for what it has.
TEST_F(WqlEvents, LooksUpByNameWhereTheClassIsNotKnown) {
    Result<WqlCondition> condition =
        classes_.Bind("SELECT * FROM __InstanceOperationEvent WHERE TargetInstance.Days > 3");
    ASSERT_OK(condition);
    Instance other = Make("Other", "x");
    ASSERT_OK(SetProperty(other, "Days", std::string("9")));
    Instance plan(classes_.At("Plan"));
    for (int round = 0; round < 40; ++round) {
        EXPECT_TRUE(IsMatch(*condition, Created(Policy(4))));
        EXPECT_FALSE(IsMatch(*condition, Created(Policy(3, "MailPolicy"))));
        EXPECT_FALSE(IsMatch(*condition, Created(other)));
        EXPECT_FALSE(IsMatch(*condition, Modified(plan, plan)));
        // More classes, and so more versions of them, than a condition remembers.
        Instance newer(
            Resolved(Declare("Policy", {Property("X", CimType::kUint8), Property("Days", CimType::kSint8)})));
        ASSERT_OK(SetProperty(newer, "Days", int64_t{4}));
        EXPECT_TRUE(IsMatch(*condition, Created(newer)));
    }
    // What a class does not have is neither null nor anything else.
    EXPECT_FALSE(Matches(Created(plan), "TargetInstance.Days IS NULL"));
    EXPECT_FALSE(Matches(Created(plan), "NOT TargetInstance.Days IS NULL"));
}

TEST_F(WqlEvents, GoesDeeperAndStopsAtNull) {
    Instance plan(classes_.At("Plan"));
    ASSERT_OK(SetProperty(plan, "Hour", uint64_t{22}));
    Instance policy = Policy(1);
    ASSERT_OK(SetProperty(policy, "Plan", ObjectPtr(std::make_shared<const Instance>(plan))));
    EXPECT_TRUE(Matches(Created(policy), "TargetInstance.Plan.Hour = 22 AND TargetInstance.Plan ISA Plan"));
    EXPECT_TRUE(
        Matches(Created(Policy(1)), "TargetInstance.Plan.Hour IS NULL AND TargetInstance.Any.X.Y IS NULL"));
    EXPECT_FALSE(
        Matches(Created(Policy(1)), "TargetInstance.Plan.Hour = 22 OR NOT TargetInstance.Plan.Hour = 22"));
    EXPECT_FALSE(Matches(Created(Policy(1)), "NOT TargetInstance.Plan ISA Plan"));
    EXPECT_FALSE(Matches(Created(policy), "TargetInstance.INSTANCE_ID.X IS NULL"));
}

TEST_F(WqlEvents, ChecksWhatIsKnown) {
    const auto reason = [&](const std::string& where) {
        const Status fault = Refusal(where);
        EXPECT_EQ(fault.code(), WBEM_E_INVALID_QUERY) << where;
        return fault.reason();
    };
    EXPECT_THAT(reason("TargetInstance ISA 'Policy' AND TargetInstance.Nights = 1"),
                HasSubstr("class Policy has no property Nights"));
    EXPECT_THAT(reason("(TargetInstance.Days LIKE '1') AND TargetInstance ISA Policy"), HasSubstr("uint32"));
    EXPECT_THAT(reason("TargetInstance ISA Policy AND (TIME_CREATED = 1 OR TargetInstance.Plan.Day = 1)"),
                HasSubstr("class Plan has no property Day"));
    EXPECT_THAT(reason("NextInstance.Days = 1"), HasSubstr("no property NextInstance"));
    EXPECT_THAT(reason("TIME_CREATED ISA Policy"), HasSubstr("no embedded object"));
    EXPECT_EQ(Refusal("TargetInstance ISA 'Polcy'").code(), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(Refusal("TIME_CREATED = 1 OR NOT TargetInstance ISA 'Polcy'").code(), WBEM_E_INVALID_CLASS);

    EXPECT_OK(Refusal(
        "TargetInstance ISA 'Policy' AND TargetInstance ISA MailPolicy AND TargetInstance.Box = 'a'"));
    EXPECT_OK(
        Refusal("(TargetInstance ISA 'Policy' AND TargetInstance.Days = 1) OR "
                "(TargetInstance ISA 'Other' AND TargetInstance.Days = '1')"));
    EXPECT_OK(Refusal("NOT TargetInstance ISA 'Policy' AND TargetInstance.Nights = 1"));
    EXPECT_OK(Refusal("TargetInstance.__CLASS = 'Gone' AND TargetInstance.Nights = 1"));
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
    Classes classes;
    const ClassPtr row =
        classes.Add(Declare("Row", {Property("A", CimType::kUint8), Property("B", CimType::kUint8)}));
    const Instance damaged(row, std::make_shared<Damaged>());
    Result<WqlCondition> reads = classes.Bind("SELECT * FROM Row WHERE A = 1 AND B = 1");
    EXPECT_EQ(reads->Matches(damaged).code(), WBEM_E_FAILED);
    Result<WqlCondition> decides_before =
        classes.Bind("SELECT * FROM Row WHERE A = 2 AND B = 1 OR A = 1 OR B = 1");
    EXPECT_TRUE(IsMatch(*decides_before, damaged));
}

}  // namespace
}  // namespace service
