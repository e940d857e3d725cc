// SPDX-License-Identifier: MIT
// Prepares a codec's packets for the plug-in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "HostRecords.h"
#include "Job.h"

namespace QfHost {

// Octets that it does not own.
struct Span {
    const std::uint8_t* m_pData;
    std::size_t m_Size;
};

// A frame that waits for its turn. Times in units of 100 ns.
struct HeldFrame {
    Octets m_Octets;
    std::int64_t m_Presentation = 0;
    std::int64_t m_Decode = 0;
    std::int64_t m_Duration = 0; // 0: not known
    bool m_IsKey = true;
};

class Packetizer {
public:
    Packetizer() = default;
    virtual ~Packetizer() = default;
    Packetizer(const Packetizer&) = delete;
    Packetizer& operator=(const Packetizer&) = delete;

    // Makes frames of a packet; a packet with only set-up data gives none. Several frames follow each other in time:
    // their m_Presentation and m_Decode count from the packet's, and their m_Duration is set. Throws HostError when the
    // packet is not valid for the codec.
    virtual std::list<HeldFrame> Take(Span packet, bool isKey) = 0;
    // Hands set-up data over. Called before each frame; does nothing when there is nothing new.
    virtual void SendSetup(const FileFormatInfo&, void* /*handle*/) {}

    // For a track of that job. Throws HostError when its set-up data is not valid for the codec.
    static std::unique_ptr<Packetizer> Make(const Job& job, const TrackJob& track);
};

// Makes a frame with these octets.
HeldFrame FrameOf(Span octets, bool isKey);

} // namespace QfHost
