// What is changed in a repository: the operations of RepositoryWriter.
#include <algorithm>
#include <unordered_set>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/class_change.h"
#include "service/store/repository.h"
#include "service/store/schema_update.h"

namespace service {
namespace {

Status AboutInstance(const Instance& instance, int32_t code, const std::string& what) {
    const Result<std::string> path = RelativePathOf(instance);
    const std::string& shown = path.ok() ? *path : instance.Class()->Name();
    return {code, "the instance " + ClipForMessage(shown, kMaxShownPath) + " " + what};
}

// A key that its class's default gives is kept in the record as any other: the default may change, and the
// instance stays where it was filed.
Status EncodeWithKeys(const Instance& instance, std::string& record) {
    const std::vector<size_t>& keys = instance.Class()->Keys();
    const auto is_set = [&](size_t index) { return instance.IsSet(index); };
    if (std::all_of(keys.begin(), keys.end(), is_set)) return EncodeInstance(instance, record);
    Instance filed = instance;
    for (const size_t index : keys) {
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(instance.Read(index, storage, view));
        SERVICE_RETURN_IF_ERROR(filed.Set(index, OwnedCopy(view)));
    }
    return EncodeInstance(filed, record);
}

// What a class says of another one in its own declaration: "property C.P", or nothing.
std::string NamingPlace(const ClassDeclaration& declaration,
                        const std::unordered_set<std::string>& folded_names) {
    const auto is_named = [&](const PropertyType& type) {
        return !type.class_name.empty() && folded_names.contains(Fold(type.class_name));
    };
    for (const PropertyDeclaration& property : declaration.properties) {
        if (is_named(property.type)) return "property " + declaration.name + "." + property.name;
    }
    for (const MethodDeclaration& method : declaration.methods) {
        const bool names = (method.return_type && is_named(*method.return_type)) ||
                           std::any_of(method.parameters.begin(), method.parameters.end(),
                                       [&](const ParameterDeclaration& each) { return is_named(each.type); });
        if (names) return "method " + declaration.name + "." + method.name;
    }
    return {};
}

// A class that others are declared with stays: what is left would be no schema that can be imported again.
Status CheckNobodyNames(const std::vector<ClassPtr>& all, const std::vector<ClassPtr>& gone) {
    std::unordered_set<std::string> names;
    for (const ClassPtr& each : gone)
        names.insert(each->FoldedName());
    for (const ClassPtr& each : all) {
        if (names.contains(each->FoldedName())) continue;
        const std::string place = NamingPlace(each->Declaration(), names);
        if (place.empty()) continue;
        return {WBEM_E_INVALID_OPERATION, "class " + gone.front()->Name() + " cannot be deleted: the " +
                                              place + " is declared with it. Declare class " + each->Name() +
                                              " without it first, or delete that one, too"};
    }
    return {};
}

}  // namespace

void RepositoryWriter::LeaveSharedCache() {
    if (has_own_cache_) return;
    cache_ = std::make_shared<SchemaCache>(cache_->generation());
    has_own_cache_ = true;
}

Result<Namespace> RepositoryWriter::MakeNamespace(std::string_view path, bool& is_new) {
    is_new = false;
    Result<Namespace> found = FindNamespace(path);
    if (found.ok() || found.code() != WBEM_E_INVALID_NAMESPACE) return found;

    const size_t last = path.rfind('\\');
    if (last == std::string_view::npos) {
        return Status(WBEM_E_INVALID_NAMESPACE,
                      "a namespace lies below root, as in root\\" + std::string(path));
    }
    bool is_parent_new = false;
    SERVICE_ASSIGN_OR_RETURN(const Namespace parent, MakeNamespace(path.substr(0, last), is_parent_new));
    const std::string key = NamespaceKey(path);
    if (key.size() > kMaxSchemaKeyBytes) {
        return Status(WBEM_E_INVALID_NAMESPACE, "the path of the namespace " + std::string(path) +
                                                    " is too long once its case is folded");
    }
    Namespace space;
    SERVICE_RETURN_IF_ERROR(writer_.NextId(space.id));
    space.path = parent.path + std::string(path.substr(last));
    std::string record;
    EncodeNamespace(space, record);
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, record));
    LeaveSharedCache();
    is_new = true;
    return space;
}

Status RepositoryWriter::BeginClasses(const Namespace& space, const std::vector<std::string>& names) {
    updates_[space.id] = std::make_shared<SchemaUpdate>(*this, space, names);
    return {};
}

Status RepositoryWriter::FinishClasses(const Namespace& space, std::string& at_fault) {
    const auto update = updates_.extract(space.id);
    if (update) SERVICE_RETURN_IF_ERROR(update.mapped()->Finish(at_fault));
    return CheckQualifierUse(space, at_fault);
}

Result<ClassPtr> RepositoryWriter::FindClass(const Namespace& space, std::string_view name) {
    const auto update = updates_.find(space.id);
    return update == updates_.end() ? RepositoryReader::FindClass(space, name) : update->second->Find(name);
}

Status RepositoryWriter::PutClass(const Namespace& space, ClassDeclaration declaration,
                                  PutCondition condition, bool& is_changed, ClassUpdate mode) {
    if (const auto update = updates_.find(space.id); update != updates_.end())
        return update->second->Put(std::move(declaration), condition, mode, is_changed);
    SchemaUpdate alone(*this, space, {declaration.name});
    SERVICE_RETURN_IF_ERROR(alone.Put(std::move(declaration), condition, mode, is_changed));
    std::string at_fault;
    return alone.Finish(at_fault);
}

Status RepositoryWriter::DeleteClass(const Namespace& space, std::string_view name, ClassUpdate update) {
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition, FindClass(space, name));
    SERVICE_ASSIGN_OR_RETURN(const std::vector<ClassPtr> subclasses, Subclasses(space, definition->Name()));
    const bool is_forced = update == ClassUpdate::kForced;
    if (!is_forced && !subclasses.empty()) {
        return {
            WBEM_E_CLASS_HAS_CHILDREN,
            "class " + definition->Name() + " has " + std::to_string(subclasses.size()) +
                (subclasses.size() == 1 ? " subclass" : " subclasses") + ", " + subclasses.front()->Name() +
                " among them: delete them first, or delete the class by force, which deletes them and all "
                "instances"};
    }
    std::vector<ClassPtr> gone{definition};
    gone.insert(gone.end(), subclasses.begin(), subclasses.end());
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList all, Classes(space));
    std::vector<ClassVersion> versions;
    for (const ClassPtr& each : gone)
        versions.push_back({each, nullptr, is_forced, definition->Name()});
    ClassChange change(writer_, all, std::move(versions));
    std::string at_fault;
    SERVICE_RETURN_IF_ERROR(change.CheckSafe(at_fault));
    SERVICE_RETURN_IF_ERROR(CheckNobodyNames(*all, gone));
    SERVICE_RETURN_IF_ERROR(change.Convert(at_fault));
    for (const ClassPtr& each : gone)
        SERVICE_RETURN_IF_ERROR(writer_.DeleteSchema(ClassKey(space.id, each->Name())));
    LeaveSharedCache();
    cache_->Replace(space.id, {}, gone);
    return {};
}

Status RepositoryWriter::PutInstance(const Namespace& space, const Instance& instance,
                                     PutCondition condition) {
    if (instance.Class()->IsPartial()) {
        return {WBEM_E_INVALID_OBJECT, "an instance of class " + instance.Class()->Name() +
                                           " that has only the properties which a query asked for cannot be "
                                           "stored: get the whole instance"};
    }
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition, FindClass(space, instance.Class()->Name()));
    if (definition->IsAbstract()) {
        return {WBEM_E_INVALID_OPERATION,
                "class " + definition->Name() +
                    " is abstract and has no instances: make one of a class derived from it"};
    }
    const bool is_current = definition == instance.Class();
    if (is_current && !(definition->HasObjects() && instance.IsChanged()))
        return StoreInstance(instance, condition);
    SERVICE_ASSIGN_OR_RETURN(Instance moved,
                             is_current ? Result<Instance>(instance) : instance.MovedTo(definition));
    SERVICE_RETURN_IF_ERROR(SettleObjects(space, moved));
    return StoreInstance(moved, condition);
}

Status RepositoryWriter::SettleObjects(const Namespace& space, Instance& instance) {
    const auto& properties = instance.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        if (properties[i].type.type != CimType::kObject) continue;
        Value storage;
        ValueView view;
        bool is_set = false;
        SERVICE_RETURN_IF_ERROR(instance.ReadOwn(i, is_set, storage, view));
        if (const auto* object = std::get_if<const ObjectPtr*>(&view); is_set && object) {
            SERVICE_ASSIGN_OR_RETURN(ObjectPtr settled, Settled(space, **object));
            if (settled != **object) SERVICE_RETURN_IF_ERROR(instance.Set(i, std::move(settled)));
        }
        if (const auto* elements = std::get_if<const Array*>(&view); is_set && elements) {
            Array array = **elements;
            for (Scalar& element : array) {
                const auto* object = std::get_if<ObjectPtr>(&element);
                if (!object) continue;
                SERVICE_ASSIGN_OR_RETURN(element, Settled(space, *object));
            }
            SERVICE_RETURN_IF_ERROR(instance.Set(i, std::move(array)));
        }
    }
    return {};
}

Result<ObjectPtr> RepositoryWriter::Settled(const Namespace& space, const ObjectPtr& object) {
    Result<ClassPtr> definition = FindClass(space, object->Class()->Name());
    if (!definition.ok()) {
        return Status(definition.code(), "the class of an embedded object: " + definition.status().reason());
    }
    const bool is_current = *definition == object->Class();
    if (is_current && !((*definition)->HasObjects() && object->IsChanged())) return object;
    SERVICE_ASSIGN_OR_RETURN(Instance moved,
                             is_current ? Result<Instance>(*object) : object->MovedTo(*definition));
    SERVICE_RETURN_IF_ERROR(SettleObjects(space, moved));
    return ObjectPtr(std::make_shared<const Instance>(std::move(moved)));
}

// `instance` is of the class as it is now, and so are the objects in it.
Status RepositoryWriter::StoreInstance(const Instance& instance, PutCondition condition) {
    const ClassPtr& definition = instance.Class();
    SERVICE_ASSIGN_OR_RETURN(const std::string key, KeyOf(instance));
    for (size_t i = 0; i < definition->Properties().size(); ++i) {
        if (!definition->Properties()[i].is_not_null) continue;
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(instance.Read(i, storage, view));
        if (IsNull(view)) {
            return AboutInstance(instance, WBEM_E_ILLEGAL_NULL,
                                 "needs a value of property " + definition->Properties()[i].name +
                                     ", which is not_null: set one before it is put");
        }
    }
    std::string record;
    SERVICE_RETURN_IF_ERROR(EncodeWithKeys(instance, record));

    std::string_view before;
    bool exists = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetInstance(definition->Id(), key, before, exists));
    if (exists && condition == PutCondition::kCreateOnly) {
        return AboutInstance(instance, WBEM_E_ALREADY_EXISTS,
                             "is there already: update it, or choose another key");
    }
    if (!exists && condition == PutCondition::kUpdateOnly) {
        return AboutInstance(instance, WBEM_E_NOT_FOUND,
                             "is not there, so it cannot be updated: create it first");
    }
    if (exists && before == record) return {};
    return writer_.PutInstance(definition->Id(), key, before, record);
}

Status RepositoryWriter::DeleteInstance(const Namespace& space, const ObjectPath& path) {
    if (path.IsClass()) {
        return {WBEM_E_INVALID_PARAMETER,
                "the path " + path.class_name + " names a class: an instance's path has a key"};
    }
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition, FindClass(space, path.class_name));
    SERVICE_ASSIGN_OR_RETURN(const std::string key, KeyOf(*definition, path));
    std::string_view before;
    bool exists = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetInstance(definition->Id(), key, before, exists));
    if (!exists) {
        return NoInstance(space, path);
    }
    return writer_.DeleteInstance(definition->Id(), key, before);
}

}  // namespace service
