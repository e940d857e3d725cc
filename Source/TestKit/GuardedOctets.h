// SPDX-License-Identifier: MIT
// A host's buffer that catches every access beyond its end.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Octets.h"

// A buffer with inaccessible memory right behind its last octet and well in front of its first one, so that a stray
// access ends the program at once, in builds without sanitizers too.
class GuardedOctets {
public:
    explicit GuardedOctets(const Octets& octets);
    ~GuardedOctets();
    GuardedOctets(const GuardedOctets&) = delete;
    GuardedOctets& operator=(const GuardedOctets&) = delete;

    // Null when the buffer has no octets.
    unsigned char* Data() const { return m_pData; }
    std::int32_t Size() const { return m_Size; }
    Octets Copy() const { return {m_pData, m_pData + m_Size}; }

private:
    void* m_pMapping;
    std::size_t m_MappingSize;
    unsigned char* m_pData = nullptr;
    std::int32_t m_Size;
};
