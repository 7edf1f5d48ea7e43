// Classes that are declared anew while instances of them, and objects in callers' hands, are there.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/store/repository_fixture.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class ClassChangeTest : public RepositoryFixture {
 protected:
    static ClassDeclaration Policy(std::vector<PropertyDeclaration> more = {}) {
        std::vector<PropertyDeclaration> properties = {Key("ID"),
                                                       Property("Days", CimType::kUint32, uint64_t{7})};
        properties.insert(properties.end(), more.begin(), more.end());
        return Declare("Policy", properties);
    }

    Value Read(const std::string& id, const std::string& property) {
        const auto instance = Get(PathOf("Policy", id));
        EXPECT_OK(instance);
        return instance.ok() ? ReadValueOf(*instance, property) : Value();
    }
};

TEST_F(ClassChangeTest, OldInstancesReadTheNewDefaults) {
    ASSERT_EQ(PutClass(Policy()), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "unset"s}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "set"s}, {"Days", uint64_t{1}}}), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "null"s}, {"Days", {}}}), 0);

    ClassDeclaration newer = Declare("policy", {Property("Added", CimType::kString, "new"s),
                                                Property("days", CimType::kUint32, uint64_t{99}), Key("ID")});
    ASSERT_EQ(PutClass(newer), 0) << last.reason();
    EXPECT_EQ(Read("unset", "Days"), Value(uint64_t{99}));
    EXPECT_EQ(Read("set", "Days"), Value(uint64_t{1}));
    EXPECT_EQ(Read("null", "Days"), Value());
    EXPECT_EQ(Read("set", "Added"), Value("new"s));
    EXPECT_THAT(IdsOf("Policy"), testing::UnorderedElementsAre("unset", "set", "null"));
}

TEST_F(ClassChangeTest, WhatInstancesHoldCannotBeTakenAway) {
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "a"s}, {"Name", "kept"s}}), 0);
    const auto refused = [&](const ClassDeclaration& declaration, const std::string& named) {
        EXPECT_EQ(PutClass(declaration), WBEM_E_CLASS_HAS_INSTANCES) << named;
        EXPECT_THAT(last.reason(), AllOf(HasSubstr("Policy"), HasSubstr(named)));
    };
    refused(Policy(), "Name");
    refused(Policy({Property("Name", CimType::kUint32)}), "Name");
    refused(Policy({ArrayProperty("Name", CimType::kString)}), "Name");
    refused(Policy({Key("Name")}), "Name");
    refused(Policy({Property("Name", CimType::kString), Key("Second")}), "keys");
    EXPECT_EQ(Read("a", "Name"), Value("kept"s));

    ClassDeclaration abstract = Policy({Property("Name", CimType::kString)});
    abstract.qualifiers.push_back(Flag("Abstract"));
    EXPECT_EQ(PutClass(abstract), WBEM_E_CLASS_HAS_INSTANCES) << "an abstract class has no instances";

    ASSERT_EQ(DeleteInstance(PathOf("Policy", "a")), 0);
    EXPECT_EQ(PutClass(Policy()), 0);
    EXPECT_EQ(PutClass(Policy({Property("Name", CimType::kUint32)})), 0);
    EXPECT_EQ(PutClass(abstract), 0);
}

TEST_F(ClassChangeTest, ASingletonStaysReachable) {
    ClassDeclaration only = Declare("Only", {Property("P", CimType::kString)});
    ClassDeclaration plain = only;
    only.qualifiers.push_back(Flag("Singleton"));
    ASSERT_EQ(PutClass(only), 0);
    ASSERT_EQ(PutInstance("Only", {{"P", "x"s}}), 0);
    EXPECT_EQ(TextOf(*Get("Only=@"), "P"), "x");
    EXPECT_EQ(PutClass(plain), WBEM_E_CLASS_HAS_INSTANCES);
    EXPECT_EQ(DeleteClass("Only"), WBEM_E_CLASS_HAS_INSTANCES);
    ASSERT_EQ(DeleteInstance("Only=@"), 0);
    EXPECT_EQ(PutClass(plain), 0);
    EXPECT_EQ(DeleteClass("Only"), 0);
}

TEST_F(ClassChangeTest, APropertyThatComesBackIsANewOne) {
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    const Instance held = Make("Policy", {{"ID", "a"s}, {"Name", "old"s}});
    ASSERT_EQ(PutInstance(held), 0);
    ASSERT_EQ(DeleteInstance(PathOf("Policy", "a")), 0);
    ASSERT_EQ(PutClass(Policy()), 0);
    EXPECT_EQ(PutInstance(held), WBEM_E_INVALID_OBJECT);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("Policy"), HasSubstr("Name")));
    ASSERT_EQ(
        PutClass(Policy({Property("Other", CimType::kString, "o"s), Property("Name", CimType::kString)})), 0);
    EXPECT_EQ(PutInstance(held), 0);
    EXPECT_EQ(Read("a", "Name"), Value("old"s));
    EXPECT_EQ(Read("a", "Other"), Value("o"s));
}

TEST_F(ClassChangeTest, ADeletedClassTakesItsNumberWithIt) {
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "a"s}}), 0);
    EXPECT_EQ(DeleteClass("Policy"), WBEM_E_CLASS_HAS_INSTANCES);
    const Instance held = *Get(PathOf("Policy", "a"));
    ASSERT_EQ(DeleteInstance(PathOf("Policy", "a")), 0);
    const uint32_t id = FindClass("Policy")->Id();
    ASSERT_EQ(DeleteClass("Policy"), 0);
    EXPECT_EQ(PutInstance(held), WBEM_E_INVALID_CLASS);
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    EXPECT_NE(FindClass("Policy")->Id(), id);
    EXPECT_EQ(PutInstance(held), 0);
    EXPECT_THAT(IdsOf("Policy"), ElementsAre("a"));
}

TEST_F(ClassChangeTest, SubclassesAreLookedAtToo) {
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    ASSERT_EQ(PutClass(Declare("Sub", {Property("Own", CimType::kString)}, "Policy")), 0);
    ASSERT_EQ(PutClass(Declare("SubSub", {Property("Deep", CimType::kString)}, "Sub")), 0);
    ASSERT_EQ(PutInstance("SubSub", {{"ID", "a"s}, {"Name", "n"s}, {"Own", "o"s}, {"Deep", "d"s}}), 0);

    EXPECT_EQ(PutClass(Policy()), WBEM_E_CLASS_HAS_INSTANCES);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("Name"), HasSubstr("SubSub")));
    EXPECT_EQ(PutClass(Declare("Sub", {Property("Own", CimType::kString)})), WBEM_E_CLASS_HAS_INSTANCES);
    EXPECT_EQ(PutClass(Policy({Property("Name", CimType::kString), Property("Own", CimType::kUint8)})),
              WBEM_E_TYPE_MISMATCH);
    EXPECT_THAT(last.reason(), HasSubstr("Sub"));
    EXPECT_EQ(PutClass(Declare("Policy", {Key("ID")}, "SubSub")), WBEM_E_INVALID_SUPERCLASS);
    EXPECT_EQ(PutClass(Declare("Policy", {Key("ID")}, "policy")), WBEM_E_INVALID_SUPERCLASS);
    EXPECT_EQ(PutClass(Declare("Orphan", {Key("ID")}, "Nowhere")), WBEM_E_INVALID_SUPERCLASS);

    // A property of the subclass that moves up to the superclass takes with it what is stored.
    EXPECT_EQ(PutClass(Policy({Property("Name", CimType::kString), Property("DEEP", CimType::kString)})), 0);
    const auto instance = Get(PathOf("SubSub", "a"));
    EXPECT_EQ(TextOf(*instance, "Name") + TextOf(*instance, "Own") + TextOf(*instance, "Deep"), "nod");
    ASSERT_EQ(DeleteInstance(PathOf("SubSub", "a")), 0);
    EXPECT_EQ(PutClass(Policy({Property("Own", CimType::kString)})), 0);
}

TEST_F(ClassChangeTest, PutConditionsOfClassesHold) {
    EXPECT_EQ(PutClass(Policy(), PutCondition::kUpdateOnly), WBEM_E_NOT_FOUND);
    EXPECT_EQ(PutClass(Policy(), PutCondition::kCreateOnly), 0);
    EXPECT_EQ(PutClass(Policy(), PutCondition::kCreateOnly), WBEM_E_ALREADY_EXISTS);
    EXPECT_EQ(PutClass(Policy(), PutCondition::kUpdateOnly), 0);
    EXPECT_EQ(PutClass(Declare("__Own", {Key("ID")})), WBEM_E_INVALID_PARAMETER);
    EXPECT_OK(repository->Write([&](RepositoryWriter& writer) {
        bool is_changed = true;
        const Status fault = writer.PutClass(space, Policy(), PutCondition::kCreateOrUpdate, is_changed);
        EXPECT_FALSE(is_changed) << "declared just so already";
        return fault.ok() ? Status() : Status(fault.code(), fault.reason());
    }));
}

class EmbeddedTest : public ClassChangeTest {
 protected:
    EmbeddedTest() {
        EXPECT_EQ(
            PutClass(Declare("Inner", {Property("A", CimType::kString), Property("B", CimType::kString)})),
            0);
        EXPECT_EQ(PutClass(Declare("Box", {Property("Content", CimType::kObject)})), 0);
        EXPECT_EQ(PutClass(Declare("Holder", {Key("ID"), Property("One", CimType::kObject),
                                              ArrayProperty("Many", CimType::kObject)})),
                  0);
    }

    ObjectPtr Inner(const ClassPtr& definition, const std::string& a, const std::string& b) {
        Instance inner(definition);
        EXPECT_OK(SetProperty(inner, "A", a));
        EXPECT_OK(SetProperty(inner, "B", b));
        return std::make_shared<const Instance>(inner);
    }

    std::string InnerText(const Value& value) {
        const auto* object = std::get_if<ObjectPtr>(&value);
        return object ? TextOf(**object, "A") + TextOf(**object, "B") : "(no object)";
    }
};

TEST_F(EmbeddedTest, ObjectsComeBack) {
    const ClassPtr inner = FindClass("Inner");
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s},
                                     {"One", Inner(inner, "a", "b")},
                                     {"Many", Array{Inner(inner, "c", "d"), {}, Inner(inner, "e", "f")}}}),
              0);
    const auto holder = Get(PathOf("Holder", "h"));
    ASSERT_OK(holder);
    EXPECT_EQ(InnerText(ReadValueOf(*holder, "One")), "ab");
    const auto many = std::get<Array>(ReadValueOf(*holder, "Many"));
    ASSERT_EQ(many.size(), 3U);
    EXPECT_EQ(InnerText(std::get<ObjectPtr>(many[2])), "ef");
    EXPECT_EQ(many[1].index(), 0U);

    // An object within outlives a new version of its class.
    ASSERT_EQ(
        PutClass(Declare("Inner", {Property("B", CimType::kString), Property("New", CimType::kString, "n"s),
                                   Property("A", CimType::kString)})),
        0);
    const auto later = Get(PathOf("Holder", "h"));
    EXPECT_EQ(InnerText(ReadValueOf(*later, "One")), "ab");
    EXPECT_EQ(TextOf(*std::get<ObjectPtr>(ReadValueOf(*later, "One")), "New"), "n");
    EXPECT_EQ(InnerText(ReadValueOf(*holder, "One")), "ab") << "in an object that was read before";
}

// Objects of a class as it was, or as it is in another namespace or nowhere yet, are stored as what the class
// of their name is here, at any depth.
TEST_F(EmbeddedTest, ObjectsAreStoredAsTheClassOfTheirNameHere) {
    const ClassPtr swapped =
        Resolved(Declare("Inner", {Property("B", CimType::kString), Property("A", CimType::kString)}));
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s},
                                     {"One", Inner(swapped, "a", "b")},
                                     {"Many", Array{Inner(swapped, "c", "d"), {}}}}),
              0)
        << last.reason();
    const auto holder = Get(PathOf("Holder", "h"));
    EXPECT_EQ(InnerText(ReadValueOf(*holder, "One")), "ab");
    EXPECT_EQ(InnerText(std::get<ObjectPtr>(std::get<Array>(ReadValueOf(*holder, "Many")).at(0))), "cd");

    Instance box(FindClass("Box"));
    ASSERT_OK(SetProperty(box, "Content", Inner(swapped, "x", "y")));
    ASSERT_EQ(PutInstance("Holder", {{"ID", "box"s}, {"One", std::make_shared<const Instance>(box)}}), 0);
    const Value content =
        ReadValueOf(*std::get<ObjectPtr>(ReadValueOf(*Get(PathOf("Holder", "box")), "One")), "Content");
    EXPECT_EQ(InnerText(content), "xy");
}

TEST_F(EmbeddedTest, AnObjectOfAnUnknownClassIsRefused) {
    const ClassPtr elsewhere = Resolved(Declare("Elsewhere", {Property("A", CimType::kString)}));
    EXPECT_EQ(PutInstance("Holder", {{"ID", "h"s}, {"One", std::make_shared<const Instance>(elsewhere)}}),
              WBEM_E_INVALID_CLASS);
    EXPECT_THAT(last.reason(), HasSubstr("Elsewhere"));
    EXPECT_EQ(Get(PathOf("Holder", "h")).code(), WBEM_E_NOT_FOUND);
}

}  // namespace
}  // namespace service
