// How instances are filed in LMDB's table, and a cursor that closes itself. Only for service/store.
//
//   InstanceTableKey table_key(class_id, key);
//   MDB_val k = table_key.value();
//
//   short-key = u32 class-id, 0x00, key
//   long-key  = u32 class-id, 0x01, the key's first kLongKeyPrefix bytes, u64 XXH3 of the key, u16 ordinal
//               ; keys that agree in prefix and hash have ordinals 0, 1, 2, ... without a gap
//
// Integers are big-endian. Plain values; a cursor belongs to its transaction.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#define XXH_INLINE_ALL
#include <lmdb.h>
#include <xxhash.h>

#include "service/store/bytes.h"

namespace service {

inline constexpr size_t kMaxLmdbKey = 511;
inline constexpr size_t kClassBytes = 4;
inline constexpr size_t kOrdinalBytes = 2;
inline constexpr size_t kKeyHeader = kClassBytes + 1;
inline constexpr size_t kLongKeyPrefix = 400;
inline constexpr unsigned kMaxLongKeyOrdinal = 0xFFFF;

// A key of the table `instances`, without an allocation.
class InstanceTableKey {
 public:
    InstanceTableKey(uint32_t class_id, std::string_view key) noexcept
        : is_long_(kKeyHeader + key.size() > kMaxLmdbKey) {
        AppendBigEndian(class_id, kClassBytes);
        bytes_[size_++] = is_long_ ? 1 : 0;
        const std::string_view kept = is_long_ ? key.substr(0, kLongKeyPrefix) : key;
        size_ += kept.copy(bytes_.data() + size_, kept.size());
        if (!is_long_) return;
        AppendBigEndian(XXH3_64bits(key.data(), key.size()), 8);
        AppendBigEndian(0, kOrdinalBytes);
    }

    // Of all keys of the class `class_id` that are not before `place`.
    static InstanceTableKey From(uint32_t class_id, std::string_view place) noexcept {
        InstanceTableKey key;
        key.AppendBigEndian(class_id, kClassBytes);
        key.size_ += place.copy(key.bytes_.data() + key.size_, kMaxLmdbKey - key.size_);
        return key;
    }

    bool IsLong() const noexcept { return is_long_; }
    void SetOrdinal(unsigned ordinal) noexcept {
        size_ -= kOrdinalBytes;
        AppendBigEndian(ordinal, kOrdinalBytes);
    }
    MDB_val value() noexcept { return {size_, bytes_.data()}; }
    std::string_view place() const noexcept { return PlaceIn({bytes_.data(), size_}); }

    static uint32_t ClassIn(std::string_view table_key) noexcept {
        uint32_t class_id = 0;
        for (size_t i = 0; i < std::min(kClassBytes, table_key.size()); ++i)
            class_id = class_id << 8 | static_cast<uint8_t>(table_key[i]);
        return class_id;
    }

    // The place is what a key of the table has of an instance, but for the ordinal of a long one.
    static std::string_view PlaceIn(std::string_view table_key) noexcept {
        table_key.remove_prefix(std::min(kClassBytes, table_key.size()));
        if (IsLongPlace(table_key)) table_key.remove_suffix(std::min(kOrdinalBytes, table_key.size()));
        return table_key;
    }
    static bool IsLongPlace(std::string_view place) noexcept { return !place.empty() && place[0] == 1; }

 private:
    InstanceTableKey() noexcept = default;

    void AppendBigEndian(uint64_t value, size_t count) noexcept {
        while (count-- > 0)
            bytes_[size_++] = static_cast<char>(value >> (8 * count));
    }

    std::array<char, kMaxLmdbKey> bytes_{};
    size_t size_ = 0;
    bool is_long_ = false;
};

// Splits what stands under a long key; false for a damaged entry.
inline bool SplitLongEntry(std::string_view entry, std::string_view& key, std::string_view& record) noexcept {
    ByteReader in(entry);
    key = in.Text();
    record = in.rest();
    return in.ok();
}

class Cursor {
 public:
    Cursor() = default;
    ~Cursor() {
        if (cursor_) mdb_cursor_close(cursor_);
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    int Open(MDB_txn* txn, MDB_dbi table) noexcept { return mdb_cursor_open(txn, table, &cursor_); }
    int Get(MDB_val& key, MDB_val& value, MDB_cursor_op operation) noexcept {
        return mdb_cursor_get(cursor_, &key, &value, operation);
    }

 private:
    MDB_cursor* cursor_ = nullptr;
};

}  // namespace service
