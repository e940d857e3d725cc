// SPDX-License-Identifier: MIT
#include "TrackDigest.h"

#include <array>
#include <new>

extern "C" {
#include <libavutil/common.h>
}

TrackDigest::TrackDigest(bool isHashed) {
    if (!isHashed) return;
    m_State.reset(XXH3_createState());
    if (m_State == nullptr) throw std::bad_alloc();
    XXH3_64bits_reset(m_State.get());
}

void TrackDigest::Block(std::int64_t time, bool isKey) {
    if (m_Blocks++ == 0) m_FirstTime = time;
    m_LastTime = time;
    if (m_State == nullptr) return;
    const std::array<std::int64_t, 2> head = {av_sat_sub64(time, m_FirstTime), isKey ? 1 : 0};
    XXH3_64bits_update(m_State.get(), head.data(), sizeof head);
}

void TrackDigest::Octets(const void* data, std::size_t size) {
    m_Octets += size;
    if (m_State != nullptr) XXH3_64bits_update(m_State.get(), data, size);
}

void TrackDigest::Unit(const NalUnit& unit) {
    const std::uint32_t size = static_cast<std::uint32_t>(unit.m_Size);
    Octets(&size, sizeof size);
    Octets(unit.m_pData, unit.m_Size);
}
