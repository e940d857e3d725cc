// SPDX-License-Identifier: MIT
#include "HeapMeter.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// One thread at a time, as the plug-in has it.
long g_UntilFailure = 0;
HeapMeter::Failing g_Failing = HeapMeter::Failing::Once;
long g_Allocations = 0;
bool g_RefuseNothrow = false;
long g_Refused = 0;
long g_LiveBlocks = 0;
std::size_t g_LiveOctets = 0;
std::size_t g_PeakOctets = 0;

bool Fails() {
    if (g_UntilFailure == 0 || --g_UntilFailure > 0) return false;
    if (g_Failing == HeapMeter::Failing::FromThereOn) g_UntilFailure = 1;
    return true;
}

void* Allocate(std::size_t size) {
    ++g_Allocations;
    void* const memory = Fails() ? nullptr : std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) return nullptr;
    ++g_LiveBlocks;
    g_LiveOctets += malloc_usable_size(memory);
    g_PeakOctets = std::max(g_PeakOctets, g_LiveOctets);
    return memory;
}

void Free(void* memory) {
    if (memory == nullptr) return;
    --g_LiveBlocks;
    g_LiveOctets -= malloc_usable_size(memory);
    std::free(memory);
}

} // namespace

void HeapMeter::FailAfter(long allocations, Failing failing) {
    g_UntilFailure = allocations;
    g_Failing = failing;
    g_Allocations = 0;
}

long HeapMeter::Allocations() { return g_Allocations; }
void HeapMeter::RefuseNothrow(bool refuse) {
    g_RefuseNothrow = refuse;
    if (refuse) g_Refused = 0;
}
long HeapMeter::Refused() { return g_Refused; }
long HeapMeter::LiveBlocks() { return g_LiveBlocks; }
std::size_t HeapMeter::LiveOctets() { return g_LiveOctets; }
std::size_t HeapMeter::PeakOctets() { return g_PeakOctets; }
void HeapMeter::RestartPeak() { g_PeakOctets = g_LiveOctets; }

void* operator new(std::size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (!g_RefuseNothrow) return Allocate(size);
    ++g_Refused;
    return nullptr;
}
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
// For a constructor that throws under new (std::nothrow); a sanitizer's own would not know where the memory is from.
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
