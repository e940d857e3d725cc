// SPDX-License-Identifier: MIT
#include "Packetizer.h"

#include "AacPacketizer.h"
#include "H264Packetizer.h"
#include "HostError.h"
#include "MpegPacketizers.h"
#include "VorbisPacketizer.h"

namespace QfHost {

namespace {

// Codecs whose packets are not changed. blockSize: a packet's size is a multiple of this.
class PlainPacketizer : public Packetizer {
public:
    explicit PlainPacketizer(std::size_t blockSize) : m_BlockSize(blockSize) {}

    std::list<HeldFrame> Take(Span packet, bool isKey) override {
        if (packet.m_Size % m_BlockSize != 0) {
            throw HostError(QF_ERROR_DATA, "PCM: a packet of " + std::to_string(packet.m_Size) +
                                               " bytes does not hold whole samples of " + std::to_string(m_BlockSize));
        }
        std::list<HeldFrame> frames;
        frames.push_back(FrameOf(packet, isKey));
        return frames;
    }

private:
    const std::size_t m_BlockSize;
};

} // namespace

HeldFrame FrameOf(Span octets, bool isKey) {
    HeldFrame frame;
    frame.m_Octets.assign(octets.m_pData, octets.m_pData + octets.m_Size);
    frame.m_IsKey = isKey;
    return frame;
}

std::unique_ptr<Packetizer> Packetizer::Make(const Job& job, const TrackJob& track) {
    switch (track.m_pCodec->m_Framing) {
    case Framing::H264Lengths:
    case Framing::H264StartCodes:
    case Framing::H264Slices:
        return std::make_unique<H264Packetizer>(track.m_pCodec->m_Framing, job.m_Framing, job.m_LengthSize,
                                                track.m_Setup);
    case Framing::Mpeg12:
        return std::make_unique<Mpeg12Packetizer>(track.m_Setup);
    case Framing::Mpeg4:
        return std::make_unique<Mpeg4Packetizer>(track.m_Setup);
    case Framing::Aac:
        return std::make_unique<AacPacketizer>(track.m_Setup);
    case Framing::Vorbis:
        return std::make_unique<VorbisPacketizer>(track.m_Setup);
    case Framing::Pcm:
        return std::make_unique<PlainPacketizer>(static_cast<std::size_t>(job.m_Channels) *
                                                 static_cast<std::size_t>(job.m_BitsPerSample / 8));
    case Framing::Plain:
        break;
    }
    return std::make_unique<PlainPacketizer>(1);
}

} // namespace QfHost
