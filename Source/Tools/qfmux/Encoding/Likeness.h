// SPDX-License-Identifier: MIT
// How much the decoded result of an encoder is like what the encoder was given.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AvPtr.h"
#include "FilterGraph.h"

// One minute of a stream.
struct LikeMinute {
    double m_Source; // pictures: always 1; sound: level of the source, dB
    double m_Result; // pictures: structural similarity (SSIM), 0 to 1; sound: level of the result, dB
};

class Likeness {
public:
    // timeBase: of the frames' times.
    static std::unique_ptr<Likeness> OfPictures(AVRational timeBase);
    // origin: the time that counts as 0.
    static std::unique_ptr<Likeness> OfSound(AVRational timeBase, std::int64_t origin);
    virtual ~Likeness() = default;

    // Takes what the encoder is given, and what a decoder makes of it, each in the order of their times. Frames wait
    // for their counterparts, as long as the encoder holds back.
    virtual void TakeSource(const AVFrame& frame) = 0;
    virtual void TakeResult(const AVFrame& frame) = 0;
    // Ends both.
    virtual std::vector<LikeMinute> Finish() = 0;
};

// The minutes that are much worse than usual, for people. Empty if there are none.
std::string OutOfLine(const std::vector<LikeMinute>& minutes, bool arePictures);
