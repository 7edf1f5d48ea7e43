// Counts the allocations of this thread, those of every library included.
//
//   const uint64_t before = AllocationCount();
//   Work();
//   const uint64_t allocations = AllocationCount() - before;
#pragma once

#include <cstdint>

uint64_t AllocationCount() noexcept;
