#include "FailingAllocator.h"

#include <cstdlib>
#include <new>

namespace {

long g_UntilFailure = 0;
long g_Allocations = 0;

void* Allocate(std::size_t size) {
    ++g_Allocations;
    if (g_UntilFailure > 0 && --g_UntilFailure == 0) return nullptr;
    return std::malloc(size > 0 ? size : 1);
}

} // namespace

void FailingAllocator::FailAfter(long allocations) {
    g_UntilFailure = allocations;
    g_Allocations = 0;
}

long FailingAllocator::Allocations() { return g_Allocations; }

void* operator new(std::size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// For a constructor that throws under new (std::nothrow); a sanitizer's own would not know where the memory is from.
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
