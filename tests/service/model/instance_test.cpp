#include "service/model/instance.h"

#include <memory>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;

ClassPtr Policy() {
    return Resolved(Declare(
        "Policy", {Key("ID"), Property("Name", CimType::kString, "unnamed"s),
                   Property("Days", CimType::kUint8, uint64_t{7}), ArrayProperty("Tags", CimType::kString)}));
}

TEST(Instance, NullEmptyAndNeverSetAreThreeThings) {
    Instance instance(Policy());
    EXPECT_EQ(ReadValueOf(instance, "Name"), Value("unnamed"s));
    EXPECT_FALSE(instance.IsChanged());
    for (const Value& value : {Value(""s), Value()}) {
        ASSERT_OK(SetProperty(instance, "name", value));
        EXPECT_EQ(ReadValueOf(instance, "Name"), value);
    }
    const size_t name = *instance.Class()->FindProperty(std::string_view("Name"));
    Value storage;
    ValueView view;
    bool is_set = false;
    ASSERT_OK(instance.ReadOwn(name, is_set, storage, view));
    EXPECT_TRUE(is_set);
    instance.Unset(name);
    ASSERT_OK(instance.ReadOwn(name, is_set, storage, view));
    EXPECT_FALSE(is_set);
    EXPECT_EQ(ReadValueOf(instance, "Name"), Value("unnamed"s));

    const Status fault = SetProperty(instance, "Days", uint64_t{256});
    EXPECT_EQ(fault.code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_THAT(fault.reason(), testing::HasSubstr("Policy.Days"));
    EXPECT_EQ(ReadValueOf(instance, "Days"), Value(uint64_t{7})) << "a refused value changes nothing";
}

TEST(Instance, ACopyIsAValueOfItsOwn) {
    Instance one(Policy());
    ASSERT_OK(SetProperty(one, "Days", uint64_t{1}));
    Instance two = one;
    ASSERT_OK(SetProperty(two, "Days", uint64_t{2}));
    EXPECT_EQ(ReadValueOf(one, "Days"), Value(uint64_t{1}));
    EXPECT_FALSE(SameInstance(one, two));
    ASSERT_OK(SetProperty(two, "Days", uint64_t{1}));
    // Set to the default and never set read the same.
    ASSERT_OK(SetProperty(two, "Name", "unnamed"s));
    EXPECT_TRUE(SameInstance(one, two));
}

TEST(Instance, MovesToANewerVersionOfItsClass) {
    Instance old(Policy());
    ASSERT_OK(SetProperty(old, "ID", "a"s));
    ASSERT_OK(SetProperty(old, "Tags", Array{"x"s, {}}));
    ASSERT_OK(SetProperty(old, "Name", {}));
    const auto moved = old.MovedTo(Resolved(Declare(
        "Policy", {Property("Added", CimType::kUint8, uint64_t{3}), ArrayProperty("TAGS", CimType::kString),
                   Property("Name", CimType::kString, "other"s), Key("ID"),
                   Property("Days", CimType::kUint8, uint64_t{8})})));
    ASSERT_OK(moved);
    EXPECT_EQ(TextOf(*moved, "ID"), "a");
    EXPECT_EQ(ReadValueOf(*moved, "Tags"), Value(Array{"x"s, {}}));
    EXPECT_EQ(ReadValueOf(*moved, "Name"), Value());             // null was set
    EXPECT_EQ(ReadValueOf(*moved, "Days"), Value(uint64_t{8}));  // never set
    EXPECT_EQ(ReadValueOf(*moved, "Added"), Value(uint64_t{3}));

    EXPECT_EQ(old.MovedTo(Resolved(Declare("Policy", {Key("ID")}))).code(), WBEM_E_INVALID_OBJECT);
    const ClassPtr retyped = Resolved(Declare(
        "Policy", {Key("ID"), Property("Tags", CimType::kString), Property("Name", CimType::kString)}));
    EXPECT_EQ(old.MovedTo(retyped).code(), WBEM_E_TYPE_MISMATCH);
}

TEST(Instance, EmbeddingHasALimit) {
    const ClassPtr nest =
        Resolved(Declare("Nest", {Property("Inner", CimType::kObject), Property("Other", CimType::kObject)}));
    ObjectPtr inner = std::make_shared<const Instance>(nest);
    for (size_t depth = 1; depth <= kMaxEmbeddingDepth; ++depth) {
        EXPECT_EQ(EmbeddedObjectsOf(ViewOf(Value(inner))).depth, depth);
        Instance outer(nest);
        ASSERT_OK(SetProperty(outer, "Inner", inner)) << depth;
        inner = std::make_shared<const Instance>(std::move(outer));
    }
    Instance over(nest);
    EXPECT_EQ(SetProperty(over, "Inner", inner).code(), WBEM_E_INVALID_OBJECT);

    // Each holds the one before twice, so the objects double with every level.
    ObjectPtr below = std::make_shared<const Instance>(nest);
    int32_t refused = 0;
    for (size_t level = 1; level < kMaxEmbeddingDepth && refused == 0; ++level) {
        Instance above(nest);
        refused = SetProperty(above, "Inner", below).code();
        EXPECT_EQ(SetProperty(above, "Other", below).code(), refused);
        below = std::make_shared<const Instance>(std::move(above));
    }
    EXPECT_EQ(refused, WBEM_E_INVALID_OBJECT);
}

}  // namespace
}  // namespace service
