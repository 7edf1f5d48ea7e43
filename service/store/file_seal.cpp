// The state is one number: twice the time in nanoseconds where the file is sealed, twice the number of the
// transaction and one while that is being written.
#include "service/store/file_seal.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace service {
namespace {

constexpr size_t kBootNote = 0;
constexpr size_t kStateNote = 1;
constexpr int64_t kPerSecond = 1'000'000'000;
constexpr int64_t kBetweenQuestions = kPerSecond / 100;
constexpr uint64_t kNeverSealed = UINT64_MAX - 1;  // later than any seal
constexpr std::chrono::milliseconds kLongestWait{50};
constexpr std::chrono::microseconds kBetweenLooks{200};

constexpr bool IsSeal(uint64_t state) noexcept {
    return state % 2 == 0;
}

constexpr uint64_t SealOf(const timespec& time) noexcept {
    return static_cast<uint64_t>(time.tv_sec * kPerSecond + time.tv_nsec) * 2;
}

uint64_t SealOfNow() noexcept {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return SealOf(time);
}

constexpr uint64_t BrokenFor(uint64_t number) noexcept {
    return number * 2 + 1;
}

}  // namespace

void FileSeal::Open(const ChangeSignal& signal, int fd, uint64_t boot) noexcept {
    boot_of_seal_ = signal.note(kBootNote);
    state_ = signal.note(kStateNote);
    fd_ = fd;
    boot_ = boot;
}

bool FileSeal::Rarely::IsTime() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    const int64_t now = time.tv_sec * kPerSecond + time.tv_nsec;
    if (now < next_.load(std::memory_order_relaxed)) return false;
    next_.store(now + kBetweenQuestions, std::memory_order_relaxed);
    return true;
}

uint64_t FileSeal::TimeOfFile() const noexcept {
    struct stat facts {};
    return fstat(fd_, &facts) == 0 ? SealOf(facts.st_ctim) : kNeverSealed;
}

// Every writer looks at the seal before it breaks it. So who sees one commit give way to another state knows
// that the file was in order until then, though with many writers there may be no moment without a commit.
bool FileSeal::Holds() const noexcept {
    if (!state_ || boot_of_seal_->load() != boot_) return false;
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    const uint64_t first = state_->load();
    for (uint64_t state = first;; state = state_->load()) {
        if (IsSeal(state)) {
            if (TimeOfFile() <= state) return true;
            if (state == state_->load()) return false;
        } else if (!IsSeal(first) && state != first) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

bool FileSeal::IsChangedAfter(uint64_t seal) const noexcept {
    return TimeOfFile() > seal && seal == state_->load();
}

bool FileSeal::IsViolated() noexcept {
    if (!state_) return false;
    const uint64_t state = state_->load();
    const uint64_t before = state_before_.exchange(state);
    return IsSeal(state) ? IsChangedAfter(state) : state == before;
}

// The one before may have given LMDB's lock away and not sealed the file yet. One of this number has not come
// to its end.
bool FileSeal::IsViolatedBefore(uint64_t number) noexcept {
    if (!state_) return false;
    const uint64_t state = state_->load();
    if (!IsSeal(state)) return state != BrokenFor(number - 1);
    if (!before_commit_.IsTime() || !IsChangedAfter(state)) return false;
    // Until the file is sealed anew each writer is to know.
    before_commit_.AskAgain();
    return true;
}

void FileSeal::Doubt() noexcept {
    if (state_) state_->store(0);
}

FileSeal::Look FileSeal::BeginLook() const noexcept {
    return {state_ ? state_->load() : 0, TimeOfFile()};
}

// A writer that has looked at the seal meanwhile, or broken it, has seen to it.
void FileSeal::EndLook(const Look& look) noexcept {
    if (!state_) return;
    uint64_t expected = look.state;
    if (TimeOfFile() == look.time) state_->compare_exchange_strong(expected, look.time);
    boot_of_seal_->store(boot_);
}

FileSeal::Writing::Writing(FileSeal& seal, uint64_t number) noexcept
    : seal_(seal), broken_(BrokenFor(number)) {
    if (seal_.state_) seal_.state_->store(broken_);
}

// The next writer may be at it already, and will seal the file. Somebody may have taken this one for dead and
// sealed the file meanwhile. The file's time is the better seal, where its file system has a clock of its
// own.
FileSeal::Writing::~Writing() {
    if (!seal_.state_) return;
    const bool is_exact = seal_.after_commit_.IsTime();
    uint64_t state = broken_;
    while (IsSeal(state) || state == broken_) {
        if (seal_.state_->compare_exchange_strong(state, is_exact ? seal_.TimeOfFile() : SealOfNow())) return;
    }
}

bool FileSeal::WasMadeIn(const std::string& signal_path) noexcept {
    return ChangeSignal::NoteIn(signal_path, kBootNote) != 0;
}

}  // namespace service
