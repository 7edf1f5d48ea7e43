// What is changed in a repository: the operations of RepositoryWriter.
#include <algorithm>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/class_change.h"
#include "service/store/repository.h"

namespace service {
namespace {

Status AboutInstance(const Instance& instance, int32_t code, const std::string& what) {
    const Result<std::string> path = RelativePathOf(instance);
    const std::string& shown = path.ok() ? *path : instance.Class()->Name();
    return {code, "the instance " + ClipForMessage(shown, kMaxShownPath) + " " + what};
}

// Properties keep the number they had, so that records find them; new ones, and those of another type, get
// numbers that were never used.
Status NumberProperties(ClassDeclaration& declaration, const ClassDeclaration* older) {
    declaration.next_ordinal = older ? older->next_ordinal : 0;
    for (PropertyDeclaration& property : declaration.properties) {
        const PropertyDeclaration* same = nullptr;
        if (older) {
            for (const PropertyDeclaration& candidate : older->properties) {
                if (candidate.type.SameShape(property.type) && EqualFolded(candidate.name, property.name))
                    same = &candidate;
            }
        }
        property.ordinal = same ? same->ordinal : declaration.next_ordinal++;
    }
    if (declaration.next_ordinal <= UINT16_MAX) return {};
    return {WBEM_E_QUOTA_VIOLATION,
            "class " + declaration.name + " was given too many new properties in its life"};
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

Status RepositoryWriter::PutClass(const Namespace& space, ClassDeclaration declaration,
                                  PutCondition condition, bool& is_changed, ClassUpdate update) {
    is_changed = false;
    SERVICE_RETURN_IF_ERROR(CheckName("class", declaration.name));
    Result<ClassPtr> existing = FindClass(space, declaration.name);
    if (!existing.ok() && existing.code() != WBEM_E_INVALID_CLASS) return std::move(existing).status();
    const ClassDefinition* older = existing.ok() ? existing->get() : nullptr;
    if (older && condition == PutCondition::kCreateOnly) {
        return {WBEM_E_ALREADY_EXISTS,
                "class " + declaration.name + " is in the namespace " + space.path + " already"};
    }
    if (!older && condition == PutCondition::kUpdateOnly) {
        return {WBEM_E_NOT_FOUND,
                "there is no class " + declaration.name + " in the namespace " + space.path};
    }

    ClassPtr superclass;
    if (!declaration.superclass.empty()) {
        Result<ClassPtr> found = FindClass(space, declaration.superclass);
        if (!found.ok()) {
            return {found.code() == WBEM_E_INVALID_CLASS ? WBEM_E_INVALID_SUPERCLASS : found.code(),
                    "the superclass of class " + declaration.name + ": " + found.status().reason()};
        }
        superclass = std::move(*found);
        if (superclass->IsA(declaration.name)) {
            return {WBEM_E_INVALID_SUPERCLASS, "class " + declaration.name + " cannot derive from " +
                                                   superclass->Name() + ", which derives from it"};
        }
        declaration.superclass = superclass->Name();
    }

    ClassRecord record;
    if (older) {
        record.class_id = older->Id();
    } else {
        SERVICE_RETURN_IF_ERROR(writer_.NextId(record.class_id));
    }
    SERVICE_RETURN_IF_ERROR(NumberProperties(declaration, older ? &older->Declaration() : nullptr));
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr newer,
                             ClassDefinition::Resolve(record.class_id, declaration, superclass));
    record.declaration = std::move(declaration);
    std::string bytes;
    SERVICE_RETURN_IF_ERROR(EncodeClass(record, bytes));
    const std::string key = ClassKey(space.id, record.declaration.name);
    if (key.size() > kMaxSchemaKeyBytes) {
        return {WBEM_E_INVALID_PARAMETER,
                "the name of class " + newer->Name() + " is too long once its case is folded"};
    }
    std::vector<ClassVersion> versions;
    if (older) {
        std::string_view stored;
        bool found = false;
        SERVICE_RETURN_IF_ERROR(reader_.GetSchema(key, stored, found));
        if (found && stored == bytes) return {};
        SERVICE_ASSIGN_OR_RETURN(versions, VersionsBy(space, *existing, newer));
        SERVICE_ASSIGN_OR_RETURN(SchemaCache::ClassList all, Classes(space));
        ClassChange change(writer_, std::move(all), versions);
        SERVICE_RETURN_IF_ERROR(update == ClassUpdate::kForced ? change.Convert() : change.CheckSafe());
    }
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, bytes));
    is_changed = true;
    LeaveSharedCache();
    if (!older) {
        cache_->ClearLists();
        return {};
    }
    std::vector<ClassPtr> current;
    for (const ClassVersion& version : versions)
        current.push_back(version.newer);
    cache_->Replace(space.id, current, {});
    return {};
}

// The subclasses must still be classes: each is joined anew with the class above it.
Result<std::vector<ClassVersion>> RepositoryWriter::VersionsBy(const Namespace& space, const ClassPtr& older,
                                                               const ClassPtr& newer) {
    SERVICE_ASSIGN_OR_RETURN(std::vector<ClassPtr> subclasses, Subclasses(space, newer->Name()));
    // Those near the class come first, so that each finds its superclass among those done.
    std::stable_sort(subclasses.begin(), subclasses.end(), [](const ClassPtr& a, const ClassPtr& b) {
        return a->Derivation().size() < b->Derivation().size();
    });
    std::vector<ClassVersion> versions{{older, newer}};
    for (ClassPtr& subclass : subclasses) {
        const auto above = std::find_if(versions.begin(), versions.end(), [&](const ClassVersion& candidate) {
            return candidate.newer->Id() == subclass->Superclass()->Id();
        });
        if (above == versions.end()) continue;
        Result<ClassPtr> again =
            ClassDefinition::Resolve(subclass->Id(), subclass->Declaration(), above->newer);
        if (!again.ok()) {
            return Status(again.code(), "the new declaration of class " + newer->Name() +
                                            " does not fit its subclass " + subclass->Name() + ": " +
                                            again.status().reason());
        }
        versions.push_back({std::move(subclass), std::move(*again)});
    }
    return versions;
}

Status RepositoryWriter::DeleteClass(const Namespace& space, std::string_view name, ClassUpdate update) {
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition, FindClass(space, name));
    SERVICE_ASSIGN_OR_RETURN(const std::vector<ClassPtr> subclasses, Subclasses(space, definition->Name()));
    std::vector<ClassVersion> versions{{definition, nullptr}};
    for (const ClassPtr& subclass : subclasses)
        versions.push_back({subclass, nullptr});
    SERVICE_ASSIGN_OR_RETURN(SchemaCache::ClassList all, Classes(space));
    ClassChange change(writer_, std::move(all), versions);
    if (update == ClassUpdate::kForced) {
        SERVICE_RETURN_IF_ERROR(change.Convert());
    } else {
        if (!subclasses.empty()) {
            return {WBEM_E_CLASS_HAS_CHILDREN,
                    "class " + definition->Name() + " has " + std::to_string(subclasses.size()) +
                        (subclasses.size() == 1 ? " subclass" : " subclasses") + ", " +
                        subclasses.front()->Name() +
                        " among them: delete them first, or delete the class by force, which deletes them "
                        "and all instances"};
        }
        SERVICE_RETURN_IF_ERROR(change.CheckSafe());
    }
    std::vector<ClassPtr> gone;
    for (const ClassVersion& version : versions) {
        SERVICE_RETURN_IF_ERROR(writer_.DeleteSchema(ClassKey(space.id, version.older->Name())));
        gone.push_back(version.older);
    }
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
    SERVICE_RETURN_IF_ERROR(EncodeInstance(instance, record));

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
