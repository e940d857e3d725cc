// SPDX-License-Identifier: MIT
// Counts the memory that frames of a gibibyte and of the largest size in a record take. The host's own octets are pages
// that nobody has written to, which take no memory.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdio>
#include <limits>
#include <new>

#include "HeapMeter.h"
#include "HostTest.h"
#include "SegmentScan.h"
#include "VirtualFile.h"

namespace {

constexpr std::int32_t kGibibyte = 1 << 30;
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

class EmptyPages {
public:
    explicit EmptyPages(std::size_t size)
        : m_Size(size),
          m_pPages(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (m_pPages == MAP_FAILED) throw std::bad_alloc();
        madvise(m_pPages, size, MADV_HUGEPAGE); // one page of zeros for two megabytes
    }
    ~EmptyPages() { munmap(m_pPages, m_Size); }
    EmptyPages(const EmptyPages&) = delete;
    EmptyPages& operator=(const EmptyPages&) = delete;

    unsigned char* Data() const { return static_cast<unsigned char*>(m_pPages); }

private:
    const std::size_t m_Size;
    void* const m_pPages;
};

struct Row {
    const char* m_Name;
    FourCC m_Format;
    FourCC m_Video; // 0 for sound
    std::int32_t m_Size;
    bool m_StartCodes;
    double m_Copies; // of the frame in the heap, at most

    friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.m_Name; }
};

class GiantFrames : public HostTest, public testing::WithParamInterface<Row> {};

TEST_P(GiantFrames, TakeAKnownNumberOfCopies) {
    const Row& row = GetParam();
    const bool video = row.m_Video != 0;
    const VirtualFile file;
    const EncodeParam job =
        video ? MakeVideoJob(row.m_Format, row.m_Video) : MakeAudioJob(row.m_Format, MakeFourCC("AC3 "));
    const std::size_t before = HeapMeter::LiveOctets();
    void* const handle = m_Plugin.CreateMediaFile(file.Path().wstring().c_str(), &job);
    ASSERT_NE(handle, nullptr);
    const EmptyPages pages(static_cast<std::size_t>(row.m_Size));
    if (row.m_StartCodes) {
        const Octets slice = Hex("00 00 00 01 65");
        std::copy(slice.begin(), slice.end(), pages.Data());
    }
    MEDIA_FRAME frame{};
    frame.duration = kMillisecond;
    frame.frameFlags = kKey;
    (video ? frame.videoData : frame.audioData) = pages.Data();
    (video ? frame.videoSize : frame.audioSize) = row.m_Size;
    HeapMeter::RestartPeak();
    HeapMeter::FailAfter(0);
    const int taken =
        video ? m_Plugin.WriteVideoPacket(handle, &frame) : m_Plugin.WriteAudioPacket(handle, &frame, nullptr);
    EXPECT_EQ(taken, row.m_Size);
    m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
    const double copies = static_cast<double>(HeapMeter::PeakOctets() - before) / row.m_Size;
    std::printf("%s: %.3f copies of the frame in the heap, %ld allocations\n", row.m_Name, copies,
                HeapMeter::Allocations());
    EXPECT_LE(copies, row.m_Copies + 0.001);
    EXPECT_LE(HeapMeter::Allocations(), 100);
    EXPECT_EQ(HeapMeter::LiveOctets(), before);

    std::uint64_t size = 0;
    const SegmentScan scan(file, [&](const SegmentScan::Block& block) { size = block.m_FrameSize; });
    EXPECT_EQ(CheckIndexes(file, scan), "");
    EXPECT_EQ(scan.m_BlockCount, 1U);
    EXPECT_EQ(size, static_cast<std::uint64_t>(row.m_Size));
}

INSTANTIATE_TEST_SUITE_P(
    All, GiantFrames,
    testing::Values(Row{"MatroskaGibibyte", MakeFourCC("MKV "), MakeFourCC("MP4V"), kGibibyte, false, 1},
                    Row{"WebmGibibyte", MakeFourCC("WEBM"), MakeFourCC("VP8 "), kGibibyte, false, 1},
                    Row{"SlicesGibibyte", MakeFourCC("MKV "), MakeFourCC("N264"), kGibibyte, true, 1},
                    Row{"LosslessGibibyte", MakeFourCC("MKV "), MakeFourCC("H264"), kGibibyte, true, 2},
                    Row{"MatroskaMost", MakeFourCC("MKV "), MakeFourCC("MP4V"), kMost, false, 1}),
    [](const auto& row) { return std::string(row.param.m_Name); });

// Set-up data of that size. It is part of the Tracks.
TEST_F(GiantFrames, SetUpDataAsWell) {
    const VirtualFile file;
    const std::size_t before = HeapMeter::LiveOctets();
    const EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("AAC "));
    void* const handle = m_Plugin.CreateMediaFile(file.Path().wstring().c_str(), &job);
    ASSERT_NE(handle, nullptr);
    const EmptyPages pages(static_cast<std::size_t>(kGibibyte));
    HeapMeter::RestartPeak();
    m_Plugin.WriteVosData(handle, pages.Data(), kGibibyte);
    MEDIA_FRAME frame{};
    frame.audioData = pages.Data();
    frame.audioSize = 8;
    EXPECT_EQ(m_Plugin.WriteAudioPacket(handle, &frame, nullptr), 8);
    m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
    const double copies = static_cast<double>(HeapMeter::PeakOctets() - before) / kGibibyte;
    std::printf("set-up data: %.3f copies in the heap\n", copies);
    EXPECT_LE(copies, 2.001);
    EXPECT_EQ(HeapMeter::LiveOctets(), before);
    EXPECT_GT(file.Size(), static_cast<std::uint64_t>(kGibibyte));
}

} // namespace
