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

    // A note for all who open the store: what was last passed to Note, 0 at first or where there is no file.
    uint64_t Noted() const noexcept;
    void Note(uint64_t number) noexcept;

    // The same of a file that is not open; 0 where there is none.
    static uint64_t NotedIn(const std::string& path) noexcept;

    uint32_t Read() const noexcept;
    void Raise() noexcept;
    void Wait(uint32_t seen, std::chrono::nanoseconds timeout) noexcept;

 private:
    std::atomic<uint64_t>* note() const noexcept;

    std::atomic<uint32_t>* word_ = nullptr;
};

}  // namespace service
