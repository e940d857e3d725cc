// SPDX-License-Identifier: MIT
#include "WriteWatch.h"

#include <algorithm>

namespace QfHost {

std::uint64_t WriteWatch::Note(std::uint64_t octets, std::int64_t time, bool allStarted) {
    constexpr std::int64_t kCluster = 11000000; // its second, and rounding
    constexpr int kQueued = 10;                 // so many frames of two tracks fill a queue
    constexpr std::uint64_t kGathered = 1 << 20;
    const bool isFirst = m_Octets == 0;
    m_Octets += octets;
    m_Latest = isFirst ? time : std::max(m_Latest, time);
    if (isFirst) {
        m_MarkOctets = m_Octets;
        m_MarkTime = m_Latest;
    }
    if (!allStarted || m_Latest - m_MarkTime <= kCluster || ++m_FramesBehind <= kQueued) return 0;
    const std::uint64_t least = m_MarkOctets > kGathered ? m_MarkOctets - kGathered : 0;
    m_MarkOctets = m_Octets;
    m_MarkTime = m_Latest;
    m_FramesBehind = 0;
    return least;
}

} // namespace QfHost
