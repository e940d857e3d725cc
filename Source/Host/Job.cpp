// SPDX-License-Identifier: MIT
#include "Job.h"

#include "HostError.h"

namespace QfHost {

TrackJob& Job::Track(int track) {
    if (track == QF_VIDEO) return m_Video;
    if (track == QF_AUDIO) return m_Audio;
    throw HostError(QF_ERROR_ARGUMENT, "there is no track " + std::to_string(track));
}

std::int64_t Job::SamplesOf(std::size_t octets) const {
    const Codec& codec = *m_Audio.m_pCodec;
    if (codec.m_Framing == Framing::Pcm) return static_cast<std::int64_t>(octets) * 8 / m_BitsPerSample / m_Channels;
    // At MPEG-2's low sample rates a layer 3 frame has half as many.
    const bool isHalf = codec.m_FourCC == MakeFourCC("MP3 ") && m_SampleRate < 32000;
    return isHalf ? codec.m_Samples / 2 : codec.m_Samples;
}

void Job::NeedCodecs(const FileFormatInfo& format) const {
    if (m_Video.m_pCodec == nullptr && m_Audio.m_pCodec == nullptr) {
        throw HostError(QF_ERROR_ARGUMENT, "the job has no track");
    }
    for (const TrackJob* track : {&m_Video, &m_Audio}) {
        if (track->m_pCodec == nullptr || IsTaken(format, *track->m_pCodec)) continue;
        throw HostError(QF_ERROR_FORMAT,
                        "the format " + FormatName(format.fourCC) + " does not take " + track->m_pCodec->m_Description);
    }
}

} // namespace QfHost
