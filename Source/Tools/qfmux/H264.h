// H.264 as containers carry it: parameter sets, and start codes.
#pragma once

#include <cstdint>
#include <vector>

struct H264Setup {
    bool m_StartCodes = true;  // frames come in start-code form, not with lengths in front of their units
    unsigned m_LengthSize = 4; // octets of such a length
    unsigned m_SequenceSets = 0;
    unsigned m_PictureSets = 0;
    std::vector<std::uint8_t> m_Sequence; // the first of each, NAL units without start codes
    std::vector<std::uint8_t> m_Picture;
};

// Reads an AVCDecoderConfigurationRecord (ISO/IEC 14496-15) or parameter sets in start-code form.
H264Setup ReadH264Setup(const std::vector<std::uint8_t>& setupData);

// A frame in start-code form with every start code 4 octets long, as the plug-in knows them.
std::vector<std::uint8_t> WithLongStartCodes(const std::uint8_t* data, std::size_t size);
