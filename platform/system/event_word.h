// EventWord is the state of one event, as it lies in memory that processes share. For the files of this
// folder only.
//
//   EventWord word(EventKind::automatic, is_set);
//   word.Set(kind);
//   if (word.Wait(kind, milliseconds)) ...   // let through
//
// Any thread of any process that has the memory mapped, shared. There is no lock that a killed process could
// leave behind: a call that is cut short at any instruction has either happened or not.
//
// An automatic event is handed over by the system's wake-up itself: a waiter that is woken is let through,
// and whether one was woken decides whether the event stays set. Since the system alone knows who sleeps, a
// waiter killed in its sleep takes nothing with it; one killed after it was let through had the event. A
// waiter whose process is stopped, or which runs a signal's handler, does not sleep for that time; it looks
// at the event when it goes on.
#pragma once

#include <atomic>
#include <cstdint>

#include <windef.h>

namespace mgmt_platform {

enum class EventKind : std::uint32_t { automatic, manual };

// Every call on a word must be given the same kind.
class EventWord {
 public:
    explicit EventWord(bool is_set) noexcept : word_(is_set ? SET : 0) {}

    EventWord(const EventWord&) = delete;
    EventWord& operator=(const EventWord&) = delete;

    void Set(EventKind kind) noexcept;
    void Reset(EventKind kind) noexcept;
    // False when the time passed. INFINITE never passes; 0 makes no system call.
    bool Wait(EventKind kind, DWORD milliseconds) noexcept;

 private:
    class Deadline;
    enum class Sleep { was_woken, must_look, time_passed };

    // The bits above these two count: the resets of a manual event, the hand-overs of an automatic one.
    static constexpr std::uint32_t SET = 1;
    // An automatic event is being set: it is not known yet whether a waiter takes it.
    static constexpr std::uint32_t HANDING_OVER = 2;
    static constexpr std::uint32_t ONE = 4;

    bool Change(std::uint32_t from, std::uint32_t to) noexcept;
    bool TryTake() noexcept;
    bool TryHandOver(std::uint32_t word) noexcept;
    void SetAutomatic() noexcept;
    void SetManual() noexcept;
    bool WaitAutomatic(const Deadline& deadline) noexcept;
    bool WaitManual(const Deadline& deadline) noexcept;
    void PassHandOver(std::uint32_t word, int& patience) noexcept;
    Sleep SleepWhile(std::uint32_t word, const Deadline& deadline) noexcept;
    std::uint32_t* Address() noexcept { return reinterpret_cast<std::uint32_t*>(&word_); }

    std::atomic<std::uint32_t> word_;
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(EventWord) == sizeof(std::uint32_t));

}  // namespace mgmt_platform
