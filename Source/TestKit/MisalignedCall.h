// SPDX-License-Identifier: MIT
// Hosts built by older compilers for i386 align their stack to 4 octets only. This calls a function as they do.
#pragma once

#include <cstdint>

#if defined(__i386__)

// Calls function(a, b) with the stack pointer `offset` octets away from a multiple of 16.
inline std::uintptr_t CallMisaligned(void* function, const void* a, const void* b, std::uintptr_t offset) {
    std::uintptr_t result = 0;
    asm volatile("movl %%esp, %%ebx\n\t"
                 "andl $-16, %%esp\n\t"
                 "subl %[offset], %%esp\n\t"
                 "pushl %[b]\n\t"
                 "pushl %[a]\n\t"
                 "call *%[function]\n\t"
                 "movl %%ebx, %%esp"
                 : "=a"(result)
                 : [function] "D"(function), [a] "S"(a), [b] "d"(b), [offset] "c"(offset)
                 : "ebx", "memory", "cc", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7");
    return result;
}

#endif
