#include "service/store/schema_cache.h"

#include <array>
#include <cstring>
#include <utility>

#include "service/model/limits.h"

namespace service {
namespace {

// A name may be spelled in very many ways; a caller that tries them all must not fill the memory.
constexpr size_t kMaxSpellings = 65'536;

// The namespace's number and the name in one text, without an allocation.
class CacheKey {
 public:
    CacheKey(uint32_t namespace_id, std::string_view name) noexcept
        : size_(sizeof namespace_id + name.size()) {
        std::memcpy(bytes_.data(), &namespace_id, sizeof namespace_id);
        std::memcpy(bytes_.data() + sizeof namespace_id, name.data(), name.size());
    }
    std::string_view view() const noexcept { return {bytes_.data(), size_}; }

 private:
    std::array<char, sizeof(uint32_t) + kMaxNameBytes> bytes_;
    size_t size_;
};

}  // namespace

ClassPtr SchemaCache::Find(uint32_t namespace_id, std::string_view name) const {
    if (name.size() > kMaxNameBytes) return nullptr;
    const CacheKey key(namespace_id, name);
    const std::lock_guard lock(mutex_);
    const auto found = classes_.find(key.view());
    return found == classes_.end() ? nullptr : found->second;
}

void SchemaCache::Add(uint32_t namespace_id, std::string_view name, ClassPtr definition) {
    if (name.size() > kMaxNameBytes) return;
    const CacheKey key(namespace_id, name);
    const std::lock_guard lock(mutex_);
    if (classes_.size() >= kMaxSpellings) classes_.clear();
    classes_.emplace(key.view(), std::move(definition));
}

SchemaCache::ClassList SchemaCache::FindAll(uint32_t namespace_id) const {
    const std::lock_guard lock(mutex_);
    const auto found = lists_.find(namespace_id);
    return found == lists_.end() ? nullptr : found->second;
}

void SchemaCache::SetAll(uint32_t namespace_id, ClassList classes) {
    const std::lock_guard lock(mutex_);
    lists_[namespace_id] = std::move(classes);
}

SchemaCache::QualifierList SchemaCache::FindQualifiers(uint32_t namespace_id) const {
    const std::lock_guard lock(mutex_);
    const auto found = qualifiers_.find(namespace_id);
    return found == qualifiers_.end() ? nullptr : found->second;
}

void SchemaCache::SetQualifiers(uint32_t namespace_id, QualifierList qualifiers) {
    const std::lock_guard lock(mutex_);
    qualifiers_[namespace_id] = std::move(qualifiers);
}

void SchemaCache::ClearLists() {
    const std::lock_guard lock(mutex_);
    lists_.clear();
}

void SchemaCache::Replace(uint32_t namespace_id, const std::vector<ClassPtr>& newer,
                          const std::vector<ClassPtr>& gone) {
    std::unordered_map<uint32_t, ClassPtr> versions;
    for (const ClassPtr& definition : newer)
        versions[definition->Id()] = definition;
    for (const ClassPtr& definition : gone)
        versions[definition->Id()] = nullptr;

    const std::lock_guard lock(mutex_);
    // Numbers of classes are unique in the whole store.
    std::erase_if(classes_, [&](const auto& entry) { return versions.contains(entry.second->Id()); });
    for (const ClassPtr& definition : newer)
        classes_.emplace(CacheKey(namespace_id, definition->Name()).view(), definition);
    ClassList& list = lists_[namespace_id];
    if (!list) return;
    auto updated = std::make_shared<std::vector<ClassPtr>>();
    updated->reserve(list->size());
    for (const ClassPtr& definition : *list) {
        const auto version = versions.find(definition->Id());
        if (version == versions.end()) {
            updated->push_back(definition);
        } else if (version->second) {
            updated->push_back(version->second);
        }
    }
    list = std::move(updated);
}

}  // namespace service
