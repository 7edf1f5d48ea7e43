// SchemaCache: the namespaces' classes as far as they were asked for, all of one generation of the schema.
// Only for service/store.
//
//   if (ClassPtr c = cache.Find(namespace_id, name)) return c;
//   cache.Add(namespace_id, name, loaded);
//
// A class found here costs no read of the store. Any number of threads may use one cache.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/model/class_definition.h"
#include "service/store/fork.h"

namespace service {

class SchemaCache {
 public:
    explicit SchemaCache(uint64_t generation) noexcept : generation_(generation) {}

    uint64_t generation() const noexcept { return generation_; }

    // The class that was added under this spelling of its name; null when none was.
    ClassPtr Find(uint32_t namespace_id, std::string_view name) const;
    void Add(uint32_t namespace_id, std::string_view name, ClassPtr definition);

    // All classes of a namespace; null until they were set.
    using ClassList = std::shared_ptr<const std::vector<ClassPtr>>;
    ClassList FindAll(uint32_t namespace_id) const;
    void SetAll(uint32_t namespace_id, ClassList classes);

    // The declarations of a namespace's qualifiers; null until they were set, and again when set to null.
    using QualifierList = std::shared_ptr<const std::vector<QualifierDeclaration>>;
    QualifierList FindQualifiers(uint32_t namespace_id) const;
    void SetQualifiers(uint32_t namespace_id, QualifierList qualifiers);

    // Forgets the lists of classes, for when one was added.
    void ClearLists();
    // Puts the newer versions of classes in place of those that have their numbers, under every spelling, and
    // forgets what is `gone`.
    void Replace(uint32_t namespace_id, const std::vector<ClassPtr>& newer,
                 const std::vector<ClassPtr>& gone);

 private:
    struct TextHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>{}(text);
        }
    };

    const uint64_t generation_;
    mutable ForkSafeMutex mutex_;
    std::unordered_map<std::string, ClassPtr, TextHash, std::equal_to<>> classes_;  // by number and spelling
    std::unordered_map<uint32_t, ClassList> lists_;
    std::unordered_map<uint32_t, QualifierList> qualifiers_;
};

}  // namespace service
