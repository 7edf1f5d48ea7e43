// An instance: its class, and the values that were set.
//
//   Instance policy(c);
//   if (Status fault = policy.Set(*c->FindProperty("KeepDays"), uint64_t{30}); !fault.ok()) ...
//   Value storage; ValueView view;
//   if (Status fault = policy.Read(index, storage, view); !fault.ok()) ...
//
// Null, an empty text and "never set" are three different things: a property never set reads as its class's
// default. An instance that came from the store keeps its record as it is and decodes a property when it is
// asked for. An instance belongs to one thread at a time; const operations may run on any number of threads.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/value.h"

namespace service {

// Where an instance's values come from as long as they were not changed: the store's record.
class StoredProperties {
 public:
    virtual ~StoredProperties() = default;

    // Reads the value stored for `property`, the one at `index` in its class: `is_set` tells whether there is
    // one. The view refers to this object or to `storage`. A damaged record is a fault.
    virtual Status Read(const PropertyDefinition& property, size_t index, bool& is_set, Value& storage,
                        ValueView& view) const = 0;

    // Whether there is one, without decoding it.
    virtual bool Has(const PropertyDefinition& property, size_t index) const noexcept = 0;
};

// The objects embedded in something: how deep they go, and how many there are. One that is embedded in
// several places counts in each.
struct Embedding {
    uint32_t depth = 0;
    uint32_t objects = 0;
};

class Instance {
 public:
    // No property set.
    explicit Instance(ClassPtr definition) : class_(std::move(definition)) {}
    Instance(ClassPtr definition, std::shared_ptr<const StoredProperties> stored)
        : class_(std::move(definition)), stored_(std::move(stored)) {}

    const ClassPtr& Class() const noexcept { return class_; }

    // The value of the property at `index`; the class's default where none was set. The view refers to this
    // instance or to `storage` and is valid until either changes.
    Status Read(size_t index, Value& storage, ValueView& view) const;

    // The same without the default: `is_set` is false for a property never set.
    Status ReadOwn(size_t index, bool& is_set, Value& storage, ValueView& view) const;

    // Whether the property was set, to null or to a value.
    bool IsSet(size_t index) const noexcept;

    // Sets the property after CheckValue; the fault names class and property.
    Status Set(size_t index, Value value);

    // Puts the property back to "never set".
    void Unset(size_t index);

    // Whether Set or Unset was called since the instance was read from the store.
    bool IsChanged() const noexcept { return !changes_.empty(); }

    // Computed once and kept until an object is set: an object may be shared by very many others.
    Embedding EmbeddedObjects() const;

    // The record the instance was read from, null for one made here.
    const std::shared_ptr<const StoredProperties>& Stored() const noexcept { return stored_; }

    // The same values as an instance of `newer`, another version of its class.
    Result<Instance> MovedTo(const ClassPtr& newer) const;

 private:
    enum class Change : uint8_t { kNone, kSet, kUnset };
    struct Slot {
        Change change = Change::kNone;
        Value value;
    };
    Slot& SlotAt(size_t index);

    // An Embedding that const operations on several threads may compute; 0 while it is not known.
    class KeptEmbedding {
     public:
        KeptEmbedding() = default;
        KeptEmbedding(const KeptEmbedding& other) noexcept : packed_(other.packed_.load()) {}
        KeptEmbedding& operator=(const KeptEmbedding& other) noexcept {
            packed_ = other.packed_.load();
            return *this;
        }
        uint64_t Load() const noexcept { return packed_.load(std::memory_order_relaxed); }
        void Store(uint64_t packed) const noexcept { packed_.store(packed, std::memory_order_relaxed); }

     private:
        mutable std::atomic<uint64_t> packed_{0};
    };

    ClassPtr class_;
    std::shared_ptr<const StoredProperties> stored_;
    std::vector<Slot> changes_;  // empty, or one slot a property
    KeptEmbedding embedding_;
};

// Whether both are of the same class name and every property has the same value.
bool SameInstance(const Instance& a, const Instance& b);

// The objects in `value`, none for a value that holds none.
Embedding EmbeddedObjectsOf(const ValueView& value);

}  // namespace service
