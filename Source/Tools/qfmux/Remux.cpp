#include "Remux.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Extent.h"
#include "Front.h"
#include "Messages.h"
#include "Plan.h"
#include "PluginFile.h"
#include "Progress.h"
#include "Receipt.h"
#include "Session.h"
#include "SignalGuard.h"
#include "StagedFile.h"
#include "Surroundings.h"
#include "TimeLine.h"
#include "ToolError.h"
#include "Track.h"
#include "TrackSetup.h"
#include "Verify.h"

namespace {

namespace fs = std::filesystem;

// What the plug-in leaves unsaid: whether all octets arrived. Throws ToolError when they did not.
void CheckOutput(const Options& options, const StagedFile& output, std::optional<Track>& video,
                 std::optional<Track>& audio) {
    const std::string path = output.Path().string();
    std::uint64_t sent = 0;
    if (video) sent += video->Digest().TotalOctets();
    if (audio) sent += audio->Digest().TotalOctets();
    std::optional<std::string> fault = CheckSegmentSize(path);
    if (fs::file_size(output.Path()) < sent || fault) {
        throw ToolError(kExitOutput, "cannot write '" + options.m_Output + "': " + output.WriteFailure() +
                                         "; the unfinished file was removed");
    }
    if (options.m_Verify == VerifyMode::Fast) fault = CheckTracks(path, video.has_value(), audio.has_value());
    if (options.m_Verify == VerifyMode::Full) {
        fault = CheckBlocks(path, video ? &video->Digest() : nullptr, video && video->HasUnits(),
                            audio ? &audio->Digest() : nullptr);
    }
    if (fault) {
        throw ToolError(kExitVerification,
                        "'" + options.m_Output + "' did not come out right and was removed: " + *fault);
    }
}

// Null when nothing is to be recorded.
std::unique_ptr<SessionWriter> MakeRecorder(const Options& options, const Plugin& plugin) {
    if (options.m_Record.empty()) return nullptr;
    std::vector<std::string> others = options.m_Inputs;
    others.push_back(options.m_Output);
    others.push_back(options.m_Plugin);
    for (const std::string& record : {options.m_Record, options.m_Record + ".payload"}) {
        for (const std::string& other : others) {
            if (!IsSameFile(record, other)) continue;
            throw ToolError(kExitUsage, "'" + record + "' is '" + other + "' too, and no place for a record");
        }
    }
    char version[64] = "";
    plugin.GetMultiVersion(version);
    return std::make_unique<SessionWriter>(options.m_Record, version);
}

// Tracks of the same file share its source.
void OpenTracks(const Plan& plan, bool areVerified, std::optional<Track>& video, std::optional<Track>& audio) {
    std::map<MediaFile*, std::set<int>> streams;
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (*track) streams[(*track)->m_pFile.get()].insert((*track)->m_pStream->index);
    }
    std::map<MediaFile*, std::shared_ptr<PacketSource>> sources;
    const auto open = [&](const PlannedTrack& track, std::optional<Track>& opened, bool isVideo) {
        std::shared_ptr<PacketSource>& source = sources[track.m_pFile.get()];
        if (source == nullptr) {
            // Two files need not count from the same time.
            const std::int64_t shift = streams.size() > 1 ? -track.m_pFile->Origin() : 0;
            source = std::make_shared<PacketSource>(track.m_pFile, streams[track.m_pFile.get()], shift);
        }
        opened.emplace(track, source, isVideo, plan.IsWebm(), areVerified);
    };
    if (plan.m_Video) open(*plan.m_Video, video, true);
    if (plan.m_Audio) open(*plan.m_Audio, audio, false);
}

} // namespace

int Remux(const Options& options, const Plugin& plugin, RunReport& report) {
    std::vector<std::shared_ptr<MediaFile>> inputs;
    for (const std::string& path : options.m_Inputs) inputs.push_back(std::make_shared<MediaFile>(path));
    const Plan plan = MakePlan(options, FormatsOf(plugin), inputs, report);
    if (options.m_DryRun) {
        PutResult(options.m_Json ? AsText(PlanAsJson(plan, options)) : PlanAsText(plan, options));
        return report.Warnings().empty() ? kExitDone : kExitWarnings;
    }
    for (const std::string& line : plan.m_Dropped) report.Note(line);

    StagedFile output(options.m_Output, options.m_Overwrite, options.m_Inputs);
    const Extent extent = EstimateExtent(plan, options);
    output.NeedRoom(extent.m_Octets);

    const SignalGuard signals;
    std::optional<Track> video;
    std::optional<Track> audio;
    OpenTracks(plan, options.m_Verify == VerifyMode::Full, video, audio);
    if (video && !video->HasFrame()) {
        report.Warn("the video stream has no frames and is left out");
        video.reset();
    }
    if (audio && !audio->HasFrame()) {
        report.Warn("the audio stream has no frames and is left out");
        audio.reset();
    }
    if (video) LeaveOutFront(*video, audio);
    if (audio && !audio->HasFrame()) audio.reset();
    if (!video && !audio) throw ToolError(kExitError, "there are no frames to write");

    HostCalls host(plugin, MakeRecorder(options, plugin));
    MuxParam muxParam{};
    if (plan.m_Aspect) {
        muxParam.muxFlags = 1;
        muxParam.displayAspectX = plan.m_Aspect->m_X;
        muxParam.displayAspectY = plan.m_Aspect->m_Y;
    }
    host.SetMuxParam(&muxParam);

    EncodeParam param{};
    param.formatFourCC = plan.m_pFormat->fourCC;
    param.disableVideo = video ? 0 : 1;
    param.disableAudio = audio ? 0 : 1;
    if (video) param.videoParam = VideoParamOf(*video);
    if (audio) param.audioParam = AudioParamOf(*audio);
    PluginFile file(host, output, param);
    SendSetup(host, file.Handle(), video, audio);

    // A source that starts below zero is moved up as a whole: references between frames count from zero.
    std::int64_t start = std::numeric_limits<std::int64_t>::max();
    std::int64_t first = start; // time of a block
    for (const auto* track : {&video, &audio}) {
        if (!*track) continue;
        start = std::min({start, (*track)->Next().m_Decode, (*track)->Next().m_Presentation});
        first = std::min(first, (*track)->Time());
    }
    const std::int64_t shift = std::max<std::int64_t>(0, -start);
    // The file counts from its first block. A recording that was cut may go on with pictures presented before that,
    // whose references are lost: Matroska has no place for them.
    const std::int64_t zero = ToMilliseconds(first + shift);
    const double limit = std::isfinite(options.m_Duration) ? options.m_Duration * 1e7 : 9e18;

    std::uint64_t octets = 0;
    std::int64_t position = 0;
    {
        Progress progress(options.m_Progress, options.m_Quiet, extent.m_Length);
        const auto isDue = [&](const std::optional<Track>& track) {
            return track && track->HasFrame() && static_cast<double>(track->Next().m_Decode - start) < limit;
        };
        // In decoding order over both: the plug-in holds back what waits for the other track.
        while (SignalGuard::Caught() == 0 && (isDue(video) || isDue(audio))) {
            const bool videoIsNext =
                isDue(video) && (!isDue(audio) || video->Next().m_Decode <= audio->Next().m_Decode);
            Track& track = videoIsNext ? *video : *audio;
            position = track.Next().m_Decode - start;
            octets += static_cast<std::uint64_t>(track.Next().m_Packet->size);
            if (track.IsLeading()) {
                track.LeaveOutInFront();
            } else if (ToMilliseconds(track.Time() + shift) >= zero) {
                track.Send(host, file.Handle(), shift);
                track.Advance();
            } else {
                track.LeaveOut();
                track.Advance();
            }
            if (progress.Update(position, octets)) output.CheckRoom();
        }
        file.Close();
        progress.Finish(position, octets);
    }

    if (video) WarnOfFront(*video, audio, report);
    WarnOfTracks(video, audio, report);
    CheckOutput(options, output, video, audio);
    const std::uint64_t size = fs::file_size(output.Path());
    output.Keep(options.m_Sync);

    int exitCode = SignalGuard::Caught() != 0 ? kExitSignal + SignalGuard::Caught()
                                              : static_cast<int>(report.Warnings().empty() ? kExitDone : kExitWarnings);
    if (SignalGuard::Caught() != 0)
        report.Note("ended by a signal; '" + options.m_Output + "' holds what came before it");
    if (options.m_Json) {
        try {
            PrintResult(options, plan, video, audio, report, exitCode, size);
        } catch (const ToolError& error) { // the file is in place all the same
            report.Warn(error.what());
            if (exitCode == kExitDone) exitCode = kExitWarnings;
        }
    }
    report.Detail("'" + options.m_Output + "': " + std::to_string(size) + " octets");
    return exitCode;
}
