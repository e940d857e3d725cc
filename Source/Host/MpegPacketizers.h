// SPDX-License-Identifier: MIT
// MPEG-1, MPEG-2 and MPEG-4 part 2 video.
#pragma once

#include "Packetizer.h"

namespace QfHost {

// The sequence header goes into the file's set-up data; without it the plug-in takes it from the first frame.
class Mpeg12Packetizer : public Packetizer {
public:
    explicit Mpeg12Packetizer(Octets setup) : m_Setup(std::move(setup)) {}
    std::list<HeldFrame> Take(Span packet, bool isKey) override;
    void SendSetup(const FileFormatInfo& format, void* handle) override;

private:
    Octets m_Setup;
    bool m_IsSent = false;
};

// The file has no place for headers outside the frames, so they go in front of key frames.
class Mpeg4Packetizer : public Packetizer {
public:
    explicit Mpeg4Packetizer(Octets setup) : m_Setup(std::move(setup)) {}
    std::list<HeldFrame> Take(Span packet, bool isKey) override;

private:
    const Octets m_Setup;
};

} // namespace QfHost
