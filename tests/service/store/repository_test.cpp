#include "service/store/repository.h"

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
using testing::UnorderedElementsAre;

class RepositoryTest : public RepositoryFixture {
 protected:
    RepositoryTest() {
        EXPECT_EQ(PutClass(Declare("Policy", {Key("ID"), Property("Days", CimType::kUint32, uint64_t{7}),
                                              Property("Name", CimType::kString)})),
                  0);
    }
};

TEST_F(RepositoryTest, KeysThatDifferInCaseAreOne) {
    for (const size_t length : {3, 700}) {
        const std::string upper = std::string(length, 'S') + "ÄΣ", lower = std::string(length, 's') + "äς";
        EXPECT_EQ(PutInstance("Policy", {{"ID", upper}, {"Days", uint64_t{1}}}), 0);
        const Instance same = Make("POLICY", {{"id", lower}, {"DAYS", uint64_t{2}}});
        EXPECT_EQ(PutInstance(same, PutCondition::kCreateOnly), WBEM_E_ALREADY_EXISTS);
        EXPECT_EQ(PutInstance(same), 0);
        const auto instance = Get(PathOf("pOLICY", upper));
        ASSERT_OK(instance);
        EXPECT_EQ(ReadValueOf(*instance, "days"), Value(uint64_t{2}));
        EXPECT_EQ(instance->Class()->Name(), "Policy");
    }
    EXPECT_EQ(IdsOf("Policy").size(), 2U);
}

TEST_F(RepositoryTest, NamespacesAreApart) {
    const Namespace outer = MakeNamespace("root\\A");
    const Namespace longer = MakeNamespace("root\\AB");
    const Namespace inner = MakeNamespace("ROOT\\a\\B\\C");
    EXPECT_EQ(repository->FindNamespace("root\\a\\b")->path, "root\\A\\B");
    EXPECT_EQ(repository->FindNamespace("Root\\A\\b\\c")->id, inner.id);
    EXPECT_EQ(MakeNamespace("root\\a").id, outer.id);
    EXPECT_EQ(repository->FindNamespace("root\\A\\").code(), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(repository->FindNamespace("root\\B").code(), WBEM_E_INVALID_NAMESPACE);
    EXPECT_OK(repository->Read([&](RepositoryReader& reader) -> Status {
        EXPECT_THAT(*reader.ChildNamespaces(*reader.FindNamespace("root")),
                    UnorderedElementsAre("A", "AB", "Test"));
        EXPECT_THAT(*reader.ChildNamespaces(outer), ElementsAre("B"));
        return {};
    }));
    for (const Namespace& other : {outer, longer})
        EXPECT_EQ(repository->FindClass(other, "Policy").code(), WBEM_E_INVALID_CLASS);
}

TEST_F(RepositoryTest, AWriteWithinAWriteIsRefused) {
    const Status nested = repository->Write(
        [&](RepositoryWriter&) { return repository->Write([](RepositoryWriter&) { return Status(); }); });
    EXPECT_EQ(nested.code(), WBEM_E_UNEXPECTED);
}

// Folding makes some names longer than what the store takes as a key.
TEST_F(RepositoryTest, NamesThatGrowWhenFoldedAreStatuses) {
    std::string name;
    for (int i = 0; i < 110; ++i)
        name += "Ⱥ";
    EXPECT_EQ(PutClass(Declare(name, {Key("ID")})), 0);
    EXPECT_OK(repository->FindClass(space, name));
    const std::string path_of_both = "root\\" + name + "\\" + name;
    EXPECT_EQ(repository->FindNamespace(path_of_both).code(), WBEM_E_INVALID_NAMESPACE);
    const Status made = repository->Write([&](RepositoryWriter& writer) {
        bool is_new = false;
        return writer.MakeNamespace(path_of_both, is_new).status();
    });
    EXPECT_EQ(made.code(), WBEM_E_INVALID_NAMESPACE);
}

// Classes that are declared anew while instances of them, and objects in callers' hands, are there.
class ClassChangeTest : public RepositoryFixture {
 protected:
    static ClassDeclaration Policy(std::vector<PropertyDeclaration> more = {}) {
        std::vector<PropertyDeclaration> properties = {Key("ID"),
                                                       Property("Days", CimType::kUint32, uint64_t{7})};
        properties.insert(properties.end(), more.begin(), more.end());
        return Declare("Policy", properties);
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
    EXPECT_EQ(Read(PathOf("Policy", "unset"), "Days"), Value(uint64_t{99}));
    EXPECT_EQ(Read(PathOf("Policy", "set"), "Days"), Value(uint64_t{1}));
    EXPECT_EQ(Read(PathOf("Policy", "null"), "Days"), Value());
    EXPECT_EQ(Read(PathOf("Policy", "set"), "Added"), Value("new"s));
    EXPECT_THAT(IdsOf("Policy"), testing::UnorderedElementsAre("unset", "set", "null"));
}

TEST_F(ClassChangeTest, WhatInstancesHoldCannotBeTakenAway) {
    ASSERT_EQ(PutClass(Policy({Property("Name", CimType::kString)})), 0);
    ASSERT_EQ(PutInstance("Policy", {{"ID", "a"s}, {"Name", "kept"s}}), 0);
    ClassDeclaration abstract = Policy({Property("Name", CimType::kString)});
    abstract.qualifiers.push_back(Flag("Abstract"));
    const ClassDeclaration refused[] = {Policy(), Policy({ArrayProperty("Name", CimType::kString)}),
                                        Policy({Key("Name")}), abstract};
    for (const ClassDeclaration& each : refused)
        EXPECT_EQ(PutClass(each), WBEM_E_CLASS_HAS_INSTANCES);
    EXPECT_EQ(Read(PathOf("Policy", "a"), "Name"), Value("kept"s));
    ASSERT_EQ(DeleteInstance(PathOf("Policy", "a")), 0);
    for (const ClassDeclaration& each : refused)
        EXPECT_EQ(PutClass(each), 0);
}

TEST_F(ClassChangeTest, ASingletonStaysReachable) {
    const ClassDeclaration plain = Declare("Only", {Property("P", CimType::kString)});
    ClassDeclaration only = plain;
    only.qualifiers.push_back(Flag("Singleton"));
    ASSERT_EQ(PutClass(only), 0);
    ASSERT_EQ(PutInstance("Only", {{"P", "x"s}}), 0);
    EXPECT_EQ(TextOf(*Get("Only=@"), "P"), "x");
    EXPECT_EQ(PutClass(plain), WBEM_E_CLASS_HAS_INSTANCES);
    ASSERT_EQ(DeleteInstance("Only=@"), 0);
    EXPECT_EQ(PutClass(plain), 0);
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
    EXPECT_EQ(Read(PathOf("Policy", "a"), "Name"), Value("old"s));
    EXPECT_EQ(Read(PathOf("Policy", "a"), "Other"), Value("o"s));
}

TEST_F(ClassChangeTest, ADeletedClassTakesItsNumberWithIt) {
    ASSERT_EQ(PutClass(Policy()), 0);
    const Instance held = Make("Policy", {{"ID", "a"s}});
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
    EXPECT_EQ(Read(PathOf("SubSub", "a"), "Own"), Value("o"s));
    EXPECT_EQ(Read(PathOf("SubSub", "a"), "Deep"), Value("d"s));
    ASSERT_EQ(DeleteInstance(PathOf("SubSub", "a")), 0);
    EXPECT_EQ(PutClass(Policy({Property("Own", CimType::kString)})), 0);
}

TEST_F(ClassChangeTest, PutConditionsOfClassesHold) {
    EXPECT_EQ(PutClass(Policy(), PutCondition::kUpdateOnly), WBEM_E_NOT_FOUND);
    EXPECT_EQ(PutClass(Policy(), PutCondition::kCreateOnly), 0);
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

// Objects of a class as it was, or as it is in another namespace or nowhere yet, are stored as what the class
// of their name is here, at any depth, and outlive a new version of it.
TEST_F(EmbeddedTest, ObjectsAreStoredAsTheClassOfTheirNameHere) {
    const ClassPtr inner = FindClass("Inner");
    const ClassDeclaration newer =
        Declare("Inner", {Property("B", CimType::kString), Property("New", CimType::kString, "n"s),
                          Property("A", CimType::kString)});
    const ClassPtr swapped = Resolved(newer);
    ASSERT_EQ(PutInstance("Holder", {{"ID", "h"s},
                                     {"One", Inner(swapped, "a", "b")},
                                     {"Many", Array{Inner(swapped, "c", "d"), {}, Inner(inner, "e", "f")}}}),
              0)
        << last.reason();
    const auto holder = Get(PathOf("Holder", "h"));
    ASSERT_EQ(PutClass(newer), 0);
    const auto later = Get(PathOf("Holder", "h"));
    for (const auto* each : {&holder, &later}) {
        ASSERT_OK(*each);
        EXPECT_EQ(InnerText(ReadValueOf(**each, "One")), "ab");
        const auto many = std::get<Array>(ReadValueOf(**each, "Many"));
        ASSERT_EQ(many.size(), 3U);
        EXPECT_EQ(InnerText(std::get<ObjectPtr>(many[0])), "cd");
        EXPECT_EQ(many[1].index(), 0U);
        EXPECT_EQ(InnerText(std::get<ObjectPtr>(many[2])), "ef");
    }
    EXPECT_EQ(TextOf(*std::get<ObjectPtr>(ReadValueOf(*later, "One")), "New"), "n");

    Instance box(FindClass("Box"));
    ASSERT_OK(SetProperty(box, "Content", Inner(swapped, "x", "y")));
    ASSERT_EQ(PutInstance("Holder", {{"ID", "box"s}, {"One", std::make_shared<const Instance>(box)}}), 0);
    const Value content =
        ReadValueOf(*std::get<ObjectPtr>(ReadValueOf(*Get(PathOf("Holder", "box")), "One")), "Content");
    EXPECT_EQ(InnerText(content), "xy");

    const ClassPtr elsewhere = Resolved(Declare("Elsewhere", {Property("A", CimType::kString)}));
    EXPECT_EQ(PutInstance("Holder", {{"ID", "x"s}, {"One", std::make_shared<const Instance>(elsewhere)}}),
              WBEM_E_INVALID_CLASS);
    EXPECT_THAT(last.reason(), HasSubstr("Elsewhere"));
    EXPECT_EQ(Get(PathOf("Holder", "x")).code(), WBEM_E_NOT_FOUND);
}

}  // namespace
}  // namespace service
