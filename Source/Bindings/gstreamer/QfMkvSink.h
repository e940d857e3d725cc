// qfmkvsink: a GStreamer element that writes its two pads, video_0 and audio_0, into a Matroska or WebM file.
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS
GST_ELEMENT_REGISTER_DECLARE(qfmkvsink)
G_END_DECLS
