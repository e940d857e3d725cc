#include "Media.h"

#include <algorithm>
#include <limits>

#include "ToolError.h"

extern "C" {
#include <libavutil/avutil.h>
}

namespace {

constexpr AVRational kHostTimeBase = {1, 10000000};

std::string Reason(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(error, text, sizeof text);
    return text;
}

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw ToolError(kExitError, "cannot read '" + path + "': " + reason);
}

void Check(int result, const std::string& path) {
    if (result < 0) Fail(path, Reason(result));
}

} // namespace

MediaFile::MediaFile(const std::string& path) : m_Path(path) {
    AVFormatContext* context = nullptr;
    Check(avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr), path);
    m_Context.reset(context);
    context->flags |= AVFMT_FLAG_GENPTS;
    Check(avformat_find_stream_info(context, nullptr), path);
}

AVStream* MediaFile::FindStream(AVMediaType type) const {
    const int index = av_find_best_stream(m_Context.get(), type, -1, -1, nullptr, 0);
    if (index < 0) return nullptr;
    AVStream* const stream = m_Context->streams[index];
    return (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 ? nullptr : stream;
}

double FrameRate(AVFormatContext* context, AVStream* stream) {
    const AVRational rate = av_guess_frame_rate(context, stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
}

TrackReader::TrackReader(const std::string& path, int streamIndex, const std::string& filters) : m_File(path) {
    AVFormatContext* const context = m_File.Context();
    if (streamIndex >= static_cast<int>(context->nb_streams)) Fail(path, "the file has changed");
    m_pStream = context->streams[streamIndex];
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        context->streams[i]->discard = static_cast<int>(i) == streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }

    AVBSFContext* filter = nullptr;
    Check(av_bsf_list_parse_str(filters.empty() ? "null" : filters.c_str(), &filter), path);
    m_Filter.reset(filter);
    Check(avcodec_parameters_copy(filter->par_in, m_pStream->codecpar), path);
    filter->time_base_in = m_pStream->time_base;
    Check(av_bsf_init(filter), path);
    const AVCodecParameters& out = *filter->par_out;
    m_SetupData.assign(out.extradata, out.extradata + out.extradata_size);

    m_FrameDuration =
        out.codec_type == AVMEDIA_TYPE_VIDEO ? static_cast<std::int64_t>(1e7 / FrameRate(context, m_pStream)) : 1;
}

bool TrackReader::NextPacket(AVPacket& packet) {
    for (;;) {
        const int filtered = av_bsf_receive_packet(m_Filter.get(), &packet);
        if (filtered == 0) return true;
        if (filtered == AVERROR_EOF) return false;
        if (filtered != AVERROR(EAGAIN)) Fail(m_File.Path(), Reason(filtered));

        const int read = av_read_frame(m_File.Context(), &packet);
        if (read < 0 && read != AVERROR_EOF) Fail(m_File.Path(), Reason(read));
        if (read == 0 && packet.stream_index != m_pStream->index) {
            av_packet_unref(&packet);
            continue;
        }
        Check(av_bsf_send_packet(m_Filter.get(), read == 0 ? &packet : nullptr), m_File.Path());
    }
}

bool TrackReader::Next(Frame& frame) {
    frame.m_Packet.reset(av_packet_alloc());
    if (frame.m_Packet == nullptr) throw std::bad_alloc();
    AVPacket& packet = *frame.m_Packet;
    if (!NextPacket(packet)) return false;

    std::size_t setupSize = 0;
    if (const std::uint8_t* setup = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &setupSize)) {
        m_SetupData.assign(setup, setup + setupSize);
    }
    const AVRational timeBase = m_Filter->time_base_out;
    const auto toHostTime = [timeBase](std::int64_t time) { return av_rescale_q(time, timeBase, kHostTimeBase); };
    frame.m_Decode = packet.dts != AV_NOPTS_VALUE ? toHostTime(packet.dts) : m_NextDecode;
    frame.m_Presentation = packet.pts != AV_NOPTS_VALUE ? toHostTime(packet.pts) : frame.m_Decode;
    const std::int64_t duration = packet.duration > 0 ? toHostTime(packet.duration) : m_FrameDuration;
    frame.m_Duration =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(duration, 1, std::numeric_limits<std::int32_t>::max()));
    frame.m_Key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    m_NextDecode = frame.m_Decode + duration;
    return true;
}
