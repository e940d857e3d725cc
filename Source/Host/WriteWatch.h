// SPDX-License-Identifier: MIT
// Notices, while a file is being written, that frames handed over do not reach it.
//
// The plug-in keeps a second of media in memory and up to five frames of each track, and gathers some 100 KiB before it
// writes. Older frames should have reached the file.
#pragma once

#include <cstdint>

namespace QfHost {

class WriteWatch {
public:
    // Call this for each frame after handing it over. time: 100 ns. allStarted: every track has delivered a frame.
    // Returns how long the file should be by now when a check is due, else 0.
    std::uint64_t Note(std::uint64_t octets, std::int64_t time, bool allStarted);
    std::uint64_t Octets() const { return m_Octets; }

private:
    std::uint64_t m_Octets = 0; // handed over
    std::int64_t m_Latest = 0;
    std::uint64_t m_MarkOctets = 0; // at the mark
    std::int64_t m_MarkTime = 0;
    int m_FramesBehind = 0; // since the octets up to the mark must be in a finished cluster
};

} // namespace QfHost
