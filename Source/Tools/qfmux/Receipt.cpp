// SPDX-License-Identifier: MIT
#include "Receipt.h"

#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "LossText.h"
#include "RunReport.h"

namespace {

// What the encoder does not support as it is, or a filter changed.
void NoteSound(const Track& audio, RunReport& report) {
    const AVCodecParameters& source = *audio.Plan().m_pStream->codecpar;
    const AVCodecParameters& result = audio.Reader().Parameters();
    if (result.sample_rate != source.sample_rate) {
        report.Note("the sound is resampled from " + std::to_string(source.sample_rate) + " Hz to " +
                    std::to_string(result.sample_rate) + " Hz");
    }
    const int channels = source.ch_layout.nb_channels;
    if (result.ch_layout.nb_channels != channels) {
        report.Note("the sound is mixed from " + Counted(static_cast<std::size_t>(channels), "channel") + " to " +
                    std::to_string(result.ch_layout.nb_channels));
    }
}

} // namespace

void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, RunReport& report) {
    if (video && video->SlicesWereSplit()) {
        report.Warn(
            "each picture with several slices became several blocks, which decoders reject; --h264 H264 avoids this");
    }
    if (video && video->Reader().SizeChanges() > 0) {
        report.Note("the pictures of " + video->Plan().m_pFile->Path() +
                    " change their size: all are scaled to that of the first");
    }
    if (audio && audio->SetupHasChanged()) {
        report.Warn("the set-up data of the sound in " + audio->Plan().m_pFile->Path() +
                    " change within the stream: the file holds only the first");
    }
    if (audio && audio->IsEncoded()) NoteSound(*audio, report);
    for (const auto* track : {&video, &audio}) {
        if (!*track) continue;
        const std::string& path = (*track)->Plan().m_pFile->Path();
        if ((*track)->Reader().TimesWereMade()) {
            report.Note(path + " has no time stamps: they were derived from frame order and frame rate");
        }
        if (const int leftOut = (*track)->LeftOut(); leftOut > 0) {
            report.Warn(Counted(static_cast<std::size_t>(leftOut), "frame") + " of " + path +
                        (leftOut == 1 ? " was" : " were") + " left out: the file's time starts after them");
        }
        if ((*track)->Reader().Jumps() > 0) {
            report.Warn("the times of " + path + " jump: frames after a jump continue where those before it end");
        }
    }
}

namespace {

const char* VerifyName(VerifyMode mode) {
    switch (mode) {
    case VerifyMode::Full:
        return "full";
    case VerifyMode::Decode:
        return "decode";
    default:
        return "none";
    }
}

// "387 kB", "1.23 MB", "950 bytes".
std::string SizeText(std::uint64_t size) {
    if (size < 1000) return std::to_string(size) + " bytes";
    static constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(size) / 1000;
    std::size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < std::size(kUnits); ++unit) value /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %s", value < 9.995 ? 2 : value < 99.95 ? 1 : 0, value, kUnits[unit]);
    return text;
}

} // namespace

void AddFileFacts(nlohmann::json& facts, const Options& options, std::optional<Track>& video,
                  std::optional<Track>& audio, std::uint64_t size) {
    facts["octets"] = size;
    facts["verified"] = VerifyName(options.m_Verify);
    for (nlohmann::json& entry : facts["tracks"]) {
        std::optional<Track>& track = entry["kind"] == "video" ? video : audio;
        entry["frames"] = track ? track->Digest().Blocks() : 0;
        entry["octets"] = track ? track->Digest().TotalOctets() : 0;
        if (!track || !track->IsEncoded()) continue;
        const AVCodecParameters& parameters = track->Reader().Parameters();
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
            entry["encoding"]["width"] = parameters.width;
            entry["encoding"]["height"] = parameters.height;
            entry["encoding"]["frameRate"] = track->Reader().FrameRate();
        } else {
            entry["encoding"]["sampleRate"] = parameters.sample_rate;
            entry["encoding"]["channels"] = parameters.ch_layout.nb_channels;
        }
        entry["encoding"]["concealed"] = track->Reader().Concealed();
    }
}

void AddPlayed(nlohmann::json& facts, const Played& played) {
    facts["played"] = {{"places", played.m_Places},
                       {"pictures", played.m_Pictures},
                       {"samples", played.m_Samples},
                       {"complete", played.m_Notes.empty()}};
}

std::string ClosingLine(const Options& options, std::optional<Track>& video, std::optional<Track>& audio,
                        const Played& played, std::int64_t length, std::uint64_t size) {
    const char* const check = options.m_Verify == VerifyMode::None ? "not verified"
                              : played.m_Notes.empty()             ? "verified"
                                                                   : "compared, but not all of it could be played";
    std::uint64_t frames = 0;
    for (auto* track : {&video, &audio}) frames += *track ? (*track)->Digest().Blocks() : 0;
    return options.m_Output + ": " + SecondsText(length) + ", " + Counted(frames, "frame") + ", " + SizeText(size) +
           ", " + check;
}
