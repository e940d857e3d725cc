// SPDX-License-Identifier: MIT
// Code that the fuzz targets share. A target is one source file with one LLVMFuzzerTestOneInput: it reads its input as
// choices, and aborts when what it tests breaks a promise.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "Octets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Ends the process where it happens, in every build.
inline void Require(bool holds, const std::string& promise) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", promise.c_str());
    std::abort();
}

// The input, read from its front. Behind its end there are zeros.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : m_pNext(data), m_Left(size) {}

    bool IsEmpty() const { return m_Left == 0; }

    unsigned Octet() {
        if (m_Left == 0) return 0;
        --m_Left;
        return *m_pNext++;
    }
    bool OneIn(unsigned sides) { return Octet() % sides == 1; }

    // Little-endian.
    std::uint64_t Bits(unsigned octets) {
        std::uint64_t bits = 0;
        for (unsigned i = 0; i < octets; ++i) bits |= std::uint64_t{Octet()} << (8 * i);
        return bits;
    }

    // Any number: most small numbers and the notable ones take one octet, all others two, four or eight more.
    std::int64_t Number() {
        constexpr auto kMost32 = std::int64_t{std::numeric_limits<std::int32_t>::max()};
        constexpr auto kMost64 = std::numeric_limits<std::int64_t>::max();
        constexpr std::array<std::int64_t, 24> kNotable = {-1,
                                                           -2,
                                                           127,
                                                           128,
                                                           255,
                                                           256,
                                                           32767,
                                                           -32768,
                                                           65535,
                                                           65536,
                                                           kMost32,
                                                           -kMost32,
                                                           kMost32 + 1,
                                                           -kMost32 - 1,
                                                           2 * kMost32,
                                                           2 * kMost32 + 1,
                                                           2 * kMost32 + 2,
                                                           kMost64,
                                                           -kMost64,
                                                           -kMost64 - 1,
                                                           9999,
                                                           10000,
                                                           -327680000,
                                                           3153600000000000};
        const unsigned kind = Octet();
        if (kind < 0xA0) return kind;
        if (kind < 0xC0) return kNotable[(kind - 0xA0U) % kNotable.size()];
        if (kind < 0xD8) return static_cast<std::int16_t>(Bits(2));
        if (kind < 0xEC) return static_cast<std::int32_t>(Bits(4));
        return static_cast<std::int64_t>(Bits(8));
    }
    std::int32_t Number32() { return static_cast<std::int32_t>(static_cast<std::uint32_t>(Number())); }

    // Up to that many octets, as far as there are any.
    Octets Take(std::size_t count) {
        count = std::min(count, m_Left);
        const Octets octets(m_pNext, m_pNext + count);
        m_pNext += count;
        m_Left -= count;
        return octets;
    }
    Octets Rest() { return Take(m_Left); }

    // Up to 223 octets of the input, or thousands of generated ones that count up and wrap.
    Octets Payload() {
        const unsigned size = Octet();
        if (size < 0xE0) return Take(size);
        Octets octets(static_cast<std::size_t>(Bits(2) % 20000));
        auto value = static_cast<unsigned char>(size);
        for (unsigned char& octet : octets) octet = value++;
        return octets;
    }

private:
    const std::uint8_t* m_pNext;
    std::size_t m_Left;
};
