// SPDX-License-Identifier: MIT
#include "Decoding.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

Decoding::Decoding(const AVCodecParameters& parameters, const std::vector<std::uint8_t>* setup, int threads)
    : m_Frame(NewAvFrame()), m_State(XXH3_createState()) {
    if (m_State == nullptr) throw std::bad_alloc();
    XXH3_64bits_reset(m_State.get());
    const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
    if (codec == nullptr) return;
    m_Codec.reset(avcodec_alloc_context3(codec));
    if (m_Codec == nullptr || avcodec_parameters_to_context(m_Codec.get(), &parameters) < 0) throw std::bad_alloc();
    if (setup != nullptr && !setup->empty()) {
        av_freep(&m_Codec->extradata);
        m_Codec->extradata = static_cast<std::uint8_t*>(av_mallocz(setup->size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (m_Codec->extradata == nullptr) throw std::bad_alloc();
        std::memcpy(m_Codec->extradata, setup->data(), setup->size());
        m_Codec->extradata_size = static_cast<int>(setup->size());
    }
    // Decoders work around faults of encoders by the code in AVI files; Matroska has no such code.
    if (parameters.codec_id == AV_CODEC_ID_MPEG4) m_Codec->codec_tag = 0;
    m_Codec->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
    m_Codec->thread_count = threads;
    m_Errors.Watch(*m_Codec);
    if (avcodec_open2(m_Codec.get(), codec, nullptr) < 0) m_Codec.reset();
}

void Decoding::Take(const AVPacket& packet) {
    if (m_Codec == nullptr || packet.size == 0) return;
    if ((packet.flags & AV_PKT_FLAG_DISCARD) == 0) {
        Send(&packet);
        return;
    }
    const AvPtr<AVPacket> shown(av_packet_clone(&packet));
    if (shown == nullptr) throw std::bad_alloc();
    shown->flags &= ~AV_PKT_FLAG_DISCARD;
    Send(shown.get());
}

void Decoding::End() {
    if (m_Codec != nullptr) Send(nullptr);
}

void Decoding::Send(const AVPacket* packet) {
    int result = avcodec_send_packet(m_Codec.get(), packet);
    Receive();
    if (result == AVERROR(EAGAIN)) {
        result = avcodec_send_packet(m_Codec.get(), packet);
        Receive();
    }
    if (result < 0) m_HasErrors = true;
}

void Decoding::Receive() {
    for (;;) {
        const int result = avcodec_receive_frame(m_Codec.get(), m_Frame.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        if (result < 0) {
            m_HasErrors = true;
            return;
        }
        if ((m_Frame->flags & AV_FRAME_FLAG_CORRUPT) != 0 || m_Frame->decode_error_flags != 0) m_HasErrors = true;
        if (m_Codec->codec_type == AVMEDIA_TYPE_VIDEO) {
            TakePicture();
        } else {
            TakeSamples();
        }
        if (m_Viewer) m_Viewer(*m_Frame);
        av_frame_unref(m_Frame.get());
    }
}

// Hashes the visible octets, but not the format: full and narrow range of the same octets are different formats.
void Decoding::TakePicture() {
    ++m_Count;
    const std::array<int, 2> size = {m_Frame->width, m_Frame->height};
    XXH3_64bits_update(m_State.get(), size.data(), sizeof size);
    const auto format = static_cast<AVPixelFormat>(m_Frame->format);
    const AVPixFmtDescriptor* const layout = av_pix_fmt_desc_get(format);
    if (layout == nullptr) return;
    const bool hasPalette = (layout->flags & AV_PIX_FMT_FLAG_PAL) != 0;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const int octets = hasPalette && plane == 1 ? 1024 : av_image_get_linesize(format, m_Frame->width, plane);
        const bool isChroma = plane == 1 || plane == 2;
        const int rows = hasPalette && plane == 1 ? 1
                         : isChroma               ? AV_CEIL_RSHIFT(m_Frame->height, layout->log2_chroma_h)
                                                  : m_Frame->height;
        const std::uint8_t* row = m_Frame->data[plane];
        for (int i = 0; i < rows && row != nullptr && octets > 0; ++i, row += m_Frame->linesize[plane]) {
            XXH3_64bits_update(m_State.get(), row, static_cast<std::size_t>(octets));
        }
    }
}

void Decoding::TakeSamples() {
    const auto format = static_cast<AVSampleFormat>(m_Frame->format);
    const int channels = m_Frame->ch_layout.nb_channels;
    const int samples = m_Frame->nb_samples;
    m_Count += static_cast<std::uint64_t>(std::max(0, samples));
    const std::array<int, 4> head = {m_Frame->sample_rate, channels, av_get_bytes_per_sample(format), samples};
    XXH3_64bits_update(m_State.get(), head.data(), sizeof head);
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const std::size_t octets = static_cast<std::size_t>(samples) * static_cast<std::size_t>(head[2]) *
                               static_cast<std::size_t>(isPlanar ? 1 : channels);
    for (int plane = 0; plane < (isPlanar ? channels : 1); ++plane) {
        XXH3_64bits_update(m_State.get(), m_Frame->extended_data[plane], octets);
    }
}
