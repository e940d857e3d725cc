// SPDX-License-Identifier: MIT
#include "AvformatFile.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

// Where this thread's complaints go. Those of other threads, on which GStreamer decodes, are no reader's here.
thread_local std::string* t_pComplaints = nullptr;

void Take(void*, int level, const char* format, va_list words) {
    if (level > AV_LOG_WARNING || t_pComplaints == nullptr) return;
    char text[1024];
    std::vsnprintf(text, sizeof text, format, words);
    *t_pComplaints += text;
}

class Listening {
public:
    explicit Listening(std::string& complaints) {
        av_log_set_callback(Take);
        t_pComplaints = &complaints;
    }
    ~Listening() { t_pComplaints = nullptr; }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
};

} // namespace

void AvformatFile::Close::operator()(AVFormatContext* context) const { avformat_close_input(&context); }

AvformatFile::AvformatFile(const std::string& path) {
    const Listening listening(m_Complaints);
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("libavformat cannot open " + path);
    }
    m_pContext.reset(context);
    if (avformat_find_stream_info(context, nullptr) < 0) throw std::runtime_error("libavformat cannot read " + path);
}

std::optional<AvformatPacket> AvformatFile::Next() {
    const Listening listening(m_Complaints);
    AVPacket* packet = av_packet_alloc();
    std::optional<AvformatPacket> facts;
    if (av_read_frame(m_pContext.get(), packet) >= 0) {
        const AVStream& stream = *m_pContext->streams[packet->stream_index];
        const double unit = av_q2d(stream.time_base) * 1000;
        const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        facts = {stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO, (packet->flags & AV_PKT_FLAG_KEY) != 0,
                 static_cast<double>(time) * unit, static_cast<double>(packet->duration) * unit, packet->pos};
    }
    av_packet_free(&packet);
    return facts;
}

void AvformatFile::SeekTo(std::int64_t milliseconds) {
    const Listening listening(m_Complaints);
    avformat_seek_file(m_pContext.get(), -1, INT64_MIN, milliseconds * 1000, INT64_MAX, 0);
}

Facts AvformatFile::Describe() const {
    const auto number = [](double value) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", value);
        return std::string(text);
    };
    Facts facts = {{"complaints", m_Complaints}};
    facts["duration"] = number(static_cast<double>(m_pContext->duration) / 1000);
    for (unsigned i = 0; i < m_pContext->nb_streams; ++i) {
        const AVStream& stream = *m_pContext->streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        const bool isVideo = codec.codec_type == AVMEDIA_TYPE_VIDEO;
        facts[isVideo ? "video codec" : "audio codec"] = avcodec_get_name(codec.codec_id);
        if (isVideo) {
            facts["size"] = std::to_string(codec.width) + "x" + std::to_string(codec.height);
            facts["frame rate"] = number(av_q2d(stream.avg_frame_rate));
        } else {
            facts["sample rate"] = std::to_string(codec.sample_rate);
            facts["channels"] = std::to_string(codec.ch_layout.nb_channels);
        }
    }
    return facts;
}

Facts AvformatFacts(const std::string& path) {
    AvformatFile file(path);
    std::vector<bool> keys;
    while (const auto packet = file.Next()) {
        if (packet->m_IsVideo) keys.push_back(packet->m_IsKey);
    }
    Facts facts = file.Describe();
    if (!keys.empty()) facts["key frames"] = Places(keys);
    return facts;
}
