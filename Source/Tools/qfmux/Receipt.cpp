#include "Receipt.h"

#include <nlohmann/json.hpp>
#include <string>

#include "Messages.h"

void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, RunReport& report) {
    if (video && video->SlicesWereSplit()) {
        report.Warn(
            "pictures of several slices became several blocks each, which decoders refuse; --h264 H264 avoids it");
    }
    if (audio && audio->SetupHasChanged()) {
        report.Warn("the sound of " + audio->Plan().m_pFile->Path() +
                    " changes its set-up data on the way: players know the first alone");
    }
    for (const auto* track : {&video, &audio}) {
        if (!*track) continue;
        const std::string& path = (*track)->Plan().m_pFile->Path();
        if ((*track)->Reader().TimesWereMade()) {
            report.Warn(path + " has no time stamps: they follow the order of its frames and its frame rate");
        }
        if (const int damaged = (*track)->Reader().Damaged(); damaged > 0) {
            report.Warn(std::to_string(damaged) + " damaged frames of " + path + " were left out");
        }
        if (const int leftOut = (*track)->LeftOut(); leftOut > 0) {
            report.Warn(std::to_string(leftOut) + " frames of " + path +
                        " were left out: they come in front of the first, from where the file counts");
        }
        if ((*track)->Reader().Jumps() > 0) {
            report.Warn("the times of " + path + " jump: what comes behind a jump follows on what is in front of it");
        }
    }
}

void PrintResult(const Options& options, const Plan& plan, std::optional<Track>& video, std::optional<Track>& audio,
                 const RunReport& report, int exitCode, std::uint64_t size) {
    nlohmann::json json = PlanAsJson(plan, options);
    json["octets"] = size;
    json["exitCode"] = exitCode;
    json["notes"] = report.Notes();
    json["warnings"] = report.Warnings();
    json["verified"] = options.m_Verify == VerifyMode::Full   ? "full"
                       : options.m_Verify == VerifyMode::Fast ? "fast"
                                                              : "none";
    for (nlohmann::json& entry : json["tracks"]) {
        Track& track = entry["trackNumber"] == 1 ? *video : *audio;
        entry["frames"] = track.Digest().Blocks();
        entry["octets"] = track.Digest().TotalOctets();
    }
    PutResult(AsText(json));
}
