// SPDX-License-Identifier: MIT
#include "VorbisPacketizer.h"

#include <algorithm>

#include "HostError.h"
#include "VorbisHeaders.h"

namespace QfHost {

VorbisPacketizer::VorbisPacketizer(const Octets& setup) : m_Headers(SplitVorbisHeaders(setup)) {
    if (!setup.empty() && m_Headers.empty()) {
        throw HostError(QF_ERROR_DATA, "Vorbis: the set-up data does not hold three header packets");
    }
}

std::list<HeldFrame> VorbisPacketizer::Take(Span packet, bool isKey) {
    std::list<HeldFrame> frames;
    const bool isHeader = (packet.m_pData[0] & 1U) != 0; // the first bit of a packet of sound is 0
    if (!isHeader) {
        if (m_Headers.size() < 3) throw HostError(QF_ERROR_DATA, "Vorbis: sound comes before its three header packets");
        frames.push_back(FrameOf(packet, isKey));
        return frames;
    }
    Octets header(packet.m_pData, packet.m_pData + packet.m_Size);
    // The headers may come again, as in a live stream.
    if (std::find(m_Headers.begin(), m_Headers.end(), header) != m_Headers.end()) return frames;
    if (m_Headers.size() == 3)
        throw HostError(QF_ERROR_DATA, "Vorbis: the header packets change; a file has one set of them");
    if (!IsVorbisHeader(packet.m_pData, packet.m_Size, m_Headers.size())) {
        throw HostError(QF_ERROR_DATA, "Vorbis: packet " + std::to_string(m_Headers.size() + 1) +
                                           " is not the header that belongs there");
    }
    m_Headers.push_back(std::move(header));
    return frames;
}

void VorbisPacketizer::SendSetup(const FileFormatInfo& format, void* handle) {
    if (m_IsSent) return;
    Octets laced = LaceVorbisHeaders(m_Headers);
    format.WriteVosData(handle, laced.data(), static_cast<int>(laced.size()));
    m_IsSent = true;
}

} // namespace QfHost
