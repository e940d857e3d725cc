// SPDX-License-Identifier: MIT
// H.264 of any framing, with its parameter sets from set-up data or from the first packet.
#pragma once

#include <vector>

#include "H264.h"
#include "Packetizer.h"

namespace QfHost {

class H264Packetizer : public Packetizer {
public:
    H264Packetizer(Framing target, qf_framing source, int lengthSize, const Octets& setup);
    std::list<HeldFrame> Take(Span packet, bool isKey) override;
    void SendSetup(const FileFormatInfo& format, void* handle) override;

private:
    std::vector<NalUnit> Units(Span packet) const;
    void NeedSets(const std::vector<NalUnit>& units);

    const bool m_WithStartCodes; // in front of the units for the plug-in, instead of lengths
    std::size_t m_LengthSize;    // octets of a length; 0: start codes
    Octets m_Sequence;           // the first sets, which the file's set-up data has
    Octets m_Picture;
    Octets m_AllSets; // in the framing for the plug-in, when that data has no room for all
    bool m_IsSent = false;
};

} // namespace QfHost
