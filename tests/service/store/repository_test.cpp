#include "service/store/repository.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "tests/service/child_process.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"

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

TEST_F(RepositoryTest, IdsMayHoldAnything) {
    const std::vector<std::string> ids = {"",
                                          "plain",
                                          "with \"quotes\" and 'these'",
                                          "back\\slash\\\\",
                                          "line\nfeed\r\t",
                                          "zero\0within"s,
                                          "zero\0"s,
                                          "\0"s,
                                          "😀 emoji",
                                          "comma,equals=colon:at@",
                                          "%s%n",
                                          std::string(300, 'i'),
                                          std::string(511, 'i'),
                                          std::string(60'000, 'i'),
                                          std::string(60'000, 'i') + "j"};
    for (const std::string& id : ids)
        ASSERT_EQ(PutInstance("Policy", {{"ID", id}, {"Name", "of " + id}}), 0) << last.reason();
    for (const std::string& id : ids) {
        const auto instance = Get(PathOf("Policy", id));
        ASSERT_OK(instance);
        EXPECT_EQ(TextOf(*instance, "ID"), id);
        EXPECT_EQ(TextOf(*instance, "Name"), "of " + id);
    }
    EXPECT_THAT(IdsOf("Policy"), testing::UnorderedElementsAreArray(ids));
    for (size_t i = 0; i < ids.size(); ++i) {
        ASSERT_EQ(DeleteInstance(PathOf("Policy", ids[i])), 0);
        EXPECT_EQ(DeleteInstance(PathOf("Policy", ids[i])), WBEM_E_NOT_FOUND);
        EXPECT_EQ(IdsOf("Policy").size(), ids.size() - i - 1);
    }
}

TEST_F(RepositoryTest, KeysThatDifferInCaseAreOne) {
    for (const std::string& base : {"ids"s, std::string(700, 's')}) {
        std::string upper = base + "ÄΣ";
        std::string lower = base + "äς";
        std::transform(upper.begin(), upper.begin() + static_cast<std::ptrdiff_t>(base.size()), upper.begin(),
                       [](char c) { return c == 's' ? 'S' : c; });
        EXPECT_EQ(PutInstance("Policy", {{"ID", upper}, {"Days", uint64_t{1}}}), 0);
        EXPECT_EQ(
            PutInstance(Make("POLICY", {{"id", lower}, {"DAYS", uint64_t{2}}}), PutCondition::kCreateOnly),
            WBEM_E_ALREADY_EXISTS);
        EXPECT_EQ(PutInstance("Policy", {{"ID", lower}, {"Days", uint64_t{2}}}), 0);
        const auto instance = Get(PathOf("pOLICY", upper));
        ASSERT_OK(instance);
        EXPECT_EQ(ReadValueOf(*instance, "days"), Value(uint64_t{2}));
        EXPECT_EQ(instance->Class()->Name(), "Policy");
    }
    EXPECT_EQ(IdsOf("Policy").size(), 2U);
}

TEST_F(RepositoryTest, ClassesDoNotMix) {
    for (const char* name : {"Pol", "Policy_", "PolicyA", "Policy0"})
        ASSERT_EQ(PutClass(Declare(name, {Key("ID")})), 0);
    ASSERT_EQ(PutClass(Declare("SubPolicy", {}, "Policy")), 0);
    for (const char* name : {"Pol", "Policy", "Policy_", "PolicyA", "Policy0", "SubPolicy"}) {
        ASSERT_EQ(PutInstance(name, {{"ID", "same"s}}), 0);
        ASSERT_EQ(PutInstance(name, {{"ID", std::string(600, 'x') + name}}), 0);
    }
    EXPECT_THAT(IdsOf("Policy"), ElementsAre("same", std::string(600, 'x') + "Policy"));
    EXPECT_EQ(DeleteInstance(PathOf("Policy", "same")), 0);
    EXPECT_OK(Get(PathOf("SubPolicy", "same")));
    EXPECT_OK(Get(PathOf("PolicyA", "same")));
    EXPECT_EQ(Get(PathOf("Policy", "same")).code(), WBEM_E_NOT_FOUND);
}

TEST_F(RepositoryTest, PutConditionsHold) {
    const Instance policy = Make("Policy", {{"ID", "a"s}});
    EXPECT_EQ(PutInstance(policy, PutCondition::kUpdateOnly), WBEM_E_NOT_FOUND);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("Policy"), HasSubstr("\"a\"")));
    EXPECT_EQ(PutInstance(policy, PutCondition::kCreateOnly), 0);
    EXPECT_EQ(PutInstance(policy, PutCondition::kCreateOnly), WBEM_E_ALREADY_EXISTS);
    EXPECT_EQ(PutInstance(policy, PutCondition::kUpdateOnly), 0);
    EXPECT_EQ(PutInstance("Policy", {}), WBEM_E_ILLEGAL_NULL);
    EXPECT_EQ(PutInstance("Policy", {{"ID", {}}}), WBEM_E_ILLEGAL_NULL);
    EXPECT_THAT(last.reason(), HasSubstr("Policy.ID"));
    EXPECT_EQ(DeleteInstance("Policy"), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(DeleteInstance("Policy.ID=1"), WBEM_E_INVALID_OBJECT_PATH);
    EXPECT_EQ(DeleteInstance("Nowhere.ID=\"a\""), WBEM_E_INVALID_CLASS);
    ASSERT_EQ(PutClass(Declare("Keyless", {Property("P", CimType::kString)})), 0);
    EXPECT_EQ(PutInstance("Keyless", {{"P", "x"s}}), WBEM_E_INVALID_OBJECT);
}

TEST_F(RepositoryTest, OnlyRealChangesAreLogged) {
    const auto store = OpenStore(path);
    const auto changes = [&] { return ChangesAfter(*store, 0).size(); };
    ASSERT_EQ(PutInstance("Policy", {{"ID", "a"s}}), 0);
    ASSERT_EQ(changes(), 1U);
    EXPECT_EQ(PutInstance("Policy", {{"ID", "a"s}}), 0);
    EXPECT_EQ(changes(), 1U) << "stored just so already";
    EXPECT_EQ(PutInstance("Policy", {{"ID", "a"s}, {"Days", uint64_t{7}}}), 0);
    EXPECT_EQ(changes(), 2U) << "set to the default is not the same as never set";
    EXPECT_EQ(PutInstance(Make("Policy", {{"ID", "a"s}}), PutCondition::kCreateOnly), WBEM_E_ALREADY_EXISTS);
    EXPECT_EQ(PutClass(Declare("Other", {Key("ID")})), 0);
    EXPECT_EQ(changes(), 2U);
}

TEST_F(RepositoryTest, AWriteIsWholeOrNothing) {
    EXPECT_EQ(repository
                  ->Write([&](RepositoryWriter& writer) -> Status {
                      bool is_changed = false;
                      bool is_new = false;
                      SERVICE_RETURN_IF_ERROR(writer.MakeNamespace("root\\New", is_new).status());
                      SERVICE_RETURN_IF_ERROR(writer.PutClass(space, Declare("New", {Key("ID")}),
                                                              PutCondition::kCreateOrUpdate, is_changed));
                      SERVICE_ASSIGN_OR_RETURN(const ClassPtr made, writer.FindClass(space, "new"));
                      Instance instance(made);
                      SERVICE_RETURN_IF_ERROR(SetProperty(instance, "ID", "a"s));
                      SERVICE_RETURN_IF_ERROR(writer.PutInstance(space, instance, PutCondition::kCreateOnly));
                      return {WBEM_E_FAILED, "at the end"};
                  })
                  .code(),
              WBEM_E_FAILED);
    EXPECT_EQ(repository->FindNamespace("root\\New").code(), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(repository->FindClass(space, "New").code(), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(repository
                  ->Write([&](RepositoryWriter&) {
                      return repository->Write([](RepositoryWriter&) { return Status(); });
                  })
                  .code(),
              WBEM_E_UNEXPECTED);
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
        SERVICE_ASSIGN_OR_RETURN(const auto below_root,
                                 reader.ChildNamespaces(*reader.FindNamespace("root")));
        EXPECT_THAT(below_root, UnorderedElementsAre("A", "AB", "Test"));
        SERVICE_ASSIGN_OR_RETURN(const auto below_a, reader.ChildNamespaces(outer));
        EXPECT_THAT(below_a, ElementsAre("B"));
        return {};
    }));
    const auto find = [&](const Namespace& in) { return repository->FindClass(in, "Policy").code(); };
    EXPECT_EQ(find(space), 0);
    EXPECT_EQ(find(outer), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(find(longer), WBEM_E_INVALID_CLASS);
}

// Folding makes some names longer than what the store takes as a key.
TEST_F(RepositoryTest, NamesThatGrowWhenFoldedAreStatuses) {
    std::string name, longer_path = "root";
    for (int i = 0; i < 110; ++i)
        name += "Ⱥ";
    EXPECT_EQ(PutClass(Declare(name, {Key("ID")})), 0);
    EXPECT_OK(repository->FindClass(space, name));
    longer_path += "\\" + name + "\\" + name;
    EXPECT_EQ(repository->FindNamespace(longer_path).code(), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(repository
                  ->Write([&](RepositoryWriter& writer) {
                      bool is_new = false;
                      return writer.MakeNamespace(longer_path, is_new).status();
                  })
                  .code(),
              WBEM_E_INVALID_NAMESPACE);
}

TEST_F(RepositoryTest, AnOldConnectionSeesNewClasses) {
    const auto other = *Repository::Open(path);
    ASSERT_OK(other->FindClass(space, "Policy"));
    ASSERT_EQ(PutClass(Declare("Policy",
                               {Key("ID"), Property("Days", CimType::kUint32, uint64_t{8}),
                                Property("Name", CimType::kString), Property("Added", CimType::kString)})),
              0);
    const auto seen = other->FindClass(space, "Policy");
    ASSERT_OK(seen);
    EXPECT_TRUE((*seen)->FindProperty(std::string_view("Added")));
    EXPECT_EQ(RunInChild([&] {
                  return PutClass(Declare("FromChild", {Key("ID")})) == 0 && DeleteClass("Policy") == 0 ? 0
                                                                                                        : 1;
              }),
              0);
    EXPECT_OK(other->FindClass(space, "fromchild"));
    EXPECT_EQ(other->FindClass(space, "Policy").code(), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(repository->FindClass(space, "Policy").code(), WBEM_E_INVALID_CLASS);
}

TEST_F(RepositoryTest, AnOpenSuperclassKeepsItsSubclassesCurrent) {
    ASSERT_EQ(PutClass(Declare("Sub", {Property("Own", CimType::kString)}, "Policy")), 0);
    ASSERT_TRUE(FindClass("Sub"));
    ASSERT_EQ(PutClass(Declare("Policy", {Key("ID"), Property("Days", CimType::kUint32, uint64_t{99}),
                                          Property("Name", CimType::kString)})),
              0);
    EXPECT_EQ(FindClass("Sub")->Properties().at(1).default_value, Value(uint64_t{99}));
    EXPECT_EQ(DeleteClass("Policy"), WBEM_E_CLASS_HAS_CHILDREN);
    EXPECT_THAT(last.reason(), AllOf(HasSubstr("Policy"), HasSubstr("Sub")));
    EXPECT_EQ(DeleteClass("Sub"), 0);
    EXPECT_EQ(DeleteClass("policy"), 0);
    EXPECT_EQ(DeleteClass("Policy"), WBEM_E_INVALID_CLASS);
}

}  // namespace
}  // namespace service
