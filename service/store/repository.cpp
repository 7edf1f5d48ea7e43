#include "service/store/repository.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/schema_records.h"

namespace service {
namespace {

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

Status UnknownNamespace(std::string_view path, Store& store) {
    const std::string what = "there is no namespace " + std::string(path);
    if (!store.IsThere()) {
        return {WBEM_E_INVALID_NAMESPACE, what + ", for there is no store " + store.Location() +
                                              " yet: the first import makes it (mgmtctl import FILE), or "
                                              "MGMT_STORE should name another directory"};
    }
    return {WBEM_E_INVALID_NAMESPACE, what + " in the store " + store.Location() +
                                          ": import a schema that names it first (mgmtctl import FILE)"};
}

Status UnknownClass(const Namespace& space, std::string_view name) {
    return {WBEM_E_INVALID_CLASS, "there is no class " + std::string(name.substr(0, kMaxNameBytes)) +
                                      " in the namespace " + space.path +
                                      ": mgmtctl classes lists those it has, mgmtctl import FILE adds some"};
}

constexpr size_t kAccountBytes = 16'384;
}  // namespace

Status NoInstance(const Namespace& space, const ObjectPath& path) {
    return {WBEM_E_NOT_FOUND, "there is no instance " + ClipForMessage(PrintObjectPath(path), kMaxShownPath) +
                                  " in the namespace " + space.path + ": mgmtctl list " + path.class_name +
                                  " shows those it has"};
}

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
    if (!found) return UnknownNamespace(path, *repository_.store());
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
