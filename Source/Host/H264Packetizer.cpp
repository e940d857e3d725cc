// SPDX-License-Identifier: MIT
#include "H264Packetizer.h"

#include <algorithm>

#include "HostError.h"

namespace QfHost {

namespace {

constexpr unsigned kSequenceSet = 7;
constexpr unsigned kDelimiter = 9;

} // namespace

H264Packetizer::H264Packetizer(Framing target, qf_framing source, int lengthSize, const Octets& setup)
    : m_WithStartCodes(target != Framing::H264Lengths), m_LengthSize(static_cast<std::size_t>(lengthSize)) {
    const bool isRecord = !setup.empty() && setup[0] == 1;
    if (source == QF_FRAMING_AUTO && isRecord) m_LengthSize = ReadH264Setup(setup).m_LengthSize;
    if (setup.empty()) return;
    NeedSets(ParameterSets(setup));
    // A record may leave all parameter sets to the packets.
    if (m_Sequence.empty() && !isRecord)
        throw HostError(QF_ERROR_DATA, "H.264: there is no parameter set in the set-up data");
}

std::vector<NalUnit> H264Packetizer::Units(Span packet) const {
    if (m_LengthSize == 0) {
        const std::uint8_t* const end = packet.m_pData + packet.m_Size;
        const std::uint8_t* const one =
            std::find_if(packet.m_pData, end, [](std::uint8_t octet) { return octet != 0; });
        if (one == end || *one != 1 || one - packet.m_pData < 2) {
            throw HostError(QF_ERROR_DATA, "H.264: the packet does not begin with a start code");
        }
        return SplitUnits(packet.m_pData, packet.m_Size);
    }
    bool isWhole = false;
    std::vector<NalUnit> units = SplitLengths(packet.m_pData, packet.m_Size, m_LengthSize, isWhole);
    if (!isWhole) {
        throw HostError(QF_ERROR_DATA, "H.264: a unit reaches beyond its packet; its lengths have " +
                                           std::to_string(m_LengthSize) + " bytes");
    }
    return units;
}

// Takes the first sets that come. The plug-in's record has one of each kind; further sets go in front of key frames.
void H264Packetizer::NeedSets(const std::vector<NalUnit>& units) {
    Octets sequence;
    Octets picture;
    Octets all;
    int count = 0;
    for (const NalUnit& unit : units) {
        if (unit.Type() != kSequenceSet && unit.Type() != kSequenceSet + 1) continue;
        Octets& first = unit.Type() == kSequenceSet ? sequence : picture;
        if (first.empty()) first.assign(unit.m_pData, unit.m_pData + unit.m_Size);
        AppendUnit(all, unit, m_WithStartCodes);
        ++count;
    }
    if (sequence.empty() || picture.empty()) return;
    if (count > 2) m_AllSets.swap(all);
    m_Sequence.swap(sequence);
    m_Picture.swap(picture);
}

std::list<HeldFrame> H264Packetizer::Take(Span packet, bool isKey) {
    const std::vector<NalUnit> units = Units(packet);
    if (m_Sequence.empty()) NeedSets(units);
    if (m_Sequence.empty()) {
        throw HostError(QF_ERROR_DATA, "H.264: the first packet has no parameter sets, nor has the job set-up data");
    }
    const bool hasSets =
        std::any_of(units.begin(), units.end(), [](const NalUnit& unit) { return unit.Type() == kSequenceSet; });
    bool needsSets = isKey && !hasSets && !m_AllSets.empty();
    HeldFrame frame;
    frame.m_IsKey = isKey;
    // Every length and start code is rewritten with 4 octets.
    frame.m_Octets.reserve(packet.m_Size + units.size() * 4 + (needsSets ? m_AllSets.size() : 0));
    for (const NalUnit& unit : units) {
        if (needsSets && unit.Type() != kDelimiter) {
            frame.m_Octets.insert(frame.m_Octets.end(), m_AllSets.begin(), m_AllSets.end());
            needsSets = false;
        }
        AppendUnit(frame.m_Octets, unit, m_WithStartCodes);
    }
    std::list<HeldFrame> frames;
    if (!frame.m_Octets.empty()) frames.push_back(std::move(frame));
    return frames;
}

void H264Packetizer::SendSetup(const FileFormatInfo& format, void* handle) {
    if (m_IsSent) return;
    format.WritezXPSData(handle, m_Picture.data(), static_cast<int>(m_Picture.size()), m_Sequence.data(),
                         static_cast<int>(m_Sequence.size()));
    // If the first frame has 00 00 00 01 anywhere, the plug-in assumes start codes; a length of 1 looks the same. It
    // examines only the first frame, so send an empty frame first, which the plug-in does not store.
    MEDIA_FRAME empty{};
    unsigned char none = 0;
    empty.videoData = &none;
    if (!m_WithStartCodes) format.WriteVideoPacket(handle, &empty);
    m_IsSent = true;
}

} // namespace QfHost
