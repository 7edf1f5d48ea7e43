// Every limit of the service, in one place. What exceeds one is refused with a status that names it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace service {

// Bytes of UTF-8 in the name of a class, property, qualifier or method.
inline constexpr size_t kMaxNameBytes = 255;

// Bytes of UTF-8 in a namespace's whole path, and names in it.
inline constexpr size_t kMaxNamespaceBytes = 480;

// Bytes of UTF-8 in the values of an instance's key properties together. (LMDB's own limit of 511 bytes a
// key does not show: the store keeps longer keys too.)
inline constexpr size_t kMaxKeyBytes = 65'535;

// Superclasses above a class.
inline constexpr size_t kMaxClassDepth = 64;

// Properties of a class, the inherited ones included.
inline constexpr size_t kMaxProperties = 4'096;

// Methods of a class, the inherited ones included, and parameters of one.
inline constexpr size_t kMaxMethods = 4'096;
inline constexpr size_t kMaxParameters = 256;

// Qualifiers that a class or a property is given.
inline constexpr size_t kMaxQualifiers = 1'024;

// Embedded objects within embedded objects.
inline constexpr size_t kMaxEmbeddingDepth = 128;

// Embedded objects in the value of one property, those within others included.
inline constexpr uint32_t kMaxEmbeddedObjects = 100'000;

// Files that include one another in a schema.
inline constexpr size_t kMaxIncludeDepth = 64;

// Elements of an array value.
inline constexpr size_t kMaxArrayElements = 16'777'216;

// Bytes of the record of one instance or class.
inline constexpr size_t kMaxRecordBytes = size_t{256} << 20;

// Bytes of an instance's path that a message shows.
inline constexpr size_t kMaxShownPath = 300;

}  // namespace service
