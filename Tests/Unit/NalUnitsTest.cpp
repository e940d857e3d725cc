// SPDX-License-Identifier: MIT
#include "NalUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <random>

#include "SameOctets.h"
#include "VideoModels.h"

namespace {

// ---- start codes

struct StartCodeRow {
    const char* m_Reason;
    const char* m_Octets;
    int m_Expected; // -1 for none
};

const StartCodeRow kStartCodeRows[] = {
    {"nothing", "", -1},
    {"three octets", "000001", -1},
    {"the code alone", "00000001", 0},
    {"the first of two", "AA 00000001 00000001", 1},
    {"at the very end", "AABBCC 00000001", 3},
    {"cut off", "AA 000000", -1},
    {"three octets are no code", "AA 000001 65", -1},
    {"the last four of five zeros and a one", "0000000001", 1},
    {"many zeros", "0000000000000001 65", 4},
    {"no one", "0000000000000000", -1},
    {"another last octet", "00000002 00000003", -1},
    {"an octet in between", "0000FF000001", -1},
};

TEST(FindStartCode, LooksThroughLargeFrames) {
    for (const std::size_t before : {65532U, 65533U, 65536U, 65540U, 70000U, 200000U}) {
        Octets octets = Octets(before, 0x02) + Hex("00 00 00 01 65");
        EXPECT_EQ(FindStartCode(octets.data(), static_cast<int>(octets.size())), octets.data() + before) << before;
        octets[before] = 2;
        EXPECT_EQ(FindStartCode(octets.data(), static_cast<int>(octets.size())), nullptr) << before;
    }
}

TEST(FindStartCode, Rows) {
    for (const StartCodeRow& row : kStartCodeRows) {
        const HostFrame frame(Hex(row.m_Octets));
        const unsigned char* const found = FindStartCode(frame.m_pData.get(), frame.m_Size);
        EXPECT_EQ(found != nullptr ? found - frame.m_pData.get() : -1, row.m_Expected) << row.m_Reason;
    }
}

TEST(FindStartCode, LooksAtNothingBehindTheLength) {
    Octets octets = Hex("AA 00000001");
    EXPECT_EQ(FindStartCode(octets.data(), 5), octets.data() + 1);
    EXPECT_EQ(FindStartCode(octets.data(), 4), nullptr);
    EXPECT_EQ(FindStartCode(octets.data() + 1, 3), nullptr);
    EXPECT_EQ(FindStartCode(octets.data() + 1, 0), nullptr);
    EXPECT_EQ(FindStartCode(octets.data() + 1, -1), nullptr);
    EXPECT_EQ(FindStartCode(octets.data() + 1, std::numeric_limits<int>::min()), nullptr);
    EXPECT_EQ(FindStartCode(nullptr, 4), nullptr);
}

// ---- splitting

bool KeepSlices(unsigned type) { return type == 1 || type == 5; }
bool KeepLossless(unsigned type) { return type == 1 || type == 5 || type == 7 || type == 8 || type == 9; }
bool KeepAll(unsigned) { return true; }
bool KeepNone(unsigned) { return false; }

TEST(NalUnits, TypesAreNamed) {
    EXPECT_EQ(kNalSlice, 1U);
    EXPECT_EQ(kNalIdrSlice, 5U);
    EXPECT_EQ(kNalSequenceSet, 7U);
    EXPECT_EQ(kNalPictureSet, 8U);
    EXPECT_EQ(kNalAccessUnitDelimiter, 9U);
}

struct SplitRow {
    const char* m_Reason;
    Keep m_Keep;
    const char* m_Frame;
    std::vector<const char*> m_Units;
    const char* m_After; // the host's frame
};

const SplitRow kSplitRows[] = {
    {"nothing", KeepAll, "", {}, ""},
    {"an IDR slice behind its parameter sets, alone",
     KeepSlices,
     "00000001 67AABB 00000001 68CC 00000001 65DDEEFF",
     {"00000004 65DDEEFF"},
     "00000001 67AABB 00000001 68CC 00000004 65DDEEFF"},
    {"with them",
     KeepLossless,
     "00000001 67AABB 00000001 68CC 00000001 65DDEEFF",
     {"00000003 67AABB", "00000002 68CC", "00000004 65DDEEFF"},
     "00000003 67AABB 00000002 68CC 00000004 65DDEEFF"},
    {"delimiter and SEI around a slice",
     KeepLossless,
     "00000001 09F0 00000001 0605 00000001 41AA",
     {"00000002 09F0", "00000002 41AA"},
     "00000002 09F0 00000001 0605 00000002 41AA"},
    {"two slices",
     KeepSlices,
     "00000001 65AA 00000001 65BB",
     {"00000002 65AA", "00000002 65BB"},
     "00000002 65AA 00000002 65BB"},
    {"only the low five bits are the type",
     KeepSlices,
     "00000001 E1 00000001 21 00000001 05",
     {"00000001 E1", "00000001 21", "00000001 05"},
     "00000001 E1 00000001 21 00000001 05"},
    {"three octets are no start code: they stay inside",
     KeepSlices,
     "00000001 65AA 000001 68BB 00000001 41CC",
     {"00000007 65AA00000168BB", "00000002 41CC"},
     "00000007 65AA00000168BB 00000002 41CC"},
    {"a zero in front of a start code belongs to the unit before",
     KeepSlices,
     "00000001 65 0000000001 41",
     {"00000002 6500", "00000001 41"},
     "00000002 6500 00000001 41"},
    {"without any start code the whole frame is one unit",
     KeepSlices,
     "AABBCCDD 65EE",
     {"00000002 65EE"},
     "00000002 65EE"},
    {"and is not kept when its type is not", KeepSlices, "AABBCCDD 67EE", {}, "AABBCCDD 67EE"},
    {"a few octets in front go with the first unit, counted in its length",
     KeepSlices,
     "AABB 00000001 65CC 00000001 41DD",
     {"AABB 00000004 65CC", "00000002 41DD"},
     "AABB 00000004 65CC 00000002 41DD"},
    {"of four octets in front the type is that of the unit behind, and the unit's own start code is gone",
     KeepSlices,
     "AABBCCDD 00000001 65EE",
     {"AABBCCDD", "00000002 65EE"},
     "AABBCCDD 00000002 65EE"},
    {"a frame too short for a type", KeepAll, "00000001", {}, "00000001"},
    {"shorter still", KeepAll, "AABB", {}, "AABB"},
    {"a start code at the end is left alone",
     KeepAll,
     "00000001 65AA 00000001",
     {"00000002 65AA"},
     "00000002 65AA 00000001"},
    {"octets in front of a start code at the end", KeepAll, "AABB 00000001", {}, "AABB 00000001"},
    {"two start codes in a row: the type is the second one's first octet",
     KeepAll,
     "00000001 00000001 65",
     {"00000000", "00000001 65"},
     "00000000 00000001 65"},
    {"nothing is kept, nothing is changed", KeepNone, "00000001 65AA", {}, "00000001 65AA"},
};

TEST(SplitNalUnits, Rows) {
    for (const SplitRow& row : kSplitRows) {
        const Split split = SplitBy(row.m_Keep, Hex(row.m_Frame));
        int total = 0;
        ASSERT_EQ(split.m_Units.size(), row.m_Units.size()) << row.m_Reason;
        for (std::size_t i = 0; i < row.m_Units.size(); ++i) {
            EXPECT_TRUE(SameOctets(split.m_Units[i], Hex(row.m_Units[i]))) << row.m_Reason << ", unit " << i;
            total += static_cast<int>(split.m_Units[i].size());
        }
        EXPECT_TRUE(SameOctets(split.m_Frame, Hex(row.m_After))) << row.m_Reason;
        EXPECT_EQ(split.m_Total, total) << row.m_Reason;
    }
}

TEST(SplitNalUnits, TakesNothingFromNoFrame) {
    const auto take = [](unsigned, const unsigned char*, int) { FAIL(); };
    unsigned char octets[] = {0, 0, 0, 1, 0x65};
    EXPECT_EQ(SplitNalUnits(nullptr, 5, KeepAll, take), 0);
    EXPECT_EQ(SplitNalUnits(octets, 0, KeepAll, take), 0);
    EXPECT_EQ(SplitNalUnits(octets, -5, KeepAll, take), 0);
    EXPECT_EQ(SplitNalUnits(octets, std::numeric_limits<int>::min(), KeepAll, take), 0);
}

// ---- the same, step by step as it is worded

Octets RandomFrame(std::mt19937& random, const Octets& alphabet, std::size_t largest) {
    Octets frame;
    const std::size_t size = random() % (largest + 1);
    while (frame.size() < size) {
        if (random() % 6 == 0) {
            frame.insert(frame.end(), {0, 0, 0, 1});
        } else {
            frame.push_back(alphabet[random() % alphabet.size()]);
        }
    }
    frame.resize(size);
    return frame;
}

const Octets kAlphabets[] = {Hex("00 01"), Hex("00 00 00 01 65"), Hex("00 00 01 01 41 65 67 68 06 09 02 FF")};

TEST(FindStartCode, IsTheModelForRandomFrames) {
    std::mt19937 random(5);
    for (const Octets& alphabet : kAlphabets) {
        for (int i = 0; i < 30000; ++i) {
            const Octets octets = RandomFrame(random, alphabet, 64);
            const HostFrame frame(octets);
            const unsigned char* const found = FindStartCode(frame.m_pData.get(), frame.m_Size);
            const auto position = found != nullptr ? found - frame.m_pData.get() : -1;
            if (position == ModelFindStartCode(octets, 0, frame.m_Size)) continue;
            ADD_FAILURE() << "found at " << position << " in " << testing::PrintToString(octets);
        }
    }
}

TEST(SplitNalUnits, IsTheModelForRandomFrames) {
    std::mt19937 random(6);
    for (const Octets& alphabet : kAlphabets) {
        for (int i = 0; i < 15000; ++i) {
            const Octets frame = RandomFrame(random, alphabet, 64);
            for (const Keep& keep : {Keep(KeepSlices), Keep(KeepLossless), Keep(KeepAll)}) {
                if (SplitBy(keep, frame) == ModelSplit(keep, frame)) continue;
                ADD_FAILURE() << testing::PrintToString(frame);
            }
        }
    }
}

// Every frame of zeros, ones and slices up to a size.
TEST(SplitNalUnits, IsTheModelForAllSmallFrames) {
    const Octets alphabet = Hex("00 01 65");
    for (std::size_t size = 0; size <= 9; ++size) {
        std::size_t frames = 1;
        for (std::size_t i = 0; i < size; ++i) frames *= alphabet.size();
        for (std::size_t number = 0; number < frames; ++number) {
            Octets frame;
            for (std::size_t rest = number; frame.size() < size; rest /= alphabet.size()) {
                frame.push_back(alphabet[rest % alphabet.size()]);
            }
            if (SplitBy(KeepSlices, frame) == ModelSplit(KeepSlices, frame)) continue;
            ADD_FAILURE() << testing::PrintToString(frame);
        }
    }
}

} // namespace
