// SPDX-License-Identifier: MIT
#include "MatroskaStream.h"

long MatroskaStream::Init(const VideoParam* video, const MuxParam* mux) {
    InitVideo(*video, mux, VideoCodecID(video->fourCC));
    return 0;
}

long MatroskaStream::Init(const AudioParam* audio) {
    InitAudio(*audio);
    return 0;
}

void MatroskaStream::Describe(Block& block, std::int64_t start, std::int64_t end, unsigned int keyFrame) const {
    if ((keyFrame == 0 || start == m_LastStart) && m_LastStart >= 0) {
        // To the nearest millisecond, halves away from zero.
        const std::int64_t distance = WrappingSubtract(m_LastStart, start);
        const std::int64_t half = distance >= 0 ? kHostTicksPerMs / 2 : -kHostTicksPerMs / 2;
        block.m_ReferenceBlock.Set(WrappingAdd(distance, half) / kHostTicksPerMs);
    }
    constexpr std::uint64_t kSubtitles = 17; // no track of this plug-in yet
    if (m_pTrackEntry->m_TrackType.m_Value == kSubtitles) {
        block.m_BlockDuration.Set(static_cast<std::uint64_t>(ToMilliseconds(WrappingSubtract(end, start))));
    }
}
