// SPDX-License-Identifier: MIT
// What libavformat keeps to itself of an MP4 or QuickTime file's tracks (ISO 14496-12).
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct IsoTrack {
    int m_MediaEdits = 0;          // parts that an edit list puts the film together of
    bool m_ChangesSpeed = false;   // one of them is played slower or faster
    bool m_HasCrop = false;        // a clean aperture
    std::uint64_t m_HiddenEnd = 0; // of the media behind the only edit, in units of m_TimeScale
    std::uint32_t m_TimeScale = 0; // of the media, in units a second
};

// Of each track, by its identifier. Empty for a file of another kind; what is damaged is passed over.
std::map<std::uint32_t, IsoTrack> ReadIsoTracks(const std::string& path);
