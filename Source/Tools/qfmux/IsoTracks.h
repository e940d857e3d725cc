// SPDX-License-Identifier: MIT
// Properties of tracks in MP4 and QuickTime files that libavformat does not expose (ISO 14496-12).
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Crop.h"

struct IsoTrack {
    int m_MediaEdits = 0;          // parts in the edit list
    bool m_ChangesSpeed = false;   // one of them is played slower or faster
    Crop m_Crop;                   // around the clean aperture
    std::uint64_t m_HiddenEnd = 0; // of the media behind the only edit, in units of m_TimeScale
    std::uint32_t m_TimeScale = 0; // of the media, in units a second
};

// The tracks by identifier. Empty for a file of another kind; damaged boxes are skipped.
std::map<std::uint32_t, IsoTrack> ReadIsoTracks(const std::string& path);
