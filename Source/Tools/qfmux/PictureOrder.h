// SPDX-License-Identifier: MIT
// In which order pictures are presented, where their file does not say so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "Frame.h"

// Presentation times for pictures that came without: raw streams have none, AVI files only those of decoding,
// broadcasts some. Pictures are held until their place in presentation order is known; one without a time then follows
// the one in front of it. Where none has a time the n-th one presented takes the time at which the n-th was decoded.
//
// H.264 numbers its pictures in that order; 16 of them at most wait (its largest picture buffer). In MPEG-4 a
// B picture is presented at once, any other when the next such one comes. libavformat knows the latter rule, but not
// that frames may be taken apart behind it, as those of MPEG-4 are.
class PictureOrder {
public:
    // lag: by how many pictures the presentation is behind the decoding. frameDuration: 100 ns.
    PictureOrder(const AVCodecParameters& parameters, std::size_t lag, std::int64_t frameDuration);

    // Whether there is a rule for the codec.
    static bool Knows(AVCodecID codec);

    // In decoding order. isTold: whether the file tells when it is presented.
    void Push(Frame frame, bool isTold);
    void Flush(); // no more frames come
    // Takes the oldest frame whose presentation time is known; false when there is none.
    bool Pop(Frame& frame);

private:
    struct Held {
        Frame m_Frame;
        std::int64_t m_Order; // smaller is presented earlier, among those not placed
        bool m_IsTold;
        bool m_Placed;
    };
    void PlaceEarliest();
    std::int64_t DecodeTime() const;

    bool m_IsH264;
    std::size_t m_Lag;
    std::int64_t m_FrameDuration;
    AvPtr<AVCodecContext> m_Codec;
    AvPtr<AVCodecParserContext> m_Parser;
    std::deque<Held> m_Held;
    std::deque<std::int64_t> m_DecodeTimes; // of frames not placed yet
    std::optional<std::int64_t> m_Next;     // when the one placed last ends, once the file told of one
    std::size_t m_Unplaced = 0;
    std::int64_t m_Pushed = 0;
};
