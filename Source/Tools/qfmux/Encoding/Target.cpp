// SPDX-License-Identifier: MIT
#include "Target.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr AVMediaType kVideo = AVMEDIA_TYPE_VIDEO;
constexpr AVMediaType kAudio = AVMEDIA_TYPE_AUDIO;

// Those of ISO/IEC 14496-3, and those that decoders recognise in a program config element.
constexpr const char* kAacLayouts = "mono|stereo|2.1|3.0|3.0(back)|4.0|quad|quad(side)|5.0|5.1|7.1";
// Vorbis I, 4.3.9: each number of channels has one layout.
constexpr const char* kVorbisLayouts = "mono|stereo|3.0|quad|5.0|5.1|6.1|7.1";

constexpr Target kTargets[] = {
    {"h264", kVideo, AV_CODEC_ID_H264, MakeFourCC("H264"), "libx264", "yuv420p", true, 0},
    {"havc", kVideo, AV_CODEC_ID_H264, MakeFourCC("havc"), "libx264", "yuv420p", true, 0},
    {"vp8", kVideo, AV_CODEC_ID_VP8, MakeFourCC("VP8 "), "libvpx", "yuv420p", false, 0},
    {"mpeg4", kVideo, AV_CODEC_ID_MPEG4, MakeFourCC("MP4V"), "mpeg4", "yuv420p", true, 0},
    {"xvid", kVideo, AV_CODEC_ID_MPEG4, MakeFourCC("Xvid"), "libxvid", "yuv420p", true, 0},
    {"mpeg2", kVideo, AV_CODEC_ID_MPEG2VIDEO, MakeFourCC("MP2V"), "mpeg2video", "yuv420p", true, 0},
    {"mpeg1", kVideo, AV_CODEC_ID_MPEG1VIDEO, MakeFourCC("MP1V"), "mpeg1video", "yuv420p", true, 0},
    {"aac", kAudio, AV_CODEC_ID_AAC, MakeFourCC("AAC "), "aac", kAacLayouts, false, 0},
    {"ac3", kAudio, AV_CODEC_ID_AC3, MakeFourCC("AC3 "), "ac3", nullptr, false, 0},
    {"mp3", kAudio, AV_CODEC_ID_MP3, MakeFourCC("MP3 "), "libmp3lame", nullptr, false, 0},
    {"mp2", kAudio, AV_CODEC_ID_MP2, MakeFourCC("MP2A"), "mp2", nullptr, false, 0},
    {"dts", kAudio, AV_CODEC_ID_DTS, MakeFourCC("DTS "), "dca", nullptr, false, 512},
    {"pcm", kAudio, AV_CODEC_ID_PCM_S16LE, MakeFourCC("PCM "), "pcm_s16le", nullptr, false, 0},
    {"vorbis", kAudio, AV_CODEC_ID_VORBIS, MakeFourCC("VBIS"), "libvorbis", kVorbisLayouts, false, 0},
};

const char* UsualName(AVMediaType type, FourCC format) {
    const bool isVideo = type == AVMEDIA_TYPE_VIDEO;
    if (format == MakeFourCC("WEBM")) return isVideo ? "vp8" : "vorbis";
    if (format == MakeFourCC("HMKV")) return isVideo ? "havc" : "ac3";
    return isVideo ? "h264" : "aac";
}

} // namespace

const Target* FindTarget(AVMediaType type, const std::string& name, FourCC format) {
    const std::string wanted = name.empty() ? UsualName(type, format) : name;
    const auto* const target = std::find_if(std::begin(kTargets), std::end(kTargets), [&](const Target& one) {
        return one.m_Type == type && wanted == one.m_Name;
    });
    return target != std::end(kTargets) ? target : nullptr;
}

std::vector<std::string> TargetNames(AVMediaType type) {
    std::vector<std::string> names;
    for (const Target& target : kTargets) {
        if (target.m_Type == type) names.emplace_back(target.m_Name);
    }
    return names;
}
