// SPDX-License-Identifier: MIT
// Whether a finished file plays as its source does.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Decoding.h"
#include "Excerpts.h"

class Likeness;

// A source's video and audio stream, in this order; null for no such track.
using SourceStreams = std::array<const AVCodecParameters*, 2>;

struct Played {
    std::optional<std::string> m_Fault;   // the file's fault, if any
    std::vector<std::string> m_Notes;     // streams that could not be played
    std::optional<std::int64_t> m_Damage; // where the playing began that met damaged pictures, ms; nothing without
    std::uint64_t m_Places = 0;           // places where playing began
    std::uint64_t m_Pictures = 0;         // equal pictures
    std::uint64_t m_Samples = 0;
};

// Seeks to each excerpt in the file and compares the decoded pictures and samples of both.
Played PlayExcerpts(const std::string& path, const Excerpts& excerpts, const SourceStreams& sources);

// Decodes a whole source during the run, and then the whole file.
class WholePlay {
public:
    explicit WholePlay(const SourceStreams& sources);

    // Compares the decoded frames with what an encoder was given.
    void CompareWith(bool isVideo, Likeness& given);

    // To be called for each frame that becomes a block.
    void Take(bool isVideo, const Frame& frame);
    // sources: the streams to compare.
    Played Compare(const std::string& path, const SourceStreams& sources);

private:
    std::array<std::unique_ptr<Decoding>, 2> m_Decodings;
};
