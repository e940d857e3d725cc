// SPDX-License-Identifier: MIT
#include "HeapCount.h"

#include <malloc.h>

#include <cerrno>
#include <cstddef>

// The C library's own functions, under names that stay available when the usual ones are replaced.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

HeapCount g_Count{};

void* Taken(void* memory) {
    if (memory == nullptr) return nullptr;
    ++g_Count.m_Allocations;
    g_Count.m_Live += static_cast<std::int64_t>(malloc_usable_size(memory));
    if (g_Count.m_Live > g_Count.m_Peak) g_Count.m_Peak = g_Count.m_Live;
    return memory;
}

void Given(std::size_t size) { g_Count.m_Live -= static_cast<std::int64_t>(size); }

} // namespace

extern "C" {

HeapCount* qf_heap_count() { return &g_Count; }

void* malloc(std::size_t size) { return Taken(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return Taken(__libc_calloc(count, size)); }
void* memalign(std::size_t alignment, std::size_t size) { return Taken(__libc_memalign(alignment, size)); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* const taken = memalign(alignment, size);
    if (taken == nullptr) return ENOMEM;
    *memory = taken;
    return 0;
}

void* realloc(void* memory, std::size_t size) {
    const std::size_t before = malloc_usable_size(memory);
    void* const moved = __libc_realloc(memory, size);
    if (moved != nullptr || size == 0) Given(before);
    return Taken(moved);
}

void free(void* memory) {
    Given(malloc_usable_size(memory));
    __libc_free(memory);
}
}
