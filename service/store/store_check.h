// StoreCheck: reads every record of a store and says what does not hold, and how much of each limit is in
// use. Only for service/store and service/com.
//
//   StoreCheck check(*store);
//   SERVICE_RETURN_IF_ERROR(check.Run({on_progress, on_finding}));
//   if (check.counts().findings != 0) ...
//
// What it looks at, in one state of the store, while others may write:
// - how the data file is laid out (Store::FindFaults); where that is damaged the rest is not read;
// - namespaces and classes: that their records are whole, lie where they belong, have numbers of their own,
// and
//   that superclasses and the namespaces above are there;
// - instances: that the record is whole, each property can be read, texts are UTF-8, the classes of the
// instance
//   and of the objects in it are there, and the instance is found by its key;
// - the change log: that no number is missing and each entry is whole.
//
// It holds the classes in memory, and of the instances one. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/store/record_codec.h"
#include "service/store/schema_codec.h"
#include "service/store/schema_records.h"
#include "service/store/store.h"

namespace service {

// The most that anything in the store has of what limits.h bounds.
struct StoreUse {
    uint64_t name_bytes = 0;
    uint64_t namespace_bytes = 0;
    uint64_t key_bytes = 0;
    uint64_t class_depth = 0;
    uint64_t properties = 0;
    uint64_t qualifiers = 0;
    uint64_t embedding_depth = 0;
    uint64_t embedded_objects = 0;
    uint64_t array_elements = 0;
    uint64_t record_bytes = 0;
    uint64_t property_numbers = 0;  // given to the properties of one class in its life
    uint64_t class_numbers = 0;     // given to namespaces and classes of the store in its life
};

class StoreCheck {
 public:
    struct Counts {
        uint64_t namespaces = 0;
        uint64_t classes = 0;
        uint64_t instances = 0;
        uint64_t changes = 0;
        uint64_t findings = 0;
    };
    // Both may be empty. Called on the thread of Run.
    struct Report {
        std::function<void(uint64_t done, uint64_t total)> progress;
        std::function<void(const std::string& sentence)> finding;
    };

    explicit StoreCheck(Store& store) noexcept : store_(store) {}

    // A fault means that the store could not be read to its end; what is wrong with it are findings.
    Status Run(Report report);

    const Counts& counts() const noexcept { return counts_; }
    const StoreUse& use() const noexcept { return use_; }

 private:
    struct Known {
        ClassPtr definition;
        const std::string* space = nullptr;  // the namespace's path
        std::shared_ptr<const ClassSource> sources;
    };
    struct Declared {
        ClassRecord record;
        uint32_t namespace_id = 0;
        ClassPtr definition;
        bool is_resolved = false;
    };

    void Find(const std::string& sentence);
    void Proceed();

    Status CheckRecords(StoreReader& reader);
    Status CheckSchema(StoreReader& reader);
    void ReadNamespace(std::string_view key, std::string_view record);
    void ReadClass(std::string_view key, std::string_view record);
    void ReadQualifierDeclaration(std::string_view key, std::string_view record);
    void TakeNumber(uint32_t id, uint32_t last_id, const std::string& what);
    void ResolveClasses(uint32_t last_id);
    ClassPtr Resolve(const std::string& key, size_t depth);
    // Whether the classes that its properties are declared with are there.
    void CheckNames(const ClassDefinition& definition, uint32_t namespace_id);
    void NoteClass(const ClassDefinition& definition);
    std::string SpaceOf(uint32_t namespace_id) const;

    void CheckInstance(uint32_t class_id, const InstanceView& found, bool is_reachable);
    // What is wrong with the values of an instance, its objects included; they are measured on the way.
    Status CheckValues(const Instance& instance);
    static Status CheckTarget(const PropertyDefinition& property, const ValueView& value);
    Status CheckArray(const Array& array);
    void CheckChange(uint64_t number, const ChangeView* change);

    Store& store_;
    Report report_;
    Counts counts_;
    StoreUse use_;
    uint64_t done_ = 0;
    uint64_t total_ = 0;
    uint64_t last_change_ = 0;

    std::unordered_map<uint32_t, std::string> spaces_;    // paths by number
    std::unordered_map<std::string, Declared> declared_;  // by the key in the store
    std::unordered_map<uint32_t, Known> classes_;         // by number
    std::unordered_map<uint32_t, std::string> numbers_;   // what has a number
};

}  // namespace service
