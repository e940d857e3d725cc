// SPDX-License-Identifier: MIT
#include "GstPlayer.h"

#include <gst/gst.h>

#include <mutex>
#include <stdexcept>

namespace {

constexpr GstClockTime kPatience = 60 * GST_SECOND;

struct Unref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};

} // namespace

struct GstPlayer::State {
    std::unique_ptr<GstElement, Unref> m_Pipeline;
    std::unique_ptr<GstElement, Unref> m_Sink;
    std::mutex m_Mutex;  // the probes run on GStreamer's threads
    std::string m_Track; // what the names of the track's pads begin with
    std::vector<bool> m_KeyFlags;
    std::optional<std::int64_t> m_FrameTime;

    void Forget() {
        const std::lock_guard lock(m_Mutex);
        m_KeyFlags.clear();
        m_FrameTime.reset();
    }

    static GstPadProbeReturn OnFrame(GstPad*, GstPadProbeInfo* info, gpointer self) {
        State& state = *static_cast<State*>(self);
        GstBuffer* const frame = GST_PAD_PROBE_INFO_BUFFER(info);
        const std::lock_guard lock(state.m_Mutex);
        state.m_KeyFlags.push_back(!GST_BUFFER_FLAG_IS_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT));
        const GstClockTime time = GST_BUFFER_PTS_IS_VALID(frame) ? GST_BUFFER_PTS(frame) : GST_BUFFER_DTS(frame);
        if (!state.m_FrameTime && GST_CLOCK_TIME_IS_VALID(time)) {
            state.m_FrameTime = static_cast<std::int64_t>((time + GST_MSECOND / 2) / GST_MSECOND);
        }
        return GST_PAD_PROBE_OK;
    }

    static void OnPad(GstElement*, GstPad* pad, gpointer self) {
        const std::string name = GST_PAD_NAME(pad);
        if (name.rfind(static_cast<State*>(self)->m_Track, 0) != 0) return;
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, OnFrame, self, nullptr);
    }

    // Waits for the end, a change of state that is done, or an error, which is thrown.
    void Await(GstMessageType type) {
        const std::unique_ptr<GstBus, Unref> bus(gst_element_get_bus(m_Pipeline.get()));
        GstMessage* const message = gst_bus_timed_pop_filtered(
            bus.get(), kPatience,
            static_cast<GstMessageType>(static_cast<unsigned>(type) | static_cast<unsigned>(GST_MESSAGE_ERROR) |
                                        static_cast<unsigned>(GST_MESSAGE_EOS)));
        if (message == nullptr) throw std::runtime_error("GStreamer does not answer");
        std::string failure;
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            GError* error = nullptr;
            gst_message_parse_error(message, &error, nullptr);
            failure = error->message;
            g_error_free(error);
        }
        gst_message_unref(message);
        if (!failure.empty()) throw std::runtime_error(failure);
    }

    void SeekTo(std::int64_t milliseconds, GstSeekFlags how) {
        Forget();
        const auto flags =
            static_cast<GstSeekFlags>(static_cast<unsigned>(GST_SEEK_FLAG_FLUSH) | static_cast<unsigned>(how));
        if (gst_element_seek_simple(m_Pipeline.get(), GST_FORMAT_TIME, flags, milliseconds * GST_MSECOND) == FALSE) {
            throw std::runtime_error("GStreamer refuses to seek");
        }
        Await(GST_MESSAGE_ASYNC_DONE);
    }
};

GstPlayer::GstPlayer(const std::string& path, bool hasPicture) : m_pState(std::make_unique<State>()) {
    gst_init(nullptr, nullptr);
    m_pState->m_Track = hasPicture ? "video" : "audio";
    GError* error = nullptr;
    const std::string line = std::string("filesrc name=source ! matroskademux name=demuxer ") +
                             (hasPicture ? "demuxer.video_0 ! decodebin ! videoconvert ! video/x-raw,format=I420"
                                         : "demuxer.audio_0 ! decodebin ! audioconvert") +
                             " ! fakesink name=sink sync=false enable-last-sample=true";
    m_pState->m_Pipeline.reset(gst_parse_launch(line.c_str(), &error));
    if (error != nullptr) {
        const std::string words = error->message;
        g_error_free(error);
        throw std::runtime_error(words);
    }
    const auto named = [this](const char* name) {
        return std::unique_ptr<GstElement, Unref>(gst_bin_get_by_name(GST_BIN(m_pState->m_Pipeline.get()), name));
    };
    g_object_set(named("source").get(), "location", path.c_str(), nullptr);
    g_signal_connect(named("demuxer").get(), "pad-added", G_CALLBACK(State::OnPad), m_pState.get());
    m_pState->m_Sink = named("sink");
    gst_element_set_state(m_pState->m_Pipeline.get(), GST_STATE_PAUSED);
    m_pState->Await(GST_MESSAGE_ASYNC_DONE);
}

GstPlayer::~GstPlayer() { gst_element_set_state(m_pState->m_Pipeline.get(), GST_STATE_NULL); }

GstLanding GstPlayer::Seek(std::int64_t milliseconds) {
    m_pState->SeekTo(milliseconds, static_cast<GstSeekFlags>(static_cast<unsigned>(GST_SEEK_FLAG_KEY_UNIT) |
                                                             static_cast<unsigned>(GST_SEEK_FLAG_SNAP_BEFORE)));
    GstLanding landing;
    GstSample* sample = nullptr;
    g_object_get(m_pState->m_Sink.get(), "last-sample", &sample, nullptr);
    if (sample != nullptr) {
        GstMapInfo map;
        if (gst_buffer_map(gst_sample_get_buffer(sample), &map, GST_MAP_READ) != FALSE) {
            gchar* const sum = g_compute_checksum_for_data(G_CHECKSUM_MD5, map.data, map.size);
            landing.m_Picture = sum;
            g_free(sum);
            gst_buffer_unmap(gst_sample_get_buffer(sample), &map);
        }
        gst_sample_unref(sample);
    }
    const std::lock_guard lock(m_pState->m_Mutex);
    landing.m_FrameTime = m_pState->m_FrameTime;
    return landing;
}

std::vector<bool> GstPlayer::PlayForKeyFlags() {
    m_pState->SeekTo(0, GST_SEEK_FLAG_KEY_UNIT);
    gst_element_set_state(m_pState->m_Pipeline.get(), GST_STATE_PLAYING);
    m_pState->Await(GST_MESSAGE_EOS);
    const std::lock_guard lock(m_pState->m_Mutex);
    return m_pState->m_KeyFlags;
}
