// What the repository files in the store's schema table; integers big-endian in keys, little-endian in
// records. Only for service/store.
//
//   "N", folded namespace path               -> u32 id, text path, u32 checksum
//   "C", u32 namespace id, folded class name -> class record
//   "Q", u32 namespace id, folded qualifier name -> record of the qualifier's declaration
//
//   store.GetSchema(ClassKey(space.id, "Policy"), record, found);
//
// The checksum is XXH64 of what stands before it, its low 32 bits; a record without one is from before there
// was one. Stateless.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace service {

struct Namespace {
    uint32_t id = 0;
    std::string path;  // "root\A", as first spelled
};

inline constexpr char kNamespaceTag = 'N';
inline constexpr char kClassTag = 'C';
inline constexpr char kQualifierTag = 'Q';

std::string NamespaceKey(std::string_view path);
// Of all classes of a namespace, and of one.
std::string ClassPrefix(uint32_t namespace_id);
std::string ClassKey(uint32_t namespace_id, std::string_view name);

// Of all declarations of qualifiers in a namespace, and of one.
std::string QualifierPrefix(uint32_t namespace_id);
std::string QualifierKey(uint32_t namespace_id, std::string_view name);

// The namespace's number in the key of a class; false for a key that is none.
bool NamespaceIdOfClassKey(std::string_view key, uint32_t& namespace_id) noexcept;

void EncodeNamespace(const Namespace& space, std::string& record);
// False for a damaged record.
bool DecodeNamespace(std::string_view record, Namespace& space);

}  // namespace service
