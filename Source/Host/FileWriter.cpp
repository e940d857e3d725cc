// SPDX-License-Identifier: MIT
#include "FileWriter.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "HostError.h"
#include "WholeFile.h"

namespace QfHost {

namespace {

constexpr std::int64_t kMillisecond = 10000;
// All times are shifted above zero, from which the plug-in counts references to earlier frames. Pictures may be
// presented before the first frame. The file counts from its first block, so it does not show the shift.
constexpr std::int64_t kRoomBelow = 60000 * kMillisecond;
// Times in a cluster have 16 bits: a block that is further behind a later cluster has no valid time.
constexpr std::int64_t kMostBehind = 30000 * kMillisecond;
constexpr std::size_t kLargestPacket = std::numeric_limits<std::int32_t>::max() / 2;

std::int64_t ToMilliseconds(std::int64_t time) { return (time + kMillisecond / 2) / kMillisecond; }

FourCC FormatOf(const Job& job, const char* path) {
    if (job.m_Format != 0) return job.m_Format;
    const std::string extension = std::filesystem::path(path).extension().string();
    const FourCC format = extension.empty() ? 0 : FormatCode(extension.substr(1));
    if (format != 0) return format;
    throw HostError(QF_ERROR_FORMAT,
                    "'" + std::string(path) + "' does not say by its extension which format it shall have");
}

const FileFormatInfo* NeedFormat(const PluginPool::Copy& plugin, FourCC code) {
    const FileFormatInfo* const format = plugin.Format(code);
    if (format == nullptr) throw HostError(QF_ERROR_FORMAT, "the plug-in has no format '" + FormatName(code) + "'");
    return format;
}

// The plug-in's handle. Throws when there is none.
void* CreateMediaFile(const FileFormatInfo& format, const TargetFile& target, const EncodeParam& param) {
    const std::wstring name = target.NameForPlugin();
    errno = 0;
    void* const handle = format.CreateMediaFile(name.c_str(), &param);
    // cppcheck-suppress returnDanglingLifetime ; the plug-in copies both
    if (handle != nullptr) return handle;
    if (errno == ENOMEM) throw std::bad_alloc();
    throw HostError(QF_ERROR_OPEN,
                    "the plug-in cannot open '" + target.Path() + "': " + std::generic_category().message(errno));
}

} // namespace

FileWriter::FileWriter(std::shared_ptr<PluginPool> pool, const char* path, const Job& job)
    : m_pPool(std::move(pool)), m_Job(job), m_pVideo(MakeTrack(m_Job, m_Job.m_Video)),
      m_pAudio(MakeTrack(m_Job, m_Job.m_Audio)) {
    const FileFormatInfo* const format = NeedFormat(m_pPool->First(), FormatOf(m_Job, path));
    m_Job.NeedCodecs(*format);
    m_Plugin = m_pPool->Take();
    try {
        m_pFormat = NeedFormat(m_Plugin.front(), format->fourCC);
        m_Target.emplace(path, m_Job.m_MayOverwrite);
    } catch (...) {
        m_pPool->GiveBack(m_Plugin);
        throw;
    }
}

FileWriter::~FileWriter() {
    CloseHandle();
    m_pPool->GiveBack(m_Plugin);
}

std::unique_ptr<FileWriter::Track> FileWriter::MakeTrack(const Job& job, const TrackJob& track) {
    if (track.m_pCodec == nullptr) return nullptr;
    auto made = std::make_unique<Track>();
    made->m_TimeBase = track.m_TimeBase;
    made->m_pPacketizer = Packetizer::Make(job, track);
    return made;
}

FileWriter::Track& FileWriter::TrackOf(int number) {
    if (number != QF_VIDEO && number != QF_AUDIO) {
        throw HostError(QF_ERROR_ARGUMENT, "there is no track " + std::to_string(number));
    }
    const auto& track = number == QF_VIDEO ? m_pVideo : m_pAudio;
    if (track != nullptr) return *track;
    throw HostError(QF_ERROR_STATE,
                    std::string("the file has no ") + (number == QF_VIDEO ? "video" : "audio") + " track");
}

void FileWriter::Write(const qf_packet& packet) {
    const std::lock_guard lock(m_Mutex);
    Track& track = TrackOf(packet.track);
    if (track.m_HasEnded) throw HostError(QF_ERROR_STATE, "the track has ended");
    if (m_HasFailed) throw HostError(QF_ERROR_WRITE, "'" + m_Target->Path() + "' could not be written");
    std::list<HeldFrame> frames = FramesOf(track, packet);
    if (frames.empty()) return; // only set-up data
    const Clock before = track.m_Clock;
    SetTimes(track, packet, frames);
    Commit(track, frames);
    const std::size_t count = frames.size();
    track.m_Held.splice(track.m_Held.end(), frames);
    try {
        HandOver();
    } catch (const std::bad_alloc&) {
        // When part of the packet is in the file, the rest waits for the next call.
        if (track.m_Held.size() < count) return;
        track.m_Held.erase(std::prev(track.m_Held.end(), static_cast<std::ptrdiff_t>(count)), track.m_Held.end());
        track.m_Clock = before;
        throw;
    }
}

std::list<HeldFrame> FileWriter::FramesOf(Track& track, const qf_packet& packet) const {
    if (packet.data == nullptr || packet.size == 0) throw HostError(QF_ERROR_ARGUMENT, "the packet has no data");
    if (packet.size > kLargestPacket) throw HostError(QF_ERROR_ARGUMENT, "the packet is too large");
    return track.m_pPacketizer->Take({static_cast<const std::uint8_t*>(packet.data), packet.size},
                                     !IsVideo(track) || packet.is_key != 0);
}

// Of the frames of one packet, which count from it so far.
void FileWriter::SetTimes(Track& track, const qf_packet& packet, std::list<HeldFrame>& frames) const {
    const Clock& clock = track.m_Clock;
    const bool hasPresentation = packet.pts != QF_NO_TIME;
    const bool hasDecode = packet.dts != QF_NO_TIME;
    std::int64_t presentation = clock.m_NextTime;
    std::int64_t decode = clock.m_NextTime;
    if (hasPresentation) presentation = decode = track.m_TimeBase.ToHostTime(packet.pts);
    if (hasDecode) decode = track.m_TimeBase.ToHostTime(packet.dts);
    if (hasDecode && !hasPresentation) presentation = decode;
    // Presentation times of pictures may be reordered.
    const bool isTold = hasDecode || (hasPresentation && !IsVideo(track));
    const std::int64_t told = decode;
    if (isTold && told < clock.m_LastTold) {
        throw HostError(QF_ERROR_TIME, "the time " + std::to_string(hasDecode ? packet.dts : packet.pts) +
                                           " lies before that of the packet in front of it");
    }
    // The packets come in decoding order, even if a guessed time does not.
    if (clock.m_HasTime) decode = std::max(decode, clock.m_LastDecode);
    if (m_pHandle != nullptr && presentation + m_Shift < m_Latest - kMostBehind) {
        throw HostError(QF_ERROR_TIME, "the packet comes more than 30 seconds behind what was written");
    }
    const std::int64_t duration = packet.duration > 0 ? track.m_TimeBase.ToHostTime(packet.duration) : 0;
    const auto count = static_cast<std::int64_t>(frames.size());
    for (HeldFrame& frame : frames) {
        if (count == 1) frame.m_Duration = duration;
        frame.m_Presentation += presentation;
        frame.m_Decode += decode;
    }
    if (isTold) track.m_Clock.m_LastTold = told;
}

void FileWriter::Commit(Track& track, const std::list<HeldFrame>& frames) {
    const HeldFrame& last = frames.back();
    // Sound without a duration lasts until the next frame begins.
    if (!track.m_Held.empty() && track.m_Held.back().m_Duration == 0 && !IsVideo(track)) {
        HeldFrame& before = track.m_Held.back();
        before.m_Duration = std::max<std::int64_t>(1, frames.front().m_Presentation - before.m_Presentation);
        track.m_Clock.m_LastDuration = before.m_Duration;
    }
    if (last.m_Duration > 0) track.m_Clock.m_LastDuration = last.m_Duration;
    track.m_Clock.m_HasTime = true;
    track.m_Clock.m_LastDecode = last.m_Decode;
    track.m_Clock.m_NextTime = last.m_Decode + DurationOf(track, last);
}

std::int64_t FileWriter::DurationOf(const Track& track, const HeldFrame& frame) const {
    if (frame.m_Duration > 0) return frame.m_Duration;
    if (IsVideo(track) && m_Job.m_FrameRate > 0) {
        return static_cast<std::int64_t>(std::min(1e7 / m_Job.m_FrameRate, 2147483647.0));
    }
    if (track.m_Clock.m_LastDuration > 0) return track.m_Clock.m_LastDuration;
    const std::int64_t samples = IsVideo(track) ? 0 : m_Job.SamplesOf(frame.m_Octets.size());
    return std::max<std::int64_t>(1, samples * 10000000 / std::max(1, m_Job.m_SampleRate));
}

// The track whose frame is next; null for none.
FileWriter::Track* FileWriter::NextTrack() {
    Track* next = nullptr;
    for (const auto& track : {m_pVideo.get(), m_pAudio.get()}) {
        if (track == nullptr || track->m_Held.empty()) continue;
        if (next == nullptr || track->m_Held.front().m_Decode < next->m_Held.front().m_Decode) next = track;
    }
    return next;
}

// Whether the track's first frame must wait for a frame of the other track, or for its own successor.
bool FileWriter::MustWait(const Track& track) const {
    const HeldFrame& frame = track.m_Held.front();
    const bool needsSuccessor = !IsVideo(track) && frame.m_Duration == 0 && track.m_Held.size() == 1;
    if (needsSuccessor && !track.m_HasEnded) return true;
    const Track* const other = IsVideo(track) ? m_pAudio.get() : m_pVideo.get();
    if (other == nullptr || other->m_HasEnded || !other->m_Held.empty()) return false;
    if (other->m_Clock.m_HasTime && other->m_Clock.m_LastDecode >= frame.m_Decode) return false;
    return m_Job.m_LongestWait == 0 || track.m_Held.back().m_Decode - frame.m_Decode < m_Job.m_LongestWait;
}

void FileWriter::HandOver() {
    for (Track* track = NextTrack(); track != nullptr && !MustWait(*track); track = NextTrack()) {
        if (m_pHandle == nullptr) Begin();
        Hand(*track, track->m_Held.front());
        track->m_Held.pop_front();
    }
}

// Creates the plug-in's file, now that it is known which tracks have frames and when they start.
void FileWriter::Begin() {
    for (const auto& track : {m_pVideo.get(), m_pAudio.get()}) {
        if (track != nullptr) track->m_IsInFile = !track->m_HasEnded || !track->m_Held.empty();
    }
    EncodeParam param{};
    param.formatFourCC = m_pFormat->fourCC;
    param.disableVideo = m_pVideo != nullptr && m_pVideo->m_IsInFile ? 0 : 1;
    param.disableAudio = m_pAudio != nullptr && m_pAudio->m_IsInFile ? 0 : 1;
    if (m_pVideo != nullptr) {
        param.videoParam = {
            m_Job.m_Video.m_pCodec->m_FourCC, m_Job.m_Width, m_Job.m_Height, m_Job.m_FrameRate, {}, 24, {}};
    }
    if (m_pAudio != nullptr) {
        param.audioParam = {
            m_Job.m_Audio.m_pCodec->m_FourCC, m_Job.m_SampleRate, m_Job.m_Channels, {}, m_Job.m_BitsPerSample, {}};
    }
    // The MKV record's function serves all Matroska formats.
    const FileFormatInfo* const matroska = m_Plugin.front().Format(MakeFourCC("MKV "));
    if (matroska != nullptr && matroska->SetMuxParam != nullptr) {
        MuxParam options{};
        options.muxFlags = m_Job.m_AspectX > 0 ? 1 : 0;
        options.displayAspectX = m_Job.m_AspectX;
        options.displayAspectY = m_Job.m_AspectY;
        matroska->SetMuxParam(&options);
    }
    // cppcheck-suppress danglingLifetime ; the plug-in copies the job
    m_pHandle = CreateMediaFile(*m_pFormat, *m_Target, param);

    std::int64_t start = std::numeric_limits<std::int64_t>::max();
    std::int64_t first = start;
    for (const auto& track : {m_pVideo.get(), m_pAudio.get()}) {
        if (track == nullptr || track->m_Held.empty()) continue;
        const HeldFrame& frame = track->m_Held.front();
        start = std::min({start, frame.m_Decode, frame.m_Presentation});
        first = std::min(first, frame.m_Presentation);
    }
    // References between frames count from zero, so all times are moved above it.
    m_Shift = std::max<std::int64_t>(0, -start) + kRoomBelow;
    m_Zero = ToMilliseconds(first + m_Shift);
    m_Latest = first + m_Shift;
}

void FileWriter::Hand(Track& track, HeldFrame& frame) {
    const bool isVideo = IsVideo(track);
    const TrackJob& job = isVideo ? m_Job.m_Video : m_Job.m_Audio;
    const std::int64_t time = (job.m_pCodec->HasDecodingTimes() ? frame.m_Decode : frame.m_Presentation) + m_Shift;
    const bool isCutOff = isVideo && ToMilliseconds(time) < m_Zero;
    if (isCutOff || time < m_Latest - kMostBehind) {
        ++m_LeftOut;
        return;
    }
    MEDIA_FRAME record{};
    record.timestamp = time;
    record.duration = static_cast<std::int32_t>(
        std::min<std::int64_t>(DurationOf(track, frame), std::numeric_limits<std::int32_t>::max()));
    track.m_pPacketizer->SendSetup(*m_pFormat, m_pHandle);
    const auto size = static_cast<std::int32_t>(frame.m_Octets.size());
    if (isVideo) {
        record.videoData = frame.m_Octets.data();
        record.videoSize = size;
        record.frameFlags = frame.m_IsKey ? 1 : 0;
    } else {
        record.audioData = frame.m_Octets.data();
        record.audioSize = size;
    }
    const int taken = isVideo ? m_pFormat->WriteVideoPacket(m_pHandle, &record)
                              : m_pFormat->WriteAudioPacket(m_pHandle, &record, nullptr);
    if (taken <= 0) return;
    track.m_HasStarted = true;
    m_Latest = std::max(m_Latest, time);
    const auto waitsFor = [](const std::unique_ptr<Track>& other) {
        return other != nullptr && other->m_IsInFile && !other->m_HasStarted;
    };
    const bool allStarted = !waitsFor(m_pVideo) && !waitsFor(m_pAudio);
    const std::uint64_t least = m_Watch.Note(static_cast<std::uint64_t>(taken), time, allStarted);
    if (least <= m_Target->Length()) return;
    // Another build of the plug-in may buffer more, so ask the system.
    const std::string reason = m_Target->WhyNotLonger();
    if (reason.empty()) return;
    m_HasFailed = true;
    throw HostError(QF_ERROR_WRITE, "cannot write '" + m_Target->Path() + "': " + reason);
}

void FileWriter::EndTrack(int number) {
    const std::lock_guard lock(m_Mutex);
    TrackOf(number).m_HasEnded = true;
    if (!m_HasFailed) HandOver();
}

void FileWriter::CloseHandle() noexcept {
    if (m_pHandle == nullptr) return;
    m_pFormat->CloseMediaFile(std::exchange(m_pHandle, nullptr), nullptr, nullptr);
}

void FileWriter::Close() {
    const std::lock_guard lock(m_Mutex);
    for (const auto& track : {m_pVideo.get(), m_pAudio.get()}) {
        if (track != nullptr) track->m_HasEnded = true;
    }
    if (!m_HasFailed) HandOver();
    CloseHandle();
    if (m_Watch.Octets() == 0) {
        throw HostError(QF_ERROR_EMPTY, "'" + m_Target->Path() + "' is empty: no packet was written");
    }
    if (m_HasFailed || !IsWholeFile(m_Target->Number(), m_Watch.Octets())) {
        const std::string reason = m_Target->WhyNotLonger();
        throw HostError(QF_ERROR_WRITE, "'" + m_Target->Path() + "' is not whole: " +
                                            (reason.empty() ? "a part of it was lost on the way" : reason));
    }
    if (m_Job.m_Syncs) m_Target->Sync();
}

void FileWriter::Discard() noexcept {
    const std::lock_guard lock(m_Mutex);
    CloseHandle();
    m_Target->Remove();
}

std::uint64_t FileWriter::LeftOut() const {
    const std::lock_guard lock(m_Mutex);
    return m_LeftOut;
}

} // namespace QfHost
