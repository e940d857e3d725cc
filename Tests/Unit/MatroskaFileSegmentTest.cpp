// SPDX-License-Identifier: MIT
// The EBML header, the Segment's header, Info, seek heads, padding and tags.
#include <gtest/gtest.h>

#include <algorithm>

#include "ElementRows.h"

using namespace MatroskaWriter;

namespace {

TEST(EBML, Members) {
    ExpectMembers<EBML>(EBML(0x1A45DFA3), "1A45DFA3",
                        {{"4286 81 01", &EBML::m_EBMLVersion, 1},
                         {"42F7 81 02", &EBML::m_EBMLReadVersion, 2},
                         {"42F2 81 04", &EBML::m_EBMLMaxIDLength, 4},
                         {"42F3 81 08", &EBML::m_EBMLMaxSizeLength, 8},
                         {"4282 84 7765626D", &EBML::m_DocType, "webm"},
                         {"4287 81 03", &EBML::m_DocTypeVersion, 3},
                         {"4285 81 00", &EBML::m_DocTypeReadVersion, 0}});
}

// ---- Segment

struct SegmentRow {
    const char* m_Reason;
    std::uint64_t m_Size;
    std::uint64_t m_SizeWithout;
    std::uint64_t m_SizeWith;
    const char* m_Octets;
};

constexpr std::uint64_t kUnknown = 0x00FFFFFFFFFFFFFF;

const SegmentRow kSegmentRows[] = {
    {"unknown, without a header either way", 0, kUnknown, kUnknown, "18538067 01 FFFFFFFFFFFFFF"},
    {"the shortest length is counted, eight octets are written", 1, 1, 6, "18538067 01 00000000000001"},
    {"largest counted with one", 126, 126, 131, "18538067 01 0000000000007E"},
    {"smallest counted with two", 127, 127, 133, "18538067 01 0000000000007F"},
    {"a file's", 0x123456789A, 0x123456789A, 0x123456789A + 4 + 6, "18538067 01 0000123456789A"},
    {"largest known", kUnknown - 1, kUnknown - 1, kUnknown - 1 + 12, "18538067 01 FFFFFFFFFFFFFE"},
    {"bits 56 to 63 go, and no length is counted", 0xAB00000000000005, 0xAB00000000000005, 0xAB00000000000009,
     "18538067 01 00000000000005"},
};

TEST(Segment, Rows) {
    for (const SegmentRow& row : kSegmentRows) {
        const Segment segment(row.m_Size, 0x18538067);
        EXPECT_EQ(segment.m_Size, row.m_Size) << row.m_Reason;
        EXPECT_EQ(segment.Size(false), row.m_SizeWithout) << row.m_Reason;
        EXPECT_EQ(segment.Size(true), row.m_SizeWith) << row.m_Reason;
        EXPECT_TRUE(SameOctets(Written(segment), Hex(row.m_Octets))) << row.m_Reason;
    }
}

// ---- Info

const Octets kPresetScale = Hex("2AD7B1 83 0F4240");

TEST(Info, CarriesItsScaleFromTheStart) {
    const Info info(0x1549A966);
    EXPECT_TRUE(info.m_TimecodeScale.m_IsSet);
    EXPECT_EQ(info.m_TimecodeScale.m_Value, 1000000U);
    EXPECT_TRUE(SameOctets(Written(info), Element("1549A966", kPresetScale)));
}

TEST(Info, Members) {
    Info blank(0x1549A966);
    blank.m_TimecodeScale.m_IsSet = false;
    ExpectMembers<Info>(blank, "1549A966",
                        {{"73A4 82 0102", &Info::m_SegmentUID, "0102"},
                         {"3CB923 82 0304", &Info::m_PrevUID, "0304"},
                         {"3EB923 82 0506", &Info::m_NextUID, "0506"},
                         {"7384 82 C3A9", &Info::m_SegmentFilename, L"\u00E9"},
                         {"3C83AB 81 62", &Info::m_PrevFilename, L"b"},
                         {"3E83BB 81 63", &Info::m_NextFilename, L"c"},
                         {"2AD7B1 83 0F4240", &Info::m_TimecodeScale, 1000000},
                         {"4489 84 41C80000", &Info::m_Duration, 25.0},
                         {"4461 82 7F18", &Info::m_DateUTC, -33000},
                         {"7BA9 81 64", &Info::m_Title, L"d"},
                         {"4D80 81 65", &Info::m_MuxingApp, L"e"},
                         {"5741 81 66", &Info::m_WritingApp, L"f"}});
}

// ---- seek heads

TEST(SeekID, IsTheIdentifierItPointsAt) {
    SeekID seekID(0x53AB);
    EXPECT_EQ(seekID.m_SeekedID.m_ID, 0U);
    EXPECT_EQ(seekID.Size(false), 0U);
    EXPECT_TRUE(SameOctets(Written(seekID), Hex("53AB 80"))) << "never filled";
    seekID.m_SeekedID.m_ID = 0x1549A966;
    EXPECT_EQ(seekID.Size(false), 4U);
    EXPECT_TRUE(SameOctets(Written(seekID), Hex("53AB 84 1549A966")));
    seekID.m_SeekedID.m_ID = 0x0549A966;
    EXPECT_TRUE(SameOctets(Written(seekID), Hex("53AB 84 1549A966"))) << "with the marker of its width";
    seekID.m_SeekedID.m_ID = 0xEC;
    EXPECT_TRUE(SameOctets(Written(seekID), Hex("53AB 81 EC")));
}

TEST(SeekHead, IsAnIdentifierAndAPosition) {
    SeekHead entry(0x4DBB);
    EXPECT_TRUE(SameOctets(Written(entry), Hex("4DBB 83 53AB80")));
    Put(entry.m_SeekPosition, 4099);
    EXPECT_TRUE(SameOctets(Written(entry), Hex("4DBB 88 53AB80 53AC 82 1003")));
    entry.m_SeekID.m_SeekedID.m_ID = 0x1654AE6B;
    EXPECT_TRUE(SameOctets(Written(entry), Hex("4DBB 8C 53AB 84 1654AE6B 53AC 82 1003")));
    Put(entry.m_SeekPosition, 0);
    EXPECT_TRUE(SameOctets(Written(entry), Hex("4DBB 8B 53AB 84 1654AE6B 53AC 81 00")));
}

TEST(Seek, IsItsEntriesInTheirOrder) {
    Seek seek(0x114D9B74);
    EXPECT_TRUE(SameOctets(Written(seek), Hex("114D9B74 80")));
    for (const unsigned position : {2U, 1U}) Put(seek.m_Seeks.emplace_back(0x4DBB).m_SeekPosition, position);
    EXPECT_TRUE(SameOctets(Written(seek), Hex("114D9B74 94 4DBB 87 53AB80 53AC 81 02 4DBB 87 53AB80 53AC 81 01")));
}

// ---- padding

struct VoidRow {
    std::uint64_t m_Size;
    const char* m_Header;
};

const VoidRow kVoidRows[] = {{0, "EC 80"},         {1, "EC 81"},         {63, "EC BF"},       {64, "EC C0"},
                             {65, "EC C1"},        {126, "EC FE"},       {127, "EC 407F"},    {4096, "EC 5000"},
                             {20000, "EC 204E20"}, {40000, "EC 209C40"}, {65536, "EC 210000"}};

TEST(Void, IsAHeaderAndZerosInSmallPieces) {
    for (const VoidRow& row : kVoidRows) {
        const Void filler(row.m_Size, 0xEC);
        const auto size = static_cast<std::size_t>(row.m_Size);
        MemoryStream stream;
        EXPECT_EQ(filler.Write(&stream), 0) << row.m_Size;
        EXPECT_TRUE(SameOctets(stream.m_Octets, Join({Hex(row.m_Header), Repeated(size, 0)}))) << row.m_Size;
        EXPECT_LE(*std::max_element(stream.m_WriteSizes.begin(), stream.m_WriteSizes.end()), 64U) << row.m_Size;
        EXPECT_EQ(filler.Size(false), row.m_Size);
        EXPECT_EQ(filler.Size(true), row.m_Size + Hex(row.m_Header).size());
    }
    EXPECT_EQ(Void(4096, 0xEC).Size(true), 4099U);
}

TEST(Void, WritesNoZerosWhenTheCountReadsAsNegative) {
    EXPECT_TRUE(SameOctets(Written(Void(0x80000000, 0xEC)), Hex("EC 0880000000")));
    EXPECT_TRUE(SameOctets(Written(Void(0xFFFFFFFF, 0xEC)), Hex("EC 08FFFFFFFF")));
    EXPECT_EQ(Void(0x80000000, 0xEC).Size(true), 0x80000000U + 6);
}

// A compound element returns 0, whatever its stream returned.
TEST(Segment, ReturnsZero) {
    for (const std::uint64_t size : {0U, 1000U}) {
        MemoryStream stream;
        EXPECT_EQ(Segment(size, 0x18538067).Write(&stream), 0);
        stream.m_Status = 5;
        EXPECT_EQ(Segment(size, 0x18538067).Write(&stream), 0);
        stream.m_FailFrom = 0;
        EXPECT_EQ(Segment(size, 0x18538067).Write(&stream), 0);
    }
}

TEST(Tags, IsAHeaderAlone) {
    const Tags tags(0x1254C367);
    EXPECT_EQ(tags.Size(false), 0U);
    EXPECT_EQ(tags.Size(true), 5U);
    EXPECT_TRUE(SameOctets(Written(tags), Hex("1254C367 80")));
}

} // namespace
