// LmdbRecords: one transaction's view of the tables of an LMDB store; a writer's changes come on top. Only
// for service/store.
//
//   LmdbRecords reader(environment, txn.get(), nullptr);
//   return read(reader);
//
// The tables. Integers in keys are big-endian where order matters.
//
//   meta       "format" u32, "schema-generation" u64, "next-id" u32
//   schema     what the repository files there
//   instances  short-key -> record                        ; keys that fit LMDB's limit
//              long-key  -> u32 length, key, record
//   log        u64 number (native order) -> change
//
//   short-key, long-key: see lmdb_keys.h
//   change    = u8 format (2), u32 checksum, contents          ; XXH64 of the contents, its low 32 bits
//             | u8 format (1), contents                        ; from before there was a checksum
//   contents  = u8 kind, u32 class-id, u64 time, u32 length, key, u32 length, before, u32 length, after
//
// Belongs to its transaction and its thread.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "service/store/bytes.h"
#include "service/store/lmdb_environment.h"
#include "service/store/lmdb_keys.h"
#include "service/store/store.h"

namespace service {

inline constexpr uint8_t kChangeFormat = 2;
inline constexpr uint8_t kChangeFormatBefore = 1;
// Old entries go some at a time, so that not every change pays for removing one.
inline constexpr int kLogTrimBatch = 64;
inline constexpr std::string_view kGenerationKey = "schema-generation";
inline constexpr std::string_view kNextIdKey = "next-id";

inline uint32_t ChangeChecksumOf(std::string_view bytes) noexcept {
    return static_cast<uint32_t>(XXH64(bytes.data(), bytes.size(), 0));
}

inline bool DecodeChange(uint64_t number, std::string_view bytes, ChangeView& change) noexcept {
    ByteReader in(bytes);
    const uint8_t format = in.U8();
    if (format != kChangeFormat && format != kChangeFormatBefore) return false;
    if (format == kChangeFormat && in.U32() != ChangeChecksumOf(in.rest())) return false;
    change.number = number;
    change.kind = static_cast<ChangeKind>(in.U8());
    change.class_id = in.U32();
    change.time_ns = static_cast<int64_t>(in.U64());
    change.key = in.Text();
    change.before = in.Text();
    change.after = in.Text();
    return in.ok() && in.AtEnd();
}

class LmdbRecords final : public StoreWriter {
 public:
    // `writer` is null for a transaction that only reads.
    LmdbRecords(LmdbEnvironment& environment, MDB_txn* txn, WriteTransaction* writer) noexcept
        : environment_(environment), txn_(txn), writer_(writer) {}

    // Whether the change log has new entries.
    bool HasLogged() const noexcept { return has_logged_; }

    // Whether an operation met a full map: the transaction must be run again in a larger one.
    bool NeedsRoom() const noexcept { return needs_room_; }

    // A writer's own number is that of the state it will leave; it began from the one before.
    uint64_t StateNumber() const noexcept override { return mdb_txn_id(txn_) - (writer_ ? 1 : 0); }

    Status SchemaGeneration(uint64_t& generation) override { return GetNumber(kGenerationKey, generation); }

    Status GetSchema(std::string_view key, std::string_view& record, bool& found) override {
        MDB_val k = ValueOf(key), v{};
        return Found(mdb_get(txn_, tables().schema, &k, &v), v, record, found);
    }

    Status ScanSchema(std::string_view prefix,
                      FunctionRef<bool(std::string_view, std::string_view)> visit) override {
        return ScanFrom(tables().schema, ValueOf(prefix), prefix.size(),
                        [&](std::string_view key, std::string_view record, bool& go_on) {
                            go_on = visit(key, record);
                            return Status();
                        });
    }

    Status GetInstance(uint32_t class_id, std::string_view key, std::string_view& record,
                       bool& found) override {
        InstanceTableKey table_key(class_id, key);
        if (table_key.IsLong()) {
            unsigned ordinal = 0;
            return FindLong(table_key, key, ordinal, record, found);
        }
        MDB_val k = table_key.value(), v{};
        return Found(mdb_get(txn_, tables().instances, &k, &v), v, record, found);
    }

    std::string PlaceOf(uint32_t class_id, std::string_view key) const override {
        return std::string(InstanceTableKey(class_id, key).place());
    }

    Status ScanInstances(uint32_t class_id, std::string_view place,
                         FunctionRef<bool(const InstanceView&)> visit) override {
        InstanceTableKey start = InstanceTableKey::From(class_id, place);
        MapRange scanned;
        Status fault = ScanFrom(tables().instances, start.value(), kClassBytes,
                                [&](std::string_view table_key, std::string_view entry, bool& go_on) {
                                    InstanceView found;
                                    scanned.Add(entry);
                                    found.place = InstanceTableKey::PlaceIn(table_key);
                                    if (found.place == place) return Status();
                                    if (!InstanceTableKey::IsLongPlace(found.place)) {
                                        found.key =
                                            found.place.substr(std::min<size_t>(1, found.place.size()));
                                        found.record = entry;
                                    } else if (!SplitLongEntry(entry, found.key, found.record)) {
                                        return Damaged("an instance with a long key");
                                    }
                                    go_on = visit(found);
                                    return Status();
                                });
        // What a writer reads may lie outside the map.
        if (!writer_) environment_.LetGo(scanned);
        return fault;
    }

    Status ScanAllSchema(FunctionRef<bool(std::string_view, std::string_view)> visit) override {
        return ScanAll(tables().schema, visit);
    }

    Status LastId(uint32_t& id) override {
        uint64_t last = 0;
        SERVICE_RETURN_IF_ERROR(GetNumber(kNextIdKey, last));
        if (last > UINT32_MAX) return Damaged("the number of the last class");
        id = static_cast<uint32_t>(last);
        return {};
    }

    Status ScanAllInstances(FunctionRef<bool(uint32_t, const InstanceView&, bool)> visit) override {
        MapRange scanned;
        constexpr size_t kPlacesBetweenLetGo = 4096;
        size_t places = 0;
        Status fault = ScanAll(tables().instances, [&](std::string_view table_key, std::string_view entry) {
            InstanceView found;
            scanned.Add(entry);
            if (!writer_ && ++places % kPlacesBetweenLetGo == 0) {
                environment_.LetGo(scanned);
                scanned = {};
            }
            const uint32_t class_id = InstanceTableKey::ClassIn(table_key);
            found.place = InstanceTableKey::PlaceIn(table_key);
            bool is_reachable = true;
            if (!InstanceTableKey::IsLongPlace(found.place)) {
                found.key = found.place.substr(std::min<size_t>(1, found.place.size()));
                found.record = entry;
                is_reachable = !found.place.empty() && found.place[0] == 0;
            } else if (SplitLongEntry(entry, found.key, found.record)) {
                std::string_view record;
                bool is_there = false;
                is_reachable = GetInstance(class_id, found.key, record, is_there).ok() && is_there &&
                               record.data() == found.record.data();
            } else {
                found.record = {};
            }
            return visit(class_id, found, is_reachable);
        });
        if (!writer_) environment_.LetGo(scanned);
        return fault;
    }

    Status ScanLog(FunctionRef<bool(uint64_t, const ChangeView*)> visit) override {
        return ScanAll(tables().log, [&](std::string_view key, std::string_view entry) {
            uint64_t number = 0;
            if (key.size() == sizeof number) std::memcpy(&number, key.data(), sizeof number);
            ChangeView change;
            return visit(number, DecodeChange(number, entry, change) ? &change : nullptr);
        });
    }

    Status LastChange(uint64_t& number) override { return EndOfLog(MDB_LAST, number); }

    Status ScanChanges(uint64_t number, bool& is_complete,
                       FunctionRef<bool(const ChangeView&)> visit) override {
        is_complete = true;
        Cursor cursor;
        uint64_t from = number + 1;
        MDB_val k{sizeof from, &from}, v{};
        int code = cursor.Open(txn_, tables().log);
        if (code == 0) code = cursor.Get(k, v, MDB_SET_RANGE);
        for (bool is_first = true; code == 0; code = cursor.Get(k, v, MDB_NEXT), is_first = false) {
            uint64_t found = 0;
            std::memcpy(&found, k.mv_data, sizeof found);
            if (is_first && found != from) is_complete = false;
            ChangeView change;
            if (!DecodeChange(found, ViewOf(v), change))
                return Damaged("entry " + std::to_string(found) + " of the change log");
            if (!visit(change)) return {};
        }
        return code == MDB_NOTFOUND ? Status() : Fault(code);
    }

    Status NextId(uint32_t& id) override {
        uint64_t last = 0;
        SERVICE_RETURN_IF_ERROR(GetNumber(kNextIdKey, last));
        if (last >= UINT32_MAX)
            return {WBEM_E_QUOTA_VIOLATION, "the store has no numbers for further classes"};
        id = static_cast<uint32_t>(last + 1);
        return PutNumber(kNextIdKey, last + 1);
    }

    Status PutSchema(std::string_view key, std::string_view record) override {
        MDB_val k = ValueOf(key), v = ValueOf(record);
        if (const int code = writer_->Put(tables().schema, k, v); code != 0) return Fault(code);
        return SchemaChanged();
    }

    Status DeleteSchema(std::string_view key) override {
        MDB_val k = ValueOf(key);
        if (const int code = writer_->Delete(tables().schema, k); code != 0 && code != MDB_NOTFOUND) {
            return Fault(code);
        }
        return SchemaChanged();
    }

    Status PutInstance(uint32_t class_id, std::string_view key, std::string_view before,
                       std::string_view after) override {
        // The log comes first: `before` refers to the page that the put changes.
        SERVICE_RETURN_IF_ERROR(
            Log(before.empty() ? ChangeKind::kCreated : ChangeKind::kModified, class_id, key, before, after));
        InstanceTableKey table_key(class_id, key);
        MDB_val v = ValueOf(after);
        std::string long_entry;
        if (table_key.IsLong()) {
            unsigned ordinal = 0;
            std::string_view record;
            bool found = false;
            SERVICE_RETURN_IF_ERROR(FindLong(table_key, key, ordinal, record, found));
            ByteWriter entry(long_entry);
            entry.Text(key);
            entry.Raw(after);
            v = ValueOf(long_entry);
        }
        MDB_val k = table_key.value();
        const int code = writer_->Put(tables().instances, k, v);
        return code == 0 ? Status() : Fault(code);
    }

    Status DeleteInstance(uint32_t class_id, std::string_view key, std::string_view before) override {
        SERVICE_RETURN_IF_ERROR(Log(ChangeKind::kDeleted, class_id, key, before, {}));
        InstanceTableKey table_key(class_id, key);
        if (table_key.IsLong()) return DeleteLong(table_key, key);
        MDB_val k = table_key.value();
        const int code = writer_->Delete(tables().instances, k);
        return code == 0 ? Status() : Fault(code);
    }

 private:
    const LmdbTables& tables() const noexcept { return environment_.tables(); }

    Status Fault(int code) {
        needs_room_ = needs_room_ || code == MDB_MAP_FULL;
        return environment_.StatusOf(code, "the store " + environment_.directory() + " cannot be used");
    }

    Status Damaged(const std::string& what) const {
        return {WBEM_E_CRITICAL_ERROR,
                what + " in the store " + environment_.directory() + " is damaged: restore it from a backup"};
    }

    Status Found(int code, const MDB_val& value, std::string_view& record, bool& found) {
        found = code == 0;
        if (found) record = ViewOf(value);
        return code == 0 || code == MDB_NOTFOUND ? Status() : Fault(code);
    }

    // Calls visit(key, value, go_on) for the entries from `start` on whose keys begin with the same bytes.
    template <typename Visit>
    Status ScanFrom(MDB_dbi table, MDB_val start, size_t same_bytes, Visit visit) {
        Cursor cursor;
        const std::string_view prefix = ViewOf(start).substr(0, same_bytes);
        MDB_val k = start, v{};
        int code = cursor.Open(txn_, table);
        if (code == 0) code = cursor.Get(k, v, MDB_SET_RANGE);
        for (bool go_on = true; code == 0; code = cursor.Get(k, v, MDB_NEXT)) {
            if (!ViewOf(k).starts_with(prefix)) return {};
            SERVICE_RETURN_IF_ERROR(visit(ViewOf(k), ViewOf(v), go_on));
            if (!go_on) return {};
        }
        return code == MDB_NOTFOUND ? Status() : Fault(code);
    }

    // Calls visit(key, value) for all entries, until it returns false.
    template <typename Visit>
    Status ScanAll(MDB_dbi table, Visit visit) {
        Cursor cursor;
        MDB_val k{}, v{};
        int code = cursor.Open(txn_, table);
        for (MDB_cursor_op next = MDB_FIRST; code == 0; next = MDB_NEXT) {
            code = cursor.Get(k, v, next);
            if (code == 0 && !visit(ViewOf(k), ViewOf(v))) return {};
        }
        return code == MDB_NOTFOUND ? Status() : Fault(code);
    }

    Status GetNumber(std::string_view name, uint64_t& number) {
        MDB_val k = ValueOf(name), v{};
        number = 0;
        const int code = mdb_get(txn_, tables().meta, &k, &v);
        if (code == MDB_NOTFOUND) return {};
        if (code != 0) return Fault(code);
        if (v.mv_size != sizeof number) return Damaged("the number " + std::string(name));
        std::memcpy(&number, v.mv_data, sizeof number);
        return {};
    }

    Status PutNumber(std::string_view name, uint64_t number) {
        MDB_val k = ValueOf(name), v{sizeof number, &number};
        const int code = writer_->Put(tables().meta, k, v);
        return code == 0 ? Status() : Fault(code);
    }

    Status SchemaChanged() {
        uint64_t generation = 0;
        SERVICE_RETURN_IF_ERROR(GetNumber(kGenerationKey, generation));
        return PutNumber(kGenerationKey, generation + 1);
    }

    // Leaves `table_key` at the entry of `key`, or at the first free ordinal when there is none.
    Status FindLong(InstanceTableKey& table_key, std::string_view key, unsigned& ordinal,
                    std::string_view& record, bool& found) {
        found = false;
        for (ordinal = 0; ordinal <= kMaxLongKeyOrdinal; ++ordinal) {
            table_key.SetOrdinal(ordinal);
            MDB_val k = table_key.value(), v{};
            const int code = mdb_get(txn_, tables().instances, &k, &v);
            if (code == MDB_NOTFOUND) return {};
            if (code != 0) return Fault(code);
            std::string_view found_key, found_record;
            if (!SplitLongEntry(ViewOf(v), found_key, found_record))
                return Damaged("an instance with a long key");
            found = found_key == key;
            if (!found) continue;
            record = found_record;
            return {};
        }
        return {WBEM_E_QUOTA_VIOLATION, "too many long keys begin alike and have the same hash"};
    }

    // The last entry of those that share prefix and hash moves into the gap.
    Status DeleteLong(InstanceTableKey& table_key, std::string_view key) {
        unsigned gap = 0;
        std::string_view record;
        bool found = false;
        SERVICE_RETURN_IF_ERROR(FindLong(table_key, key, gap, record, found));
        if (!found) return {};
        std::string last_entry;
        unsigned last = gap;
        for (unsigned next = gap + 1; next <= kMaxLongKeyOrdinal; ++next) {
            table_key.SetOrdinal(next);
            MDB_val k = table_key.value(), v{};
            const int code = mdb_get(txn_, tables().instances, &k, &v);
            if (code == MDB_NOTFOUND) break;
            if (code != 0) return Fault(code);
            last = next;
            last_entry = ViewOf(v);
        }
        int code = 0;
        if (last != gap) {
            table_key.SetOrdinal(gap);
            MDB_val k = table_key.value(), v = ValueOf(last_entry);
            code = writer_->Put(tables().instances, k, v);
        }
        if (code == 0) {
            table_key.SetOrdinal(last);
            MDB_val k = table_key.value();
            code = writer_->Delete(tables().instances, k);
        }
        return code == 0 ? Status() : Fault(code);
    }

    Status Log(ChangeKind kind, uint32_t class_id, std::string_view key, std::string_view before,
               std::string_view after) {
        uint64_t number = 0;
        SERVICE_RETURN_IF_ERROR(LastChange(number));
        ++number;
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const size_t size = 2 + 2 * sizeof(uint32_t) + sizeof(uint64_t) + 3 * sizeof(uint32_t) + key.size() +
                            before.size() + after.size();
        std::string change;
        change.reserve(size);
        ByteWriter out(change);
        out.U8(kChangeFormat);
        const size_t checksum = out.position();
        out.U32(0);
        const size_t contents = out.position();
        out.U8(static_cast<uint8_t>(kind));
        out.U32(class_id);
        out.U64(static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
        out.Text(key);
        out.Text(before);
        out.Text(after);
        out.PatchU32(checksum, ChangeChecksumOf(std::string_view(change).substr(contents)));
        MDB_val k{sizeof number, &number}, v = ValueOf(change);
        if (const int code = writer_->Put(tables().log, k, v, MDB_APPEND); code != 0) return Fault(code);
        has_logged_ = true;
        return TrimLog();
    }

    bool LogIsLargerThan(size_t bytes, size_t& entries) {
        MDB_stat facts{};
        mdb_stat(txn_, tables().log, &facts);
        entries = facts.ms_entries;
        const size_t pages = facts.ms_branch_pages + facts.ms_leaf_pages + facts.ms_overflow_pages;
        return pages * facts.ms_psize > bytes;
    }

    // The newest entry always stays: it carries the number that the next one continues.
    Status TrimLog() {
        const size_t limit = environment_.options().change_log_bytes;
        size_t entries = 0;
        while (LogIsLargerThan(limit, entries) && entries > 1) {
            for (int i = 0; i < kLogTrimBatch && entries > 1; ++i) {
                uint64_t oldest = 0;
                SERVICE_RETURN_IF_ERROR(EndOfLog(MDB_FIRST, oldest));
                const int code = writer_->Delete(tables().log, {sizeof oldest, &oldest});
                if (code != 0) return Fault(code);
                if (!LogIsLargerThan(limit - limit / kLogTrimBatch, entries)) break;
            }
        }
        return {};
    }

    // The number of the first or the last entry; 0 for an empty log.
    Status EndOfLog(MDB_cursor_op end, uint64_t& number) {
        number = 0;
        Cursor cursor;
        MDB_val k{}, v{};
        int code = cursor.Open(txn_, tables().log);
        if (code == 0) code = cursor.Get(k, v, end);
        if (code == MDB_NOTFOUND) return {};
        if (code != 0) return Fault(code);
        std::memcpy(&number, k.mv_data, sizeof number);
        return {};
    }

    LmdbEnvironment& environment_;
    MDB_txn* const txn_;
    WriteTransaction* const writer_;
    bool needs_room_ = false;
    bool has_logged_ = false;
};

}  // namespace service
