// SPDX-License-Identifier: MIT
// Frames of real media without a media library: the simplest stream formats, cut into the frames that a host hands
// over. Data of another format throws std::runtime_error.
#pragma once

#include "Octets.h"

#include <cstddef>
#include <vector>

// H.264 in ISO/IEC 14496-10 Annex B form whose access units each begin with a delimiter, as `x264 --aud` writes it.
struct AvcStream {
    struct AccessUnit {
        Octets m_Octets; // NAL units, each behind a start code of four octets
        bool m_Key;      // holds an IDR slice
    };

    explicit AvcStream(const Octets& octets);

    std::vector<AccessUnit> m_AccessUnits;
    Octets m_SequenceSet; // the first ones, without start codes
    Octets m_PictureSet;
};

// VP8 (RFC 6386) in an IVF file.
struct IvfStream {
    struct Frame {
        Octets m_Octets;
        bool m_Key;
    };

    explicit IvfStream(const Octets& octets);

    std::vector<Frame> m_Frames;
};

// AC-3 at one constant rate.
std::vector<Octets> Ac3Frames(const Octets& octets, std::size_t frameSize);
