// SPDX-License-Identifier: MIT
#include "MallocMeter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

std::atomic<long> g_Failing{0};
std::atomic<long> g_Count{0};

bool Fails() {
    const bool fails = ++g_Count == g_Failing.load();
    if (fails) errno = ENOMEM;
    return fails;
}

} // namespace

void MallocMeter::FailAfter(long allocations) {
    g_Count = 0;
    g_Failing = allocations;
}

long MallocMeter::Allocations() { return g_Count; }

extern "C" {
void* malloc(std::size_t size) { return Fails() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) { return Fails() ? nullptr : __libc_calloc(count, size); }
void* realloc(void* block, std::size_t size) { return Fails() ? nullptr : __libc_realloc(block, size); }
}
