// SPDX-License-Identifier: MIT
#include "Recording.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

constexpr std::int64_t kSecond = GST_SECOND;
// How much media a track holds back before the file is opened without the other track.
constexpr std::int64_t kLateTrack = 1 * kSecond;
constexpr std::uint64_t kLateTrackOctets = 8 << 20;
// How far one track may run ahead of the other; these packets are held in memory.
constexpr std::int64_t kMostAhead = 10 * kSecond;
// How long it then waits at a time. One thread may feed both tracks and would otherwise wait for ever.
constexpr std::chrono::seconds kPatience{5};
// How long a live track is held back at most while the other track is silent.
constexpr std::int32_t kLongestLiveWait = 5000; // ms

// The segment's running time of a buffer's time; QF_NO_TIME when it has none. Elements based on libavcodec may write
// 2^63 for none.
std::int64_t RunningTime(const GstSegment& segment, GstClockTime time) {
    if (segment.format != GST_FORMAT_TIME || time > G_MAXINT64) return QF_NO_TIME;
    guint64 distance = 0;
    const gint sign = gst_segment_to_running_time_full(&segment, GST_FORMAT_TIME, time, &distance);
    if (sign == 0 || distance > G_MAXINT64) return QF_NO_TIME;
    return sign * static_cast<std::int64_t>(distance);
}

// Header packets of Vorbis begin with an odd octet, frames with an even one (Vorbis I, 4.2.1 and 4.3.1).
bool IsVorbisHeader(const GstMapInfo& map) { return map.size > 0 && map.data[0] % 2 == 1; }

} // namespace

bool Recording::Load() {
    qf_plugin* plugin = nullptr;
    const int result = qf_plugin_open(nullptr, &plugin);
    m_Plugin.reset(plugin);
    if (result != QF_OK) PostError(result);
    return result == QF_OK;
}

bool Recording::Begin(const RecordingOptions& options) {
    const Lock lock(m_Mutex);
    if (options.m_Location.empty()) {
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, NOT_FOUND, ("No file name: set the property location."), (nullptr));
        return false;
    }
    m_Options = options;
    for (auto& [number, track] : m_Tracks) track = Track();
    m_IsPlaying = m_IsInterrupted = m_HasFailed = m_HasEnded = m_IsLive = m_WarnedOfTime = m_WarnedOfPresentation =
        false;
    return true;
}

void Recording::SetPlaying(bool isPlaying) {
    const Lock lock(m_Mutex);
    m_IsPlaying = isPlaying;
    m_Changed.notify_all();
}

void Recording::Interrupt() {
    const Lock lock(m_Mutex);
    m_IsInterrupted = true;
    m_Changed.notify_all();
}

void Recording::End() {
    const Lock lock(m_Mutex);
    const bool hasData =
        std::any_of(m_Tracks.begin(), m_Tracks.end(), [](const auto& entry) { return !entry.second.m_Held.empty(); });
    if (m_pFile == nullptr && hasData && !m_HasFailed) OpenFile();
    CloseFile();
}

bool Recording::AddTrack(int track) {
    const Lock lock(m_Mutex);
    return m_pFile == nullptr && !m_HasEnded && m_Tracks.try_emplace(track).second;
}

void Recording::RemoveTrack(int track) {
    const Lock lock(m_Mutex);
    if (m_pFile != nullptr) qf_file_end_track(m_pFile, track);
    m_Tracks.erase(track);
    m_Changed.notify_all();
    if (!m_Tracks.empty()) EndIfAllEnded(GST_SEQNUM_INVALID);
}

bool Recording::SetCaps(int number, const GstCaps* caps) {
    std::string reason;
    std::optional<TrackCaps> read = ReadCaps(number, caps, reason);
    const Lock lock(m_Mutex);
    if (m_HasFailed) return false;
    Track& track = m_Tracks.at(number);
    if (!read) {
        m_HasFailed = true;
        GST_ELEMENT_ERROR(m_pElement, STREAM, FORMAT, ("This stream cannot be written: %s.", reason.c_str()),
                          ("caps %" GST_PTR_FORMAT, static_cast<const void*>(caps)));
        return false;
    }
    if (track.m_Caps && track.m_First && !(*read == *track.m_Caps)) {
        m_HasFailed = true;
        GST_ELEMENT_ERROR(m_pElement, STREAM, FORMAT,
                          ("The stream changes its format on the way; a file has one format for each track."),
                          ("new caps %" GST_PTR_FORMAT, static_cast<const void*>(caps)));
        return false;
    }
    track.m_Caps = std::move(read);
    return true;
}

GstFlowReturn Recording::Write(int number, const GstSegment& segment, GstPtr<GstBuffer> buffer, bool isLive) {
    Lock lock(m_Mutex);
    if (!WaitForPlaying(lock, number)) return GST_FLOW_FLUSHING;
    Track& track = m_Tracks.at(number);
    if (m_HasFailed) return GST_FLOW_ERROR;
    if (m_HasEnded || track.m_HasEnded) return GST_FLOW_EOS;
    if (!track.m_Caps) return GST_FLOW_NOT_NEGOTIATED;
    m_IsLive = m_IsLive || isLive;

    qf_packet times{};
    times.struct_size = sizeof times;
    times.track = number;
    times.pts = RunningTime(segment, GST_BUFFER_PTS(buffer.get()));
    times.dts = RunningTime(segment, GST_BUFFER_DTS(buffer.get()));
    if (times.pts == QF_NO_TIME && times.dts != QF_NO_TIME) {
        times.pts = times.dts;
        if (number == QF_VIDEO && !std::exchange(m_WarnedOfPresentation, true)) {
            GST_ELEMENT_WARNING(m_pElement, STREAM, MUX,
                                ("Pictures without a presentation time are shown in the order of decoding."),
                                (nullptr));
        }
    }
    if (GST_BUFFER_DURATION_IS_VALID(buffer.get()) && GST_BUFFER_DURATION(buffer.get()) <= G_MAXINT64) {
        times.duration = static_cast<std::int64_t>(GST_BUFFER_DURATION(buffer.get()));
    }
    times.is_key = GST_BUFFER_FLAG_IS_SET(buffer.get(), GST_BUFFER_FLAG_DELTA_UNIT) ? 0 : 1;

    if (const std::int64_t time = times.dts != QF_NO_TIME ? times.dts : times.pts; time != QF_NO_TIME) {
        track.m_Time = time;
    }
    if (!track.m_First) track.m_First = track.m_Time;
    for (auto& [other, state] : m_Tracks) {
        if (other != number) state.m_IsPatient = true;
    }
    m_Changed.notify_all();

    if (m_pFile == nullptr) {
        track.m_HeldOctets += gst_buffer_get_size(buffer.get());
        track.m_Held.push_back({std::move(buffer), times});
        if (IsReadyToOpen()) OpenFile();
    } else {
        WritePacket(number, buffer.get(), times);
    }
    if (m_HasFailed) return GST_FLOW_ERROR;
    return WaitForOther(lock, number) ? GST_FLOW_OK : GST_FLOW_FLUSHING;
}

void Recording::SkipTo(int track, GstClockTime runningTime) {
    const Lock lock(m_Mutex);
    if (!GST_CLOCK_TIME_IS_VALID(runningTime) || runningTime > G_MAXINT64) return;
    std::int64_t& time = m_Tracks.at(track).m_Time;
    time = std::max(time, static_cast<std::int64_t>(runningTime));
    m_Changed.notify_all();
}

void Recording::EndTrack(int number, guint32 seqnum) {
    Lock lock(m_Mutex);
    if (!WaitForPlaying(lock, number)) return;
    m_Tracks.at(number).m_HasEnded = true;
    if (m_pFile != nullptr) {
        qf_file_end_track(m_pFile, number);
    } else if (!m_HasFailed && IsReadyToOpen()) {
        OpenFile();
    }
    m_Changed.notify_all();
    EndIfAllEnded(seqnum);
}

void Recording::SetFlushing(int track, bool isFlushing) {
    const Lock lock(m_Mutex);
    m_Tracks.at(track).m_IsFlushing = isFlushing;
    m_Changed.notify_all();
}

// Buffers wait while the pipeline is paused.
bool Recording::WaitForPlaying(Lock& lock, int track) {
    m_Changed.wait(lock, [&] { return m_IsPlaying || m_IsInterrupted || m_Tracks.at(track).m_IsFlushing; });
    return !m_IsInterrupted && !m_Tracks.at(track).m_IsFlushing;
}

// Limits the packets held in memory when each track has a thread of its own. Returns false when interrupted.
bool Recording::WaitForOther(Lock& lock, int number) {
    const auto mayGoOn = [&] {
        const Track& track = m_Tracks.at(number);
        if (m_IsInterrupted || track.m_IsFlushing || m_IsLive || !track.m_IsPatient) return true;
        return std::all_of(m_Tracks.begin(), m_Tracks.end(), [&](const auto& entry) {
            const Track& other = entry.second;
            const std::int64_t reached = other.m_First ? other.m_Time : std::max(*track.m_First, other.m_Time);
            return entry.first == number || other.m_HasEnded || track.m_Time - reached <= kMostAhead;
        });
    };
    if (!m_Changed.wait_for(lock, kPatience, mayGoOn)) m_Tracks.at(number).m_IsPatient = false;
    return !m_IsInterrupted && !m_Tracks.at(number).m_IsFlushing;
}

bool Recording::IsReadyToOpen() const {
    bool hasData = false;
    bool mayHaveCome = m_Tracks.size() > 1; // the other track
    for (const auto& [number, track] : m_Tracks) {
        if (!track.m_Caps && !track.m_HasEnded) return false;
        hasData = hasData || !track.m_Held.empty();
        mayHaveCome = mayHaveCome || track.m_HasEnded || track.m_HeldOctets >= kLateTrackOctets ||
                      (track.m_First && track.m_Time - *track.m_First >= kLateTrack);
    }
    return hasData && mayHaveCome;
}

void Recording::OpenFile() {
    qf_job* made = nullptr;
    int result = qf_job_new(&made);
    const GstPtr<qf_job> job(made);
    for (const auto& [number, track] : m_Tracks) {
        if (!track.m_Caps || (track.m_HasEnded && track.m_Held.empty())) continue;
        if (result == QF_OK) result = track.m_Caps->AddTo(made, number);
        if (result == QF_OK) result = qf_job_set_time_base(made, number, 1, kSecond);
    }
    if (result == QF_OK && !m_Options.m_Format.empty()) result = qf_job_set_format(made, m_Options.m_Format.c_str());
    if (result == QF_OK) result = qf_job_set_overwrite(made, m_Options.m_Overwrite ? 1 : 0);
    if (result == QF_OK && m_IsLive) result = qf_job_set_longest_wait(made, kLongestLiveWait);
    if (result == QF_OK) result = qf_file_open(m_Plugin.get(), m_Options.m_Location.c_str(), made, &m_pFile);
    if (result != QF_OK) return PostError(result);
    WriteHeld();
}

void Recording::WriteHeld() {
    for (auto& [number, track] : m_Tracks) {
        if (track.m_Caps && !WriteFirstPackets(number, *track.m_Caps)) return;
        for (const Held& held : std::exchange(track.m_Held, {})) {
            if (!m_HasFailed) WritePacket(number, held.m_Buffer.get(), held.m_Times);
        }
        if (track.m_HasEnded && !m_HasFailed) qf_file_end_track(m_pFile, number);
    }
}

bool Recording::WriteFirstPackets(int track, const TrackCaps& caps) {
    for (const std::vector<std::uint8_t>& octets : caps.m_FirstPackets) {
        qf_packet packet{};
        packet.struct_size = sizeof packet;
        packet.track = track;
        packet.data = octets.data();
        packet.size = octets.size();
        packet.pts = packet.dts = QF_NO_TIME;
        packet.is_key = 1;
        if (const int result = qf_file_write(m_pFile, &packet); result != QF_OK) {
            PostError(result);
            return false;
        }
    }
    return true;
}

void Recording::WritePacket(int number, GstBuffer* buffer, qf_packet times) {
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) return PostError(QF_ERROR_MEMORY);
    times.data = map.data;
    times.size = map.size;
    int result = QF_OK;
    // Headers in the caps may come again in buffers.
    const bool isHeader = !m_Tracks.at(number).m_Caps->m_FirstPackets.empty() && IsVorbisHeader(map);
    if (map.size > 0 && !isHeader) result = qf_file_write(m_pFile, &times);
    gst_buffer_unmap(buffer, &map);
    if (result == QF_ERROR_TIME) {
        if (!std::exchange(m_WarnedOfTime, true)) {
            GST_ELEMENT_WARNING(m_pElement, STREAM, MUX, ("A buffer was left out: %s", qf_error_text()), (nullptr));
        }
    } else if (result != QF_OK) {
        PostError(result);
    }
}

void Recording::CloseFile() {
    if (m_pFile == nullptr) return;
    const int result = qf_file_close(std::exchange(m_pFile, nullptr));
    if (result != QF_OK && !m_HasFailed) PostError(result);
}

void Recording::EndIfAllEnded(guint32 seqnum) {
    const bool haveAll =
        std::all_of(m_Tracks.begin(), m_Tracks.end(), [](const auto& entry) { return entry.second.m_HasEnded; });
    if (!haveAll || m_HasEnded) return;
    m_HasEnded = true;
    if (m_pFile == nullptr && !m_HasFailed) {
        GST_ELEMENT_WARNING(m_pElement, STREAM, MUX, ("No file was written: no data came."), (nullptr));
    }
    CloseFile();
    if (m_HasFailed) return;
    GstMessage* const message = gst_message_new_eos(GST_OBJECT_CAST(m_pElement));
    if (seqnum != GST_SEQNUM_INVALID) gst_message_set_seqnum(message, seqnum);
    gst_element_post_message(m_pElement, message);
}

void Recording::PostError(int error) {
    m_HasFailed = true;
    m_Changed.notify_all();
    const std::string text = qf_error_text();
    switch (error) {
    case QF_ERROR_OPEN:
    case QF_ERROR_EXISTS:
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, OPEN_WRITE, ("%s", text.c_str()), (nullptr));
        break;
    case QF_ERROR_WRITE:
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, WRITE, ("%s", text.c_str()), (nullptr));
        break;
    case QF_ERROR_MEMORY:
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory."), (nullptr));
        break;
    case QF_ERROR_PLUGIN:
        GST_ELEMENT_ERROR(m_pElement, LIBRARY, INIT, ("%s", text.c_str()), (nullptr));
        break;
    case QF_ERROR_FORMAT:
        GST_ELEMENT_ERROR(m_pElement, STREAM, WRONG_TYPE, ("%s", text.c_str()), (nullptr));
        break;
    default:
        GST_ELEMENT_ERROR(m_pElement, STREAM, MUX, ("%s", text.c_str()), (nullptr));
        break;
    }
}

void Recording::Abandon() {
    if (m_pFile != nullptr) qf_file_close(m_pFile);
}
