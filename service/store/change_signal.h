// ChangeSignal: a number that all processes of a store share and that grows with each commit which changed
// instances; a thread can sleep until it does. Only for service/store.
//
//   ChangeSignal signal;
//   signal.Open(directory + "/changes.signal");
//   signal.Raise();                              // after the commit
//   const uint32_t seen = signal.Read();         // before looking for changes
//   signal.Wait(seen, std::chrono::seconds(1));  // returns at once when it was raised since
//
// It is a futex word in a small file. Nobody relies on it alone: a writer may die between its commit and the
// signal, so a wait has an end, and whoever waits looks for itself then. Where the file cannot be had, a wait
// ends after a tenth of a second, for whoever waits to look for itself. What the number is does not
// matter, and neither does who was killed while using it.
//
// Any thread of any process.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace service {

class ChangeSignal {
 public:
    ChangeSignal() noexcept = default;
    ~ChangeSignal();
    ChangeSignal(const ChangeSignal&) = delete;
    ChangeSignal& operator=(const ChangeSignal&) = delete;

    // Maps the file, made if it does not exist.
    void Open(const std::string& path) noexcept;

    // One of kNotes numbers that all processes of the store share, for whoever needs one; 0 at first. Null
    // where the file cannot be had.
    static constexpr size_t kNotes = 2;
    std::atomic<uint64_t>* note(size_t index) const noexcept;

    // The same of a file that is not open; 0 where there is none.
    static uint64_t NoteIn(const std::string& path, size_t index) noexcept;

    uint32_t Read() const noexcept;
    void Raise() noexcept;
    void Wait(uint32_t seen, std::chrono::nanoseconds timeout) noexcept;

 private:
    std::atomic<uint32_t>* word_ = nullptr;
};

}  // namespace service
