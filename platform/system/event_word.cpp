#include "platform/system/event_word.h"

#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <synchapi.h>

namespace mgmt_platform {

namespace {

// How often a thread yields to one that is handing over before it makes that one begin again: setters always,
// and a waiter after the first time, or two of them might go on undoing what the other did.
constexpr int PATIENCE = 16;

constexpr long NANOSECONDS_A_MILLISECOND = 1'000'000;
constexpr long NANOSECONDS_A_SECOND = 1'000'000'000;

}  // namespace

// A moment of the monotonic clock.
class EventWord::Deadline {
 public:
    explicit Deadline(DWORD milliseconds) noexcept : is_never_(milliseconds == INFINITE), time_{} {
        if (is_never_) return;
        clock_gettime(CLOCK_MONOTONIC, &time_);
        time_.tv_sec += milliseconds / 1000;
        time_.tv_nsec += static_cast<long>(milliseconds % 1000) * NANOSECONDS_A_MILLISECOND;
        if (time_.tv_nsec < NANOSECONDS_A_SECOND) return;
        time_.tv_nsec -= NANOSECONDS_A_SECOND;
        ++time_.tv_sec;
    }

    const timespec* time() const noexcept { return is_never_ ? nullptr : &time_; }

 private:
    bool is_never_;
    timespec time_;
};

void EventWord::Set(EventKind kind) noexcept {
    kind == EventKind::manual ? SetManual() : SetAutomatic();
}

void EventWord::Reset(EventKind kind) noexcept {
    // The count changes with a manual event's reset, so that those who waited see that it was set.
    const std::uint32_t step = kind == EventKind::manual ? ONE : 0;
    std::uint32_t word = word_.load(std::memory_order_acquire);
    while ((word & SET) != 0 && !word_.compare_exchange_weak(word, (word & ~SET) + step)) {
    }
}

bool EventWord::Wait(EventKind kind, DWORD milliseconds) noexcept {
    if (milliseconds == 0)
        return kind == EventKind::manual ? (word_.load(std::memory_order_acquire) & SET) != 0 : TryTake();
    const Deadline deadline(milliseconds);
    return kind == EventKind::manual ? WaitManual(deadline) : WaitAutomatic(deadline);
}

bool EventWord::Change(std::uint32_t from, std::uint32_t to) noexcept {
    return word_.compare_exchange_strong(from, to);
}

bool EventWord::TryTake() noexcept {
    std::uint32_t word = word_.load(std::memory_order_acquire);
    while ((word & SET) != 0) {
        if (word_.compare_exchange_weak(word, word & ~SET)) return true;
    }
    return false;
}

// While the word says HANDING_OVER nobody falls asleep on it. So, when the system finds no sleeper, there is
// none either at the moment at which the event becomes set: sleepers and a set event never meet.
//
// The hand-over is only tried. Who wants to sleep, or cannot wait for it because its thread is slow or was
// killed, takes HANDING_OVER back; no two hand-overs have the same count, so that this one
// notices. Then either it has woken a sleeper, which is all that there was to do, or the setter begins again.
// False means the latter.
bool EventWord::TryHandOver(std::uint32_t word) noexcept {
    const std::uint32_t handing_over = (word + ONE) | HANDING_OVER;
    if (!Change(word, handing_over)) return false;
    const bool was_taken = syscall(SYS_futex, Address(), FUTEX_WAKE, 1) > 0;
    const std::uint32_t done = (handing_over & ~HANDING_OVER) | (was_taken ? 0 : SET);
    return Change(handing_over, done) || was_taken;
}

void EventWord::SetAutomatic() noexcept {
    int patience = PATIENCE;
    for (;;) {
        const std::uint32_t word = word_.load(std::memory_order_acquire);
        if ((word & SET) != 0) {
            // Writes the same: whoever takes the event shall see what this thread did before, too.
            if (Change(word, word)) return;
        } else if ((word & HANDING_OVER) != 0) {
            PassHandOver(word, patience);
        } else if (TryHandOver(word)) {
            return;
        }
    }
}

// The system sets the bit and wakes the sleepers in one step: a thread that was killed between the two would
// leave them asleep at an event that is set.
void EventWord::SetManual() noexcept {
    // That step is none of the language's memory model; this one, which changes nothing, is.
    word_.fetch_or(0);
    constexpr int OPERATION = FUTEX_OP(FUTEX_OP_OR, SET, FUTEX_OP_CMP_EQ, 0);
    constexpr unsigned long WAKE_NO_OTHERS = 0;
    syscall(SYS_futex, Address(), FUTEX_WAKE_OP, INT_MAX, WAKE_NO_OTHERS, Address(), OPERATION);
}

bool EventWord::WaitAutomatic(const Deadline& deadline) noexcept {
    int patience = 0;
    for (;;) {
        if (TryTake()) return true;
        const std::uint32_t word = word_.load(std::memory_order_acquire);
        if ((word & SET) != 0) continue;
        if ((word & HANDING_OVER) != 0) {
            PassHandOver(word, patience);
            continue;
        }
        const Sleep sleep = SleepWhile(word, deadline);
        if (sleep == Sleep::must_look) continue;
        // Reads what the waking thread wrote, and so sees what it did before.
        static_cast<void>(word_.load(std::memory_order_acquire));
        return sleep == Sleep::was_woken;
    }
}

bool EventWord::WaitManual(const Deadline& deadline) noexcept {
    const std::uint32_t start = word_.load(std::memory_order_acquire);
    if ((start & SET) != 0) return true;
    // Any change means that the event has been set, also when it is reset again.
    while (word_.load(std::memory_order_acquire) == start) {
        if (SleepWhile(start, deadline) == Sleep::time_passed)
            return word_.load(std::memory_order_acquire) != start;
    }
    return true;
}

void EventWord::PassHandOver(std::uint32_t word, int& patience) noexcept {
    if (patience > 0) {
        --patience;
        sched_yield();
    } else {
        Change(word, word & ~HANDING_OVER);
        patience = PATIENCE;
    }
}

// What the system promises here: it says "woken" exactly to those sleepers that a wake-up counted, whatever
// signal or time-out came at the same moment.
EventWord::Sleep EventWord::SleepWhile(std::uint32_t word, const Deadline& deadline) noexcept {
    // This form of the call, and not the plain one, takes a moment of the monotonic clock.
    const long result = syscall(SYS_futex, Address(), FUTEX_WAIT_BITSET, word, deadline.time(), nullptr,
                                FUTEX_BITSET_MATCH_ANY);
    if (result == 0) return Sleep::was_woken;
    return errno == ETIMEDOUT ? Sleep::time_passed : Sleep::must_look;
}

}  // namespace mgmt_platform
