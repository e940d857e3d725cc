// SPDX-License-Identifier: MIT
#include "PictureOrder.h"

#include <new>
#include <utility>

#include "TimeLine.h"

PictureOrder::PictureOrder(const AVCodecParameters& parameters, std::size_t lag, std::int64_t frameDuration)
    : m_IsH264(parameters.codec_id == AV_CODEC_ID_H264), m_Lag(lag), m_FrameDuration(frameDuration),
      m_Codec(avcodec_alloc_context3(nullptr)), m_Parser(av_parser_init(parameters.codec_id)) {
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
        // An IDR picture starts a new sequence: all earlier pictures are presented before it.
        if (frame.m_Access.m_IsKey && order == 0) Flush();
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
    if (earliest == nullptr) return;
    earliest->m_Placed = true;
    Frame& frame = earliest->m_Frame;
    if (!earliest->m_IsTold) frame.m_Presentation = m_Next.value_or(DecodeTime());
    if (earliest->m_IsTold || m_Next) m_Next = frame.m_Presentation + frame.m_Duration;
    m_DecodeTimes.pop_front();
    --m_Unplaced;
}

// Of the picture whose turn it is when the next one is presented.
std::int64_t PictureOrder::DecodeTime() const {
    if (m_Lag < m_DecodeTimes.size()) return m_DecodeTimes[m_Lag];
    return m_DecodeTimes.back() + static_cast<std::int64_t>(m_Lag - m_DecodeTimes.size() + 1) * m_FrameDuration;
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
