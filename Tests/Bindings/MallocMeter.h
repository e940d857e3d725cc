// SPDX-License-Identifier: MIT
// The test program's malloc, calloc and realloc, and those of every library in it: they fail on request.
#pragma once

namespace MallocMeter {

// Allocations of this process to come until one fails, 1 for the next; 0 for none.
void FailAfter(long allocations);
// Allocations since then, the one that failed included.
long Allocations();

} // namespace MallocMeter
