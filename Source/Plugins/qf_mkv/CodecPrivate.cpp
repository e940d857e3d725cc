// SPDX-License-Identifier: MIT
#include "CodecPrivate.h"

#include <new>

bool IsMpegVideo(const std::string& codecID) { return codecID == "V_MPEG1" || codecID == "V_MPEG2"; }

bool IsAvc(const std::string& codecID) { return codecID.rfind("V_MPEG4/ISO/AVC", 0) == 0; }

Bytes BitmapInfoHeader(const VideoParam& video, FourCC compression) {
    constexpr unsigned kSize = 40;
    Bytes header;
    header.reserve(kSize);
    AppendLittleEndian(header, kSize, 4); // biSize
    AppendLittleEndian(header, static_cast<std::uint32_t>(video.width), 4);
    AppendLittleEndian(header, static_cast<std::uint32_t>(video.height), 4);
    AppendLittleEndian(header, 1, 2); // biPlanes
    AppendLittleEndian(header, static_cast<std::uint32_t>(video.bitCount), 2);
    AppendLittleEndian(header, compression, 4);
    header.resize(kSize); // biSizeImage, biXPelsPerMeter, biYPelsPerMeter, biClrUsed, biClrImportant: 0
    return header;
}

Bytes WaveFormatEx(const AudioParam& audio) {
    constexpr unsigned kSize = 18;
    const std::int32_t bitsPerSecond =
        WrappingMultiply(WrappingMultiply(audio.channels, audio.sampleRate), audio.bitsPerSample);
    Bytes header;
    header.reserve(kSize);
    AppendLittleEndian(header, audio.fourCC, 2); // wFormatTag: the code's first two characters
    AppendLittleEndian(header, static_cast<std::uint32_t>(audio.channels), 2);
    AppendLittleEndian(header, static_cast<std::uint32_t>(audio.sampleRate), 4);
    AppendLittleEndian(header, static_cast<std::uint32_t>(bitsPerSecond / 8), 4);
    AppendLittleEndian(header, 0, 2); // nBlockAlign
    AppendLittleEndian(header, static_cast<std::uint32_t>(audio.bitsPerSample), 2);
    AppendLittleEndian(header, kSize, 2); // cbSize
    return header;
}

std::uint64_t AvcRecordSize(ByteView pictureSet, ByteView sequenceSet) {
    return std::uint64_t{sequenceSet.m_Size} + (sequenceSet.m_Size > 0 ? 9 : 7) + pictureSet.m_Size +
           (pictureSet.m_Size > 0 ? 2 : 0);
}

Bytes AvcDecoderConfigurationRecord(ByteView pictureSet, ByteView sequenceSet) {
    const bool hasPictureSet = pictureSet.m_Size > 0;
    const bool hasSequenceSet = sequenceSet.m_Size > 0;
    Bytes record;
    const std::uint64_t size = AvcRecordSize(pictureSet, sequenceSet);
    // Two sets of 2 GiB may not fit in 32 bits: this is lack of memory.
    if (size > record.max_size()) throw std::bad_alloc();
    record.reserve(static_cast<std::size_t>(size));

    record.push_back(1); // configurationVersion
    if (sequenceSet.m_Size > 3) {
        Append(record, {sequenceSet.m_pData + 1, 3}); // profile, compatibility, level
    } else {
        Append(record, {reinterpret_cast<const unsigned char*>("\x42\x00\x0D"), 3}); // Baseline, level 1.3
    }
    record.push_back(0xFF); // lengths of 4 octets
    if (hasSequenceSet) {
        record.push_back(0xE1);
        AppendBigEndian(record, sequenceSet.m_Size, 2);
        Append(record, sequenceSet);
    } else {
        record.push_back(0x00); // deliberately without the reserved bits
    }
    record.push_back(hasPictureSet ? 1 : 0);
    if (hasPictureSet) {
        AppendBigEndian(record, pictureSet.m_Size, 2);
        Append(record, pictureSet);
    }
    return record;
}

ByteView FindSequenceHeader(ByteView video) {
    constexpr unsigned char kSequenceHeader = 0xB3;
    constexpr unsigned char kExtension = 0xB5;
    const unsigned char* const data = video.m_pData;
    const unsigned char* start = nullptr;
    for (std::size_t i = 0; i + 3 < video.m_Size; ++i) {
        if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
        const unsigned char code = data[i + 3];
        if (code == kSequenceHeader) {
            start = data + i; // the last of several in a row counts
        } else if (code != kExtension && start != nullptr) {
            return {start, static_cast<std::size_t>(data + i - start)};
        }
    }
    return start != nullptr ? ByteView{start, static_cast<std::size_t>(data + video.m_Size - start)} : ByteView{};
}
