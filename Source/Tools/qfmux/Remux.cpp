// SPDX-License-Identifier: MIT
#include "Remux.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "Damage.h"
#include "Extent.h"
#include "FrameLosses.h"
#include "Front.h"
#include "LossText.h"
#include "Messages.h"
#include "Plan.h"
#include "PluginFile.h"
#include "Progress.h"
#include "Receipt.h"
#include "RunReport.h"
#include "Session.h"
#include "SignalGuard.h"
#include "StagedFile.h"
#include "Surroundings.h"
#include "TimeLine.h"
#include "ToolError.h"
#include "Track.h"
#include "TrackEncoder.h"
#include "TrackReader.h"
#include "TrackSetup.h"
#include "Verification.h"
#include "Verify.h"

namespace {

namespace fs = std::filesystem;

// Ends the run because of the caught signal.
[[noreturn]] void ThrowSignal(const std::string& what) {
    const int signal = SignalGuard::Caught();
    throw ToolError(static_cast<ExitCode>(kExitSignal + signal),
                    std::string("ended by SIG") + sigabbrev_np(signal) + what);
}

// Keeps the partial file after a signal and throws ToolError with its name. length: of the media so far, 100 ns.
[[noreturn]] void EndBySignal(StagedFile& output, std::int64_t length, RunReport& report) {
    if (CheckSegmentSize(output.Path().string())) ThrowSignal(" before anything was written"); // nothing has got so far
    const std::string partial = output.KeepPartial().string();
    report.Facts()["partial"] = partial;
    ThrowSignal(": the first " + SecondsText(length) + " are in '" + partial + "'");
}

// Null without --record.
std::unique_ptr<SessionWriter> MakeRecorder(const Options& options, const Plugin& plugin) {
    if (options.m_Record.empty()) return nullptr;
    std::vector<std::string> others = options.m_Inputs;
    others.push_back(options.m_Output);
    others.push_back(options.m_Plugin);
    for (const std::string& record : {options.m_Record, options.m_Record + ".payload"}) {
        for (const std::string& other : others) {
            if (!IsSameFile(record, other)) continue;
            throw ToolError(kExitUsage, "cannot record to '" + record + "': it is the same file as '" + other + "'");
        }
    }
    char version[64] = "";
    plugin.GetMultiVersion(version);
    return std::make_unique<SessionWriter>(options.m_Record, version, options.m_Overwrite);
}

// Tracks of the same file share one source. The sound comes first, since an encoder of pictures needs its start.
void OpenTracks(const Plan& plan, bool areVerified, std::optional<Track>& video, std::optional<Track>& audio) {
    std::map<MediaFile*, PacketSource::Streams> streams;
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (*track) streams[(*track)->m_pFile.get()][(*track)->m_pStream->index] = (*track)->m_Encoding.has_value();
    }
    std::map<MediaFile*, std::shared_ptr<PacketSource>> sources;
    const auto open = [&](const PlannedTrack& track, std::optional<Track>& opened, bool isVideo, std::int64_t other) {
        std::shared_ptr<PacketSource>& source = sources[track.m_pFile.get()];
        if (source == nullptr) {
            // The times of two files need not have the same origin.
            const std::int64_t shift = streams.size() > 1 ? -track.m_pFile->Origin() : 0;
            source = std::make_shared<PacketSource>(track.m_pFile, streams[track.m_pFile.get()], shift);
        }
        std::unique_ptr<FrameSource> reader;
        if (track.m_Encoding) {
            reader = std::make_unique<TrackEncoder>(source, track.m_pStream->index, *track.m_Encoding, other);
        } else {
            reader = std::make_unique<TrackReader>(source, track.m_pStream->index, track.m_Choice.m_Filters);
        }
        opened.emplace(track, std::move(reader), isVideo, plan.IsWebm(), areVerified);
    };
    std::int64_t start = kFurthestTime;
    if (plan.m_Audio) open(*plan.m_Audio, audio, false, kFurthestTime);
    if (audio && audio->HasFrame()) start = audio->Time();
    if (plan.m_Video) open(*plan.m_Video, video, true, start);
}

void NoteLateStart(const char* kind, RunReport& report) {
    report.Note(std::string("the ") + kind + " stream begins after the end of --duration and is left out");
}

// Leaves out a track without frames.
void LeaveOutEmpty(std::optional<Track>& track, const char* kind, const Options& options, RunReport& report) {
    if (!track || track->HasFrame()) return;
    if (track->IsEncoded() && std::isfinite(options.m_Duration)) {
        NoteLateStart(kind, report);
    } else {
        report.Warn(std::string("the ") + kind + " stream has no frames and is left out");
    }
    track.reset();
}

// The earliest time of the tracks' first frames, 100 ns.
std::int64_t StartOf(const std::optional<Track>& video, const std::optional<Track>& audio) {
    std::int64_t start = std::numeric_limits<std::int64_t>::max();
    for (const auto* track : {&video, &audio}) {
        if (*track) start = std::min({start, (*track)->Next().m_Decode, (*track)->Next().m_Presentation});
    }
    return start;
}

// The display aspect for the file. Only the encoder knows that of the pictures it gets.
std::optional<Aspect> AspectOf(const Plan& plan, const std::optional<Track>& video) {
    if (plan.IsWebm()) return std::nullopt;
    if (plan.m_Aspect || !video || !video->IsEncoded()) return plan.m_Aspect;
    return DisplayAspect(video->Reader().Parameters().sample_aspect_ratio, video->Reader().Parameters());
}

// The output of --dry-run.
int Tell(const Plan& plan, const Options& options, RunReport& report) {
    std::string text = Clean(options.m_Output) + ": format '" + FourCCText(plan.m_pFormat->fourCC) + "'\n";
    for (const std::string& line : PlanAsLines(plan)) text += "  " + Clean(line) + "\n";
    for (const Loss& loss : plan.m_Lost) {
        text += "  " + Clean(loss.m_Text) + "\n";
    }
    if (!options.m_Json) PutResult(text);
    const std::string reason = WhyNotWritable(options.m_Output, options.m_Overwrite);
    if (!reason.empty()) report.Warn("'" + options.m_Output + "' cannot be written: " + reason);
    return report.HasWarnings() ? kExitWarnings : kExitDone;
}

// The plug-in's Duration is the sum of what audio calls tell, and players go no further. A call without data adds what
// the film lasts beyond that: sound that begins later, has gaps, ends first, or is not there.
void SettleLength(HostCalls& host, void* handle, std::int64_t missing) {
    while (missing != 0) {
        constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
        MEDIA_FRAME frame{};
        frame.duration = static_cast<std::int32_t>(std::clamp(missing, -kMost, kMost));
        missing -= frame.duration;
        host.WriteAudioPacket(handle, frame, nullptr);
    }
}

} // namespace

int Remux(const Options& options, const Plugin& plugin, RunReport& report) {
    std::vector<std::shared_ptr<MediaFile>> inputs;
    for (const std::string& path : options.m_Inputs) inputs.push_back(std::make_shared<MediaFile>(path));
    const Plan plan = MakePlan(options, FormatsOf(plugin), inputs, report);
    report.Facts() = PlanAsJson(plan, options);
    for (const Loss& loss : plan.m_Lost) report.Lose(loss);
    if (SignalGuard::Caught() != 0) ThrowSignal(" before anything was written");
    if (options.m_DryRun) return Tell(plan, options, report);

    StagedFile output(options.m_Output, options.m_Overwrite, options.m_Inputs);
    const Extent extent = EstimateExtent(plan, options);
    output.NeedRoom(extent.m_Octets);
    for (const std::string& line : PlanAsLines(plan)) report.Detail(line);

    std::optional<Track> video;
    std::optional<Track> audio;
    OpenTracks(plan, options.m_Verify != VerifyMode::None, video, audio);
    LeaveOutEmpty(video, "video", options, report);
    LeaveOutEmpty(audio, "audio", options, report);
    if (video) LeaveOutFront(*video, audio);
    if (audio && !audio->HasFrame()) audio.reset();
    if (!video && !audio) throw ToolError(kExitError, "there are no frames to write");
    const std::int64_t start = StartOf(video, audio);
    const double limit = std::isfinite(options.m_Duration) ? options.m_Duration * 1e7 : 9e18;
    const auto isDue = [&](const std::optional<Track>& track) {
        if (!track || !track->HasFrame()) return false;
        // An encoder stops by itself.
        return track->IsEncoded() || static_cast<double>(track->Next().m_Decode - start) < limit;
    };
    for (auto* track : {&video, &audio}) {
        if (!*track || isDue(*track)) continue;
        NoteLateStart(track == &video ? "video" : "audio", report);
        track->reset();
    }

    HostCalls host(plugin, MakeRecorder(options, plugin));
    MuxParam muxParam{};
    if (const std::optional<Aspect> aspect = AspectOf(plan, video)) {
        muxParam.muxFlags = 1;
        muxParam.displayAspectX = aspect->m_X;
        muxParam.displayAspectY = aspect->m_Y;
        report.Facts()["displayAspect"] = {aspect->m_X, aspect->m_Y};
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

    // Shifts a source with negative times as a whole: references between frames count from zero.
    std::int64_t first = std::numeric_limits<std::int64_t>::max(); // time of a block
    for (const auto* track : {&video, &audio}) {
        if (*track) first = std::min(first, (*track)->Time());
    }
    const std::int64_t shift = std::max<std::int64_t>(0, -start);
    // The file counts from its first block. A recording that was cut may go on with pictures presented before that,
    // whose references are lost: Matroska has no place for them.
    const std::int64_t zero = ToMilliseconds(first + shift);

    Verification verification(options, extent.m_Length, video, audio);
    std::uint64_t octets = 0;
    std::int64_t position = 0;
    FrameLosses losses;
    std::int64_t sound = 0; // all its durations
    std::uint64_t pictures = 0;
    Progress progress(options.m_Progress, options.m_Quiet, extent.m_Length);
    // In decoding order over both: the plug-in holds back what waits for the other track.
    while (SignalGuard::Caught() == 0 && (isDue(video) || isDue(audio))) {
        const bool videoIsNext = isDue(video) && (!isDue(audio) || video->Next().m_Decode <= audio->Next().m_Decode);
        Track& track = videoIsNext ? *video : *audio;
        position = track.Next().m_Decode - start;
        octets += static_cast<std::uint64_t>(track.Next().m_Packet->size);
        if (track.IsLeading()) {
            track.LeaveOutInFront();
        } else if (ToMilliseconds(track.Time() + shift) >= zero) {
            const std::int64_t time = track.Time() - first;
            losses.Add(videoIsNext, track.Next().m_Access.m_IsKey, time, time + track.Next().m_Duration);
            if (!videoIsNext) sound += track.Next().m_Duration;
            if (track.Send(host, file.Handle(), shift) && !track.SetupHasChanged()) {
                verification.Take(videoIsNext, track.Next(), ToMilliseconds(track.Time() + shift) - zero);
            }
            if (videoIsNext && track.IsEncoded()) ++pictures;
            track.Advance();
        } else {
            track.LeaveOut();
            track.Advance();
        }
        if (progress.Update(position, octets, pictures)) output.CheckRoom();
    }
    SettleLength(host, file.Handle(), losses.Length() - sound);
    file.Close();
    if (SignalGuard::Caught() != 0) EndBySignal(output, losses.Length(), report);

    if (video) WarnOfFront(*video, audio, report);
    WarnOfDamage(video, audio, std::isfinite(options.m_Duration), report);
    WarnOfTracks(video, audio, report);
    for (const Loss& loss : losses.Tell(output.Path().string(), plan.IsWebm())) report.Lose(loss);
    progress.Begin("verify");
    verification.Check(output, progress, report);
    if (SignalGuard::Caught() != 0) EndBySignal(output, losses.Length(), report);
    const std::uint64_t size = fs::file_size(output.Path());
    output.Keep(options.m_Sync);
    AddFileFacts(report.Facts(), options, video, audio, size);
    AddPlayed(report.Facts(), verification.Play());
    progress.Finish();
    if (std::ferror(stdout) != 0) report.Warn("cannot write to stdout");
    report.Tell();
    report.Close(ClosingLine(options, video, audio, verification.Play(), losses.Length(), size));
    return report.HasWarnings() ? kExitWarnings : kExitDone;
}
