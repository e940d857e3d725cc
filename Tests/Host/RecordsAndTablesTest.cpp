// SPDX-License-Identifier: MIT
// The tables that the plug-in shows a host, field by field, and the gaps of the host's records.
#include "HostTest.h"

#include <cstring>

namespace {

using Tables = HostTest;
using Records = HostTest;

std::vector<FourCC> Codes(const EncoderEntry* list) {
    std::vector<FourCC> codes;
    for (; list->fourCC != 0; ++list) {
        codes.push_back(list->fourCC);
        EXPECT_EQ(list->reserved, 0U);
    }
    EXPECT_EQ(list->reserved, 0U);
    return codes;
}

TEST_F(Tables, FourFormatsAndTheTerminator) {
    const FileFormatInfo* const formats = m_Plugin.GetFileFormats();
    ASSERT_EQ(formats, m_Plugin.m_pFormatArray);
    const struct {
        FourCC m_FourCC;
        const wchar_t* m_Extension;
        const wchar_t* m_ShortName;
        const wchar_t* m_Description;
        const EncoderEntry* m_pAudio;
        const EncoderEntry* m_pVideo;
        bool m_SetsMuxParam;
    } rows[] = {
        {MakeFourCC("MKV "), L".mkv", L"MKV", L"MKV File", m_Plugin.m_pMKVAudioEncoders, m_Plugin.m_pMKVVideoEncoders,
         true},
        {MakeFourCC("HMKV"), L".mkv", L"MKV", L"MKV File", m_Plugin.m_pHMKVAudioEncoders, m_Plugin.m_pHMKVVideoEncoders,
         false},
        {MakeFourCC("MKA "), L".mka", L"MKA", L"MKA File", m_Plugin.m_pMKVAudioEncoders, nullptr, false},
        {MakeFourCC("WEBM"), L".webm", L"WEBM", L"WEBM File", m_Plugin.m_pWEBMAudioEncoders,
         m_Plugin.m_pWEBMVideoEncoders, false},
    };
    const FileFormatInfo* format = formats;
    for (const auto& row : rows) {
        EXPECT_EQ(format->fourCC, row.m_FourCC);
        EXPECT_STREQ(format->extension, row.m_Extension);
        EXPECT_STREQ(format->shortName, row.m_ShortName);
        EXPECT_STREQ(format->description, row.m_Description);
        // Copies: pointers of a record are aligned to 4 only, and no reference may be bound to them.
        EXPECT_EQ(+format->audioEncoders, row.m_pAudio);
        EXPECT_EQ(+format->videoEncoders, row.m_pVideo);
        const bool video = row.m_pVideo != nullptr;
        EXPECT_TRUE(format->CreateMediaFile == m_Plugin.CreateMediaFile);
        EXPECT_TRUE(format->WriteAudioPacket == m_Plugin.WriteAudioPacket);
        EXPECT_TRUE(format->WriteVideoPacket == (video ? m_Plugin.WriteVideoPacket : nullptr));
        EXPECT_TRUE(format->CloseMediaFile == m_Plugin.CloseMediaFile);
        EXPECT_TRUE(format->WriteVosData == m_Plugin.WriteVosData);
        EXPECT_TRUE(format->WritezXPSData == (video ? m_Plugin.WritezXPSData : nullptr));
        EXPECT_TRUE(format->spare == nullptr);
        EXPECT_TRUE(format->SetMuxParam == (row.m_SetsMuxParam ? m_Plugin.SetMuxParam : nullptr));
        ++format;
    }
    EXPECT_EQ(format->fourCC, 0U);
}

TEST_F(Tables, PositionsAsTheHostReadsThem) {
    const auto* const table = reinterpret_cast<const unsigned char*>(m_Plugin.m_pFormatArray);
    // Record by record, for 4-byte and for 8-byte pointers.
    const bool narrow = sizeof(void*) == 4;
    const std::size_t size = narrow ? 852 : 892;
    const auto word = [&](std::size_t at) {
        std::uint32_t value;
        std::memcpy(&value, table + at, sizeof value);
        return value;
    };
    const auto pointer = [&](std::size_t at) {
        std::uintptr_t value;
        std::memcpy(&value, table + at, sizeof value);
        return value;
    };
    EXPECT_EQ(word(0), 0x20564B4DU);        // "MKV "
    EXPECT_EQ(word(size), 0x564B4D48U);     // "HMKV"
    EXPECT_EQ(word(2 * size), 0x20414B4DU); // "MKA "
    EXPECT_EQ(word(3 * size), 0x4D424557U); // "WEBM"
    EXPECT_EQ(word(4 * size), 0U);          // the terminator
    EXPECT_EQ(word(4), static_cast<unsigned>(L'.'));
    EXPECT_EQ(word(44), static_cast<unsigned>(L'M'));
    EXPECT_EQ(word(300 + 4 * 4), static_cast<unsigned>(L'F')); // MKV File
    const std::uintptr_t expected[] = {
        reinterpret_cast<std::uintptr_t>(m_Plugin.m_pMKVAudioEncoders),
        reinterpret_cast<std::uintptr_t>(m_Plugin.m_pMKVVideoEncoders),
        reinterpret_cast<std::uintptr_t>(m_Plugin.CreateMediaFile),
        reinterpret_cast<std::uintptr_t>(m_Plugin.WriteAudioPacket),
        reinterpret_cast<std::uintptr_t>(m_Plugin.WriteVideoPacket),
        reinterpret_cast<std::uintptr_t>(m_Plugin.CloseMediaFile),
        reinterpret_cast<std::uintptr_t>(m_Plugin.WriteVosData),
        reinterpret_cast<std::uintptr_t>(m_Plugin.WritezXPSData),
        0, // the spare entry
        reinterpret_cast<std::uintptr_t>(m_Plugin.SetMuxParam),
    };
    std::size_t at = 812;
    for (const std::uintptr_t value : expected) {
        EXPECT_EQ(pointer(at), value) << at;
        at += sizeof(void*);
    }
    EXPECT_EQ(at, size);
}

TEST_F(Tables, AreWritable) {
    wchar_t& letter = m_Plugin.m_pFormatArray[0].description[0];
    letter = L'X';
    EXPECT_EQ(m_Plugin.GetFileFormats()[0].description[0], L'X');
    letter = L'M';
}

TEST_F(Tables, CodecsOfEachFormatInOrder) {
    EXPECT_EQ(Codes(m_Plugin.m_pMKVAudioEncoders),
              (std::vector<FourCC>{MakeFourCC("AAC "), MakeFourCC("AC3 "), MakeFourCC("MP3 ")}));
    EXPECT_EQ(Codes(m_Plugin.m_pMKVVideoEncoders),
              (std::vector<FourCC>{MakeFourCC("I264"), MakeFourCC("A264"), MakeFourCC("H264"), MakeFourCC("Xvid")}));
    EXPECT_EQ(m_Plugin.m_pMKVVideoEncoders[5].fourCC, 0U) << "more than one empty entry follows";
    EXPECT_EQ(m_Plugin.m_pMKVVideoEncoders[5].reserved, 0U);
    EXPECT_EQ(Codes(m_Plugin.m_pHMKVAudioEncoders), (std::vector<FourCC>{MakeFourCC("AC3 ")}));
    EXPECT_EQ(Codes(m_Plugin.m_pHMKVVideoEncoders),
              (std::vector<FourCC>{MakeFourCC("I264"), MakeFourCC("A264"), MakeFourCC("havc")}));
    EXPECT_EQ(Codes(m_Plugin.m_pWEBMAudioEncoders), (std::vector<FourCC>{MakeFourCC("VBIS")}));
    EXPECT_EQ(Codes(m_Plugin.m_pWEBMVideoEncoders), (std::vector<FourCC>{MakeFourCC("VP8 ")}));
}

TEST_F(Tables, NoEncoderIsOffered) {
    EXPECT_EQ(m_Plugin.GetEncoders(), m_Plugin.m_pEncoderArray);
    const auto* const octets = reinterpret_cast<const unsigned char*>(m_Plugin.m_pEncoderArray);
    EXPECT_EQ(Octets(octets, octets + sizeof(EncoderInfo)), Zeros(sizeof(EncoderInfo)));
}

TEST(Load, OptionsAndFlagAreZero) {
    const Plugin plugin(QF_PLUGIN);
    const MuxParam zero{};
    EXPECT_EQ(std::memcmp(plugin.m_pMuxParam, &zero, sizeof zero), 0);
    EXPECT_EQ(*plugin.m_pIsWebm, 0U);
}

// One session of each kind, with every octet that the host keeps for itself set to `gap`.
Octets SessionWithGaps(const Plugin& plugin, FourCC format, FourCC video, FourCC audio, unsigned char gap) {
    FakeEnvironment::SetRand({});
    MuxParam mux;
    std::memset(&mux, gap, sizeof mux);
    mux.muxFlags = 1;
    mux.displayAspectX = 4;
    mux.displayAspectY = 3;
    plugin.SetMuxParam(&mux);
    HostSession session(plugin, MakeJob(format, video, audio, gap));
    session.m_Gap = gap;
    for (int i = 0; i < 7; ++i) {
        session.Video(Hex("00 00 00 01 65 88"), i * 40 * kMillisecond, 400000, i % 3 == 0 ? kKey : kDelta);
        session.PackedAudio(Hex("01 02 03"), i * 40 * kMillisecond, 400000, {2, 1, 2});
    }
    return session.Close();
}

TEST_F(Records, TheHostsOwnOctetsChangeNothing) {
    const struct {
        FourCC m_Format;
        FourCC m_Video;
        FourCC m_Audio;
    } rows[] = {
        {MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC ")},
        {MakeFourCC("MKV "), MakeFourCC("N264"), MakeFourCC("MP3 ")},
        {MakeFourCC("HMKV"), MakeFourCC("havc"), MakeFourCC("AC3 ")},
        {MakeFourCC("MKA "), MakeFourCC("MP2V"), MakeFourCC("WAVE")},
        {MakeFourCC("WEBM"), MakeFourCC("VP8 "), MakeFourCC("VBIS")},
    };
    for (const auto& row : rows) {
        const Octets plain = SessionWithGaps(m_Plugin, row.m_Format, row.m_Video, row.m_Audio, 0);
        for (const unsigned char gap : std::initializer_list<unsigned char>{0xA5, 0xFF, 0x01}) {
            ExpectSameFile(plain, SessionWithGaps(m_Plugin, row.m_Format, row.m_Video, row.m_Audio, gap));
        }
    }
}

TEST_F(Records, AreNotLookedAtAfterTheCall) {
    Octets files[2];
    for (const bool spoil : {false, true}) {
        FakeEnvironment::SetRand({});
        TempDirectory directory;
        EncodeParam job = MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("MP3 "));
        std::wstring path = (directory / "a").wstring();
        void* const handle = m_Plugin.CreateMediaFile(path.c_str(), &job);
        ASSERT_NE(handle, nullptr);
        if (spoil) {
            std::memset(&job, 0xFF, sizeof job);
            path.assign(path.size(), L'x');
        }
        for (int i = 0; i < 8; ++i) {
            Octets data = {1, 2, static_cast<unsigned char>(i)};
            MEDIA_FRAME frame{};
            frame.videoData = frame.audioData = data.data();
            frame.videoSize = frame.audioSize = 3;
            frame.timestamp = i * 40 * kMillisecond;
            frame.duration = 400000;
            EXPECT_EQ(m_Plugin.WriteVideoPacket(handle, &frame), 3);
            EXPECT_EQ(m_Plugin.WriteAudioPacket(handle, &frame, nullptr), 3);
            if (spoil) {
                data.assign(3, 0xEE);
                std::memset(&frame, 0xEE, sizeof frame);
            }
        }
        m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
        files[spoil ? 1 : 0] = ReadFile(directory / "a");
    }
    EXPECT_EQ(Ebml::Describe(Ebml::Check(Ebml::File(files[0]))), "");
    ExpectSameFile(files[0], files[1]);
}

TEST_F(Records, ANegativeHeightIsAPositiveOneInTheFile) {
    EncodeParam job = MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("Xvid"));
    job.videoParam.height = -576;
    HostSession session(m_Plugin, job);
    session.Video(Hex("01"), 0, 400000);
    EXPECT_EQ(session.Finish().Unsigned("Segment/Tracks/TrackEntry/Video/PixelHeight"), 576U);
}

TEST_F(Records, DisplayAspectIsUsedOnlyWhenAskedForAndPositive) {
    constexpr std::int32_t kLeast = INT32_MIN;
    const struct {
        const char* m_What;
        MuxParam m_Mux;
        std::uint64_t m_Width;
        std::uint64_t m_Height;
    } rows[] = {
        {"asked for", {0, 1, 0, 16, 9, 0}, 16, 9},
        {"among other flags", {0, 0xFFFFFFFF, 0, 16, 9, 0}, 16, 9},
        {"in lowest terms", {0, 1, 0, 720, 576, 0}, 5, 4},
        {"bit 0 clear", {0, 0, 0, 16, 9, 0}, 0, 0},
        {"only other flags", {0, 0xFFFFFFFE, 0, 16, 9, 0}, 0, 0},
        {"no width", {0, 1, 0, 0, 9, 0}, 0, 0},
        {"no height", {0, 1, 0, 16, 0, 0}, 0, 0},
        {"negative height", {0, 1, 0, 16, -9, 0}, 0, 0},
        // Reduced by a divisor that takes the remainders' sign: (-16, 9) is stored as (16, -9).
        {"negative width", {0, 1, 0, -16, 9, 0}, 0, 0},
        // Both negative: (-16, -9) ends with a divisor of -1 and is stored as (16, 9).
        {"both negative", {0, 1, 0, -16, -9, 0}, 16, 9},
        {"the most negative", {0, 1, 0, kLeast, kLeast, 0}, 1, 1},
    };
    for (const auto& row : rows) {
        MuxParam mux = row.m_Mux;
        m_Plugin.SetMuxParam(&mux);
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA ")}) {
            HostSession session(m_Plugin, MakeVideoJob(format, MakeFourCC("Xvid")));
            session.Video(Hex("01"), 0, 400000);
            const Ebml::File file = session.Finish();
            EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayWidth"), row.m_Width) << row.m_What;
            EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayHeight"), row.m_Height) << row.m_What;
        }
        // WebM takes no options.
        HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("WEBM"), MakeFourCC("VP8 ")));
        session.Video(Hex("01"), 0, 400000);
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayWidth"), 0U) << row.m_What;
        EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry/Video/DisplayHeight"), 0U) << row.m_What;
    }
}

TEST_F(Records, AFrameWithoutDurationLastsOneUnit) {
    // A single block at time zero leaves the running Duration in the file, and that is the block's end in milliseconds:
    // 4999 units are still 0 ms, 5000 round to 1.
    const struct {
        std::int32_t m_Duration;
        float m_End;
    } rows[] = {{0, 1.0F}, {-1, 1.0F}, {INT32_MIN, 1.0F}, {1, 1.0F}, {20000, 2.0F}};
    for (const auto& row : rows) {
        HostSession video(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("Xvid")));
        video.Video(Hex("01"), 4999, row.m_Duration);
        EXPECT_EQ(video.Finish().Float("Segment/Info/Duration"), row.m_End) << row.m_Duration;
        HostSession audio(m_Plugin, MakeAudioJob(MakeFourCC("WEBM"), MakeFourCC("VBIS")));
        audio.Audio(Hex("01"), 4999, row.m_Duration);
        EXPECT_EQ(audio.Finish().Float("Segment/Info/Duration"), row.m_End) << row.m_Duration;
    }
}

} // namespace
