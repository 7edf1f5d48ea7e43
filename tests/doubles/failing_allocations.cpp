#include "tests/doubles/failing_allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> g_live{0};

void* Allocate(std::size_t size) noexcept {
    doubles::AllocationSwitches& switches = doubles::g_allocationSwitches;
    if (switches.spared == 0 && switches.untilFailure > 0 && --switches.untilFailure == 0) {
        switches.failed = true;
        return nullptr;
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void* AllocateOrThrow(std::size_t size) {
    if (void* const memory = Allocate(size)) return memory;
    throw std::bad_alloc();
}

void Free(void* memory) noexcept {
    if (memory == nullptr) return;
    g_live.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

}  // namespace

long doubles::LiveAllocations() noexcept {
    return g_live.load();
}

void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete[](void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    Free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    Free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    Free(memory);
}
