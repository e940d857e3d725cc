// SPDX-License-Identifier: MIT
#include "Encoding.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "StreamFilters.h"
#include "TimeLine.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace {

constexpr double kUsualQuality = 70;

std::string Text(double value) {
    std::string text = std::to_string(std::round(value * 10) / 10);
    return text.substr(0, text.find('.') + 2);
}

// Scales of 0 to 100 to those of the encoders, whose best value is the least.
AvOptions RateOptions(const Target& target, const MediaFile& file, AVStream* stream, const Options& options) {
    if (options.m_VideoBitrate > 0) return {{"b", std::to_string(options.m_VideoBitrate)}};
    const double quality = options.m_Quality.value_or(kUsualQuality);
    switch (target.m_Codec) {
    case AV_CODEC_ID_H264:
        return {{"crf", Text(41 - 0.3 * quality)}};
    case AV_CODEC_ID_VP8: {
        // The encoder needs a bit rate, which is never exceeded. This one leaves the rate to the quality.
        constexpr double kBitsOfPixel = 0.4;
        const AVCodecParameters& parameters = *stream->codecpar;
        const double rate = kBitsOfPixel * parameters.width * parameters.height * file.FrameRate(stream);
        return {{"crf", std::to_string(std::max(4L, std::lround(38 - 0.4 * quality)))},
                {"b", std::to_string(std::lround(std::clamp(rate, 2e5, 1e8)))}};
    }
    default: {
        const long scale = std::lround(1 + (100 - quality) / 10);
        return {{"flags", "+qscale"}, {"global_quality", std::to_string(scale * FF_QP2LAMBDA)}};
    }
    }
}

AvOptions PictureOptions(const Target& target, const MediaFile& file, AVStream* stream, const Options& options) {
    AvOptions usual = RateOptions(target, file, stream, options);
    switch (target.m_Codec) {
    case AV_CODEC_ID_H264:
        usual.insert({{"preset", "medium"}});
        // Blocks of a Video-for-Windows track have decoding times only, by which players show reordered pictures early.
        if (target.m_FourCC == MakeFourCC("havc")) usual.insert({{"bf", "0"}});
        break;
    case AV_CODEC_ID_VP8:
        usual.insert({{"deadline", "good"}, {"cpu-used", "4"}});
        break;
    case AV_CODEC_ID_MPEG2VIDEO:
        usual.insert({{"g", "15"}, {"bf", "2"}});
        break;
    default:
        break;
    }
    return usual;
}

AvOptions SoundOptions(const Target& target, const AVCodecParameters& source, const Options& options) {
    if (options.m_AudioBitrate > 0) return {{"b", std::to_string(options.m_AudioBitrate)}};
    const int channels = std::clamp(source.ch_layout.nb_channels, 1, 8);
    switch (target.m_Codec) {
    case AV_CODEC_ID_AAC:
        return {{"b", std::to_string(80000 * channels)}};
    case AV_CODEC_ID_MP3:
        return {{"b", "192000"}};
    case AV_CODEC_ID_VORBIS:
        return {{"flags", "+qscale"}, {"global_quality", std::to_string(5 * FF_QP2LAMBDA)}};
    default:
        return {};
    }
}

// Of an encoder's options these alone set the rate.
bool SetsRate(const AvOptions& options) {
    return std::any_of(options.begin(), options.end(), [](const auto& option) {
        static constexpr const char* kNames[] = {"b", "crf", "qp", "cqp", "global_quality", "q"};
        return std::find(std::begin(kNames), std::end(kNames), option.first) != std::end(kNames);
    });
}

// Whether the user's own filters deinterlace.
bool Deinterlaces(const std::string& filter) {
    static constexpr const char* kNames[] = {"bwdif", "estdif",         "fieldmatch", "kerndeint",
                                             "nnedi", "separatefields", "w3fdif",     "yadif"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [&](const char* name) { return filter.find(name) != std::string::npos; });
}

void CheckNames(const Target& target, const AvOptions& options, const char* name) {
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(avcodec_find_encoder_by_name(target.m_Encoder)));
    if (codec == nullptr) {
        throw ToolError(kExitError, std::string("libavcodec has no encoder ") + target.m_Encoder);
    }
    for (const auto& [key, value] : options) {
        const AVOption* const option = av_opt_find(codec.get(), key.c_str(), nullptr, 0, AV_OPT_SEARCH_CHILDREN);
        if (option == nullptr) {
            throw ToolError(kExitUsage, std::string(name) + ": " + target.m_Encoder + " has no option '" + key + "'");
        }
        // These would describe the frames, not change them.
        static constexpr std::array<const char*, 4> kProperties = {"ac", "ar", "channel_layout", "ch_layout"};
        if ((option->flags & AV_OPT_FLAG_ENCODING_PARAM) == 0 ||
            std::find(kProperties.begin(), kProperties.end(), key) != kProperties.end()) {
            const std::string filter = target.m_Type == AVMEDIA_TYPE_VIDEO ? "--video-filter" : "--audio-filter";
            throw ToolError(kExitUsage, std::string(name) + ": '" + key + "' is a property of the source, which " +
                                            filter + " can change");
        }
    }
}

} // namespace

Encoding PlanEncoding(const MediaFile& file, AVStream* stream, const Target& target, bool isWebm,
                      const Options& options) {
    const bool isVideo = target.m_Type == AVMEDIA_TYPE_VIDEO;
    const char* const name = isVideo ? "--video-options" : "--audio-options";
    const AvOptions own = ParseAvOptions(isVideo ? options.m_VideoOptions : options.m_AudioOptions, name);
    CheckNames(target, own, name);
    AvOptions all = own;
    AvOptions usual =
        isVideo ? PictureOptions(target, file, stream, options) : SoundOptions(target, *stream->codecpar, options);
    if (SetsRate(own)) {
        for (const char* const rate : {"b", "crf", "flags", "global_quality"}) usual.erase(rate);
    }
    // Flags of the user that have signs change the usual ones.
    const auto flags = usual.find("flags");
    if (flags != usual.end() && all.count("flags") > 0 && all["flags"].find_first_of("+-") == 0) {
        all["flags"].insert(0, flags->second);
    }
    // The encoder is marked as experimental, but there is no other.
    if (target.m_Codec == AV_CODEC_ID_DTS) usual["strict"] = "experimental";
    all.insert(usual.begin(), usual.end());

    Encoding encoding{};
    encoding.m_pTarget = &target;
    encoding.m_Options = std::move(all);
    StreamFilters filters =
        isVideo ? PictureFilters(file, stream, target, options, isWebm) : SoundFilters(target, options);
    encoding.m_Filter = std::move(filters.m_Text);
    if (target.m_Delay > 0) encoding.m_Padding = "apad=pad_len=" + std::to_string(target.m_Delay);
    encoding.m_Notes = std::move(filters.m_Notes);
    encoding.m_Deinterlaces = options.m_Deinterlace || Deinterlaces(options.m_VideoFilter);
    encoding.m_IsCompared = options.m_Verify == VerifyMode::Decode;
    // The file has a place for the set-up data of H.264 and of sound. Frames in start-code form carry theirs.
    const bool hasPlace = !isVideo || (target.m_Codec == AV_CODEC_ID_H264 && target.m_FourCC == MakeFourCC("H264") &&
                                       options.m_H264.empty());
    encoding.m_SetupInFrames = !hasPlace;
    const bool hasOwnSpan = own.count("g") + own.count("kf-max-dist") > 0;
    encoding.m_KeyFramesOpenClusters = isVideo && isWebm && !hasOwnSpan;
    encoding.m_Length = std::isfinite(options.m_Duration)
                            ? static_cast<std::int64_t>(std::min(options.m_Duration, 1e10) * 1e7)
                            : kFurthestTime;
    return encoding;
}
