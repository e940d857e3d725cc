// SPDX-License-Identifier: MIT
#include "TrackReader.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "TimeLine.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/avutil.h>
}

namespace {

// Profile, sample rate and channels in the header of an AAC frame (ISO/IEC 13818-7, ADTS); 0 when there is no header.
std::uint32_t AdtsHeader(const AVPacket& packet) {
    if (packet.size < 4 || packet.data[0] != 0xFF || (packet.data[1] & 0xF6) != 0xF0) return 0;
    return 0xFF0000U + (packet.data[2] & 0xFDU) * 256U + (packet.data[3] & 0xC0U);
}

// Version, layer and sample rate in the header of an MPEG audio frame (ISO/IEC 11172-3); 0 when there is no header.
std::uint32_t MpegHeader(const AVPacket& packet) {
    if (packet.size < 4 || packet.data[0] != 0xFF || (packet.data[1] & 0xE0) != 0xE0) return 0;
    return 0xFF0000U + (packet.data[1] & 0x1EU) * 256U + (packet.data[2] & 0x0CU);
}

// What may not change within a track; 0 where the frames do not say.
std::uint32_t SoundHeader(AVCodecID codec, bool hasFilter, const AVPacket& packet) {
    if (codec == AV_CODEC_ID_AAC && hasFilter) return AdtsHeader(packet);
    return codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_MP2 ? MpegHeader(packet) : 0;
}

} // namespace

TrackReader::TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters)
    : FrameSource(std::move(source), streamIndex), m_HasFilter(!filters.empty()) {
    const std::string& path = Path();
    AVBSFContext* filter = nullptr;
    CheckReading(av_bsf_list_parse_str(filters.empty() ? "null" : filters.c_str(), &filter), path);
    m_Filter.reset(filter);
    CheckReading(avcodec_parameters_copy(filter->par_in, Stream()->codecpar), path);
    filter->time_base_in = Stream()->time_base;
    CheckReading(av_bsf_init(filter), path);
    const AVCodecParameters& out = *filter->par_out;
    m_SetupData.assign(out.extradata, out.extradata + out.extradata_size);
    m_LengthSize = LengthSize();

    m_FrameDuration =
        out.codec_type == AVMEDIA_TYPE_VIDEO ? static_cast<std::int64_t>(1e7 / File().FrameRate(Stream())) : 1;
    // Broadcasts need not have a time for each picture.
    if (out.codec_id == AV_CODEC_ID_H264 && File().HasLooseTimes()) {
        m_Order = std::make_unique<PictureOrder>(out, 0, m_FrameDuration);
    }
}

bool TrackReader::NextPacket(Frame& frame) {
    frame.m_Packet = NewAvPacket();
    for (;;) {
        const int filtered = av_bsf_receive_packet(m_Filter.get(), frame.m_Packet.get());
        if (filtered == 0) return true;
        if (filtered == AVERROR_EOF) return false;
        // The filter has dropped the packet. In the midst of a stream a frame of a rare kind is a damaged one.
        if (filtered == AVERROR_INVALIDDATA || (filtered == AVERROR_PATCHWELCOME && m_IsStarted)) {
            ++m_Damaged;
            continue;
        }
        if (filtered != AVERROR(EAGAIN)) FailReading(Path(), AvReason(filtered));

        const int read = Source().Next(Stream()->index, *frame.m_Packet);
        if (read == 0 && m_HasFilter) {
            frame.m_Source.reset(av_packet_clone(frame.m_Packet.get()));
            if (frame.m_Source == nullptr) throw std::bad_alloc();
        }
        CheckReading(av_bsf_send_packet(m_Filter.get(), read == 0 ? frame.m_Packet.get() : nullptr), Path());
    }
}

// Matroska and some streams have presentation times only. libavformat derives decoding times from them, except for the
// first few reordered frames. These are counted back from the first known decoding time.
void TrackReader::ReadLeadingFrames() {
    m_HasBegun = true;
    do {
        Frame frame;
        if (!NextPacket(frame)) return;
        m_Leading.push_back(std::move(frame));
    } while (m_Leading.back().m_Packet->dts == AV_NOPTS_VALUE && m_Leading.size() <= kLargestPictureBuffer);
    const AVPacket* next = m_Leading.back().m_Packet.get();
    for (auto frame = std::next(m_Leading.rbegin()); frame != m_Leading.rend(); ++frame) {
        AVPacket& packet = *frame->m_Packet;
        if (next->dts == AV_NOPTS_VALUE) return;
        const std::int64_t duration = packet.duration > 0
                                          ? packet.duration
                                          : av_rescale_q(m_FrameDuration, kHostTimeBase, m_Filter->time_base_out);
        packet.dts = av_sat_sub64(next->dts, duration);
        next = &packet;
    }
}

bool TrackReader::NextInDecodingOrder(Frame& frame, bool& hasPresentation) {
    if (!m_HasBegun) ReadLeadingFrames();
    if (!m_Leading.empty()) {
        frame = std::move(m_Leading.front());
        m_Leading.pop_front();
    } else if (!NextPacket(frame)) {
        return false;
    }
    const AVPacket& packet = *frame.m_Packet;

    const auto toHostTime = [this](std::int64_t time) { return HostTime(time, m_Filter->time_base_out); };
    hasPresentation = packet.pts != AV_NOPTS_VALUE;
    const bool isTold = packet.dts != AV_NOPTS_VALUE || hasPresentation;
    (isTold ? m_TimesWereTold : m_TimesWereMade) = true;
    frame.m_Decode = packet.dts != AV_NOPTS_VALUE ? toHostTime(packet.dts) : std::min(m_NextDecode, kFurthestTime);
    frame.m_Presentation = hasPresentation ? toHostTime(packet.pts) : frame.m_Decode;
    const std::int64_t duration = packet.duration > 0 ? toHostTime(packet.duration) : m_FrameDuration;
    frame.m_Duration =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(duration, 1, std::numeric_limits<std::int32_t>::max()));
    m_NextDecode = frame.m_Decode + duration;
    Examine(frame);
    return true;
}

// Reads the properties of a frame from its octets.
void TrackReader::Examine(Frame& frame) {
    const AVPacket& packet = *frame.m_Packet;
    const auto size = static_cast<std::size_t>(packet.size);
    std::size_t setupSize = 0;
    if (const std::uint8_t* setup = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &setupSize)) {
        m_SetupData.assign(setup, setup + setupSize);
        m_LengthSize = LengthSize();
        frame.m_NewSetup = std::make_shared<const std::vector<std::uint8_t>>(m_SetupData);
    }
    const bool isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    const AVCodecID codec = Parameters().codec_id;
    const std::uint32_t header = SoundHeader(codec, m_HasFilter, frame.Source());
    if (m_SoundHeader == 0) m_SoundHeader = header;
    frame.m_IsOtherSound = header != 0 && header != m_SoundHeader;
    if (codec != AV_CODEC_ID_H264) {
        frame.m_Access = FindAccessPoint(codec, packet.data, size, isKey, File().HasSetup(Stream()));
        return;
    }
    bool isWhole = false;
    if (m_LengthSize > 0) {
        frame.m_Units = WithoutPadding(QfHost::SplitLengths(packet.data, size, m_LengthSize, isWhole));
    }
    frame.m_IsFramed = m_LengthSize == 4;
    if (!isWhole) {
        // Some files declare one form and contain the other.
        std::vector<NalUnit> units = QfHost::SplitUnits(packet.data, size);
        const bool beginsSo = !units.empty() && units.front().m_pData - packet.data <= 4;
        if (m_LengthSize == 0 || beginsSo) {
            frame.m_Units = std::move(units);
            frame.m_IsFramed = false;
        } else {
            ++m_Damaged;
        }
    }
    frame.m_Access = FindAccessPoint(frame.m_Units, isKey);
}

// Octets of the length prefix; 0 for start codes.
unsigned TrackReader::LengthSize() const {
    const QfHost::H264Setup setup = QfHost::ReadH264Setup(m_SetupData);
    return setup.m_StartCodes || m_HasFilter ? 0 : setup.m_LengthSize;
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
                // If the file has decoding times, a decoder outputs a picture once it has the pictures for which it
                // waits.
                const bool isTold = next.m_Packet->dts != AV_NOPTS_VALUE;
                const auto lag = static_cast<std::size_t>(isTold ? std::max(0, parameters.video_delay) : 0);
                m_Order = std::make_unique<PictureOrder>(parameters, lag, m_FrameDuration);
            } else if (parameters.video_delay > 0) {
                FailReading(Path(), "its pictures are reordered and have no time stamps");
            }
        }
        if (m_Order == nullptr) {
            frame = std::move(next);
            return true;
        }
        m_Order->Push(std::move(next), hasPresentation && File().HasLooseTimes());
    }
}

bool TrackReader::Next(Frame& frame) {
    if (!m_IsStarted) m_HasAhead = ReadFrame(m_Ahead);
    m_IsStarted = true;
    if (!m_HasAhead) return false;
    frame = std::move(m_Ahead);
    m_HasAhead = ReadFrame(m_Ahead);
    if (m_HasAhead && Parameters().codec_type == AVMEDIA_TYPE_AUDIO) {
        // With coarse times such as milliseconds the rounded durations of thousands of frames add up to an error. The
        // distances between frames do not.
        const std::int64_t distance = m_Ahead.m_Presentation - frame.m_Presentation;
        const std::int64_t tick = av_rescale_q(1, m_Filter->time_base_out, kHostTimeBase);
        if (distance > 0 && std::abs(distance - frame.m_Duration) <= tick) {
            frame.m_Duration = static_cast<std::int32_t>(distance);
        }
        if (File().HasLooseTimes() && distance - frame.m_Duration > kLeastGap) {
            ++m_Gaps;
            m_GapLength += distance - frame.m_Duration;
        }
    }
    return true;
}
