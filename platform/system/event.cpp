#include "platform/system/event.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <synchapi.h>
#include <winerror.h>

namespace mgmt_platform {

// What Create or Open was asked for; Open gives no kind and no state.
struct Event::Wanted {
    std::wstring_view name;
    bool may_create;
    EventKind kind;
    bool is_set;
};

// A file behind its gate, which opens when the file is closed, or the reason why there is none.
struct Event::Gated {
    FileDescriptor file;
    DWORD error;
};

namespace {

constexpr std::uint32_t MAGIC = 0x314E5645;  // "EVN1"; another layout takes another

constexpr char PATH_PREFIX[] = "/dev/shm/mgmt-event-";
// So many units of the name stand in the file's name, for who lists the files.
constexpr std::size_t READABLE_UNITS = 64;

constexpr int OPEN_FLAGS = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr mode_t MODE = S_IRUSR | S_IWUSR;
constexpr mode_t PERMISSIONS = S_IRWXU | S_IRWXG | S_IRWXO;

enum LockedByte : off_t { GATE, HOLD };

DWORD SystemError(int error) noexcept {
    switch (error) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENOMEM:
        case ENOSPC:
        case EDQUOT:
        case ENOLCK:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_ACCESS_DENIED;
    }
}

// FNV-1a.
std::uint64_t HashOf(std::wstring_view name) noexcept {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const wchar_t unit : name) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            hash ^= (static_cast<std::uint32_t>(unit) >> shift) & 0xFF;
            hash *= 0x100000001B3U;
        }
    }
    return hash;
}

bool IsPlain(wchar_t unit) noexcept {
    return (unit >= L'a' && unit <= L'z') || (unit >= L'A' && unit <= L'Z') || (unit >= L'0' && unit <= L'9');
}

std::string PathOf(std::wstring_view name) {
    std::string path = PATH_PREFIX;
    for (const wchar_t unit : name.substr(0, READABLE_UNITS))
        path.push_back(IsPlain(unit) ? static_cast<char>(unit) : '_');
    path.push_back('-');
    const std::uint64_t hash = HashOf(name);
    for (int shift = 60; shift >= 0; shift -= 4)
        path.push_back("0123456789abcdef"[(hash >> shift) & 0xF]);
    return path;
}

bool SetLock(const FileDescriptor& file, LockedByte byte, short type, bool waits) noexcept {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    while (fcntl(file.get(), waits ? F_OFD_SETLKW : F_OFD_SETLK, &lock) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

// By any other open file than this one. A question without an answer counts as yes.
bool IsHeld(const FileDescriptor& file) noexcept {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = HOLD;
    lock.l_len = 1;
    return fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

bool IsOwn(const struct stat& status) noexcept {
    return status.st_uid == geteuid();
}

// No other user can have it open, and it has one name.
bool IsPrivate(const FileDescriptor& file) noexcept {
    struct stat status = {};
    return fstat(file.get(), &status) == 0 && IsOwn(status) && (status.st_mode & PERMISSIONS) == MODE &&
           status.st_nlink == 1;
}

bool HasName(const FileDescriptor& file, const std::string& path) noexcept {
    struct stat opened = {}, named = {};
    return fstat(file.get(), &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool HasPageSize(const FileDescriptor& file) noexcept {
    struct stat status = {};
    return fstat(file.get(), &status) == 0 && status.st_size == sizeof(EventPage);
}

bool IsEventOf(const EventPage& page, std::wstring_view name) noexcept {
    return page.magic == MAGIC && (page.kind == EventKind::automatic || page.kind == EventKind::manual) &&
           page.name_length == name.size() && std::equal(name.begin(), name.end(), page.name);
}

void Format(EventPage* page, std::wstring_view name, EventKind kind, bool is_set) noexcept {
    new (page) EventPage{MAGIC, kind, EventWord(is_set), static_cast<std::uint32_t>(name.size()), {}};
    std::copy(name.begin(), name.end(), page->name);
}

// An empty file whose one page is there, so that no access to it can fail later. 0 or an errno.
int Allocate(const FileDescriptor& file) noexcept {
    if (ftruncate(file.get(), 0) != 0) return errno;
    int error = EINTR;
    while (error == EINTR)
        error = posix_fallocate(file.get(), 0, sizeof(EventPage));
    return error;
}

FileDescriptor CreateFile(const std::string& path) noexcept {
    FileDescriptor file(open(path.c_str(), OPEN_FLAGS | O_CREAT | O_EXCL, MODE));
    // The process's mask may have taken the owner's own rights away.
    if (file) fchmod(file.get(), MODE);
    return file;
}

}  // namespace

EventResult Event::CreateUnnamed(EventKind kind, bool is_set) {
    std::unique_ptr<Event> event(new Event({}, kind));
    if (!event->Map(MAP_SHARED | MAP_ANONYMOUS)) return {nullptr, ERROR_NOT_ENOUGH_MEMORY};
    Format(event->page_.get(), {}, kind, is_set);
    return {std::move(event), ERROR_SUCCESS};
}

EventResult Event::Create(std::wstring_view name, EventKind kind, bool is_set) {
    return Attach({name, true, kind, is_set});
}

EventResult Event::Open(std::wstring_view name) {
    return Attach({name, false, EventKind::automatic, false});
}

Event::~Event() {
    page_ = nullptr;
    LeaveFile();
}

void Event::LetGoOfFile() noexcept {
    if (!file_) return;
    void* const memory = mmap(page_.get(), sizeof(EventPage), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    if (memory != MAP_FAILED) LeaveFile();
}

// A mapping keeps the open file, and so the hold on it, as a descriptor does: it must be gone by now.
void Event::LeaveFile() noexcept {
    if (!file_) return;
    file_.Close();
    const Gated gated = PassGate(path_, false);
    if (gated.file && !IsHeld(gated.file)) unlink(path_.c_str());
}

// Everything that can throw comes first, and from then on the destructor cleans up.
EventResult Event::Attach(const Wanted& wanted) {
    std::unique_ptr<Event> event(new Event(PathOf(wanted.name), wanted.kind));
    const DWORD error = event->AttachFile(wanted);
    if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) event = nullptr;
    return {std::move(event), error};
}

DWORD Event::AttachFile(const Wanted& wanted) noexcept {
    for (;;) {
        Gated gated = PassGate(path_, wanted.may_create);
        if (!gated.file) return gated.error;
        const bool is_held = IsHeld(gated.file);
        if (is_held || (wanted.may_create && IsPrivate(gated.file))) {
            file_ = std::move(gated.file);
            return is_held ? Join(wanted) : Make(wanted);
        }
        if (unlink(path_.c_str()) != 0) return SystemError(errno);
        if (!wanted.may_create) return ERROR_FILE_NOT_FOUND;
    }
}

DWORD Event::Join(const Wanted& wanted) noexcept {
    if (!IsPrivate(file_) || !HasPageSize(file_)) return ERROR_ACCESS_DENIED;
    if (!Map(MAP_SHARED)) return ERROR_NOT_ENOUGH_MEMORY;
    if (!IsEventOf(*page_, wanted.name)) return ERROR_ACCESS_DENIED;
    kind_ = page_->kind;
    const DWORD error = Hold();
    return error == ERROR_SUCCESS && wanted.may_create ? ERROR_ALREADY_EXISTS : error;
}

DWORD Event::Make(const Wanted& wanted) noexcept {
    if (const int error = Allocate(file_); error != 0) return SystemError(error);
    if (!Map(MAP_SHARED)) return ERROR_NOT_ENOUGH_MEMORY;
    Format(page_.get(), wanted.name, wanted.kind, wanted.is_set);
    return Hold();
}

DWORD Event::Hold() noexcept {
    if (!SetLock(file_, HOLD, F_RDLCK, false) || !SetLock(file_, GATE, F_UNLCK, false))
        return SystemError(errno);
    return ERROR_SUCCESS;
}

Event::Gated Event::PassGate(const std::string& path, bool may_create) noexcept {
    for (;;) {
        FileDescriptor file(open(path.c_str(), OPEN_FLAGS));
        if (!file && errno == ENOENT && may_create) {
            file = CreateFile(path);
            if (!file && errno == EEXIST) continue;
            if (!file && errno == ENOENT) return {{}, ERROR_PATH_NOT_FOUND};
        }
        if (!file) return {{}, SystemError(errno)};
        struct stat status = {};
        if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {{}, ERROR_ACCESS_DENIED};
        // Only the superuser gets here with a file of another user, and never waits for that user's locks.
        const bool waits = IsOwn(status);
        if (!SetLock(file, GATE, F_WRLCK, waits))
            return {{}, waits ? SystemError(errno) : ERROR_ACCESS_DENIED};
        if (HasName(file, path)) return {std::move(file), ERROR_SUCCESS};
    }
}

bool Event::Map(int flags) noexcept {
    void* const memory = mmap(nullptr, sizeof(EventPage), PROT_READ | PROT_WRITE, flags, file_.get(), 0);
    if (memory == MAP_FAILED) return false;
    page_.reset(static_cast<EventPage*>(memory));
    return true;
}

void Event::Unmap::operator()(EventPage* page) const noexcept {
    munmap(page, sizeof(EventPage));
}

}  // namespace mgmt_platform
