// SPDX-License-Identifier: MIT
// The position of a virtual function in its class's table, 0 for the first (Itanium C++ ABI, member function pointers).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

template <class MemberFunction>
std::size_t VirtualSlot(MemberFunction function) {
    std::uintptr_t parts[2];
    static_assert(sizeof parts == sizeof function, "a pointer to a member function");
    std::memcpy(parts, &function, sizeof parts);
    return (parts[0] - 1) / sizeof(void*);
}
