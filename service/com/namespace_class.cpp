#include "service/com/namespace_class.h"

#include <stdexcept>
#include <utility>

#include "service/model/no_destructor.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kClassName = "__Namespace";
constexpr size_t kNameIndex = 0;

ClassPtr MakeNamespaceClass() {
    ClassDeclaration declaration;
    declaration.name = kClassName;
    PropertyDeclaration name;
    name.name = "Name";
    name.qualifiers.push_back(
        {"key", {CimType::kBoolean, false, 0, {}}, true, kFlavorToInstance | kFlavorToSubclass});
    declaration.properties.push_back(std::move(name));
    Result<ClassPtr> definition = ClassDefinition::Resolve(0, std::move(declaration), nullptr);
    if (!definition.ok()) throw std::logic_error(definition.status().reason());
    return std::move(*definition);
}

Result<Instance> MakeInstance(std::string name) {
    Instance instance(NamespaceClass());
    SERVICE_RETURN_IF_ERROR(instance.Set(kNameIndex, std::move(name)));
    return instance;
}

}  // namespace

const ClassPtr& NamespaceClass() {
    static NoDestructor<ClassPtr> definition(MakeNamespaceClass());
    return *definition;
}

bool IsNamespaceClass(std::string_view name) {
    return EqualFolded(name, kClassName);
}

Result<std::vector<Instance>> NamespaceInstances(const Connection& connection) {
    std::vector<std::string> names;
    SERVICE_RETURN_IF_ERROR(connection.repository->Read([&](RepositoryReader& reader) -> Status {
        SERVICE_ASSIGN_OR_RETURN(names, reader.ChildNamespaces(connection.space));
        return {};
    }));
    std::vector<Instance> instances;
    for (std::string& name : names) {
        SERVICE_ASSIGN_OR_RETURN(Instance instance, MakeInstance(std::move(name)));
        instances.push_back(std::move(instance));
    }
    return instances;
}

Result<Instance> FindNamespaceInstance(const Connection& connection, const ObjectPath& path) {
    SERVICE_ASSIGN_OR_RETURN(const std::string key, KeyOf(*NamespaceClass(), path));
    SERVICE_ASSIGN_OR_RETURN(std::vector<Instance> instances, NamespaceInstances(connection));
    for (Instance& instance : instances) {
        SERVICE_ASSIGN_OR_RETURN(const std::string candidate, KeyOf(instance));
        if (candidate == key) return std::move(instance);
    }
    return Status(WBEM_E_NOT_FOUND, "there is no namespace " + key + " in " + connection.space.path);
}

Status PutNamespaceInstance(const Connection& connection, const Instance& instance, PutCondition condition) {
    Value storage;
    ValueView view;
    SERVICE_RETURN_IF_ERROR(instance.Read(kNameIndex, storage, view));
    const auto* name = std::get_if<std::string_view>(&view);
    if (!name)
        return {WBEM_E_ILLEGAL_NULL,
                "key property __Namespace.Name has no value: it is the namespace's name"};
    SERVICE_RETURN_IF_ERROR(CheckName("namespace", *name, true));
    const std::string path = connection.space.path + "\\" + std::string(*name);
    SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
    return connection.repository->Write([&](RepositoryWriter& writer) -> Status {
        const bool exists = writer.FindNamespace(parsed.path).ok();
        if (exists && condition == PutCondition::kCreateOnly) {
            return {WBEM_E_ALREADY_EXISTS, "there is a namespace " + parsed.path + " already"};
        }
        if (!exists && condition == PutCondition::kUpdateOnly) {
            return {WBEM_E_NOT_FOUND, "there is no namespace " + parsed.path + " to update"};
        }
        bool is_new = false;
        return writer.MakeNamespace(parsed.path, is_new).status();
    });
}

}  // namespace service
