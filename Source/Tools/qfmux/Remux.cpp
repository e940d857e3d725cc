#include "Remux.h"

#include <csignal>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "H264.h"
#include "Media.h"
#include "OutputFile.h"
#include "Plan.h"
#include "Progress.h"
#include "Session.h"
#include "Surroundings.h"
#include "ToolError.h"
#include "Verify.h"

namespace {

namespace fs = std::filesystem;

volatile std::sig_atomic_t g_Signal = 0;

// While an object of this class lives, SIGINT, SIGTERM and SIGHUP end a run in good order; the second one at once.
// A file that grows too large and a reader of stdout that goes away show as errors of the write, and not as signals.
class SignalGuard {
public:
    SignalGuard() {
        Set(SIGINT, [](int signal) { g_Signal = signal; });
        Set(SIGTERM, [](int signal) { g_Signal = signal; });
        Set(SIGHUP, [](int signal) { g_Signal = signal; });
        Set(SIGXFSZ, SIG_IGN);
        Set(SIGPIPE, SIG_IGN);
    }
    ~SignalGuard() {
        for (const auto& [signal, action] : m_Old) sigaction(signal, &action, nullptr);
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    void Set(int signal, void (*handler)(int)) {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
        if (handler == SIG_IGN) action.sa_flags = 0;
        sigaction(signal, &action, &m_Old[signal]);
    }

    std::map<int, struct sigaction> m_Old;
};

std::int64_t ToMilliseconds(std::int64_t hostTime) { return (hostTime + 5000) / 10000; }

// One stream on its way into the file.
class Track {
public:
    // source: of the planned track's file.
    Track(const PlannedTrack& plan, std::shared_ptr<PacketSource> source, bool isVideo, bool isWebm, bool isVerified)
        : m_Plan(plan), m_IsVideo(isVideo), m_IsWebm(isWebm),
          m_Reader(std::move(source), plan.m_pStream->index, plan.m_Choice.m_Filters), m_Digest(isVerified) {
        Advance();
    }

    bool HasFrame() const { return m_HasFrame; }
    const Frame& Next() const { return m_Next; }
    const TrackReader& Reader() const { return m_Reader; }
    const PlannedTrack& Plan() const { return m_Plan; }
    TrackDigest& Digest() { return m_Digest; }
    bool SlicesWereSplit() const { return m_SlicesWereSplit; }
    // Of sound: a file has one set of it for each track. Pictures carry theirs with them.
    bool SetupHasChanged() const { return m_SetupHasChanged; }

    std::int64_t Time() const { return m_Plan.m_Choice.m_DecodeTimes ? m_Next.m_Decode : m_Next.m_Presentation; }

    void Advance() { m_HasFrame = m_Reader.Next(m_Next); }
    // Instead of sending the next frame.
    void LeaveOut() { ++m_LeftOut; }
    int LeftOut() const { return m_LeftOut; }

    // Hands the next frame to the plug-in, its times moved by shift.
    void Send(HostCalls& host, void* handle, std::int64_t shift) {
        AVPacket& packet = *m_Next.m_Packet;
        MEDIA_FRAME frame{};
        frame.timestamp = Time() + shift;
        frame.duration = m_Next.m_Duration;
        if (!m_IsVideo) {
            if (m_Setup.empty()) m_Setup = m_Reader.SetupData();
            m_SetupHasChanged = m_SetupHasChanged || m_Reader.SetupData() != m_Setup;
            frame.audioData = packet.data;
            frame.audioSize = packet.size;
            Expect(frame.timestamp, true, packet.data, static_cast<std::size_t>(packet.size));
            host.WriteAudioPacket(handle, frame, nullptr);
            return;
        }
        frame.frameFlags = m_Next.m_Key ? 1 : 0;
        if (m_Plan.m_Choice.m_Framing == Framing::AsTheyAre) {
            frame.videoData = packet.data;
            frame.videoSize = packet.size;
            Expect(frame.timestamp, m_Next.m_Key, packet.data, static_cast<std::size_t>(packet.size));
            host.WriteVideoPacket(handle, frame);
            return;
        }
        const std::vector<NalUnit> units = SplitUnits(packet.data, static_cast<std::size_t>(packet.size));
        std::vector<std::uint8_t> rewritten = WithLongStartCodes(units);
        frame.videoData = rewritten.data();
        frame.videoSize = static_cast<std::int32_t>(rewritten.size());
        if (m_IsWebm && m_Plan.m_Choice.m_Framing == Framing::StartCodes) { // no start code is made a length there
            Expect(frame.timestamp, m_Next.m_Key, rewritten.data(), rewritten.size());
        } else {
            ExpectUnits(frame.timestamp, units);
        }
        host.WriteVideoPacket(handle, frame);
    }

private:
    // Notes a block that the file must hold. In the Matroska formats a block is no key frame when it refers to the one
    // before, which a key frame of the same time does too.
    void Expect(std::int64_t time, bool isKey, const std::uint8_t* data, std::size_t size) {
        if (size == 0) return;
        BeginBlock(time, isKey);
        m_Digest.Octets(data, size);
    }

    void BeginBlock(std::int64_t time, bool isKey) {
        const bool refers = (!isKey || time == m_LastTime) && m_LastTime >= 0;
        m_Digest.Block(ToMilliseconds(time), m_IsWebm ? isKey : !refers);
        m_LastTime = time;
    }

    void ExpectUnits(std::int64_t time, const std::vector<NalUnit>& units) {
        const bool oneBlock = m_Plan.m_Choice.m_Framing == Framing::StartCodes;
        int slices = 0;
        bool begun = false;
        for (const NalUnit& unit : units) {
            if (oneBlock ? !unit.IsKept() : !unit.IsSlice()) continue;
            if (unit.IsSlice()) ++slices;
            if (!oneBlock) BeginBlock(time, unit.Type() == 5);
            if (oneBlock && !begun) BeginBlock(time, m_Next.m_Key);
            begun = true;
            const std::uint8_t length[4] = {
                static_cast<std::uint8_t>(unit.m_Size / 0x1000000), static_cast<std::uint8_t>(unit.m_Size / 0x10000),
                static_cast<std::uint8_t>(unit.m_Size / 0x100), static_cast<std::uint8_t>(unit.m_Size)};
            m_Digest.Octets(length, sizeof length);
            m_Digest.Octets(unit.m_pData, unit.m_Size);
        }
        m_SlicesWereSplit = m_SlicesWereSplit || (!oneBlock && slices > 1);
    }

    PlannedTrack m_Plan;
    bool m_IsVideo;
    bool m_IsWebm;
    TrackReader m_Reader;
    Frame m_Next;
    bool m_HasFrame = false;
    TrackDigest m_Digest;
    std::int64_t m_LastTime = -1;
    bool m_SlicesWereSplit = false;
    std::vector<std::uint8_t> m_Setup;
    bool m_SetupHasChanged = false;
    int m_LeftOut = 0;
};

VideoParam VideoParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.Reader().Parameters();
    VideoParam video{};
    video.fourCC = track.Plan().m_Choice.m_FourCC;
    video.width = parameters.width;
    video.height = parameters.height;
    video.frameRate = track.Plan().m_pFile->FrameRate(track.Plan().m_pStream);
    video.bitCount = 24;
    return video;
}

AudioParam AudioParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.Reader().Parameters();
    AudioParam audio{};
    audio.fourCC = track.Plan().m_Choice.m_FourCC;
    audio.sampleRate = parameters.sample_rate;
    audio.channels = parameters.ch_layout.nb_channels;
    const int bits = std::max(parameters.bits_per_coded_sample, av_get_bits_per_sample(parameters.codec_id));
    audio.bitsPerSample = bits > 0 ? bits : 16;
    return audio;
}

void SendSetup(HostCalls& host, void* handle, const std::optional<Track>& video, const std::optional<Track>& audio) {
    if (video) {
        const std::vector<std::uint8_t>& setup = video->Reader().SetupData();
        const AVCodecID codec = video->Reader().Parameters().codec_id;
        if (codec == AV_CODEC_ID_H264) {
            const H264Setup sets = ReadH264Setup(setup);
            host.WritezXPSData(handle, sets.m_Picture, sets.m_Sequence);
        } else if (codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO) {
            host.WritezXPSData(handle, {}, setup);
        }
    }
    if (audio) {
        const std::vector<std::uint8_t>& setup = audio->Reader().SetupData();
        const AVCodecID codec = audio->Reader().Parameters().codec_id;
        if (codec == AV_CODEC_ID_AAC) host.WriteVosData(handle, setup);
        if (codec == AV_CODEC_ID_VORBIS) host.WriteVosData(handle, LacedVorbisHeaders(setup));
    }
}

// How long the media is, 100 ns, and about how many octets the chosen streams have; 0 for not known.
struct Extent {
    std::int64_t m_Length = 0;
    std::uint64_t m_Octets = 0;
};

Extent EstimateExtent(const Plan& plan, const Options& options) {
    Extent extent;
    double octets = 0;
    for (const auto* track : {&plan.m_Video, &plan.m_Audio}) {
        if (!*track) continue;
        const AVFormatContext& context = *(*track)->m_pFile->Context();
        // From microseconds.
        std::int64_t length = 10 * std::clamp<std::int64_t>(context.duration, 0, kFurthestTime / 10);
        length = static_cast<std::int64_t>(std::min(static_cast<double>(length), options.m_Duration * 1e7));
        extent.m_Length = std::max(extent.m_Length, length);
        const double rate = static_cast<double>((*track)->m_pStream->codecpar->bit_rate);
        octets += std::max(0.0, rate / 8 * static_cast<double>(length) / 1e7);
    }
    // Headers may say anything.
    std::uint64_t most = 0;
    for (const std::string& input : options.m_Inputs) most += fs::file_size(input);
    extent.m_Octets = static_cast<std::uint64_t>(std::min(octets, static_cast<double>(most)));
    return extent;
}

// The plug-in's handle of the file, closed in any case.
class OpenFile {
public:
    OpenFile(HostCalls& host, const OutputFile& output, const EncodeParam& param)
        : m_Host(host), m_pHandle(host.CreateMediaFile(WideName(output.Path()), param)) {
        if (m_pHandle == nullptr) throw ToolError(kExitOutput, "the plug-in cannot create its file");
    }
    ~OpenFile() {
        try {
            Close();
        } catch (const RecordError&) { // another error is on its way
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    void* Handle() const { return m_pHandle; }
    void Close() {
        if (m_pHandle != nullptr) m_Host.CloseMediaFile(std::exchange(m_pHandle, nullptr));
    }

private:
    static std::wstring WideName(const fs::path& path) {
        try {
            return path.wstring();
        } catch (const std::exception&) {
            throw ToolError(kExitOutput, "cannot write to '" + path.parent_path().parent_path().string() +
                                             "': its name is not in UTF-8, and the plug-in takes no other");
        }
    }

    HostCalls& m_Host;
    void* m_pHandle;
};

// What the plug-in leaves unsaid: whether all octets arrived. Throws ToolError when they did not.
void CheckOutput(const Options& options, const OutputFile& output, std::optional<Track>& video,
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
        fault = CheckBlocks(path, video ? &video->Digest() : nullptr, audio ? &audio->Digest() : nullptr);
    }
    if (fault) {
        throw ToolError(kExitVerification,
                        "'" + options.m_Output + "' did not come out right and was removed: " + *fault);
    }
}

void PrintResult(const Options& options, const Plan& plan, std::optional<Track>& video, std::optional<Track>& audio,
                 const Report& report, int exitCode, std::uint64_t size) {
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

int Remux(const Options& options, const Plugin& plugin, Report& report) {
    std::vector<std::shared_ptr<MediaFile>> inputs;
    for (const std::string& path : options.m_Inputs) inputs.push_back(std::make_shared<MediaFile>(path));
    const Plan plan = MakePlan(options, FormatsOf(plugin), inputs, report);
    if (options.m_DryRun) {
        PutResult(options.m_Json ? AsText(PlanAsJson(plan, options)) : PlanAsText(plan, options));
        return report.Warnings().empty() ? kExitDone : kExitWarnings;
    }
    for (const std::string& line : plan.m_Dropped) report.Note(line);

    OutputFile output(options.m_Output, options.m_Overwrite, options.m_Inputs);
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
    OpenFile file(host, output, param);
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
        while (g_Signal == 0 && (isDue(video) || isDue(audio))) {
            const bool videoIsNext =
                isDue(video) && (!isDue(audio) || video->Next().m_Decode <= audio->Next().m_Decode);
            Track& track = videoIsNext ? *video : *audio;
            position = track.Next().m_Decode - start;
            octets += static_cast<std::uint64_t>(track.Next().m_Packet->size);
            if (ToMilliseconds(track.Time() + shift) >= zero) {
                track.Send(host, file.Handle(), shift);
            } else {
                track.LeaveOut();
            }
            track.Advance();
            if (progress.Update(position, octets)) output.CheckRoom();
        }
        file.Close();
        progress.Finish(position, octets);
    }

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
    CheckOutput(options, output, video, audio);
    const std::uint64_t size = fs::file_size(output.Path());
    output.Keep(options.m_Sync);

    int exitCode = g_Signal != 0 ? kExitSignal + g_Signal
                                 : static_cast<int>(report.Warnings().empty() ? kExitDone : kExitWarnings);
    if (g_Signal != 0) report.Note("ended by a signal; '" + options.m_Output + "' holds what came before it");
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
