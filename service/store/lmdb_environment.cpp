#include "service/store/lmdb_environment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include "service/store/bus_error_notice.h"
#include "service/store/fork.h"
#include "service/store/lmdb_file.h"
#include "service/store/redo_operations.h"
#include "service/store/store_files.h"

namespace service {
namespace {

// The layout of the tables and records: another number is a store that this program cannot read.
constexpr uint32_t kStoreFormat = 1;
constexpr std::string_view kFormatKey = "format";
constexpr unsigned kMaxTables = 8;
constexpr size_t kSmallestMap = size_t{64} << 20;
// A disk with less room than this is as good as full: a commit writes that much.
constexpr uint64_t kSmallestFreeSpace = uint64_t{64} << 10;
constexpr size_t kScannedBeforeLetGo = size_t{4} << 20;
// The data file may grow by so many pages before dead readers are looked for.
constexpr size_t kPagesBetweenChecks = 1024;

// The environments of this process, by the device and inode of their directory. They are never closed: a
// close drops all locks that the process has on the lock file, those of an environment opened meanwhile
// included. A forked child has a registry of its own; its parent's is kept, environments and all, untouched.
struct Registry {
    Registry(unsigned forks, Registry* parents) noexcept : fork_count(forks), previous(parents) {}

    const unsigned fork_count;
    Registry* const previous;
    std::mutex mutex;
    std::map<std::pair<dev_t, ino_t>, std::vector<std::shared_ptr<LmdbEnvironment>>> environments;
};

Registry& TheRegistry() {
    static std::atomic<Registry*> current{nullptr};
    Registry* registry = current.load(std::memory_order_acquire);
    while (!registry || registry->fork_count != ForkCount()) {
        auto fresh = std::make_unique<Registry>(ForkCount(), registry);
        if (current.compare_exchange_strong(registry, fresh.get())) registry = fresh.release();
    }
    return *registry;
}

[[noreturn]] void OnAssertion(MDB_env*, const char* text) {
    throw LmdbAssertion{text};
}

}  // namespace

LmdbEnvironment::LmdbEnvironment(std::string directory, const StoreOptions& options)
    : directory_(std::move(directory)), options_(options), fork_count_(ForkCount()) {}

LmdbEnvironment::~LmdbEnvironment() {
    if (!env_ || IsAbandoned()) return;
    for (MDB_txn* txn : idle_readers_)
        mdb_txn_abort(txn);
    mdb_env_close(env_);
}

bool LmdbEnvironment::IsAbandoned() const noexcept {
    return fork_count_ != ForkCount();
}

bool LmdbEnvironment::IsOf(const std::string& directory) const noexcept {
    int fd = -1;
    struct stat used {};
    struct stat found {};
    return mdb_env_get_fd(env_, &fd) == 0 && fstat(fd, &used) == 0 &&
           stat((directory + "/data.mdb").c_str(), &found) == 0 && used.st_dev == found.st_dev &&
           used.st_ino == found.st_ino;
}

bool LmdbEnvironment::FileInUse::IsInPlace() const noexcept {
    // Without its times, see FileSeal.
    struct statx found {};
    return statx(AT_FDCWD, path.c_str(), 0, STATX_INO, &found) == 0 && found.stx_ino == inode &&
           makedev(found.stx_dev_major, found.stx_dev_minor) == device;
}

Status LmdbEnvironment::CheckInPlace() const {
    if (!data_file_.IsInPlace()) {
        return {WBEM_E_NOT_AVAILABLE,
                "the store " + directory_ +
                    " was removed or replaced while this process used it, which neither "
                    "reads nor writes what was there any more: connect anew"};
    }
    if (lock_file_.IsInPlace()) return {};
    return {WBEM_E_NOT_AVAILABLE, "the file lock.mdb of the store " + directory_ +
                                      " was removed or replaced while the store was in use. Nothing was "
                                      "changed: end all processes that use the store, then start them again"};
}

Status LmdbEnvironment::CheckInPlaceNowAndThen() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    time_t due = next_check_.load(std::memory_order_relaxed);
    if (now.tv_sec < due || !next_check_.compare_exchange_strong(due, now.tv_sec + 1)) return {};
    Status fault = CheckInPlace();
    if (fault.ok() && seal_.IsViolated()) fault = LookThrough();
    if (!fault.ok()) next_check_.store(0);
    return fault;
}

Result<std::shared_ptr<LmdbEnvironment>> LmdbEnvironment::Open(const std::string& directory,
                                                               const StoreOptions& options) {
    SERVICE_RETURN_IF_ERROR(MakeDirectory(directory));
    struct stat facts {};
    if (stat(directory.c_str(), &facts) != 0)
        return SystemFault(errno, "the store " + directory + " cannot be opened");
    if (!S_ISDIR(facts.st_mode)) return SystemFault(ENOTDIR, "the store " + directory + " cannot be opened");

    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    auto& environments = registry.environments[{facts.st_dev, facts.st_ino}];
    // A directory that was removed and made again may have the inode of the one before.
    if (!environments.empty() && environments.back()->IsOf(directory)) return environments.back();

    const StandardDescriptors taken;
    auto environment = std::shared_ptr<LmdbEnvironment>(new LmdbEnvironment(directory, options));
    environments.reserve(environments.size() + 1);
    try {
        SERVICE_RETURN_IF_ERROR(environment->OpenFiles());
        environment->signal_.Open(directory + "/changes.signal");
        BusErrorNotice::Add(directory);
        SERVICE_RETURN_IF_ERROR(environment->LookThroughAtOpening());
        SERVICE_RETURN_IF_ERROR(environment->CompleteDataFile());
        SERVICE_RETURN_IF_ERROR(environment->OpenTables());
    } catch (const LmdbAssertion& assertion) {
        return environment->StatusOf(assertion);
    }
    environments.push_back(environment);
    return environment;
}

// LMDB would take a page size or a root from them as it stands.
Status LmdbEnvironment::CheckMetaPages() const {
    const std::string file = directory_ + "/data.mdb";
    // A pipe would be waited for.
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return errno == ENOENT ? Status()
                               : SystemFault(errno, "the store " + directory_ + " cannot be opened");
    struct stat facts {};
    const bool is_file = fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode);
    const LmdbFile data(fd);
    const bool is_unfinished = is_file && data.IsUnfinished();
    const std::string fault = is_file && !is_unfinished ? data.MetaFault() : "";
    close(fd);
    if (!is_file) {
        return {WBEM_E_NOT_AVAILABLE, "the store " + directory_ + " cannot be opened: " + file +
                                          " is no regular file. Name another directory with MGMT_STORE"};
    }
    // The disk was full when the file was made: nothing is in it, and it is made anew.
    if (is_unfinished && unlink(file.c_str()) != 0)
        return SystemFault(errno, "the store " + directory_ + " cannot be opened");
    if (facts.st_size == 0 && WasInUse(directory_))
        return Damaged("it is empty, but the store has been in use");
    return fault.empty() ? Status() : Damaged(fault);
}

// What was cut off or overwritten while nobody used the store is noticed before LMDB reads it.
Status LmdbEnvironment::LookThroughAtOpening() {
    int fd = -1;
    MDB_envinfo info{};
    MDB_stat facts{};
    struct stat file {};
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &facts);
    if (mdb_env_get_fd(env_, &fd) != 0 || fstat(fd, &file) != 0) return {};
    seal_.Open(signal_, fd, options_.boot != 0 ? options_.boot : NumberOfBoot());
    const bool is_short = static_cast<uint64_t>(file.st_size) < (info.me_last_pgno + 1) * facts.ms_psize;
    const bool is_small = static_cast<uint64_t>(file.st_size) <= options_.looked_through_bytes;
    return is_short || is_small || !seal_.Holds() ? LookThrough() : Status();
}

Status LmdbEnvironment::LookThrough() {
    const FileSeal::Look look = seal_.BeginLook();
    std::string fault;
    SERVICE_RETURN_IF_ERROR(FindFaults([&](const std::string& found) {
        fault = found;
        return false;
    }));
    if (!fault.empty()) return Damaged(fault);
    seal_.EndLook(look);
    return {};
}

Status LmdbEnvironment::OpenFiles() {
    const std::string what = "the store " + directory_ + " cannot be opened";
    const bool is_new = access((directory_ + "/data.mdb").c_str(), F_OK) != 0;
    SERVICE_RETURN_IF_ERROR(CheckMetaPages());
    SERVICE_RETURN_IF_ERROR(AllocateLockFile(directory_, options_.max_readers));
    // A system that limits address space gets a smaller map, which grows like any other.
    for (size_t bytes = options_.map_bytes;; bytes /= 2) {
        int code = mdb_env_create(&env_);
        if (code != 0) return StatusOf(code, what);
        mdb_env_set_assert(env_, OnAssertion);
        mdb_env_set_maxdbs(env_, kMaxTables);
        mdb_env_set_maxreaders(env_, options_.max_readers);
        mdb_env_set_mapsize(env_, bytes);
        code = mdb_env_open(env_, directory_.c_str(), MDB_NOTLS | MDB_NOMETASYNC, kStoreFileMode);
        if (code == 0) break;
        mdb_env_close(env_);
        env_ = nullptr;
        if (code != ENOMEM || bytes / 2 < kSmallestMap) return StatusOf(code, what);
    }
    int dead_readers = 0;
    mdb_reader_check(env_, &dead_readers);
    // Wherever the process goes: the directory may have a relative name.
    std::error_code fault;
    const std::string place = std::filesystem::canonical(directory_, fault).string();
    for (auto [file, name] : {std::pair(&data_file_, "/data.mdb"), std::pair(&lock_file_, "/lock.mdb")}) {
        struct stat facts {};
        file->path = place + name;
        if (stat(file->path.c_str(), &facts) != 0) return SystemFault(errno, what);
        file->device = facts.st_dev;
        file->inode = facts.st_ino;
    }
    if (is_new) SyncDirectory(directory_);
    return {};
}

// A data file that was cut short would kill the process that reads behind its end. It gets its length back;
// what was lost reads as zeros, which LMDB and the records' checksums report as damage. (LMDB may leave out
// the last pages of a file, so a short one need not be damaged.)
Status LmdbEnvironment::CompleteDataFile() {
    int fd = -1;
    MDB_envinfo info{};
    MDB_stat facts{};
    struct stat file {};
    int code = mdb_env_get_fd(env_, &fd);
    if (code == 0) code = mdb_env_info(env_, &info);
    if (code == 0) code = mdb_env_stat(env_, &facts);
    if (code == 0 && fstat(fd, &file) != 0) code = errno;
    const auto length = static_cast<off_t>((info.me_last_pgno + 1) * facts.ms_psize);
    if (code == 0 && file.st_size < length) {
        const FileSeal::Writing writing(seal_, 0);
        code = posix_fallocate(fd, length - 1, 1);
    }
    return code == 0 ? Status() : StatusOf(code, "the store " + directory_ + " cannot be opened");
}

// Begins a transaction before any other thread has the environment, so that the map may follow at once.
int LmdbEnvironment::BeginAlone(unsigned flags, MDB_txn*& txn) {
    int code = mdb_txn_begin(env_, nullptr, flags, &txn);
    while (code == MDB_MAP_RESIZED) {
        code = mdb_env_set_mapsize(env_, 0);
        if (code == 0) code = mdb_txn_begin(env_, nullptr, flags, &txn);
    }
    return code;
}

// A store that is there is opened by reading it, which needs no write and waits for no writer.
Status LmdbEnvironment::OpenTables() {
    const std::string what = "the store " + directory_ + " cannot be read";
    MDB_txn* txn = nullptr;
    int code = BeginAlone(MDB_RDONLY, txn);
    if (code != 0) return StatusOf(code, what);
    code = OpenTables(txn, 0);
    if (code == MDB_NOTFOUND) {
        mdb_txn_abort(txn);
        return MakeTables();
    }
    Status fault = code == 0 ? CheckFormat(txn) : StatusOf(code, what);
    if (fault.ok())
        code = redo_.Locate(env_, txn, tables_.redo, options_.boot != 0 ? options_.boot : NumberOfBoot());
    // Committing is what keeps the handles of the tables for later transactions.
    const int committed = mdb_txn_commit(txn);
    if (!fault.ok()) return fault;
    if (code != 0 || committed != 0) return StatusOf(code != 0 ? code : committed, what);
    return RedoLostCommits();
}

int LmdbEnvironment::OpenTables(MDB_txn* txn, unsigned flags) {
    int code = mdb_dbi_open(txn, "meta", flags, &tables_.meta);
    if (code == 0) code = mdb_dbi_open(txn, "schema", flags, &tables_.schema);
    if (code == 0) code = mdb_dbi_open(txn, "instances", flags, &tables_.instances);
    if (code == 0) code = mdb_dbi_open(txn, "log", flags | MDB_INTEGERKEY, &tables_.log);
    if (code == 0) code = mdb_dbi_open(txn, "redo", flags, &tables_.redo);
    return code;
}

// Another process may have made them since they were looked for.
Status LmdbEnvironment::MakeTables() {
    const std::string what = "the store " + directory_ + " cannot be made";
    MDB_txn* txn = nullptr;
    int code = BeginAlone(0, txn);
    if (code != 0) return StatusOf(code, what);
    code = OpenTables(txn, 0);
    const bool is_made = code == 0;
    MDB_dbi main = 0;
    MDB_stat facts{};
    if (code == MDB_NOTFOUND) code = mdb_dbi_open(txn, nullptr, 0, &main);
    if (code == 0) code = mdb_stat(txn, main, &facts);
    if (code == 0 && !is_made && facts.ms_entries != 0) {
        mdb_txn_abort(txn);
        return {WBEM_E_CRITICAL_ERROR,
                directory_ +
                    " holds an LMDB database of another program: name another directory with MGMT_STORE"};
    }
    if (code == 0 && !is_made) code = OpenTables(txn, MDB_CREATE);
    if (code == 0 && !is_made) code = RedoSlots::Create(txn, tables_.redo);
    if (code == 0 && !is_made) {
        MDB_val key = ValueOf(kFormatKey);
        uint32_t format = kStoreFormat;
        MDB_val value{sizeof format, &format};
        code = mdb_put(txn, tables_.meta, &key, &value, 0);
    }
    if (code == 0) {
        const FileSeal::Writing writing(seal_, mdb_txn_id(txn));
        code = mdb_txn_commit(txn);
        if (code == 0) code = mdb_env_sync(env_, 1);
    } else {
        mdb_txn_abort(txn);
    }
    return code == 0 ? OpenTables() : StatusOf(code, what);
}

// Carries out again what a crash of the system took from the file: the commit, or the one after it, whose
// meta page was not on the disk yet. Rarely there is one whose writer died before it was done, or is just
// at it; then LMDB's lock tells.
Status LmdbEnvironment::RedoLostCommits() {
    const std::string what = "the last changes of the store " + directory_ + " cannot be restored";
    std::string operations;
    MDB_envinfo info{};
    mdb_env_info(env_, &info);
    for (uint64_t number = info.me_last_txnid + 1; redo_.ReadLost(number, operations);) {
        MDB_txn* txn = nullptr;
        int code = BeginAlone(0, txn);
        if (code != 0) return StatusOf(code, what);
        if (mdb_txn_id(txn) != number || !redo_.ReadLost(number, operations)) {
            mdb_txn_abort(txn);
            return {};
        }
        code = ReplayOperations(txn, tables_, operations);
        if (code == 0) {
            const FileSeal::Writing writing(seal_, number);
            code = mdb_txn_commit(txn);
            if (code == 0) code = mdb_env_sync(env_, 1);
        } else {
            mdb_txn_abort(txn);
        }
        // The writer may have had a larger map than this process has.
        mdb_env_info(env_, &info);
        if (code == 0) {
            ++number;
        } else if (code != MDB_MAP_FULL || mdb_env_set_mapsize(env_, info.me_mapsize * 2) != 0) {
            return StatusOf(code, what);
        }
    }
    return {};
}

Status LmdbEnvironment::CheckFormat(MDB_txn* txn) {
    MDB_val key = ValueOf(kFormatKey);
    MDB_val value{};
    uint32_t format = 0;
    const int code = mdb_get(txn, tables_.meta, &key, &value);
    if (code == 0 && value.mv_size == sizeof format) std::memcpy(&format, value.mv_data, sizeof format);
    if (format == kStoreFormat) return {};
    if (format == 0)
        return {WBEM_E_CRITICAL_ERROR, directory_ + " is no store of this service, or it is damaged"};
    return {WBEM_E_NOT_AVAILABLE, "the store " + directory_ + " has format " + std::to_string(format) +
                                      ", this program reads format " + std::to_string(kStoreFormat) +
                                      ": use the version that wrote it"};
}

Status LmdbEnvironment::StatusOf(int code, const std::string& what) {
    switch (code) {
        case MDB_CORRUPTED:
        case MDB_PAGE_NOTFOUND:
        case MDB_INVALID:
        case MDB_VERSION_MISMATCH:
        case MDB_PANIC:
            seal_.Doubt();
            return {WBEM_E_CRITICAL_ERROR,
                    what + ": " + mdb_strerror(code) + ". The data file " + directory_ +
                        "/data.mdb is damaged or is no store; restore it from a backup"};
        case MDB_READERS_FULL:
            return {WBEM_E_QUOTA_VIOLATION,
                    what + ": more than " + std::to_string(options_.max_readers) +
                        " readers at once; end some of the processes that read the store"};
        case MDB_TXN_FULL:
            return {WBEM_E_QUOTA_VIOLATION, what + ": too much was changed at once"};
        default:
            // LMDB reports a write that was cut short by a full disk as an error of the device.
            if (code == EIO && IsDiskFull()) return SystemFault(ENOSPC, what);
            if (code > 0) return SystemFault(code, what);
            return {WBEM_E_PROVIDER_FAILURE, what + ": " + mdb_strerror(code)};
    }
}

Status LmdbEnvironment::StatusOf(const LmdbAssertion& assertion) {
    seal_.Doubt();
    return Damaged("LMDB found that \"" + assertion.text + "\" does not hold");
}

Status LmdbEnvironment::Damaged(const std::string& what) const {
    return {WBEM_E_CRITICAL_ERROR, "the store's data file " + directory_ + "/data.mdb is damaged: " + what +
                                       ". Restore the store from a backup, or name another one with "
                                       "MGMT_STORE"};
}

bool LmdbEnvironment::IsDiskFull() const noexcept {
    struct statvfs facts {};
    return statvfs(directory_.c_str(), &facts) == 0 && facts.f_bavail * facts.f_frsize < kSmallestFreeSpace;
}

// Returns LMDB's result. A transaction object used before is renewed, which takes no system call.
int LmdbEnvironment::BeginRead(MDB_txn*& txn) {
    std::unique_lock lock(mutex_);
    EnterTransaction(lock);
    if (!idle_readers_.empty()) {
        txn = idle_readers_.back();
        idle_readers_.pop_back();
        lock.unlock();
        const int code = mdb_txn_renew(txn);
        if (code == 0) return 0;
        mdb_txn_abort(txn);
        txn = nullptr;
        LeaveTransaction();
        return code;
    }
    // Room for its return is made here, where an exception can still be thrown.
    try {
        idle_readers_.reserve(running_ + idle_readers_.size());
    } catch (...) {
        --running_;
        throw;
    }
    lock.unlock();
    int code = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    if (code == MDB_READERS_FULL) {
        int dead_readers = 0;
        mdb_reader_check(env_, &dead_readers);
        if (dead_readers > 0) code = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    }
    if (code != 0) {
        txn = nullptr;
        LeaveTransaction();
    }
    return code;
}

void LmdbEnvironment::EndRead(MDB_txn* txn) noexcept {
    if (IsAbandoned()) return;
    mdb_txn_reset(txn);
    const std::lock_guard lock(mutex_);
    if (idle_readers_.size() < idle_readers_.capacity()) {
        idle_readers_.push_back(txn);
    } else {
        mdb_txn_abort(txn);
    }
    --running_;
    if (is_resizing_) changed_.notify_all();
}

int LmdbEnvironment::BeginWrite(MDB_txn*& txn) {
    {
        std::unique_lock lock(mutex_);
        EnterTransaction(lock);
    }
    const int code = mdb_txn_begin(env_, nullptr, 0, &txn);
    if (code != 0) {
        txn = nullptr;
        LeaveTransaction();
        return code;
    }
    ClearDeadReaders();
    return 0;
}

// A process that was killed while it read keeps every page that was replaced since from being used again, so
// the file grows with each commit. Called in a write transaction, of which there is one at a time.
void LmdbEnvironment::ClearDeadReaders() noexcept {
    MDB_envinfo info{};
    mdb_env_info(env_, &info);
    if (info.me_last_pgno < pages_at_check_ + kPagesBetweenChecks) return;
    int dead_readers = 0;
    mdb_reader_check(env_, &dead_readers);
    pages_at_check_ = info.me_last_pgno;
}

void LmdbEnvironment::EnterTransaction(std::unique_lock<std::mutex>& lock) {
    changed_.wait(lock, [this] { return !is_resizing_ || ThreadInside::IsWithin(*this); });
    ++running_;
}

void LmdbEnvironment::LeaveTransaction() noexcept {
    const std::lock_guard lock(mutex_);
    --running_;
    if (is_resizing_) changed_.notify_all();
}

// Empties the slot of a commit that failed, or the next opening would carry out what the caller was told was
// not done. Another process may have committed under the number since; then the slot is its own.
void LmdbEnvironment::ForgetRedo(uint64_t number) noexcept {
    MDB_txn* txn = nullptr;
    const int code = mdb_txn_begin(env_, nullptr, 0, &txn);
    // Where LMDB has given up no other writer of this process can have come between; one of another may have,
    // and then the slot has its number.
    std::string operations;
    if (code != 0 ? redo_.Read(number, operations) : mdb_txn_id(txn) == number) redo_.Write(number, {});
    if (code == 0) mdb_txn_abort(txn);
}

// Once no transaction runs: doubles the map of `full_bytes`, unless another thread did meanwhile; 0 for the
// size that another process gave it.
int LmdbEnvironment::Resize(size_t full_bytes) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !is_resizing_; });
    is_resizing_ = true;
    changed_.wait(lock, [this] { return running_ == 0; });
    int code = 0;
    if (full_bytes == 0 || MapBytes() <= full_bytes) {
        code = IsRoomFor(full_bytes * 2) ? mdb_env_set_mapsize(env_, full_bytes * 2) : ENOMEM;
    }
    scanned_ = {};
    is_resizing_ = false;
    changed_.notify_all();
    return code;
}

// Whether the address space has room for another map of that size (0: for the one that another process gave
// it). LMDB gives up the old map first and cannot go on without one.
bool LmdbEnvironment::IsRoomFor(size_t bytes) const noexcept {
    if (bytes == 0) bytes = MapBytes();
    void* const probe = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (probe == MAP_FAILED) return false;
    munmap(probe, bytes);
    return true;
}

// LMDB reads this in the map itself.
size_t LmdbEnvironment::MapBytes() const noexcept {
    MDB_envinfo info{};
    mdb_env_info(env_, &info);
    return info.me_mapsize;
}

// The transaction keeps the map where it is meanwhile. The pages of a file that nobody writes through the map
// come back unchanged when they are read again.
void LmdbEnvironment::LetGo(const MapRange& scanned) noexcept {
    const std::lock_guard lock(mutex_);
    scanned_.Add(scanned);
    if (scanned_.read_bytes < kScannedBeforeLetGo) return;
    const auto page_bytes = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const char* const page = scanned_.begin - reinterpret_cast<uintptr_t>(scanned_.begin) % page_bytes;
    madvise(const_cast<char*>(page), static_cast<size_t>(scanned_.end - page), MADV_DONTNEED);
    scanned_ = {};
}

Status LmdbEnvironment::Grow(size_t full_bytes) {
    int dead_readers = 0;
    mdb_reader_check(env_, &dead_readers);
    const int code = Resize(full_bytes);
    return code == 0 ? Status() : StatusOf(code, "the store " + directory_ + " cannot grow");
}

}  // namespace service
