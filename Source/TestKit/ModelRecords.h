// SPDX-License-Identifier: MIT
// The host's records by their documented fields, without positions and without the octets that are the host's own. A
// model of the plug-in takes them, and sessions consist of them before a host lays them out in memory.
#pragma once

#include <cstdint>

namespace Model {

using FourCC = std::uint32_t;

constexpr FourCC MakeFourCC(const char (&text)[5]) {
    FourCC code = 0;
    for (int i = 3; i >= 0; --i) code = code * 256 + static_cast<unsigned char>(text[i]);
    return code;
}

struct VideoParam {
    FourCC fourCC = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    double frameRate = 0;
    std::int32_t bitCount = 0;
};

struct AudioParam {
    FourCC fourCC = 0;
    std::int32_t sampleRate = 0;
    std::int32_t channels = 0;
    std::int32_t bitsPerSample = 0;
};

struct EncodeParam {
    VideoParam videoParam;
    AudioParam audioParam;
    std::uint32_t disableVideo = 0;
    std::uint32_t disableAudio = 0;
    FourCC formatFourCC = 0;
};

// All six words, because the plug-in exports the whole record.
struct MuxParam {
    std::uint32_t host0 = 0;
    std::uint32_t muxFlags = 0;
    std::uint32_t host8 = 0;
    std::int32_t displayAspectX = 0;
    std::int32_t displayAspectY = 0;
    std::uint32_t host20 = 0;
};

// A frame of either kind: data and size are those of the kind that is written.
struct Frame {
    unsigned char* data = nullptr;
    std::int32_t size = 0;
    std::uint32_t frameFlags = 0; // of a video frame
    std::int64_t timestamp = 0;   // 100 ns
    std::int32_t duration = 0;
};

} // namespace Model
