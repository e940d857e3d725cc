// SPDX-License-Identifier: MIT
// The exported functions in front of the muxers: checks, options, the format flag and its routing.
#include "HostTest.h"

#include <cstring>

namespace {

using EntryPoints = HostTest;
using Routing = HostTest;

TEST_F(EntryPoints, CreateFollowedAtOnceByCloseLeavesAnEmptyFile) {
    for (const FourCC format : {kMkv, MakeFourCC("HMKV"), MakeFourCC("MKA "), kWebm}) {
        HostSession session(m_Plugin, MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC ")));
        EXPECT_TRUE(session.Close().empty());
    }
}

TEST_F(EntryPoints, FormatsAreFoundByTheirCode) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
        EXPECT_EQ(m_Plugin.FindFileFormat(format), 1) << format;
    }
    for (const unsigned long format : {0UL, 1UL, 0xFFFFFFFFUL, 0x00564B4DUL, 0x56414C46UL}) {
        EXPECT_EQ(m_Plugin.FindFileFormat(format), 0) << format;
    }
    for (const FourCC format : {MakeFourCC("AVI "), MakeFourCC("mkv "), MakeFourCC("MKV\0"), MakeFourCC("WEBm"),
                                MakeFourCC("H264"), MakeFourCC(" VKM")}) {
        EXPECT_EQ(m_Plugin.FindFileFormat(format), 0) << format;
    }
}

TEST_F(EntryPoints, VersionIsTheProjectsAndNoOctetMore) {
    const std::string version = QF_VERSION;
    const GuardedOctets buffer(Octets(version.size() + 1, 0xEE));
    EXPECT_EQ(m_Plugin.GetMultiVersion(reinterpret_cast<char*>(buffer.Data())), static_cast<int>(version.size()));
    EXPECT_EQ(buffer.Copy(), Ascii(version) + Hex("00"));
}

TEST_F(EntryPoints, EncoderFunctionsDoNothing) {
    const EncodeParam job = MakeJob(kMkv, MakeFourCC("H264"), MakeFourCC("AAC "));
    EXPECT_EQ(m_Plugin.CreateEncoder(MakeFourCC("H264"), &job), nullptr);
    EXPECT_EQ(m_Plugin.CreateEncoder(0, nullptr), nullptr);
    MEDIA_FRAME frame{};
    MEDIA_FRAME* const mark = &frame + 1;
    MEDIA_FRAME* outFrame = mark;
    int size = 0;
    int* outSizes = &size;
    EXPECT_EQ(m_Plugin.Encode(&size, &frame, &outFrame, &outSizes), 0);
    EXPECT_EQ(outFrame, mark);
    EXPECT_EQ(outSizes, &size);
    EXPECT_EQ(m_Plugin.Encode(nullptr, nullptr, nullptr, nullptr), 0);
    m_Plugin.DestroyEncoder(nullptr);
    m_Plugin.DestroyEncoder(&size);
    EXPECT_EQ(size, 0);
}

TEST_F(EntryPoints, ReviseAudioParamLeavesTheRecordAlone) {
    AudioParam param;
    std::memset(&param, 0x5A, sizeof param);
    const AudioParam before = param;
    EXPECT_EQ(m_Plugin.ReviseAudioParam(&param), 1);
    EXPECT_EQ(std::memcmp(&param, &before, sizeof param), 0);
    EXPECT_EQ(m_Plugin.ReviseAudioParam(nullptr), 1);
}

TEST_F(EntryPoints, SetMuxParamStoresTheAspectInLowestTerms) {
    constexpr std::int32_t kLeast = INT32_MIN;
    constexpr std::int32_t kMost = INT32_MAX;
    const struct {
        const char* m_What;
        std::int32_t m_X, m_Y;             // as given
        std::int32_t m_StoredX, m_StoredY; // as kept
        std::int32_t m_Result;
    } rows[] = {
        {"the usual", 1920, 1080, 16, 9, 9},
        {"upright", 1080, 1920, 9, 16, 16},
        {"no common divisor", 7, 3, 7, 3, 3},
        {"no common divisor, upright", 3, 7, 3, 7, 7},
        {"equal", 5, 5, 1, 1, 1},
        {"one", 1, 1, 1, 1, 1},
        {"no width", 0, 9, 0, 9, 0},
        {"no height", 1920, 0, 1920, 0, 1920},
        {"neither", 0, 0, 0, 0, 0},
        {"no height, negative", -4, 0, -4, 0, -4},
        // The divisor carries the sign of the remainders, which is the sign of what is divided.
        // -1920 % 1080 = -840, 1080 % -840 = 240, -840 % 240 = -120, 240 % -120 = 0: -120.
        {"negative width", -1920, 1080, 16, -9, -9},
        // 1920 % -1080 = 840, -1080 % 840 = -240, 840 % -240 = 120, -240 % 120 = 0: 120.
        {"negative height", 1920, -1080, 16, -9, -9},
        // -1920 % -1080 = -840, -1080 % -840 = -240, -840 % -240 = -120, -240 % -120 = 0: -120.
        {"both negative", -1920, -1080, 16, 9, 9},
        {"divides at once, negative width", -5, 5, -1, 1, 1},  // divisor 5
        {"divides at once, negative height", 5, -5, -1, 1, 1}, // divisor -5
        {"most by most", kMost, kMost, 1, 1, 1},
        {"least by least", kLeast, kLeast, 1, 1, 1},              // divisor the least number
        {"least by 2", kLeast, 2, -1073741824, 1, 1},             // divisor 2
        {"least by 1", kLeast, 1, kLeast, 1, 1},                  // divisor 1
        {"least by -1 wraps", kLeast, -1, kLeast, 1, 1},          // divisor -1; -least is least again
        {"-1 by least wraps", -1, kLeast, 1, kLeast, kLeast},     // -1 % least = -1, least % -1 = 0: -1
        {"least by most", kLeast, kMost, kLeast, -kMost, -kMost}, // least % most = -1: -1
        {"most by least", kMost, kLeast, -kMost, kLeast, kLeast}, // most, then least % most = -1: -1
        {"most by -1", kMost, -1, -kMost, 1, 1},                  // divisor -1
        {"least by -2", kLeast, -2, 1073741824, 1, 1},            // divisor -2
        {"least by 3", kLeast, 3, kLeast, 3, 3},                  // -2, then 3 % -2 = 1, -2 % 1 = 0: 1
    };
    for (const auto& row : rows) {
        MuxParam param{0x11111111, 0x22222222, 0x33333333, row.m_X, row.m_Y, 0x66666666};
        const MuxParam given = param;
        EXPECT_EQ(m_Plugin.SetMuxParam(&param), row.m_Result) << row.m_What;
        const MuxParam& stored = *m_Plugin.m_pMuxParam;
        EXPECT_EQ(stored.displayAspectX, row.m_StoredX) << row.m_What;
        EXPECT_EQ(stored.displayAspectY, row.m_StoredY) << row.m_What;
        EXPECT_EQ(stored.host0, 0x11111111U);
        EXPECT_EQ(stored.muxFlags, 0x22222222U);
        EXPECT_EQ(stored.host8, 0x33333333U);
        EXPECT_EQ(stored.host20, 0x66666666U);
        EXPECT_EQ(std::memcmp(&param, &given, sizeof param), 0) << "the host's record is only read";
    }
    EXPECT_EQ(m_Plugin.SetMuxParam(nullptr), 0);
    const MuxParam zero{};
    EXPECT_EQ(std::memcmp(m_Plugin.m_pMuxParam, &zero, sizeof zero), 0);
}

TEST_F(EntryPoints, ALaterSetMuxParamLeavesOpenFilesAlone) {
    MuxParam mux{0, 1, 0, 16, 9, 0};
    m_Plugin.SetMuxParam(&mux);
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
    mux = {0, 1, 0, 4, 3, 0};
    m_Plugin.SetMuxParam(&mux);
    session.Video(Hex("01"), 0, 400000);
    const Ebml::File file = session.Finish();
    EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayWidth"), 16U);
    EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayHeight"), 9U);
}

TEST_F(EntryPoints, NullHandlesAndFramesAreRefused) {
    MEDIA_FRAME frame{};
    Octets data = Hex("01 02");
    frame.videoData = frame.audioData = data.data();
    frame.videoSize = frame.audioSize = 2;
    int sizes[] = {1, 2};
    for (const std::uint32_t isWebm : {0U, 1U}) {
        *m_Plugin.m_pIsWebm = isWebm;
        EXPECT_EQ(m_Plugin.WriteVideoPacket(nullptr, &frame), 0);
        EXPECT_EQ(m_Plugin.WriteVideoPacket(nullptr, nullptr), 0);
        EXPECT_EQ(m_Plugin.WriteAudioPacket(nullptr, &frame, sizes), 0);
        EXPECT_EQ(m_Plugin.WriteAudioPacket(nullptr, nullptr, nullptr), 0);
        m_Plugin.WriteVosData(nullptr, data.data(), 2);
        m_Plugin.WritezXPSData(nullptr, data.data(), 2, data.data(), 2);
        m_Plugin.CloseMediaFile(nullptr, nullptr, nullptr);
    }
    for (const FourCC format : {kMkv, kWebm}) {
        HostSession session(m_Plugin, MakeJob(format, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
        EXPECT_EQ(m_Plugin.WriteVideoPacket(session.Handle(), nullptr), 0);
        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), nullptr, nullptr), 0);
        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), nullptr, sizes), 0);
        m_Plugin.WriteVosData(session.Handle(), nullptr, 5);
        m_Plugin.WritezXPSData(session.Handle(), nullptr, 5, nullptr, 5);
        EXPECT_TRUE(session.Close().empty());
    }
}

unsigned int FailingProgress(void* argument, unsigned int, unsigned int, unsigned int) {
    ADD_FAILURE() << "the callback was called";
    *static_cast<int*>(argument) = 1;
    return 0;
}

TEST_F(EntryPoints, CloseNeverCallsBack) {
    for (const FourCC format : {kMkv, kWebm}) {
        TempDirectory directory;
        const EncodeParam job = MakeAudioJob(format, MakeFourCC("VBIS"));
        void* const handle = m_Plugin.CreateMediaFile((directory / "a").wstring().c_str(), &job);
        Octets data = Hex("01");
        MEDIA_FRAME frame{};
        frame.audioData = data.data();
        frame.audioSize = 1;
        EXPECT_EQ(m_Plugin.WriteAudioPacket(handle, &frame, nullptr), 1);
        int argument = 0;
        m_Plugin.CloseMediaFile(handle, FailingProgress, &argument);
        EXPECT_EQ(argument, 0);
        EXPECT_EQ(Ebml::Describe(Ebml::Check(Ebml::File(ReadFile(directory / "a")))), "");
    }
}

TEST_F(EntryPoints, IsWebmNamesTheLastCreatedKind) {
    TempDirectory directory;
    const std::wstring path = (directory / "a").wstring();
    const std::wstring nowhere = (directory / "none/a").wstring();
    const auto create = [&](const wchar_t* where, FourCC format) {
        const EncodeParam job = MakeJob(format, MakeFourCC("VP8 "), MakeFourCC("VBIS"));
        void* const handle = m_Plugin.CreateMediaFile(where, &job);
        const std::uint32_t flag = *m_Plugin.m_pIsWebm;
        m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
        EXPECT_EQ(*m_Plugin.m_pIsWebm, flag) << "closing does not touch the flag";
        return flag;
    };
    EXPECT_EQ(create(path.c_str(), kMkv), 0U);
    EXPECT_EQ(create(path.c_str(), kWebm), 1U);
    EXPECT_EQ(create(path.c_str(), MakeFourCC("HMKV")), 0U);
    EXPECT_EQ(create(path.c_str(), kWebm), 1U);
    EXPECT_EQ(create(path.c_str(), MakeFourCC("MKA ")), 0U);
    // Files that cannot be created.
    *m_Plugin.m_pIsWebm = 1;
    EXPECT_EQ(create(nullptr, kWebm), 0U);
    *m_Plugin.m_pIsWebm = 1;
    EXPECT_EQ(m_Plugin.CreateMediaFile(path.c_str(), nullptr), nullptr);
    EXPECT_EQ(*m_Plugin.m_pIsWebm, 0U);
    *m_Plugin.m_pIsWebm = 1;
    EXPECT_EQ(create(path.c_str(), MakeFourCC("AVI ")), 0U);
    *m_Plugin.m_pIsWebm = 1;
    EXPECT_EQ(create(nowhere.c_str(), kMkv), 0U);
    // The flag is set before the file is opened.
    EXPECT_EQ(create(nowhere.c_str(), kWebm), 1U);
}

// A handle that the flag does not name: every call is refused, and closing finishes the file that it holds.

constexpr int kFrames = 9;

void Feed(HostSession& session, int from, int to) {
    for (int i = from; i < to; ++i) {
        const auto octet = static_cast<unsigned char>(i);
        EXPECT_GT(session.Video({0, 0, 0, 1, 0x65, octet}, i * 300 * kMillisecond, 3000000), 0);
        EXPECT_GT(session.Audio({0xAA, octet}, i * 300 * kMillisecond, 3000000), 0);
    }
}

// All calls on a handle that go the wrong way.
void Misroute(HostSession& session) {
    const Octets frame = Hex("00 00 00 01 65 77 00 00 00 01 41 78");
    EXPECT_EQ(session.Video(frame, 50000000, 400000), 0);
    EXPECT_EQ(session.m_HostBuffer, frame) << "a refused frame is not rewritten";
    EXPECT_EQ(session.Audio(Hex("BB CC"), 50000000, 400000), 0);
    EXPECT_EQ(session.PackedAudio(Hex("BB CC"), 50000000, 400000, {2, 1, 1}), 0);
    session.VosData(Hex("DE AD BE EF"));
    session.XpsData(Hex("68 DE AD"), Hex("67 DE AD BE EF"));
}

TEST_F(Routing, AMisroutedHandleRefusesEveryCallAndIsFinishedWhole) {
    const struct {
        const char* m_What;
        FourCC m_Format;
        FourCC m_Video;
        FourCC m_Audio;
        FourCC m_Other;
        int m_Frames; // frames of each kind before the other file is created
    } rows[] = {
        {"MKV while WebM was created last", kMkv, MakeFourCC("N264"), MakeFourCC("AAC "), kWebm, kFrames},
        {"MKV with all blocks still queued", kMkv, MakeFourCC("H264"), MakeFourCC("AAC "), kWebm, 2},
        {"HMKV while WebM was created last", MakeFourCC("HMKV"), MakeFourCC("havc"), MakeFourCC("AC3 "), kWebm,
         kFrames},
        {"empty MKV", kMkv, MakeFourCC("H264"), MakeFourCC("AAC "), kWebm, 0},
        {"WebM while MKV was created last", kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS"), kMkv, kFrames},
        {"WebM with start codes", kWebm, MakeFourCC("N264"), MakeFourCC("AAC "), MakeFourCC("HMKV"), kFrames},
        {"WebM while MKA was created last", kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS"), MakeFourCC("MKA "), 1},
        {"empty WebM", kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS"), kMkv, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_What);
        const EncodeParam job = MakeJob(row.m_Format, row.m_Video, row.m_Audio);
        const EncodeParam otherJob = MakeJob(row.m_Other, MakeFourCC("Xvid"), MakeFourCC("MP3 "));

        FakeEnvironment::SetRand({1, 2});
        HostSession straight(m_Plugin, job);
        Feed(straight, 0, row.m_Frames);
        const Octets expected = straight.Close();
        EXPECT_EQ(expected.empty(), row.m_Frames == 0);

        FakeEnvironment::SetRand({3, 4});
        HostSession otherStraight(m_Plugin, otherJob);
        Feed(otherStraight, 0, kFrames);
        const Octets otherExpected = otherStraight.Close();

        FakeEnvironment::SetRand({1, 2, 3, 4});
        HostSession older(m_Plugin, job);
        Feed(older, 0, row.m_Frames);
        HostSession newer(m_Plugin, otherJob);
        const std::uint32_t flag = *m_Plugin.m_pIsWebm;
        EXPECT_EQ(flag, row.m_Other == kWebm ? 1U : 0U);
        Misroute(older);
        Feed(newer, 0, 4);
        Misroute(older);
        ExpectSameFile(expected, older.Close());
        // The newer file is not affected.
        EXPECT_EQ(*m_Plugin.m_pIsWebm, flag);
        Feed(newer, 4, kFrames);
        ExpectSameFile(otherExpected, newer.Close());
    }
}

TEST_F(Routing, AnyFlagButZeroNamesWebm) {
    for (const std::uint32_t flag : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        HostSession matroska(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")));
        HostSession webm(m_Plugin, MakeVideoJob(kWebm, MakeFourCC("VP8 ")));
        *m_Plugin.m_pIsWebm = flag;
        EXPECT_EQ(webm.Video(Hex("01"), 0, 400000), 1) << flag;
        EXPECT_EQ(matroska.Video(Hex("01"), 0, 400000), 0) << flag;
        EXPECT_EQ(webm.Finish().Blocks().size(), 1U) << flag;
        EXPECT_TRUE(matroska.Close().empty()) << flag;
    }
}

TEST_F(Routing, AHandleWorksAgainOnceTheFlagNamesIt) {
    FakeEnvironment::SetRand({1, 2});
    HostSession straight(m_Plugin, MakeJob(kMkv, MakeFourCC("H264"), MakeFourCC("AAC ")));
    Feed(straight, 0, kFrames);
    const Octets expected = straight.Close();

    FakeEnvironment::SetRand({1, 2});
    HostSession older(m_Plugin, MakeJob(kMkv, MakeFourCC("H264"), MakeFourCC("AAC ")));
    Feed(older, 0, 3);
    HostSession webm(m_Plugin, MakeJob(kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
    Misroute(older);
    HostSession newer(m_Plugin, MakeJob(kMkv, MakeFourCC("H264"), MakeFourCC("AAC ")));
    Feed(older, 3, kFrames);
    ExpectSameFile(expected, older.Close());
    // WebM's turn to be misrouted, and empty.
    EXPECT_EQ(webm.Video(Hex("01"), 0, 1), 0);
    EXPECT_TRUE(webm.Close().empty());
    EXPECT_TRUE(newer.Close().empty());
}

} // namespace
