// A repository of its own for one test, with the namespace root\Test.
//
//   class RepositoryTest : public RepositoryFixture {};
//   PutClass(Declare("Policy", {Key("ID")}));
//   EXPECT_EQ(PutInstance("Policy", {{"ID", "a"s}}), 0);
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/store/instance_cursor.h"
#include "service/store/repository.h"
#include "tests/service/model/model_builders.h"
#include "tests/service/temporary_directory.h"

namespace service {

class RepositoryFixture : public testing::Test {
 protected:
    using Values = std::vector<std::pair<std::string, Value>>;

    RepositoryFixture() {
        auto opened = Repository::Open(path);
        EXPECT_OK(opened);
        repository = std::move(*opened);
        space = MakeNamespace("root\\Test");
    }

    Namespace MakeNamespace(const std::string& name) {
        Namespace made;
        EXPECT_OK(repository->Write([&](RepositoryWriter& writer) -> Status {
            bool is_new = false;
            SERVICE_ASSIGN_OR_RETURN(made, writer.MakeNamespace(name, is_new));
            return {};
        }));
        return made;
    }

    // What a declaration of the class as it is now gives: the fault's code, or 0.
    int32_t PutClass(const ClassDeclaration& declaration,
                     PutCondition condition = PutCondition::kCreateOrUpdate,
                     ClassUpdate update = ClassUpdate::kSafe) {
        last = repository->Write([&](RepositoryWriter& writer) {
            bool is_changed = false;
            return writer.PutClass(space, declaration, condition, is_changed, update);
        });
        return last.code();
    }

    int32_t DeleteClass(const std::string& name, ClassUpdate update = ClassUpdate::kSafe) {
        last = repository->Write(
            [&](RepositoryWriter& writer) { return writer.DeleteClass(space, name, update); });
        return last.code();
    }

    ClassPtr FindClass(const std::string& name) {
        auto definition = repository->FindClass(space, name);
        EXPECT_OK(definition);
        return definition.ok() ? *definition : nullptr;
    }

    Instance Make(const std::string& class_name, const Values& values) {
        Instance instance(FindClass(class_name));
        for (const auto& [name, value] : values)
            EXPECT_OK(SetProperty(instance, name, value));
        return instance;
    }

    int32_t PutInstance(const Instance& instance, PutCondition condition = PutCondition::kCreateOrUpdate) {
        last = repository->PutInstance(space, instance, condition);
        return last.code();
    }

    int32_t PutInstance(const std::string& class_name, const Values& values) {
        return PutInstance(Make(class_name, values));
    }

    static std::string PathOf(const std::string& class_name, const std::string& id) {
        return class_name + ".ID=" + QuoteForPath(id);
    }

    Result<Instance> Get(const std::string& path_text) {
        auto parsed = ParseObjectPath(path_text);
        EXPECT_OK(parsed);
        return repository->GetInstance(space, *parsed);
    }

    int32_t DeleteInstance(const std::string& path_text) {
        last = repository->DeleteInstance(space, *ParseObjectPath(path_text));
        return last.code();
    }

    Value Read(const std::string& path_text, const std::string& property) {
        const auto instance = Get(path_text);
        EXPECT_OK(instance);
        return instance.ok() ? ReadValueOf(*instance, property) : Value();
    }

    // Of the class itself.
    std::vector<std::string> IdsOf(const std::string& class_name) {
        auto cursor = InstanceCursor::Open(repository, space, class_name, Depth::kShallow);
        EXPECT_OK(cursor);
        std::vector<Instance> instances;
        while (cursor.ok() && !cursor->AtEnd() && !HasFailure())
            EXPECT_OK(cursor->Read(100, instances));
        std::vector<std::string> ids;
        ids.reserve(instances.size());
        for (const Instance& instance : instances)
            ids.push_back(TextOf(instance, "ID"));
        return ids;
    }

    TemporaryDirectory directory;
    const std::string path = directory.path() + "/store";
    std::shared_ptr<Repository> repository;
    Namespace space;
    Status last;  // of the last operation that returned a code
};

}  // namespace service
