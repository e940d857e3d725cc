// SPDX-License-Identifier: MIT
#include "TimeLine.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

extern "C" {
#include <libavutil/common.h>
#include <libavutil/mathematics.h>
}

namespace {

constexpr std::int64_t kNear = 10 * kSecond;

} // namespace

std::int64_t HostTime(std::int64_t stamp, AVRational timeBase) {
    return std::clamp(av_rescale_q(stamp, timeBase, kHostTimeBase), -kFurthestTime, kFurthestTime);
}

TimeLine::TimeLine(bool mayJump, std::int64_t shift) : m_MayJump(mayJump), m_FirstShift(shift) {}

void TimeLine::Mend(AVPacket& packet, AVRational timeBase) {
    if (packet.dts == AV_NOPTS_VALUE && packet.pts == AV_NOPTS_VALUE) return;
    const auto [entry, isFirst] = m_Streams.try_emplace(packet.stream_index);
    Stream& stream = entry->second;
    if (isFirst) {
        stream.m_Shift = stream.m_ShiftBefore = m_FirstShift;
    } else if (m_MayJump) {
        ChooseStamp(packet, timeBase, stream);
    }
    const bool hasDecode = packet.dts != AV_NOPTS_VALUE;
    const std::int64_t stamp = hasDecode ? packet.dts : packet.pts;
    const std::int64_t told = HostTime(stamp, timeBase);
    std::int64_t time = told + stream.m_Shift;
    // In other formats a large step ahead is a pause, unless it is absurd.
    const std::int64_t mostAhead = m_MayJump ? kNear : kSecond * 3600 * 30;
    const bool jumps = !isFirst && (!Fits(stream, time, mostAhead) || std::abs(told) == kFurthestTime);
    if (jumps) {
        ++m_Jumps;
        stream.m_ShiftBefore = std::exchange(stream.m_Shift, ShiftBehindJump(stream, told));
        time = told + stream.m_Shift;
    }
    // A presentation time alone is less reliable: decoding comes before it.
    if (hasDecode || isFirst || jumps) {
        const std::int64_t end = time + HostTime(std::max<std::int64_t>(0, packet.duration), timeBase);
        stream.m_Expected = std::clamp(end, -kFurthestTime, kFurthestTime);
    }
    if (stream.m_Shift == 0) return;
    // Not always m_Shift: times beyond kFurthestTime were limited to it.
    const std::int64_t shift = av_sat_sub64(av_rescale_q(time, kHostTimeBase, timeBase), stamp);
    for (std::int64_t* const moved : {&packet.pts, &packet.dts}) {
        if (*moved != AV_NOPTS_VALUE) *moved = av_sat_add64(*moved, shift);
    }
}

// If the two stamps lie far apart, one of them is wrong: both become the stamp that is nearer to the expected time.
// Slides that are shown for seconds may be reordered too.
void TimeLine::ChooseStamp(AVPacket& packet, AVRational timeBase, const Stream& stream) const {
    if (packet.dts == AV_NOPTS_VALUE || packet.pts == AV_NOPTS_VALUE) return;
    const std::int64_t decode = HostTime(packet.dts, timeBase);
    const std::int64_t presentation = HostTime(packet.pts, timeBase);
    const std::int64_t length = std::clamp<std::int64_t>(HostTime(packet.duration, timeBase), 0, 60 * kSecond);
    const std::int64_t wait = static_cast<std::int64_t>(kLargestPictureBuffer) * length;
    if (std::abs(presentation - decode) <= std::max(kNear, wait)) return;
    const std::int64_t due = stream.m_Expected - stream.m_Shift;
    const bool decodeIsNearer = std::abs(decode - due) <= std::abs(presentation - due);
    (decodeIsNearer ? packet.pts : packet.dts) = decodeIsNearer ? packet.dts : packet.pts;
}

// Times may go back by rounding and where the sound of segments overlaps. They may be ahead of all streams by
// mostAhead, since a stream may have a gap.
bool TimeLine::Fits(const Stream& stream, std::int64_t time, std::int64_t mostAhead) const {
    return time >= stream.m_Expected - kSecond && time <= LatestExpected() + mostAhead;
}

std::int64_t TimeLine::LatestExpected() const {
    const auto latest = std::max_element(m_Streams.begin(), m_Streams.end(), [](const auto& left, const auto& right) {
        return left.second.m_Expected < right.second.m_Expected;
    });
    return latest->second.m_Expected;
}

std::int64_t TimeLine::ShiftBehindJump(const Stream& stream, std::int64_t told) {
    // Perhaps only one packet was wrong.
    if (Fits(stream, told + stream.m_ShiftBefore, kNear)) return stream.m_ShiftBefore;
    for (const auto& [index, other] : m_Streams) {
        const std::int64_t shift = other.m_Shift;
        const bool isNear =
            std::abs(told + shift - stream.m_Expected) <= kNear || std::abs(told + shift - LatestExpected()) <= kNear;
        if (shift == stream.m_Shift || !isNear) continue;
        // The other stream has passed the same place. If this stream would start far too early there, both are moved
        // later.
        const std::int64_t overlap = stream.m_Expected - told - shift;
        const std::int64_t later = overlap > kSecond ? overlap : 0;
        for (auto& [beyond, moved] : m_Streams) {
            if (moved.m_Shift != shift) continue;
            moved.m_Shift += later;
            moved.m_Expected += later;
        }
        return shift + later;
    }
    return LatestExpected() - told;
}
