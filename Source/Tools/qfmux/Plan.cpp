#include "Plan.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "Surroundings.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/display.h>
}

namespace {

namespace fs = std::filesystem;

std::vector<std::string> Codes(const EncoderEntry* list) {
    std::vector<std::string> codes;
    for (; list != nullptr && list->fourCC != 0; ++list) codes.push_back(FourCCText(list->fourCC));
    return codes;
}

std::string Joined(const std::vector<std::string>& words) {
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

// The format named, or the first with the output's extension.
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
    throw ToolError(kExitUsage, "the name of '" + options.m_Output + "' must end in one of " + Joined(known) +
                                    ", or --format say what to write");
}

using Inputs = std::vector<std::shared_ptr<MediaFile>>;

struct Candidate {
    std::shared_ptr<MediaFile> m_pFile;
    AVStream* m_pStream;
};

const char* KindName(AVMediaType type) { return type == AVMEDIA_TYPE_VIDEO ? "video" : "audio"; }

// The stream asked for, counted over all inputs, or the best of the input that is for this kind: of two inputs the
// first is for video and the second for audio, if it has any.
// related: a stream whose programme is preferred, or null.
std::optional<Candidate> ChooseStream(const Inputs& inputs, AVMediaType type, const std::optional<int>& index,
                                      const AVStream* related) {
    std::vector<Candidate> all;
    for (const auto& input : inputs) {
        for (AVStream* const stream : input->Streams(type)) all.push_back({input, stream});
    }
    if (index) {
        if (*index >= static_cast<int>(all.size())) {
            throw ToolError(kExitUsage, "--tracks: there are " + std::to_string(all.size()) + " " + KindName(type) +
                                            " streams, counted from 0");
        }
        return all[static_cast<std::size_t>(*index)];
    }
    if (all.empty()) return std::nullopt;
    const MediaFile* const file = (type == AVMEDIA_TYPE_AUDIO ? all.back() : all.front()).m_pFile.get();
    AVStream** const streams = file->Context()->streams;
    const bool isHere =
        std::find(streams, streams + file->Context()->nb_streams, related) != streams + file->Context()->nb_streams;
    const int best = av_find_best_stream(file->Context(), type, -1, isHere ? related->index : -1, nullptr, 0);
    for (const Candidate& candidate : all) {
        if (candidate.m_pFile.get() == file && candidate.m_pStream->index == best) return candidate;
    }
    return *std::find_if(all.begin(), all.end(), [file](const Candidate& one) { return one.m_pFile.get() == file; });
}

// Whether the format takes the codec. What its list does not name is taken by the Matroska formats if it has an
// identifier of its own, with a note, and else only when the user insists.
void CheckAccepted(const CodecChoice& choice, const std::string& codec, const std::string& kind, bool isWebm,
                   const std::string& format, const EncoderEntry* list, bool force, RunReport& report) {
    for (const EncoderEntry* entry = list; entry->fourCC != 0; ++entry) {
        if (entry->fourCC == choice.m_FourCC) return;
    }
    const std::string takes = "format '" + format + "' lists " + Joined(Codes(list)) + " for " + kind;
    if (choice.m_FourCC == 0) {
        throw ToolError(kExitError, kind + " codec " + codec + " has no code to write it under; " + takes);
    }
    const std::string name = kind + " codec " + codec + " ('" + FourCCText(choice.m_FourCC) + "')";
    if (!choice.m_IsGeneric && !isWebm) {
        report.Note(name + " is written, though " + takes);
    } else if (force) {
        report.Warn(name + " is written by force as " + choice.m_CodecID + ": " + takes);
    } else {
        throw ToolError(kExitError, name + " is refused: " + takes + " (--force-codec writes it all the same)");
    }
}

std::string StreamName(const MediaFile& file, const AVStream& stream) {
    const char* const kind = av_get_media_type_string(stream.codecpar->codec_type);
    return file.Path() + " #" + std::to_string(stream.index) + " (" + (kind != nullptr ? kind : "unknown") + ", " +
           avcodec_get_name(stream.codecpar->codec_id) + ")";
}

// The display aspect of a picture whose pixels are not square.
std::optional<Aspect> SourceAspect(const PlannedTrack& track) {
    const AVRational pixel = av_guess_sample_aspect_ratio(track.m_pFile->Context(), track.m_pStream, nullptr);
    const AVCodecParameters& parameters = *track.m_pStream->codecpar;
    if (pixel.num <= 0 || pixel.den <= 0 || pixel.num == pixel.den) return std::nullopt;
    if (parameters.width <= 0 || parameters.height <= 0) return std::nullopt;
    Aspect aspect{};
    av_reduce(&aspect.m_X, &aspect.m_Y, std::int64_t{parameters.width} * pixel.num,
              std::int64_t{parameters.height} * pixel.den, 1 << 30);
    return aspect;
}

// By how many degrees, counterclockwise, players turn the pictures; 0 when they do not.
int Rotation(const AVStream* stream) {
    std::size_t size = 0;
    const std::uint8_t* const matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    std::int32_t elements[9];
    if (matrix == nullptr || size < sizeof elements) return 0;
    std::memcpy(elements, matrix, sizeof elements);
    const double degrees = av_display_rotation_get(elements);
    return std::isnan(degrees) ? 0 : static_cast<int>(std::lround(degrees));
}

// Whether each picture has a second one beside it in the file, which tells how transparent it is.
bool HasAlpha(const AVStream* stream) {
    const AVDictionaryEntry* const mode = av_dict_get(stream->metadata, "alpha_mode", nullptr, 0);
    return mode != nullptr && std::strcmp(mode->value, "0") != 0;
}

} // namespace

const FileFormatInfo* FormatsOf(const Plugin& plugin) {
    const FileFormatInfo* const formats = plugin.GetFileFormats();
    if (formats == nullptr || formats->fourCC == 0) throw ToolError(kExitError, "the plug-in lists no formats");
    return formats;
}

Plan MakePlan(const Options& options, const FileFormatInfo* formats, const Inputs& inputs, RunReport& report) {
    Plan plan;
    plan.m_pFormat = &ChooseFormat(options, formats);
    const std::string format = FourCCText(plan.m_pFormat->fourCC);

    const auto take = [&](AVMediaType type, const std::optional<int>& index, bool leftOut,
                          const EncoderEntry* list) -> std::optional<PlannedTrack> {
        if (leftOut) return std::nullopt;
        const std::optional<Candidate> candidate =
            ChooseStream(inputs, type, index, plan.m_Video ? plan.m_Video->m_pStream : nullptr);
        if (!candidate || list == nullptr) return std::nullopt;
        const AVCodecParameters& parameters = *candidate->m_pStream->codecpar;
        const CodecChoice choice = ChooseCodec(*candidate->m_pFile, candidate->m_pStream, options.m_H264);
        CheckAccepted(choice, avcodec_get_name(parameters.codec_id), KindName(type), plan.IsWebm(), format, list,
                      options.m_ForceCodec, report);
        return PlannedTrack{candidate->m_pFile, candidate->m_pStream, choice};
    };
    plan.m_Video = take(AVMEDIA_TYPE_VIDEO, options.m_VideoIndex, options.m_NoVideo, plan.m_pFormat->videoEncoders);
    plan.m_Audio = take(AVMEDIA_TYPE_AUDIO, options.m_AudioIndex, options.m_NoAudio, plan.m_pFormat->audioEncoders);

    for (const auto& input : inputs) {
        for (unsigned i = 0; i < input->Context()->nb_streams; ++i) {
            AVStream* const stream = input->Context()->streams[i];
            const AVMediaType type = stream->codecpar->codec_type;
            const bool isVideo = type == AVMEDIA_TYPE_VIDEO;
            const std::optional<PlannedTrack>& chosen = isVideo ? plan.m_Video : plan.m_Audio;
            if (chosen && chosen->m_pStream == stream) continue;
            const bool asAsked = isVideo ? options.m_NoVideo : options.m_NoAudio;
            std::string reason = "one stream of a kind fits";
            if (!isVideo && type != AVMEDIA_TYPE_AUDIO) {
                reason = "the format has no place for it";
            } else if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
                reason = "an attached picture is no video";
            } else if (asAsked) {
                reason = "as asked";
            } else if (isVideo && plan.m_pFormat->videoEncoders == nullptr) {
                reason = "'" + format + "' holds no video";
            }
            const std::string line = StreamName(*input, *stream) + " is left out: ";
            if (asAsked || MediaFile::IsKnown(stream)) {
                plan.m_Dropped.push_back(line + reason);
            } else {
                report.Warn(line + "the file does not tell its " + (isVideo ? "size" : "sample rate"));
            }
        }
    }
    if (!plan.m_Video && !plan.m_Audio) throw ToolError(kExitError, "there is nothing to write to '" + format + "'");

    if (plan.m_Video) plan.m_Aspect = options.m_Aspect ? options.m_Aspect : SourceAspect(*plan.m_Video);
    if (plan.m_Aspect && plan.IsWebm()) {
        report.Warn("'" + format + "' has no place for the display aspect " + std::to_string(plan.m_Aspect->m_X) + ":" +
                    std::to_string(plan.m_Aspect->m_Y));
        plan.m_Aspect.reset();
    }
    if (const int degrees = plan.m_Video ? Rotation(plan.m_Video->m_pStream) : 0; degrees != 0) {
        report.Warn("'" + format + "' has no place for the rotation by " + std::to_string(std::abs(degrees)) +
                    " degrees: players will show the pictures as they were recorded");
    }
    if (plan.m_Video && HasAlpha(plan.m_Video->m_pStream)) {
        report.Warn("'" + format + "' has no place for transparency: players will show the pictures opaque");
    }
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
    nlohmann::json json = {{"output", options.m_Output},
                           {"format", FourCCText(plan.m_pFormat->fourCC)},
                           {"tracks", std::move(tracks)},
                           {"dropped", plan.m_Dropped}};
    if (plan.m_Aspect) json["displayAspect"] = {plan.m_Aspect->m_X, plan.m_Aspect->m_Y};
    return json;
}

std::string PlanAsText(const Plan& plan, const Options& options) {
    const nlohmann::json json = PlanAsJson(plan, options);
    std::string text = Clean(options.m_Output) + ": format '" + FourCCText(plan.m_pFormat->fourCC) + "'\n";
    for (const nlohmann::json& track : json["tracks"]) {
        text += "  track " + track["trackNumber"].dump() + ": " + track["kind"].get<std::string>() + ", " +
                track["codec"].get<std::string>() + " as '" + track["code"].get<std::string>() + "' (" +
                track["codecID"].get<std::string>() + "), from " + Clean(track["input"].get<std::string>()) + " #" +
                track["stream"].dump() + "\n";
    }
    for (const std::string& line : plan.m_Dropped) text += "  " + Clean(line) + "\n";
    return text;
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
                Narrow(formats->description) + "): video " + Joined(Codes(formats->videoEncoders)) + "; audio " +
                Joined(Codes(formats->audioEncoders)) + "\n";
    }
    return text;
}
