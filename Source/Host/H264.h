// SPDX-License-Identifier: MIT
// H.264 as containers carry it: parameter sets, units and start codes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QfHost {

struct H264Setup {
    bool m_StartCodes = true;  // frames come in start-code form, not with lengths in front of their units
    unsigned m_LengthSize = 4; // octets of such a length
};

// The framing that follows from an AVCDecoderConfigurationRecord (ISO/IEC 14496-15) or parameter sets in start-code
// form.
H264Setup ReadH264Setup(const std::vector<std::uint8_t>& setupData);

// A NAL unit inside a frame, which it does not own, without its start code.
struct NalUnit {
    const std::uint8_t* m_pData;
    std::size_t m_Size;

    unsigned Type() const { return *m_pData % 32U; }
    bool IsSlice() const { return Type() == 1 || Type() == 5; }
    // Whether the plug-in keeps the unit of a frame in start-code form that becomes one block: slices, parameter sets
    // and access unit delimiters.
    bool IsKept() const { return IsSlice() || (Type() >= 7 && Type() <= 9); }
};

// The units of data in start-code form (ISO/IEC 14496-10, Annex B), start codes of 3 and of 4 octets alike.
std::vector<NalUnit> SplitUnits(const std::uint8_t* data, std::size_t size);

// The units of data in which a length of lengthSize octets precedes each unit. isWhole: becomes false when the last
// unit is cut off; this unit then ends with the data.
std::vector<NalUnit> SplitLengths(const std::uint8_t* data, std::size_t size, std::size_t lengthSize, bool& isWhole);

// The units of set-up data of either kind, those of a record up to where it is damaged. They lie in setupData.
std::vector<NalUnit> ParameterSets(const std::vector<std::uint8_t>& setupData);

// Appends a unit behind a start code or a length, each of 4 octets, as the plug-in expects them.
void AppendUnit(std::vector<std::uint8_t>& octets, const NalUnit& unit, bool withStartCode);
// All units behind start codes or behind lengths of 4 octets.
std::vector<std::uint8_t> WithLongStartCodes(const std::vector<NalUnit>& units);
std::vector<std::uint8_t> WithLengths(const std::vector<NalUnit>& units);

} // namespace QfHost
