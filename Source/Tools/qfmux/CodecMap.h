// Which code of the plug-in a codec of libavcodec goes by, and what its frames need on the way.
#pragma once

#include <string>
#include <vector>

#include "HostRecords.h"
#include "Media.h"

struct CodecChoice {
    FourCC m_FourCC = 0;   // 0: the plug-in has no identifier for this codec
    std::string m_CodecID; // what the file will say
    std::string m_Filters; // bitstream filters on the way, in libavcodec's notation
};

// The plug-in's code for a stream as its file describes it.
CodecChoice ChooseCodec(const AVCodecParameters& parameters);

// The three Vorbis header packets as Matroska wants them (RFC 9559, Xiph lacing). Empty when there are no three.
std::vector<std::uint8_t> LacedVorbisHeaders(const std::vector<std::uint8_t>& setupData);

// The four characters of a code.
std::string FourCCText(FourCC fourCC);
