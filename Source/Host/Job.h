// SPDX-License-Identifier: MIT
// The tracks of a file and the way it is written, as set by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Codecs.h"
#include "TimeBase.h"

namespace QfHost {

using Octets = std::vector<std::uint8_t>;

struct TrackJob {
    const Codec* m_pCodec = nullptr; // null: no such track
    Octets m_Setup;
    TimeBase m_TimeBase;
};

struct Job {
    FourCC m_Format = 0; // 0: by the extension
    TrackJob m_Video;
    std::int32_t m_Width = 0;
    std::int32_t m_Height = 0;
    double m_FrameRate = 0;
    qf_framing m_Framing = QF_FRAMING_AUTO;
    int m_LengthSize = 0;
    std::int32_t m_AspectX = 0;
    std::int32_t m_AspectY = 0;
    TrackJob m_Audio;
    std::int32_t m_SampleRate = 0;
    std::int32_t m_Channels = 0;
    std::int32_t m_BitsPerSample = 0;
    bool m_MayOverwrite = false;
    bool m_Syncs = false;
    std::int64_t m_LongestWait = 0; // 100 ns; 0 for ever

    // Throws HostError for an invalid value.
    TrackJob& Track(int track);

    // The number of samples in a frame of sound: by its octets for PCM, by the codec's rule for others; 0 when each
    // frame states its own.
    std::int64_t SamplesOf(std::size_t octets) const;

    // Throws HostError when they do not fit the format.
    void NeedCodecs(const FileFormatInfo& format) const;
};

} // namespace QfHost
