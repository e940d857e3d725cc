// SPDX-License-Identifier: MIT
#include "TrackCaps.h"

#include <numeric>
#include <tuple>

namespace {

using Octets = std::vector<std::uint8_t>;

Octets OctetsOf(GstBuffer* buffer) {
    GstMapInfo map;
    if (buffer == nullptr || gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) return {};
    Octets octets(map.data, map.data + map.size);
    gst_buffer_unmap(buffer, &map);
    return octets;
}

Octets CodecData(const GstStructure* structure) {
    const GValue* const value = gst_structure_get_value(structure, "codec_data");
    return value != nullptr && GST_VALUE_HOLDS_BUFFER(value) ? OctetsOf(gst_value_get_buffer(value)) : Octets();
}

// The stream's header packets, from its caps.
std::vector<Octets> StreamHeader(const GstStructure* structure) {
    std::vector<Octets> packets;
    const GValue* const value = gst_structure_get_value(structure, "streamheader");
    if (value == nullptr || !GST_VALUE_HOLDS_ARRAY(value)) return packets;
    for (guint i = 0; i < gst_value_array_get_size(value); ++i) {
        const GValue* const packet = gst_value_array_get_value(value, i);
        if (GST_VALUE_HOLDS_BUFFER(packet)) packets.push_back(OctetsOf(gst_value_get_buffer(packet)));
    }
    return packets;
}

std::int32_t Number(const GstStructure* structure, const char* field) {
    gint number = 0;
    gst_structure_get_int(structure, field, &number);
    return number;
}

std::string Text(const GstStructure* structure, const char* field) {
    const char* const text = gst_structure_get_string(structure, field);
    return text != nullptr ? text : "";
}

bool ReadVideo(const GstStructure* structure, TrackCaps& track, std::string& reason) {
    const std::string name = gst_structure_get_name(structure);
    if (name == "video/x-h264") {
        track.m_Codec = "h264";
        track.m_Setup = CodecData(structure);
        if (Text(structure, "stream-format") == "avc") {
            if (track.m_Setup.size() < 7) {
                reason = "H.264 with lengths has no codec_data";
                return false;
            }
            track.m_Framing = QF_FRAMING_LENGTHS;
            track.m_LengthSize = track.m_Setup[4] % 4 + 1;
        } else {
            track.m_Framing = QF_FRAMING_START_CODES;
        }
    } else if (name == "video/x-vp8") {
        track.m_Codec = "vp8";
    } else {
        track.m_Codec = "mpeg" + std::to_string(Number(structure, "mpegversion"));
        track.m_Setup = CodecData(structure);
    }
    track.m_Width = Number(structure, "width");
    track.m_Height = Number(structure, "height");
    if (track.m_Width <= 0 || track.m_Height <= 0) {
        reason = "the size of the pictures is missing; a parser in front of the sink adds it";
        return false;
    }
    gint numerator = 0;
    gint denominator = 1;
    if (gst_structure_get_fraction(structure, "framerate", &numerator, &denominator) != FALSE && numerator > 0) {
        track.m_FrameRate = static_cast<double>(numerator) / denominator;
    }
    if (gst_structure_get_fraction(structure, "pixel-aspect-ratio", &numerator, &denominator) != FALSE &&
        numerator > 0 && denominator > 0 && numerator != denominator) {
        const std::int64_t x = std::int64_t{track.m_Width} * numerator;
        const std::int64_t y = std::int64_t{track.m_Height} * denominator;
        const std::int64_t divisor = std::gcd(x, y);
        if (x / divisor <= G_MAXINT32 && y / divisor <= G_MAXINT32) {
            track.m_AspectX = static_cast<std::int32_t>(x / divisor);
            track.m_AspectY = static_cast<std::int32_t>(y / divisor);
        }
    }
    return true;
}

bool ReadSound(const GstStructure* structure, TrackCaps& track, std::string& reason) {
    const std::string name = gst_structure_get_name(structure);
    track.m_SampleRate = Number(structure, "rate");
    track.m_Channels = Number(structure, "channels");
    if (name == "audio/mpeg" && Number(structure, "mpegversion") == 1) {
        track.m_Codec = Number(structure, "layer") == 2 ? "mp2" : "mp3";
    } else if (name == "audio/mpeg") {
        track.m_Codec = "aac";
        track.m_Setup = CodecData(structure);
        if (Text(structure, "stream-format") == "raw" && track.m_Setup.empty()) {
            reason = "raw AAC has no codec_data";
            return false;
        }
        if (Text(structure, "stream-format") == "adts") track.m_Setup.clear();
    } else if (name == "audio/x-ac3") {
        track.m_Codec = "ac3";
    } else if (name == "audio/x-dts") {
        track.m_Codec = "dts";
    } else if (name == "audio/x-vorbis") {
        track.m_Codec = "vorbis";
        track.m_FirstPackets = StreamHeader(structure);
    } else {
        track.m_Codec = "pcm";
        const std::string format = Text(structure, "format");
        track.m_BitsPerSample = format == "U8" ? 8 : format == "S24LE" ? 24 : format == "S32LE" ? 32 : 16;
    }
    if (track.m_SampleRate <= 0 || track.m_Channels <= 0) {
        reason = "the sample rate or the number of channels is missing; a parser in front of the sink adds it";
        return false;
    }
    return true;
}

} // namespace

bool TrackCaps::operator==(const TrackCaps& other) const {
    const auto all = [](const TrackCaps& caps) {
        return std::tie(caps.m_Codec, caps.m_Setup, caps.m_FirstPackets, caps.m_Framing, caps.m_LengthSize,
                        caps.m_Width, caps.m_Height, caps.m_AspectX, caps.m_AspectY, caps.m_SampleRate, caps.m_Channels,
                        caps.m_BitsPerSample);
    };
    return all(*this) == all(other); // except the frame rate, which may vary
}

int TrackCaps::AddTo(qf_job* job, int track) const {
    int result = track == QF_VIDEO ? qf_job_set_video(job, m_Codec.c_str(), m_Width, m_Height, m_FrameRate)
                                   : qf_job_set_audio(job, m_Codec.c_str(), m_SampleRate, m_Channels, m_BitsPerSample);
    if (result == QF_OK && m_Framing != QF_FRAMING_AUTO) result = qf_job_set_framing(job, m_Framing, m_LengthSize);
    if (result == QF_OK && !m_Setup.empty()) result = qf_job_set_setup(job, track, m_Setup.data(), m_Setup.size());
    if (result == QF_OK && m_AspectX > 0) result = qf_job_set_display_aspect(job, m_AspectX, m_AspectY);
    return result;
}

const char* CapsText(int track) {
    return track == QF_VIDEO ? "video/x-h264, stream-format=(string){avc, byte-stream}, alignment=(string)au; "
                               "video/mpeg, mpegversion=(int){1, 2, 4}, systemstream=(boolean)false; "
                               "video/x-vp8"
                             : "audio/mpeg, mpegversion=(int){2, 4}, stream-format=(string){raw, adts}; "
                               "audio/mpeg, mpegversion=(int)1, layer=(int){2, 3}; "
                               "audio/x-ac3; "
                               "audio/x-dts; "
                               "audio/x-raw, format=(string){U8, S16LE, S24LE, S32LE}, layout=(string)interleaved; "
                               "audio/x-vorbis";
}

std::optional<TrackCaps> ReadCaps(int track, const GstCaps* caps, std::string& reason) {
    TrackCaps result;
    const GstStructure* const structure = gst_caps_get_structure(caps, 0);
    if (!(track == QF_VIDEO ? ReadVideo(structure, result, reason) : ReadSound(structure, result, reason))) return {};
    return result;
}
