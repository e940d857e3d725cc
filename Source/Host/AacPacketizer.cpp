// SPDX-License-Identifier: MIT
#include "AacPacketizer.h"

#include <iterator>
#include <optional>

#include "HostError.h"

namespace QfHost {

namespace {

constexpr std::int64_t kSamplesOfAFrame = 1024;
constexpr std::int32_t kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                         22050, 16000, 12000, 11025, 8000,  7350};

// The header in front of a frame.
struct AdtsHeader {
    unsigned m_ObjectType;
    unsigned m_RateIndex;
    unsigned m_Channels; // 0: stated in the frame
    unsigned m_Blocks;
    std::size_t m_HeaderSize;
    std::size_t m_Size; // including the header

    Octets Setup() const {
        return {static_cast<std::uint8_t>(m_ObjectType << 3 | m_RateIndex >> 1),
                static_cast<std::uint8_t>(m_RateIndex << 7 | m_Channels << 3)};
    }
};

// Returns nothing without such a header or without its whole frame. No raw frame begins with twelve ones: its first
// element would be its end.
std::optional<AdtsHeader> ReadHeader(const std::uint8_t* data, std::size_t size) {
    if (size < 7 || data[0] != 0xFF || (data[1] & 0xF6U) != 0xF0) return std::nullopt;
    AdtsHeader header{};
    header.m_ObjectType = (data[2] >> 6) + 1U;
    header.m_RateIndex = data[2] >> 2 & 0xFU;
    header.m_Channels = (data[2] & 1U) << 2 | data[3] >> 6;
    header.m_Size = (data[3] & 3U) << 11 | unsigned{data[4]} << 3 | data[5] >> 5;
    header.m_Blocks = (data[6] & 3U) + 1;
    header.m_HeaderSize = (data[1] & 1U) != 0 ? 7 : 9; // with a checksum
    if (header.m_RateIndex >= std::size(kSampleRates) || header.m_Size <= header.m_HeaderSize || header.m_Size > size) {
        return std::nullopt;
    }
    return header;
}

} // namespace

std::list<HeldFrame> AacPacketizer::Take(Span packet, bool isKey) {
    std::list<HeldFrame> frames;
    const std::optional<AdtsHeader> first = ReadHeader(packet.m_pData, packet.m_Size);
    if (!first) {
        if (m_Setup.empty()) {
            throw HostError(QF_ERROR_DATA, "AAC: the packet has no ADTS header, and the job has no set-up data");
        }
        frames.push_back(FrameOf(packet, isKey));
        return frames;
    }
    Octets setup = m_Setup;
    for (std::size_t position = 0; position < packet.m_Size;) {
        const std::optional<AdtsHeader> header = ReadHeader(packet.m_pData + position, packet.m_Size - position);
        if (!header) throw HostError(QF_ERROR_DATA, "AAC: an ADTS frame reaches beyond its packet");
        if (header->m_Blocks != 1) throw HostError(QF_ERROR_DATA, "AAC: an ADTS frame holds several blocks");
        if (setup.empty() && header->m_Channels == 0) {
            throw HostError(QF_ERROR_DATA, "AAC: the ADTS header does not say which channels there are");
        }
        if (setup.empty()) setup = header->Setup();
        HeldFrame frame =
            FrameOf({packet.m_pData + position + header->m_HeaderSize, header->m_Size - header->m_HeaderSize}, isKey);
        if (header->m_Size != packet.m_Size) {
            const std::int64_t rate = kSampleRates[header->m_RateIndex];
            const auto number = static_cast<std::int64_t>(frames.size());
            frame.m_Presentation = frame.m_Decode = number * kSamplesOfAFrame * 10000000 / rate;
            frame.m_Duration = (number + 1) * kSamplesOfAFrame * 10000000 / rate - frame.m_Decode;
        }
        frames.push_back(std::move(frame));
        position += header->m_Size;
    }
    m_Setup.swap(setup);
    return frames;
}

void AacPacketizer::SendSetup(const FileFormatInfo& format, void* handle) {
    if (m_IsSent) return;
    format.WriteVosData(handle, m_Setup.data(), static_cast<int>(m_Setup.size()));
    m_IsSent = true;
}

} // namespace QfHost
