// SPDX-License-Identifier: MIT
// Encodes filtered pictures or sound.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Encoding.h"
#include "FilterGraph.h"
#include "Frame.h"
#include "Likeness.h"

class StreamEncoder {
public:
    // graph: gives the frames and has been configured by one. first: the first picture; null for sound.
    // origin: the time in the source that counts as 0 for the encoder, microseconds.
    // Throws ToolError when libavcodec refuses the options.
    StreamEncoder(const Encoding& encoding, const FilterGraph& graph, const AVFrame* first, std::int64_t origin);

    const AVCodecContext& Codec() const { return *m_Codec; }
    // Samples in each frame but the last; 0 for any number.
    int FrameSize() const;
    AVRational FrameRate() const { return m_FrameRate; }

    // Takes a picture or samples, with the time in the graph's units. duration: of a picture, 100 ns. isKey: the
    // picture has to become a key frame.
    void Push(AVFrame& frame, std::int64_t duration, bool isKey);
    // For a comparison of what is pushed with what a decoder makes of it; null without.
    Likeness* Compared() const { return m_Likeness.get(); }
    void End();
    // The next packet with its times; false when the encoder needs more.
    bool Pull(Frame& frame);

private:
    struct Shown {
        std::int64_t m_Time; // 100 ns
        std::int64_t m_Duration;
    };
    void Open();
    void PrepareVideo(const FilterGraph& graph, const AVFrame& first);
    void PrepareAudio(const FilterGraph& graph);
    void Send(const AVFrame* frame);
    [[noreturn]] void Fail(int result) const;
    std::int64_t TickOf(std::int64_t time) const;
    void SetVideoTimes(Frame& frame);
    std::int64_t DecodingTime(std::int64_t tick) const;

    const Encoding& m_Encoding;
    AvPtr<AVCodecContext> m_Codec;
    std::unique_ptr<Likeness> m_Likeness;
    const AVRational m_GraphTimeBase;
    AVRational m_FrameRate{};
    const std::int64_t m_Origin;
    std::optional<std::int64_t> m_LastTick;
    std::map<std::int64_t, Shown> m_Shown; // by the encoder's time, those whose decoding time is still to come
    std::int64_t m_LastTime = 0;           // 100 ns
};
