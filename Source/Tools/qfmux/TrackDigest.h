// SPDX-License-Identifier: MIT
// A digest of one track's blocks, for comparison.
#pragma once

#include <xxhash.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "H264Units.h"

// Counts the blocks of one track and hashes each block's time, key flag and octets. Memory use does not depend on the
// number of blocks.
class TrackDigest {
public:
    // isHashed: false to count only.
    explicit TrackDigest(bool isHashed);

    // Begins a block; its octets follow. Time in ms.
    void Block(std::int64_t time, bool isKey);
    void Octets(const void* data, std::size_t size);
    // A unit of H.264, without its length prefix or start code.
    void Unit(const NalUnit& unit);

    std::uint64_t Blocks() const { return m_Blocks; }
    std::uint64_t TotalOctets() const { return m_Octets; }
    std::int64_t FirstTime() const { return m_FirstTime; }
    std::int64_t LastTime() const { return m_LastTime; }

    // Hashed times are relative to the first block, so the file's offset does not matter.
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
