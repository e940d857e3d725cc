// SPDX-License-Identifier: MIT
// Short pieces of the source, kept during the run to be played and compared with the file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "AvPtr.h"
#include "Frame.h"

// A second of one track, in decoding order.
struct ExcerptTrack {
    std::vector<AvPtr<AVPacket>> m_Packets; // as the reader gave them
    std::vector<std::uint8_t> m_Setup;      // set-up data in force there; empty for the stream's
    std::int64_t m_Start = 0;               // when the first is presented, ms in the file
    std::int64_t m_DecodeStart = 0;         // when it is decoded, 100 ns
    std::size_t m_Octets = 0;
    bool m_IsWhole = false;
};

struct Excerpt {
    std::int64_t m_Time = 0;              // where a player seeks to, ms in the file; 0 for its beginning
    std::array<ExcerptTrack, 2> m_Tracks; // video and audio; one may be empty
};

// Keeps the first second and one second after each of up to five cues. When there would be more excerpts, every other
// excerpt is dropped and the distance between later ones doubles, so memory does not grow with the film's length.
class Excerpts {
public:
    // hasVideo: cues point at pictures, else at sound. length: the film's expected length, ms; 0 if it is not known.
    Excerpts(bool hasVideo, std::int64_t length, bool videoIsMpeg4);

    // To be called for each frame that becomes a block. time: of the block, ms in the file.
    void Take(bool isVideo, const Frame& frame, std::int64_t time);

    const std::list<Excerpt>& All() const { return m_All; }

private:
    void Begin(std::int64_t time);
    void Add(Excerpt& excerpt, bool isVideo, const Frame& frame, std::int64_t time) const;
    // Whether the plug-in makes a cue for the block.
    bool HasCue(bool isVideo, const Frame& frame, std::int64_t time);

    const bool m_HasVideo;
    const bool m_VideoIsMpeg4;
    std::list<Excerpt> m_All;
    std::array<std::vector<std::uint8_t>, 2> m_Setups; // from packets
    std::int64_t m_Distance;                           // ms, between the beginnings of two
    std::optional<std::int64_t> m_Cluster;             // the last one with a cue
};
