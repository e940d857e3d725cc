// SPDX-License-Identifier: MIT
#include "CodecMap.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <vector>

#include "H264.h"

namespace {

struct CodecRow {
    AVCodecID m_Codec;
    FourCC m_FourCC;
    const char* m_CodecID;
};

constexpr CodecRow kCodecs[] = {
    {AV_CODEC_ID_MPEG1VIDEO, MakeFourCC("MP1V"), "V_MPEG1"},
    {AV_CODEC_ID_MPEG2VIDEO, MakeFourCC("MP2V"), "V_MPEG2"},
    {AV_CODEC_ID_MPEG4, MakeFourCC("MP4V"), "V_MPEG4/ISO/ASP"},
    {AV_CODEC_ID_VP8, MakeFourCC("VP8 "), "V_VP8"},
    {AV_CODEC_ID_AAC, MakeFourCC("AAC "), "A_AAC"},
    {AV_CODEC_ID_AC3, MakeFourCC("AC3 "), "A_AC3"},
    {AV_CODEC_ID_MP3, MakeFourCC("MP3 "), "A_MPEG/L3"},
    {AV_CODEC_ID_MP2, MakeFourCC("MP2A"), "A_MPEG/L2"},
    {AV_CODEC_ID_DTS, MakeFourCC("DTS "), "A_DTS"},
    {AV_CODEC_ID_VORBIS, MakeFourCC("VBIS"), "A_VORBIS"},
    {AV_CODEC_ID_PCM_U8, MakeFourCC("PCM "), "A_PCM/INT/LIT"},
    {AV_CODEC_ID_PCM_S16LE, MakeFourCC("PCM "), "A_PCM/INT/LIT"},
    {AV_CODEC_ID_PCM_S24LE, MakeFourCC("PCM "), "A_PCM/INT/LIT"},
    {AV_CODEC_ID_PCM_S32LE, MakeFourCC("PCM "), "A_PCM/INT/LIT"},
};

// setup: the source's set-up data, which give the form of its frames.
CodecChoice ChooseH264(const std::vector<std::uint8_t>& setup, const std::string& code) {
    CodecChoice choice;
    choice.m_CodecID = "V_MPEG4/ISO/AVC";
    if (code.empty()) {
        choice.m_FourCC = MakeFourCC("H264");
        choice.m_Framing = Framing::Lengths;
        return choice;
    }
    choice.m_FourCC = MakeFourCC({code[0], code[1], code[2], code[3], '\0'});
    if (!QfHost::ReadH264Setup(setup).m_StartCodes) choice.m_Filters = "h264_mp4toannexb";
    if (code == "H264") {
        choice.m_Framing = Framing::StartCodes;
    } else if (code == "havc") {
        choice.m_CodecID = "V_MS/VFW/FOURCC";
        choice.m_DecodeTimes = true;
    } else {
        choice.m_Framing = Framing::Slices;
    }
    return choice;
}

// For a codec without an identifier in Matroska: its code in AVI or WAV files, or else in its own file; 0 if it has
// neither.
CodecChoice ChooseGeneric(const AVCodecParameters& parameters, bool hasSetup) {
    CodecChoice choice;
    choice.m_IsGeneric = true;
    const bool isVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
    const AVCodecTag* const tags[] = {isVideo ? avformat_get_riff_video_tags() : avformat_get_riff_audio_tags(),
                                      nullptr};
    choice.m_FourCC = av_codec_get_tag(tags, parameters.codec_id);
    if (choice.m_FourCC == 0) choice.m_FourCC = parameters.codec_tag;
    choice.m_CodecID = isVideo ? "V_MS/VFW/FOURCC" : "A_MS/VFW/FOURCC";
    choice.m_DecodeTimes = isVideo;
    if (parameters.codec_id == AV_CODEC_ID_HEVC) {
        choice.m_Filters = hasSetup && parameters.extradata[0] == 1 ? "hevc_mp4toannexb" : "";
    } else if (isVideo && hasSetup) {
        choice.m_Filters = "dump_extra=freq=keyframe";
    }
    return choice;
}

// Null for a codec without a row.
const CodecRow* FindRow(AVCodecID codec) {
    const auto* const row = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                         [codec](const CodecRow& candidate) { return candidate.m_Codec == codec; });
    return row != std::end(kCodecs) ? row : nullptr;
}

} // namespace

CodecChoice ChooseCodec(const Target& target, const std::string& h264) {
    if (target.m_Codec == AV_CODEC_ID_H264) {
        const bool hasCode = target.m_FourCC != MakeFourCC("H264");
        return ChooseH264({}, hasCode ? FourCCText(target.m_FourCC) : h264);
    }
    CodecChoice choice;
    choice.m_FourCC = target.m_FourCC;
    choice.m_CodecID = FindRow(target.m_Codec)->m_CodecID;
    return choice;
}

CodecChoice ChooseCodec(const MediaFile& file, const AVStream* stream, const std::string& h264) {
    const AVCodecParameters& parameters = *stream->codecpar;
    const bool hasSetup = file.HasSetup(stream);
    if (parameters.codec_id == AV_CODEC_ID_H264) {
        return ChooseH264({parameters.extradata, parameters.extradata + parameters.extradata_size}, h264);
    }
    const CodecRow* const row = FindRow(parameters.codec_id);
    if (row == nullptr) return ChooseGeneric(parameters, hasSetup);
    CodecChoice choice;
    choice.m_FourCC = row->m_FourCC;
    choice.m_CodecID = row->m_CodecID;
    if (parameters.codec_id == AV_CODEC_ID_MPEG4) {
        if (parameters.codec_tag == MakeFourCC("XVID") || parameters.codec_tag == MakeFourCC("xvid")) {
            choice.m_FourCC = MakeFourCC("Xvid");
        }
        // The file format has no place for headers outside the frames, and players may begin at any key frame. They are
        // added while frames are as the source has them: frames that begin with the same headers are left alone.
        if (parameters.extradata_size > 0) choice.m_Filters = "dump_extra=freq=keyframe,";
        choice.m_Filters += "mpeg4_unpack_bframes";
    } else if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size == 0) {
        choice.m_Filters = "aac_adtstoasc";
    }
    return choice;
}

std::string FourCCText(FourCC fourCC) {
    std::string text;
    for (FourCC rest = fourCC; text.size() < 4; rest /= 256) {
        const auto character = static_cast<char>(rest % 256);
        if (character < ' ' || character > '~') {
            char number[16];
            std::snprintf(number, sizeof number, "0x%X", fourCC);
            return number;
        }
        text += character;
    }
    return text;
}
