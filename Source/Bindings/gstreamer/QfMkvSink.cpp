// SPDX-License-Identifier: MIT
// qfmkvsink: a GStreamer element that writes its two pads, video_0 and audio_0, into a Matroska or WebM file.
#include <memory>
#include <string>

#include "Recording.h"
#include "TrackCaps.h"

namespace {

// GObject makes and frees the C record; C++ members are behind a pointer.
struct QfMkvSink {
    GstElement m_Element;
    RecordingOptions* m_pOptions; // guarded by the object's lock
    Recording* m_pRecording;
};
struct QfMkvSinkClass {
    GstElementClass m_Parent;
};
struct QfMkvSinkPad {
    GstPad m_Pad;
    int m_Track;
    GstSegment m_Segment; // of the streaming thread
    bool m_IsLive;
};
struct QfMkvSinkPadClass {
    GstPadClass m_Parent;
};

G_DEFINE_TYPE(QfMkvSinkPad, qf_mkv_sink_pad, GST_TYPE_PAD)
G_DEFINE_TYPE(QfMkvSink, qf_mkv_sink, GST_TYPE_ELEMENT)

enum Property { kLocation = 1, kFormat, kOverwrite };

QfMkvSink* Sink(gpointer object) { return static_cast<QfMkvSink*>(object); }
QfMkvSinkPad* SinkPad(GstPad* pad) { return reinterpret_cast<QfMkvSinkPad*>(pad); }

const char* PadName(int track) { return track == QF_VIDEO ? "video_0" : "audio_0"; }

void qf_mkv_sink_pad_init(QfMkvSinkPad* pad) { gst_segment_init(&pad->m_Segment, GST_FORMAT_UNDEFINED); }
void qf_mkv_sink_pad_class_init(QfMkvSinkPadClass*) {}

// Whether the stream's source is live.
bool IsLive(GstPad* pad) {
    GstQuery* const query = gst_query_new_latency();
    gboolean isLive = FALSE;
    if (gst_pad_peer_query(pad, query) != FALSE) gst_query_parse_latency(query, &isLive, nullptr, nullptr);
    gst_query_unref(query);
    return isLive != FALSE;
}

GstFlowReturn Chain(GstPad* pad, GstObject* parent, GstBuffer* buffer) {
    const QfMkvSinkPad* const own = SinkPad(pad);
    return Sink(parent)->m_pRecording->Write(own->m_Track, own->m_Segment, GstPtr<GstBuffer>(buffer), own->m_IsLive);
}

gboolean HandleEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
    Recording& recording = *Sink(parent)->m_pRecording;
    QfMkvSinkPad* const own = SinkPad(pad);
    gboolean result = TRUE;
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_CAPS: {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        result = recording.SetCaps(own->m_Track, caps) ? TRUE : FALSE;
        break;
    }
    case GST_EVENT_SEGMENT:
        gst_event_copy_segment(event, &own->m_Segment);
        own->m_IsLive = IsLive(pad);
        break;
    case GST_EVENT_GAP: {
        GstClockTime time = GST_CLOCK_TIME_NONE;
        GstClockTime duration = GST_CLOCK_TIME_NONE;
        gst_event_parse_gap(event, &time, &duration);
        if (GST_CLOCK_TIME_IS_VALID(duration)) time += duration;
        recording.SkipTo(own->m_Track, gst_segment_to_running_time(&own->m_Segment, GST_FORMAT_TIME, time));
        break;
    }
    case GST_EVENT_FLUSH_START:
        recording.SetFlushing(own->m_Track, true);
        break;
    case GST_EVENT_FLUSH_STOP:
        recording.SetFlushing(own->m_Track, false);
        gst_segment_init(&own->m_Segment, GST_FORMAT_UNDEFINED);
        break;
    case GST_EVENT_EOS:
        recording.EndTrack(own->m_Track, gst_event_get_seqnum(event));
        break;
    default: // tags, tables of contents: the plug-in has no place for them
        return gst_pad_event_default(pad, parent, event);
    }
    gst_event_unref(event);
    return result;
}

GstPad* RequestPad(GstElement* element, GstPadTemplate* padTemplate, const gchar*, const GstCaps*) {
    const int track =
        std::string(GST_PAD_TEMPLATE_NAME_TEMPLATE(padTemplate)) == PadName(QF_VIDEO) ? QF_VIDEO : QF_AUDIO;
    if (!Sink(element)->m_pRecording->AddTrack(track)) {
        GST_ELEMENT_WARNING(element, STREAM, MUX,
                            ("No more streams: the file has one of each kind at most, named before its first frame."),
                            ("pad %s", PadName(track)));
        return nullptr;
    }
    GstPad* const pad = GST_PAD_CAST(g_object_new(qf_mkv_sink_pad_get_type(), "name", PadName(track), "direction",
                                                  GST_PAD_SINK, "template", padTemplate, nullptr));
    SinkPad(pad)->m_Track = track;
    gst_pad_set_chain_function(pad, Chain);
    gst_pad_set_event_function(pad, HandleEvent);
    gst_pad_set_active(pad, TRUE);
    gst_element_add_pad(element, pad);
    return pad;
}

void ReleasePad(GstElement* element, GstPad* pad) {
    Recording& recording = *Sink(element)->m_pRecording;
    const int track = SinkPad(pad)->m_Track;
    recording.SetFlushing(track, true);
    gst_pad_set_active(pad, FALSE); // waits for its streaming thread
    recording.RemoveTrack(track);
    gst_element_remove_pad(element, pad);
}

RecordingOptions OptionsOf(QfMkvSink* sink) {
    GST_OBJECT_LOCK(sink);
    RecordingOptions options = *sink->m_pOptions;
    GST_OBJECT_UNLOCK(sink);
    return options;
}

GstStateChangeReturn ChangeState(GstElement* element, GstStateChange change) {
    Recording& recording = *Sink(element)->m_pRecording;
    switch (change) {
    case GST_STATE_CHANGE_NULL_TO_READY:
        if (!recording.Load()) return GST_STATE_CHANGE_FAILURE;
        break;
    case GST_STATE_CHANGE_READY_TO_PAUSED:
        if (!recording.Begin(OptionsOf(Sink(element)))) return GST_STATE_CHANGE_FAILURE;
        break;
    case GST_STATE_CHANGE_PAUSED_TO_PLAYING:
        recording.SetPlaying(true);
        break;
    case GST_STATE_CHANGE_PLAYING_TO_PAUSED:
        recording.SetPlaying(false);
        break;
    case GST_STATE_CHANGE_PAUSED_TO_READY:
        recording.Interrupt();
        break;
    default:
        break;
    }
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(qf_mkv_sink_parent_class)->change_state(element, change); // stops the streaming threads
    if (change == GST_STATE_CHANGE_PAUSED_TO_READY) recording.End();
    if (change == GST_STATE_CHANGE_READY_TO_NULL) recording.Unload();
    return result;
}

void SetProperty(GObject* object, guint property, const GValue* value, GParamSpec* spec) {
    QfMkvSink* const sink = Sink(object);
    const auto text = [value] {
        const gchar* const given = g_value_get_string(value);
        return std::string(given != nullptr ? given : "");
    };
    GST_OBJECT_LOCK(sink);
    switch (property) {
    case kLocation:
        sink->m_pOptions->m_Location = text();
        break;
    case kFormat:
        sink->m_pOptions->m_Format = text();
        break;
    case kOverwrite:
        sink->m_pOptions->m_Overwrite = g_value_get_boolean(value) != FALSE;
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
        break;
    }
    GST_OBJECT_UNLOCK(sink);
}

void GetProperty(GObject* object, guint property, GValue* value, GParamSpec* spec) {
    const RecordingOptions options = OptionsOf(Sink(object));
    const auto setText = [value](const std::string& text) {
        g_value_set_string(value, text.empty() ? nullptr : text.c_str());
    };
    switch (property) {
    case kLocation:
        setText(options.m_Location);
        break;
    case kFormat:
        setText(options.m_Format);
        break;
    case kOverwrite:
        g_value_set_boolean(value, options.m_Overwrite ? TRUE : FALSE);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
        break;
    }
}

void Finalize(GObject* object) {
    delete Sink(object)->m_pRecording;
    delete Sink(object)->m_pOptions;
    G_OBJECT_CLASS(qf_mkv_sink_parent_class)->finalize(object);
}

void qf_mkv_sink_init(QfMkvSink* sink) {
    sink->m_pOptions = new RecordingOptions;
    sink->m_pRecording = new Recording(&sink->m_Element);
    GST_OBJECT_FLAG_SET(sink, GST_ELEMENT_FLAG_SINK); // the pipeline waits for its end of stream
}

void AddPadTemplate(GstElementClass* element, int track) {
    GstCaps* const caps = gst_caps_from_string(CapsText(track));
    gst_element_class_add_pad_template(element,
                                       gst_pad_template_new_with_gtype(PadName(track), GST_PAD_SINK, GST_PAD_REQUEST,
                                                                       caps, qf_mkv_sink_pad_get_type()));
    gst_caps_unref(caps);
}

void qf_mkv_sink_class_init(QfMkvSinkClass* sinkClass) {
    auto* const object = reinterpret_cast<GObjectClass*>(sinkClass);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    object->finalize = Finalize;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(
        object, kLocation, g_param_spec_string("location", "Location", "Path of the file to write", nullptr, flags));
    g_object_class_install_property(
        object, kFormat,
        g_param_spec_string("format", "Format", "mkv, hmkv, mka or webm; without it the file's extension decides",
                            nullptr, flags));
    g_object_class_install_property(
        object, kOverwrite,
        g_param_spec_boolean("overwrite", "Overwrite", "Whether a file of that name is replaced", FALSE, flags));

    auto* const element = reinterpret_cast<GstElementClass*>(sinkClass);
    element->change_state = ChangeState;
    element->request_new_pad = RequestPad;
    element->release_pad = ReleasePad;
    AddPadTemplate(element, QF_VIDEO);
    AddPadTemplate(element, QF_AUDIO);
    gst_element_class_set_static_metadata(element, "Matroska and WebM file sink", "Codec/Muxer/Sink/File",
                                          "Writes one video and one audio stream into a Matroska or WebM file",
                                          "the qf_mkv authors");
    gst_type_mark_as_plugin_api(qf_mkv_sink_pad_get_type(), static_cast<GstPluginAPIFlags>(0));
}

gboolean InitPlugin(GstPlugin* plugin) {
    return gst_element_register(plugin, "qfmkvsink", GST_RANK_NONE, qf_mkv_sink_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qfmkv, "Writes Matroska and WebM files with qf_mkv", InitPlugin,
                  QF_PACKAGE_VERSION, "MIT/X11", "qf_mkv", "qf_mkv")
