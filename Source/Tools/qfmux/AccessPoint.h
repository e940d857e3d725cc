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
    // Decoding can begin here, with a file's set-up data alone or what comes with the picture.
    bool m_IsKey = false;
    // The same for a stream of which nothing is known, such as a recording that begins here.
    bool m_IsEntry = false;
    // The pictures behind it that are presented before it need none in front of it.
    bool m_IsClosed = false;
    // Octets in front of it in its frame: the rest of a picture that was cut off.
    std::size_t m_Front = 0;
};

// isKey: what the container says. hasSetup: whether it keeps set-up data for the stream.
AccessPoint FindAccessPoint(AVCodecID codec, const std::uint8_t* data, std::size_t size, bool isKey, bool hasSetup);
// The same for H.264.
AccessPoint FindAccessPoint(const std::vector<NalUnit>& units, bool isKey);
