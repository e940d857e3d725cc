#include "Job.h"

#include "HostError.h"

namespace QfHost {

TrackJob& Job::Track(int track) {
    if (track == QF_VIDEO) return m_Video;
    if (track == QF_AUDIO) return m_Audio;
    throw HostError(QF_ERROR_ARGUMENT, "there is no track " + std::to_string(track));
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
