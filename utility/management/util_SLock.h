// CSLock owns one critical section; Guard<CSLock> holds it for the length of a block. Internal to the
// library.
//
//   Guard<CSLock> guard(record.m_Lock);
//   record.m_Connected = true;
//
// A thread that holds the lock may take it again and must release it as often; a guard is released by the
// thread that made it. No operation of the library holds two locks at once, so there is no order to keep.
#pragma once

#include <windows.h>

class CSLock {
 public:
    CSLock() noexcept;
    // No thread may hold the lock or wait for it.
    virtual ~CSLock();

    CSLock(const CSLock&) = delete;
    CSLock& operator=(const CSLock&) = delete;

    // Blocks until the calling thread owns the lock. Returns 0.
    int Lock() noexcept;
    // Called by the owner alone. Returns 0.
    int Unlock() noexcept;

 private:
    CRITICAL_SECTION m_CriticalSection;
};

// T offers `int Lock()`, whose result -1 means that the lock was not taken, and `int Unlock()`.
template <typename T>
class Guard {
 public:
    explicit Guard(T& lock) : m_Lock(&lock), m_Status(lock.Lock()) {}

    virtual ~Guard() {
        if (m_Status == RELEASED) return;
        m_Status = RELEASED;
        m_Lock->Unlock();
    }

    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

 private:
    static constexpr int RELEASED = -1;

    T* m_Lock;
    int m_Status;
};
