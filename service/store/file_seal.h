// FileSeal: whether a data file was written to by anybody but the store's own writers since it was looked
// through last. Only for service/store.
//
//   if (!seal.Holds()) ...                         // at opening: look the file through
//   const FileSeal::Writing writing(seal, number); // around a commit, within LMDB's lock until it commits
//
// The seal is a time, kept where all processes of the store see it. Before a writer's first byte it is
// broken, that is replaced by the number of the transaction; afterwards the file is sealed anew with the time
// it is then. So a file that was changed later than its seal says (st_ctime, which nobody can set) was
// changed by someone else, or by a writer that was killed at it. Not seen are a disk that returns other bytes
// than it was given, and a change in the same hundredth of a second as one of the store's own. LMDB writes
// some pages of a transaction that changes more than 131,072 of them before it commits, and these count as
// somebody else's.
//
// Asking for the file's time is not free: Linux gives a file that was asked for it a time of its own with the
// next write (multigrain timestamps, 6.13), and where the file system has no journal each flush then writes
// the inode too, which makes a commit slower by a quarter. So writers ask a hundred times a second at most.
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
