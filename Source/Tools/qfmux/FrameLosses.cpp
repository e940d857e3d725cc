// SPDX-License-Identifier: MIT
#include "FrameLosses.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "MatroskaHeader.h"
#include "TimeLine.h"

namespace {

// Players round, and the last frame may be shown for a while.
constexpr std::int64_t kTolerance = kSecond / 10;

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
    const std::int64_t told = std::llround(ReadMatroskaHeader(path).m_Duration * kSecond);
    if (m_Length - told > kTolerance) {
        losses.push_back({"length",
                          "the file's duration is " + SecondsText(told) + " instead of " + SecondsText(m_Length) +
                              ": some players stop there",
                          LossWeight::Note});
    }
    if (isWebm && m_LongestWait > kSecond) {
        char text[120];
        std::snprintf(text, sizeof text,
                      "after a seek, players may show nothing for up to %.1f s, until the next key frame",
                      static_cast<double>(m_LongestWait) / kSecond);
        losses.push_back({"seeking", text, LossWeight::Note});
    }
    return losses;
}
