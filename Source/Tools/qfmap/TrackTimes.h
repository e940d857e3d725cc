// What a map says of its tracks, noted while their blocks go by: pieces, lags and gaps. What is kept does not grow with
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
    // Tracks are added to that map, which has none yet.
    explicit TrackTimes(FileMap& map);
    ~TrackTimes();
    TrackTimes(const TrackTimes&) = delete;
    TrackTimes& operator=(const TrackTimes&) = delete;

    // What Tracks says of a track; frameDuration in ns, 0 for unknown.
    void Describe(std::uint64_t number, const std::string& kind, const std::string& codecID,
                  std::uint64_t frameDuration);
    // Gives the track whose block it is: an unknown one when it was not described.
    const MapTrack& Take(const PassingBlock& block);
    // Times begin anew with each Segment, so what is known of them ends with it. Gaps are found here.
    void EndSegment();

private:
    // The furthest times of all tracks, so that any track knows how far the others are.
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
