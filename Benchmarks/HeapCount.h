// SPDX-License-Identifier: MIT
// Counts heap allocations in a library that is loaded in front of the C library (LD_PRELOAD), so that programs run
// unchanged without it.
#pragma once

#include <cstdint>

struct HeapCount {
    std::uint64_t m_Allocations; // calls that gave memory
    std::int64_t m_Live;         // octets, as the heap rounds them
    std::int64_t m_Peak;         // of m_Live
};

// Found with dlsym; null when the library is not loaded.
extern "C" HeapCount* qf_heap_count();
