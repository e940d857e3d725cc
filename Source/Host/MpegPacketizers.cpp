// SPDX-License-Identifier: MIT
#include "MpegPacketizers.h"

namespace QfHost {

std::list<HeldFrame> Mpeg12Packetizer::Take(Span packet, bool isKey) {
    std::list<HeldFrame> frames;
    frames.push_back(FrameOf(packet, isKey));
    return frames;
}

void Mpeg12Packetizer::SendSetup(const FileFormatInfo& format, void* handle) {
    if (m_IsSent || m_Setup.empty()) return;
    format.WritezXPSData(handle, nullptr, 0, m_Setup.data(), static_cast<int>(m_Setup.size()));
    m_IsSent = true;
}

std::list<HeldFrame> Mpeg4Packetizer::Take(Span packet, bool isKey) {
    // A visual object sequence (B0), a visual object (B5) or an object layer (20 to 2F) begins such headers.
    const std::uint8_t* const data = packet.m_pData;
    const bool hasHeaders = packet.m_Size > 3 && data[0] == 0 && data[1] == 0 && data[2] == 1 &&
                            (data[3] == 0xB0 || data[3] == 0xB5 || data[3] < 0x30);
    std::list<HeldFrame> frames;
    frames.push_back(FrameOf(packet, isKey));
    if (isKey && !hasHeaders) {
        Octets& octets = frames.front().m_Octets;
        octets.insert(octets.begin(), m_Setup.begin(), m_Setup.end());
    }
    return frames;
}

} // namespace QfHost
