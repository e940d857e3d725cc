// SPDX-License-Identifier: MIT
// What the container tells players to leave out at the ends of a stream.
#pragma once

#include <cstdint>

#include "MediaFile.h"

struct StreamEnds {
    std::uint32_t m_StartSamples = 0; // of decoded sound
    std::uint32_t m_EndSamples = 0;
    int m_HiddenFrames = 0; // at the start: decoded, but not shown
};

// Opens the file once more, whose place does not move. What cannot be read that way has no such ends.
StreamEnds ReadStreamEnds(const MediaFile& file, const AVStream* stream);
