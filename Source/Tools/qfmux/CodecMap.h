// SPDX-License-Identifier: MIT
// Maps libavcodec's codecs to codes of the plug-in, with the filters and framing that their frames need.
#pragma once

#include <string>

#include "HostRecords.h"
#include "MediaFile.h"
#include "Target.h"

// The form in which a frame goes to the plug-in. Forms with start codes lose NAL units and are for testing a plug-in.
enum class Framing {
    AsTheyAre,
    Lengths,    // H.264 units behind lengths of 4 octets, all of them: one block a frame
    StartCodes, // H.264 units behind 4-octet start codes, which the plug-in turns into lengths: one block a frame
    Slices      // the same, of which it keeps the slices alone: one block a slice
};

struct CodecChoice {
    FourCC m_FourCC = 0;
    std::string m_CodecID;    // as written to the file
    bool m_IsGeneric = false; // Video for Windows or WAVEFORMATEX: the codec has no identifier
    std::string m_Filters;    // bitstream filters, in libavcodec's notation
    Framing m_Framing = Framing::AsTheyAre;
    bool m_DecodeTimes = false; // blocks carry decoding times, as Video-for-Windows tracks do
};

// Chooses the code for a file's stream. h264: the code for H.264 in start-code form; empty for length prefixes.
CodecChoice ChooseCodec(const MediaFile& file, const AVStream* stream, const std::string& h264);

// The same for frames of an encoder.
CodecChoice ChooseCodec(const Target& target, const std::string& h264);

// The four characters of a code, or its number when they are not printable.
std::string FourCCText(FourCC fourCC);
