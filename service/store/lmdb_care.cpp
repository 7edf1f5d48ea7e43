// What is done with an LmdbEnvironment as a whole: looking it through, copying it, telling how full it is.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "service/store/lmdb_environment.h"
#include "service/store/lmdb_file.h"
#include "service/store/store_files.h"

namespace service {
namespace {

Status BackupFault(int error, const std::string& path) {
    return {SystemFault(error, {}).code(), "the backup " + path + " cannot be made: " + std::strerror(error) +
                                               ". Nothing was left behind; make room or name another place"};
}

// A directory with a data file in the making, gone unless it was put in its place.
class PartialCopy {
 public:
    explicit PartialCopy(const std::string& final_path)
        : path_(final_path + ".partial-" + std::to_string(getpid())), file_(path_ + "/data.mdb") {}
    ~PartialCopy() {
        if (fd_ >= 0) close(fd_);
        if (!is_made_) return;
        unlink(file_.c_str());
        rmdir(path_.c_str());
    }
    PartialCopy(const PartialCopy&) = delete;
    PartialCopy& operator=(const PartialCopy&) = delete;

    // The system's error, or 0.
    int Make() {
        if (mkdir(path_.c_str(), 0700) != 0) return errno;
        is_made_ = true;
        fd_ = open(file_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kStoreFileMode);
        return fd_ < 0 ? errno : 0;
    }
    int Empty() const noexcept { return ftruncate(fd_, 0) == 0 && lseek(fd_, 0, SEEK_SET) == 0 ? 0 : errno; }
    int PutInPlace(const std::string& final_path) {
        if (fsync(fd_) != 0) return errno;
        SyncDirectory(path_);
        if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, final_path.c_str(), RENAME_NOREPLACE) != 0) {
            // Some file systems cannot refuse to replace; an empty directory is all that a rename replaces.
            if (errno != EINVAL || rename(path_.c_str(), final_path.c_str()) != 0) return errno;
        }
        is_made_ = false;
        SyncDirectory(final_path);
        return 0;
    }
    int fd() const noexcept { return fd_; }

 private:
    const std::string path_;
    const std::string file_;
    bool is_made_ = false;
    int fd_ = -1;
};

// Those of processes that were ended in the middle of it.
void RemoveAbandonedCopies(const std::string& final_path) {
    namespace fs = std::filesystem;
    const fs::path path(final_path);
    const std::string prefix = path.filename().string() + ".partial-";
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code fault;
    for (const auto& entry : fs::directory_iterator(folder, fault)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(prefix)) continue;
        const int process = std::atoi(name.c_str() + prefix.size());
        const bool is_gone = process > 0 && kill(process, 0) != 0 && errno == ESRCH;
        if (!is_gone) continue;
        unlink((entry.path() / "data.mdb").c_str());
        rmdir(entry.path().c_str());
    }
}

}  // namespace

// The state that is looked at must not be overtaken by two commits before it was begun with.
Status LmdbEnvironment::FindFaults(FunctionRef<bool(const std::string&)> found) {
    constexpr int kAttempts = 1000;
    int fd = -1;
    if (const int code = mdb_env_get_fd(env_, &fd); code != 0)
        return StatusOf(code, "the store " + directory_ + " cannot be read");
    uint64_t first = 0;
    uint64_t last = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ReadTransaction txn(*this);
        SERVICE_RETURN_IF_ERROR(txn.Begin());
        last = mdb_txn_id(txn.get());
        if (attempt == 0) first = last;
        if (LmdbFile(fd).FindFaults(last, found)) return {};
    }
    if (first == last) {
        return {WBEM_E_NOT_AVAILABLE,
                "the file lock.mdb of the store " + directory_ +
                    " belongs to another data file, which a process still uses: end the "
                    "processes that use the store, then try again"};
    }
    return {WBEM_E_NOT_AVAILABLE,
            "the store " + directory_ + " is being changed too fast to be looked through: try again later"};
}

// The copy has the pages where this has them, and so the redo slots. What they hold may belong to commits
// after the copied state, and is left out.
Status LmdbEnvironment::CopyTo(const std::string& directory) {
    std::string path = directory;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    struct stat facts {};
    if (path.empty()) return {WBEM_E_INVALID_PARAMETER, "the path of the backup must not be empty"};
    if (lstat(path.c_str(), &facts) == 0) {
        return {WBEM_E_ALREADY_EXISTS,
                "the backup cannot be made: there is something named " + path + " already. Name a new path"};
    }
    std::string damage;
    SERVICE_RETURN_IF_ERROR(FindFaults([&](const std::string& fault) {
        damage = fault;
        return false;
    }));
    if (!damage.empty()) return Damaged(damage);
    RemoveAbandonedCopies(path);
    PartialCopy copy(path);
    if (const int error = copy.Make(); error != 0) return BackupFault(error, path);
    int code = CopyFile(copy.fd());
    while (code == MDB_MAP_RESIZED) {
        code = Resize(0);
        if (code == 0) code = copy.Empty();
        if (code == 0) code = CopyFile(copy.fd());
    }
    if (code > 0) return BackupFault(code, path);
    if (code != 0) return StatusOf(code, "the store " + directory_ + " cannot be copied");
    if (!redo_.EmptyIn(copy.fd())) return BackupFault(errno, path);
    const int error = copy.PutInPlace(path);
    if (error == EEXIST || error == ENOTEMPTY)
        return {WBEM_E_ALREADY_EXISTS,
                "the backup cannot be made: there is something named " + path + " by now. Name a new path"};
    return error == 0 ? Status() : BackupFault(error, path);
}

int LmdbEnvironment::CopyFile(int fd) {
    {
        std::unique_lock lock(mutex_);
        EnterTransaction(lock);
    }
    const int code = mdb_env_copyfd2(env_, fd, 0);
    LeaveTransaction();
    return code;
}

Status LmdbEnvironment::Figures(StoreFigures& figures) {
    ReadTransaction txn(*this);
    SERVICE_RETURN_IF_ERROR(txn.Begin());
    MDB_envinfo info{};
    MDB_stat log{};
    int code = mdb_env_info(env_, &info);
    MDB_stat instances{};
    if (code == 0) code = mdb_stat(txn.get(), tables_.log, &log);
    if (code == 0) code = mdb_stat(txn.get(), tables_.instances, &instances);
    if (code != 0) return StatusOf(code, "the store " + directory_ + " cannot be read");
    // One line for each place that is taken, and one in front of them.
    int lines = 0;
    const auto count = [](const char*, void* context) { return ++*static_cast<int*>(context); };
    mdb_reader_list(env_, count, &lines);
    figures.map_bytes = info.me_mapsize;
    figures.used_bytes = (info.me_last_pgno + 1) * log.ms_psize;
    figures.max_readers = info.me_maxreaders;
    figures.readers = static_cast<uint64_t>(lines > 1 ? lines - 1 : 0);
    figures.max_log_bytes = options_.change_log_bytes;
    figures.log_bytes = (log.ms_branch_pages + log.ms_leaf_pages + log.ms_overflow_pages) * log.ms_psize;
    figures.instances = instances.ms_entries;
    figures.changes = log.ms_entries;
    return {};
}

}  // namespace service
