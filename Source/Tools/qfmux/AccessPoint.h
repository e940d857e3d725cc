// SPDX-License-Identifier: MIT
// Where decoding can begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "H264Units.h"

struct AccessPoint {
    // Decoding can begin here with the file's set-up data or the data in the frame.
    bool m_IsKey = false;
    // Decoding can begin here without any earlier data, as in a recording that begins here.
    bool m_IsEntry = false;
    // Later pictures that are presented before this one need no earlier picture.
    bool m_IsClosed = false;
    // Octets in front of it in its frame: the rest of a picture that was cut off.
    std::size_t m_Front = 0;
};

// isKey: the container's flag. hasSetup: whether the container keeps set-up data for the stream.
AccessPoint FindAccessPoint(AVCodecID codec, const std::uint8_t* data, std::size_t size, bool isKey, bool hasSetup);
// The same for H.264.
AccessPoint FindAccessPoint(const std::vector<NalUnit>& units, bool isKey);
