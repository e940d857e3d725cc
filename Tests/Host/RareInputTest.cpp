// SPDX-License-Identifier: MIT
// Rare input, with a row for each kind: random sessions reach it by chance alone.
#include "HostTest.h"

#include <cmath>
#include <limits>

namespace {

using RareInput = HostTest;

// The record's own size, which a table of sizes does without when it is 0 or below.
TEST_F(RareInput, PackedAudioWithoutASizeOfItsOwnTrustsItsTable) {
    for (const FourCC format : kFormatOfEachMuxer) {
        for (const std::int32_t size : {0, -1, INT32_MIN}) {
            HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
            Octets octets = Hex("01 02 03 04 05 06");
            int sizes[] = {3, 2, 1, 3};
            MEDIA_FRAME frame{};
            frame.audioData = octets.data();
            frame.audioSize = size;
            frame.duration = 600000;
            EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, sizes), 6);
            const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
            ASSERT_EQ(blocks.size(), 3U) << size;
            EXPECT_EQ(blocks[0].m_Frame, Hex("01 02"));
            EXPECT_EQ(blocks[1].m_Frame, Hex("03"));
            EXPECT_EQ(blocks[2].m_Frame, Hex("04 05 06"));
            EXPECT_EQ(blocks[2].Time(), 40);
        }
    }
}

// The record's size is used up frame by frame: the first that would reach past it ends the list.
TEST_F(RareInput, PackedAudioEndsWithItsOctets) {
    const struct {
        const char* m_What;
        std::vector<int> m_Sizes;
        int m_Taken;
    } rows[] = {
        {"all of it", {2, 2, 2}, 4},
        {"the second is one too long", {2, 2, 3}, 2},
        {"the third has nothing left", {3, 2, 2, 1}, 4},
        {"a shorter one behind it does not count", {3, 3, 2, 1}, 3},
        {"one octet is left", {3, 2, 1, 1}, 4},
    };
    for (const auto& row : rows) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
            EXPECT_EQ(session.PackedAudio(Hex("01 02 03 04"), 0, 600000, row.m_Sizes), row.m_Taken) << row.m_What;
        }
    }
}

TEST_F(RareInput, SizesBelowZeroAreNoFramesAndMoveNothing) {
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        EXPECT_EQ(session.PackedAudio(Hex("01 02 03 04"), 0, 600000, {5, 2, -1, INT32_MIN, 1, 1}), 4);
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        ASSERT_EQ(blocks.size(), 3U);
        EXPECT_EQ(blocks[0].m_Frame, Hex("01 02"));
        EXPECT_EQ(blocks[1].m_Frame, Hex("03"));
        EXPECT_EQ(blocks[2].m_Frame, Hex("04"));
    }
}

// Each of two frames has half of the record's 0.9 ms: the last one ends at 0.9 ms, which rounds to 1.
TEST_F(RareInput, PackedAudioSharesItsDurationOut) {
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        EXPECT_EQ(session.PackedAudio(Hex("01 02"), 0, 9000, {2, 1, 1}), 2);
        EXPECT_EQ(session.Finish().Float("Segment/Info/Duration"), 1.0F);
    }
}

// 500 s are more units than 32 bits count.
TEST_F(RareInput, TheSoundsDurationsAddUpIn64Bits) {
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        for (int i = 0; i < 1000; ++i)
            session.Audio(Hex("21"), i * kSecond / 2, static_cast<std::int32_t>(kSecond / 2));
        EXPECT_EQ(session.Finish().Float("Segment/Info/Duration"), 500000.0F);
    }
}

// Around the millisecond at which a host's time passes 31 bits.
TEST_F(RareInput, StreamsAreInterleavedBeyond31Bits) {
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeJob(format, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
        const std::int64_t edge = (std::int64_t{1} << 31) * kMillisecond;
        session.Video(Hex("01"), edge - 10 * kMillisecond, 400000);
        session.Audio(Hex("02"), edge + 5 * kMillisecond, 400000);
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        ASSERT_EQ(blocks.size(), 2U);
        for (const Ebml::Block& block : blocks) {
            EXPECT_EQ(block.Time(), block.m_Track == 1 ? 0 : 15);
        }
    }
}

TEST_F(RareInput, NoRoomForTheVersionIsNone) { EXPECT_EQ(m_Plugin.GetMultiVersion(nullptr), 0); }

// A month has more milliseconds than 32 bits with a sign count.
TEST_F(RareInput, AMonthHasADuration) {
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeVideoJob(format, MakeFourCC("VP8 ")));
        session.Video(Hex("01"), 0, 400000);
        session.Video(Hex("02"), 30 * 86400 * kSecond, 400000);
        EXPECT_EQ(session.Finish().Float("Segment/Info/Duration"), 2592000000.0F);
    }
}

TEST_F(RareInput, AFrameWithoutASizeAndWithoutATableIsNone) {
    Octets octets = Hex("01 02");
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        MEDIA_FRAME frame{};
        frame.audioData = octets.data();
        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, nullptr), 0);
        EXPECT_TRUE(session.Close().empty());
    }
}

// Set-up data in which no sequence header is.

const char* const kHeader = "00 00 01 B3 01 02 03 04 05 06 07 08";
const char* const kNoHeader = "00 00 01 B5 AA 00 00 01 B8 BB 00 00 01";

TEST_F(RareInput, MpegSetUpDataWithoutASequenceHeaderStoresNothing) {
    for (const FourCC codec : {MakeFourCC("MP1V"), MakeFourCC("MP2V")}) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession kept(m_Plugin, MakeVideoJob(format, codec));
            kept.XpsData({}, Hex(kHeader));
            kept.XpsData({}, Hex(kNoHeader));
            kept.Video(Hex("00 00 01 B8 01"), 0, 400000);
            EXPECT_EQ(kept.Finish().Payload(kTrack + "CodecPrivate"), Hex(kHeader)) << "what was there stays";

            HostSession derived(m_Plugin, MakeVideoJob(format, codec));
            derived.XpsData({}, Hex(kNoHeader));
            derived.Video(Hex(kHeader), 0, 400000);
            EXPECT_EQ(derived.Finish().Payload(kTrack + "CodecPrivate"), Hex(kHeader)) << "the first frame may fill it";
        }
    }
}

TEST_F(RareInput, LateMpegSetUpDataWithoutASequenceHeaderChangesNoOctet) {
    for (const FourCC format : kFormatOfEachMuxer) {
        Octets files[2];
        for (const bool late : {false, true}) {
            FakeEnvironment::SetRand({});
            HostSession session(m_Plugin, MakeVideoJob(format, MakeFourCC("MP2V")));
            session.Video(Hex(kHeader), 0, 400000);
            for (int i = 1; i < 8; ++i) session.Video(Hex("00 00 01 B8 01"), i * 400000, 400000);
            if (late) session.XpsData({}, Hex(kNoHeader));
            session.Video(Hex("00 00 01 B8 02"), 3 * kSecond, 400000);
            files[late ? 1 : 0] = session.Close();
        }
        ExpectSameFile(files[0], files[1]);
    }
}

// The period of a frame is a number of 64 bits or none.
TEST_F(RareInput, FramePeriodsAtTheEndsOfTheirRange) {
    const double most = std::ldexp(1.0, 64);
    ASSERT_EQ(1e9 / (1e9 / most), most);
    const struct {
        const char* m_What;
        double m_Rate;
        const char* m_Period; // null for none
    } rows[] = {
        {"no time at all", std::numeric_limits<double>::infinity(), "00"},
        {"less than a nanosecond", 1e10, "00"},
        {"one nanosecond", 1e9, "01"},
        {"the longest that a rate gives", std::nextafter(1e9 / most, 1.0), "FF FF FF FF FF FF F800"},
        {"2^64, which has none", 1e9 / most, nullptr},
        {"longer", 1e-11, nullptr},
        {"for ever", 0.0, nullptr},
        {"backwards", -25.0, nullptr},
        {"backwards, and no time at all", -std::numeric_limits<double>::infinity(), "00"}, // -0 is 0
        {"no number", std::numeric_limits<double>::quiet_NaN(), nullptr},
    };
    for (const auto& row : rows) {
        for (const FourCC format : kFormatOfEachMuxer) {
            EncodeParam job = MakeVideoJob(format, MakeFourCC("Xvid"));
            job.videoParam.frameRate = row.m_Rate;
            HostSession session(m_Plugin, job);
            session.Video(Hex("01"), 0, 400000);
            const Ebml::File file = session.Finish();
            ASSERT_EQ(file.Has(kTrack + "DefaultDuration"), row.m_Period != nullptr) << row.m_What;
            if (row.m_Period != nullptr) {
                EXPECT_EQ(file.Payload(kTrack + "DefaultDuration"), Hex(row.m_Period)) << row.m_What;
            }
        }
    }
}

// The Duration of a file whose blocks all begin with it is their own.
TEST_F(RareInput, OneFrameLateInTheHostsTimeHasItsOwnDuration) {
    for (const FourCC format : kFormatOfEachMuxer) {
        for (const std::int64_t start : {std::int64_t{0}, 3600 * kSecond, -3600 * kSecond}) {
            HostSession session(m_Plugin, MakeVideoJob(format, MakeFourCC("VP8 ")));
            session.Video(Hex("01"), start, 400000);
            EXPECT_EQ(session.Finish().Float("Segment/Info/Duration"), 40.0F) << start;
        }
    }
}

TEST_F(RareInput, FramesWithoutUnitsTakeNothingOnThePathsOfH264) {
    for (const FourCC code : {MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("A264"), MakeFourCC("I264")}) {
        HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), code));
        EXPECT_EQ(session.Video(Hex("00 00 00 01 65 11"), 0, 400000), 6) << code;
        EXPECT_EQ(session.Video({}, 400000, 400000), 0) << code;
        EXPECT_EQ(session.Video(Hex("00 00 00 01 06 11"), 800000, 400000), 0) << code;
        EXPECT_EQ(session.Finish().Blocks().size(), 1U) << code;
    }
}

// What reaches the disk while the file is open: each fourth cluster takes those before it along.
TEST_F(RareInput, EveryFourthClusterReachesTheDisk) {
    for (const FourCC format : kFormatOfEachMuxer) {
        const std::size_t batch = format == MakeFourCC("WEBM") ? 1 : 5; // frames that are drained together
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        for (std::size_t frames = 1; frames <= 60; ++frames) {
            session.Audio(Hex("21"), static_cast<std::int64_t>(frames) * 2 * kSecond, 10000); // one to a cluster
            const std::size_t drained = frames / batch * batch;
            const std::size_t complete = drained > 0 ? drained - 1 : 0;
            const Octets octets = ReadFile(session.Path());
            const std::size_t onDisk = octets.empty() ? 0 : Ebml::File(octets, Ebml::Ending::CutOff).WholeClusters();
            EXPECT_EQ(onDisk, complete / 4 * 4) << frames;
        }
        EXPECT_EQ(session.Finish().WholeClusters(), 60U);
    }
}

} // namespace
