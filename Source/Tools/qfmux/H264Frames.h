// SPDX-License-Identifier: MIT
// Frames of H.264 for the file: every unit of the source with a length prefix of 4 octets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Frame.h"
#include "KnownSets.h"

class H264Frames {
public:
    explicit H264Frames(const std::vector<std::uint8_t>& setupData) : m_Sets(setupData) {}

    const KnownSets& Sets() const { return m_Sets; }

    // To be called for a frame that does not go into the file: later ones may need the sets in it.
    void LeaveOut(const Frame& frame);

    // Prepares a frame. Units() and Data() point into the frame and this object until the next call.
    void Take(const Frame& frame);
    const std::vector<NalUnit>& Units() const { return m_Units; }
    std::uint8_t* Data() const { return m_pData; }
    std::size_t Size() const { return m_Size; }

private:
    KnownSets m_Sets;
    std::vector<NalUnit> m_Units;
    std::vector<std::uint8_t> m_Buffer;
    std::uint8_t* m_pData = nullptr;
    std::size_t m_Size = 0;
};
