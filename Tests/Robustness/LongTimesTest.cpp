// SPDX-License-Identifier: MIT
// Time lines of more than a day, up to the largest times.
#include "LargeTest.h"

namespace {

constexpr std::int64_t kSeconds = 26 * 3600;
// Fewer under the sanitizers, which look at the same times there.
constexpr std::int64_t kPicturesASecond = QF_PICTURES_A_SECOND;
constexpr std::int64_t kPicture = 1000 / kPicturesASecond; // ms

class LongTimes : public LargeTest {
protected:
    // One track of pictures, with a key frame every other second: every block is where its time belongs.
    SegmentScan ScanOfPictures(const EncodeParam& job) {
        Create(job);
        for (std::int64_t i = 0; i < kSeconds * kPicturesASecond; ++i) {
            Video(m_Frame, i * kPicture, i % (2 * kPicturesASecond) == 0 ? kKey : kDelta);
        }
        Close();
        std::int64_t next = 0;
        std::int64_t wrong = 0;
        SegmentScan scan(m_File, [&](const SegmentScan::Block& block) {
            const std::int64_t span = next == 0 ? 0 : (next - 1) / 1000 * 1000;
            if (block.Time() != next || block.m_Cluster != static_cast<std::uint64_t>(span)) ++wrong;
            next += kPicture;
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(scan.m_BlockCount, kPicturesASecond == 25 ? 2340000U : 468000U);
        EXPECT_EQ(scan.m_Clusters.size(), 93600U);
        EXPECT_EQ(scan.m_Clusters.back().m_Time, 93599000U);
        EXPECT_EQ(CheckIndexes(m_File, scan), "");
        // The last picture starts at 93,599,960 ms, or at 93,599,800. A 4-byte float of this size counts in steps of 8
        // ms; one ms more is rounded away.
        EXPECT_EQ(scan.m_Duration, kPicturesASecond == 25 ? 93599960.0F : 93599800.0F);
        return scan;
    }

    Octets m_Frame = Hex("0A 0B 0C");
};

TEST_F(LongTimes, MatroskaPictures) {
    const SegmentScan scan = ScanOfPictures(MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("MP4V")));
    ASSERT_EQ(scan.m_Cues.size(), 46800U);
    for (std::size_t i = 0; i < scan.m_Cues.size(); ++i) {
        // A key frame on a whole second is the last picture in the cluster before.
        ASSERT_EQ(scan.m_Cues[i].m_Time, i * 2000);
        ASSERT_EQ(scan.m_Cues[i].m_BlockNumber, i == 0 ? 0 : kPicturesASecond);
    }
}

TEST_F(LongTimes, WebmPictures) {
    const SegmentScan scan = ScanOfPictures(MakeVideoJob(MakeFourCC("WEBM"), MakeFourCC("VP8 ")));
    ASSERT_EQ(scan.m_Cues.size(), 93600U);
    for (std::size_t i = 0; i < scan.m_Cues.size(); ++i) {
        ASSERT_EQ(scan.m_Cues[i].m_Time, i == 0 ? 0 : i * 1000 + kPicture) << "the first picture of each cluster";
    }
}

TEST_F(LongTimes, OnePictureASecondWithSound) {
    Create(MakeJob(MakeFourCC("MKV "), MakeFourCC("MP4V"), MakeFourCC("AC3 ")));
    for (std::int64_t i = 0; i < kSeconds; ++i) {
        Video(m_Frame, i * 1000);
        Audio(m_Frame, i * 1000 + 500, kSecond);
    }
    Close();
    std::int64_t next[] = {0, 500};
    std::int64_t wrong = 0;
    const SegmentScan scan(m_File, [&](const SegmentScan::Block& block) {
        std::int64_t& time = next[block.m_Track - 1];
        if (block.Time() != time || block.m_Relative < 0 || block.m_Relative > 1000) ++wrong;
        time += 1000;
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(scan.m_BlockCount, 187200U);
    EXPECT_EQ(scan.m_Clusters.size(), 93600U);
    EXPECT_EQ(CheckIndexes(m_File, scan), "");
    ASSERT_EQ(scan.m_Cues.size(), 93599U) << "the last cluster holds sound alone";
    EXPECT_EQ(scan.m_Cues.back().m_Time, 93599000U);
    // 936,000,000,000 units of 100 ns as a 4-byte float: steps of 65,536, so 936,000,028,672. A 10,000th of that, in
    // steps of 8 ms: 93,600,000. The last block starts half a second before, so this stands.
    EXPECT_EQ(scan.m_Duration, 93600000.0F);
}

// A cluster's and a cue's time have as many octets as they need.
TEST(TimesOfAnyWidth, MatroskaCountsAsFarAsTheHost) {
    const Plugin plugin(QF_PLUGIN);
    const std::int64_t times[] = {
        0,
        0x7FFFFFFF, // 24 days and 20 hours
        0x80000000,
        0xFFFFFFFF, // 49 days and 17 hours
        0x100000000,
        0x100000001,
        0x100001000,
        3155760000000,   // a hundred years
        922337203685000, // the host's 63 bits of 100 ns end within the next second
    };
    HostSession session(plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("MP4V")));
    for (const std::int64_t time : times) {
        EXPECT_EQ(session.Video(Hex("01"), time * kMillisecond, kMillisecond, time % 2 == 0 ? kKey : kDelta), 1);
    }
    const Ebml::File file = session.Finish(); // which also checks the indexes and the cues
    const std::vector<Ebml::Block> blocks = file.Blocks();
    ASSERT_EQ(blocks.size(), std::size(times));
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].Time(), times[i]);
        EXPECT_EQ(static_cast<std::int64_t>(blocks[i].m_ClusterTime), times[i] == 0 ? 0 : (times[i] - 1) / 1000 * 1000);
        const std::int64_t distance = i == 0 ? 0 : times[i - 1] - times[i];
        EXPECT_EQ(blocks[i].m_Reference, times[i] % 2 == 0 ? std::nullopt : std::make_optional(distance)) << times[i];
    }
    const std::vector<Ebml::Cue> cues = file.Cues();
    ASSERT_EQ(cues.size(), 6U);
    EXPECT_EQ(cues[1].m_Time, 0x80000000U);
    EXPECT_EQ(cues[2].m_Time, 0x100000000U);
    EXPECT_EQ(cues[3].m_Time, 0x100001000U);
    EXPECT_EQ(cues[4].m_Time, 3155760000000U);
    EXPECT_EQ(cues[5].m_Time, 922337203685000U);
    // 2^49 and more: a 4-byte float counts in steps of 2^26 ms, some 19 hours.
    EXPECT_EQ(file.Float("Segment/Info/Duration"), 922337203685001.0F);
}

// A late block lies in a later cluster, before the cluster's time; the distance has 16 bits at any time.
TEST(TimesOfAnyWidth, LateSoundReaches32SecondsBack) {
    const Plugin plugin(QF_PLUGIN);
    constexpr std::int64_t kBase = 0x100000000; // ms
    const struct {
        std::int64_t m_Audio; // ms behind the base; the cluster that it falls in is at 99,704
        int m_Relative;
    } rows[] = {{99000, -704}, {66936, -32768}, {66935, 32767}, {59704, 25536}};
    for (const auto& row : rows) {
        HostSession session(plugin, MakeJob(MakeFourCC("WEBM"), MakeFourCC("VP8 "), MakeFourCC("VBIS")));
        session.m_Times = Ebml::Times::Lagging;
        session.Video(Hex("01"), 0, kMillisecond);
        session.Audio(Hex("02"), 0, kMillisecond);
        session.Video(Hex("03"), (kBase + 100000) * kMillisecond, kMillisecond);
        session.Audio(Hex("04"), (kBase + row.m_Audio) * kMillisecond, kMillisecond);
        const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
        ASSERT_EQ(blocks.size(), 4U);
        EXPECT_EQ(blocks[3].m_ClusterTime, static_cast<std::uint64_t>(kBase) + 99704);
        EXPECT_EQ(blocks[3].m_RelativeTime, row.m_Relative);
    }
}

} // namespace
