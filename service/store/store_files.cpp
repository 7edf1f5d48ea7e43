#include "service/store/store_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/store/file_seal.h"

namespace service {
namespace {

constexpr mode_t kDirectoryMode = 0700;

// Of the entries of a directory, one that belongs to no store; empty when there is none. What cannot be
// listed is left to whoever opens it.
std::string FirstForeignEntry(const std::string& directory) {
    std::error_code fault;
    for (const auto& entry : std::filesystem::directory_iterator(directory, fault)) {
        const std::string name = entry.path().filename().string();
        const bool is_known = name == "data.mdb" || name == "lock.mdb" || name == "changes.signal" ||
                              name == "lost+found" || name.starts_with(".");
        if (!is_known) return name;
    }
    return {};
}

}  // namespace

Status SystemFault(int error, const std::string& what) {
    std::string reason = what + ": " + std::strerror(error);
    switch (error) {
        case EACCES:
        case EPERM:
            return {WBEM_E_ACCESS_DENIED,
                    reason +
                        ". The store belongs to the account that made it: run as that account, "
                        "or name another store with MGMT_STORE"};
        case EROFS:
            return {WBEM_E_ACCESS_DENIED,
                    reason +
                        ". The store needs a file system that can be written to: mount it so, or name "
                        "another store with MGMT_STORE"};
        case ENOSPC:
        case EDQUOT:
            return {WBEM_E_OUT_OF_DISK_SPACE, reason + ". Nothing was changed; make room and try again"};
        case ENOMEM:
            return {WBEM_E_OUT_OF_MEMORY, reason + ". Raise the limit of the process's memory (ulimit -v)"};
        case ENOTDIR:
        case ENAMETOOLONG:
        case ELOOP:
            return {WBEM_E_NOT_AVAILABLE, reason + ". MGMT_STORE must name a directory"};
        case EFBIG:
            return {WBEM_E_NOT_AVAILABLE, reason + ". Raise the limit of the size of files (ulimit -f)"};
        case EMFILE:
        case ENFILE:
            return {WBEM_E_NOT_AVAILABLE, reason + ". Raise the limit of open files, or close some"};
        default:
            return {WBEM_E_NOT_AVAILABLE, reason};
    }
}

bool HasStore(const std::string& directory) noexcept {
    struct stat facts {};
    try {
        if (stat((directory + "/data.mdb").c_str(), &facts) == 0)
            return facts.st_size != 0 || WasInUse(directory);
    } catch (...) {
        return true;
    }
    return errno != ENOENT;
}

bool WasInUse(const std::string& directory) noexcept {
    try {
        return FileSeal::WasMadeIn(directory + "/changes.signal");
    } catch (...) {
        return false;
    }
}

int OpenStoreFile(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    int fd = open(path.c_str(), kFlags);
    if (fd >= 0 || errno != ENOENT) return fd;
    fd = open(path.c_str(), kFlags | O_CREAT | O_EXCL, kStoreFileMode);
    if (fd < 0) return errno == EEXIST ? open(path.c_str(), kFlags) : -1;
    struct stat directory {};
    const bool is_others = geteuid() == 0 && stat(path.substr(0, path.rfind('/')).c_str(), &directory) == 0 &&
                           directory.st_uid != 0;
    // Where it cannot be given away it stays root's.
    if (is_others) static_cast<void>(!fchown(fd, directory.st_uid, directory.st_gid));
    return fd;
}

Status MakeDirectory(const std::string& directory) {
    if (directory.empty())
        return {WBEM_E_NOT_AVAILABLE, "the store's directory has no name: set MGMT_STORE or HOME"};
    for (size_t end = directory.find('/', 1); end != std::string::npos; end = directory.find('/', end + 1)) {
        const std::string parent = directory.substr(0, end);
        if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
            return SystemFault(errno, "the directory " + parent + " for the store cannot be made");
        }
    }
    if (mkdir(directory.c_str(), kDirectoryMode) == 0) return {};
    if (errno != EEXIST) return SystemFault(errno, "the store " + directory + " cannot be made");
    if (HasStore(directory)) return {};
    if (const std::string foreign = FirstForeignEntry(directory); !foreign.empty()) {
        return {WBEM_E_NOT_AVAILABLE, "the directory " + directory + " is no store: it holds " + foreign +
                                          ". Name a new or an empty directory with MGMT_STORE"};
    }
    return {};
}

Status AllocateLockFile(const std::string& directory, unsigned max_readers) {
    constexpr off_t kBytesPerReader = 64;
    const std::string what = "the store " + directory + " cannot be opened";
    const int fd = OpenStoreFile(directory + "/lock.mdb");
    if (fd < 0) return SystemFault(errno, what);
    const off_t bytes = kBytesPerReader * (static_cast<off_t>(max_readers) + 2);
    struct stat facts {};
    int code = fstat(fd, &facts) != 0 ? errno : 0;
    if (code == 0 && !S_ISREG(facts.st_mode)) {
        close(fd);
        return {WBEM_E_NOT_AVAILABLE,
                what + ": its file lock.mdb is no regular file. Name another directory with MGMT_STORE"};
    }
    constexpr off_t kBytesPerBlock = 512;
    if (code == 0 && facts.st_blocks * kBytesPerBlock < bytes) code = posix_fallocate(fd, 0, bytes);
    close(fd);
    // A file system that cannot allocate ahead leaves it to LMDB.
    return code == 0 || code == EOPNOTSUPP || code == EINVAL ? Status() : SystemFault(code, what);
}

void SyncDirectory(const std::string& directory) noexcept {
    for (const std::string& path : {directory, directory + "/.."}) {
        const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) continue;
        fsync(fd);
        close(fd);
    }
}

uint64_t NumberOfBoot() {
    std::string id;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
    return id.empty() ? 0 : XXH64(id.data(), id.size(), 0);
}

StandardDescriptors::StandardDescriptors() noexcept {
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) {
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
        if (fd >= 0 && fd <= STDERR_FILENO) taken_[count_++] = fd;
        if (fd > STDERR_FILENO) close(fd);
    }
}

StandardDescriptors::~StandardDescriptors() {
    while (count_ > 0)
        close(taken_[--count_]);
}

}  // namespace service
