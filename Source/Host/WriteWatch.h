// SPDX-License-Identifier: MIT
// Notices, while a file is being written, that what was handed over does not arrive.
//
// The plug-in keeps a second of media in memory and up to five frames of each track, and gathers some 100 KiB before it
// writes. What is older should have reached the file.
#pragma once

#include <cstdint>

namespace QfHost {

class WriteWatch {
public:
    // To be called for each frame behind its handing over. time: 100 ns. allStarted: every track has delivered a frame.
    // Returns how long the file should be by now, when that is worth a look; else 0.
    std::uint64_t Note(std::uint64_t octets, std::int64_t time, bool allStarted);
    std::uint64_t Octets() const { return m_Octets; }

private:
    std::uint64_t m_Octets = 0; // handed over
    std::int64_t m_Latest = 0;
    std::uint64_t m_MarkOctets = 0; // when the mark was made
    std::int64_t m_MarkTime = 0;
    int m_FramesBehind = 0; // since what the mark counts must have gone into a cluster that is over
};

} // namespace QfHost
