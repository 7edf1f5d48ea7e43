// ClassChange: what a new declaration of a class, or its deletion, does to what is stored. Only for
// service/store.
//
//   ClassChange change(writer, all_classes, {{older, newer}, {older_subclass, newer_subclass}});
//   if (Status fault = change.CheckSafe(); !fault.ok()) return fault;   // or change.Convert()
//
// Safe is what leaves everything stored as it reads, but for defaults and qualifiers. Not safe is to drop or
// redeclare a property that instances have set, to shorten an array below what they hold, to change the keys
// or their order, or whether the class is a singleton, and to make a class abstract that has instances of its
// own, each only if there are such instances. Objects embedded in other instances count for those too.
//
// By force instances are rewritten: each value that fits the new type without loss is kept, the others read
// as the default; what a dropped property held is gone; instances are filed under their new keys; those of a
// class that becomes abstract or is deleted are deleted, and objects of a deleted class become null. The
// change log has each as what it is: a modification, a deletion, and for an instance with a new key its
// deletion and its creation. In a modification the earlier instance is told by the new class, so that what
// was dropped or has another type now reads as the default there.
//
// Instances are looked at one class after the other, some at a time; only where keys change all of a class
// are held in memory. Belongs to one transaction and its thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/function_ref.h"
#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/store/record_codec.h"
#include "service/store/schema_cache.h"
#include "service/store/store.h"

namespace service {

struct ClassVersion {
    ClassPtr older;
    ClassPtr newer;  // null when the class is deleted
};

class ClassChange {
 public:
    // `all` are the classes of the namespace as they were; `versions` the class that is changed, then its
    // subclasses.
    ClassChange(StoreWriter& writer, SchemaCache::ClassList all, std::vector<ClassVersion> versions);

    // WBEM_E_CLASS_HAS_INSTANCES, naming the class, what is in the way and how many instances are concerned.
    Status CheckSafe();

    // Rewrites what is stored. WBEM_E_ALREADY_EXISTS names two instances whose new keys would be the same,
    // WBEM_E_ILLEGAL_NULL one that has no value for its new key.
    Status Convert();

 private:
    // One thing that instances of a class would lose; a property's index in the older class, or all of it.
    struct Loss {
        std::string what;  // "drops the property Name"
        std::optional<size_t> property;
        bool is_shortened = false;  // only arrays longer than `max_elements` lose
        size_t max_elements = 0;
    };
    struct Entry {
        std::string key;
        std::string record;
    };
    // By what is lost: how many instances of which class.
    using Counts = std::map<std::string, std::vector<std::pair<std::string, uint64_t>>>;

    const ClassVersion* VersionOf(const ClassDefinition& older) const;
    static std::vector<Loss> LossesOf(const ClassVersion& version);
    static Status Loses(const Loss& loss, const Instance& instance, bool& loses);

    Status CountInstances(const ClassVersion& version, Counts& counts);
    Status CountInHolders(Counts& counts);
    Status LossesWithin(const Instance& holder, std::vector<std::string>& found);
    Status Refuse(const Counts& counts) const;

    // The classes, other than those that change, whose instances may hold objects of a class that loses
    // properties or is deleted.
    std::vector<ClassPtr> Holders() const;
    // Visits all instances of a class, which may be changed within; some at a time are held.
    Status ForEachEntry(const ClassDefinition& definition, FunctionRef<Status(Entry&)> visit);

    Status ConvertClass(const ClassPtr& older, const ClassPtr& newer);
    Status DeleteInstances(const ClassDefinition& definition);
    Status File(const ClassPtr& older, const ClassPtr& newer);
    Result<Instance> Converted(const Instance& instance, const ClassPtr& newer) const;
    Result<Value> ConvertedObjects(Value value) const;
    Result<Value> ConvertedObject(const ObjectPtr& object) const;

    StoreWriter& writer_;
    const SchemaCache::ClassList all_;
    const std::shared_ptr<const ClassSource> sources_;
    const std::vector<ClassVersion> versions_;
    std::unordered_map<uint32_t, const ClassVersion*> by_id_;
    std::unordered_map<uint32_t, std::vector<Loss>> losses_;  // by the class's number
};

}  // namespace service
