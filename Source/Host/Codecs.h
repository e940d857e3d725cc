// SPDX-License-Identifier: MIT
// The names by which callers know the plug-in's formats and codecs.
#pragma once

#include <string>

#include "HostRecords.h"
#include "qf_host.h"

namespace QfHost {

// The changes that a codec's packets need on their way.
enum class Framing {
    Plain,
    Pcm,
    Mpeg12,
    Mpeg4,
    H264Lengths,    // units behind lengths of 4 octets
    H264StartCodes, // units behind start codes
    H264Slices,     // the same, but the plug-in keeps only the slices
    Aac,
    Vorbis
};

struct Codec {
    const char* m_Name;
    const char* m_CodecID;
    const char* m_Description;
    FourCC m_FourCC;
    qf_track m_Track;
    Framing m_Framing;
    std::int32_t m_Samples = 0; // in each frame of sound, when constant

    // Blocks of a Video-for-Windows track carry decoding times.
    bool HasDecodingTimes() const { return m_Framing == Framing::H264StartCodes; }
};

// Ended by an entry without a name. Video first.
extern const Codec kCodecs[];

// Throws HostError when there is no such codec of that kind.
const Codec& FindCodec(qf_track track, const std::string& name);

// "mkv" for "MKV ".
std::string FormatName(FourCC fourCC);
// 0 for no name of four characters at most.
FourCC FormatCode(const std::string& name);

// Whether the plug-in's own list names it.
bool IsListed(const FileFormatInfo& format, const Codec& codec);
// Whether the format takes it: the Matroska formats take every codec, WebM takes the listed codecs.
bool IsTaken(const FileFormatInfo& format, const Codec& codec);

} // namespace QfHost
