// SPDX-License-Identifier: MIT
#include "FirstPicture.h"

#include <new>
#include <utility>

namespace {

// A decoder may hold back this many frames.
constexpr int kMostHeldBack = 200;

} // namespace

AvPtr<AVFrame> DecodeFirstPicture(const MediaFile& file, const AVStream* stream) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, ("file:" + file.Path()).c_str(), nullptr, nullptr) < 0) return nullptr;
    const AvPtr<AVFormatContext> context(opened);
    const AVCodec* const decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(decoder));
    const AvPtr<AVPacket> packet = NewAvPacket();
    AvPtr<AVFrame> picture = NewAvFrame();
    if (codec == nullptr) throw std::bad_alloc();
    if (decoder == nullptr || stream->index >= static_cast<int>(context->nb_streams)) return nullptr;
    if (avcodec_parameters_to_context(codec.get(), stream->codecpar) < 0) return nullptr;
    codec->color_primaries = AVCOL_PRI_UNSPECIFIED;
    codec->color_trc = AVCOL_TRC_UNSPECIFIED;
    codec->colorspace = AVCOL_SPC_UNSPECIFIED;
    codec->color_range = AVCOL_RANGE_UNSPECIFIED;
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_LOW_DELAY;
    if (avcodec_open2(codec.get(), decoder, nullptr) < 0) return nullptr;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        context->streams[i]->discard = static_cast<int>(i) == stream->index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    for (int i = 0; i < kMostHeldBack && av_read_frame(context.get(), packet.get()) >= 0; ++i) {
        if (packet->stream_index == stream->index) avcodec_send_packet(codec.get(), packet.get());
        av_packet_unref(packet.get());
        if (avcodec_receive_frame(codec.get(), picture.get()) == 0) return picture;
    }
    avcodec_send_packet(codec.get(), nullptr); // there are no more
    return avcodec_receive_frame(codec.get(), picture.get()) == 0 ? std::move(picture) : nullptr;
}
