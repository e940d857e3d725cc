// SPDX-License-Identifier: MIT
// The plug-in frees memory that it keeps from frame to frame as soon as it no longer needs it.
#include <new>

#include "HeapMeter.h"
#include "SmallSession.h"

namespace {

class HeldMemory : public RobustnessTest {
protected:
    ~HeldMemory() override { m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr); }

    void Create(FourCC format, FourCC video) {
        const EncodeParam job = MakeVideoJob(format, video);
        m_pHandle = m_Plugin.CreateMediaFile((m_Directory / "file").wstring().c_str(), &job);
        ASSERT_NE(m_pHandle, nullptr);
    }
    void Video(Octets& octets, std::int64_t time) {
        MEDIA_FRAME frame{};
        frame.videoData = octets.data();
        frame.videoSize = static_cast<std::int32_t>(octets.size());
        frame.frameFlags = kKey;
        frame.timestamp = time;
        frame.duration = 400000;
        ASSERT_GT(m_Plugin.WriteVideoPacket(m_pHandle, &frame), 0);
    }

    void* m_pHandle = nullptr;
};

// Two large pictures need not fit in memory at once. All but a few octets of these are units that are left out, so that
// the buffer is all there is to see.
TEST_F(HeldMemory, TheBufferForALargerPictureComesAfterTheSmallerOnesHasGone) {
    constexpr std::size_t kMebibyte = 1 << 20;
    Create(MakeFourCC("MKV "), MakeFourCC("H264"));
    Octets smaller = Hex("00 00 00 01 65 11 00 00 00 01 06") + Octets(8 * kMebibyte, 0x22);
    Octets larger = Hex("00 00 00 01 65 11 00 00 00 01 06") + Octets(16 * kMebibyte, 0x22);
    Video(smaller, 0);
    const std::size_t before = HeapMeter::LiveOctets();
    HeapMeter::RestartPeak();
    Video(larger, 400000);
    EXPECT_LT(HeapMeter::PeakOctets(), before + 9 * kMebibyte);
}

// A second of very many blocks, as no film goes on.
TEST_F(HeldMemory, MemoryOfACrowdedClusterIsFreed) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
        SCOPED_TRACE(format);
        Create(format, MakeFourCC("VP8 "));
        Octets octet = Hex("11");
        for (int i = 0; i < 10; ++i) Video(octet, i * kSecond);
        const std::size_t before = HeapMeter::LiveOctets();
        for (int i = 0; i < 10000; ++i) Video(octet, 10 * kSecond + i);
        EXPECT_GT(HeapMeter::LiveOctets(), before + 400000) << "while the cluster is being assembled";
        for (int i = 11; i < 30; ++i) Video(octet, i * kSecond);
        EXPECT_LT(HeapMeter::LiveOctets(), before + 20000) << "once it is written, and the next one too";
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
    }
}

// Blocks are used again, large pictures are not kept in them.
TEST_F(HeldMemory, MemoryOfLargePicturesIsFreed) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
        SCOPED_TRACE(format);
        Create(format, MakeFourCC("VP8 "));
        Octets octet = Hex("11");
        Octets large(1 << 20, 0x22);
        for (int i = 0; i < 100; ++i) Video(octet, i * kSecond / 10);
        const std::size_t before = HeapMeter::LiveOctets();
        for (int i = 100; i < 110; ++i) Video(large, i * kSecond / 10);
        EXPECT_GT(HeapMeter::LiveOctets(), before + 5 * large.size()) << "while the cluster is being assembled";
        for (int i = 110; i < 140; ++i) Video(octet, i * kSecond / 10);
        EXPECT_LT(HeapMeter::LiveOctets(), before + 20000) << "once it is written, and the next one too";
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
    }
}

// Small frames are put into the blocks of a cluster that has been written, each track's into its own.
TEST_F(HeldMemory, SmallFramesOfTwoTracksAskForNoMemory) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
        SCOPED_TRACE(format);
        const EncodeParam job = MakeJob(format, MakeFourCC("VP8 "), MakeFourCC("VBIS"));
        m_pHandle = m_Plugin.CreateMediaFile((m_Directory / "file").wstring().c_str(), &job);
        Octets octets(200, 0x11);
        const auto second = [&](std::int64_t start) {
            MEDIA_FRAME frame{};
            frame.videoData = frame.audioData = octets.data();
            frame.videoSize = frame.audioSize = 200;
            frame.frameFlags = kKey;
            frame.duration = 400000;
            for (int i = 0; i < 25; ++i) {
                frame.timestamp = start + i * 400000;
                m_Plugin.WriteVideoPacket(m_pHandle, &frame);
                m_Plugin.WriteAudioPacket(m_pHandle, &frame, nullptr);
            }
        };
        for (int i = 0; i < 4; ++i) second(i * kSecond);
        HeapMeter::FailAfter(0);
        for (int i = 4; i < 104; ++i) second(i * kSecond);
        EXPECT_LT(HeapMeter::Allocations(), 100 * 12) << "the indexes of a hundred clusters, nothing for 5,000 frames";
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
    }
}

// The buffer of a picture for whose larger successor there was no memory is gone: the next picture gets one of its own.
TEST_F(HeldMemory, ASmallerPictureAfterOneThatFoundNoMemory) {
    const Octets start = Hex("00 00 00 01 65");
    for (long failing = 1; failing <= 4; ++failing) {
        SCOPED_TRACE(failing);
        Create(MakeFourCC("MKV "), MakeFourCC("H264"));
        Octets first = start + Octets(1000, 0x11);
        Octets larger = start + Octets(2000, 0x22);
        Octets smaller = start + Octets(500, 0x33);
        Video(first, 0);
        MEDIA_FRAME frame{};
        frame.videoData = larger.data();
        frame.videoSize = static_cast<std::int32_t>(larger.size());
        frame.frameFlags = kKey;
        frame.timestamp = 400000;
        HeapMeter::FailAfter(failing);
        bool failed = false;
        try {
            m_Plugin.WriteVideoPacket(m_pHandle, &frame);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        HeapMeter::FailAfter(0);
        EXPECT_TRUE(failed || failing > 1);
        Video(smaller, 800000);
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
        const std::vector<Ebml::Block> blocks = Ebml::File(ReadFile(m_Directory / "file")).Blocks();
        ASSERT_EQ(blocks.size(), failed ? 2U : 3U);
        EXPECT_EQ(blocks.back().m_Frame, smaller); // its start code is its length now
    }
}

} // namespace
