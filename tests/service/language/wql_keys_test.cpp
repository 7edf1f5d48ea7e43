#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/wql_keys.h"
#include "service/language/wql_parser.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

// The path as text, "any" where every instance has to be looked at.
std::string PathOf(const ClassPtr& definition, const std::string& where) {
    const Result<WqlQuery> query = ParseWql("SELECT * FROM C WHERE " + where);
    EXPECT_OK(query) << where;
    const std::optional<ObjectPath> path = DemandedPath(*query, *definition);
    return path ? PrintObjectPath(*path) : "any";
}

// A key may be answered by the store only where the store's keys are equal when the values are.
TEST(WqlKeys, FindsTheKeyThatTheConditionStandsOrFallsWith) {
    const ClassPtr policy =
        Resolved(Declare("Policy", {Key("INSTANCE_ID"), Property("Days", CimType::kUint8)}));
    for (const char* where : {"INSTANCE_ID = 'mail'", "'mail' = instance_id",
                              "Days > 1 AND (Days < 9 AND (INSTANCE_ID = 'mail')) AND INSTANCE_ID = 'x'"}) {
        EXPECT_EQ(PathOf(policy, where), R"(Policy.INSTANCE_ID="mail")") << where;
    }
    for (const char* where :
         {"INSTANCE_ID = 'mail' OR Days = 1", "NOT INSTANCE_ID = 'mail'", "INSTANCE_ID > 'mail'",
          "INSTANCE_ID LIKE 'mail'", "Days = 1", "INSTANCE_ID IS NULL", "INSTANCE_ID = 5",
          "X.INSTANCE_ID = 'mail'", "NOT NOT (Days = 1 OR INSTANCE_ID = 'mail')"}) {
        EXPECT_EQ(PathOf(policy, where), "any") << where;
    }
    const ClassPtr numbers =
        Resolved(Declare("N", {Key("A", CimType::kSint64), Key("B", CimType::kBoolean)}));
    EXPECT_EQ(PathOf(numbers, "B = 1 AND A = -5"), "N.A=-5,B=TRUE");
    EXPECT_EQ(PathOf(numbers, "A = 5 AND B = FALSE"), "N.A=5,B=FALSE");
    EXPECT_EQ(PathOf(numbers, "A = 5"), "any");
    EXPECT_EQ(PathOf(numbers, "A = 5.0 AND B = 1"), "any");
    const ClassPtr moment = Resolved(Declare("D", {Key("At", CimType::kDatetime)}));
    EXPECT_EQ(PathOf(moment, "At = '20240229120000.500000+060'"), "any");
    EXPECT_EQ(PathOf(Resolved(Declare("C", {Key("Mark", CimType::kChar16)})), "Mark = 97"), "any");
    EXPECT_EQ(PathOf(Resolved(Declare("Keyless", {Property("A", CimType::kUint8)})), "A = 1"), "any");
}

TEST(WqlKeys, DismissesEventsOfOtherClassesAndKeys) {
    const ClassPtr base = Resolved(Declare("Policy", {Key("INSTANCE_ID")}));
    const ClassPtr sub = Resolved(Declare("MailPolicy", {Property("Days", CimType::kUint8)}, "Policy"), base);
    const ClassPtr other = Resolved(Declare("Other", {Key("Number", CimType::kUint8)}));
    Instance instance(sub);
    ASSERT_OK(SetProperty(instance, "INSTANCE_ID", std::string("MAIL")));
    const Result<std::string> key = KeyOf(instance);
    ASSERT_OK(key);

    const auto filter = [](const std::string& where) {
        const Result<WqlQuery> query = ParseWql("SELECT * FROM __InstanceOperationEvent" + where);
        EXPECT_OK(query) << where;
        return WqlEventFilter(*query);
    };
    const WqlEventFilter one =
        filter(" WHERE TargetInstance ISA 'policy' AND TargetInstance.INSTANCE_ID='mail'");
    EXPECT_TRUE(one.OnClass(*sub).MayMatch(*key));
    EXPECT_FALSE(one.OnClass(*sub).MayMatch("another"));
    EXPECT_FALSE(one.OnClass(*other).MayMatch(*key));

    const WqlEventFilter exact =
        filter(" WHERE PreviousInstance.__CLASS = 'Policy' AND TargetInstance.Days = 1");
    EXPECT_TRUE(exact.OnClass(*base).MayMatch("any"));
    EXPECT_FALSE(exact.OnClass(*sub).MayMatch("any"));

    // No class is demanded, and where INSTANCE_ID is no key any instance may have it.
    const WqlEventFilter id = filter(" WHERE PreviousInstance.INSTANCE_ID = 'mail' AND __CLASS = 'x'");
    EXPECT_TRUE(id.OnClass(*base).MayMatch(*key));
    EXPECT_FALSE(id.OnClass(*base).MayMatch("another"));
    EXPECT_TRUE(id.OnClass(*other).MayMatch("any"));

    for (const char* where :
         {"", " WHERE NOT TargetInstance ISA Other", " WHERE TargetInstance ISA Other OR TIME_CREATED = 1",
          " WHERE TargetInstance.Plan ISA Other", " WHERE TargetInstance.Plan.INSTANCE_ID = 'mail'",
          " WHERE TargetInstance.INSTANCE_ID <> 'mail'"}) {
        EXPECT_TRUE(filter(where).OnClass(*base).MayMatch("any")) << where;
    }
}

}  // namespace
}  // namespace service
