// ClassChange: what new declarations of classes, or their deletion, do to what is stored. Only for
// service/store.
//
//   ClassChange change(writer, all_classes, {{older, newer}, {older_subclass, newer_subclass}});
//   std::string at_fault;
//   if (Status fault = change.CheckSafe(at_fault); !fault.ok()) return fault;
//   return change.Convert(at_fault);
//
// Safe is what leaves everything stored as it reads, but for defaults and qualifiers. A property may also
// move to another class of the same line. Not safe is to drop a property that instances have set or to change
// its type, to shorten an array below what they hold, to narrow an embedded object's class to one that they
// do not hold objects of, to ask for a value (not_null) where they have none, to change the keys or their
// order, or whether the class is a singleton, and to make a class abstract that has instances of its own,
// each only if there are such instances. Objects embedded in other instances count for those too.
//
// By force instances are rewritten: each value that fits the new type without loss is kept, the others read
// as the default; what a dropped property held is gone; instances are filed under their new keys; those of a
// class that becomes abstract or is deleted are deleted, and objects of a deleted class, or of one that is
// not wanted in its place any more, become null. A value that is asked for must be there then, too. The
// change log has each as what it is: a modification, a deletion, and for an instance with a new key its
// deletion and its creation. In all of them the earlier instance is told by the new class: what was dropped
// or has another type now reads as the default there, and where the keys changed, the key of the deleted one
// is not told.
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
#include <unordered_set>
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
    ClassPtr newer;          // null when the class is deleted
    bool is_forced = false;  // what is not safe is done
    std::string cause;       // the class whose declaration, or deletion, makes the difference
};

class ClassChange {
 public:
    // `all` are the classes of the namespace as they were; `versions` those that become others.
    ClassChange(StoreWriter& writer, SchemaCache::ClassList all, std::vector<ClassVersion> versions);

    // WBEM_E_CLASS_HAS_INSTANCES, naming the class, what is in the way and how many instances are concerned,
    // when something is not safe that is not forced. `at_fault` names the class.
    Status CheckSafe(std::string& at_fault);

    // Rewrites what is stored. WBEM_E_ALREADY_EXISTS names two instances whose new keys would be the same,
    // WBEM_E_ILLEGAL_NULL one that has no value for its new key, or for a property that needs one.
    Status Convert(std::string& at_fault);

 private:
    // What instances of a class may lose, and which.
    enum class Loser {
        kEach,           // every one of them
        kWhoHasSet,      // one that has set the property
        kWhoHoldsMore,   // one whose array is longer than `max_elements`
        kWhoHoldsOther,  // one that holds objects that are not of class `target`
        kWhoHasNone,     // one that has no value of the property
        kNobody          // the property moves, and its values with it
    };
    struct Loss {
        std::string cause;
        std::string what;     // "drops the property Name"
        std::string way_out;  // empty for a deletion
        Loser loser = Loser::kEach;
        size_t property = 0;  // its index in the older class
        size_t max_elements = 0;
        std::string target = {};
        bool has_default = false;  // what has not been set has a value
    };
    struct Concerned {
        std::string way_out;
        std::vector<std::pair<std::string, uint64_t>> classes;  // as they are told, and how many instances
    };
    // By the cause and by what it does.
    using Counts = std::map<std::pair<std::string, std::string>, Concerned>;

    struct Entry {
        std::string key;
        std::string record;
    };

    const ClassVersion* VersionOf(const ClassDefinition& older) const;
    // What the class of an object is now; null when it is deleted.
    ClassPtr NewerOf(const ClassPtr& older) const;
    std::vector<Loss> LossesOf(const ClassVersion& version) const;
    void AddPropertyLosses(const ClassVersion& version, std::vector<Loss>& losses) const;
    void AddMissingValues(const ClassVersion& version, std::vector<Loss>& losses) const;
    Status Loses(const Loss& loss, const Instance& instance, bool& loses) const;
    bool HoldsOther(const ValueView& value, std::string_view target) const;

    Status CountInstances(const ClassVersion& version, Counts& counts);
    Status CountInHolders(Counts& counts);
    Status LossesWithin(const Instance& holder, std::vector<const Loss*>& found);
    Status Refuse(const Counts& counts, std::string& at_fault) const;

    // The classes whose instances may hold objects of a class that loses properties, that is deleted or that
    // does not derive any more from one that it did.
    std::vector<ClassPtr> Holders() const;
    // Visits all instances of a class, which may be changed within; some at a time are held.
    Status ForEachEntry(const ClassDefinition& definition, FunctionRef<Status(Entry&)> visit);

    Status ConvertClass(const ClassPtr& older, const ClassPtr& newer);
    // WBEM_E_ILLEGAL_NULL for an instance without a value that its class asks for.
    static Status CheckValues(const Instance& older, const Instance& newer);
    Status DeleteInstances(const ClassDefinition& definition);
    Status File(const ClassPtr& older, const ClassPtr& newer);
    Result<Instance> Converted(const Instance& instance, const ClassPtr& newer) const;
    // Null for an object of a deleted class, or of one that does not derive from `target`.
    Result<Value> ConvertedObjects(Value value, const std::string& target) const;
    Result<Value> ConvertedObject(const ObjectPtr& object, const std::string& target) const;

    StoreWriter& writer_;
    const SchemaCache::ClassList all_;
    const std::shared_ptr<const ClassSource> sources_;
    const std::vector<ClassVersion> versions_;
    std::unordered_map<uint32_t, const ClassVersion*> by_id_;
    std::unordered_set<std::string> causes_;                  // folded names
    std::unordered_map<uint32_t, std::vector<Loss>> losses_;  // by the class's number
    // What becomes of an object that stays as it is, but has no place any more where it is held.
    std::unordered_map<uint32_t, Loss> leaves_line_;  // by its class's number
};

}  // namespace service
