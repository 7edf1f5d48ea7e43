// Repository: namespaces, classes and instances in a store.
//
//   Result<std::shared_ptr<Repository>> r = Repository::Open(Repository::DefaultDirectory());
//   Result<Namespace> ns = (*r)->FindNamespace("root\\Vantrel\\Halvenor");
//   Result<Instance> i = (*r)->GetInstance(*ns, path);
//   Status fault = (*r)->PutInstance(*ns, *i, PutCondition::kUpdateOnly);
//
// Instances are known by their own class and their key: an instance of a subclass is not found under its
// superclass's name, and the same key may stand once in each class.
//
// An operation that changes something is atomic, and durable when it returns without a fault. Any number of
// threads and processes may use one store, over one repository or several. After a fork the child may go on
// using its parent's repositories.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/function_ref.h"
#include "service/model/instance.h"
#include "service/model/object_path.h"
#include "service/model/status.h"
#include "service/store/class_change.h"
#include "service/store/fork.h"
#include "service/store/instance_scan.h"
#include "service/store/record_codec.h"
#include "service/store/schema_cache.h"
#include "service/store/schema_codec.h"
#include "service/store/schema_records.h"
#include "service/store/store.h"

namespace service {

enum class PutCondition { kCreateOrUpdate, kUpdateOnly, kCreateOnly };

// What becomes of what is stored when a class is declared anew or deleted.
enum class ClassUpdate {
    kSafe,    // the change is refused when anything stored would suffer from it
    kForced,  // what is stored is changed with the class
};

class Repository;
class SchemaUpdate;

// WBEM_E_NOT_FOUND for the instance that `path` names.
Status NoInstance(const Namespace& space, const ObjectPath& path);

// What can be read in one consistent state.
class RepositoryReader {
 public:
    Result<Namespace> FindNamespace(std::string_view path);
    // The names of the namespaces directly below `parent`.
    Result<std::vector<std::string>> ChildNamespaces(const Namespace& parent);

    // WBEM_E_INVALID_CLASS when there is none.
    Result<ClassPtr> FindClass(const Namespace& space, std::string_view name);
    // Every class of the namespace, in the order of their folded names.
    Result<SchemaCache::ClassList> Classes(const Namespace& space);
    // The classes that derive from `superclass`, directly or over others.
    Result<std::vector<ClassPtr>> Subclasses(const Namespace& space, std::string_view superclass);

    // The qualifiers that are declared in the namespace, in the order of their folded names.
    Result<SchemaCache::QualifierList> QualifierDeclarations(const Namespace& space);

    Result<Instance> GetInstance(const Namespace& space, const ObjectPath& path);

    // See StoreReader.
    Status LastChange(uint64_t& number) { return reader_.LastChange(number); }
    Status ScanChanges(uint64_t number, bool& is_complete, FunctionRef<bool(const ChangeView&)> visit) {
        return reader_.ScanChanges(number, is_complete, visit);
    }
    // Numbers the state of the schema that is read.
    uint64_t SchemaGeneration() const noexcept { return cache_->generation(); }

    // What an InstanceCursor needs: see InstanceScan.
    Status BeginScan(InstanceScan& scan, std::vector<uint32_t> class_ids) {
        return scan.Begin(reader_, std::move(class_ids));
    }
    Status ContinueScan(InstanceScan& scan,
                        FunctionRef<bool(size_t class_index, std::string_view record)> visit) {
        return scan.Read(reader_, visit);
    }

 protected:
    friend class Repository;
    friend class SchemaUpdate;
    RepositoryReader(const Repository& repository, StoreReader& reader);
    ~RepositoryReader() = default;

    Status Prepare();
    Result<ClassPtr> LoadClass(const Namespace& space, std::string_view name, size_t depth);

    const Repository& repository_;
    StoreReader& reader_;
    std::shared_ptr<SchemaCache> cache_;
};

// What can be changed in one transaction, and read in its state.
class RepositoryWriter : public RepositoryReader {
 public:
    // The namespace of that path, made with those above it where they are missing. `is_new` tells.
    Result<Namespace> MakeNamespace(std::string_view path, bool& is_new);

    // Declares a class, or declares it anew. A new declaration that takes away what instances of the class or
    // of its subclasses hold, or objects of them in other instances, is refused with their number
    // (WBEM_E_CLASS_HAS_INSTANCES), and so is one that changes how instances are told apart: see
    // ClassChange, which also says what `mode` does to them by force. `is_changed` is false when the class
    // was declared just so already.
    Status PutClass(const Namespace& space, ClassDeclaration declaration, PutCondition condition,
                    bool& is_changed, ClassUpdate mode = ClassUpdate::kSafe);
    // What is put between the two is looked at together, in FinishClasses: see SchemaUpdate. `names` are
    // those of the classes that will be put; `at_fault` names the class, or the qualifier, that is refused.
    Status BeginClasses(const Namespace& space, const std::vector<std::string>& names);
    Status FinishClasses(const Namespace& space, std::string& at_fault);
    // Meanwhile as it is to be.
    Result<ClassPtr> FindClass(const Namespace& space, std::string_view name);

    // WBEM_E_INVALID_OPERATION while another class is declared with the class;
    // WBEM_E_CLASS_HAS_CHILDREN or WBEM_E_CLASS_HAS_INSTANCES, with their number, while there are any; by
    // force they are deleted too, and objects of these classes in other instances become null.
    Status DeleteClass(const Namespace& space, std::string_view name,
                       ClassUpdate update = ClassUpdate::kSafe);

    // Declares a qualifier, or declares it anew; what carries it stays as it is. `is_changed` is false when
    // it was declared just so already.
    Status PutQualifierDeclaration(const Namespace& space, const QualifierDeclaration& declaration,
                                   bool& is_changed);

    // An instance that is stored just so already is not written again, and no change is logged. Embedded
    // objects must be of classes of `space` (WBEM_E_INVALID_CLASS). Of an instance that has only some of its
    // class's properties nothing is written (WBEM_E_INVALID_OBJECT).
    Status PutInstance(const Namespace& space, const Instance& instance, PutCondition condition);
    Status DeleteInstance(const Namespace& space, const ObjectPath& path);

 private:
    friend class Repository;
    friend class SchemaUpdate;
    RepositoryWriter(const Repository& repository, StoreWriter& writer)
        : RepositoryReader(repository, writer), writer_(writer) {}

    // From the first change of the schema on, the transaction has a cache of its own.
    void LeaveSharedCache();
    // `object` as an instance of the class that has its class's name in `space` now, and so the objects
    // within; itself when it is that already.
    Result<ObjectPtr> Settled(const Namespace& space, const ObjectPtr& object);
    Status SettleObjects(const Namespace& space, Instance& instance);
    Status StoreInstance(const Instance& instance, PutCondition condition);
    // Notes a declaration that gives a qualifier another type than the record `stored`, empty for none.
    Status NoteType(const Namespace& space, const QualifierDeclaration& declaration, std::string_view stored);
    // Whether the declarations of qualifiers that were put fit the classes that carry them.
    Status CheckQualifierUse(const Namespace& space, std::string& at_fault);

    StoreWriter& writer_;
    bool has_own_cache_ = false;
    std::unordered_map<uint32_t, std::shared_ptr<SchemaUpdate>> updates_;  // by namespace
    // Put with a type that they did not have, by namespace.
    std::unordered_map<uint32_t, std::vector<QualifierDeclaration>> retyped_qualifiers_;
};

class Repository : public std::enable_shared_from_this<Repository> {
 public:
    // Opens the store in `directory`, made if it does not exist.
    static Result<std::shared_ptr<Repository>> Open(const std::string& directory,
                                                    const StoreOptions& options = {});

    // MGMT_STORE; else /var/lib/mgmt for root, $XDG_DATA_HOME/mgmt or ~/.local/share/mgmt for a user. The
    // environment is not asked in a process with raised privileges.
    static std::string DefaultDirectory();

    // One state for several reads. Within a Read or Write of the same repository on this thread, its state.
    Status Read(FunctionRef<Status(RepositoryReader&)> read) const;
    // One transaction; nothing is changed when `write` returns a fault. `write` may run more than once.
    Status Write(FunctionRef<Status(RepositoryWriter&)> write) const;

    Result<Namespace> FindNamespace(std::string_view path) const;
    Result<ClassPtr> FindClass(const Namespace& space, std::string_view name) const;
    Result<Instance> GetInstance(const Namespace& space, const ObjectPath& path) const;
    Status PutInstance(const Namespace& space, const Instance& instance, PutCondition condition) const;
    Status DeleteInstance(const Namespace& space, const ObjectPath& path) const;

    const std::string& Location() const noexcept { return store_->Location(); }
    const std::shared_ptr<Store>& store() const noexcept { return store_; }

 private:
    friend class RepositoryReader;
    friend class RepositoryWriter;
    class EmbeddedClasses;

    explicit Repository(std::shared_ptr<Store> store) noexcept : store_(std::move(store)) {}

    std::shared_ptr<SchemaCache> CacheFor(uint64_t generation) const;
    std::shared_ptr<SchemaCache> CacheForState(uint64_t state) const noexcept;
    void RememberState(uint64_t state, const std::shared_ptr<SchemaCache>& cache) const;
    // Where the objects that instances of `definition` hold find their classes; null when it has none.
    std::shared_ptr<const ClassSource> ClassSourceFor(const Namespace& space,
                                                      const ClassDefinition& definition) const;

    const std::shared_ptr<Store> store_;
    mutable ForkSafeMutex mutex_;
    mutable std::shared_ptr<SchemaCache> cache_;  // of the newest generation seen
    mutable uint64_t cache_state_ = 0;            // a state of the store that has the cache's generation
};

}  // namespace service
