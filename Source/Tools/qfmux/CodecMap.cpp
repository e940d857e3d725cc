#include "CodecMap.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "H264.h"

namespace {

struct CodecRow {
    AVCodecID m_Codec;
    FourCC m_FourCC;
    const char* m_CodecID;
};

constexpr CodecRow kCodecs[] = {
    {AV_CODEC_ID_H264, MakeFourCC("H264"), "V_MPEG4/ISO/AVC"},
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

} // namespace

CodecChoice ChooseCodec(const AVCodecParameters& parameters) {
    const auto* const row = std::find_if(std::begin(kCodecs), std::end(kCodecs), [&](const CodecRow& candidate) {
        return candidate.m_Codec == parameters.codec_id;
    });
    if (row == std::end(kCodecs)) return {};
    CodecChoice choice{row->m_FourCC, row->m_CodecID, {}};
    const bool hasSetup = parameters.extradata_size > 0;
    switch (parameters.codec_id) {
    case AV_CODEC_ID_H264: {
        const H264Setup setup = ReadH264Setup({parameters.extradata, parameters.extradata + parameters.extradata_size});
        // The plug-in's record holds one set of each kind and lengths of 4 octets. What does not fit goes through
        // start-code form, which carries every set in the frames.
        const bool fits = setup.m_LengthSize == 4 && setup.m_SequenceSets == 1 && setup.m_PictureSets == 1;
        if (!setup.m_StartCodes && !fits) choice.m_Filters = "h264_mp4toannexb";
        break;
    }
    case AV_CODEC_ID_MPEG4:
        if (parameters.codec_tag == MakeFourCC("XVID") || parameters.codec_tag == MakeFourCC("xvid")) {
            choice.m_FourCC = MakeFourCC("Xvid");
        }
        choice.m_Filters = "mpeg4_unpack_bframes";
        // The file format has no place for headers outside the frames.
        if (hasSetup) choice.m_Filters += ",dump_extra=freq=keyframe";
        break;
    case AV_CODEC_ID_AAC:
        if (!hasSetup) choice.m_Filters = "aac_adtstoasc";
        break;
    default:
        break;
    }
    return choice;
}

std::vector<std::uint8_t> LacedVorbisHeaders(const std::vector<std::uint8_t>& setupData) {
    constexpr std::size_t kIdentificationSize = 30;
    // libavformat hands them over either laced already, or each behind its size in two octets.
    if (!setupData.empty() && setupData[0] == 2) return setupData;
    std::array<const std::uint8_t*, 3> packets{};
    std::array<std::size_t, 3> sizes{};
    std::size_t position = 0;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (setupData.size() - position < 2) return {};
        sizes[i] = setupData[position] * std::size_t{256} + setupData[position + 1];
        position += 2;
        if (setupData.size() - position < sizes[i]) return {};
        packets[i] = setupData.data() + position;
        position += sizes[i];
    }
    if (sizes[0] != kIdentificationSize) return {};
    std::vector<std::uint8_t> laced{2};
    for (std::size_t i = 0; i < 2; ++i) {
        laced.insert(laced.end(), sizes[i] / 255, 255);
        laced.push_back(static_cast<std::uint8_t>(sizes[i] % 255));
    }
    for (std::size_t i = 0; i < packets.size(); ++i) laced.insert(laced.end(), packets[i], packets[i] + sizes[i]);
    return laced;
}

std::string FourCCText(FourCC fourCC) {
    std::string text;
    for (int i = 0; i < 4; ++i, fourCC /= 256) text += static_cast<char>(fourCC % 256);
    return text;
}
