// SPDX-License-Identifier: MIT
// No input of a host is fatal. The resulting files need not make sense, but they are whole, and the sanitizers report
// nothing.
#include "HostTest.h"

#include <chrono>

namespace {

using BadInput = HostTest;

const FourCC kVideoCodecs[] = {
    MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("A264"), MakeFourCC("I264"), MakeFourCC("havc"),
    MakeFourCC("MP1V"), MakeFourCC("MP2V"), MakeFourCC("MP4V"), MakeFourCC("VP8 "), 0,
    0xFFFFFFFF};
const FourCC kAudioCodecs[] = {MakeFourCC("AAC "), MakeFourCC("AC3 "), MakeFourCC("MP3 "), MakeFourCC("MP2A"),
                               MakeFourCC("DTS "), MakeFourCC("PCM "), MakeFourCC("VBIS"), 0,
                               0xFFFFFFFF};
constexpr std::int32_t kNumbers[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, INT32_MAX - 1, INT32_MAX};
constexpr std::int64_t kTimes[] = {INT64_MIN, INT64_MIN + 1, -5000, -1, 0, 1, 5000, INT64_MAX - 5000, INT64_MAX};

// A session of its own, whose file is only asked to be a tree of elements.
class RoughSession {
public:
    RoughSession(const Plugin& plugin, const EncodeParam& job)
        : m_Plugin(plugin), m_pHandle(plugin.CreateMediaFile((m_Directory / "a").wstring().c_str(), &job)) {
        EXPECT_NE(m_pHandle, nullptr);
    }
    ~RoughSession() {
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        EXPECT_EQ(Ebml::Describe(Ebml::File(ReadFile(m_Directory / "a")).Problems()), "");
    }
    RoughSession(const RoughSession&) = delete;
    RoughSession& operator=(const RoughSession&) = delete;

    void* Handle() const { return m_pHandle; }

private:
    const Plugin& m_Plugin;
    TempDirectory m_Directory;
    void* m_pHandle;
};

TEST_F(BadInput, ExtremesInEveryFieldOfTheJob) {
    for (const FourCC format : kAllFormats) {
        for (const std::int32_t number : kNumbers) {
            for (std::size_t i = 0; i < std::size(kVideoCodecs); ++i) {
                EncodeParam job = MakeJob(format, kVideoCodecs[i], kAudioCodecs[i % std::size(kAudioCodecs)]);
                job.videoParam.width = job.videoParam.height = job.videoParam.bitCount = number;
                job.videoParam.frameRate = number;
                job.audioParam.sampleRate = job.audioParam.channels = job.audioParam.bitsPerSample = number;
                HostSession session(m_Plugin, job);
                session.Video(Hex("00 00 00 01 65"), 0, number);
                session.Audio(Hex("01"), 0, number);
                session.Close();
            }
        }
    }
}

TEST_F(BadInput, NoDataOrNoSize) {
    for (const FourCC format : kAllFormats) {
        for (const FourCC codec : kVideoCodecs) {
            RoughSession session(m_Plugin, MakeJob(format, codec, MakeFourCC("AAC ")));
            Octets data = Hex("00 00 00 01 65 88 00 00 01 B3");
            for (unsigned char* pointer : {data.data(), static_cast<unsigned char*>(nullptr)}) {
                for (const std::int32_t size : kNumbers) {
                    if (pointer != nullptr && size > 0) continue;
                    MEDIA_FRAME frame{};
                    frame.videoData = frame.audioData = pointer;
                    frame.videoSize = frame.audioSize = size;
                    EXPECT_EQ(m_Plugin.WriteVideoPacket(session.Handle(), &frame), 0) << size;
                    EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, nullptr), 0) << size;
                }
            }
            EXPECT_EQ(data, Hex("00 00 00 01 65 88 00 00 01 B3"));
        }
    }
}

TEST_F(BadInput, ImpossibleTablesOfSizes) {
    Octets data = Hex("01 02 03 04");
    for (const FourCC format : kAllFormats) {
        RoughSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        MEDIA_FRAME frame{};
        frame.audioData = data.data();
        frame.audioSize = 4;
        for (const std::int32_t duration : kNumbers) {
            frame.duration = duration;
            for (std::vector<int> sizes : {std::vector<int>{INT32_MIN},
                                           {-1},
                                           {0},
                                           {1, -1},
                                           {1, INT32_MIN},
                                           {2, -1, -1},
                                           {3, 0, -1, INT32_MIN}}) {
                EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, sizes.data()), 0);
            }
            std::vector<int> sizes = {4, 1, 1, 1, 1};
            EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, sizes.data()), 4);
            frame.audioData = nullptr;
            EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, sizes.data()), 0);
            frame.audioData = data.data();
        }
    }
}

TEST_F(BadInput, ExtremeTimes) {
    const auto before = std::chrono::steady_clock::now();
    for (const FourCC format : kAllFormats) {
        for (const std::int64_t first : kTimes) {
            for (const std::int64_t second : kTimes) {
                RoughSession session(m_Plugin, MakeJob(format, MakeFourCC("Xvid"), MakeFourCC("MP3 ")));
                Octets data = Hex("01 02");
                MEDIA_FRAME frame{};
                frame.videoData = frame.audioData = data.data();
                frame.videoSize = frame.audioSize = 2;
                int sizes[] = {2, 1, 1};
                for (const std::int64_t time : {first, second, std::int64_t{0}, second, first}) {
                    for (const std::int32_t duration : {INT32_MIN, 0, INT32_MAX}) {
                        frame.timestamp = time;
                        frame.duration = duration;
                        frame.frameFlags = duration == 0 ? kDelta : kKey;
                        EXPECT_EQ(m_Plugin.WriteVideoPacket(session.Handle(), &frame), 2);
                        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, nullptr), 2);
                        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), &frame, sizes), 2);
                    }
                }
            }
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
}

TEST_F(BadInput, ImpossibleSetUpData) {
    Octets data = Hex("00 00 01 B3 67");
    for (const FourCC format : kAllFormats) {
        for (std::size_t i = 0; i < std::size(kVideoCodecs); ++i) {
            RoughSession session(m_Plugin, MakeJob(format, kVideoCodecs[i], kAudioCodecs[i % std::size(kAudioCodecs)]));
            for (int round = 0; round < 8; ++round) {
                for (const std::int32_t length : kNumbers) {
                    m_Plugin.WriteVosData(session.Handle(), nullptr, length);
                    m_Plugin.WritezXPSData(session.Handle(), nullptr, length, nullptr, length);
                    if (length > 5) continue;
                    m_Plugin.WriteVosData(session.Handle(), data.data(), length);
                    m_Plugin.WritezXPSData(session.Handle(), data.data(), length, data.data(), length);
                    m_Plugin.WritezXPSData(session.Handle(), nullptr, length, data.data(), 5);
                    m_Plugin.WritezXPSData(session.Handle(), data.data(), 5, nullptr, length);
                }
                MEDIA_FRAME frame{};
                frame.videoData = frame.audioData = data.data();
                frame.videoSize = frame.audioSize = 5;
                frame.timestamp = round * kSecond;
                m_Plugin.WriteVideoPacket(session.Handle(), &frame);
                m_Plugin.WriteAudioPacket(session.Handle(), &frame, nullptr);
            }
        }
    }
}

TEST_F(BadInput, EveryShortH264Frame) {
    // All frames of up to seven octets that are made of the octets which mean something; the guarded buffers end at
    // the frame's last octet.
    constexpr unsigned char kOctets[] = {0x00, 0x01, 0x65};
    HostSession slices(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("N264")));
    HostSession lossless(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("H264")));
    lossless.Video(Hex("00 00 00 01 65"), 0, 1);
    for (std::size_t size = 1; size <= 7; ++size) {
        std::size_t count = 1;
        for (std::size_t i = 0; i < size; ++i) count *= std::size(kOctets);
        for (std::size_t number = 0; number < count; ++number) {
            Octets frame;
            for (std::size_t rest = number; frame.size() < size; rest /= std::size(kOctets)) {
                frame.push_back(kOctets[rest % std::size(kOctets)]);
            }
            const int result = slices.Video(frame, 0, 1);
            EXPECT_TRUE(result >= 0 && result <= static_cast<int>(size));
            EXPECT_EQ(lossless.Video(frame, 0, 1), result);
        }
    }
}

} // namespace
