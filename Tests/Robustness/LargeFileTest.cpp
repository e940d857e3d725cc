// SPDX-License-Identifier: MIT
// Files of more than 5 GiB: every position in their indexes, around the ends of 31 and 32 bits.
#include "LargeTest.h"

#include <algorithm>

#include "Command.h"

namespace {

constexpr std::uint64_t kFrame = 16777216; // octets of a picture, one a second
constexpr int kFrames = 330;
constexpr std::uint64_t kTwoGiB = std::uint64_t{1} << 31;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

// Octets of a cluster's Timestamp element: identifier, length, and 1 to 3 octets of these times.
std::uint64_t TimestampSize(std::uint64_t time) { return time < 0x100 ? 3 : time < 0x10000 ? 4 : 5; }

// Identifier, a length of 4 octets (for sizes from 2,097,151 to 268,435,454), payload.
std::uint64_t WideElement(std::uint64_t idSize, std::uint64_t payload) { return idSize + 4 + payload; }

class LargeFile : public LargeTest {
protected:
    // Computes the positions behind the Tracks from the sizes of the frames, and checks that cues and indexes agree.
    void ExpectClusters(const std::vector<std::uint64_t>& sizes) {
        const SegmentScan scan(m_File);
        EXPECT_EQ(CheckIndexes(m_File, scan), "");
        ASSERT_EQ(scan.m_Clusters.size(), sizes.size());
        const auto tracks = std::find_if(scan.m_Children.begin(), scan.m_Children.end(),
                                         [](const SegmentScan::Entry& child) { return child.m_Id == 0x1654AE6B; });
        std::uint64_t position = tracks->m_Position + 4 + 2 + scan.m_Tracks.size(); // a length of 2 octets below 16,383
        if (scan.m_Tracks.size() < 127) --position;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            EXPECT_EQ(scan.m_Clusters[i].m_Position, position) << i;
            EXPECT_EQ(scan.m_Clusters[i].m_Time, i * 1000);
            position += sizes[i];
        }
        // The Cues follow.
        EXPECT_EQ(scan.m_SeekHeads[0].at(2).m_Position, position);
        EXPECT_GT(position, 5 * (kFourGiB / 4));

        // Cues lie on both sides of each limit.
        for (const std::uint64_t limit : {kTwoGiB, kFourGiB}) {
            EXPECT_LT(scan.m_Cues.front().m_ClusterPosition, limit);
            EXPECT_GT(scan.m_Cues.back().m_ClusterPosition, limit);
            EXPECT_LT(scan.m_SeekHeads[1].front().m_Position, limit);
            EXPECT_GT(scan.m_SeekHeads[1].back().m_Position, limit);
        }
    }

    // An independent reader finds the pictures of both sides by their times.
    void ExpectFoundByOthers() {
        // ffprobe counts the sound that may stand before the picture, but does not show it.
        for (const int second : {10, 127, 128, 129, 255, 256, 257, 320}) {
            const CommandResult result =
                RunCommand("ffprobe -v error -probesize 32 -analyzeduration 0 -select_streams v -read_intervals " +
                           std::to_string(second) + "%+#2 -show_entries packet=pts,size,pos -of csv=p=0 " +
                           Quoted(m_File.ReadersPath().string()) + " 2>/dev/null");
            long long time = -1;
            unsigned long long size = 0;
            unsigned long long position = 0;
            ASSERT_EQ(std::sscanf(result.m_Output.c_str(), "%lld,%llu,%llu", &time, &size, &position), 3)
                << result.m_Output;
            EXPECT_EQ(time, second * 1000);
            EXPECT_EQ(size, kFrame);
            EXPECT_EQ(position / kFrame, static_cast<unsigned>(second)) << "frames lie one behind the other";
        }
    }

    // A VP8 key frame's header (RFC 6386, 320x240) is enough of a picture for a reader that does not decode it.
    Octets m_Frame = Hex("10 02 00 9D 01 2A 40 01 F0 00") + Octets(kFrame - 10, 0);
};

// BlockGroups, sound between the pictures, and set-up data that comes when the file has passed 4 GiB.
TEST_F(LargeFile, MatroskaPastFourGiB) {
    Octets sound = Hex("01 02 03 04 05 06 07 08");
    Octets setup = Hex("12 10 56 E5 00"); // AAC-LC, 44.1 kHz, stereo, and no SBR
    Create(MakeJob(MakeFourCC("MKV "), MakeFourCC("VP8 "), MakeFourCC("AAC ")));
    for (int i = 0; i < kFrames; ++i) {
        Video(m_Frame, i * 1000);
        Audio(sound, i * 1000 + 500, kSecond);
        if (i == 300) m_Plugin.WriteVosData(m_pHandle, setup.data(), static_cast<int>(setup.size()));
    }
    Close();

    // Block: track number, 2 octets of time, flags, frame. No picture refers to another.
    const std::uint64_t picture = WideElement(1, WideElement(1, 4 + kFrame));
    const std::uint64_t tone = 2 + 2 + 4 + 8;
    std::vector<std::uint64_t> sizes = {WideElement(4, TimestampSize(0) + 2 * picture + tone)};
    for (std::uint64_t k = 1; k + 1 < kFrames; ++k) {
        // Sound at k.5 s and the picture at k + 1 s, which is the last millisecond of the cluster's span.
        sizes.push_back(WideElement(4, TimestampSize(k * 1000) + tone + picture));
    }
    sizes.push_back(4 + 1 + TimestampSize(329000) + tone);
    ExpectClusters(sizes);

    const SegmentScan scan(m_File);
    EXPECT_EQ(scan.m_BlockCount, 2U * kFrames);
    ASSERT_EQ(scan.m_Cues.size(), 329U) << "no picture in the last cluster";
    for (std::size_t i = 0; i < scan.m_Cues.size(); ++i) {
        EXPECT_EQ(scan.m_Cues[i].m_Time, i == 0 ? 0 : (i + 1) * 1000);
        EXPECT_EQ(scan.m_Cues[i].m_Track, 1U);
        EXPECT_EQ(scan.m_Cues[i].m_BlockNumber, i == 0 ? 0U : 1U) << "the sound stands before it";
        EXPECT_EQ(scan.m_Cues[i].m_ClusterPosition, scan.m_Clusters[i].m_Position);
    }
    EXPECT_EQ(scan.m_Duration, 330000.0F) << "330 seconds of sound";
    const Octets privateData = Element(0x63A2, setup + Zeros(1024 - setup.size()));
    EXPECT_NE(std::search(scan.m_Tracks.begin(), scan.m_Tracks.end(), privateData.begin(), privateData.end()),
              scan.m_Tracks.end())
        << "the set-up data did not reach the Tracks";
    ExpectFoundByOthers();
}

TEST_F(LargeFile, WebmPastFourGiB) {
    Create(MakeVideoJob(MakeFourCC("WEBM"), MakeFourCC("VP8 ")));
    for (int i = 0; i < kFrames; ++i) Video(m_Frame, i * 1000);
    Close();

    const std::uint64_t picture = WideElement(1, 4 + kFrame);
    std::vector<std::uint64_t> sizes = {WideElement(4, TimestampSize(0) + 2 * picture)};
    for (std::uint64_t k = 1; k + 1 < kFrames; ++k) {
        sizes.push_back(WideElement(4, TimestampSize(k * 1000) + picture));
    }
    ExpectClusters(sizes);

    const SegmentScan scan(m_File);
    EXPECT_EQ(scan.m_BlockCount, static_cast<std::uint64_t>(kFrames));
    ASSERT_EQ(scan.m_Cues.size(), 329U);
    for (std::size_t i = 0; i < scan.m_Cues.size(); ++i) {
        EXPECT_EQ(scan.m_Cues[i].m_Time, i == 0 ? 0 : (i + 1) * 1000);
        EXPECT_EQ(scan.m_Cues[i].m_BlockNumber, 0U);
    }
    EXPECT_EQ(scan.m_Duration, 329001.0F) << "the last picture's start and 1 ms";
    ExpectFoundByOthers();
}

} // namespace
