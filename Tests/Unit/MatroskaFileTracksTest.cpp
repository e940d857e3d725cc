// SPDX-License-Identifier: MIT
// Tracks and their entries.
#include <gtest/gtest.h>

#include "ElementRows.h"

using namespace MatroskaWriter;

namespace {

TEST(Video, Members) {
    ExpectMembers<Video>(Video(0xE0), "E0",
                         {{"9A 81 01", &Video::m_FlagInterlaced, 1},
                          {"53B8 81 02", &Video::m_StereoMode, 2},
                          {"B0 82 02D0", &Video::m_PixelWidth, 720},
                          {"BA 82 0240", &Video::m_PixelHeight, 576},
                          {"54B0 81 10", &Video::m_DisplayWidth, 16},
                          {"54BA 81 09", &Video::m_DisplayHeight, 9},
                          {"54B2 81 03", &Video::m_DisplayUnit, 3},
                          {"54B3 81 00", &Video::m_AspectRatioType, 0},
                          {"2EB524 84 32595559", &Video::m_ColourSpace, 0x32595559},
                          {"2FB523 84 40000000", &Video::m_GammaValue, 2.0},
                          {"2383E3 84 41C80000", &Video::m_FrameRate, 25.0}});
}

TEST(Audio, Members) {
    ExpectMembers<Audio>(Audio(0xE1), "E1",
                         {{"B5 84 472C4400", &Audio::m_SamplingFrequency, 44100},
                          {"78B5 84 473B8000", &Audio::m_OutputSamplingFrequency, 48000},
                          {"9F 81 02", &Audio::m_Channels, 2},
                          {"7D7B 82 0102", &Audio::m_ChannelPositions, "0102"},
                          {"6264 81 10", &Audio::m_BitDepth, 16}});
}

const std::vector<MemberRow<TrackEntry>> kEntryRows = {
    {"D7 81 01", &TrackEntry::m_TrackNumber, 1},
    {"73C5 84 12345678", &TrackEntry::m_TrackUID, 0x12345678},
    {"83 81 02", &TrackEntry::m_TrackType, 2},
    {"B9 81 01", &TrackEntry::m_FlagEnabled, 1},
    {"88 81 00", &TrackEntry::m_FlagDefault, 0},
    {"9C 81 01", &TrackEntry::m_FlagLacing, 1},
    {"6DE7 81 01", &TrackEntry::m_MinCache, 1},
    {"6DF8 81 02", &TrackEntry::m_MaxCache, 2},
    {"536E 82 C3A9", &TrackEntry::m_Name, L"\u00E9"},
    {"22B59C 83 756E64", &TrackEntry::m_Language, "und"},
    {"86 82 4100", &TrackEntry::m_CodecID, "4100"},
    {"63A2 82 1210", &TrackEntry::m_CodecPrivate, "1210"},
    {"258688 81 61", &TrackEntry::m_CodecName, L"a"},
    {"3A9697 81 62", &TrackEntry::m_CodecSettings, L"b"},
    {"3B4040 81 63", &TrackEntry::m_CodecInfoURL, "c"},
    {"26B240 81 64", &TrackEntry::m_CodecDownloadURL, "d"},
    {"AA 81 01", &TrackEntry::m_CodecDecodeAll, 1},
    {"6FAB 81 03", &TrackEntry::m_TrackOverlay, 3},
    {"23E383 84 02625A00", &TrackEntry::m_DefaultDuration, 40000000},
};

TEST(TrackEntry, Members) {
    EXPECT_EQ(TrackEntry(0xAE).m_MediaKind, 0U);
    ExpectMembers<TrackEntry>(TrackEntry(0xAE), "AE", kEntryRows);
}

TEST(TrackEntry, MembersInFrontOfAudio) {
    TrackEntry blank(0xAE);
    blank.m_MediaKind = 2;
    ExpectMembers<TrackEntry>(blank, "AE", kEntryRows, Hex("E1 80"));
}

TEST(TrackEntry, MediaKindChoosesWhatIsWritten) {
    TrackEntry entry(0xAE);
    Put(entry.m_TrackNumber, 1);
    Put(entry.m_Video.m_PixelWidth, 720);
    Put(entry.m_Audio.m_Channels, 2);
    const struct {
        std::uint32_t m_MediaKind;
        const char* m_Octets;
    } rows[] = {
        {0, "AE 83 D7 81 01"}, {1, "AE 89 D7 81 01 E0 84 B0 82 02D0"}, {2, "AE 88 D7 81 01 E1 83 9F 81 02"},
        {3, "AE 83 D7 81 01"}, {0xFFFFFFFF, "AE 83 D7 81 01"},
    };
    for (const auto& row : rows) {
        entry.m_MediaKind = row.m_MediaKind;
        EXPECT_TRUE(SameOctets(Written(entry), Hex(row.m_Octets))) << row.m_MediaKind;
        EXPECT_EQ(entry.Size(true), Hex(row.m_Octets).size()) << row.m_MediaKind;
    }
}

TEST(TrackEntry, WritesWhatIsChosenAlsoWhenItIsEmpty) {
    TrackEntry entry(0xAE);
    entry.m_MediaKind = 1;
    EXPECT_TRUE(SameOctets(Written(entry), Hex("AE 82 E0 80")));
    entry.m_MediaKind = 2;
    EXPECT_TRUE(SameOctets(Written(entry), Hex("AE 82 E1 80")));
}

TEST(TrackEntry, CodecIDCountsItsTerminator) {
    TrackEntry entry(0xAE);
    entry.m_CodecID.Set("V_VP8");
    EXPECT_TRUE(SameOctets(Written(entry), Hex("AE 88 86 86 56 5F 56 50 38 00")));
}

TEST(TrackEntry, AssignmentCopiesAllOfIt) {
    TrackEntry source(0xAE);
    source.m_MediaKind = 1;
    source.m_CodecPrivate.m_Data = Hex("01 02 03");
    Put(source.m_Video.m_PixelWidth, 720);
    Put(source.m_Audio.m_Channels, 2);
    source.m_TrackOverlay.m_Value = 5;
    TrackEntry target(0xBF);
    Put(target.m_TrackNumber, 9);
    target = source;
    EXPECT_EQ(target.m_ID, 0xAEU);
    EXPECT_FALSE(target.m_TrackNumber.m_IsSet);
    EXPECT_EQ(target.m_TrackOverlay.m_Value, 5U) << "also what is not set";
    EXPECT_EQ(target.m_Audio.m_Channels.m_Value, 2U) << "also what is not written";
    const Octets octets = Hex("AE 8C 63A2 83 010203 E0 84 B0 82 02D0");
    EXPECT_TRUE(SameOctets(Written(target), octets));
    source.m_CodecPrivate.m_Data[0] = 9;
    source.m_MediaKind = 0;
    EXPECT_TRUE(SameOctets(Written(target), octets)) << "a copy of its own";
}

TEST(Track, IsItsEntriesInTheirOrder) {
    Track tracks(0x1654AE6B);
    EXPECT_TRUE(SameOctets(Written(tracks), Hex("1654AE6B 80")));
    for (const unsigned number : {2U, 1U}) Put(tracks.m_TrackEntries.emplace_back(0xAE).m_TrackNumber, number);
    EXPECT_TRUE(SameOctets(Written(tracks), Hex("1654AE6B 8A AE 83 D7 81 02 AE 83 D7 81 01")));
}

} // namespace
