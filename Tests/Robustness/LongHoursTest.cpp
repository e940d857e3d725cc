// SPDX-License-Identifier: MIT
// Long runs: many files in one process, days of media in one file, and the memory of queued frames. With QF_SOAK set,
// as scripts/soak sets it, the process writes ten times as many files, and the media has real frame rates.
#include <malloc.h>

#include <cstdlib>

#include "HeapMeter.h"
#include "SameOctets.h"
#include "SegmentScan.h"
#include "SmallSession.h"
#include "StdioHook.h"
#include "VirtualFile.h"

namespace {

bool Soaking() { return std::getenv("QF_SOAK") != nullptr; }

// The octets that are allocated from the C library's heap, stdio's buffers included.
std::size_t WholeHeap() {
#if defined(__SANITIZE_ADDRESS__)
    return 0; // the sanitizer holds freed memory back
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

double Mebibytes(std::size_t octets) { return static_cast<double>(octets) / (1 << 20); }

using LongHours = RobustnessTest;

TEST_F(LongHours, ManyFilesOneAfterAnother) {
    const int files = Soaking() ? 10000 : 1000;
    const SmallJob jobs[] = {kMatroskaJob, kWebmJob, {"Sound", MakeFourCC("MKA "), 0, MakeFourCC("MP3 ")}};
    Octets expected[std::size(jobs)];
    for (std::size_t i = 0; i < std::size(jobs); ++i) expected[i] = Undisturbed(jobs[i]);
    const long live = HeapMeter::LiveBlocks();
    const std::size_t descriptors = OpenDescriptors();
    const std::size_t heap = WholeHeap();
    for (int file = 0; file < files; ++file) {
        const std::size_t job = static_cast<std::size_t>(file) % std::size(jobs);
        {
            SmallSession session(m_Plugin, jobs[job], m_Directory / "file");
            session.Run();
            EXPECT_TRUE(file % 100 > 2 || SameOctets(ReadFile(session.Path()), expected[job])) << file;
            std::filesystem::remove(session.Path());
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live) << file;
        ASSERT_EQ(OpenDescriptors(), descriptors) << file;
        ASSERT_LE(WholeHeap(), heap + 16384) << file;
    }
    std::printf("%d files: %ld blocks, %zd octets and %zd descriptors more than before\n", files,
                HeapMeter::LiveBlocks() - live, static_cast<ssize_t>(WholeHeap() - heap),
                static_cast<ssize_t>(OpenDescriptors() - descriptors));
}

class OneLongFile : public LongHours, public testing::WithParamInterface<SmallJob> {};

// An open file keeps only its index in memory: an entry and a cue point for each second.
TEST_P(OneLongFile, OfAHundredHours) {
    constexpr int kHours = 100;
    constexpr std::size_t kMostForAnHour = 3 << 20;
    const std::int64_t videoStep = kSecond / (Soaking() ? 25 : 2);
    const std::int64_t audioStep = Soaking() ? kSecond * 1024 / 48000 : kSecond;
    const VirtualFile file;
    const std::size_t before = HeapMeter::LiveOctets();
    const std::size_t descriptors = OpenDescriptors();
    const EncodeParam job = MakeJob(GetParam().m_Format, GetParam().m_Video, GetParam().m_Audio);
    void* const handle = m_Plugin.CreateMediaFile(file.Path().wstring().c_str(), &job);
    ASSERT_NE(handle, nullptr);
    unsigned char octets[] = {0, 0, 0, 1, 0x65, 6, 7, 8};
    MEDIA_FRAME frame{};
    frame.videoData = frame.audioData = octets;
    frame.videoSize = frame.audioSize = sizeof octets;
    frame.frameFlags = kKey;
    std::uint64_t frames = 0;
    std::int64_t video = 0;
    std::int64_t audio = 0;
    std::size_t last = HeapMeter::LiveOctets();
    std::size_t most = 0;
    HeapMeter::RestartPeak();
    for (int hour = 1; hour <= kHours; ++hour) {
        const std::int64_t end = hour * 3600 * kSecond;
        while (std::min(video, audio) < end) {
            ++frames;
            frame.timestamp = std::min(video, audio);
            if (video <= audio) {
                octets[3] = 1; // the previous call wrote a length over the start code
                frame.duration = static_cast<std::int32_t>(videoStep);
                video += videoStep;
                ASSERT_GT(m_Plugin.WriteVideoPacket(handle, &frame), 0);
            } else {
                frame.duration = static_cast<std::int32_t>(audioStep);
                audio += audioStep;
                ASSERT_GT(m_Plugin.WriteAudioPacket(handle, &frame, nullptr), 0);
            }
        }
        const std::size_t now = HeapMeter::LiveOctets();
        most = std::max(most, now > last ? now - last : 0);
        last = now;
        ASSERT_EQ(OpenDescriptors(), descriptors);
    }
    const std::size_t index = last - before;
    m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
    std::printf("100 hours, %llu frames: %.2f MiB an hour on average, %.2f in the fullest; %.1f MiB at the end, %.1f "
                "while closing\n",
                static_cast<unsigned long long>(frames), Mebibytes(index) / kHours, Mebibytes(most), Mebibytes(index),
                Mebibytes(HeapMeter::PeakOctets() - before));
    EXPECT_LE(most, kMostForAnHour);
    EXPECT_LE(HeapMeter::PeakOctets() - before, index + (1 << 20)) << "closing needs no memory";
    EXPECT_EQ(HeapMeter::LiveOctets(), before);

    const SegmentScan scan(file);
    EXPECT_EQ(CheckIndexes(file, scan), "");
    EXPECT_EQ(scan.m_BlockCount, frames);
    EXPECT_EQ(scan.m_Clusters.size(), 360000U);
}

INSTANTIATE_TEST_SUITE_P(Jobs, OneLongFile, testing::Values(kMatroskaJob, kWebmJob),
                         [](const auto& row) { return std::string(row.param.m_Name); });

// A waiting frame takes the memory of its octets and a bounded amount for its block. Frames wait in a track's queue
// while the other track has no frame, and in the current cluster while the time does not leave it.
TEST_F(LongHours, QueuedFramesCostTheirOctets) {
    constexpr std::size_t kFrames = 1000;
    constexpr std::size_t kMostForABlock = 512;
    for (const SmallJob& job : {kMatroskaJob, kWebmJob}) {
        for (const bool cluster : {false, true}) {
            for (const std::size_t size : {1U, 100U, 1000U, 10000U}) {
                EncodeParam param = MakeJob(job.m_Format, MakeFourCC("VP8 "), job.m_Audio);
                param.disableAudio = cluster ? 1 : 0;
                const long blocks = HeapMeter::LiveBlocks();
                void* const handle = m_Plugin.CreateMediaFile((m_Directory / "file").wstring().c_str(), &param);
                Octets octets(size, 0x11);
                MEDIA_FRAME frame{};
                frame.videoData = octets.data();
                frame.videoSize = static_cast<std::int32_t>(size);
                m_Plugin.WriteVideoPacket(handle, &frame);
                const std::size_t before = HeapMeter::LiveOctets();
                for (std::size_t i = 0; i < kFrames; ++i) {
                    if (!cluster) frame.timestamp = static_cast<std::int64_t>(i) * kSecond / 25;
                    ASSERT_EQ(m_Plugin.WriteVideoPacket(handle, &frame), frame.videoSize);
                }
                const std::size_t grown = HeapMeter::LiveOctets() - before;
                const double block = static_cast<double>(grown) / kFrames - static_cast<double>(size);
                std::printf("%s, %s, frames of %zu octets: %.2f octets of heap for each octet, %.0f for the block\n",
                            job.m_Name, cluster ? "in a cluster" : "queued", size,
                            static_cast<double>(grown) / static_cast<double>(kFrames * size), block);
                EXPECT_LE(block, kMostForABlock);
                m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
                octets = Octets();
                EXPECT_EQ(HeapMeter::LiveBlocks(), blocks);
            }
        }
    }
}

} // namespace
