// SPDX-License-Identifier: MIT
#include "MatroskaStreamWebm.h"

long MatroskaStreamWebm::Init(const VideoParam* video) {
    // I264 is a Video-for-Windows code here, deliberately, unlike in the Matroska formats.
    InitVideo(*video, nullptr, video->fourCC == MakeFourCC("I264") ? nullptr : VideoCodecID(video->fourCC));
    return 0;
}

long MatroskaStreamWebm::Init(const AudioParam* audio) {
    InitAudio(*audio);
    m_pTrackEntry->m_FlagDefault.Set(1);
    m_pTrackEntry->m_FlagLacing.Set(1);
    return 0;
}

void MatroskaStreamWebm::Describe(Block& block, std::int64_t, std::int64_t, unsigned int keyFrame) const {
    block.m_Keyframe = keyFrame;
}
