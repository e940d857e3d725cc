// SPDX-License-Identifier: MIT
// The presentation order of pictures without time stamps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "Frame.h"

// Gives presentation times to pictures without them: raw streams have no times, AVI files only decoding times, and
// broadcasts some presentation times. Pictures are held until their place in presentation order is known. A picture
// without a time then follows the picture presented before it. If no picture has a time, the n-th presented picture
// takes the decoding time of the n-th decoded picture.
//
// H.264 numbers its pictures in presentation order; at most 16 pictures wait (its largest picture buffer). In MPEG-4 a
// B picture is presented at once, and any other picture when the next picture that is not a B picture arrives.
// libavformat applies the MPEG-4 rule too, but before filters split packed MPEG-4 frames.
class PictureOrder {
public:
    // lag: the number of pictures by which presentation follows decoding. frameDuration: 100 ns.
    PictureOrder(const AVCodecParameters& parameters, std::size_t lag, std::int64_t frameDuration);

    // Whether there is a rule for the codec.
    static bool Knows(AVCodecID codec);

    // To be called in decoding order. isTold: whether the file has the frame's presentation time.
    void Push(Frame frame, bool isTold);
    void Flush(); // no more frames follow
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
    std::optional<std::int64_t> m_Next;     // end of the frame placed last, once the file had a presentation time
    std::size_t m_Unplaced = 0;
    std::int64_t m_Pushed = 0;
};
