// SPDX-License-Identifier: MIT
#include "StreamDecoder.h"

#include <algorithm>
#include <new>
#include <utility>

#include "AvLog.h"
#include "LossText.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace {

const AVCodec* FindDecoder(const AVStream* stream) {
    const AVCodecID codec = stream->codecpar->codec_id;
    const AVCodec* decoder = nullptr;
    if (HasAlphaPictures(stream)) { // which libavcodec's own decoders of these codecs ignore
        const bool isVp8 = codec == AV_CODEC_ID_VP8;
        if (isVp8 || codec == AV_CODEC_ID_VP9) decoder = avcodec_find_decoder_by_name(isVp8 ? "libvpx" : "libvpx-vp9");
    }
    return decoder != nullptr ? decoder : avcodec_find_decoder(codec);
}

} // namespace

StreamDecoder::StreamDecoder(PacketSource& source, AVStream* stream)
    : m_Source(source), m_pStream(stream), m_Packet(NewAvPacket()), m_LastRescaled(AV_NOPTS_VALUE),
      m_LastDecode(AV_NOPTS_VALUE) {
    const AVCodecParameters& parameters = *stream->codecpar;
    const std::string name = avcodec_get_name(parameters.codec_id);
    const AVCodec* const decoder = FindDecoder(stream);
    if (decoder == nullptr)
        throw ToolError(kExitError, "cannot convert " + name + ": libavcodec has no decoder for it");
    m_Codec.reset(avcodec_alloc_context3(decoder));
    if (m_Codec == nullptr) throw std::bad_alloc();
    CheckReading(avcodec_parameters_to_context(m_Codec.get(), &parameters), source.File().Path());
    m_Codec->pkt_timebase = stream->time_base;
    m_Codec->thread_count = 0; // as many as there are processors
    m_Errors.Watch(*m_Codec);
    const int result = avcodec_open2(m_Codec.get(), decoder, nullptr);
    if (result < 0) throw ToolError(kExitError, "cannot decode " + name + ": " + TakeAvError(result));
    m_TimeBase = stream->time_base;
}

bool StreamDecoder::Next(AVFrame& frame) {
    for (;;) {
        const int result = CheckMemory(avcodec_receive_frame(m_Codec.get(), &frame));
        if (result == 0) {
            SetTime(frame);
            const bool isCorrupt = (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0;
            CountDamage(isCorrupt || frame.decode_error_flags != 0, frame.pts);
            return true;
        }
        if (result == AVERROR_EOF && std::exchange(m_IsPending, false)) {
            avcodec_flush_buffers(m_Codec.get());
            Send(m_Packet.get());
        } else if (result == AVERROR_EOF) {
            CountDamage(false, m_NextTime);
            return false;
        } else if (result == AVERROR(EAGAIN)) {
            SendPacket();
        } else {
            CountDamage(true, m_NextTime); // the decoder goes on with the next packet
        }
    }
}

void StreamDecoder::SendPacket() {
    const bool isEnd = m_Source.Next(m_pStream->index, *m_Packet) < 0;
    if (isEnd) {
        Send(nullptr);
    } else if (OpensPart(*m_Packet)) {
        m_IsPending = true;
        Send(nullptr);
    } else {
        Send(m_Packet.get());
    }
}

// Takes no packet of no size, which would end the decoding.
void StreamDecoder::Send(const AVPacket* packet) {
    const int result = packet != nullptr && packet->size == 0 ? 0 : avcodec_send_packet(m_Codec.get(), packet);
    if (packet != nullptr) av_packet_unref(m_Packet.get());
    if (CheckMemory(result) < 0 && result != AVERROR_EOF) CountDamage(true, m_NextTime);
}

// Whether a part of an edit list begins with this packet: a hidden key frame, from which times go back. What the
// decoder holds belongs to other pictures, although their numbers may be the same.
bool StreamDecoder::OpensPart(const AVPacket& packet) {
    constexpr int kHiddenKey = AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISCARD;
    const bool goesBack = packet.dts < std::exchange(m_LastDecode, packet.dts);
    return m_Codec->codec_type == AVMEDIA_TYPE_VIDEO && goesBack && (packet.flags & kHiddenKey) == kHiddenKey;
}

// Pictures without a time of their own follow the picture before them. Samples are counted, so that time stamps of a
// coarse clock, such as milliseconds, do not jitter.
void StreamDecoder::SetTime(AVFrame& frame) {
    std::int64_t time = frame.best_effort_timestamp;
    if (m_Codec->codec_type == AVMEDIA_TYPE_AUDIO) {
        const AVRational sample = {1, std::max(1, frame.sample_rate)};
        if (frame.pts != AV_NOPTS_VALUE) time = frame.pts; // without the samples that the decoder skipped
        const std::int64_t expected = av_rescale_q(m_NextTime, m_TimeBase, sample);
        if (time != AV_NOPTS_VALUE) {
            time = av_rescale_delta(m_pStream->time_base, time, sample, frame.nb_samples, &m_LastRescaled, sample);
        } else {
            time = expected;
        }
        if (std::exchange(m_HasBegun, true)) NoteGap(HostTime(time - expected, sample));
        m_TimeBase = sample;
        m_NextTime = time + frame.nb_samples;
    } else {
        if (m_pStream->sample_aspect_ratio.num > 0) frame.sample_aspect_ratio = m_pStream->sample_aspect_ratio;
        if (time == AV_NOPTS_VALUE) time = m_NextTime;
        const AVRational rate = av_guess_frame_rate(m_Source.File().Context(), m_pStream, nullptr);
        const std::int64_t usual = rate.num > 0 ? av_rescale_q(1, av_inv_q(rate), m_TimeBase) : 0;
        m_NextTime = time + (frame.pkt_duration > 0 ? frame.pkt_duration : std::max<std::int64_t>(1, usual));
    }
    frame.pts = time;
}

void StreamDecoder::NoteGap(std::int64_t length) {
    if (length <= kLeastGap || !m_Source.File().HasLooseTimes()) return;
    ++m_Gaps;
    m_GapLength += length;
}

// A picture may be marked, in the log, or both.
void StreamDecoder::CountDamage(bool isMarked, std::int64_t time) {
    if (isMarked) ++m_Marked;
    // Several lines may tell of one picture.
    if (const int lines = m_Errors.Others(); lines > m_Lines) {
        m_Lines = lines;
        ++m_Told;
    }
    const int damaged = std::max({m_Marked, m_Told, m_Errors.Concealed()});
    if (m_Damaged == 0 && damaged > 0) m_FirstDamaged = HostTime(time, m_TimeBase);
    m_Damaged = damaged;
}
