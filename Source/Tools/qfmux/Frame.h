// One compressed frame on its way from the reader to the plug-in.
#pragma once

#include <cstdint>

#include "AvPtr.h"

// One compressed frame. Times in 100 ns units.
struct Frame {
    AvPtr<AVPacket> m_Packet;
    std::int64_t m_Presentation = 0;
    std::int64_t m_Decode = 0;
    std::int32_t m_Duration = 0;
    bool m_Key = false;
};
