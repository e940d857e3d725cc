// SPDX-License-Identifier: MIT
// Collects the pieces, lags and gaps of each track while the reader passes over its blocks. Memory does not grow with
// the number of blocks.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Map.h"

// A block as the file has it; its header included.
struct PassingBlock {
    std::uint64_t m_Track;
    std::uint64_t m_Position;
    std::uint64_t m_End;
    double m_Time;          // s
    double m_Duration;      // s, 0 for unknown
    std::uint64_t m_Frames; // in it
    bool m_IsKey;
};

class TrackTimes {
public:
    // Adds tracks to that map, which must have none yet.
    explicit TrackTimes(FileMap& map);
    ~TrackTimes();
    TrackTimes(const TrackTimes&) = delete;
    TrackTimes& operator=(const TrackTimes&) = delete;

    // Adds a track that the Tracks element describes. frameDuration: ns, 0 for unknown.
    void Describe(std::uint64_t number, const std::string& kind, const std::string& codecID,
                  std::uint64_t frameDuration);
    // Returns the track of the block; adds an unknown track when Tracks does not describe it.
    const MapTrack& Take(const PassingBlock& block);
    // Ends a Segment and finds its gaps. Times begin anew in the next Segment.
    void EndSegment();

private:
    // The latest times over all tracks, against which a track's lag is measured.
    class Leader {
    public:
        std::optional<double> Others(std::size_t track) const { return track == m_Track ? m_Second : m_First; }
        void Take(std::size_t track, double time);

    private:
        std::size_t m_Track = std::numeric_limits<std::size_t>::max();
        std::optional<double> m_First;
        std::optional<double> m_Second;
    };
    class Notes;

    std::size_t IndexOf(std::uint64_t number);

    FileMap& m_Map;
    std::vector<Notes> m_Notes;                     // of each track
    std::map<std::uint64_t, std::size_t> m_Indices; // by number
    Leader m_Leader;
};
