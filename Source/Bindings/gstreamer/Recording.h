// SPDX-License-Identifier: MIT
// One file that qfmkvsink writes: from the first caps to the last buffer of its two tracks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <gst/gst.h>

#include "TrackCaps.h"
#include "qf_host.h"

struct GstObjectDeleter {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(qf_plugin* plugin) const { qf_plugin_close(plugin); }
    void operator()(qf_job* job) const { qf_job_free(job); }
};
template <class Object>
using GstPtr = std::unique_ptr<Object, GstObjectDeleter>;

// The values of the element's properties.
struct RecordingOptions {
    std::string m_Location;
    std::string m_Format; // empty: by the location's extension
    bool m_Overwrite = false;
};

// Called from the streaming threads of both pads and from the application's; each call locks the recording. The first
// error is posted on the element's bus, and every later buffer ends its stream with GST_FLOW_ERROR.
//
// A file names its tracks before its first frame, so it is opened when every pad has its caps. A demuxer may add its
// second pad after data of its first stream: a track that is alone waits for a second of media before it goes on
// without the other track.
class Recording {
public:
    explicit Recording(GstElement* element) : m_pElement(element) {}
    ~Recording() { Abandon(); }

    // Loads the plug-in. Returns false, with an error posted, where that fails.
    bool Load();
    void Unload() { m_Plugin.reset(); }
    // Begins a new file, which is created later. Returns false, with an error posted, without a location.
    bool Begin(const RecordingOptions& options);
    void SetPlaying(bool isPlaying);
    // Makes every waiting call return, and every later call until Begin.
    void Interrupt();
    // Ends the file with the buffers taken so far.
    void End();

    // Returns false when there is such a track already, or when it comes too late for the file.
    bool AddTrack(int track);
    void RemoveTrack(int track);

    bool SetCaps(int track, const GstCaps* caps);
    // Takes the buffer. isLive: the source is live, so the call must not wait.
    GstFlowReturn Write(int track, const GstSegment& segment, GstPtr<GstBuffer> buffer, bool isLive);
    // The track has no buffers up to that running time.
    void SkipTo(int track, GstClockTime runningTime);
    // The stream ends. seqnum: of its event.
    void EndTrack(int track, guint32 seqnum);
    void SetFlushing(int track, bool isFlushing);

private:
    using Lock = std::unique_lock<std::mutex>;

    struct Held {
        GstPtr<GstBuffer> m_Buffer;
        qf_packet m_Times;
    };
    struct Track {
        std::optional<TrackCaps> m_Caps;
        std::deque<Held> m_Held; // until the file is opened
        std::uint64_t m_HeldOctets = 0;
        std::optional<std::int64_t> m_First; // running times in ns
        std::int64_t m_Time = 0;             // of the last buffer or gap
        bool m_IsPatient = true;             // waits for the other track
        bool m_IsFlushing = false;
        bool m_HasEnded = false;
    };

    bool WaitForPlaying(Lock& lock, int track);
    bool WaitForOther(Lock& lock, int track);
    bool IsReadyToOpen() const;
    void OpenFile();
    void WriteHeld();
    void WritePacket(int track, GstBuffer* buffer, qf_packet times);
    bool WriteFirstPackets(int track, const TrackCaps& caps);
    void CloseFile();
    void EndIfAllEnded(guint32 seqnum);
    void PostError(int error);
    void Abandon();

    GstElement* const m_pElement;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    GstPtr<qf_plugin> m_Plugin;
    RecordingOptions m_Options;
    std::map<int, Track> m_Tracks;
    qf_file* m_pFile = nullptr;
    bool m_IsPlaying = false;
    bool m_IsInterrupted = true;
    bool m_HasFailed = false;
    bool m_HasEnded = false;
    bool m_IsLive = false;
    bool m_WarnedOfTime = false;
    bool m_WarnedOfPresentation = false;
};
