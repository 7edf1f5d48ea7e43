// FileSeal: whether a data file was written to by anybody but the store's own writers since it was looked
// through last. Only for service/store.
//
//   if (!seal.Holds()) ...                         // at opening: look the file through
//   const FileSeal::Writing writing(seal, number); // around a commit, within LMDB's lock until it commits
//
// The seal is the time of the file's last change (st_ctime, which nobody can set), kept where all processes
// of the store see it. Before a writer's first byte it is broken, that is replaced by the number of the
// transaction; afterwards the file is sealed anew with the time it has then. So a file whose time is another
// than that of its seal was changed by someone else, or by a writer that was killed at it. What the clock of
// the file system cannot tell apart, a change within the same tick, and a disk that returns other bytes than
// it was given are not seen.
//
// Without the file of the signal there is no seal: it never holds at an opening, and nobody else asks.
//
// Any thread of any process.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "service/store/change_signal.h"

namespace service {

class FileSeal {
 public:
    // The notes are `signal`'s, the data file is that of LMDB's descriptor `fd`; both must outlive this.
    // `boot` is a number of the system's run since it was started: a seal is good for one run.
    void Open(const ChangeSignal& signal, int fd, uint64_t boot) noexcept;

    // Whether the file is as it was sealed. A commit of another process that is under way is waited for, but
    // not for long: false when it does not end.
    bool Holds() const noexcept;

    // Whether the file was changed after it was sealed, as far as that can be told at once. A commit that is
    // under way when this is asked, and the next time still, is taken for that of a killed process.
    bool IsViolated() noexcept;

    // The same, asked by the writer of transaction `number` within LMDB's lock.
    bool IsViolatedBefore(uint64_t number) noexcept;

    // Has the file count as changed until it was looked through.
    void Doubt() noexcept;

    // Around looking the file through: it is sealed if nobody changed it meanwhile.
    struct Look {
        uint64_t state;
        uint64_t time;
    };
    Look BeginLook() const noexcept;
    void EndLook(const Look& look) noexcept;

    // Around writing to the file.
    class Writing {
     public:
        Writing(FileSeal& seal, uint64_t number) noexcept;
        ~Writing();
        Writing(const Writing&) = delete;
        Writing& operator=(const Writing&) = delete;

     private:
        FileSeal& seal_;
        const uint64_t broken_;
    };

    // Whether a file of the store's signal tells that the store's data file was sealed once.
    static bool WasMadeIn(const std::string& signal_path) noexcept;

 private:
    // Whether it is time to ask again.
    class Rarely {
     public:
        bool IsTime() noexcept;
        void AskAgain() noexcept { next_.store(0, std::memory_order_relaxed); }

     private:
        std::atomic<int64_t> next_{0};
    };

    uint64_t TimeOfFile() const noexcept;
    bool IsChangedAfter(uint64_t seal) const noexcept;

    std::atomic<uint64_t>* boot_of_seal_ = nullptr;
    std::atomic<uint64_t>* state_ = nullptr;
    int fd_ = -1;
    uint64_t boot_ = 0;
    std::atomic<uint64_t> state_before_{0};
    Rarely before_commit_;
    Rarely after_commit_;
};

}  // namespace service
