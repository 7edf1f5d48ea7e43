// Values as the bytes of records, and back. Only for service/store.
//
//   if (Status fault = AppendValue(type, view, bytes, append_object); !fault.ok()) return fault;
//   if (!ReadArray(type, bytes, read_object, array)) return Damaged("the value of a property");
//
// Integers are little-endian:
//
//   scalar    = 1, 2, 4 or 8 bytes for booleans and numbers, UTF-8 for text, the caller's for objects
//   array     = u32 count, fixed-array / text-array
//   fixed-array = u8 has-nulls, [ (count + 7) / 8 bytes, a bit set for a null ], count * scalar
//   text-array  = count * u32 end-and-null, bytes       ; for text and objects; the top bit marks a null
//
// Every byte that is read may be wrong. All functions may be called from any thread.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "service/model/function_ref.h"
#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/model/value.h"

namespace service {

// A record begins with the checksum of its body: XXH64, its low 32 bits.
inline constexpr size_t kChecksumBytes = 4;
uint32_t ChecksumOf(std::string_view body) noexcept;

// WBEM_E_CRITICAL_ERROR: `what` cannot be read, with the way out.
Status Damaged(const std::string& what);

// Bytes of one element of a type that has a fixed size; 0 for text and objects.
inline size_t FixedSizeOf(CimType type) noexcept {
    switch (type) {
        case CimType::kSint8:
        case CimType::kUint8:
        case CimType::kBoolean:
            return 1;
        case CimType::kSint16:
        case CimType::kUint16:
        case CimType::kChar16:
            return 2;
        case CimType::kSint32:
        case CimType::kUint32:
        case CimType::kReal32:
            return 4;
        case CimType::kSint64:
        case CimType::kUint64:
        case CimType::kReal64:
            return 8;
        default:
            return 0;
    }
}

template <typename Integer>
Integer Load(std::string_view bytes) noexcept {
    Integer value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

// `bytes` has the size that FixedSizeOf gives for the type.
inline ValueView LoadFixed(CimType type, std::string_view bytes) noexcept {
    switch (type) {
        case CimType::kSint8:
            return int64_t{Load<int8_t>(bytes)};
        case CimType::kUint8:
            return uint64_t{Load<uint8_t>(bytes)};
        case CimType::kBoolean:
            return Load<uint8_t>(bytes) != 0;
        case CimType::kSint16:
            return int64_t{Load<int16_t>(bytes)};
        case CimType::kUint16:
        case CimType::kChar16:
            return uint64_t{Load<uint16_t>(bytes)};
        case CimType::kSint32:
            return int64_t{Load<int32_t>(bytes)};
        case CimType::kUint32:
            return uint64_t{Load<uint32_t>(bytes)};
        case CimType::kReal32:
            return double{std::bit_cast<float>(Load<uint32_t>(bytes))};
        case CimType::kSint64:
            return Load<int64_t>(bytes);
        case CimType::kUint64:
            return Load<uint64_t>(bytes);
        case CimType::kReal64:
            return std::bit_cast<double>(Load<uint64_t>(bytes));
        default:
            return {};
    }
}

// Appends the bytes of an embedded object; reads one, or says false.
using AppendObject = FunctionRef<Status(const Instance&, std::string&)>;
using ReadObject = FunctionRef<bool(std::string_view, ObjectPtr&)>;

// Appends a value that is not null.
Status AppendValue(CimType type, const ValueView& value, std::string& out, AppendObject append);

// Adds the elements to `array`; false when the bytes are no array of that type, or `read` says so.
bool ReadArray(CimType type, std::string_view bytes, ReadObject read, Array& array);

}  // namespace service
