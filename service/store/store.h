// Store: what the rest of the service needs of a transactional, ordered, shared place for records.
//
//   store.Write([&](StoreWriter& writer) { return writer.PutInstance(change); });
//   store.Read([&](StoreReader& reader) { return reader.GetInstance(class_id, key, record, found); });
//
// Only service/store includes this. The interface is small on purpose: another store, a distributed one for
// instance, can stand behind it. It knows numbers, keys and records, no classes.
//
// A Read sees one consistent state; a Write is atomic, isolated from every other process's and durable when
// it has returned without a fault. A faulty Write changes nothing. Any number of threads may read and write.
// The functions passed in may run more than once, so they must not leave anything behind that a second run
// trips over; views they get are valid until they return, or until the next change in a Write.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "service/model/function_ref.h"
#include "service/model/status.h"

namespace service {

enum class ChangeKind : uint8_t { kCreated = 1, kModified = 2, kDeleted = 3 };

// One entry of the change log. The texts refer to the store's own bytes.
struct ChangeView {
    uint64_t number = 0;
    int64_t time_ns = 0;  // since 1970-01-01 00:00 UTC
    ChangeKind kind = ChangeKind::kCreated;
    uint32_t class_id = 0;
    std::string_view key;
    std::string_view before;  // the record; empty for a creation
    std::string_view after;   // the record; empty for a deletion
};

// One instance as a scan meets it. The texts refer to the store's own bytes.
struct InstanceView {
    std::string_view place;  // see StoreReader::PlaceOf
    std::string_view key;
    std::string_view record;
};

class StoreReader {
 public:
    virtual ~StoreReader() = default;

    // Numbers the state that is read; two reads with equal numbers see the same state.
    virtual uint64_t StateNumber() const noexcept = 0;

    // Changes whenever anything in the schema does.
    virtual Status SchemaGeneration(uint64_t& generation) = 0;

    // Schema records: namespaces and classes, under keys of at most kMaxSchemaKeyBytes.
    virtual Status GetSchema(std::string_view key, std::string_view& record, bool& found) = 0;
    // Visits the records whose keys begin with `prefix`, in key order, until `visit` returns false.
    virtual Status ScanSchema(std::string_view prefix,
                              FunctionRef<bool(std::string_view key, std::string_view record)> visit) = 0;

    // Visits all of them, of whatever kind.
    virtual Status ScanAllSchema(FunctionRef<bool(std::string_view key, std::string_view record)> visit) = 0;

    // The last number that NextId gave out.
    virtual Status LastId(uint32_t& id) = 0;

    virtual Status GetInstance(uint32_t class_id, std::string_view key, std::string_view& record,
                               bool& found) = 0;
    // Where a scan of the class meets the instance of `key`: an opaque text, never empty, that always is the
    // same for a key. Very long keys may share a place.
    virtual std::string PlaceOf(uint32_t class_id, std::string_view key) const = 0;
    // Visits the instances of one class whose places come after `place`, in the order of their places' bytes,
    // until `visit` returns false. An empty place comes before all.
    virtual Status ScanInstances(uint32_t class_id, std::string_view place,
                                 FunctionRef<bool(const InstanceView&)> visit) = 0;

    // Visits all instances of all classes, of those too that nobody knows, class after class. An entry that
    // cannot be taken apart has an empty record. `is_reachable` tells whether GetInstance finds the entry by
    // its key.
    virtual Status ScanAllInstances(
        FunctionRef<bool(uint32_t class_id, const InstanceView& found, bool is_reachable)> visit) = 0;

    // The number of the newest change; 0 when there was none.
    virtual Status LastChange(uint64_t& number) = 0;
    // Visits the changes with numbers above `number`, oldest first, until `visit` returns false.
    // `is_complete` is false when the log no longer holds all of them.
    virtual Status ScanChanges(uint64_t number, bool& is_complete,
                               FunctionRef<bool(const ChangeView&)> visit) = 0;
    // Visits what the log holds, oldest first; `change` is null for a damaged entry.
    virtual Status ScanLog(FunctionRef<bool(uint64_t number, const ChangeView* change)> visit) = 0;
};

class StoreWriter : public StoreReader {
 public:
    // A number that was never returned before, from 1 on.
    virtual Status NextId(uint32_t& id) = 0;

    virtual Status PutSchema(std::string_view key, std::string_view record) = 0;
    virtual Status DeleteSchema(std::string_view key) = 0;

    // Both write the change into the log in the same transaction. The caller has looked up `before`: the
    // record there is, or an empty text for none.
    virtual Status PutInstance(uint32_t class_id, std::string_view key, std::string_view before,
                               std::string_view after) = 0;
    virtual Status DeleteInstance(uint32_t class_id, std::string_view key, std::string_view before) = 0;
};

inline constexpr size_t kMaxSchemaKeyBytes = 500;

// What a store uses of what it may use at most.
struct StoreFigures {
    uint64_t map_bytes = 0;  // it grows when it is full
    uint64_t used_bytes = 0;
    uint64_t max_readers = 0;
    uint64_t readers = 0;  // places taken now, in all processes together
    uint64_t max_log_bytes = 0;
    uint64_t log_bytes = 0;
    uint64_t instances = 0;
    uint64_t changes = 0;
};

class Store {
 public:
    virtual ~Store() = default;

    virtual Status Read(FunctionRef<Status(StoreReader&)> read) = 0;
    virtual Status Write(FunctionRef<Status(StoreWriter&)> write) = 0;

    // A number that is another one once a change was committed, by whatever process. Read it before looking
    // for changes, and wait then: the wait ends early when there was one since, or when somebody raised the
    // signal. It may also last its whole time although there was one, when the process that made it died.
    virtual uint32_t ChangeSignal() = 0;
    virtual void WaitForChange(uint32_t seen, std::chrono::nanoseconds timeout) = 0;
    virtual void RaiseChangeSignal() = 0;

    // Tells apart the stores that this process has open: the same for two objects of one store, another one
    // for a store that was removed and made again in the same place. Null for one that cannot be used.
    virtual const void* Identity() = 0;

    // Calls found(sentence) for each thing that is wrong with how the data are laid out, until it returns
    // false. Where something is, reading on may lead anywhere.
    virtual Status FindFaults(FunctionRef<bool(const std::string&)> found) = 0;

    // Copies the state as it is into the directory `path`, which becomes a store of its own; others may write
    // meanwhile. WBEM_E_ALREADY_EXISTS when something has that name. A failure leaves nothing behind.
    virtual Status Backup(const std::string& path) = 0;

    // False while nobody has written to it.
    virtual bool IsThere() = 0;

    virtual Status Figures(StoreFigures& figures) = 0;

    // The directory or address, for messages.
    virtual const std::string& Location() const noexcept = 0;
};

struct StoreOptions {
    // Address space reserved for the data file; it grows when the data does. The file itself is only as long
    // as its data.
    size_t map_bytes = size_t{64} << 30;

    // Readers at one moment, in all processes together.
    unsigned max_readers = 2048;

    // Bytes of the change log; older entries give way to newer ones.
    size_t change_log_bytes = size_t{64} << 20;

    // A data file of at most so many bytes is looked through whenever it is opened, a larger one when it is
    // opened for the first time since the system was started, or when somebody else than a store has written
    // to it: LMDB trusts the pages that it finds.
    size_t looked_through_bytes = size_t{16} << 20;

    // Identifies the run of the system since it was started; 0 to ask the system. Another one is what a test
    // opens a store with to be after a crash of the system.
    uint64_t boot = 0;
};

// Opens the LMDB store in `directory`. One that is not there is made by the first Write, with mode 0700 (its
// files have mode 0600); until then it reads as an empty one, and reading makes nothing.
// One process has at most one LMDB environment for a store: every call for the same directory shares it.
Result<std::shared_ptr<Store>> OpenLmdbStore(const std::string& directory, const StoreOptions& options = {});

}  // namespace service
