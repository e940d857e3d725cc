// SPDX-License-Identifier: MIT
#include "H264Frames.h"

namespace {

constexpr unsigned kDelimiter = 9; // access unit delimiter, the first unit of its frame

} // namespace

void H264Frames::LeaveOut(const Frame& frame) {
    if (frame.m_NewSetup != nullptr) m_Sets.Change(*frame.m_NewSetup);
    m_Sets.Note(frame.m_Units);
}

void H264Frames::Take(const Frame& frame) {
    if (frame.m_NewSetup != nullptr) m_Sets.Change(*frame.m_NewSetup);
    m_Sets.Note(frame.m_Units);
    m_Units = frame.m_Units;
    const std::vector<NalUnit> sets = m_Sets.Missing(m_Units, frame.m_Access.m_IsEntry);
    m_Sets.SetsWereGiven();
    const bool hasDelimiter = !m_Units.empty() && m_Units.front().Type() == kDelimiter;
    m_Units.insert(m_Units.begin() + (hasDelimiter ? 1 : 0), sets.begin(), sets.end());
    if (frame.m_IsFramed && sets.empty()) {
        m_pData = frame.m_Packet->data;
        m_Size = static_cast<std::size_t>(frame.m_Packet->size);
    } else {
        m_Buffer = QfHost::WithLengths(m_Units);
        m_pData = m_Buffer.data();
        m_Size = m_Buffer.size();
    }
}
