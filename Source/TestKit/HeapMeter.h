// SPDX-License-Identifier: MIT
// A program's operator new and, where it exports its symbols, that of a plug-in it loads: it counts what is
// live, and fails on request.
#pragma once

#include <cstddef>

namespace HeapMeter {

enum class Failing { Once, FromThereOn };

// Allocations to come until one fails, 1 for the next; 0 for none. Failing from there on lasts until the next call.
void FailAfter(long allocations, Failing failing = Failing::Once);
// Allocations since the last call of FailAfter, those that failed included.
long Allocations();

// Whether to refuse new (std::nothrow).
void RefuseNothrow(bool refuse);
// How often new (std::nothrow) was refused since this was last switched on.
long Refused();

// What has been allocated and not yet freed. Octets as the C library's heap hands them out.
long LiveBlocks();
std::size_t LiveOctets();
// The most that was live at once since the last call of RestartPeak.
std::size_t PeakOctets();
void RestartPeak();

} // namespace HeapMeter
