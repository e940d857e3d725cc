// SPDX-License-Identifier: MIT
#include "StreamEnds.h"

#include <algorithm>

#include "LossText.h"
#include "MatroskaHeader.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/common.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

namespace {

// The number of packets to read at most, also in a badly interleaved file.
constexpr int kMostPackets = 1000;
// The length before the end of the file that is read for the end of the sound.
constexpr std::int64_t kEnd = AV_TIME_BASE;

// The stream in whose index to look up the end, or null where a seek would read the whole file.
const AVStream* StreamToSeek(const AVFormatContext& context, const AVStream* stream, const std::string& path) {
    const char* const name = context.iformat->name;
    if (av_match_name("ogg", name) != 0 || av_match_name("mp3", name) != 0) return stream;
    if (av_match_name("matroska", name) == 0) return avformat_index_get_entries_count(stream) > 1 ? stream : nullptr;
    if (!ReadMatroskaHeader(path).m_HasCues) return nullptr;
    for (unsigned i = 0; i < context.nb_streams; ++i) { // the index is that of the pictures, if there are any
        const AVStream* const other = context.streams[i];
        if (other->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !IsCover(*other)) return other;
    }
    return stream;
}

} // namespace

StreamEnds ReadStreamEnds(const MediaFile& file, const AVStream* stream) {
    StreamEnds ends;
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, ("file:" + file.Path()).c_str(), nullptr, nullptr) < 0) return ends;
    const AvPtr<AVFormatContext> context(opened);
    const AvPtr<AVPacket> packet = NewAvPacket();
    if (stream->index >= static_cast<int>(context->nb_streams)) return ends;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        context->streams[i]->discard = static_cast<int>(i) == stream->index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    // Samples to leave out at the start and at the end of a packet, in four octets each.
    const auto samples = [&](int offset) -> std::uint32_t {
        std::size_t size = 0;
        const std::uint8_t* const data = av_packet_get_side_data(packet.get(), AV_PKT_DATA_SKIP_SAMPLES, &size);
        return data != nullptr && size >= 8 ? AV_RL32(data + offset) : 0;
    };
    bool isHidden = true;
    for (int i = 0; isHidden && i < kMostPackets && av_read_frame(context.get(), packet.get()) >= 0; ++i) {
        ends.m_StartSamples = std::max(ends.m_StartSamples, samples(0));
        isHidden = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
        if (isHidden) ++ends.m_HiddenFrames;
        av_packet_unref(packet.get());
    }
    const bool isSound = stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    if (!isSound) return ends;
    const AVStream* const seek = StreamToSeek(*context, context->streams[stream->index], file.Path());
    if (seek == nullptr) return ends;
    context->streams[seek->index]->discard = AVDISCARD_DEFAULT; // otherwise a seek does not find its index
    const std::int64_t start = context->start_time != AV_NOPTS_VALUE ? context->start_time : 0;
    const std::int64_t target = av_sat_add64(start, std::max(context->duration, kEnd) - kEnd); // negative when unknown
    const std::int64_t time = av_rescale_q(target, av_get_time_base_q(), seek->time_base);
    if (av_seek_frame(context.get(), seek->index, time, AVSEEK_FLAG_BACKWARD) < 0) return ends;
    for (int i = 0; i < kMostPackets && av_read_frame(context.get(), packet.get()) >= 0; ++i) {
        if (packet->stream_index == stream->index) ends.m_EndSamples = samples(4);
        av_packet_unref(packet.get());
    }
    return ends;
}
