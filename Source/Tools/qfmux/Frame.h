// SPDX-License-Identifier: MIT
// One compressed frame on its way from the reader to the plug-in.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "AccessPoint.h"
#include "AvPtr.h"
#include "H264Units.h"

// Times in 100 ns units.
struct Frame {
    // The packet as read, before any change.
    const AVPacket& Source() const { return m_Source != nullptr ? *m_Source : *m_Packet; }

    AvPtr<AVPacket> m_Packet;
    AvPtr<AVPacket> m_Source; // null where no filter changed it
    std::int64_t m_Presentation = 0;
    std::int64_t m_Decode = 0;
    std::int32_t m_Duration = 0;
    AccessPoint m_Access;
    std::vector<NalUnit> m_Units; // of H.264, in the packet
    bool m_IsFramed = false;      // the packet has lengths of 4 octets in front of the units
    bool m_IsOtherSound = false;  // its rate or channels differ from the first frame's
    std::shared_ptr<const std::vector<std::uint8_t>> m_NewSetup; // set-up data from this frame on; null if unchanged
};
