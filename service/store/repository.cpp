// What the repository files in the store's schema table; integers big-endian.
//
//   "N", folded namespace path              -> u32 id, text path
//   "C", u32 namespace id, folded class name -> class record
#include "service/store/repository.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/bytes.h"

namespace service {
namespace {

constexpr char kNamespaceTag = 'N';
constexpr char kClassTag = 'C';
constexpr std::string_view kRootNamespace = "root";

// The reader of the transaction that runs on this thread: a read within it must see the same state, and
// must not wait for the map to be resized, which waits for the transaction.
thread_local RepositoryReader* t_running = nullptr;

class RunningScope {
 public:
    explicit RunningScope(RepositoryReader* reader) noexcept : outer_(std::exchange(t_running, reader)) {}
    ~RunningScope() { t_running = outer_; }
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;

 private:
    RepositoryReader* const outer_;
};

std::string NamespaceKey(std::string_view path) {
    std::string key(1, kNamespaceTag);
    AppendFolded(path, key);
    return key;
}

std::string ClassPrefix(uint32_t namespace_id) {
    std::string key(1, kClassTag);
    for (int shift = 24; shift >= 0; shift -= 8)
        key.push_back(static_cast<char>(namespace_id >> shift));
    return key;
}

std::string ClassKey(uint32_t namespace_id, std::string_view name) {
    std::string key = ClassPrefix(namespace_id);
    AppendFolded(name, key);
    return key;
}

bool DecodeNamespace(std::string_view record, Namespace& space) {
    ByteReader in(record);
    space.id = in.U32();
    space.path = in.Text();
    return in.ok() && in.AtEnd();
}

Status UnknownNamespace(std::string_view path, const std::string& location) {
    return {WBEM_E_INVALID_NAMESPACE, "there is no namespace " + std::string(path) + " in the store " +
                                          location +
                                          ": import a schema that names it first (mgmtctl import FILE)"};
}

Status UnknownClass(const Namespace& space, std::string_view name) {
    return {WBEM_E_INVALID_CLASS, "there is no class " + std::string(name.substr(0, kMaxNameBytes)) +
                                      " in the namespace " + space.path};
}

constexpr size_t kAccountBytes = 16'384;
constexpr size_t kMaxShownPath = 300;

Status NoInstance(const Namespace& space, const ObjectPath& path) {
    return {WBEM_E_NOT_FOUND, "there is no instance " + ClipForMessage(PrintObjectPath(path), kMaxShownPath) +
                                  " in the namespace " + space.path};
}

Status AboutInstance(const Instance& instance, int32_t code, const std::string& what) {
    const Result<std::string> path = RelativePathOf(instance);
    const std::string& shown = path.ok() ? *path : instance.Class()->Name();
    return {code, "the instance " + ClipForMessage(shown, kMaxShownPath) + " " + what};
}

// A property of `older` that `newer` no longer has just so; null when instances of one are instances of the
// other.
const PropertyDefinition* FirstLostProperty(const ClassDefinition& older, const ClassDefinition& newer) {
    for (const PropertyDefinition& property : older.Properties()) {
        const auto index = newer.FindProperty(std::string_view(property.name));
        if (!index) return &property;
        const PropertyDefinition& now = newer.Properties()[*index];
        if (!now.type.SameShape(property.type) || now.is_key != property.is_key || now.id != property.id)
            return &property;
    }
    return nullptr;
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

// Where the classes of embedded objects come from: the namespace of the object that holds them.
class Repository::EmbeddedClasses final : public ClassSource {
 public:
    EmbeddedClasses(std::shared_ptr<const Repository> repository, Namespace space)
        : repository_(std::move(repository)), space_(std::move(space)) {}

    Result<ClassPtr> FindEmbeddedClass(std::string_view name) const override {
        return repository_->FindClass(space_, name);
    }

 private:
    const std::shared_ptr<const Repository> repository_;
    const Namespace space_;
};

RepositoryReader::RepositoryReader(const Repository& repository, StoreReader& reader)
    : repository_(repository), reader_(reader) {}

// Finds the cache for the state that is read; while nothing changes in the store, without reading it.
Status RepositoryReader::Prepare() {
    const uint64_t state = reader_.StateNumber();
    cache_ = repository_.CacheForState(state);
    if (cache_) return {};
    uint64_t generation = 0;
    SERVICE_RETURN_IF_ERROR(reader_.SchemaGeneration(generation));
    cache_ = repository_.CacheFor(generation);
    repository_.RememberState(state, cache_);
    return {};
}

Result<Namespace> RepositoryReader::FindNamespace(std::string_view path) {
    std::string_view record;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetSchema(NamespaceKey(path), record, found));
    // Every store has its root, before anything was written to it.
    if (!found && EqualFolded(path, kRootNamespace)) return Namespace{0, std::string(kRootNamespace)};
    if (!found) return UnknownNamespace(path, repository_.Location());
    Namespace space;
    if (!DecodeNamespace(record, space)) {
        return Status(WBEM_E_CRITICAL_ERROR,
                      "the record of the namespace " + std::string(path) + " is damaged");
    }
    return space;
}

Result<std::vector<std::string>> RepositoryReader::ChildNamespaces(const Namespace& parent) {
    std::vector<std::string> names;
    const size_t parent_size = parent.path.size() + 1;
    SERVICE_RETURN_IF_ERROR(
        reader_.ScanSchema(NamespaceKey(parent.path + "\\"), [&](std::string_view, std::string_view record) {
            Namespace space;
            if (!DecodeNamespace(record, space) || space.path.size() <= parent_size) return true;
            std::string name = space.path.substr(parent_size);
            if (name.find('\\') == std::string::npos) names.push_back(std::move(name));
            return true;
        }));
    return names;
}

Result<ClassPtr> RepositoryReader::FindClass(const Namespace& space, std::string_view name) {
    if (ClassPtr cached = cache_->Find(space.id, name)) return cached;
    return LoadClass(space, name, 0);
}

Result<ClassPtr> RepositoryReader::LoadClass(const Namespace& space, std::string_view name, size_t depth) {
    if (name.empty() || name.size() > kMaxNameBytes || !IsValidUtf8(name))
        return UnknownClass(space, ToUtf8Lossy(ToWideLossy(name)));
    if (depth > kMaxClassDepth + 1) {
        return Status(WBEM_E_CRITICAL_ERROR,
                      "the superclasses of class " + std::string(name) + " go round in a circle");
    }
    std::string_view bytes;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetSchema(ClassKey(space.id, name), bytes, found));
    if (!found) return UnknownClass(space, name);
    SERVICE_ASSIGN_OR_RETURN(ClassRecord record, DecodeClass(bytes));
    ClassPtr superclass;
    if (!record.declaration.superclass.empty()) {
        superclass = cache_->Find(space.id, record.declaration.superclass);
        if (!superclass) {
            SERVICE_ASSIGN_OR_RETURN(superclass, LoadClass(space, record.declaration.superclass, depth + 1));
        }
    }
    SERVICE_ASSIGN_OR_RETURN(
        ClassPtr definition,
        ClassDefinition::Resolve(record.class_id, std::move(record.declaration), std::move(superclass)));
    // Under every spelling the same definition is found.
    if (name != definition->Name()) {
        if (ClassPtr known = cache_->Find(space.id, definition->Name())) definition = std::move(known);
        cache_->Add(space.id, name, definition);
    }
    cache_->Add(space.id, definition->Name(), definition);
    return definition;
}

Result<SchemaCache::ClassList> RepositoryReader::Classes(const Namespace& space) {
    if (SchemaCache::ClassList cached = cache_->FindAll(space.id)) return cached;
    std::vector<std::string> names;
    Status damaged;
    SERVICE_RETURN_IF_ERROR(
        reader_.ScanSchema(ClassPrefix(space.id), [&](std::string_view, std::string_view bytes) {
            Result<ClassRecord> record = DecodeClass(bytes);
            if (record.ok()) {
                names.push_back(std::move(record->declaration.name));
            } else {
                damaged = std::move(record).status();
            }
            return damaged.ok();
        }));
    if (!damaged.ok()) return damaged;
    auto classes = std::make_shared<std::vector<ClassPtr>>();
    classes->reserve(names.size());
    for (const std::string& name : names) {
        SERVICE_ASSIGN_OR_RETURN(ClassPtr definition, FindClass(space, name));
        classes->push_back(std::move(definition));
    }
    cache_->SetAll(space.id, classes);
    return SchemaCache::ClassList(std::move(classes));
}

Result<std::vector<ClassPtr>> RepositoryReader::Subclasses(const Namespace& space,
                                                           std::string_view superclass) {
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList all, Classes(space));
    std::vector<ClassPtr> subclasses;
    for (const ClassPtr& candidate : *all) {
        if (candidate->Superclass() && candidate->Superclass()->IsA(superclass))
            subclasses.push_back(candidate);
    }
    return subclasses;
}

Result<Instance> RepositoryReader::GetInstance(const Namespace& space, const ObjectPath& path) {
    SERVICE_ASSIGN_OR_RETURN(ClassPtr definition, FindClass(space, path.class_name));
    SERVICE_ASSIGN_OR_RETURN(const std::string key, KeyOf(*definition, path));
    std::string_view record;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetInstance(definition->Id(), key, record, found));
    if (!found) return NoInstance(space, path);
    auto classes = repository_.ClassSourceFor(space, *definition);
    return DecodeInstance(std::move(definition), record, std::move(classes));
}

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
    ByteWriter out(record);
    out.U32(space.id);
    out.Text(space.path);
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, record));
    LeaveSharedCache();
    is_new = true;
    return space;
}

Status RepositoryWriter::PutClass(const Namespace& space, ClassDeclaration declaration,
                                  PutCondition condition, bool& is_changed) {
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
    if (older) {
        std::string_view stored;
        bool found = false;
        SERVICE_RETURN_IF_ERROR(reader_.GetSchema(key, stored, found));
        if (found && stored == bytes) return {};
        SERVICE_RETURN_IF_ERROR(CheckInstances(space, newer->Name(), *older, *newer));
        SERVICE_RETURN_IF_ERROR(CheckSubclasses(space, newer));
    }
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, bytes));
    is_changed = true;
    LeaveSharedCache();
    if (older) {
        cache_->Clear();
    } else {
        cache_->ClearLists();
    }
    return {};
}

// Instances of `older` must be instances of `newer`, what it becomes by the new declaration of `changed`.
Status RepositoryWriter::CheckInstances(const Namespace& space, const std::string& changed,
                                        const ClassDefinition& older, const ClassDefinition& newer) {
    std::string what;
    if (const PropertyDefinition* lost = FirstLostProperty(older, newer)) {
        what = "changes or drops the property " + lost->name;
    } else if (older.Keys().size() != newer.Keys().size() || older.IsSingleton() != newer.IsSingleton()) {
        what = "changes the keys";
    } else if (newer.IsAbstract() && !older.IsAbstract()) {
        what = "makes an abstract class";
    } else {
        return {};
    }
    const std::string which =
        "the new declaration of class " + changed + " " + what + " of class " + older.Name();
    SERVICE_ASSIGN_OR_RETURN(const bool has_instances, HasInstances(older));
    if (has_instances) {
        return {WBEM_E_CLASS_HAS_INSTANCES,
                which + ", which has instances: delete them first, or keep what they hold"};
    }
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr holder, FindHolder(space, older));
    if (holder) {
        return {WBEM_E_CLASS_HAS_INSTANCES,
                which + ", and class " + holder->Name() +
                    " has instances that may hold objects of it: delete them first, or "
                    "keep what they hold"};
    }
    return {};
}

Result<ClassPtr> RepositoryWriter::FindHolder(const Namespace& space, const ClassDefinition& definition) {
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList all, Classes(space));
    // What may be held, first the class itself, then what may hold it and be held in turn.
    std::vector<const ClassDefinition*> held{&definition};
    const auto may_hold = [&](const PropertyDefinition& property) {
        return property.type.type == CimType::kObject &&
               (property.type.class_name.empty() ||
                std::any_of(held.begin(), held.end(), [&](const ClassDefinition* each) {
                    return each->IsA(property.type.class_name);
                }));
    };
    for (bool is_growing = true; is_growing;) {
        is_growing = false;
        for (const ClassPtr& candidate : *all) {
            if (std::find(held.begin(), held.end(), candidate.get()) != held.end()) continue;
            const auto& properties = candidate->Properties();
            if (std::none_of(properties.begin(), properties.end(), may_hold)) continue;
            SERVICE_ASSIGN_OR_RETURN(const bool has_instances, HasInstances(*candidate));
            if (has_instances) return candidate;
            held.push_back(candidate.get());
            is_growing = true;
        }
    }
    return ClassPtr();
}

// The subclasses must still be classes, and fit their instances: each is joined anew with the class above it.
Status RepositoryWriter::CheckSubclasses(const Namespace& space, const ClassPtr& newer) {
    SERVICE_ASSIGN_OR_RETURN(std::vector<ClassPtr> subclasses, Subclasses(space, newer->Name()));
    // Those near the class come first, so that each finds its superclass among those done.
    std::sort(subclasses.begin(), subclasses.end(), [](const ClassPtr& a, const ClassPtr& b) {
        return a->Derivation().size() < b->Derivation().size();
    });
    std::vector<ClassPtr> joined{newer};
    for (const ClassPtr& subclass : subclasses) {
        const auto above = std::find_if(joined.begin(), joined.end(), [&](const ClassPtr& candidate) {
            return EqualFolded(candidate->Name(), subclass->Superclass()->Name());
        });
        if (above == joined.end()) continue;
        Result<ClassPtr> again = ClassDefinition::Resolve(subclass->Id(), subclass->Declaration(), *above);
        if (!again.ok()) {
            return {again.code(), "the new declaration of class " + newer->Name() +
                                      " does not fit its subclass " + subclass->Name() + ": " +
                                      again.status().reason()};
        }
        SERVICE_RETURN_IF_ERROR(CheckInstances(space, newer->Name(), *subclass, **again));
        joined.push_back(std::move(*again));
    }
    return {};
}

Result<bool> RepositoryWriter::HasInstances(const ClassDefinition& definition) {
    bool has_instances = false;
    SERVICE_RETURN_IF_ERROR(reader_.ScanInstances(definition.Id(), {}, [&](const InstanceView&) {
        has_instances = true;
        return false;
    }));
    return has_instances;
}

Status RepositoryWriter::DeleteClass(const Namespace& space, std::string_view name) {
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition, FindClass(space, name));
    SERVICE_ASSIGN_OR_RETURN(const std::vector<ClassPtr> subclasses, Subclasses(space, name));
    if (!subclasses.empty()) {
        return {WBEM_E_CLASS_HAS_CHILDREN, "class " + definition->Name() + " has subclasses, " +
                                               subclasses.front()->Name() + " among them: delete them first"};
    }
    SERVICE_ASSIGN_OR_RETURN(const bool has_instances, HasInstances(*definition));
    if (has_instances) {
        return {WBEM_E_CLASS_HAS_INSTANCES,
                "class " + definition->Name() + " has instances: delete them first"};
    }
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr holder, FindHolder(space, *definition));
    if (holder) {
        return {WBEM_E_CLASS_HAS_INSTANCES, "class " + holder->Name() +
                                                " has instances that may hold objects of class " +
                                                definition->Name() + ": delete them first"};
    }
    SERVICE_RETURN_IF_ERROR(writer_.DeleteSchema(ClassKey(space.id, name)));
    LeaveSharedCache();
    cache_->Clear();
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
                "class " + definition->Name() + " is abstract and has no instances"};
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
                                 "needs a value of property " + definition->Properties()[i].name);
        }
    }
    std::string record;
    SERVICE_RETURN_IF_ERROR(EncodeInstance(instance, record));

    std::string_view before;
    bool exists = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetInstance(definition->Id(), key, before, exists));
    if (exists && condition == PutCondition::kCreateOnly) {
        return AboutInstance(instance, WBEM_E_ALREADY_EXISTS, "is there already");
    }
    if (!exists && condition == PutCondition::kUpdateOnly) {
        return AboutInstance(instance, WBEM_E_NOT_FOUND, "is not there, so it cannot be updated");
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
    if (!exists) return NoInstance(space, path);
    return writer_.DeleteInstance(definition->Id(), key, before);
}

Result<std::shared_ptr<Repository>> Repository::Open(const std::string& directory,
                                                     const StoreOptions& options) {
    SERVICE_ASSIGN_OR_RETURN(std::shared_ptr<Store> store, OpenLmdbStore(directory, options));
    return std::shared_ptr<Repository>(new Repository(std::move(store)));
}

std::string Repository::DefaultDirectory() {
    if (const char* named = secure_getenv("MGMT_STORE"); named && *named) return named;
    if (geteuid() == 0) return "/var/lib/mgmt";
    if (const char* data = secure_getenv("XDG_DATA_HOME"); data && *data == '/')
        return std::string(data) + "/mgmt";
    if (const char* home = secure_getenv("HOME"); home && *home == '/')
        return std::string(home) + "/.local/share/mgmt";
    std::vector<char> buffer(kAccountBytes);
    passwd account{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &account, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
    return std::string(found->pw_dir) + "/.local/share/mgmt";
}

Status Repository::Read(FunctionRef<Status(RepositoryReader&)> read) const {
    if (t_running && &t_running->repository_ == this) return read(*t_running);
    return store_->Read([&](StoreReader& store_reader) {
        RepositoryReader reader(*this, store_reader);
        SERVICE_RETURN_IF_ERROR(reader.Prepare());
        const RunningScope running(&reader);
        return read(reader);
    });
}

Status Repository::Write(FunctionRef<Status(RepositoryWriter&)> write) const {
    if (t_running && &t_running->repository_ == this) {
        return {WBEM_E_UNEXPECTED, "a change was begun within another one on the same thread"};
    }
    return store_->Write([&](StoreWriter& store_writer) {
        RepositoryWriter writer(*this, store_writer);
        SERVICE_RETURN_IF_ERROR(writer.Prepare());
        const RunningScope running(&writer);
        return write(writer);
    });
}

Result<Namespace> Repository::FindNamespace(std::string_view path) const {
    Namespace space;
    SERVICE_RETURN_IF_ERROR(Read([&](RepositoryReader& reader) -> Status {
        SERVICE_ASSIGN_OR_RETURN(space, reader.FindNamespace(path));
        return {};
    }));
    return space;
}

Result<ClassPtr> Repository::FindClass(const Namespace& space, std::string_view name) const {
    ClassPtr definition;
    SERVICE_RETURN_IF_ERROR(Read([&](RepositoryReader& reader) -> Status {
        SERVICE_ASSIGN_OR_RETURN(definition, reader.FindClass(space, name));
        return {};
    }));
    return definition;
}

Result<Instance> Repository::GetInstance(const Namespace& space, const ObjectPath& path) const {
    std::optional<Instance> instance;
    SERVICE_RETURN_IF_ERROR(Read([&](RepositoryReader& reader) -> Status {
        SERVICE_ASSIGN_OR_RETURN(instance, reader.GetInstance(space, path));
        return {};
    }));
    return std::move(*instance);
}

Status Repository::PutInstance(const Namespace& space, const Instance& instance,
                               PutCondition condition) const {
    return Write([&](RepositoryWriter& writer) { return writer.PutInstance(space, instance, condition); });
}

Status Repository::DeleteInstance(const Namespace& space, const ObjectPath& path) const {
    return Write([&](RepositoryWriter& writer) { return writer.DeleteInstance(space, path); });
}

std::shared_ptr<SchemaCache> Repository::CacheForState(uint64_t state) const noexcept {
    const std::lock_guard lock(mutex_);
    return cache_ && cache_state_ == state ? cache_ : nullptr;
}

// A state that is older than the newest one seen gets a cache of its own.
std::shared_ptr<SchemaCache> Repository::CacheFor(uint64_t generation) const {
    auto fresh = std::make_shared<SchemaCache>(generation);
    std::shared_ptr<SchemaCache> outdated;  // goes when the lock is free again
    const std::lock_guard lock(mutex_);
    if (cache_ && cache_->generation() == generation) return cache_;
    if (!cache_ || cache_->generation() < generation) outdated = std::exchange(cache_, fresh);
    return fresh;
}

void Repository::RememberState(uint64_t state, const std::shared_ptr<SchemaCache>& cache) const {
    const std::lock_guard lock(mutex_);
    if (cache_ == cache) cache_state_ = state;
}

std::shared_ptr<const ClassSource> Repository::ClassSourceFor(const Namespace& space,
                                                              const ClassDefinition& definition) const {
    if (!definition.HasObjects()) return nullptr;
    return std::make_shared<const EmbeddedClasses>(shared_from_this(), space);
}

}  // namespace service
