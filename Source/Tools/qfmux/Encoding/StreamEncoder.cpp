// SPDX-License-Identifier: MIT
#include "StreamEncoder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <new>

#include "AvLog.h"
#include "LossText.h"
#include "TimeLine.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/common.h>
}

namespace {

constexpr std::int64_t kMillisecond = kSecond / 1000;

} // namespace

StreamEncoder::StreamEncoder(const Encoding& encoding, const FilterGraph& graph, const AVFrame* first,
                             std::int64_t origin)
    : m_Encoding(encoding), m_GraphTimeBase(graph.TimeBase()), m_Origin(origin) {
    const AVCodec* const encoder = avcodec_find_encoder_by_name(encoding.m_pTarget->m_Encoder);
    m_Codec.reset(avcodec_alloc_context3(encoder));
    if (m_Codec == nullptr) throw std::bad_alloc();
    if (!encoding.m_SetupInFrames) m_Codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (first != nullptr) {
        PrepareVideo(graph, *first);
    } else {
        PrepareAudio(graph);
    }
    Open();
    if (!encoding.m_IsCompared) return;
    const AVRational timeBase = m_Codec->time_base;
    m_Likeness = first != nullptr ? Likeness::OfPictures(timeBase)
                                  : Likeness::OfSound(timeBase, av_rescale_q(origin, kAvTimeBase, timeBase));
}

void StreamEncoder::PrepareVideo(const FilterGraph& graph, const AVFrame& first) {
    AVCodecContext& codec = *m_Codec;
    codec.width = first.width;
    codec.height = first.height;
    codec.pix_fmt = static_cast<AVPixelFormat>(first.format);
    codec.sample_aspect_ratio = graph.PixelAspect();
    codec.color_range = first.color_range;
    codec.color_primaries = first.color_primaries;
    codec.color_trc = first.color_trc;
    codec.colorspace = first.colorspace;
    codec.chroma_sample_location = first.chroma_location;
    codec.field_order = first.interlaced_frame == 0  ? AV_FIELD_PROGRESSIVE
                        : first.top_field_first != 0 ? AV_FIELD_TB
                                                     : AV_FIELD_BT;
    m_FrameRate = graph.FrameRate();
    if (m_FrameRate.num <= 0 || m_FrameRate.den <= 0) m_FrameRate = {25, 1};
    // ISO/IEC 11172-2 has no lower rate; the encoder lists rates of others' own.
    constexpr AVRational kLeastOfMpeg1 = {24000, 1001};
    if (codec.codec_id == AV_CODEC_ID_MPEG1VIDEO && av_cmp_q(m_FrameRate, kLeastOfMpeg1) < 0)
        m_FrameRate = kLeastOfMpeg1;
    if (codec.codec->supported_framerates != nullptr) {
        m_FrameRate =
            codec.codec->supported_framerates[av_find_nearest_q_idx(m_FrameRate, codec.codec->supported_framerates)];
    }
    if (codec.codec_id == AV_CODEC_ID_MPEG4) {
        av_reduce(&m_FrameRate.num, &m_FrameRate.den, m_FrameRate.num, m_FrameRate.den, 65535); // ISO/IEC 14496-2
    }
    codec.framerate = m_FrameRate;
    codec.time_base = av_inv_q(m_FrameRate);
}

void StreamEncoder::PrepareAudio(const FilterGraph& graph) {
    AVCodecContext& codec = *m_Codec;
    codec.sample_fmt = graph.SampleFormat();
    codec.sample_rate = graph.SampleRate();
    codec.time_base = {1, codec.sample_rate};
    graph.CopyChannelLayout(codec);
}

void StreamEncoder::Open() {
    AvOptions options = m_Encoding.m_Options;
    options.emplace("threads", "auto");
    AvDictionary dictionary(options);
    const int result = CheckMemory(avcodec_open2(m_Codec.get(), nullptr, dictionary.Get()));
    const std::string name = m_Encoding.m_pTarget->m_Encoder;
    if (result < 0) {
        throw ToolError(kExitError,
                        name + " refuses to encode with " + ToText(m_Encoding.m_Options) + ": " + TakeAvError(result));
    }
}

int StreamEncoder::FrameSize() const {
    return (m_Codec->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0 ? 0 : m_Codec->frame_size;
}

// The nearest multiple of the frame's duration. Midpoints are avoided, so that stamps that are rounded to milliseconds
// do not make it change.
std::int64_t StreamEncoder::TickOf(std::int64_t time) const {
    AVRational fine = m_Codec->time_base;
    const int bits = std::clamp(29 - static_cast<int>(std::log2(fine.den)), 0, 16);
    fine.den <<= bits;
    const std::int64_t origin = av_rescale_q(m_Origin, kAvTimeBase, m_GraphTimeBase);
    const double tick = static_cast<double>(av_rescale_q(time - origin, m_GraphTimeBase, fine)) / (1 << bits);
    return std::llrint(tick + (tick > 0 ? 1.0 : -1.0) / (1 << 17));
}

// The encoder counts in frames of a constant rate, as its rate control and some headers want. The times of the pictures
// are kept beside it, so that variable rates stay as they are.
void StreamEncoder::Push(AVFrame& frame, std::int64_t duration, bool isKey) {
    if (m_Codec->codec_type == AVMEDIA_TYPE_VIDEO) {
        std::int64_t time = HostTime(frame.pts, m_GraphTimeBase);
        std::int64_t tick = TickOf(frame.pts);
        if (m_LastTick) tick = std::max(tick, *m_LastTick + 1);
        // Recordings that were joined may overlap a little.
        if (m_LastTick && time <= m_LastTime) time = m_LastTime + kMillisecond;
        m_LastTick = tick;
        m_Shown[tick] = {time, duration};
        m_LastTime = time;
        frame.pts = tick;
        frame.quality = m_Codec->global_quality;
        frame.pict_type = isKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    } else {
        m_LastTime = HostTime(frame.pts, m_Codec->time_base);
    }
    if (m_Likeness != nullptr) m_Likeness->TakeSource(frame);
    Send(&frame);
}

void StreamEncoder::End() { Send(nullptr); }

void StreamEncoder::Send(const AVFrame* frame) {
    const int result = CheckMemory(avcodec_send_frame(m_Codec.get(), frame));
    if (result < 0 && result != AVERROR_EOF) Fail(result);
}

void StreamEncoder::Fail(int result) const {
    throw ToolError(kExitError, std::string(m_Encoding.m_pTarget->m_Encoder) + " fails at " + SecondsText(m_LastTime) +
                                    ": " + TakeAvError(result));
}

bool StreamEncoder::Pull(Frame& frame) {
    frame = Frame();
    frame.m_Packet = NewAvPacket();
    const int result = CheckMemory(avcodec_receive_packet(m_Codec.get(), frame.m_Packet.get()));
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return false;
    if (result < 0) Fail(result);
    const AVPacket& packet = *frame.m_Packet;
    if (m_Codec->codec_type == AVMEDIA_TYPE_VIDEO) {
        SetVideoTimes(frame);
    } else {
        frame.m_Packet->pts -= m_Encoding.m_pTarget->m_Delay;
        frame.m_Presentation = frame.m_Decode = HostTime(packet.pts, m_Codec->time_base);
        const std::int64_t samples = packet.duration > 0 ? packet.duration : std::max(1, m_Codec->frame_size);
        frame.m_Duration = static_cast<std::int32_t>(HostTime(samples, m_Codec->time_base));
    }
    return true;
}

void StreamEncoder::SetVideoTimes(Frame& frame) {
    const AVPacket& packet = *frame.m_Packet;
    const auto shown = m_Shown.find(packet.pts);
    // An encoder may add packets of its own, which are not shown.
    const Shown own = shown != m_Shown.end() ? shown->second : Shown{DecodingTime(packet.pts), 1};
    frame.m_Presentation = own.m_Time;
    frame.m_Duration = static_cast<std::int32_t>(
        std::clamp<std::int64_t>(own.m_Duration, 1, std::numeric_limits<std::int32_t>::max()));
    const std::int64_t decode = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    frame.m_Decode = std::min(DecodingTime(decode), frame.m_Presentation);
    // Decoding times only go on.
    m_Shown.erase(m_Shown.begin(), m_Shown.lower_bound(decode));
}

// A decoding time is the time of an earlier picture. The first ones lie before the first picture.
std::int64_t StreamEncoder::DecodingTime(std::int64_t tick) const {
    const auto next = m_Shown.upper_bound(tick);
    if (next != m_Shown.begin()) return std::prev(next)->second.m_Time;
    if (next == m_Shown.end()) return m_LastTime;
    return next->second.m_Time - HostTime(next->first - tick, m_Codec->time_base);
}
