// SPDX-License-Identifier: MIT
#include "Extent.h"

#include <algorithm>
#include <filesystem>
#include <string>

#include "TimeLine.h"

Extent EstimateExtent(const Plan& plan, const Options& options) {
    Extent extent;
    double octets = 0;
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (!*track) continue;
        const AVFormatContext& context = *(*track)->m_pFile->Context();
        // From microseconds.
        std::int64_t length = 10 * std::clamp<std::int64_t>(context.duration, 0, kFurthestTime / 10);
        length = static_cast<std::int64_t>(std::min(static_cast<double>(length), options.m_Duration * 1e7));
        extent.m_Length = std::max(extent.m_Length, length);
        const double rate = static_cast<double>((*track)->m_pStream->codecpar->bit_rate);
        octets += std::max(0.0, rate / 8 * static_cast<double>(length) / 1e7);
    }
    // Headers may say anything.
    std::uint64_t most = 0;
    for (const std::string& input : options.m_Inputs) most += std::filesystem::file_size(input);
    extent.m_Octets = static_cast<std::uint64_t>(std::min(octets, static_cast<double>(most)));
    return extent;
}
