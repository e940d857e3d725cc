// SPDX-License-Identifier: MIT
// Decodes one stream of a file, as players show it.
#pragma once

#include <cstdint>
#include <memory>

#include "PacketSource.h"
#include "ReadErrors.h"

class StreamDecoder {
public:
    // source: must have this stream chosen. Throws ToolError when libavcodec has no decoder for it.
    StreamDecoder(PacketSource& source, AVStream* stream);

    // Decodes the next picture or the next samples; false at the end. frame.pts is set always, in TimeBase().
    bool Next(AVFrame& frame);

    // That of the stream for pictures, one sample for sound.
    AVRational TimeBase() const { return m_TimeBase; }
    // Pictures or pieces of sound that were damaged: libavcodec has concealed or dropped them.
    int Damaged() const { return m_Damaged; }
    // When the first of them is shown, 100 ns.
    std::int64_t FirstDamaged() const { return m_FirstDamaged; }
    // As for FrameSource.
    int Gaps() const { return m_Gaps; }
    std::int64_t GapLength() const { return m_GapLength; }

private:
    void SendPacket();
    void Send(const AVPacket* packet);
    bool OpensPart(const AVPacket& packet);
    void SetTime(AVFrame& frame);
    void CountDamage(bool isMarked, std::int64_t time);
    void NoteGap(std::int64_t length);

    PacketSource& m_Source;
    AVStream* m_pStream;
    ReadErrors m_Errors;
    AvPtr<AVCodecContext> m_Codec;
    AvPtr<AVPacket> m_Packet;
    AVRational m_TimeBase{};
    std::int64_t m_NextTime = 0;
    std::int64_t m_LastRescaled; // state of av_rescale_delta
    std::int64_t m_FirstDamaged = 0;
    std::int64_t m_GapLength = 0;
    int m_Damaged = 0;
    int m_Marked = 0; // of these, known without the log
    int m_Told = 0;   // of these, with errors in the log
    int m_Lines = 0;  // errors in the log so far
    int m_Gaps = 0;
    bool m_HasBegun = false;
    bool m_IsPending = false;  // m_Packet waits until the decoder is drained
    std::int64_t m_LastDecode; // time of a packet
};
