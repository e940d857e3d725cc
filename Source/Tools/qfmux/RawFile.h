// SPDX-License-Identifier: MIT
// A finished file whose blocks libavformat reads unchanged, without parsing or probing frames.
#pragma once

#include <cstdint>
#include <string>

#include "AvPtr.h"

class RawFile {
public:
    explicit RawFile(const std::string& path);

    // Why the file does not open; empty if it does.
    const std::string& Error() const { return m_Error; }
    AVFormatContext* Context() const { return m_Context.get(); }
    // The first stream of that type; null when there is none.
    const AVStream* Stream(AVMediaType type) const;
    // Reads the next block. Returns libavformat's result, AVERROR_EOF at the end.
    int Next(AVPacket& packet) { return av_read_frame(m_Context.get(), &packet); }

    // A block's time, ms. Video-for-Windows tracks carry decoding times.
    static std::int64_t Time(const AVPacket& packet) { return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts; }

private:
    AvPtr<AVFormatContext> m_Context;
    std::string m_Error;
};
