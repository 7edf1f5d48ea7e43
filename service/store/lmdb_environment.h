// LmdbEnvironment: one LMDB environment, and LMDB's own rules in one place. Only for service/store.
//
//   ReadTransaction txn(*environment);
//   if (Status fault = txn.Begin(); !fault.ok()) return fault;
//   mdb_get(txn.get(), environment->tables().instances, ...);
//
// The rules it keeps:
// - One environment a store and process: environments are shared by the directory's device and inode, and are
//   kept open until the process ends, because closing one drops the locks of all others on its lock file.
// - None across fork: the child abandons the parent's environment, unclosed, because closing its lock file
//   would drop the locks that the child's own environment holds; the next use opens a new one.
// - Read transactions do not belong to threads (MDB_NOTLS) and are kept for reuse, so that a read costs no
//   system call; the slots of processes that died are cleared when the store is opened, when slots run out
//   and before the map grows.
// - The map grows when it is full, and follows when another process grew it; both need that no transaction
//   of this process runs, so new ones wait meanwhile, but for those of a thread that is inside already: the
//   resize waits for it.
// - A commit is on the disk when it has returned, with one flush where redo_slots.h allows it.
//
// - LMDB trusts its pages. What lies in the file is looked at before LMDB is let at it, see LmdbFile; where
//   LMDB notices damage by an assertion, that is thrown as LmdbAssertion through it, out of whatever called
//   it.
//
// Any number of threads may use one environment; a transaction belongs to one thread at a time.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <lmdb.h>

#include "service/model/function_ref.h"
#include "service/model/status.h"
#include "service/store/change_signal.h"
#include "service/store/file_seal.h"
#include "service/store/lmdb_tables.h"
#include "service/store/redo_slots.h"
#include "service/store/store.h"

namespace service {

// A stretch of the map.
struct MapRange {
    void Add(std::string_view bytes) noexcept {
        Add({bytes.data(), bytes.data() + bytes.size(), bytes.size()});
    }
    void Add(const MapRange& other) noexcept {
        if (!other.begin) return;
        begin = begin ? std::min(begin, other.begin) : other.begin;
        end = std::max(end, other.end);
        read_bytes += other.read_bytes;
    }

    const char* begin = nullptr;
    const char* end = nullptr;
    size_t read_bytes = 0;  // of those in between
};

// What LMDB says that cannot be; the transaction it is thrown in must be ended.
struct LmdbAssertion {
    std::string text;
};

class LmdbEnvironment {
 public:
    // The environment of `directory`, opened or shared. Makes directory and tables as needed.
    static Result<std::shared_ptr<LmdbEnvironment>> Open(const std::string& directory,
                                                         const StoreOptions& options);

    ~LmdbEnvironment();
    LmdbEnvironment(const LmdbEnvironment&) = delete;
    LmdbEnvironment& operator=(const LmdbEnvironment&) = delete;

    const LmdbTables& tables() const noexcept { return tables_; }
    const StoreOptions& options() const noexcept { return options_; }
    const std::string& directory() const noexcept { return directory_; }

    // Whether the process was forked since: the environment must be opened anew.
    bool IsAbandoned() const noexcept;

    // WBEM_E_NOT_AVAILABLE when the files that are open are not those of the store's directory any more: what
    // is written to them would be lost, and without the common lock processes write over one another.
    // WBEM_E_CRITICAL_ERROR when somebody else has written to the data file, and damaged it. Asks the system
    // at most once a second; WriteTransaction::Check is for those who write.
    Status CheckInPlaceNowAndThen();

    // Whether the data file that this environment uses is that of the directory.
    bool IsOf(const std::string& directory) const noexcept;

    ChangeSignal& signal() noexcept { return signal_; }

    // Bytes of the map. Called within a transaction: another thread may be exchanging the map otherwise.
    size_t MapBytes() const noexcept;

    // Takes note of what a scan has read in a read transaction that still runs. Once it is much, the process
    // gives those pages back: they stay in the system's cache, but a scan of a large class does not make the
    // process as large as the class.
    void LetGo(const MapRange& scanned) noexcept;

    // Doubles the map of `full_bytes`, unless it was meanwhile. Called with no transaction open on this
    // thread.
    Status Grow(size_t full_bytes);

    // See Store.
    Status FindFaults(FunctionRef<bool(const std::string&)> found);
    Status CopyTo(const std::string& directory);
    Status Figures(StoreFigures& figures);

    // The status of LMDB's or the system's error `code`, met while doing `what`. Where it tells of damage the
    // file is looked through before it is used again.
    Status StatusOf(int code, const std::string& what);
    Status StatusOf(const LmdbAssertion& assertion);
    Status Damaged(const std::string& what) const;

 private:
    friend class ReadTransaction;
    friend class WriteTransaction;

    struct FileInUse {
        // Whether the file is still the one of its name.
        bool IsInPlace() const noexcept;

        std::string path;
        dev_t device = 0;
        ino_t inode = 0;
    };

    LmdbEnvironment(std::string directory, const StoreOptions& options);
    Status OpenFiles();
    int BeginAlone(unsigned flags, MDB_txn*& txn);
    Status OpenTables();
    Status CheckMetaPages() const;
    int CopyFile(int fd);
    Status CheckInPlace() const;
    Status LookThroughAtOpening();
    Status LookThrough();
    Status CompleteDataFile();
    bool IsRoomFor(size_t bytes) const noexcept;
    bool IsDiskFull() const noexcept;
    Status CheckFormat(MDB_txn* txn);
    int OpenTables(MDB_txn* txn, unsigned flags);
    Status MakeTables();
    Status RedoLostCommits();
    int BeginRead(MDB_txn*& txn);
    void EndRead(MDB_txn* txn) noexcept;
    int BeginWrite(MDB_txn*& txn);
    void ClearDeadReaders() noexcept;
    void ForgetRedo(uint64_t number) noexcept;
    void EnterTransaction(std::unique_lock<std::mutex>& lock);
    void LeaveTransaction() noexcept;
    int Resize(size_t full_bytes);

    const std::string directory_;
    const StoreOptions options_;
    const unsigned fork_count_;
    MDB_env* env_ = nullptr;
    size_t pages_at_check_ = 0;  // of the data file when dead readers were looked for; the writer's
    LmdbTables tables_;
    RedoSlots redo_;
    ChangeSignal signal_;
    FileSeal seal_;
    FileInUse data_file_;
    FileInUse lock_file_;
    std::atomic<time_t> next_check_{0};

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<MDB_txn*> idle_readers_;
    size_t running_ = 0;  // transactions of this process
    bool is_resizing_ = false;
    MapRange scanned_;  // since pages were given back last; of the map as it is
};

// Marks the thread as inside an environment. Marks of one thread end in the reverse order of their begin.
class ThreadInside {
 public:
    ThreadInside() noexcept = default;
    ~ThreadInside() { Leave(); }
    ThreadInside(const ThreadInside&) = delete;
    ThreadInside& operator=(const ThreadInside&) = delete;

    void Enter(const LmdbEnvironment& environment, bool is_writer) noexcept;
    void Leave() noexcept;

    static bool IsWithin(const LmdbEnvironment& environment) noexcept;
    static bool IsWriting(const LmdbEnvironment& environment) noexcept;

 private:
    const LmdbEnvironment* environment_ = nullptr;
    const ThreadInside* outer_ = nullptr;
    bool is_writer_ = false;
};

class ReadTransaction {
 public:
    explicit ReadTransaction(LmdbEnvironment& environment) noexcept : environment_(environment) {}
    ~ReadTransaction() {
        if (txn_) environment_.EndRead(txn_);
    }
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

    Status Begin();
    MDB_txn* get() const noexcept { return txn_; }

 private:
    LmdbEnvironment& environment_;
    ThreadInside inside_;
    MDB_txn* txn_ = nullptr;
};

class WriteTransaction {
 public:
    explicit WriteTransaction(LmdbEnvironment& environment) noexcept : environment_(environment) {}
    // Aborts what was not committed.
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    Status Begin();
    // The three ways to change the tables; LMDB's result. Nothing else may change them.
    int Put(MDB_dbi table, MDB_val key, MDB_val value, unsigned flags = 0);
    int Delete(MDB_dbi table, MDB_val key);

    // The same as LmdbEnvironment::CheckInPlaceNowAndThen, before a commit.
    Status Check();

    // LMDB's result; on success the transaction is on the disk.
    int Commit();
    MDB_txn* get() const noexcept { return txn_; }

 private:
    Status CheckSeal();
    void Note(uint8_t operation, MDB_dbi table, const MDB_val& key, const MDB_val& value);

    LmdbEnvironment& environment_;
    ThreadInside inside_;
    MDB_txn* txn_ = nullptr;
    std::string redo_;  // the operations so far, as long as they fit the slot
    bool fits_redo_ = true;
};

}  // namespace service
