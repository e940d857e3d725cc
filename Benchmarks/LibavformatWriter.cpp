// SPDX-License-Identifier: MIT
// libavformat's matroska and webm muxers with their defaults, behind a buffer of 1 MiB. Frames come in time order and
// bypass libavformat's own interleaving, which would only cost more.
extern "C" {
#include <libavformat/avformat.h>
}

#include <cstring>
#include <stdexcept>

#include "CodecSetup.h"
#include "Output.h"
#include "Writer.h"

namespace {

void Require(int result) {
    if (result >= 0) return;
    char reason[AV_ERROR_MAX_STRING_SIZE];
    throw std::runtime_error(std::string("libavformat: ") + av_make_error_string(reason, sizeof reason, result));
}

class LibavformatWriter final : public Writer {
public:
    LibavformatWriter(const WorkloadKind& kind, const std::string& path, bool crc) : m_Sink(path) {
        const char* const format = kind.m_Format == std::string("WEBM") ? "webm" : "matroska";
        Require(avformat_alloc_output_context2(&m_pContext, nullptr, format, nullptr));
        auto* const buffer = static_cast<unsigned char*>(av_malloc(BufferedOutput::kBufferSize));
        m_pContext->pb = avio_alloc_context(buffer, BufferedOutput::kBufferSize, 1, this, nullptr, WriteSink, SeekSink);
        if (m_pContext->pb == nullptr) throw std::bad_alloc();

        const CodecSetup setup(kind);
        if (kind.m_FrameRate != 0) {
            m_pVideo = AddStream(AVMEDIA_TYPE_VIDEO, setup.m_Video);
            m_pVideo->codecpar->width = 1920;
            m_pVideo->codecpar->height = 1080;
        }
        m_pAudio = AddStream(AVMEDIA_TYPE_AUDIO, setup.m_Audio);
        m_pAudio->codecpar->sample_rate = static_cast<int>(kind.m_AudioRate);
        av_channel_layout_default(&m_pAudio->codecpar->ch_layout, 2);
        AVDictionary* options = nullptr;
        Require(av_dict_set(&options, "write_crc32", crc ? "1" : "0", 0));
        const int result = avformat_write_header(m_pContext, &options);
        av_dict_free(&options);
        Require(result);
        m_pPacket = av_packet_alloc();
    }

    ~LibavformatWriter() override {
        av_packet_free(&m_pPacket);
        av_freep(&m_pContext->pb->buffer);
        avio_context_free(&m_pContext->pb);
        avformat_free_context(m_pContext);
    }

    void Write(const Frame& frame) override {
        const AVStream& stream = frame.m_IsVideo ? *m_pVideo : *m_pAudio;
        constexpr std::int64_t kTicksPerMs = 10000;
        m_pPacket->data = frame.m_pData;
        m_pPacket->size = static_cast<int>(frame.m_Size);
        m_pPacket->stream_index = stream.index;
        m_pPacket->flags = frame.m_IsKey ? AV_PKT_FLAG_KEY : 0;
        m_pPacket->pts = (frame.m_Time + kTicksPerMs / 2) / kTicksPerMs; // the muxer's time base: ms
        m_pPacket->dts = m_pPacket->pts;
        m_pPacket->duration = frame.m_Duration / kTicksPerMs;
        Require(av_write_frame(m_pContext, m_pPacket));
    }

    std::uint64_t Close() override {
        Require(av_write_trailer(m_pContext));
        avio_flush(m_pContext->pb);
        return m_Sink.Written();
    }

private:
    AVStream* AddStream(AVMediaType type, const CodecSetup::Codec& codec) {
        AVStream* const stream = avformat_new_stream(m_pContext, nullptr);
        if (stream == nullptr) throw std::bad_alloc();
        AVCodecParameters& parameters = *stream->codecpar;
        parameters.codec_type = type;
        parameters.codec_id = static_cast<AVCodecID>(codec.m_AvCodecID);
        parameters.extradata_size = static_cast<int>(codec.m_AvExtradata.size());
        parameters.extradata =
            static_cast<std::uint8_t*>(av_mallocz(codec.m_AvExtradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!codec.m_AvExtradata.empty()) {
            std::memcpy(parameters.extradata, codec.m_AvExtradata.data(), codec.m_AvExtradata.size());
        }
        stream->time_base = {1, 1000};
        return stream;
    }

    static int WriteSink(void* opaque, std::uint8_t* octets, int count) {
        static_cast<LibavformatWriter*>(opaque)->m_Sink.Write(octets, static_cast<std::size_t>(count));
        return count;
    }

    static std::int64_t SeekSink(void* opaque, std::int64_t offset, int origin) {
        Sink& sink = static_cast<LibavformatWriter*>(opaque)->m_Sink;
        if (origin == AVSEEK_SIZE) return sink.Size();
        if (origin != SEEK_SET) return AVERROR(EINVAL);
        sink.Seek(offset);
        return offset;
    }

    Sink m_Sink; // the buffer is libavformat's own
    AVFormatContext* m_pContext = nullptr;
    AVStream* m_pVideo = nullptr;
    AVStream* m_pAudio = nullptr;
    AVPacket* m_pPacket = nullptr;
};

} // namespace

std::unique_ptr<Writer> OpenLibavformat(const WorkloadKind& kind, const std::string& path) {
    return std::make_unique<LibavformatWriter>(kind, path, false);
}

std::unique_ptr<Writer> OpenLibavformatCrc(const WorkloadKind& kind, const std::string& path) {
    return std::make_unique<LibavformatWriter>(kind, path, true);
}
