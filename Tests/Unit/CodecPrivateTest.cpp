// SPDX-License-Identifier: MIT
#include "CodecPrivate.h"

#include <gtest/gtest.h>

#include <random>

#include "Extremes.h"
#include "SameOctets.h"
#include "VideoModels.h"

namespace {

ByteView View(const Octets& octets) { return {octets.data(), octets.size()}; }

// ---- Video for Windows

struct BitmapRow {
    const char* m_Reason;
    std::int32_t m_Width, m_Height, m_BitCount;
    FourCC m_Compression;
    const char* m_Start; // the 20 octets in front of 20 zeros
};

const BitmapRow kBitmapRows[] = {
    {"plain", 720, 576, 24, MakeFourCC("MJPG"), "28000000 D0020000 40020000 0100 1800 4D4A5047"},
    {"the height keeps its sign", 720, -576, 24, MakeFourCC("X264"), "28000000 D0020000 C0FDFFFF 0100 1800 58323634"},
    {"low 16 bits of the bit count", 1, 1, 0x12345678, 0, "28000000 01000000 01000000 0100 7856 00000000"},
    {"extremes", kMost32, kLeast32, -1, 0xFFFFFFFF, "28000000 FFFFFF7F 00000080 0100 FFFF FFFFFFFF"},
};

TEST(BitmapInfoHeader, Rows) {
    for (const BitmapRow& row : kBitmapRows) {
        VideoParam video{};
        video.fourCC = MakeFourCC("none"); // the compression comes from elsewhere
        video.width = row.m_Width;
        video.height = row.m_Height;
        video.bitCount = row.m_BitCount;
        EXPECT_TRUE(SameOctets(BitmapInfoHeader(video, row.m_Compression), Join({Hex(row.m_Start), Repeated(20, 0)})))
            << row.m_Reason;
    }
}

// ---- WAVEFORMATEX

struct WaveRow {
    const char* m_Reason;
    FourCC m_FourCC;
    std::int32_t m_Channels, m_SampleRate, m_BitsPerSample;
    const char* m_Octets; // tag, channels, rate, octets a second, alignment, bits, cbSize
};

const WaveRow kWaveRows[] = {
    {"CD audio", 0x00000055, 2, 44100, 16, "5500 0200 44AC0000 10B10200 0000 1000 1200"},
    {"the tag is a code's first two characters", MakeFourCC("abcd"), 1, 8000, 8,
     "6162 0100 401F0000 401F0000 0000 0800 1200"},
    {"12 / 8 is cut to 1", 1, 1, 3, 4, "0100 0100 03000000 01000000 0000 0400 1200"},
    {"-12 / 8 is cut to -1", 1, -1, 3, 4, "0100 FFFF 03000000 FFFFFFFF 0000 0400 1200"},
    {"-7 / 8 is cut to 0", 1, 1, -7, 1, "0100 0100 F9FFFFFF 00000000 0000 0100 1200"},
    {"low 16 bits of channels and bits, but their whole product: A0010 / 8", 1, 0x10002, 1, 0x10008,
     "0100 0200 01000000 02400100 0000 0800 1200"},
    {"2^15 * 2^15 * 2 wraps to -2^31", 1, 0x8000, 0x8000, 2, "0100 0080 00800000 000000F0 0000 0200 1200"},
    {"2^32 wraps to 0", 1, 0x10000, 0x10000, 1, "0100 0000 00000100 00000000 0000 0100 1200"},
    {"the most negative by -1 wraps to itself", 1, -1, kLeast32, 1, "0100 FFFF 00000080 000000F0 0000 0100 1200"},
    {"(2^31 - 1) * 2 wraps to -2, and -2 * 8 / 8", 1, 2, kMost32, 8, "0100 0200 FFFFFF7F FEFFFFFF 0000 0800 1200"},
    {"nothing", 0, 0, 0, 0, "0000 0000 00000000 00000000 0000 0000 1200"},
};

TEST(WaveFormatEx, Rows) {
    for (const WaveRow& row : kWaveRows) {
        AudioParam audio{};
        audio.fourCC = row.m_FourCC;
        audio.channels = row.m_Channels;
        audio.sampleRate = row.m_SampleRate;
        audio.bitsPerSample = row.m_BitsPerSample;
        EXPECT_TRUE(SameOctets(WaveFormatEx(audio), Hex(row.m_Octets))) << row.m_Reason;
    }
}

// ---- AVC

struct AvcRow {
    const char* m_Reason;
    const char* m_PictureSet;
    const char* m_SequenceSet;
    const char* m_Octets;
};

const AvcRow kAvcRows[] = {
    {"neither set", "", "", "01 42000D FF 00 00"},
    {"both", "68CE3880", "67640029AC", "01 640029 FF E1 0005 67640029AC 01 0004 68CE3880"},
    {"the sequence set alone", "", "67640029AC", "01 640029 FF E1 0005 67640029AC 00"},
    {"the picture set alone: no reserved bits", "68CE3880", "", "01 42000D FF 00 01 0004 68CE3880"},
    {"four octets tell profile and level", "", "674D401E", "01 4D401E FF E1 0004 674D401E 00"},
    {"three do not", "", "674D40", "01 42000D FF E1 0003 674D40 00"},
    {"one octet each", "68", "67", "01 42000D FF E1 0001 67 01 0001 68"},
};

TEST(AvcDecoderConfigurationRecord, Rows) {
    for (const AvcRow& row : kAvcRows) {
        const Octets pictureSet = Hex(row.m_PictureSet);
        const Octets sequenceSet = Hex(row.m_SequenceSet);
        const Octets record = AvcDecoderConfigurationRecord(View(pictureSet), View(sequenceSet));
        EXPECT_TRUE(SameOctets(record, Hex(row.m_Octets))) << row.m_Reason;
    }
}

TEST(AvcDecoderConfigurationRecord, Of25And4OctetsTakes40) {
    const Octets sequenceSet = Join({Hex("67 64 00 29"), Repeated(21, 0xAB)});
    const Octets pictureSet = Hex("68 CE 38 80");
    const Octets record = AvcDecoderConfigurationRecord(View(pictureSet), View(sequenceSet));
    EXPECT_EQ(record.size(), 40U);
    EXPECT_TRUE(SameOctets(record, Join({Hex("01 640029 FF E1 0019"), sequenceSet, Hex("01 0004"), pictureSet})));
}

TEST(AvcDecoderConfigurationRecord, CutsLengthsButNotSets) {
    const Octets sequenceSet = Repeated(0x10002, 0x67);
    const Octets pictureSet = Repeated(0x10000, 0x68);
    const Octets record = AvcDecoderConfigurationRecord(View(pictureSet), View(sequenceSet));
    EXPECT_TRUE(SameOctets(record, Join({Hex("01 676767 FF E1 0002"), sequenceSet, Hex("01 0000"), pictureSet})));
}

TEST(AvcDecoderConfigurationRecord, ASetWithoutOctetsIsAbsent) {
    const Octets set = Hex("68");
    EXPECT_TRUE(SameOctets(AvcDecoderConfigurationRecord(HostBytes(nullptr, 5), HostBytes(set.data(), 0)),
                           Hex("01 42000D FF 00 00")));
    EXPECT_TRUE(SameOctets(AvcDecoderConfigurationRecord(HostBytes(set.data(), -1), HostBytes(nullptr, -1)),
                           Hex("01 42000D FF 00 00")));
}

// ---- MPEG-1 and MPEG-2

struct MpegRow {
    const char* m_Reason;
    const char* m_Video;
    const char* m_Header;
};

const MpegRow kMpegRows[] = {
    {"nothing", "", ""},
    {"no header", "000001B8 11 00000100 22", ""},
    {"header and extension up to a group", "000001B3 11223344 000001B5 55 000001B8 66",
     "000001B3 11223344 000001B5 55"},
    {"to the end", "000001B3 1122", "000001B3 1122"},
    {"to the end, with an extension", "000001B3 11 000001B5 22", "000001B3 11 000001B5 22"},
    {"the code itself is enough", "000001B3", "000001B3"},
    {"a code that is cut off is none", "000001", ""},
    {"nor does it end the header", "000001B3 11 000001", "000001B3 11 000001"},
    {"one at the very end does", "000001B3 11 00000100", "000001B3 11"},
    {"not at the front", "AABB 000001B3 11 000001B8", "000001B3 11"},
    {"other codes in front do not end the scan", "00000100 000001B8 000001B5 000001B3 11 000001B8", "000001B3 11"},
    {"the last of several headers", "000001B3 11 000001B3 22 000001B8", "000001B3 22"},
    {"any other code ends it", "000001B3 11 00000101 22 000001B3 33", "000001B3 11"},
    {"user data, too", "000001B3 11 000001B2 22", "000001B3 11"},
    {"more zeros in front of a code stay", "000001B3 11 0000 000001B8", "000001B3 11 0000"},
    {"two zeros alone are no code", "000001B3 11 0000B8 000002B8 22 000001B7", "000001B3 11 0000B8 000002B8 22"},
    {"codes end to end", "000001B3 000001B5 000001B5 000001B8", "000001B3 000001B5 000001B5"},
};

Octets SequenceHeader(const Octets& video) {
    const ByteView header = FindSequenceHeader(View(video));
    if (header.m_Size == 0) return {};
    EXPECT_GE(header.m_pData, video.data());
    EXPECT_LE(header.m_pData + header.m_Size, video.data() + video.size());
    return {header.m_pData, header.m_pData + header.m_Size};
}

TEST(FindSequenceHeader, Rows) {
    for (const MpegRow& row : kMpegRows) {
        EXPECT_TRUE(SameOctets(SequenceHeader(Hex(row.m_Video)), Hex(row.m_Header))) << row.m_Reason;
    }
}

TEST(FindSequenceHeader, TakesTheFirst26Octets) {
    const Octets header = Join({Hex("000001B3"), Repeated(12, 0xAB), Hex("000001B5"), Repeated(6, 0xCD)});
    ASSERT_EQ(header.size(), 26U);
    EXPECT_TRUE(SameOctets(SequenceHeader(Join({header, Hex("000001B8 11223344")})), header));
}

TEST(FindSequenceHeader, IsTheModelForRandomRuns) {
    const Octets alphabet = Hex("00 00 00 01 01 B3 B3 B5 B8");
    std::mt19937 random(4);
    for (int i = 0; i < 100000; ++i) {
        Octets video(random() % 48);
        for (unsigned char& octet : video) octet = alphabet[random() % alphabet.size()];
        if (SequenceHeader(video) == ModelSequenceHeader(video)) continue;
        ADD_FAILURE() << testing::PrintToString(video);
    }
}

// Of any sets, also of some that no memory holds: their octets are not looked at.
TEST(AvcRecordSize, IsThatOfTheRecord) {
    const Octets octets(1000, 0x67);
    for (const std::size_t picture : {0U, 1U, 4U, 1000U}) {
        for (const std::size_t sequence : {0U, 1U, 3U, 4U, 1000U}) {
            const ByteView pictureSet{octets.data(), picture};
            const ByteView sequenceSet{octets.data(), sequence};
            EXPECT_EQ(AvcRecordSize(pictureSet, sequenceSet),
                      AvcDecoderConfigurationRecord(pictureSet, sequenceSet).size())
                << picture << " and " << sequence;
        }
    }
    const ByteView huge{octets.data(), 0x7FFFFFFF};
    EXPECT_EQ(AvcRecordSize(huge, huge), 0x7FFFFFFFULL + 9 + 0x7FFFFFFFULL + 2) << "beyond 32 bits";
}

} // namespace
