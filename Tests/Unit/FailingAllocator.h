// The test program's operator new, which fails when it is told to.
#pragma once

namespace FailingAllocator {

// Allocations to come until one fails, 1 for the next; 0 for none.
void FailAfter(long allocations);
// Allocations since the last call of FailAfter.
long Allocations();

} // namespace FailingAllocator
