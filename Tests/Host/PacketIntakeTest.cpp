// SPDX-License-Identifier: MIT
// From a host's frame to queued blocks: times, references, H.264 units, packed audio, private data from first frames.
#include "HostTest.h"

namespace {

using PacketIntake = HostTest;

std::vector<Octets> Frames(const std::vector<Ebml::Block>& blocks) {
    std::vector<Octets> frames;
    for (const Ebml::Block& block : blocks) frames.push_back(block.m_Frame);
    return frames;
}

std::vector<std::int64_t> Times(const std::vector<Ebml::Block>& blocks) {
    std::vector<std::int64_t> times;
    for (const Ebml::Block& block : blocks) times.push_back(block.Time());
    return times;
}

TEST_F(PacketIntake, ADeltaFrameRefersToTheFrameBefore) {
    for (const bool key : {false, true}) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
        EXPECT_EQ(session.Video(Hex("01"), 0, 400000, kKey), 1);
        EXPECT_EQ(session.Video(Hex("02 03"), 400000, 400000, key ? kKey : kDelta), 2);
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        ASSERT_EQ(blocks.size(), 2U);
        EXPECT_EQ(blocks[1].m_RelativeTime, 40);
        EXPECT_EQ(blocks[1].m_Frame, Hex("02 03"));
        EXPECT_FALSE(blocks[0].m_Reference.has_value());
        EXPECT_EQ(blocks[1].m_Reference.has_value(), !key);
        EXPECT_EQ(blocks[1].m_Reference.value_or(-40), -40);
    }
}

TEST_F(PacketIntake, ReferencesToTheOctet) {
    const std::int64_t ms = kMillisecond;
    const struct {
        const char* m_What;
        std::int64_t m_Before, m_Start; // the frame before and this one
        std::uint32_t m_Flags;
        const char* m_Reference; // payload, or null for none
    } rows[] = {
        {"key frame of a new time", 0, 400000, kKey, nullptr},
        {"any flag is a key flag", 0, 400000, 0x80000000, nullptr},
        {"key frame of the same time", 400000, 400000, kKey, "00"},
        {"delta frame of the same time", 400000, 400000, kDelta, "00"},
        {"-4999 units", 0, 4999, kDelta, "00"},
        {"-5000 units, half away from zero", 0, 5000, kDelta, "FF"},
        {"-15000 units", 0, 15000, kDelta, "FE"},
        {"4999 units", 40000, 40000 - 4999, kDelta, "00"},
        {"5000 units, half away from zero", 40000, 40000 - 5000, kDelta, "01"},
        {"40 ms back", 400000, 0, kDelta, "28"},
        {"127", 127 * ms, 0, kDelta, "7F"},
        {"128 has no octet for its sign", 128 * ms, 0, kDelta, "80"},
        {"-128", 0, 128 * ms, kDelta, "80"},
        {"-129", 0, 129 * ms, kDelta, "FF 7F"},
        {"-255", 0, 255 * ms, kDelta, "FF 01"},
        // Two octets, and bit 8 of ...FF00 is set.
        {"-256", 0, 256 * ms, kDelta, "FF 00"},
        // -257 is ...FEFF: bit 8 is clear, so one octet more.
        {"-257", 0, 257 * ms, kDelta, "FF FE FF"},
        {"-33000 loses its sign", 0, 33000 * ms, kDelta, "7F 18"},
        {"nothing before time zero is referred to", -1, 400000, kDelta, nullptr},
        {"but zero is", 0, 400000, kDelta, "D8"},
    };
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
        session.m_Times = Ebml::Times::Lagging;
        session.Video(Hex("01"), row.m_Before, 1, kKey);
        session.Video(Hex("02"), row.m_Start, 1, row.m_Flags);
        const Ebml::File file = session.Finish();
        const std::vector<const Ebml::Element*> clusters = file.Children("Segment", "Cluster");
        const std::string group = clusters.size() == 1 ? "Segment/Cluster[0]/BlockGroup[1]/ReferenceBlock"
                                                       : "Segment/Cluster[1]/BlockGroup[0]/ReferenceBlock";
        EXPECT_EQ(file.Has(group), row.m_Reference != nullptr) << row.m_What;
        if (row.m_Reference != nullptr) {
            EXPECT_EQ(file.Payload(group), Hex(row.m_Reference)) << row.m_What;
        }
    }
}

TEST_F(PacketIntake, TheFirstFrameRefersToNothing) {
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
    session.Video(Hex("01"), 400000, 400000, kDelta);
    EXPECT_FALSE(session.Finish().Blocks()[0].m_Reference.has_value());
}

TEST_F(PacketIntake, AFrameOfNoOctetsChangesNoState) {
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
    session.Video(Hex("01"), 0, 400000, kKey);
    EXPECT_EQ(session.Video({}, 400000, 400000, kDelta), 0);
    session.Video(Hex("02"), 800000, 400000, kDelta);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_EQ(blocks[1].m_Reference, -80) << "the empty frame is no frame before";
}

TEST_F(PacketIntake, TimesAreRoundedToMilliseconds) {
    const struct {
        std::int64_t m_Start;
        std::int64_t m_Time;
    } rows[] = {
        {4999, 0},   {5000, 1},    {14999, 1},   {15000, 2},   {-1, 0},          {-5001, 0},
        {-14999, 0}, {-15000, -1}, {-24999, -1}, {-25000, -2}, {10000000, 1000}, {10004999, 1000},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {kMkv, MakeFourCC("WEBM")}) {
            HostSession session(m_Plugin, MakeVideoJob(format, MakeFourCC("Xvid")));
            session.m_Times = Ebml::Times::Lagging;
            session.Video(Hex("01"), 0, 1);
            session.Video(Hex("02"), row.m_Start, 1);
            EXPECT_EQ(Times(session.Finish().Blocks()), (std::vector<std::int64_t>{0, row.m_Time})) << row.m_Start;
        }
    }
}

// H.264 in start-code form, one frame at a time.

struct UnitRow {
    const char* m_What;
    const char* m_Frame;
    int m_Result;
    std::vector<const char*> m_Blocks; // on the path that makes a block of each slice
    const char* m_After;               // the host's buffer
};

const UnitRow kUnitRows[] = {
    {"sets are dropped and left alone",
     "00 00 00 01 67 42 C0 00 00 00 01 68 CE 00 00 00 01 65 88 84 21",
     8,
     {"00 00 00 04 65 88 84 21"},
     "00 00 00 01 67 42 C0 00 00 00 01 68 CE 00 00 00 04 65 88 84 21"},
    {"several slices",
     "00 00 00 01 65 01 00 00 00 01 65 02 03 00 00 00 01 41",
     18,
     {"00 00 00 02 65 01", "00 00 00 03 65 02 03", "00 00 00 01 41"},
     "00 00 00 02 65 01 00 00 00 03 65 02 03 00 00 00 01 41"},
    {"3-octet start codes stay inside",
     "00 00 00 01 65 01 00 00 01 41 02",
     11,
     {"00 00 00 07 65 01 00 00 01 41 02"},
     "00 00 00 07 65 01 00 00 01 41 02"},
    {"only 3-octet start codes: one unit, whose type is its fifth octet",
     "00 00 01 65 01 02",
     6,
     {"00 00 00 02 01 02"},
     "00 00 00 02 01 02"},
    {"only parameter sets", "00 00 00 01 67 42 00 00 00 01 68 CE", 0, {}, "00 00 00 01 67 42 00 00 00 01 68 CE"},
    {"no start code, the fifth octet is a slice's", "AA BB CC DD 65 EE", 6, {"00 00 00 02 65 EE"}, "00 00 00 02 65 EE"},
    {"no start code and no slice", "AA BB CC DD 06 EE", 0, {}, "AA BB CC DD 06 EE"},
    {"garbage before the first start code goes along",
     "AA BB 00 00 00 01 65 EE",
     8,
     {"AA BB 00 00 00 04 65 EE"},
     "AA BB 00 00 00 04 65 EE"},
    // The search for the next start code begins four octets on, and finds the first one again: the unit's length is
    // the garbage's, its type is the slice's. Its length covers the start code, so the rest is one unit without any.
    {"four octets of garbage",
     "AA BB CC DD 00 00 00 01 65 EE",
     10,
     {"AA BB CC DD", "00 00 00 02 65 EE"},
     "AA BB CC DD 00 00 00 02 65 EE"},
    {"six octets of garbage",
     "AA BB CC DD EE FF 00 00 00 01 65 EE 77",
     13,
     {"AA BB CC DD EE FF", "00 00 00 03 65 EE 77"},
     "AA BB CC DD EE FF 00 00 00 03 65 EE 77"},
    {"six octets of garbage before a set",
     "AA BB CC DD EE FF 00 00 00 01 67 EE 77",
     0,
     {},
     "AA BB CC DD EE FF 00 00 00 01 67 EE 77"},
    {"more zeros than a start code has", "00 00 00 00 00 01 65", 7, {"00 00 00 00 00 03 65"}, "00 00 00 00 00 03 65"},
    {"start code at the end: its type would lie past the end",
     "00 00 00 01 65 01 00 00 00 01",
     6,
     {"00 00 00 02 65 01"},
     "00 00 00 02 65 01 00 00 00 01"},
    {"nothing but a start code", "00 00 00 01", 0, {}, "00 00 00 01"},
    {"garbage, then nothing but a start code", "65 00 00 00 01", 0, {}, "65 00 00 00 01"},
    {"two start codes in a row", "00 00 00 01 00 00 00 01 65", 5, {"00 00 00 01 65"}, "00 00 00 01 00 00 00 01 65"},
    {"four octets without a type", "65 65 65 65", 0, {}, "65 65 65 65"},
    {"one octet", "65", 0, {}, "65"},
    {"a type and no more", "00 00 00 01 41", 5, {"00 00 00 01 41"}, "00 00 00 01 41"},
    {"half a start code at the end",
     "00 00 00 01 41 00 00 00",
     8,
     {"00 00 00 04 41 00 00 00"},
     "00 00 00 04 41 00 00 00"},
};

TEST_F(PacketIntake, EachSliceBecomesABlockOfItsOwn) {
    const struct {
        FourCC m_Format;
        FourCC m_Video;
    } jobs[] = {{kMkv, MakeFourCC("N264")},
                {kMkv, MakeFourCC("A264")},
                {kMkv, MakeFourCC("I264")},
                {MakeFourCC("WEBM"), MakeFourCC("N264")},
                {MakeFourCC("WEBM"), MakeFourCC("A264")}};
    for (const auto& job : jobs) {
        for (const UnitRow& row : kUnitRows) {
            HostSession session(m_Plugin, MakeVideoJob(job.m_Format, job.m_Video));
            EXPECT_EQ(session.Video(Hex(row.m_Frame), 0, 400000, kDelta), row.m_Result) << row.m_What;
            EXPECT_EQ(session.m_HostBuffer, Hex(row.m_After)) << row.m_What;
            std::vector<Octets> expected;
            for (const char* block : row.m_Blocks) expected.push_back(Hex(block));
            const Octets file = session.Close();
            EXPECT_EQ(file.empty(), expected.empty()) << row.m_What;
            EXPECT_EQ(Frames(Ebml::File(file).Blocks()), expected) << row.m_What;
        }
    }
}

TEST_F(PacketIntake, SlicesOfOnePictureAndTheNext) {
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("N264")));
    session.Video(Hex("00 00 00 01 65 01 00 00 00 01 65 02"), 0, 400000, kDelta);
    session.Video(Hex("00 00 00 01 41 03 00 00 00 01 41 04"), 400000, 400000, kKey);
    session.Video(Hex("00 00 00 01 25 05"), 800000, 400000, kDelta);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    EXPECT_EQ(Times(blocks), (std::vector<std::int64_t>{0, 0, 40, 40, 80}));
    ASSERT_EQ(blocks.size(), 5U);
    EXPECT_FALSE(blocks[0].m_Reference.has_value());
    EXPECT_EQ(blocks[1].m_Reference, 0); // the same start time
    EXPECT_EQ(blocks[2].m_Reference, -40);
    EXPECT_EQ(blocks[3].m_Reference, 0);
    EXPECT_FALSE(blocks[4].m_Reference.has_value()); // the unit's type makes the key frame
}

// Codes whose numbers lie around those of H.264 in start-code form.
TEST_F(PacketIntake, OtherCodesAreTakenAsTheyStand) {
    const Octets frame = Hex("00 00 00 01 65 11");
    for (const FourCC code :
         {MakeFourCC("0264"), MakeFourCC("@264"), MakeFourCC("B264"), MakeFourCC("M264"), MakeFourCC("O264"),
          MakeFourCC("J264"), MakeFourCC("AVC1"), MakeFourCC("havc"), FourCC{0}, FourCC{0xFFFFFFFF}}) {
        for (const FourCC format : {kMkv, MakeFourCC("WEBM")}) {
            HostSession session(m_Plugin, MakeVideoJob(format, code));
            EXPECT_EQ(session.Video(frame, 0, 400000), 6) << code;
            EXPECT_EQ(session.m_HostBuffer, frame) << code;
        }
    }
    // I264 is H.264 in Matroska alone.
    HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("WEBM"), MakeFourCC("I264")));
    EXPECT_EQ(session.Video(frame, 0, 400000), 6);
    EXPECT_EQ(session.m_HostBuffer, frame);
}

TEST_F(PacketIntake, TypesThatAreKept) {
    for (unsigned type = 0; type < 32; ++type) {
        for (const unsigned importance : {0x00U, 0x60U, 0x80U}) {
            const Octets frame = Hex("00 00 00 01") + Octets{static_cast<unsigned char>(type | importance), 0x11};
            const Octets block = Hex("00 00 00 02") + Octets{static_cast<unsigned char>(type | importance), 0x11};

            HostSession slices(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("N264")));
            const bool isSlice = type == 1 || type == 5;
            EXPECT_EQ(slices.Video(frame, 0, 1), isSlice ? 6 : 0) << type;
            EXPECT_EQ(slices.m_HostBuffer, isSlice ? block : frame) << type;

            HostSession lossless(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
            const bool isKept = isSlice || type == 7 || type == 8 || type == 9;
            EXPECT_EQ(lossless.Video(frame, 0, 1), isKept ? 6 : 0) << type;
            EXPECT_EQ(lossless.m_HostBuffer, isKept ? block : frame) << type;
        }
    }
}

TEST_F(PacketIntake, TheLosslessPathWritesTheKeptUnitsAsOneBlock) {
    for (const bool key : {false, true}) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
        session.Video(Hex("00 00 00 01 65 00"), 0, 1, kKey);
        EXPECT_EQ(session.Video(Hex("00 00 00 01 67 42 C0 00 00 00 01 68 CE 00 00 00 01 06 11 00 00 00 01 65 88 84"),
                                400000, 400000, key ? kKey : kDelta),
                  7 + 6 + 7);
        EXPECT_EQ(session.m_HostBuffer,
                  Hex("00 00 00 03 67 42 C0 00 00 00 02 68 CE 00 00 00 01 06 11 00 00 00 03 65 88 84"));
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        ASSERT_EQ(blocks.size(), 2U);
        EXPECT_EQ(blocks[1].m_Frame, Hex("00 00 00 03 67 42 C0 00 00 00 02 68 CE 00 00 00 03 65 88 84"));
        EXPECT_EQ(blocks[1].m_Reference.has_value(), !key) << "the host's flags decide";
    }
}

TEST_F(PacketIntake, TheLosslessPathOfEveryRow) {
    for (const UnitRow& row : kUnitRows) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
        session.Video(Hex("00 00 00 01 09 F0"), 0, 1, kKey); // a start code: lossless from here on
        // Sets are kept as well here, which the rows do not tell; those have tests of their own.
        if (std::string(row.m_Frame).find(" 67 ") != std::string::npos) continue;
        EXPECT_EQ(session.Video(Hex(row.m_Frame), 400000, 1), row.m_Result) << row.m_What;
        EXPECT_EQ(session.m_HostBuffer, Hex(row.m_After)) << row.m_What;
        Octets expected;
        for (const char* block : row.m_Blocks) expected = expected + Hex(block);
        const std::vector<Octets> frames = Frames(session.Finish().Blocks());
        ASSERT_EQ(frames.size(), expected.empty() ? 1U : 2U) << row.m_What;
        EXPECT_EQ(frames.back(), expected.empty() ? Hex("00 00 00 02 09 F0") : expected) << row.m_What;
    }
}

TEST_F(PacketIntake, TheFirstFrameDecidesAboutTheLosslessPath) {
    const Octets later = Hex("00 00 00 01 06 11 00 00 00 01 65 22");
    const struct {
        const char* m_What;
        FourCC m_FourCC;
        Octets m_First;
        bool m_Lossless;
    } rows[] = {
        {"lengths", MakeFourCC("H264"), Hex("00 00 00 02 65 88"), false},
        {"3-octet start codes", MakeFourCC("H264"), Hex("00 00 01 65 88 01"), false},
        {"a start code in the middle", MakeFourCC("H264"), Hex("00 00 00 02 65 88 00 00 00 01 65"), true},
        {"a start code at the end", MakeFourCC("H264"), Hex("00 00 00 02 65 88 00 00 00 01"), true},
        {"three of its four octets at the end", MakeFourCC("H264"), Hex("00 00 00 02 65 88 00 00 00"), false},
        {"no octets at all", MakeFourCC("H264"), {}, false},
        {"another codec", MakeFourCC("h264"), Hex("00 00 00 01 65 88"), false},
        {"another codec of that kind", MakeFourCC("havc"), Hex("00 00 00 01 65 88"), false},
        {"a code whose number is below", MakeFourCC("AVC1"), Hex("00 00 00 01 65 88"), false},
        {"a code just below", MakeFourCC("G264"), Hex("00 00 00 01 65 88"), false},
    };
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, row.m_FourCC));
        session.Video(row.m_First, 0, 400000);
        EXPECT_EQ(session.Video(later, 400000, 400000), row.m_Lossless ? 6 : 12) << row.m_What;
        EXPECT_EQ(session.m_HostBuffer, row.m_Lossless ? Hex("00 00 00 01 06 11 00 00 00 02 65 22") : later)
            << row.m_What;
        EXPECT_EQ(session.Finish().Blocks().back().m_Frame, row.m_Lossless ? Hex("00 00 00 02 65 22") : later)
            << row.m_What;
    }
}

TEST_F(PacketIntake, TheLosslessBufferGrowsAndIsUsedAgain) {
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    std::vector<Octets> expected;
    int i = 0;
    for (const std::size_t size : {10U, 5000U, 3U, 70000U, 1U, 70000U}) {
        const Octets unit = Octets{0x65, static_cast<unsigned char>(i)} + Octets(size, static_cast<unsigned char>(i));
        const auto length = static_cast<std::uint32_t>(unit.size());
        expected.push_back(Octets{0, static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 8),
                                  static_cast<unsigned char>(length)} +
                           unit);
        EXPECT_EQ(session.Video(Hex("00 00 00 01") + unit, i++ * 400000, 400000), static_cast<int>(unit.size() + 4));
    }
    EXPECT_EQ(Frames(session.Finish().Blocks()), expected);
}

// Packed audio.

TEST_F(PacketIntake, PackedAudioIsSplit) {
    Octets data;
    for (int i = 0; i < 330; ++i) data.push_back(static_cast<unsigned char>(i));
    for (const FourCC format : {MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        EXPECT_EQ(session.PackedAudio(data, 0, 640000, {3, 100, 120, 110}), 330);
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        // 213333 and 426666 units round to 21 and 43 ms.
        EXPECT_EQ(Times(blocks), (std::vector<std::int64_t>{0, 21, 43}));
        EXPECT_EQ(Frames(blocks), (std::vector<Octets>{Octets(data.begin(), data.begin() + 100),
                                                       Octets(data.begin() + 100, data.begin() + 220),
                                                       Octets(data.begin() + 220, data.end())}));
        for (const Ebml::Block& block : blocks) EXPECT_FALSE(block.m_Reference.has_value());
    }
}

TEST_F(PacketIntake, PackedAudioOfOneUnitRepeatsStartTimes) {
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    // 2 x 0 / 3 = 0, 2 x 1 / 3 = 0, 2 x 2 / 3 = 1.
    EXPECT_EQ(session.PackedAudio(Hex("01 02 03"), 0, 2, {3, 1, 1, 1}), 3);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_FALSE(blocks[0].m_Reference.has_value());
    EXPECT_EQ(blocks[1].m_Reference, 0);
    EXPECT_FALSE(blocks[2].m_Reference.has_value());
}

TEST_F(PacketIntake, PackedAudioComputesIn32Bits) {
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    session.m_Times = Ebml::Times::Lagging;
    // 2^29 x i: 0, 2^29, 2^30, 3 x 2^29, then 2^31 = -2^31, 5 x 2^29 - 2^32 = -3 x 2^29; each divided by 6:
    // 0, 89478485, 178956970, 268435456, -357913941, -268435456 units.
    const std::int64_t start = 100 * kSecond;
    EXPECT_EQ(session.PackedAudio(Hex("01 02 03 04 05 06"), start, 1 << 29, {6, 1, 1, 1, 1, 1, 1}), 6);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    // From the first: 0, 8948, 17896, 26844 ms; then 1000000000 - 357913941 + 5000 = 642091059 units, 64209 ms, which
    // is 35791 before the first and dropped; then 731569544 units, 73156 ms, which is -26844.
    ASSERT_EQ(blocks.size(), 5U);
    EXPECT_EQ(blocks[1].Time(), 8948);
    EXPECT_EQ(blocks[2].Time(), 17896);
    EXPECT_EQ(blocks[3].Time(), 26844);
    EXPECT_EQ(blocks[3].m_ClusterTime, 26000U);
    EXPECT_EQ(blocks[4].m_Frame, Hex("06"));
    // -26844 - 26000 = -52844, of which 16 bits are written.
    EXPECT_EQ(blocks[4].m_ClusterTime, 26000U);
    EXPECT_EQ(blocks[4].m_RelativeTime, 65536 - 52844);
}

TEST_F(PacketIntake, PackedAudioWithoutFrames) {
    for (const int count : {0, -1, INT32_MIN}) {
        HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
        EXPECT_EQ(session.PackedAudio(Hex("01 02 03"), 0, 400000, {count, 1, 1, 1}), 0);
        EXPECT_TRUE(session.Close().empty());
    }
}

TEST_F(PacketIntake, PackedAudioWithEmptyFrames) {
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    EXPECT_EQ(session.PackedAudio(Hex("01 02 03"), 0, 400000, {4, 1, 0, 2, 0}), 3);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    EXPECT_EQ(Frames(blocks), (std::vector<Octets>{Hex("01"), Hex("02 03")}));
    EXPECT_EQ(Times(blocks), (std::vector<std::int64_t>{0, 20}));
}

// Private data from the first frame.

const char* const kSequenceHeader = "00 00 01 B3 01 02 03 04 05 06 07 08 09 0A 0B 0C "; // 16 octets
const char* const kExtension = "00 00 01 B5 11 12 13 14 15 16 ";                        // 10 octets
const char* const kGroup = "00 00 01 B8 21 22 ";

TEST_F(PacketIntake, MpegSequenceHeaders) {
    const std::string header = kSequenceHeader;
    const std::string extension = kExtension;
    const std::string group = kGroup;
    const struct {
        const char* m_What;
        std::string m_Frame;
        std::string m_Private;
    } rows[] = {
        {"header, extension, group", header + extension + group, header + extension},
        {"header, group", header + group, header},
        {"header, picture", header + "00 00 01 00 AA", header},
        {"up to the frame's end", header + extension, header + extension},
        {"two extensions", header + extension + extension + group, header + extension + extension},
        {"octets before it", "AA BB " + header + group, header},
        {"another start code before it ends nothing", group + header + extension + group, header + extension},
        {"an extension before it", extension + header + group, header},
        {"a later header moves the start", header + extension + header + group + header, header},
        {"4-octet start codes keep the zero", header + "00 " + group, header + "00 "},
        {"the header's start code alone", "AA 00 00 01 B3", "00 00 01 B3"},
        {"a start code cut off after it", header + "00 00 01", header + "00 00 01"},
        {"a start code cut off before its code", "00 00 01 ", ""},
        {"none", group + extension, ""},
        {"shorter than a start code", "00 00 01", ""},
    };
    for (const auto& row : rows) {
        for (const FourCC codec : {MakeFourCC("MP1V"), MakeFourCC("MP2V")}) {
            for (const FourCC format : {kMkv, MakeFourCC("WEBM")}) {
                HostSession session(m_Plugin, MakeVideoJob(format, codec));
                session.Video(Hex(row.m_Frame.c_str()), 0, 400000);
                const Ebml::File file = session.Finish();
                EXPECT_EQ(file.Has(kPrivate), !row.m_Private.empty()) << row.m_What;
                if (!row.m_Private.empty()) {
                    EXPECT_EQ(file.Payload(kPrivate), Hex(row.m_Private.c_str())) << row.m_What;
                }
            }
        }
    }
}

TEST_F(PacketIntake, TheExampleOf26Octets) {
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("MP2V")));
    const Octets frame = Hex(kSequenceHeader) + Hex(kExtension) + Hex(kGroup);
    session.Video(frame, 0, 400000);
    EXPECT_EQ(session.Finish().Payload(kPrivate), Octets(frame.begin(), frame.begin() + 26));
}

TEST_F(PacketIntake, ALaterFrameGivesWhatTheFirstDidNotHave) {
    // Up to the fifth frame, which is queued before Tracks is written; not from the sixth, when its size is settled.
    for (int with = 0; with < 7; ++with) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("MP2V")));
        for (int i = 0; i < 7; ++i) {
            session.Video(i == with ? Hex(kSequenceHeader) + Hex(kGroup) : Hex(kGroup), i * 400000, 400000);
        }
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.Has(kPrivate), with < 5) << with;
        if (with < 5) {
            EXPECT_EQ(file.Payload(kPrivate), Hex(kSequenceHeader)) << with;
        }
    }
}

// When writing starts. Whether Tracks is in the file shows in set-up data for AAC: 2 octets before, 1024 after.

bool TracksAreWritten(HostSession& session) {
    session.VosData(Hex("12 10"));
    const Ebml::File file = session.Finish();
    const std::size_t size = file.At("Segment/Tracks/TrackEntry[1]/CodecPrivate").m_PayloadSize;
    EXPECT_TRUE(size == 2 || size == 1024) << size;
    return size == 1024;
}

TEST_F(PacketIntake, WritingStartsWhenBothKindsHaveComeAndFiveBlocksWait) {
    const struct {
        const char* m_What;
        const char* m_Calls; // v: video, a: audio, each with one block; V, A: frames of no octets; p: five audio frames
        bool m_Written;
    } rows[] = {
        {"one kind only", "aaaaaaaaaaaa", false},
        {"the other kind, one block of it", "aaaaaaaaaaaav", false},
        {"then the long queue's next", "aaaaaaaaaaaava", true},
        {"video's fifth", "avvvvv", true},
        {"video's fourth", "avvvv", false},
        {"audio's fifth", "vaaaaa", true},
        {"audio's fourth", "vaaaa", false},
        {"four of each", "avavavav", false},
        {"five of one, four of the other", "avavavava", true},
        {"a frame of no octets does not start its kind", "Vaaaaaaaa", false},
        {"nor does it start writing", "avvvvV", false},
        {"audio of no octets", "Avvvvvva", false},
        {"audio of no octets, then more video", "Avvvvvvav", true},
        {"five packed frames at once", "vp", true},
    };
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeJob(kMkv, MakeFourCC("Xvid"), MakeFourCC("AAC ")));
        for (const char* call = row.m_Calls; *call != '\0'; ++call) {
            const std::int64_t at = (call - row.m_Calls) * 20 * kMillisecond;
            switch (*call) {
            case 'v':
                EXPECT_EQ(session.Video(Hex("01"), at, 200000), 1);
                break;
            case 'V':
                EXPECT_EQ(session.Video({}, at, 200000), 0);
                break;
            case 'a':
                EXPECT_EQ(session.Audio(Hex("21"), at, 200000), 1);
                break;
            case 'A':
                EXPECT_EQ(session.Audio({}, at, 200000), 0);
                break;
            default:
                EXPECT_EQ(session.PackedAudio(Hex("21 22 23 24 25"), at, 200000, {5, 1, 1, 1, 1, 1}), 5);
            }
        }
        EXPECT_EQ(TracksAreWritten(session), row.m_Written) << row.m_What;
    }
}

TEST_F(PacketIntake, EachWayOfTakingAFrameStartsWriting) {
    const struct {
        const char* m_What;
        FourCC m_Format;
        FourCC m_Video;
        const char* m_Frame;
        int m_Frames; // that it takes
    } rows[] = {
        {"as it stands", kMkv, MakeFourCC("Xvid"), "01", 5},
        {"slices, one to a frame", kMkv, MakeFourCC("N264"), "00 00 00 01 65 11", 5},
        {"slices, five to a frame", kMkv, MakeFourCC("N264"),
         "00 00 00 01 65 11 00 00 00 01 65 12 00 00 00 01 65 13 00 00 00 01 65 14 00 00 00 01 65 15", 1},
        {"rewritten whole", kMkv, MakeFourCC("H264"), "00 00 00 01 65 11", 5},
        {"H.264 with lengths", kMkv, MakeFourCC("H264"), "00 00 00 02 65 11", 5},
        {"WebM, as it stands", MakeFourCC("WEBM"), MakeFourCC("VP8 "), "01", 1},
        {"WebM, slices", MakeFourCC("WEBM"), MakeFourCC("N264"), "00 00 00 01 65 11", 1},
        {"WebM, slices of the other code", MakeFourCC("WEBM"), MakeFourCC("A264"), "00 00 00 01 65 11", 1},
    };
    for (const auto& row : rows) {
        for (const bool written : {false, true}) {
            HostSession session(m_Plugin, MakeJob(row.m_Format, row.m_Video, MakeFourCC("AAC ")));
            EXPECT_EQ(session.Audio(Hex("21"), 0, 200000), 1);
            for (int i = 0; i < row.m_Frames - (written ? 0 : 1); ++i) {
                EXPECT_GT(session.Video(Hex(row.m_Frame), i * 400000, 400000), 0) << row.m_What;
            }
            EXPECT_EQ(TracksAreWritten(session), written) << row.m_What;
        }
    }
}

} // namespace
