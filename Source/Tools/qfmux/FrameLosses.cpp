// SPDX-License-Identifier: MIT
#include "FrameLosses.h"

#include <algorithm>
#include <cstdio>

#include "MatroskaHeader.h"
#include "TimeLine.h"

namespace {

// Players round, and the last frame may be shown for a while.
constexpr double kTolerance = 0.1; // s

} // namespace

void FrameLosses::Add(bool isVideo, bool isKey, std::int64_t start, std::int64_t end) {
    m_Length = std::max(m_Length, end);
    if (!isVideo) return;
    const std::int64_t cluster = ClusterOf(ToMilliseconds(start));
    if (!isKey && !m_WaitSince && cluster > m_Cluster) m_WaitSince = start;
    if (m_WaitSince) m_LongestWait = std::max(m_LongestWait, (isKey ? start : end) - *m_WaitSince);
    if (isKey) m_WaitSince.reset();
    m_Cluster = std::max(m_Cluster, cluster);
}

Losses FrameLosses::Tell(const std::string& path, bool isWebm) const {
    Losses losses;
    char text[120];
    const double length = static_cast<double>(m_Length) / kSecond;
    const double told = ReadMatroskaHeader(path).m_Duration;
    if (length - told > kTolerance) {
        std::snprintf(text, sizeof text, "the file's duration is %.2f s instead of %.2f s: some players stop there",
                      told, length);
        losses.push_back({"length", text, LossWeight::Note});
    }
    if (isWebm && m_LongestWait > kSecond) {
        std::snprintf(text, sizeof text,
                      "after a seek, players may show nothing for up to %.1f s, until the next key frame",
                      static_cast<double>(m_LongestWait) / kSecond);
        losses.push_back({"seeking", text, LossWeight::Note});
    }
    return losses;
}
