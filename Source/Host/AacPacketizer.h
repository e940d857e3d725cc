// SPDX-License-Identifier: MIT
// AAC, raw or with ADTS headers (ISO/IEC 14496-3), which are removed.
#pragma once

#include "Packetizer.h"

namespace QfHost {

class AacPacketizer : public Packetizer {
public:
    explicit AacPacketizer(Octets setup) : m_Setup(std::move(setup)) {}
    std::list<HeldFrame> Take(Span packet, bool isKey) override;
    void SendSetup(const FileFormatInfo& format, void* handle) override;

private:
    Octets m_Setup; // the AudioSpecificConfig
    bool m_IsSent = false;
};

} // namespace QfHost
