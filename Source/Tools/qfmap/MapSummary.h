// What a picture and a strip of a map both say: its headline, what stands out, and the file as a row of parts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Map.h"

constexpr std::size_t kMostTracks = 8; // drawn; a file may have any number

std::string FileName(const FileMap& map); // without its folder, fit to be shown
std::string Headline(const FileMap& map);
// Its kind, and its number when there are more of the kind.
std::string TrackName(const MapTrack& track, const FileMap& map);

// What a person should notice.
struct Finding {
    bool m_IsBad;
    std::string m_Text;
};
std::vector<Finding> Findings(const FileMap& map); // most important first

// What is before the clusters, the clusters as one, what is behind them; in a row that is never too long to be drawn.
struct Part {
    MapKind m_Kind;
    std::string m_Name;
    std::uint64_t m_Begin;
    std::uint64_t m_End;
};
std::vector<Part> PartsOf(const FileMap& map);
