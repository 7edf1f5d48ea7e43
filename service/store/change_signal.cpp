#include "service/store/change_signal.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <thread>

#include "service/store/store_files.h"

namespace service {
namespace {

constexpr size_t kFileBytes = 4096;
constexpr size_t kNotesOffset = 64;
constexpr std::chrono::milliseconds kWithoutSignal{100};

static_assert(std::atomic<uint32_t>::is_always_lock_free &&
              sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
static_assert(std::atomic<uint64_t>::is_always_lock_free &&
              sizeof(std::atomic<uint64_t>) == sizeof(uint64_t));

constexpr size_t PlaceOfNote(size_t index) noexcept {
    return kNotesOffset + index * sizeof(uint64_t);
}

long Futex(std::atomic<uint32_t>* word, int operation, uint32_t value, const timespec* timeout) noexcept {
    return syscall(SYS_futex, word, operation, value, timeout, nullptr, 0);
}

}  // namespace

ChangeSignal::~ChangeSignal() {
    if (word_) munmap(static_cast<void*>(word_), kFileBytes);
}

// The file is allocated in full: a page that finds no room on the disk would kill the process.
void ChangeSignal::Open(const std::string& path) noexcept {
    int fd = -1;
    try {
        fd = OpenStoreFile(path);
    } catch (...) {
        return;  // as where the file cannot be had
    }
    if (fd < 0) return;
    if (posix_fallocate(fd, 0, kFileBytes) == 0) {
        void* const bytes = mmap(nullptr, kFileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (bytes != MAP_FAILED) word_ = static_cast<std::atomic<uint32_t>*>(bytes);
    }
    close(fd);
}

std::atomic<uint64_t>* ChangeSignal::note(size_t index) const noexcept {
    char* const bytes = reinterpret_cast<char*>(word_);
    return bytes ? reinterpret_cast<std::atomic<uint64_t>*>(bytes + PlaceOfNote(index)) : nullptr;
}

uint64_t ChangeSignal::NoteIn(const std::string& path, size_t index) noexcept {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    uint64_t noted = 0;
    const auto place = static_cast<off_t>(PlaceOfNote(index));
    if (fd < 0 || pread(fd, &noted, sizeof noted, place) != sizeof noted) noted = 0;
    if (fd >= 0) close(fd);
    return noted;
}

uint32_t ChangeSignal::Read() const noexcept {
    return word_ ? word_->load(std::memory_order_acquire) : 0;
}

// The wake-up is asked for whether anybody waits or not: a note of that in the word would be lost with a
// writer that is killed right here, and the next one would wake nobody.
void ChangeSignal::Raise() noexcept {
    if (!word_) return;
    word_->fetch_add(1, std::memory_order_acq_rel);
    Futex(word_, FUTEX_WAKE, INT_MAX, nullptr);
}

void ChangeSignal::Wait(uint32_t seen, std::chrono::nanoseconds timeout) noexcept {
    if (!word_) {
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(timeout, kWithoutSignal));
        return;
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const timespec limit{static_cast<time_t>(seconds.count()),
                         static_cast<long>((timeout - seconds).count())};
    Futex(word_, FUTEX_WAIT, seen, &limit);
}

}  // namespace service
