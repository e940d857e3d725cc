// SPDX-License-Identifier: MIT
#include "PictureLayout.h"

#include <algorithm>
#include <cmath>

#include "MapSummary.h"

PictureLayout::PictureLayout(const FileMap& map)
    : m_Octets(static_cast<double>(map.m_Octets)), m_TimeFrom(std::min(0.0, map.FirstTime())),
      m_TimeTo(std::max(map.LastTime(), map.m_Duration.value_or(0))) {
    if (!std::isfinite(m_TimeTo)) m_TimeTo = m_TimeFrom;
    m_TimeTo = std::max(m_TimeTo, m_TimeFrom + 0.1);
    for (const MapTrack& track : map.m_Tracks) {
        if (m_Tracks.size() < kMostTracks && track.m_Blocks > 0) m_Tracks.push_back(&track);
    }
}

double PictureLayout::X(std::uint64_t position) const {
    return kLeft + (kRight - kLeft) * static_cast<double>(position) / m_Octets;
}

double PictureLayout::Y(double time) const {
    return kBottom - (kBottom - kTop) * (std::clamp(time, m_TimeFrom, m_TimeTo) - m_TimeFrom) / (m_TimeTo - m_TimeFrom);
}

std::string PictureLayout::Colour(const char* prefix, std::size_t track) {
    return prefix + std::to_string(track % kMostTracks);
}
