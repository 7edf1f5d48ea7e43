// The value is two slots of kSlotBytes:
//
//   slot = u64 checksum, u64 number, u64 boot, u32 size, operations      ; XXH64 of all that follows it
#include "service/store/redo_slots.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/store/bytes.h"

namespace service {
namespace {

constexpr size_t kHeaderBytes = 28;
constexpr size_t kChecksumBytes = 8;
constexpr size_t kSlotBytes = RedoSlots::kCapacity + kHeaderBytes;
constexpr size_t kPageHeaderBytes = 16;
constexpr int kAttempts = 1000;
constexpr std::string_view kKey = "slots";

MDB_val KeyValue() noexcept {
    return {kKey.size(), const_cast<char*>(kKey.data())};
}

uint64_t ChecksumOf(std::string_view bytes) noexcept {
    return XXH64(bytes.data(), bytes.size(), 0);
}

}  // namespace

int RedoSlots::Create(MDB_txn* txn, MDB_dbi table) {
    MDB_val key = KeyValue();
    MDB_val value{2 * kSlotBytes, nullptr};
    const int code = mdb_put(txn, table, &key, &value, MDB_RESERVE | MDB_NOOVERWRITE);
    if (code == 0) std::memset(value.mv_data, 0, value.mv_size);
    return code == MDB_KEYEXIST ? 0 : code;
}

int RedoSlots::Locate(MDB_env* env, MDB_txn* txn, MDB_dbi table, uint64_t boot) {
    boot_ = boot;
    MDB_val key = KeyValue(), value{};
    int code = mdb_get(txn, table, &key, &value);
    if (code == 0 && value.mv_size != 2 * kSlotBytes) code = MDB_CORRUPTED;
    MDB_stat facts{};
    if (code == 0) code = mdb_stat(txn, table, &facts);
    if (code == 0) code = mdb_env_get_fd(env, &fd_);
    if (code != 0) return code;
    // A value with pages to itself begins behind the header of its first page, and that with its number.
    size_t page = 0;
    std::memcpy(&page, static_cast<const char*>(value.mv_data) - kPageHeaderBytes, sizeof page);
    place_ = static_cast<int64_t>(page * facts.ms_psize + kPageHeaderBytes);
    return IsPlaceOf(value) ? 0 : MDB_CORRUPTED;
}

// Whether what the file holds there is what LMDB has mapped: writing anywhere else would destroy the store.
// Another process may be writing a slot, so a difference is looked at again.
bool RedoSlots::IsPlaceOf(const MDB_val& value) const {
    std::string bytes(value.mv_size, '\0');
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (pread(fd_, bytes.data(), bytes.size(), place_) != static_cast<ssize_t>(bytes.size()))
            return false;
        if (std::memcmp(bytes.data(), value.mv_data, bytes.size()) == 0) return true;
    }
    return false;
}

int64_t RedoSlots::PlaceOf(uint64_t number) const noexcept {
    return place_ + static_cast<int64_t>((number & 1) * kSlotBytes);
}

bool RedoSlots::Write(uint64_t number, std::string_view operations) noexcept {
    if (operations.size() > kCapacity) return false;
    try {
        buffer_.clear();
        ByteWriter out(buffer_);
        out.U64(0);
        out.U64(number);
        out.U64(boot_);
        out.U32(static_cast<uint32_t>(operations.size()));
        out.Raw(operations);
    } catch (...) {
        return false;
    }
    const uint64_t checksum = ChecksumOf(std::string_view(buffer_).substr(kChecksumBytes));
    std::memcpy(buffer_.data(), &checksum, sizeof checksum);
    return pwrite(fd_, buffer_.data(), buffer_.size(), PlaceOf(number)) ==
           static_cast<ssize_t>(buffer_.size());
}

bool RedoSlots::EmptyIn(int fd) const {
    const std::string nothing(2 * kSlotBytes, '\0');
    return pwrite(fd, nothing.data(), nothing.size(), place_) == static_cast<ssize_t>(nothing.size());
}

bool RedoSlots::Read(uint64_t number, std::string& operations) const {
    uint64_t boot = 0;
    return Read(number, operations, boot);
}

bool RedoSlots::ReadLost(uint64_t number, std::string& operations) const {
    uint64_t boot = 0;
    return Read(number, operations, boot) && (boot == 0 || boot != boot_);
}

bool RedoSlots::Read(uint64_t number, std::string& operations, uint64_t& boot) const {
    std::string slot(kSlotBytes, '\0');
    if (pread(fd_, slot.data(), slot.size(), PlaceOf(number)) != static_cast<ssize_t>(slot.size()))
        return false;
    ByteReader in(slot);
    const uint64_t checksum = in.U64();
    const std::string_view checked = in.rest();
    const bool is_wanted = in.U64() == number;
    boot = in.U64();
    const uint32_t size = in.U32();
    const std::string_view found = in.Raw(size);
    if (!in.ok() || !is_wanted) return false;
    if (checksum != ChecksumOf(checked.substr(0, kHeaderBytes - kChecksumBytes + size))) return false;
    operations = found;
    return true;
}

}  // namespace service
