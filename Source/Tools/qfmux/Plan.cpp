// SPDX-License-Identifier: MIT
#include "Plan.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "Crop.h"
#include "Losses.h"
#include "RunReport.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> Codes(const EncoderEntry* list) {
    std::vector<std::string> codes;
    for (; list != nullptr && list->fourCC != 0; ++list) codes.push_back(FourCCText(list->fourCC));
    return codes;
}

std::string Quoted(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "'" : ", '") + word + "'";
    return text.empty() ? "none" : text;
}

std::string Narrow(const wchar_t* text) { return text != nullptr ? fs::path(text).u8string() : ""; }

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

// The format of --format, or the first with the output's extension.
const FileFormatInfo& ChooseFormat(const Options& options, const FileFormatInfo* formats) {
    const std::string wanted = options.m_Format.empty() ? "" : (options.m_Format + "   ").substr(0, 4);
    const std::string extension = Lower(fs::path(options.m_Output).extension().string());
    std::vector<std::string> known;
    for (; formats->fourCC != 0; ++formats) {
        const bool matches =
            wanted.empty() ? Narrow(formats->extension) == extension : FourCCText(formats->fourCC) == wanted;
        if (matches) return *formats;
        known.push_back(Narrow(formats->extension));
    }
    known.erase(std::unique(known.begin(), known.end()), known.end());
    throw ToolError(kExitUsage, "choose the output format with --format or by the file name's extension, one of " +
                                    Quoted(known) + ": '" + options.m_Output + "'");
}

using Inputs = std::vector<std::shared_ptr<MediaFile>>;

struct Candidate {
    std::shared_ptr<MediaFile> m_pFile;
    AVStream* m_pStream;
};

const char* KindName(AVMediaType type) { return type == AVMEDIA_TYPE_VIDEO ? "video" : "audio"; }

using Takes = std::function<bool(const Candidate&)>;

// libavformat's choice among these candidates of one file. related: a stream whose programme is preferred, or null.
const Candidate& BestOf(const std::vector<Candidate>& candidates, const AVStream* related) {
    AVFormatContext* const context = candidates.front().m_pFile->Context();
    const AVMediaType type = candidates.front().m_pStream->codecpar->codec_type;
    const auto isCandidate = [&](const AVStream* stream) {
        return std::any_of(candidates.begin(), candidates.end(),
                           [&](const Candidate& one) { return one.m_pStream == stream; });
    };
    // Hides the other streams of that kind for the moment.
    std::vector<AVStream*> hidden;
    int relatedIndex = -1;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        AVStream* const stream = context->streams[i];
        if (stream == related) relatedIndex = stream->index;
        if (stream->codecpar->codec_type == type && !isCandidate(stream)) hidden.push_back(stream);
    }
    for (AVStream* const stream : hidden) stream->codecpar->codec_type = AVMEDIA_TYPE_UNKNOWN;
    const int best = av_find_best_stream(context, type, -1, relatedIndex, nullptr, 0);
    for (AVStream* const stream : hidden) stream->codecpar->codec_type = type;
    const auto found = std::find_if(candidates.begin(), candidates.end(),
                                    [best](const Candidate& one) { return one.m_pStream->index == best; });
    return found != candidates.end() ? *found : candidates.front();
}

// The requested stream, counted over all inputs, or the best supported stream of the input for this kind. Of two inputs
// the first is for video and the second for audio, if it has any. If the format supports no stream, returns the best
// one all the same.
std::optional<Candidate> ChooseStream(const Inputs& inputs, AVMediaType type, const std::optional<int>& index,
                                      const AVStream* related, const Takes& takes) {
    std::vector<Candidate> all;
    for (const auto& input : inputs) {
        for (AVStream* const stream : input->Streams(type)) all.push_back({input, stream});
    }
    if (index) {
        if (*index < static_cast<int>(all.size())) return all[static_cast<std::size_t>(*index)];
        const std::string kind = KindName(type);
        const std::string there = all.empty() ? "there is no " + kind + " stream"
                                  : all.size() == 1
                                      ? "there is 1 " + kind + " stream"
                                      : "there are " + std::to_string(all.size()) + " " + kind + " streams";
        throw ToolError(kExitUsage, "--tracks " + kind.substr(0, 1) + ":" + std::to_string(*index) + ": " + there +
                                        (all.empty() ? "" : ", counted from 0"));
    }
    if (all.empty()) return std::nullopt;
    const MediaFile* const file = (type == AVMEDIA_TYPE_AUDIO ? all.back() : all.front()).m_pFile.get();
    std::vector<Candidate> here;
    std::copy_if(all.begin(), all.end(), std::back_inserter(here),
                 [file](const Candidate& one) { return one.m_pFile.get() == file; });
    std::vector<Candidate> taken;
    std::copy_if(here.begin(), here.end(), std::back_inserter(taken), takes);
    return BestOf(taken.empty() ? here : taken, related);
}

enum class Acceptance { Listed, OwnIdentifier, Refused };

// Whether the format supports the codec. The Matroska formats also accept codecs that their lists do not name, if
// Matroska has an identifier for them. Any other codec needs --force-codec.
Acceptance Accepts(const CodecChoice& choice, bool isWebm, const EncoderEntry* list) {
    for (const EncoderEntry* entry = list; entry->fourCC != 0; ++entry) {
        if (entry->fourCC == choice.m_FourCC) return Acceptance::Listed;
    }
    return choice.m_FourCC != 0 && !choice.m_IsGeneric && !isWebm ? Acceptance::OwnIdentifier : Acceptance::Refused;
}

// Throws ToolError for a codec that the format does not support. hint: what the user can do, for the message.
void CheckAccepted(const CodecChoice& choice, const std::string& codec, const std::string& kind, bool isWebm,
                   const std::string& format, const EncoderEntry* list, bool force, const std::string& hint,
                   RunReport& report) {
    const Acceptance acceptance = Accepts(choice, isWebm, list);
    if (acceptance == Acceptance::Listed) return;
    if (acceptance == Acceptance::OwnIdentifier) {
        report.Note("the " + kind + " is " + codec + ", which Matroska knows as " + choice.m_CodecID +
                    ": it is written although the plug-in does not list it");
        return;
    }
    const std::string takes = "format '" + format + "' lists " + Quoted(Codes(list));
    if (choice.m_FourCC == 0) {
        throw ToolError(kExitError, kind + " codec " + codec + " cannot be written: it has no four-character code; " +
                                        takes + hint);
    }
    const std::string code = FourCCText(choice.m_FourCC);
    const bool isNumber = code.size() != 4; // as in WAV files
    const std::string name = kind + " codec " + codec + (isNumber ? "" : " ('" + code + "')");
    if (!force) throw ToolError(kExitError, name + " is not supported: " + takes + hint);
    report.Warn(name + " is written as " + choice.m_CodecID + " because of --force-codec: " + takes);
}

void NoteEncoding(const PlannedTrack& track, RunReport& report) {
    const Encoding& encoding = *track.m_Encoding;
    const AVCodecParameters& parameters = *track.m_pStream->codecpar;
    const std::string kind = KindName(parameters.codec_type);
    const std::string options = ToText(encoding.m_Options);
    report.Note("the " + kind + " is encoded: " + avcodec_get_name(parameters.codec_id) + " becomes " +
                avcodec_get_name(encoding.m_pTarget->m_Codec) + " (" + encoding.m_pTarget->m_Encoder +
                (options.empty() ? "" : " with " + options) + ")");
    for (const std::string& note : encoding.m_Notes) report.Note(note);
}

// The first stream that is left out because libavformat does not know it, for a message; empty if there is none.
std::string UnknownStream(const Inputs& inputs) {
    for (const auto& input : inputs) {
        for (unsigned i = 0; i < input->Context()->nb_streams; ++i) {
            const AVStream* const stream = input->Context()->streams[i];
            if (MediaFile::IsKnown(stream)) continue;
            const AVCodecParameters& parameters = *stream->codecpar;
            const bool isVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
            return std::string(": the ") + (isVideo ? "size of the pictures" : "sample rate of the sound") + " in " +
                   input->Path() + " (" + avcodec_get_name(parameters.codec_id) + ") is not known";
        }
    }
    return "";
}

// Whether the stream is encoded. In automatic mode the format has to list its codec for a copy; options for encoding
// apply to all streams of their kind.
bool IsEncoded(const Options& options, AVMediaType type, bool isListed) {
    const bool isVideo = type == AVMEDIA_TYPE_VIDEO;
    switch (options.m_Encode) {
    case EncodeMode::None:
        return false;
    case EncodeMode::Auto:
        return !isListed || (isVideo ? options.HasVideoEncoding() : options.HasAudioEncoding());
    case EncodeMode::Video:
        return isVideo;
    case EncodeMode::Audio:
        return !isVideo;
    default:
        return true;
    }
}

} // namespace

std::optional<Aspect> DisplayAspect(AVRational pixel, const AVCodecParameters& parameters) {
    if (pixel.num <= 0 || pixel.den <= 0 || pixel.num == pixel.den) return std::nullopt;
    if (parameters.width <= 0 || parameters.height <= 0) return std::nullopt;
    Aspect aspect{};
    av_reduce(&aspect.m_X, &aspect.m_Y, std::int64_t{parameters.width} * pixel.num,
              std::int64_t{parameters.height} * pixel.den, 1 << 30);
    return aspect;
}

const FileFormatInfo* FormatsOf(const Plugin& plugin) {
    const FileFormatInfo* const formats = plugin.GetFileFormats();
    if (formats == nullptr || formats->fourCC == 0) throw ToolError(kExitError, "the plug-in lists no formats");
    return formats;
}

Plan MakePlan(const Options& options, const FileFormatInfo* formats, const Inputs& inputs, RunReport& report) {
    Plan plan;
    plan.m_pFormat = &ChooseFormat(options, formats);
    std::string format = FourCCText(plan.m_pFormat->fourCC);
    format.erase(format.find_last_not_of(' ') + 1);

    const auto take = [&](AVMediaType type, const std::optional<int>& index, bool leftOut,
                          const EncoderEntry* list) -> std::optional<PlannedTrack> {
        if (index && list == nullptr) {
            throw ToolError(kExitUsage, "--tracks: format '" + format + "' holds no " + KindName(type));
        }
        if (leftOut || list == nullptr) return std::nullopt;
        const auto isListed = [&](const Candidate& one) {
            // All formats of Matroska list H.264, though under different codes.
            const bool isH264 = one.m_pStream->codecpar->codec_id == AV_CODEC_ID_H264 && !plan.IsWebm();
            const CodecChoice choice = ChooseCodec(*one.m_pFile, one.m_pStream, options.m_H264);
            return isH264 || Accepts(choice, plan.IsWebm(), list) == Acceptance::Listed;
        };
        const std::optional<Candidate> candidate = ChooseStream(
            inputs, type, index, plan.m_Video ? plan.m_Video->m_pStream : nullptr, [&](const Candidate& one) {
                if (IsEncoded(options, type, isListed(one))) return options.m_Encode != EncodeMode::Auto;
                const CodecChoice choice = ChooseCodec(*one.m_pFile, one.m_pStream, options.m_H264);
                return Accepts(choice, plan.IsWebm(), list) != Acceptance::Refused ||
                       (options.m_ForceCodec && choice.m_FourCC != 0);
            });
        if (!candidate) return std::nullopt;
        PlannedTrack track{candidate->m_pFile, candidate->m_pStream, {}, {}};
        std::string codec = avcodec_get_name(track.m_pStream->codecpar->codec_id);
        if (IsEncoded(options, type, isListed(*candidate))) {
            const bool isVideo = type == AVMEDIA_TYPE_VIDEO;
            const Target& target =
                *FindTarget(type, isVideo ? options.m_VideoCodec : options.m_AudioCodec, plan.m_pFormat->fourCC);
            track.m_Choice = ChooseCodec(target, options.m_H264);
            track.m_Encoding = PlanEncoding(*track.m_pFile, track.m_pStream, target, plan.IsWebm(), options);
            codec = avcodec_get_name(target.m_Codec);
        } else {
            track.m_Choice = ChooseCodec(*track.m_pFile, track.m_pStream, options.m_H264);
        }
        const AVMediaType other = type == AVMEDIA_TYPE_VIDEO ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
        const bool hasOther = std::any_of(inputs.begin(), inputs.end(),
                                          [&](const auto& input) { return !input->Streams(other).empty(); });
        const std::string kind = KindName(type);
        const std::string hint = track.m_Encoding ? " (without --" + kind + "-codec it becomes " +
                                                        FindTarget(type, "", plan.m_pFormat->fourCC)->m_Name + ")"
                                 : hasOther ? " (--encode auto converts it, --no-" + kind + " leaves it out)"
                                            : " (--encode auto converts it)";
        CheckAccepted(track.m_Choice, codec, kind, plan.IsWebm(), format, list, options.m_ForceCodec, hint, report);
        return track;
    };
    plan.m_Video = take(AVMEDIA_TYPE_VIDEO, options.m_VideoIndex, options.m_NoVideo, plan.m_pFormat->videoEncoders);
    plan.m_Audio = take(AVMEDIA_TYPE_AUDIO, options.m_AudioIndex, options.m_NoAudio, plan.m_pFormat->audioEncoders);
    if (!plan.m_Video && !plan.m_Audio) {
        throw ToolError(kExitError, "there is nothing to write to '" + format + "'" + UnknownStream(inputs));
    }
    if (plan.m_Video && plan.m_Video->m_Encoding) {
        if (!plan.IsWebm()) plan.m_Aspect = options.m_Aspect;
    } else if (plan.m_Video) {
        AVStream* const stream = plan.m_Video->m_pStream;
        const AVRational pixel = PixelAspect(*plan.m_Video->m_pFile, stream);
        plan.m_Aspect = options.m_Aspect ? options.m_Aspect : DisplayAspect(pixel, *stream->codecpar);
    }
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (*track && (*track)->m_Encoding) NoteEncoding(**track, report);
    }
    plan.m_Lost = ListLosses(plan, inputs, options);
    return plan;
}

nlohmann::json PlanAsJson(const Plan& plan, const Options& options) {
    nlohmann::json tracks = nlohmann::json::array();
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (!*track) continue;
        const AVCodecParameters& parameters = *(*track)->m_pStream->codecpar;
        const bool isVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
        nlohmann::json entry = {{"kind", KindName(parameters.codec_type)},
                                {"input", (*track)->m_pFile->Path()},
                                {"stream", (*track)->m_pStream->index},
                                {"codec", avcodec_get_name(parameters.codec_id)},
                                {"code", FourCCText((*track)->m_Choice.m_FourCC)},
                                {"codecID", (*track)->m_Choice.m_CodecID},
                                {"trackNumber", isVideo ? 1 : 2},
                                {"filters", (*track)->m_Choice.m_Filters}};
        if (const std::optional<Encoding>& encoding = (*track)->m_Encoding) {
            entry["encoding"] = {{"codec", avcodec_get_name(encoding->m_pTarget->m_Codec)},
                                 {"encoder", encoding->m_pTarget->m_Encoder},
                                 {"options", encoding->m_Options},
                                 {"filter", encoding->AllFilters()}};
        }
        if (isVideo) {
            entry["width"] = parameters.width;
            entry["height"] = parameters.height;
            entry["frameRate"] = (*track)->m_pFile->FrameRate((*track)->m_pStream);
        } else {
            entry["sampleRate"] = parameters.sample_rate;
            entry["channels"] = parameters.ch_layout.nb_channels;
        }
        tracks.push_back(std::move(entry));
    }
    nlohmann::json json = {
        {"output", options.m_Output}, {"format", FourCCText(plan.m_pFormat->fourCC)}, {"tracks", std::move(tracks)}};
    if (plan.WritesAspect()) json["displayAspect"] = {plan.m_Aspect->m_X, plan.m_Aspect->m_Y};
    return json;
}

std::vector<std::string> PlanAsLines(const Plan& plan) {
    std::vector<std::string> lines;
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (!*track) continue;
        const AVCodecParameters& parameters = *(*track)->m_pStream->codecpar;
        const CodecChoice& choice = (*track)->m_Choice;
        const std::string kind = KindName(parameters.codec_type);
        const std::string way = (*track)->m_Encoding ? " encoded as '" : " as '";
        lines.push_back(kind + ": " + avcodec_get_name(parameters.codec_id) + way + FourCCText(choice.m_FourCC) +
                        "' (" + choice.m_CodecID + "), from " + (*track)->m_pFile->Path() + " #" +
                        std::to_string((*track)->m_pStream->index));
    }
    return lines;
}

nlohmann::json FormatsAsJson(const FileFormatInfo* formats) {
    nlohmann::json list = nlohmann::json::array();
    for (; formats->fourCC != 0; ++formats) {
        list.push_back({{"format", FourCCText(formats->fourCC)},
                        {"extension", Narrow(formats->extension)},
                        {"name", Narrow(formats->shortName)},
                        {"description", Narrow(formats->description)},
                        {"video", Codes(formats->videoEncoders)},
                        {"audio", Codes(formats->audioEncoders)},
                        {"takesAspect", formats->SetMuxParam != nullptr}});
    }
    return list;
}

std::string FormatsAsText(const FileFormatInfo* formats) {
    std::string text;
    for (; formats->fourCC != 0; ++formats) {
        text += "'" + FourCCText(formats->fourCC) + "' " + Narrow(formats->extension) + " (" +
                Narrow(formats->description) + "): video " + Quoted(Codes(formats->videoEncoders)) + "; audio " +
                Quoted(Codes(formats->audioEncoders)) + "\n";
    }
    return text;
}
