// What the store does about fork: a child must not use its parent's LMDB environment, and must not find a
// lock held by a thread that it does not have. Only for service/store.
//
//   ForkSafeMutex mutex;                                // is free in a forked child, whoever held it
//   const std::lock_guard lock(mutex);
//   if (opened_at != ForkCount()) ...                   // the process was forked since
//
// A thread that holds a ForkSafeMutex must wait for nothing else: neither for another one, nor for a
// transaction; nor may it make or destroy one. Fork takes all of them in no particular order.
#pragma once

#include <mutex>

namespace service {

// How often this process and those it descends from were forked since the first call.
unsigned ForkCount() noexcept;

class ForkSafeMutex {
 public:
    ForkSafeMutex();
    ~ForkSafeMutex();
    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

 private:
    friend struct ForkHandlers;

    std::mutex mutex_;
    ForkSafeMutex* previous_ = nullptr;
    ForkSafeMutex* next_ = nullptr;
};

}  // namespace service
