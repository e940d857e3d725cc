// SPDX-License-Identifier: MIT
// Vorbis, with its three header packets laced in the set-up data or in front of the sound.
#pragma once

#include "Packetizer.h"

namespace QfHost {

class VorbisPacketizer : public Packetizer {
public:
    explicit VorbisPacketizer(const Octets& setup);
    std::list<HeldFrame> Take(Span packet, bool isKey) override;
    void SendSetup(const FileFormatInfo& format, void* handle) override;

private:
    std::vector<Octets> m_Headers; // at most three
    bool m_IsSent = false;
};

} // namespace QfHost
