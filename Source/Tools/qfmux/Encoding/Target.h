// SPDX-License-Identifier: MIT
// The codecs that qfmux encodes to.
#pragma once

#include <string>
#include <vector>

#include "HostRecords.h"

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/avutil.h>
}

struct Target {
    const char* m_Name; // for --video-codec and --audio-codec
    AVMediaType m_Type; // video or audio
    AVCodecID m_Codec;
    FourCC m_FourCC;       // the plug-in's code
    const char* m_Encoder; // libavcodec's name
    // Pixel formats or channel layouts that players of this codec know, separated by |; null for all of the encoder's.
    const char* m_Formats;
    bool m_NeedsEvenSides; // of its pictures, since chroma has half the resolution
    int m_Delay;           // samples by which the encoder is late without saying so
};

// The target with this name, or the usual one of the format if the name is empty. Null if there is none.
const Target* FindTarget(AVMediaType type, const std::string& name, FourCC format);

// All names of this type.
std::vector<std::string> TargetNames(AVMediaType type);
