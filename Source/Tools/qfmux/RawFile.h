// SPDX-License-Identifier: MIT
// A finished file as libavformat opens it for its blocks as they stand: nothing parsed, nothing guessed.
#pragma once

#include <cstdint>
#include <string>

#include "AvPtr.h"

class RawFile {
public:
    explicit RawFile(const std::string& path);

    // Why it does not open; empty when it does.
    const std::string& Error() const { return m_Error; }
    AVFormatContext* Context() const { return m_Context.get(); }
    // Of that type, the first; null when there is none.
    const AVStream* Stream(AVMediaType type) const;
    // Reads the next block. Returns libavformat's result, AVERROR_EOF at the end.
    int Next(AVPacket& packet) { return av_read_frame(m_Context.get(), &packet); }

    // Of a block, ms. Tracks of Video for Windows carry decoding times.
    static std::int64_t Time(const AVPacket& packet) { return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts; }

private:
    AvPtr<AVFormatContext> m_Context;
    std::string m_Error;
};
