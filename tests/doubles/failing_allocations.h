// Makes memory run out at a chosen allocation.
//
//   for (long n = 1;; ++n) {
//       doubles::FailingAllocation failing(n);      // this thread's n-th allocation from here on fails
//       Attempt();
//       if (!failing.HasFailed()) break;            // the attempt made fewer than n allocations
//   }
//
// Works in executables that compile failing_allocations.cpp, which replaces the global operator new and
// operator delete. Only the thread that made the object is affected. Elsewhere the switches do nothing.
#pragma once

namespace doubles {

struct AllocationSwitches {
    long untilFailure = 0;  // 0: no failure is due
    bool failed = false;
    int spared = 0;
};

inline thread_local AllocationSwitches g_allocationSwitches;

// Allocations that are not freed yet, of all threads.
long LiveAllocations() noexcept;

class FailingAllocation {
 public:
    explicit FailingAllocation(long number) noexcept { g_allocationSwitches = {number, false, 0}; }
    ~FailingAllocation() { g_allocationSwitches = {}; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    bool HasFailed() const noexcept { return g_allocationSwitches.failed; }
};

// While one lives, this thread's allocations are neither counted nor made to fail: for the bookkeeping of
// doubles and tests.
class SparedAllocations {
 public:
    SparedAllocations() noexcept { ++g_allocationSwitches.spared; }
    ~SparedAllocations() { --g_allocationSwitches.spared; }
    SparedAllocations(const SparedAllocations&) = delete;
    SparedAllocations& operator=(const SparedAllocations&) = delete;
};

}  // namespace doubles
