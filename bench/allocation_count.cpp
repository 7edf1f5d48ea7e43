#include "bench/allocation_count.h"

#include <cstddef>

// The C library's own names behind malloc: defining malloc in the program counts the calls of all libraries.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {
// Of a kind that needs no allocation of its own when a thread first touches it.
thread_local uint64_t t_allocations __attribute__((tls_model("initial-exec"))) = 0;
}  // namespace

uint64_t AllocationCount() noexcept {
    return t_allocations;
}

extern "C" void* malloc(size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
    ++t_allocations;
    return __libc_realloc(block, size);
}
