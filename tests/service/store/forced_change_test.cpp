// Classes that are declared anew by force, and how many instances stand in the way of it otherwise.
#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/store_check.h"
#include "service/store/value_conversion.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class ForcedChangeTest : public RepositoryFixture {
 protected:
    // Whatever a test did, the store it leaves is sound.
    void TearDown() override {
        StoreCheck check(*repository->store());
        EXPECT_OK(check.Run({{}, [](const std::string& finding) { ADD_FAILURE() << finding; }}));
    }

    int32_t Force(const ClassDeclaration& declaration) {
        return PutClass(declaration, PutCondition::kCreateOrUpdate, ClassUpdate::kForced);
    }
    uint64_t LastChange() { return ChangesAfter(*repository->store(), 0).size(); }
    std::vector<ChangeKind> KindsAfter(uint64_t number) {
        std::vector<ChangeKind> kinds;
        for (const Change& change : ChangesAfter(*repository->store(), number))
            kinds.push_back(change.kind);
        return kinds;
    }
};

TEST_F(ForcedChangeTest, TheNumberOfInstancesInTheWayIsTold) {
    const auto policy = [](std::vector<PropertyDeclaration> more) {
        more.insert(more.begin(), Key("ID"));
        return Declare("Policy", more);
    };
    const PropertyDeclaration name = Property("Name", CimType::kString);
    ASSERT_EQ(PutClass(policy({name, ArrayProperty("Tags", CimType::kString)})), 0);
    ASSERT_EQ(PutClass(Declare("Sub", {Property("Own", CimType::kString)}, "Policy")), 0);
    ASSERT_EQ(PutClass(Declare("Holder", {Key("ID"), Property("Held", CimType::kObject)})), 0);
    const Instance held = Make("Policy", {{"ID", "in"s}, {"Name", "x"s}});
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s}, {"Held", std::make_shared<const Instance>(held)}}), 0);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(PutInstance("Policy", {{"ID", std::to_string(i)}, {"Name", "n"s}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "bare"s}, {"Tags", Array{"a"s, "b"s}}}), 0);
    ASSERT_EQ(PutInstance("Sub", {{"ID", "s"s}, {"Name", "n"s}}), 0);

    const PropertyDeclaration tags = ArrayProperty("Tags", CimType::kString);
    PropertyDeclaration shorter = tags;
    shorter.type.max_elements = 1;
    const auto refused = [&](const ClassDeclaration& declaration, const char* what, const char* count) {
        EXPECT_EQ(PutClass(declaration), WBEM_E_CLASS_HAS_INSTANCES);
        EXPECT_THAT(last.reason(), AllOf(HasSubstr("Policy"), HasSubstr(what), HasSubstr(count)));
    };
    refused(policy({tags}), "drops the property Name",
            "5 instances (3 instances of class Policy, 1 instance of class Sub, "
            "1 instance of class Holder with objects in them)");
    refused(policy({Property("Name", CimType::kUint8), tags}), "from string to uint8", "5 instances");
    refused(policy({name, shorter}), "shortens the property Tags to 1", "1 instance (");
    refused(policy({name, tags, Key("Second")}), "keys from ID to ID, Second", "5 instances");
    EXPECT_EQ(DeleteClass("Policy"), WBEM_E_CLASS_HAS_CHILDREN);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("1 subclass"), HasSubstr("Sub")));
    EXPECT_EQ(DeleteClass("Sub"), WBEM_E_CLASS_HAS_INSTANCES);
    EXPECT_THAT(last.reason(), HasSubstr("1 instance"));

    // What no instance has set may go, and a bound that all keep may come.
    shorter.type.max_elements = 2;
    const uint64_t before = LastChange();
    EXPECT_EQ(PutClass(policy({name, shorter, Property("New", CimType::kString, "d"s)})), 0) << last.reason();
    EXPECT_EQ(PutClass(policy({name, tags})), 0) << last.reason();
    EXPECT_EQ(PutClass(Declare("Sub", {}, "Policy")), 0) << last.reason();
    EXPECT_EQ(LastChange(), before);
}

TEST_F(ForcedChangeTest, ValuesThatFitAreKeptEverywhere) {
    const auto policy = [](CimType type, const std::string& other) {
        return Declare("Policy", {Key("ID"), Property("Days", type), Property(other, CimType::kString)});
    };
    ASSERT_EQ(PutClass(policy(CimType::kString, "Gone")), 0);
    ASSERT_EQ(PutClass(Declare("Sub", {Property("Own", CimType::kString)}, "Policy")), 0);
    ASSERT_EQ(PutClass(Declare("Holder", {Key("ID"), ArrayProperty("Held", CimType::kObject)})), 0);
    const auto held = std::make_shared<const Instance>(Make("Policy", {{"ID", "in"s}, {"Days", "7"s}}));
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s}, {"Held", Array{held, {}}}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "fits"s}, {"Days", "30"s}, {"Gone", "g"s}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "not"s}, {"Days", "many"s}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "null"s}, {"Days", {}}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "unset"s}}), 0);
    ASSERT_EQ(PutInstance("Sub", {{"ID", "s"s}, {"Days", "5"s}, {"Own", "o"s}}), 0);

    ClassDeclaration newer = policy(CimType::kUint32, "New");
    newer.properties[1].default_value = uint64_t{99};
    EXPECT_EQ(PutClass(newer), WBEM_E_CLASS_HAS_INSTANCES);
    const uint64_t before = LastChange();
    ASSERT_EQ(Force(newer), 0) << last.reason();
    EXPECT_EQ(Read(PathOf("Policy", "fits"), "Days"), Value(uint64_t{30}));
    EXPECT_EQ(Read(PathOf("Policy", "not"), "Days"), Value(uint64_t{99}));
    EXPECT_EQ(Read(PathOf("Policy", "null"), "Days"), Value());
    EXPECT_EQ(Read(PathOf("Policy", "unset"), "Days"), Value(uint64_t{99}));
    EXPECT_EQ(Read(PathOf("Sub", "s"), "Days"), Value(uint64_t{5}));
    EXPECT_EQ(Read(PathOf("Sub", "s"), "Own"), Value("o"s));
    const auto objects = std::get<Array>(Read(PathOf("Holder", "h"), "Held"));
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_EQ(ReadValueOf(*std::get<ObjectPtr>(objects[0]), "Days"), Value(uint64_t{7}));
    EXPECT_EQ(KindsAfter(before), std::vector<ChangeKind>(5, ChangeKind::kModified))
        << "all but the one that had nothing set";
}

TEST_F(ForcedChangeTest, NewKeysFileInstancesAnew) {
    const auto thing = [](const char* a, const char* b) {
        return Declare("Thing", {Key(a), Property(b, CimType::kString)});
    };
    ASSERT_EQ(PutClass(thing("A", "B")), 0);
    // Each has the other's key as its new one.
    ASSERT_EQ(PutInstance("Thing", {{"A", "1"s}, {"B", "2"s}}), 0);
    ASSERT_EQ(PutInstance("Thing", {{"A", "2"s}, {"B", "1"s}}), 0);
    const uint64_t before = LastChange();
    ASSERT_EQ(Force(thing("B", "A")), 0) << last.reason();
    EXPECT_EQ(Read("Thing.B=\"2\"", "A"), Value("1"s));
    EXPECT_EQ(Read("Thing.B=\"1\"", "A"), Value("2"s));
    EXPECT_THAT(KindsAfter(before), ElementsAre(ChangeKind::kDeleted, ChangeKind::kDeleted,
                                                ChangeKind::kCreated, ChangeKind::kCreated));

    ASSERT_EQ(PutInstance("Thing", {{"A", "1"s}, {"B", "3"s}}), 0);
    EXPECT_EQ(Force(thing("A", "B")), WBEM_E_ALREADY_EXISTS);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("Thing.B=\"2\""), HasSubstr("Thing.B=\"3\"")));
    ASSERT_EQ(PutInstance("Thing", {{"B", "3"s}}), 0);
    EXPECT_EQ(Force(thing("A", "B")), WBEM_E_ILLEGAL_NULL);
    EXPECT_THAT(last.reason(), HasSubstr("Thing.B=\"3\""));
    EXPECT_EQ(Read("Thing.B=\"2\"", "A"), Value("1"s)) << "nothing was changed by what was refused";
    // The key's type: the texts are filed as the numbers that they are.
    ASSERT_EQ(DeleteInstance("Thing.B=\"3\""), 0);
    ClassDeclaration number = thing("B", "A");
    number.properties[0].type.type = CimType::kUint32;
    ASSERT_EQ(Force(number), 0) << last.reason();
    EXPECT_EQ(Read("Thing.B=2", "A"), Value("1"s));
}

TEST_F(ForcedChangeTest, DeletionTakesAllWithIt) {
    ASSERT_EQ(PutClass(Declare("Base", {Key("ID")})), 0);
    ASSERT_EQ(PutClass(Declare("Sub", {Property("P", CimType::kString)}, "Base")), 0);
    ASSERT_EQ(PutClass(Declare("Holder", {Key("ID"), Property("Held", CimType::kObject)})), 0);
    const auto held = std::make_shared<const Instance>(Make("Sub", {{"ID", "in"s}}));
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s}, {"Held", held}}), 0);
    for (const char* id : {"a", "b"})
        ASSERT_EQ(PutInstance("Sub", {{"ID", std::string(id)}}), 0);
    const uint64_t before = LastChange();
    ASSERT_EQ(DeleteClass("Base", ClassUpdate::kForced), 0) << last.reason();
    EXPECT_EQ(repository->FindClass(space, "Sub").code(), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(Read(PathOf("Holder", "h"), "Held"), Value());
    EXPECT_THAT(KindsAfter(before),
                UnorderedElementsAre(ChangeKind::kDeleted, ChangeKind::kDeleted, ChangeKind::kModified));

    // A class that becomes abstract keeps its subclasses' instances only.
    ASSERT_EQ(PutClass(Declare("Base", {Key("ID")})), 0);
    ASSERT_EQ(PutClass(Declare("Sub", {}, "Base")), 0);
    ASSERT_EQ(PutInstance("Base", {{"ID", "own"s}}), 0);
    ASSERT_EQ(PutInstance("Sub", {{"ID", "kept"s}}), 0);
    ClassDeclaration abstract = Declare("Base", {Key("ID")});
    abstract.qualifiers.push_back(Flag("Abstract"));
    ASSERT_EQ(Force(abstract), 0);
    EXPECT_TRUE(IdsOf("Base").empty());
    EXPECT_THAT(IdsOf("Sub"), ElementsAre("kept"));
}

// More than are held at a time, and keys that share their places.
TEST_F(ForcedChangeTest, ManyInstancesAreConvertedOnceEach) {
    ASSERT_EQ(PutClass(Declare("Many", {Key("ID"), Property("N", CimType::kUint32)})), 0);
    constexpr uint64_t kCount = 3'000;
    const auto id_of = [](uint64_t i) { return std::string(i % 5 ? 400 : 700, 'k') + std::to_string(i); };
    ASSERT_OK(repository->Write([&](RepositoryWriter& writer) -> Status {
        for (uint64_t i = 0; i < kCount; ++i) {
            const Instance made = Make("Many", {{"ID", id_of(i)}, {"N", i}});
            SERVICE_RETURN_IF_ERROR(writer.PutInstance(space, made, PutCondition::kCreateOnly));
        }
        return {};
    }));
    const uint64_t before = LastChange();
    ASSERT_EQ(Force(Declare("Many", {Key("ID"), Property("N", CimType::kString)})), 0) << last.reason();
    EXPECT_EQ(KindsAfter(before).size(), kCount);
    for (const uint64_t i : {uint64_t{0}, uint64_t{1}, kCount / 2, kCount - 1})
        EXPECT_EQ(Read(PathOf("Many", id_of(i)), "N"), Value(std::to_string(i)));
}

TEST(ValueConversion, NothingIsLost) {
    using enum CimType;
    const struct {
        CimType from, to;
        Value value;
        std::optional<Value> expected;
    } cases[] = {{kString, kSint32, "-5"s, int64_t{-5}},
                 {kString, kUint8, "256"s, {}},
                 {kString, kUint8, "007"s, {}},
                 {kString, kUint8, "7 "s, {}},
                 {kString, kReal64, "0.1"s, 0.1},
                 {kString, kBoolean, "TRUE"s, true},
                 {kString, kDatetime, "20260101"s, {}},
                 {kUint64, kSint64, UINT64_MAX, {}},
                 {kUint64, kReal64, uint64_t{1} << 53, 0x1p53},
                 {kUint64, kReal64, (uint64_t{1} << 53) + 1, {}},
                 {kUint64, kReal64, UINT64_MAX, {}},
                 {kReal64, kUint64, 0x1p63, uint64_t{1} << 63},
                 {kReal64, kSint32, 2.5, {}},
                 {kReal64, kReal32, 0.1, {}},
                 {kReal64, kString, 0.1, Value("0.1"s)},
                 {kReal32, kString, double{0.1F}, Value("0.1"s)},
                 {kReal64, kString, -INFINITY, Value("-INF"s)},
                 {kReal64, kString, -NAN, Value("NaN"s)},
                 {kString, kReal32, "0.1"s, double{0.1F}},
                 {kString, kReal32, "0.10000000149011612"s, double{0.1F}},
                 {kString, kReal64, "-INF"s, -INFINITY},
                 {kString, kReal64, "inf"s, {}},
                 {kString, kReal32, "1e-50"s, {}},
                 {kChar16, kString, uint64_t{65}, {}},
                 {kUint32, kUint16, Value(), Value()}};
    for (const auto& each : cases)
        EXPECT_EQ(ConvertedValue(One(each.from), One(each.to), each.value), each.expected)
            << CimTypeName(each.from) << " to " << CimTypeName(each.to);
    const PropertyType text = One(kString), texts = Many(kString);
    EXPECT_EQ(ConvertedValue(text, texts, "a"s), Value(Array{"a"s}));
    EXPECT_EQ(ConvertedValue(texts, text, Array{"a"s}), Value("a"s));
    EXPECT_EQ(ConvertedValue(texts, text, Array{"a"s, "b"s}), std::nullopt);
}

}  // namespace
}  // namespace service
