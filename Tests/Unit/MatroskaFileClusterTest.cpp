// SPDX-License-Identifier: MIT
// Clusters and blocks.
#include <gtest/gtest.h>

#include "ClassNames.h"
#include "ElementRows.h"

using namespace MatroskaWriter;

namespace {

// A block's payload in front of its frames: track 1, time 0, no flags.
const char* const kPlainStart = "81 0000 00";

// Frames of these sizes, the first all 01, the second all 02, ...
void AddFrames(BlockBase& block, const std::vector<std::size_t>& sizes) {
    for (const std::size_t size : sizes) {
        const auto octet = static_cast<unsigned char>(block.m_Frames.size() + 1);
        block.m_Frames.emplace_back(0).m_Data = Repeated(size, octet);
    }
}

Octets FrameOctets(const std::vector<std::size_t>& sizes) {
    Octets octets;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        octets = Join({octets, Repeated(sizes[i], static_cast<unsigned char>(i + 1))});
    }
    return octets;
}

template <class Block>
Block MakeBlock(unsigned long id, std::uint64_t track, const std::vector<std::size_t>& frames) {
    Block block(id);
    block.m_TrackNumber.m_Length = track;
    AddFrames(block, frames);
    return block;
}

// ---- what both blocks share

template <class Block>
class AnyBlock : public testing::Test {};
using Blocks = testing::Types<CBlock, SimpleBlock>;
TYPED_TEST_SUITE(AnyBlock, Blocks, ClassNames);

TYPED_TEST(AnyBlock, BeginsWithItsTrack) {
    const struct {
        std::uint64_t m_Track;
        const char* m_Octets;
    } rows[] = {{0, "80"}, {1, "81"}, {2, "82"}, {126, "FE"}, {127, "407F"}, {16382, "7FFE"}, {16383, "203FFF"}};
    for (const auto& row : rows) {
        const auto block = MakeBlock<TypeParam>(0xA3, row.m_Track, {1});
        EXPECT_TRUE(SameOctets(Written(block), Element("A3", Join({Hex(row.m_Octets), Hex("0000 00 01")}))))
            << row.m_Track;
        EXPECT_EQ(block.Size(false), Hex(row.m_Octets).size() + 4) << row.m_Track;
    }
}

TYPED_TEST(AnyBlock, WritesTheLow16BitsOfItsTime) {
    const struct {
        std::int64_t m_Time;
        const char* m_Octets;
    } rows[] = {{0, "0000"},      {1, "0001"},     {-2, "FFFE"},     {32767, "7FFF"},
                {-32768, "8000"}, {32768, "8000"}, {-32769, "7FFF"}, {0x123456789ABCDEF0, "DEF0"}};
    for (const auto& row : rows) {
        auto block = MakeBlock<TypeParam>(0xA3, 1, {1});
        block.m_Timecode = row.m_Time;
        EXPECT_TRUE(SameOctets(Written(block), Hex(std::string("A3 85 81 ") + row.m_Octets + "00 01"))) << row.m_Time;
    }
}

TYPED_TEST(AnyBlock, NeverWritesWhereItEnds) {
    auto block = MakeBlock<TypeParam>(0xA3, 1, {1});
    block.m_StopTime = 0x123456789ABCDEF0;
    EXPECT_EQ(block.Size(true), 7U);
    EXPECT_TRUE(SameOctets(Written(block), Hex("A3 85 81 0000 00 01")));
}

TYPED_TEST(AnyBlock, StartsOutEmpty) {
    const TypeParam block(0xA3);
    EXPECT_EQ(block.m_TrackNumber.m_Length, 0U);
    EXPECT_EQ(block.m_Timecode, 0);
    EXPECT_TRUE(block.m_Frames.empty());
    EXPECT_TRUE(SameOctets(Written(block), Hex("A3 84 80 0000 00")));
}

TYPED_TEST(AnyBlock, WritesEachFrameAtOnce) {
    const auto block = MakeBlock<TypeParam>(0xA3, 1, {300, 1, 20});
    MemoryStream stream;
    block.Write(&stream);
    ASSERT_GE(stream.m_WriteSizes.size(), 3U);
    const std::vector<unsigned long> last(stream.m_WriteSizes.end() - 3, stream.m_WriteSizes.end());
    EXPECT_EQ(last, (std::vector<unsigned long>{300, 1, 20}));
}

TYPED_TEST(AnyBlock, UsesNoIdentifierOfItsFrames) {
    auto block = MakeBlock<TypeParam>(0xA3, 1, {2});
    block.m_Frames.front().m_ID = 0xAE;
    EXPECT_TRUE(SameOctets(Written(block), Hex("A3 86 81 0000 00 0101")));
}

// ---- lacing

struct LaceRow {
    const char* m_Reason;
    std::vector<std::size_t> m_Frames;
    const char* m_Lacing; // the flags and what follows them, in front of the frames
};

const LaceRow kLaceRows[] = {
    {"no frames", {}, "00"},
    {"one is not laced", {300}, "00"},
    {"one without octets", {0}, "00"},
    {"the number itself, not one less", {1, 1}, "02 02 01"},
    {"the last size is left out", {1, 300}, "02 02 01"},
    {"empty", {0, 1}, "02 02 00"},
    {"largest in one octet", {254, 1}, "02 02 FE"},
    {"smallest in two", {255, 1}, "02 02 FF00"},
    {"256", {256, 1}, "02 02 FF01"},
    {"300 and 20", {300, 20}, "02 02 FF2D"},
    {"largest in two", {509, 1}, "02 02 FFFE"},
    {"smallest in three", {510, 1}, "02 02 FFFF00"},
    {"three frames", {255, 3, 4}, "02 03 FF00 03"},
    {"empty ones", {0, 0, 0}, "02 03 00 00"},
};

TEST(CBlock, LacesTwoFramesAndMore) {
    for (const LaceRow& row : kLaceRows) {
        const auto block = MakeBlock<CBlock>(0xA1, 1, row.m_Frames);
        const Octets payload = Join({Hex("81 0000"), Hex(row.m_Lacing), FrameOctets(row.m_Frames)});
        EXPECT_TRUE(SameOctets(Written(block), Element("A1", payload))) << row.m_Reason;
        EXPECT_EQ(block.Size(false), payload.size()) << row.m_Reason;
    }
    EXPECT_EQ(MakeBlock<CBlock>(0xA1, 1, {300, 20}).Size(false), 327U);
}

TEST(CBlock, HasATrackNumberOfAnyWidth) {
    const struct {
        std::uint64_t m_Track;
        const char* m_Octets;
    } rows[] = {
        {0, "A1 85 80 0102 00 AA"},
        {126, "A1 85 FE 0102 00 AA"},
        {127, "A1 86 407F 0102 00 AA"},
        {std::uint64_t{1} << 48, "A1 8B 03000000000000 0102 00 AA"},
        {(std::uint64_t{1} << 56) - 1, "A1 8C 01FFFFFFFFFFFFFF 0102 00 AA"},
        {std::uint64_t{1} << 56, "A1 84 0102 00 AA"}, // has no such form
    };
    for (const auto& row : rows) {
        CBlock block(0xA1);
        block.m_TrackNumber.m_Length = row.m_Track;
        block.m_Timecode = 0x102;
        block.m_Frames.emplace_back(0).m_Data = Hex("AA");
        EXPECT_TRUE(SameOctets(Written(block), Hex(row.m_Octets))) << row.m_Track;
    }
}

TEST(CBlock, HasTheLongestPossibleStart) {
    CBlock block(0x1A45DFA3);
    block.m_TrackNumber.m_Length = (std::uint64_t{1} << 56) - 1;
    block.m_Frames.emplace_back(0).m_Data = Repeated(3 << 20, 0xAA);
    Octets start = Written(block);
    start.resize(19);
    EXPECT_TRUE(SameOctets(start, Hex("1A45DFA3 1030000B 01FFFFFFFFFFFFFF 0000 00")));
}

TEST(CBlock, LacesAFrameWhoseSizeTakesMoreThan65535Octets) {
    const std::size_t large = 255 * 65536;
    CBlock block(0xA1);
    block.m_TrackNumber.m_Length = 1;
    block.m_Frames.emplace_back(0).m_Data = Repeated(large, 1);
    block.m_Frames.emplace_back(0).m_Data = Repeated(2, 2);
    const Octets expected =
        Join({Hex("81 0000 02 02"), Repeated(65536, 0xFF), Hex("00"), Repeated(large, 1), Hex("02 02")});
    const Octets written = Written(block);
    ASSERT_EQ(written.size(), 1 + 4 + expected.size());
    EXPECT_TRUE(Octets(written.begin() + 5, written.end()) == expected);
}

TEST(SimpleBlock, CountsLacingButWritesNone) {
    for (const LaceRow& row : kLaceRows) {
        const auto block = MakeBlock<SimpleBlock>(0xA3, 1, row.m_Frames);
        const Octets frames = FrameOctets(row.m_Frames);
        const std::size_t counted = 3 + Hex(row.m_Lacing).size() + frames.size();
        EXPECT_EQ(block.Size(false), counted) << row.m_Reason;
        EXPECT_EQ(block.Size(true), counted + 1 + LengthOctets(counted).size()) << row.m_Reason;
        EXPECT_TRUE(SameOctets(Written(block), Join({Hex("A3"), LengthOctets(counted), Hex(kPlainStart), frames})))
            << row.m_Reason;
    }
}

TEST(SimpleBlock, CarriesItsKeyFlag) {
    auto block = MakeBlock<SimpleBlock>(0xA3, 1, {10});
    EXPECT_EQ(block.m_Keyframe, 0U);
    for (const std::uint32_t key : {1U, 2U, 0x80000000U}) {
        block.m_Keyframe = key;
        EXPECT_TRUE(SameOctets(Written(block), Hex("A3 8E 81 0000 80 01010101010101010101"))) << key;
    }
    block.m_Keyframe = 0;
    EXPECT_TRUE(SameOctets(Written(block), Hex("A3 8E 81 0000 00 01010101010101010101")));
}

// ---- groups and clusters

TEST(BlockGroup, Members) {
    ExpectMembers<BlockGroup>(BlockGroup(0xA0), "A0",
                              {{"9B 81 28", &BlockGroup::m_BlockDuration, 40},
                               {"FA 81 01", &BlockGroup::m_ReferencePriority, 1},
                               {"FB 81 D8", &BlockGroup::m_ReferenceBlock, -40},
                               {"FD 82 FF7F", &BlockGroup::m_ReferenceVirtual, -129},
                               {"A4 82 0102", &BlockGroup::m_CodecState, "0102"}},
                              Hex("A1 84 80 0000 00"));
}

TEST(Cluster, Members) {
    ExpectMembers<Cluster>(Cluster(0x1F43B675), "1F43B675",
                           {{"E7 81 00", &Cluster::m_Timecode, 0},
                            {"A7 82 1003", &Cluster::m_Position, 4099},
                            {"AB 82 0100", &Cluster::m_PrevSize, 256}});
}

TEST(Cluster, GroupsStandInFrontOfSimpleBlocks) {
    Cluster cluster(0x1F43B675);
    const auto addGroup = [&](unsigned track) {
        cluster.m_BlockGroups.emplace_back(0xA0).m_Block.m_TrackNumber.m_Length = track;
    };
    const auto addSimple = [&](unsigned track) {
        cluster.m_SimpleBlocks.emplace_back(0xA3).m_TrackNumber.m_Length = track;
    };
    addSimple(1);
    addGroup(2);
    addSimple(3);
    addGroup(4);
    Put(cluster.m_Timecode, 1000);
    EXPECT_TRUE(SameOctets(Written(cluster), Hex("1F43B675 A0 E7 82 03E8"
                                                 "A0 86 A1 84 82 0000 00 A0 86 A1 84 84 0000 00"
                                                 "A3 84 81 0000 00 A3 84 83 0000 00")));
}

} // namespace
