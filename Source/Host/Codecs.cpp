#include "Codecs.h"

#include <cctype>

#include "HostError.h"

namespace QfHost {

const Codec kCodecs[] = {
    {"h264", MakeFourCC("H264"), QF_VIDEO, Framing::H264Lengths, "V_MPEG4/ISO/AVC", "H.264"},
    {"a264", MakeFourCC("A264"), QF_VIDEO, Framing::H264Slices, "V_MPEG4/ISO/AVC", "H.264, a block for each slice"},
    {"i264", MakeFourCC("I264"), QF_VIDEO, Framing::H264Slices, "V_MPEG4/ISO/AVC", "H.264, a block for each slice"},
    {"n264", MakeFourCC("N264"), QF_VIDEO, Framing::H264Slices, "V_MPEG4/ISO/AVC", "H.264, a block for each slice"},
    {"havc", MakeFourCC("havc"), QF_VIDEO, Framing::H264StartCodes, "V_MS/VFW/FOURCC", "H.264 as in AVI"},
    {"mpeg1", MakeFourCC("MP1V"), QF_VIDEO, Framing::Mpeg12, "V_MPEG1", "MPEG-1 video"},
    {"mpeg2", MakeFourCC("MP2V"), QF_VIDEO, Framing::Mpeg12, "V_MPEG2", "MPEG-2 video"},
    {"mpeg4", MakeFourCC("MP4V"), QF_VIDEO, Framing::Mpeg4, "V_MPEG4/ISO/ASP", "MPEG-4 part 2"},
    {"xvid", MakeFourCC("Xvid"), QF_VIDEO, Framing::Mpeg4, "V_MPEG4/ISO/ASP", "MPEG-4 part 2"},
    {"vp8", MakeFourCC("VP8 "), QF_VIDEO, Framing::Plain, "V_VP8", "VP8"},
    {"aac", MakeFourCC("AAC "), QF_AUDIO, Framing::Aac, "A_AAC", "AAC", 1024},
    {"ac3", MakeFourCC("AC3 "), QF_AUDIO, Framing::Plain, "A_AC3", "AC-3", 1536},
    {"mp3", MakeFourCC("MP3 "), QF_AUDIO, Framing::Plain, "A_MPEG/L3", "MPEG audio, layer 3", 1152},
    {"mp2", MakeFourCC("MP2A"), QF_AUDIO, Framing::Plain, "A_MPEG/L2", "MPEG audio, layer 2", 1152},
    {"dts", MakeFourCC("DTS "), QF_AUDIO, Framing::Plain, "A_DTS", "DTS"},
    {"pcm", MakeFourCC("PCM "), QF_AUDIO, Framing::Pcm, "A_PCM/INT/LIT", "uncompressed sound, little-endian integers"},
    {"vorbis", MakeFourCC("VBIS"), QF_AUDIO, Framing::Vorbis, "A_VORBIS", "Vorbis"},
    {nullptr, 0, QF_VIDEO, Framing::Plain, nullptr, nullptr}};

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
