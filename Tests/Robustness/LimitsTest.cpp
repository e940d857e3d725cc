// SPDX-License-Identifier: MIT
// No input makes a call take time or memory out of proportion to its size: the work is counted, in instructions,
// allocations, octets of heap, and calls and octets of the output file.
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "FakeEnvironment.h"
#include "HeapMeter.h"
#include "InstructionMeter.h"
#include "MeteredFile.h"
#include "SmallSession.h"

namespace {

// The bound for a call with little data. A loop over the range between two numbers would take millions.
constexpr long kMostInstructions = InstructionMeter::kMost - 1;

class Limits : public RobustnessTest {
protected:
    ~Limits() override { Close(); }

    void Create(const EncodeParam& job) {
        FakeEnvironment::SetRand({7, 8});
        m_pHandle = m_Plugin.CreateMediaFile(MeteredFile::Path().wstring().c_str(), &job);
        ASSERT_NE(m_pHandle, nullptr);
    }

    int Video(unsigned char* data, std::int32_t size, std::int64_t time, std::int32_t duration = 400000) {
        MEDIA_FRAME frame{};
        frame.timestamp = time;
        frame.duration = duration;
        frame.frameFlags = kKey;
        frame.videoData = data;
        frame.videoSize = size;
        return m_Plugin.WriteVideoPacket(m_pHandle, &frame);
    }

    int Audio(unsigned char* data, std::int32_t size, std::int64_t time, int* sizes = nullptr) {
        MEDIA_FRAME frame{};
        frame.timestamp = time;
        frame.duration = 400000;
        frame.audioData = data;
        frame.audioSize = size;
        return m_Plugin.WriteAudioPacket(m_pHandle, &frame, sizes);
    }

    void Close() {
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
    }

    MeteredFile m_File;
    void* m_pHandle = nullptr;
    unsigned char m_Octet[8] = {1, 2, 3, 4, 5, 6, 7, 8};
};

// ---- times

constexpr std::int64_t kTenYears = std::int64_t{3653} * 24 * 3600 * kSecond;

TEST_F(Limits, TimesFarApart) {
    const std::int64_t times[] = {0,         kTenYears, 2 * kTenYears, 0,        INT64_MAX,
                                  INT64_MIN, INT64_MAX, INT64_MIN,     kTenYears};
    long most = 0;
    std::size_t heap = 0;
    for (const SmallJob& job : {kMatroskaJob, kWebmJob}) {
        const std::int64_t octets = m_File.m_DiskOctets;
        Create(MakeVideoJob(job.m_Format, job.m_Video));
        for (int i = 0; i < 5; ++i) Video(m_Octet, 1, 0);
        for (const std::int64_t time : times) {
            const std::size_t before = HeapMeter::LiveOctets();
            // The fifth in the queue is the one that writes.
            for (int i = 0; i < 4; ++i) Video(m_Octet, 1, time);
            const auto call = [&] { Video(m_Octet, 1, time); };
            if (time == kTenYears || time == INT64_MIN) {
                most = std::max(most, InstructionMeter::Count(call));
            } else {
                call();
            }
            const std::size_t after = HeapMeter::LiveOctets();
            heap = std::max(heap, after > before ? after - before : 0);
        }
        Close();
        EXPECT_LE(m_File.m_DiskOctets - octets, 20000) << "nothing for the spans that are passed over";
    }
    std::printf("times far apart: up to %ld instructions; up to %zu octets of heap for five frames\n", most, heap);
    EXPECT_LE(most, kMostInstructions);
    EXPECT_LE(heap, 8192U);
}

// ---- numbers

// Every number of every record at its most, and at its least, alone and all at once.
TEST_F(Limits, NumbersAtTheirMost) {
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr int kFields = 13;
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
        for (const std::int32_t number : {kMost, kLeast}) {
            for (int field = 0; field <= kFields; ++field) {
                const auto is = [&](int candidate) { return field == candidate || field == kFields; };
                EncodeParam job = MakeJob(format, is(0) ? static_cast<FourCC>(number) : MakeFourCC("VP8 "),
                                          is(1) ? static_cast<FourCC>(number) : MakeFourCC("VBIS"));
                if (is(2)) job.videoParam.width = number;
                if (is(3)) job.videoParam.height = number;
                if (is(4)) job.videoParam.frameRate = number;
                if (is(5)) job.videoParam.bitCount = number;
                if (is(6)) job.audioParam.sampleRate = number;
                if (is(7)) job.audioParam.channels = number;
                if (is(8)) job.audioParam.bitsPerSample = number;
                MuxParam options{};
                if (is(9)) options.muxFlags = static_cast<std::uint32_t>(number);
                if (is(10)) options.displayAspectX = number;
                if (is(11)) options.displayAspectY = number;
                const std::int32_t duration = is(12) ? number : 400000;

                const std::size_t before = HeapMeter::LiveOctets();
                const std::int64_t octets = m_File.m_DiskOctets;
                HeapMeter::RestartPeak();
                HeapMeter::FailAfter(0);
                const auto setOptions = [&] { m_Plugin.SetMuxParam(&options); };
                if (field == 10 || field == 11) {
                    EXPECT_LE(InstructionMeter::Count(setOptions), 2000);
                } else {
                    setOptions();
                }
                m_pHandle = m_Plugin.CreateMediaFile(L"/metered/file", &job);
                if (field == kFields) {
                    EXPECT_LE(InstructionMeter::Count([&] { Video(m_Octet, 8, 0, duration); }), kMostInstructions);
                } else {
                    Video(m_Octet, 8, 0, duration);
                }
                Audio(m_Octet, 8, 0);
                Close();
                EXPECT_LE(HeapMeter::Allocations(), 300);
                EXPECT_LE(HeapMeter::PeakOctets() - before, 327680U);
                EXPECT_LE(m_File.m_DiskOctets - octets, 40000);
            }
        }
    }
}

// A table that announces more frames than there are octets is read as far as these go.
TEST_F(Limits, TablesThatAnnounceTooMuch) {
    Create(MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("AC3 ")));
    const std::int32_t numbers[] = {std::numeric_limits<std::int32_t>::max(), 1, 1, 1, 1};
    Octets table(sizeof numbers);
    std::memcpy(table.data(), numbers, sizeof numbers);
    const GuardedOctets guarded(table);
    int* const sizes = reinterpret_cast<int*>(guarded.Data());
    int taken = 0;
    const long instructions = InstructionMeter::Count([&] { taken = Audio(m_Octet, 4, 0, sizes); });
    EXPECT_EQ(taken, 4);
    EXPECT_LE(instructions, kMostInstructions);
}

// Sizes at their most, with as many octets behind them, where the address space has no room for a copy: the call says
// so and takes nothing in. With 8-octet pointers there is room, see GiantFramesTest.cpp. The sanitizer ends a program
// that asks.
#if defined(__i386__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(Limits, SizesBeyondTheAddressSpace) {
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    void* const pages =
        mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto* const octets = static_cast<unsigned char*>(pages);
    for (const FourCC codec : {MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("MP4V"), MakeFourCC("VP8 ")}) {
        octets[3] = 1; // a start code
        octets[4] = 0x65;
        Create(
            MakeJob(codec == MakeFourCC("VP8 ") ? MakeFourCC("WEBM") : MakeFourCC("MKV "), codec, MakeFourCC("AAC ")));
        const std::size_t live = HeapMeter::LiveOctets();
        EXPECT_THROW(Video(octets, kMost, 0), std::bad_alloc);
        EXPECT_THROW(Audio(octets, kMost, 0), std::bad_alloc);
        int sizes[] = {1, kMost};
        EXPECT_THROW(Audio(octets, kMost, 0, sizes), std::bad_alloc);
        EXPECT_THROW(m_Plugin.WriteVosData(m_pHandle, octets, kMost), std::bad_alloc);
        const auto setUp = [&] { m_Plugin.WritezXPSData(m_pHandle, octets, kMost, octets, kMost); };
        if (codec == MakeFourCC("H264") || codec == MakeFourCC("N264")) {
            EXPECT_THROW(setUp(), std::bad_alloc);
        } else {
            setUp(); // not a codec that takes it
        }
        EXPECT_LE(HeapMeter::LiveOctets(), live + 1024) << "an empty block may be kept for the next frame";
        octets[3] = 1;
        EXPECT_GT(Video(octets, 8, 0), 0);
        EXPECT_EQ(Audio(octets, 8, 0), 8);
        Close();
    }
    munmap(pages, kMost);
}
#endif

// ---- many calls

TEST_F(Limits, AHundredThousandSetUpCalls) {
    constexpr int kCalls = 100000;
    Octets picture = Octets(100, 0x68);
    Octets sequence = Octets(100, 0x67);
    const auto setUp = [&](int call) {
        picture[50] = sequence[50] = static_cast<unsigned char>(call);
        m_Plugin.WritezXPSData(m_pHandle, picture.data(), 100, sequence.data(), 100);
        m_Plugin.WriteVosData(m_pHandle, picture.data(), 100);
    };
    Create(MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC ")));
    for (const bool late : {false, true}) {
        if (late) {
            for (int i = 0; i < 5; ++i) {
                Video(m_Octet, 8, i * kSecond / 25);
                Audio(m_Octet, 8, i * kSecond / 25);
            }
        }
        setUp(0);
        const std::size_t heap = HeapMeter::LiveOctets();
        const std::int64_t octets = m_File.m_DiskOctets;
        const std::int64_t seeks = m_File.m_StdioSeeks;
        const std::int64_t writes = m_File.m_StdioWrites;
        HeapMeter::RestartPeak();
        HeapMeter::FailAfter(0);
        for (int call = 1; call < kCalls; ++call) setUp(call);
        const long most = InstructionMeter::Count([&] { setUp(kCalls); });
        const double each = 1.0 / (2 * kCalls);
        std::printf("set-up data, %s: %ld instructions for two calls; for each %.1f allocations, %.0f octets and "
                    "%.1f seeks of the file; heap %+zd, at most %+zd octets\n",
                    late ? "late" : "early", most, static_cast<double>(HeapMeter::Allocations()) * each,
                    static_cast<double>(m_File.m_DiskOctets - octets) * each,
                    static_cast<double>(m_File.m_StdioSeeks - seeks) * each,
                    static_cast<ssize_t>(HeapMeter::LiveOctets() - heap),
                    static_cast<ssize_t>(HeapMeter::PeakOctets() - heap));
        EXPECT_LE(most, kMostInstructions);
        EXPECT_EQ(HeapMeter::LiveOctets(), heap) << "what was set up before is gone";
        EXPECT_LE(HeapMeter::PeakOctets() - heap, 8192U);
        EXPECT_LE(HeapMeter::Allocations(), 2 * kCalls * 40L);
        EXPECT_LE(m_File.m_StdioSeeks - seeks, 2 * kCalls * 2L);
        EXPECT_LE(m_File.m_StdioWrites - writes, 2 * kCalls * 120L);
        // The Tracks element again, and the octets waiting in the buffer.
        EXPECT_LE(m_File.m_DiskOctets - octets, late ? 2 * kCalls * 4096LL : 0);
    }
    EXPECT_LE(m_File.m_Size, 10000) << "all of it in one place";
}

struct Shape {
    const char* m_Name;
    FourCC m_Format;
    FourCC m_Video;
    std::int64_t m_Step; // between frames

    friend std::ostream& operator<<(std::ostream& out, const Shape& shape) { return out << shape.m_Name; }
};

class AMillionFrames : public Limits, public testing::WithParamInterface<Shape> {};

TEST_P(AMillionFrames, OfOneOctet) {
    constexpr long kFrames = 1000000;
    const Shape& shape = GetParam();
    const std::size_t before = HeapMeter::LiveOctets();
    Create(MakeVideoJob(shape.m_Format, shape.m_Video));
    HeapMeter::RestartPeak();
    HeapMeter::FailAfter(0);
    long most = 0;
    for (long i = 0; i < kFrames; ++i) {
        int taken = 0;
        const auto call = [&] { taken = Video(m_Octet, 1, i * shape.m_Step); };
        if (i >= kFrames - 5) { // five in a row, since the fifth writes
            most = std::max(most, InstructionMeter::Count(call));
        } else {
            call();
        }
        ASSERT_EQ(taken, 1);
    }
    const std::size_t index = HeapMeter::LiveOctets() - before;
    Close();
    std::printf("a million frames, %s: up to %ld instructions; for each %.1f allocations, %.1f octets of the file; "
                "%.1f of heap at most, %.1f at the end; %.0f frames to an fwrite, %.0f to a write of the disk\n",
                shape.m_Name, most, static_cast<double>(HeapMeter::Allocations()) / kFrames,
                static_cast<double>(m_File.m_Size) / kFrames,
                static_cast<double>(HeapMeter::PeakOctets() - before) / kFrames, static_cast<double>(index) / kFrames,
                kFrames / static_cast<double>(m_File.m_StdioWrites),
                kFrames / static_cast<double>(m_File.m_DiskWrites));
    EXPECT_LE(most, kMostInstructions);
    EXPECT_LE(HeapMeter::Allocations(), 12 * kFrames);
    EXPECT_LE(m_File.m_StdioSeeks, 8);
    EXPECT_LE(m_File.m_Size, 24 * kFrames);
    EXPECT_LE(m_File.m_StdioWrites, m_File.m_Size / 1024 + 16);
    EXPECT_LE(m_File.m_DiskWrites, m_File.m_Size / 1024 + 16);
    // At one time they are one cluster, which is in memory until it is whole.
    const std::size_t forEach = shape.m_Step == 0 ? 512 : 16;
    EXPECT_LE(HeapMeter::PeakOctets() - before, forEach * kFrames);
    EXPECT_EQ(HeapMeter::LiveOctets(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, AMillionFrames,
    testing::Values(Shape{"MatroskaOneAMillisecond", MakeFourCC("MKV "), MakeFourCC("MP4V"), kMillisecond},
                    Shape{"WebmOneAMillisecond", MakeFourCC("WEBM"), MakeFourCC("VP8 "), kMillisecond},
                    Shape{"MatroskaAtOneTime", MakeFourCC("MKV "), MakeFourCC("MP4V"), 0}),
    [](const auto& row) { return std::string(row.param.m_Name); });

TEST_F(Limits, AMillionFramesInOneCall) {
    constexpr int kFrames = 1000000;
    Octets octets(kFrames, 0x0B);
    std::vector<int> sizes(kFrames + 1, 1);
    sizes[0] = kFrames;
    const std::size_t before = HeapMeter::LiveOctets();
    Create(MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("AC3 ")));
    HeapMeter::RestartPeak();
    HeapMeter::FailAfter(0);
    EXPECT_EQ(Audio(octets.data(), kFrames, 0, sizes.data()), kFrames);
    Close();
    EXPECT_LE(HeapMeter::Allocations(), 12L * kFrames);
    EXPECT_LE(HeapMeter::PeakOctets() - before, std::size_t{512} * kFrames);
    EXPECT_LE(m_File.m_Size, 24 * kFrames);
}

// ---- searches

// Octets that look like start codes, or nearly: the work grows with the size and not with its square.
TEST_F(Limits, FramesFullOfStartCodes) {
    const struct {
        const char* m_Octets;
        FourCC m_Codec;
    } rows[] = {
        {"00 00 00 01 65", MakeFourCC("N264")}, {"00 00 01 B3", MakeFourCC("MP2V")}, {"00", MakeFourCC("N264")},
        {"00 00 00 01 09", MakeFourCC("H264")}, {"01", MakeFourCC("H264")},
    };
    double most = 0;
    for (const auto& row : rows) {
        Create(MakeJob(MakeFourCC("MKV "), row.m_Codec, MakeFourCC("AC3 "))); // no sound comes: nothing is written yet
        Octets first = Hex("00 00 00 01 09");
        Video(first.data(), 5, 0); // which settles the form of H264
        long before = 0;
        for (const std::size_t size : {40U, 160U}) {
            Octets frame;
            while (frame.size() < size) frame = frame + Hex(row.m_Octets);
            const auto count = static_cast<std::int32_t>(frame.size());
            const long instructions = InstructionMeter::Count([&] { Video(frame.data(), count, kSecond); });
            EXPECT_LE(instructions, kMostInstructions) << row.m_Octets;
            EXPECT_TRUE(before == 0 || instructions <= 6 * before + 2000) << row.m_Octets;
            before = instructions;
            most = std::max(most, static_cast<double>(instructions) / count);
        }
        Close();
    }
    std::printf("start codes: up to %.0f instructions for an octet\n", most);
}

} // namespace
