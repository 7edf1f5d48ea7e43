#include "service/com/selection.h"

#include "service/com/namespace_class.h"

namespace service {

Result<Selection> Selection::Make(const Connection& connection, const WqlQuery& query, bool keeps_keys) {
    SERVICE_ASSIGN_OR_RETURN(WqlCondition condition,
                             WqlCondition::Bind(query, [&](std::string_view name) -> Result<ClassPtr> {
                                 if (IsNamespaceClass(name)) return NamespaceClass();
                                 return connection.repository->FindClass(connection.space, name);
                             }));
    Selection selection(std::move(condition), keeps_keys);
    for (const WqlPath& path : query.properties) {
        if (path.names.size() != 1) {
            return WqlFault(WBEM_E_INVALID_QUERY, path.position,
                            "a property of an embedded object cannot be listed: list the property that holds "
                            "the object");
        }
        selection.properties_.push_back(path.names.front());
    }
    return selection;
}

Status Selection::Apply(std::vector<Instance>& instances) {
    size_t kept = 0;
    Status fault;
    for (Instance& instance : instances) {
        Result<bool> matches = condition_.Matches(instance);
        if (!matches.ok() && fault.ok()) fault = std::move(matches).status();
        if (!matches.ok() || !*matches) continue;
        if (!properties_.empty() && instance.Stored())
            instance = Instance(Narrowed(instance.Class()), instance.Stored());
        if (&instances[kept] != &instance) instances[kept] = std::move(instance);
        ++kept;
    }
    instances.erase(instances.begin() + static_cast<std::ptrdiff_t>(kept), instances.end());
    return fault;
}

// A stored instance reads the same with what is left of its class. System properties are always there.
ClassPtr Selection::Narrowed(const ClassPtr& definition) {
    for (const auto& [whole, narrowed] : narrowed_) {
        if (whole == definition) return narrowed;
    }
    std::vector<size_t> indexes;
    for (const std::string& name : properties_) {
        if (const auto index = definition->FindProperty(std::string_view(name))) indexes.push_back(*index);
    }
    if (keeps_keys_) indexes.insert(indexes.end(), definition->Keys().begin(), definition->Keys().end());
    return narrowed_.emplace_back(definition, definition->Select(indexes)).second;
}

}  // namespace service
