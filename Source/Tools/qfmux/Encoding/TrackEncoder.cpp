// SPDX-License-Identifier: MIT
#include "TrackEncoder.h"

#include <algorithm>
#include <new>
#include <utility>

#include "SignalGuard.h"
#include "TimeLine.h"

namespace {

AVRational FrameRateOf(const PacketSource& source, AVStream* stream) {
    return av_guess_frame_rate(source.File().Context(), stream, nullptr);
}

} // namespace

TrackEncoder::TrackEncoder(std::shared_ptr<PacketSource> source, int streamIndex, const Encoding& encoding,
                           std::int64_t other)
    : FrameSource(std::move(source), streamIndex), m_Encoding(encoding),
      m_IsVideo(encoding.m_pTarget->m_Type == AVMEDIA_TYPE_VIDEO), m_Decoder(Source(), Stream()),
      m_Graph(encoding.m_Filter, encoding.m_pTarget->m_Type, m_Decoder.TimeBase(), FrameRateOf(Source(), Stream())),
      m_Pieces(encoding.m_Padding.empty() ? "anull" : encoding.m_Padding, AVMEDIA_TYPE_AUDIO, {}, {}),
      m_Parameters(avcodec_parameters_alloc()), m_Decoded(NewAvFrame()), m_Held(NewAvFrame()), m_Zero(other) {
    if (m_Parameters == nullptr) throw std::bad_alloc();
    m_Parameters->codec_type = encoding.m_pTarget->m_Type;
    m_Parameters->codec_id = encoding.m_pTarget->m_Codec;
    const std::int64_t start = File().Context()->start_time;
    m_Origin = (start != AV_NOPTS_VALUE ? start : 0) + Source().Shift() / 10;
    // The parameters are known with the first picture or samples.
    while (m_Encoder == nullptr && !m_HasEnded) {
        if (!Encode()) Feed();
    }
}

double TrackEncoder::FrameRate() const { return m_Encoder != nullptr ? av_q2d(m_Encoder->FrameRate()) : 25.0; }

void TrackEncoder::Feed() {
    AVFrame& frame = *m_Decoded;
    bool isThere = !m_SourceHasEnded && SignalGuard::Caught() == 0 && m_Decoder.Next(frame);
    if (isThere) {
        const std::int64_t start = HostTime(m_Origin, kAvTimeBase);
        const std::int64_t left = m_Encoding.m_Length + start - HostTime(frame.pts, m_Decoder.TimeBase());
        isThere = left > 0;
        if (!m_IsVideo && isThere) {
            const std::int64_t samples = av_rescale_q_rnd(left, kHostTimeBase, m_Decoder.TimeBase(), AV_ROUND_UP);
            frame.nb_samples = static_cast<int>(std::min<std::int64_t>(frame.nb_samples, samples));
        }
    }
    if (isThere) {
        m_Graph.Push(&frame);
        av_frame_unref(&frame);
        if (!m_IsVideo && m_Encoder == nullptr) OpenEncoder(nullptr);
    } else if (!std::exchange(m_SourceHasEnded, true)) {
        m_Graph.Push(nullptr);
    } else if (!std::exchange(m_FiltersHaveEnded, true)) {
        PushHeld(AV_NOPTS_VALUE);
        m_Pieces.Push(nullptr);
    } else {
        m_HasEnded = true;
        if (m_Encoder != nullptr) m_Encoder->End();
    }
}

bool TrackEncoder::Encode() {
    if (!m_IsVideo && m_Encoder == nullptr) return false;
    AvPtr<AVFrame> frame = NewAvFrame();
    if (!m_IsVideo) {
        while (!m_Pieces.Pull(*frame)) {
            if (!m_Graph.Pull(*frame)) return false;
            frame->pts = av_rescale_q(frame->pts, m_Graph.TimeBase(), {1, frame->sample_rate});
            m_Pieces.Push(frame.get());
        }
        m_Encoder->Push(*frame, 0, false);
        return true;
    }
    if (!m_Graph.Pull(*frame)) return false;
    if (m_Encoder == nullptr) {
        OpenEncoder(frame.get());
        m_Zero = std::min(m_Zero, HostTime(frame->pts, m_Graph.TimeBase()));
    }
    PushHeld(frame->pts);
    m_Held = std::move(frame);
    m_IsHeld = true;
    return true;
}

// next: when the next picture is shown, in the graph's units; AV_NOPTS_VALUE if there is none.
void TrackEncoder::PushHeld(std::int64_t next) {
    if (!std::exchange(m_IsHeld, false)) return;
    const AVRational timeBase = m_Graph.TimeBase();
    std::int64_t duration = HostTime(1, av_inv_q(m_Encoder->FrameRate()));
    if (next != AV_NOPTS_VALUE) {
        duration = HostTime(next - m_Held->pts, timeBase);
    } else if (m_Held->pkt_duration > 0) {
        duration = HostTime(m_Held->pkt_duration, Stream()->time_base);
    }
    const bool isKey = m_Encoding.m_KeyFramesOpenClusters && OpensCluster(HostTime(m_Held->pts, timeBase));
    m_Encoder->Push(*m_Held, duration, isKey);
}

// Whether a picture is the first of its cluster.
bool TrackEncoder::OpensCluster(std::int64_t time) {
    const std::int64_t shift = std::max<std::int64_t>(0, -m_Zero); // negative times are shifted before they are rounded
    const std::int64_t cluster = ClusterOf(ToMilliseconds(time + shift) - ToMilliseconds(m_Zero + shift));
    if (cluster <= m_Cluster) return false;
    m_Cluster = cluster;
    return true;
}

void TrackEncoder::OpenEncoder(const AVFrame* first) {
    m_Encoder = std::make_unique<StreamEncoder>(m_Encoding, m_Graph, first, m_Origin);
    if (!m_IsVideo) m_Pieces.SetFrameSize(m_Encoder->FrameSize());
    CheckReading(avcodec_parameters_from_context(m_Parameters.get(), &m_Encoder->Codec()), Path());
    m_SetupData.assign(m_Parameters->extradata, m_Parameters->extradata + m_Parameters->extradata_size);
}

bool TrackEncoder::Next(Frame& frame) {
    if (m_Encoder == nullptr) return false;
    while (!m_Encoder->Pull(frame)) {
        if (m_HasEnded) return false;
        if (!Encode()) Feed();
    }
    Examine(frame);
    return true;
}

void TrackEncoder::Examine(Frame& frame) {
    const AVPacket& packet = *frame.m_Packet;
    const auto size = static_cast<std::size_t>(packet.size);
    std::size_t setupSize = 0;
    if (const std::uint8_t* setup = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &setupSize)) {
        m_SetupData.assign(setup, setup + setupSize);
        frame.m_NewSetup = std::make_shared<const std::vector<std::uint8_t>>(m_SetupData);
    }
    const bool isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    if (Parameters().codec_id == AV_CODEC_ID_H264) {
        frame.m_Units = QfHost::SplitUnits(packet.data, size);
        frame.m_Access = FindAccessPoint(frame.m_Units, isKey);
    } else {
        frame.m_Access = FindAccessPoint(Parameters().codec_id, packet.data, size, isKey, !m_SetupData.empty());
    }
}
