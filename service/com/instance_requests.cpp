#include "service/com/instance_requests.h"

#include <optional>
#include <utility>
#include <vector>

#include "service/com/boundary.h"
#include "service/com/class_object.h"
#include "service/com/enumerator.h"
#include "service/com/instance_enumerator.h"
#include "service/com/namespace_class.h"
#include "service/com/selection.h"
#include "service/language/wql_keys.h"
#include "service/language/wql_parser.h"
#include "service/model/text.h"

namespace service {
namespace {

CComPtr<IEnumWbemClassObject> ListOf(const ConnectionPtr& connection, std::vector<Instance> instances) {
    std::vector<CComPtr<IWbemClassObject>> objects;
    objects.reserve(instances.size());
    for (Instance& instance : instances)
        objects.emplace_back(ClassObject::OfInstance(connection, std::move(instance)));
    return CComPtr<IEnumWbemClassObject>(MakeCom<ObjectList>(std::move(objects)));
}

Result<CComPtr<IEnumWbemClassObject>> Enumerate(InstanceEnumerator::Source source, long flags) {
    source.is_forward_only = (flags & WBEM_FLAG_FORWARD_ONLY) != 0;
    SERVICE_ASSIGN_OR_RETURN(CComPtr<InstanceEnumerator> instances,
                             InstanceEnumerator::Make(std::move(source)));
    return CComPtr<IEnumWbemClassObject>(instances);
}

// The instances with that key: one a class at most.
Result<std::vector<Instance>> FindByKey(const Connection& connection, const ClassPtr& definition,
                                        ObjectPath path) {
    std::vector<Instance> found;
    SERVICE_RETURN_IF_ERROR(connection.repository->Read([&](RepositoryReader& reader) -> Status {
        found.clear();
        SERVICE_ASSIGN_OR_RETURN(std::vector<ClassPtr> classes,
                                 reader.Subclasses(connection.space, definition->Name()));
        classes.insert(classes.begin(), definition);
        for (const ClassPtr& candidate : classes) {
            path.class_name = candidate->Name();
            Result<Instance> instance = reader.GetInstance(connection.space, path);
            if (instance.ok()) {
                found.push_back(std::move(*instance));
            } else if (instance.code() != WBEM_E_NOT_FOUND) {
                return std::move(instance).status();
            }
        }
        return {};
    }));
    return found;
}

}  // namespace

Result<CComPtr<IEnumWbemClassObject>> EnumerateInstances(const ConnectionPtr& connection,
                                                         const std::string& class_name, long flags) {
    if (IsNamespaceClass(class_name)) {
        SERVICE_ASSIGN_OR_RETURN(std::vector<Instance> instances, NamespaceInstances(*connection));
        return ListOf(connection, std::move(instances));
    }
    const Depth depth = (flags & WBEM_FLAG_SHALLOW) ? Depth::kShallow : Depth::kDeep;
    return Enumerate({connection, class_name, depth, std::nullopt, false}, flags);
}

Status CheckQueryLanguage(BSTR language) {
    SERVICE_ASSIGN_OR_RETURN(const std::string name, TakeText(language, "the query language"));
    if (EqualFolded(name, "WQL")) return {};
    return {WBEM_E_INVALID_QUERY_TYPE,
            "the query language \"" + ClipForMessage(name, 80) + "\" is not known: it must be \"WQL\""};
}

Result<CComPtr<IEnumWbemClassObject>> QueryInstances(const ConnectionPtr& connection,
                                                     const std::string& query, long flags) {
    SERVICE_ASSIGN_OR_RETURN(const WqlQuery parsed, ParseWql(query));
    if (parsed.within_seconds) {
        return Status(WBEM_E_INVALID_QUERY,
                      "WITHIN belongs to a query for notifications; this one asks for instances");
    }
    const bool keeps_keys = (flags & WBEM_FLAG_ENSURE_LOCATABLE) != 0;
    SERVICE_ASSIGN_OR_RETURN(Selection selection, Selection::Make(*connection, parsed, keeps_keys));
    const ClassPtr definition = selection.Class();
    std::optional<std::vector<Instance>> instances;
    if (IsNamespaceClass(definition->Name())) {
        SERVICE_ASSIGN_OR_RETURN(instances, NamespaceInstances(*connection));
    } else if (std::optional<ObjectPath> path = DemandedPath(parsed, *definition)) {
        SERVICE_ASSIGN_OR_RETURN(instances, FindByKey(*connection, definition, std::move(*path)));
    }
    if (!instances) {
        return Enumerate({connection, definition->Name(), Depth::kDeep, std::move(selection), false}, flags);
    }
    SERVICE_RETURN_IF_ERROR(selection.Apply(*instances));
    return ListOf(connection, std::move(*instances));
}

}  // namespace service
