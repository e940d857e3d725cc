// SPDX-License-Identifier: MIT
// What the picture and the strip share: the headline, the findings, and the file as a row of parts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Map.h"

constexpr std::size_t kMostTracks = 8; // drawn; a file may have any number

std::string FileName(const FileMap& map); // without its folder, fit to be shown
std::string Headline(const FileMap& map);
// The track's kind, followed by its number when the file has several tracks of that kind.
std::string TrackName(const MapTrack& track, const FileMap& map);

// Something that a person should notice.
struct Finding {
    bool m_IsBad;
    std::string m_Text;
};
std::vector<Finding> Findings(const FileMap& map); // most important first

// The elements in front of the clusters, the clusters as one part, and the elements behind them. The row is short
// enough to be drawn.
struct Part {
    MapKind m_Kind;
    std::string m_Name;
    std::uint64_t m_Begin;
    std::uint64_t m_End;
};
std::vector<Part> PartsOf(const FileMap& map);
