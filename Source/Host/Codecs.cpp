// SPDX-License-Identifier: MIT
#include "Codecs.h"

#include <cctype>

#include "HostError.h"

namespace QfHost {

const Codec kCodecs[] = {
    {"h264", "V_MPEG4/ISO/AVC", "H.264", MakeFourCC("H264"), QF_VIDEO, Framing::H264Lengths},
    {"a264", "V_MPEG4/ISO/AVC", "H.264, a block for each slice", MakeFourCC("A264"), QF_VIDEO, Framing::H264Slices},
    {"i264", "V_MPEG4/ISO/AVC", "H.264, a block for each slice", MakeFourCC("I264"), QF_VIDEO, Framing::H264Slices},
    {"n264", "V_MPEG4/ISO/AVC", "H.264, a block for each slice", MakeFourCC("N264"), QF_VIDEO, Framing::H264Slices},
    {"havc", "V_MS/VFW/FOURCC", "H.264 as in AVI", MakeFourCC("havc"), QF_VIDEO, Framing::H264StartCodes},
    {"mpeg1", "V_MPEG1", "MPEG-1 video", MakeFourCC("MP1V"), QF_VIDEO, Framing::Mpeg12},
    {"mpeg2", "V_MPEG2", "MPEG-2 video", MakeFourCC("MP2V"), QF_VIDEO, Framing::Mpeg12},
    {"mpeg4", "V_MPEG4/ISO/ASP", "MPEG-4 part 2", MakeFourCC("MP4V"), QF_VIDEO, Framing::Mpeg4},
    {"xvid", "V_MPEG4/ISO/ASP", "MPEG-4 part 2", MakeFourCC("Xvid"), QF_VIDEO, Framing::Mpeg4},
    {"vp8", "V_VP8", "VP8", MakeFourCC("VP8 "), QF_VIDEO, Framing::Plain},
    {"aac", "A_AAC", "AAC", MakeFourCC("AAC "), QF_AUDIO, Framing::Aac, 1024},
    {"ac3", "A_AC3", "AC-3", MakeFourCC("AC3 "), QF_AUDIO, Framing::Plain, 1536},
    {"mp3", "A_MPEG/L3", "MPEG audio, layer 3", MakeFourCC("MP3 "), QF_AUDIO, Framing::Plain, 1152},
    {"mp2", "A_MPEG/L2", "MPEG audio, layer 2", MakeFourCC("MP2A"), QF_AUDIO, Framing::Plain, 1152},
    {"dts", "A_DTS", "DTS", MakeFourCC("DTS "), QF_AUDIO, Framing::Plain},
    {"pcm", "A_PCM/INT/LIT", "uncompressed sound, little-endian integers", MakeFourCC("PCM "), QF_AUDIO, Framing::Pcm},
    {"vorbis", "A_VORBIS", "Vorbis", MakeFourCC("VBIS"), QF_AUDIO, Framing::Vorbis},
    {nullptr, nullptr, nullptr, 0, QF_VIDEO, Framing::Plain}};

const Codec& FindCodec(qf_track track, const std::string& name) {
    for (const Codec* codec = kCodecs; codec->m_Name != nullptr; ++codec) {
        if (codec->m_Track == track && name == codec->m_Name) return *codec;
    }
    throw HostError(QF_ERROR_ARGUMENT,
                    "there is no " + std::string(track == QF_VIDEO ? "video" : "audio") + " codec '" + name + "'");
}

std::string FormatName(FourCC fourCC) {
    std::string name;
    for (FourCC rest = fourCC; rest != 0 && rest % 256 != ' '; rest /= 256) {
        name += static_cast<char>(std::tolower(static_cast<int>(rest % 256)));
    }
    return name;
}

FourCC FormatCode(const std::string& name) {
    if (name.empty() || name.size() > 4) return 0;
    char code[5] = "    ";
    for (std::size_t i = 0; i < name.size(); ++i) {
        code[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[i])));
    }
    return MakeFourCC(code);
}

bool IsListed(const FileFormatInfo& format, const Codec& codec) {
    const EncoderEntry* entry = codec.m_Track == QF_VIDEO ? format.videoEncoders : format.audioEncoders;
    for (; entry != nullptr && entry->fourCC != 0; ++entry) {
        if (entry->fourCC == codec.m_FourCC) return true;
    }
    return false;
}

bool IsTaken(const FileFormatInfo& format, const Codec& codec) {
    if (format.fourCC == MakeFourCC("WEBM")) return IsListed(format, codec);
    return codec.m_Track == QF_AUDIO || format.videoEncoders != nullptr;
}

} // namespace QfHost
