// SPDX-License-Identifier: MIT
// Which code of the plug-in a codec of libavcodec goes by, and what its frames need on the way.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "HostRecords.h"
#include "MediaFile.h"

// How a frame's octets go to the plug-in. The forms with start codes lose units: they are for testing a plug-in.
enum class Framing {
    AsTheyAre,
    Lengths,    // H.264 units behind lengths of 4 octets, all of them: one block a frame
    StartCodes, // H.264 units behind 4-octet start codes, which the plug-in turns into lengths: one block a frame
    Slices      // the same, of which it keeps the slices alone: one block a slice
};

struct CodecChoice {
    FourCC m_FourCC = 0;
    std::string m_CodecID;    // what the file will say
    bool m_IsGeneric = false; // no identifier of its own: Video for Windows or WAVEFORMATEX
    std::string m_Filters;    // bitstream filters on the way, in libavcodec's notation
    Framing m_Framing = Framing::AsTheyAre;
    bool m_DecodeTimes = false; // blocks carry decoding times, as Video-for-Windows tracks do
};

// The plug-in's code for a file's stream. h264: the code that H.264 goes by in start-code form, empty for lengths.
CodecChoice ChooseCodec(const MediaFile& file, const AVStream* stream, const std::string& h264);

// The three Vorbis header packets as Matroska wants them (RFC 9559, Xiph lacing). Empty when there are no three.
std::vector<std::uint8_t> LacedVorbisHeaders(const std::vector<std::uint8_t>& setupData);

// The four characters of a code, or its number when they do not print.
std::string FourCCText(FourCC fourCC);
