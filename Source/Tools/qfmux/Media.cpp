#include "Media.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "Surroundings.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/avutil.h>
}

namespace {

// Of packets that wait for another stream's. Two seconds of Ultra HD discs, the richest there are, take 32 MB.
constexpr std::size_t kMostWaiting = std::size_t{32} << 20;
constexpr const char* kEncrypted = "it is encrypted";

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw ToolError(kExitError, "cannot read '" + path + "': " + reason);
}

void Check(int result, const std::string& path) {
    if (result < 0) Fail(path, AvReason(result));
}

// Playlists name other files, some that are yet to come, for which libavformat waits, and any could be the output.
void CheckSelfContained(const std::string& url, const std::string& path) {
    AVIOContext* file = nullptr;
    Check(avio_open(&file, url.c_str(), AVIO_FLAG_READ), path);
    const AVInputFormat* format = nullptr;
    const int result = av_probe_input_buffer2(file, &format, url.c_str(), nullptr, 0, 0);
    avio_closep(&file);
    if (result < 0) return; // which is told when the file is opened
    for (const char* name : {"concat", "dash", "hls", "imf", "sdp", "rtsp"}) {
        if (av_match_name(name, format->name) != 0) Fail(path, "it is a list of other files");
    }
}

// Whether the container says so of the stream. ISO files say it of each frame instead.
bool IsEncrypted(const AVStream* stream) {
    const std::uint32_t code = stream->codecpar->codec_tag;
    return code == MKTAG('d', 'r', 'm', 's') || code == MKTAG('d', 'r', 'm', 'i') || // QuickTime
           av_dict_get(stream->metadata, "enc_key_id", nullptr, 0) != nullptr;       // Matroska
}

// Whether the first picture (VOP, ISO 14496-2) of an MPEG-4 frame is coded by itself alone: coding type 0 in the two
// uppermost bits behind its start code.
bool BeginsWithIntraPicture(const std::uint8_t* data, int size) {
    static constexpr std::uint8_t kPicture[] = {0, 0, 1, 0xB6};
    const std::uint8_t* const end = data + size;
    const std::uint8_t* const found = std::search(data, end, std::begin(kPicture), std::end(kPicture));
    return end - found > 4 && found[4] < 0x40;
}

} // namespace

std::string AvReason(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(error, text, sizeof text);
    return text;
}

MediaFile::MediaFile(const std::string& path) : m_Path(path) {
    NeedRegularFile(path);
    CheckSelfContained("file:" + path, path);
    Open(false);
    // A stream may begin late.
    AVStream** const streams = m_Context->streams;
    if (!std::all_of(streams, streams + m_Context->nb_streams, IsKnown)) Open(true);
}

void MediaFile::Open(bool looksFar) {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw std::bad_alloc();
    AVDictionary* options = nullptr;
    if (looksFar) {
        context->probesize = std::int64_t{256} << 20;
        context->max_analyze_duration = std::int64_t{600} * AV_TIME_BASE;
        av_dict_set(&options, "scan_all_pmts", "1", 0); // a transport stream's later tables too
    }
    const int result = avformat_open_input(&context, ("file:" + m_Path).c_str(), nullptr, &options);
    av_dict_free(&options);
    Check(result, m_Path);
    m_Context.reset(context);
    // Before libavformat looks into the frames for more.
    m_WithSetup.clear();
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        if (context->streams[i]->codecpar->extradata_size > 0) m_WithSetup.insert(static_cast<int>(i));
    }
    Check(avformat_find_stream_info(context, nullptr), m_Path);
}

bool MediaFile::IsKnown(const AVStream* stream) {
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) return parameters.sample_rate > 0;
    return parameters.codec_type != AVMEDIA_TYPE_VIDEO || parameters.width > 0;
}

std::int64_t MediaFile::Origin() const {
    const bool countsFromAnywhere = HasLooseTimes() || av_match_name("flv", m_Context->iformat->name) != 0;
    return countsFromAnywhere ? HostTime(std::max<std::int64_t>(0, m_Context->start_time), {1, AV_TIME_BASE}) : 0;
}

std::vector<AVStream*> MediaFile::Streams(AVMediaType type) const {
    std::vector<AVStream*> streams;
    for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
        AVStream* const stream = m_Context->streams[i];
        const bool isPicture = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (stream->codecpar->codec_type == type && !isPicture && IsKnown(stream)) streams.push_back(stream);
    }
    return streams;
}

bool MediaFile::HasSetup(const AVStream* stream) const { return m_WithSetup.count(stream->index) > 0; }

double MediaFile::FrameRate(AVStream* stream) const {
    const AVRational rate = av_guess_frame_rate(m_Context.get(), stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
}

// ---- packets

PacketSource::PacketSource(std::shared_ptr<MediaFile> file, std::set<int> streams, std::int64_t shift)
    : m_File(std::move(file)), m_Streams(std::move(streams)), m_Shift(shift),
      m_TimeLine(m_File->HasLooseTimes(), shift) {
    AVFormatContext* const context = m_File->Context();
    for (const int index : m_Streams) {
        if (index >= static_cast<int>(context->nb_streams)) Fail(m_File->Path(), "the file has changed");
        m_Chosen[index];
        // Sound has a presentation time wherever it has one of decoding.
        const AVCodecParameters& parameters = *context->streams[index]->codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO && !PictureOrder::Knows(parameters.codec_id)) {
            context->flags |= AVFMT_FLAG_GENPTS;
        }
    }
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        context->streams[i]->discard = m_Streams.count(static_cast<int>(i)) > 0 ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

int PacketSource::Next(int stream, AVPacket& packet) {
    Chosen& own = m_Chosen.at(stream);
    if (own.m_Alone != nullptr) return own.m_Alone->Next(stream, packet);
    if (!own.m_Waiting.empty()) {
        av_packet_move_ref(&packet, own.m_Waiting.front().get());
        own.m_Waiting.pop_front();
        m_WaitingOctets -= static_cast<std::size_t>(packet.size);
        ++own.m_Taken;
        return 0;
    }
    while (m_End == 0) {
        m_End = av_read_frame(m_File->Context(), &packet);
        if (m_End < 0) break;
        const auto chosen = m_Chosen.find(packet.stream_index);
        // One stream's times may tell how another's are meant.
        if (chosen != m_Chosen.end()) {
            m_TimeLine.Mend(packet, m_File->Context()->streams[packet.stream_index]->time_base);
        }
        if (chosen == m_Chosen.end() || !chosen->second.m_IsAskedFor) {
            av_packet_unref(&packet);
            continue;
        }
        if (packet.stream_index == stream) {
            ++own.m_Taken;
            return 0;
        }
        AvPtr<AVPacket> waiting(av_packet_alloc());
        if (waiting == nullptr) throw std::bad_alloc();
        av_packet_move_ref(waiting.get(), &packet);
        m_WaitingOctets += static_cast<std::size_t>(waiting->size);
        chosen->second.m_Waiting.push_back(std::move(waiting));
        if (m_WaitingOctets > kMostWaiting) return OpenForItself(stream, packet);
    }
    return m_End;
}

int PacketSource::Jumps(int stream) const {
    const Chosen& chosen = m_Chosen.at(stream);
    return chosen.m_Alone != nullptr ? chosen.m_Alone->Jumps(stream) : m_TimeLine.Jumps();
}

int PacketSource::OpenForItself(int stream, AVPacket& packet) {
    Chosen& own = m_Chosen.at(stream);
    own.m_IsAskedFor = false;
    own.m_Alone = std::make_unique<PacketSource>(std::make_shared<MediaFile>(m_File->Path()), m_Streams, m_Shift);
    for (auto& [index, chosen] : own.m_Alone->m_Chosen) chosen.m_IsAskedFor = index == stream;
    // From the beginning, as a demuxer may carry more from packet to packet than a place in the file.
    for (; own.m_Taken > 0; --own.m_Taken) {
        const int result = own.m_Alone->Next(stream, packet);
        if (result < 0) return result;
        av_packet_unref(&packet);
    }
    return own.m_Alone->Next(stream, packet);
}

// ---- presentation order

PictureOrder::PictureOrder(const AVCodecParameters& parameters)
    : m_IsH264(parameters.codec_id == AV_CODEC_ID_H264), m_Codec(avcodec_alloc_context3(nullptr)),
      m_Parser(av_parser_init(parameters.codec_id)) {
    if (m_Codec == nullptr || m_Parser == nullptr || avcodec_parameters_to_context(m_Codec.get(), &parameters) < 0) {
        throw std::bad_alloc();
    }
    m_Parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

bool PictureOrder::Knows(AVCodecID codec) { return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_MPEG4; }

void PictureOrder::Push(Frame frame, bool isTold) {
    const AVPacket& packet = *frame.m_Packet;
    std::uint8_t* unused = nullptr;
    int unusedSize = 0;
    av_parser_parse2(m_Parser.get(), m_Codec.get(), &unused, &unusedSize, packet.data, packet.size, packet.pts,
                     packet.dts, packet.pos);
    ++m_Pushed;
    std::int64_t order = m_Pushed;
    if (m_IsH264) {
        order = m_Parser->output_picture_number;
        // An IDR picture starts a new sequence: all before it is presented before it.
        if (frame.m_Key && order == 0) Flush();
    } else if (m_Parser->pict_type == AV_PICTURE_TYPE_B) {
        order = -1;
    }
    m_DecodeTimes.push_back(frame.m_Decode);
    m_Held.push_back({std::move(frame), order, isTold, false});
    if (++m_Unplaced > (m_IsH264 ? kLargestPictureBuffer : 1)) PlaceEarliest();
}

void PictureOrder::PlaceEarliest() {
    Held* earliest = nullptr;
    for (Held& held : m_Held) {
        if (!held.m_Placed && (earliest == nullptr || held.m_Order < earliest->m_Order)) earliest = &held;
    }
    earliest->m_Placed = true;
    Frame& frame = earliest->m_Frame;
    if (!earliest->m_IsTold) frame.m_Presentation = m_Next.value_or(m_DecodeTimes.front());
    if (earliest->m_IsTold || m_Next) m_Next = frame.m_Presentation + frame.m_Duration;
    m_DecodeTimes.pop_front();
    --m_Unplaced;
}

void PictureOrder::Flush() {
    while (m_Unplaced > 0) PlaceEarliest();
}

bool PictureOrder::Pop(Frame& frame) {
    if (m_Held.empty() || !m_Held.front().m_Placed) return false;
    frame = std::move(m_Held.front().m_Frame);
    m_Held.pop_front();
    return true;
}

// ---- one stream

TrackReader::TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters)
    : m_Source(std::move(source)), m_pStream(m_Source->File().Context()->streams[streamIndex]) {
    const std::string& path = Path();
    if (IsEncrypted(m_pStream)) Fail(path, kEncrypted);
    AVBSFContext* filter = nullptr;
    Check(av_bsf_list_parse_str(filters.empty() ? "null" : filters.c_str(), &filter), path);
    m_Filter.reset(filter);
    Check(avcodec_parameters_copy(filter->par_in, m_pStream->codecpar), path);
    filter->time_base_in = m_pStream->time_base;
    Check(av_bsf_init(filter), path);
    const AVCodecParameters& out = *filter->par_out;
    m_SetupData.assign(out.extradata, out.extradata + out.extradata_size);

    m_FrameDuration = out.codec_type == AVMEDIA_TYPE_VIDEO
                          ? static_cast<std::int64_t>(1e7 / m_Source->File().FrameRate(m_pStream))
                          : 1;
    // Broadcasts need not tell the time of each picture.
    if (out.codec_id == AV_CODEC_ID_H264 && m_Source->File().HasLooseTimes()) {
        m_Order = std::make_unique<PictureOrder>(out);
    }
}

bool TrackReader::NextPacket(AVPacket& packet) {
    for (;;) {
        const int filtered = av_bsf_receive_packet(m_Filter.get(), &packet);
        if (filtered == 0) return true;
        if (filtered == AVERROR_EOF) return false;
        if (filtered == AVERROR_INVALIDDATA) { // which the filter has dropped
            ++m_Damaged;
            continue;
        }
        if (filtered != AVERROR(EAGAIN)) Fail(Path(), AvReason(filtered));

        const int read = m_Source->Next(m_pStream->index, packet);
        if (read < 0 && read != AVERROR_EOF) Fail(Path(), AvReason(read));
        Check(av_bsf_send_packet(m_Filter.get(), read == 0 ? &packet : nullptr), Path());
    }
}

// Matroska and some streams tell presentation times alone. libavformat derives decoding times from them, for all but
// the first few reordered frames: these come before it, not at zero.
void TrackReader::ReadLeadingFrames() {
    m_HasBegun = true;
    do {
        AvPtr<AVPacket> packet(av_packet_alloc());
        if (packet == nullptr) throw std::bad_alloc();
        if (!NextPacket(*packet)) return;
        m_Leading.push_back(std::move(packet));
    } while (m_Leading.back()->dts == AV_NOPTS_VALUE && m_Leading.size() <= kLargestPictureBuffer);
    const AVPacket* next = m_Leading.back().get();
    for (auto packet = std::next(m_Leading.rbegin()); packet != m_Leading.rend(); ++packet) {
        AVPacket& frame = **packet;
        if (next->dts == AV_NOPTS_VALUE) return;
        const std::int64_t duration =
            frame.duration > 0 ? frame.duration : av_rescale_q(m_FrameDuration, kHostTimeBase, m_Filter->time_base_out);
        frame.dts = av_sat_sub64(next->dts, duration);
        next = &frame;
    }
}

bool TrackReader::NextInDecodingOrder(Frame& frame, bool& hasPresentation) {
    frame.m_Packet.reset(av_packet_alloc());
    if (frame.m_Packet == nullptr) throw std::bad_alloc();
    if (!m_HasBegun) ReadLeadingFrames();
    if (!m_Leading.empty()) {
        frame.m_Packet = std::move(m_Leading.front());
        m_Leading.pop_front();
    } else if (!NextPacket(*frame.m_Packet)) {
        return false;
    }
    const AVPacket& packet = *frame.m_Packet;
    if (av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, nullptr) != nullptr) Fail(Path(), kEncrypted);

    std::size_t setupSize = 0;
    if (const std::uint8_t* setup = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &setupSize)) {
        m_SetupData.assign(setup, setup + setupSize);
    }
    const auto toHostTime = [this](std::int64_t time) { return HostTime(time, m_Filter->time_base_out); };
    hasPresentation = packet.pts != AV_NOPTS_VALUE;
    const bool isTold = packet.dts != AV_NOPTS_VALUE || hasPresentation;
    (isTold ? m_TimesWereTold : m_TimesWereMade) = true;
    frame.m_Decode = packet.dts != AV_NOPTS_VALUE ? toHostTime(packet.dts) : std::min(m_NextDecode, kFurthestTime);
    frame.m_Presentation = hasPresentation ? toHostTime(packet.pts) : frame.m_Decode;
    const std::int64_t duration = packet.duration > 0 ? toHostTime(packet.duration) : m_FrameDuration;
    frame.m_Duration =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(duration, 1, std::numeric_limits<std::int32_t>::max()));
    frame.m_Key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    // In a packed AVI the key flag may be that of the empty picture in whose place the filter puts a B picture.
    if (frame.m_Key && m_Filter->par_out->codec_id == AV_CODEC_ID_MPEG4) {
        frame.m_Key = BeginsWithIntraPicture(packet.data, packet.size);
    }
    m_NextDecode = frame.m_Decode + duration;
    return true;
}

bool TrackReader::ReadFrame(Frame& frame) {
    for (;;) {
        if (m_Order != nullptr && m_Order->Pop(frame)) return true;
        Frame next;
        bool hasPresentation = false;
        if (!NextInDecodingOrder(next, hasPresentation)) {
            if (m_Order == nullptr) return false;
            m_Order->Flush();
            return m_Order->Pop(frame);
        }
        const AVCodecParameters& parameters = Parameters();
        if (!hasPresentation && m_Order == nullptr && parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
            if (PictureOrder::Knows(parameters.codec_id)) {
                m_Order = std::make_unique<PictureOrder>(parameters);
            } else if (parameters.video_delay > 0) {
                Fail(Path(), "its pictures are reordered and have no time stamps");
            }
        }
        if (m_Order == nullptr) {
            frame = std::move(next);
            return true;
        }
        m_Order->Push(std::move(next), hasPresentation && m_Source->File().HasLooseTimes());
    }
}

bool TrackReader::Next(Frame& frame) {
    if (!m_IsStarted) m_HasAhead = ReadFrame(m_Ahead);
    m_IsStarted = true;
    if (!m_HasAhead) return false;
    frame = std::move(m_Ahead);
    m_HasAhead = ReadFrame(m_Ahead);
    if (m_HasAhead && Parameters().codec_type == AVMEDIA_TYPE_AUDIO) {
        // Where times are coarse, as in milliseconds, the durations of thousands of frames would add up to too little:
        // what lies between two frames does not.
        const std::int64_t distance = m_Ahead.m_Presentation - frame.m_Presentation;
        const std::int64_t tick = av_rescale_q(1, m_Filter->time_base_out, kHostTimeBase);
        if (distance > 0 && std::abs(distance - frame.m_Duration) <= tick) {
            frame.m_Duration = static_cast<std::int32_t>(distance);
        }
    }
    return true;
}
