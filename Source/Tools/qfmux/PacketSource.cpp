// SPDX-License-Identifier: MIT
#include "PacketSource.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "PictureOrder.h"

namespace {

// Octets of waiting packets. Two seconds of Ultra HD discs, which have the highest bit rates, take 32 MB.
constexpr std::size_t kMostWaiting = std::size_t{32} << 20;

constexpr const char* kEncrypted = "it is encrypted";

// Where Ogg streams of Opus are chained, libavformat passes on the headers of the next one (RFC 7845) as packets.
bool IsOpusHeader(const AVPacket& packet) {
    constexpr std::size_t kSize = 8;
    return static_cast<std::size_t>(packet.size) >= kSize &&
           (std::memcmp(packet.data, "OpusHead", kSize) == 0 || std::memcmp(packet.data, "OpusTags", kSize) == 0);
}

// Whether the container marks the stream as encrypted. ISO files mark each frame instead.
bool IsEncrypted(const AVStream* stream) {
    const std::uint32_t code = stream->codecpar->codec_tag;
    return code == MKTAG('d', 'r', 'm', 's') || code == MKTAG('d', 'r', 'm', 'i') || // QuickTime
           av_dict_get(stream->metadata, "enc_key_id", nullptr, 0) != nullptr;       // Matroska
}

} // namespace

PacketSource::PacketSource(std::shared_ptr<MediaFile> file, Streams streams, std::int64_t shift)
    : m_File(std::move(file)), m_Streams(std::move(streams)), m_Shift(shift),
      m_TimeLine(m_File->HasLooseTimes(), shift) {
    AVFormatContext* const context = m_File->Context();
    for (const auto& [index, isDecoded] : m_Streams) {
        if (index >= static_cast<int>(context->nb_streams)) FailReading(m_File->Path(), "the file has changed");
        if (IsEncrypted(context->streams[index])) FailReading(m_File->Path(), kEncrypted);
        m_Chosen[index];
        // Sound has a presentation time wherever it has a decoding time.
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
        if (m_End < 0) {
            if (m_End != AVERROR_EOF) m_Failure = AvReason(m_End);
            m_End = AVERROR_EOF;
            break;
        }
        const AVCodecParameters& parameters = *m_File->Context()->streams[packet.stream_index]->codecpar;
        if (parameters.codec_id == AV_CODEC_ID_OPUS && IsOpusHeader(packet)) {
            av_packet_unref(&packet);
            continue;
        }
        const auto chosen = m_Chosen.find(packet.stream_index);
        // One stream's times may help to mend another's. A part of an edit list may begin with hidden frames, whose
        // times go back: they are no jump if a decoder drops them.
        const bool isHidden = (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
        if (chosen != m_Chosen.end() && !(isHidden && m_Streams.at(packet.stream_index))) {
            m_TimeLine.Mend(packet, m_File->Context()->streams[packet.stream_index]->time_base);
        }
        if (chosen == m_Chosen.end() || !chosen->second.m_IsAskedFor) {
            av_packet_unref(&packet);
            continue;
        }
        if (av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, nullptr) != nullptr) {
            FailReading(m_File->Path(), kEncrypted);
        }
        // Cut off by the end of the file.
        if ((packet.flags & AV_PKT_FLAG_CORRUPT) != 0 && !m_File->MayBeDamaged()) {
            av_packet_unref(&packet);
            continue;
        }
        Measure(chosen->second, packet, m_File->Context()->streams[packet.stream_index]->time_base);
        if (packet.stream_index == stream) {
            ++own.m_Taken;
            return 0;
        }
        AvPtr<AVPacket> waiting = NewAvPacket();
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

std::int64_t PacketSource::Start(int stream) const {
    const Chosen& chosen = m_Chosen.at(stream);
    if (chosen.m_Alone != nullptr) return chosen.m_Alone->Start(stream);
    return chosen.m_First.value_or(0);
}

std::int64_t PacketSource::Length(int stream) const {
    const Chosen& chosen = m_Chosen.at(stream);
    if (chosen.m_Alone != nullptr) return chosen.m_Alone->Length(stream);
    return chosen.m_First ? chosen.m_End - *chosen.m_First : 0;
}

bool PacketSource::HasAllStreams() const {
    const AVFormatContext& context = *m_File->Context();
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const bool isPicture = (context.streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (!isPicture && m_Streams.count(static_cast<int>(i)) == 0) return false;
    }
    return true;
}

void PacketSource::Measure(Chosen& chosen, const AVPacket& packet, AVRational timeBase) {
    const std::int64_t stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (stamp == AV_NOPTS_VALUE) return;
    const std::int64_t time = HostTime(stamp, timeBase);
    chosen.m_First = std::min(chosen.m_First.value_or(time), time);
    chosen.m_End = std::max(chosen.m_End, time + HostTime(std::max<std::int64_t>(0, packet.duration), timeBase));
}

int PacketSource::OpenForItself(int stream, AVPacket& packet) {
    Chosen& own = m_Chosen.at(stream);
    own.m_IsAskedFor = false;
    own.m_Alone = std::make_unique<PacketSource>(std::make_shared<MediaFile>(m_File->Path()), m_Streams, m_Shift);
    for (auto& [index, chosen] : own.m_Alone->m_Chosen) chosen.m_IsAskedFor = index == stream;
    // Reads from the beginning, as a demuxer may keep more state between packets than its position.
    for (; own.m_Taken > 0; --own.m_Taken) {
        const int result = own.m_Alone->Next(stream, packet);
        if (result < 0) return result;
        av_packet_unref(&packet);
    }
    return own.m_Alone->Next(stream, packet);
}
