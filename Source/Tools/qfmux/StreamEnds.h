// SPDX-License-Identifier: MIT
// Samples and frames at the ends of a stream that the container asks players to skip.
#pragma once

#include <cstdint>

#include "MediaFile.h"

struct StreamEnds {
    std::uint32_t m_StartSamples = 0; // of decoded sound
    std::uint32_t m_EndSamples = 0;
    int m_HiddenFrames = 0; // at the start: decoded, but not shown
};

// Opens the file once more, so the position of `file` does not change. Returns zeros if the file cannot be read.
StreamEnds ReadStreamEnds(const MediaFile& file, const AVStream* stream);
