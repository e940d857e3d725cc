// SPDX-License-Identifier: MIT
// Losses that are known only after all frames were read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "LossText.h"

class FrameLosses {
public:
    // To be called for each frame of the file, in decoding order. Times of its block, 100 ns.
    void Add(bool isVideo, bool isKey, std::int64_t start, std::int64_t end);

    // How long the film is, 100 ns.
    std::int64_t Length() const { return m_Length; }
    // path: of the finished file. isWebm: readers seek to the first picture of a cluster, whether it is a key frame or
    // not.
    Losses Tell(const std::string& path, bool isWebm) const;

private:
    std::int64_t m_Length = 0;
    std::int64_t m_Cluster = -1;             // of the last picture
    std::optional<std::int64_t> m_WaitSince; // the first picture after a seek, until there is a key frame
    std::int64_t m_LongestWait = 0;          // for a key frame after a seek
};
