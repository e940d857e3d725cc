// SPDX-License-Identifier: MIT
// What the blocks of one track are, boiled down to a few numbers that can be compared.
#pragma once

#include <xxhash.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "H264Units.h"

// The blocks of one track, boiled down: how many, when the first is, and a hash over every block's time, key flag and
// octets. Takes no memory for each block, so a file may be as long as it likes.
class TrackDigest {
public:
    // Without hashing it only counts.
    explicit TrackDigest(bool isHashed);

    // Begins a block; its octets follow. Time in ms.
    void Block(std::int64_t time, bool isKey);
    void Octets(const void* data, std::size_t size);
    // A unit of H.264, whatever is in front of it.
    void Unit(const NalUnit& unit);

    std::uint64_t Blocks() const { return m_Blocks; }
    std::uint64_t TotalOctets() const { return m_Octets; }
    std::int64_t FirstTime() const { return m_FirstTime; }
    std::int64_t LastTime() const { return m_LastTime; }

    // The hash counts times from the first block's: where the file's own zero lies is not part of it.
    std::uint64_t Hash() const { return XXH3_64bits_digest(m_State.get()); }

private:
    struct Free {
        void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
    };
    std::unique_ptr<XXH3_state_t, Free> m_State;
    std::uint64_t m_Blocks = 0;
    std::uint64_t m_Octets = 0;
    std::int64_t m_FirstTime = 0;
    std::int64_t m_LastTime = 0;
};
