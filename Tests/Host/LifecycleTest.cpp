// SPDX-License-Identifier: MIT
// A file from creation to close: where nothing is written, where it goes, and what each job creates.
#include "HostTest.h"

#include <fstream>

namespace {

using Lifecycle = HostTest;
using Paths = HostTest;

TEST_F(Lifecycle, BothStreamsDisabledCreateNoTrack) {
    for (const FourCC format : kAllFormats) {
        EncodeParam job = MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC "));
        job.disableVideo = 1;
        job.disableAudio = 1;
        HostSession session(m_Plugin, job);
        for (int i = 0; i < 7; ++i) {
            EXPECT_EQ(session.Video(Hex("01"), i * kSecond, 1), 0);
            EXPECT_EQ(session.Audio(Hex("01"), i * kSecond, 1), 0);
            EXPECT_EQ(session.PackedAudio(Hex("01"), i * kSecond, 1, {1, 1}), 0);
        }
        session.VosData(Hex("12 10"));
        session.XpsData(Hex("68"), Hex("67"));
        EXPECT_TRUE(session.Close().empty());
    }
}

TEST_F(Lifecycle, AnyNonZeroWordDisables) {
    for (const std::uint32_t word : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        EncodeParam job = MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC "));
        job.disableVideo = word;
        HostSession audio(m_Plugin, job);
        EXPECT_EQ(audio.Video(Hex("01"), 0, 1), 0);
        EXPECT_EQ(audio.Audio(Hex("01"), 0, 1), 1);
        EXPECT_EQ(audio.Finish().Children("Segment/Tracks", "TrackEntry").size(), 1U);
        job.disableVideo = 0;
        job.disableAudio = word;
        HostSession video(m_Plugin, job);
        EXPECT_EQ(video.Audio(Hex("01"), 0, 1), 0);
        EXPECT_EQ(video.Video(Hex("01"), 0, 1), 1);
        EXPECT_EQ(video.Finish().Children("Segment/Tracks", "TrackEntry").size(), 1U);
    }
}

TEST_F(Lifecycle, WithoutVideoAudioIsInterleavedAsItArrives) {
    // Whether Tracks is in the file shows in what becomes of set-up data: exactly its octets before, the head of the
    // 1024-octet placeholder after. The fifth queued block starts the writing.
    for (const int frames : {4, 5}) {
        HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKV "), MakeFourCC("AAC ")));
        for (int i = 0; i < frames; ++i) EXPECT_EQ(session.Audio(Hex("21 22"), i * 20 * kMillisecond, 200000), 2);
        session.VosData(Hex("12 10"));
        EXPECT_EQ(session.Finish().Payload("Segment/Tracks/TrackEntry/CodecPrivate"),
                  frames == 4 ? Hex("12 10") : Hex("12 10") + Zeros(1022));
    }
}

TEST_F(Lifecycle, WithoutAudioVideoIsInterleavedAsItArrives) {
    for (const int frames : {4, 5}) {
        HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("H264")));
        for (int i = 0; i < frames; ++i) EXPECT_EQ(session.Video(Hex("00 00"), i * 20 * kMillisecond, 200000), 2);
        session.XpsData({}, {});
        const Octets record = Hex("01 42 00 0D FF 00 00");
        EXPECT_EQ(session.Finish().Payload("Segment/Tracks/TrackEntry/CodecPrivate"),
                  frames == 4 ? record : record + Zeros(1017));
    }
}

TEST_F(Lifecycle, AStreamThatNeverDeliversHoldsAllBackUntilTheClose) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
        HostSession session(m_Plugin, MakeJob(format, MakeFourCC("VP8 "), MakeFourCC("AAC ")));
        for (int i = 0; i < 40; ++i) EXPECT_EQ(session.Audio(Hex("21 22"), i * 20 * kMillisecond, 200000), 2);
        session.VosData(Hex("12 10")); // Tracks is not in the file yet
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.Payload("Segment/Tracks/TrackEntry[1]/CodecPrivate"), Hex("12 10"));
        EXPECT_EQ(file.Blocks().size(), 40U);
        EXPECT_EQ(file.Children("Segment/Tracks", "TrackEntry").size(), 2U);
        // The cue track is the video track, which has no block.
        EXPECT_FALSE(file.Has("Segment/Cues"));
    }
}

TEST_F(Lifecycle, AnOlderFileIsReplaced) {
    TempDirectory directory;
    std::ofstream(directory / "a") << "something that was here before";
    const EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 "));
    m_Plugin.CloseMediaFile(m_Plugin.CreateMediaFile((directory / "a").wstring().c_str(), &job), nullptr, nullptr);
    EXPECT_TRUE(ReadFile(directory / "a").empty());
}

TEST_F(Lifecycle, ADirectoryThatDoesNotExistFails) {
    TempDirectory directory;
    for (const FourCC format : kAllFormats) {
        const EncodeParam job = MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC "));
        EXPECT_EQ(m_Plugin.CreateMediaFile((directory / "none/a").wstring().c_str(), &job), nullptr);
        EXPECT_FALSE(std::filesystem::exists(directory / "none"));
    }
}

TEST_F(Lifecycle, ManyFilesOfOneKindAreOpenAtOnce) {
    FakeEnvironment::SetRand({5, 6, 5, 6, 5, 6});
    const EncodeParam job = MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC "));
    HostSession first(m_Plugin, job);
    HostSession second(m_Plugin, job);
    HostSession third(m_Plugin, job);
    for (int i = 0; i < 12; ++i) {
        for (HostSession* session : {&first, &second, &third}) {
            session->Video(Hex("65"), i * 100 * kMillisecond, 1000000);
            session->Audio(Hex("21"), i * 100 * kMillisecond, 1000000);
        }
    }
    const Octets file = first.Close();
    ExpectSameFile(file, third.Close());
    ExpectSameFile(file, second.Close());
}

std::size_t EntriesOf(const std::filesystem::path& directory) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

// Creates, feeds one frame and closes; whether there was a handle.
bool WriteOneFrame(const Plugin& plugin, FourCC format, const std::wstring& path) {
    const EncodeParam job = MakeAudioJob(format, MakeFourCC("MP3 "));
    void* const handle = plugin.CreateMediaFile(path.c_str(), &job);
    if (handle == nullptr) return false;
    Octets data = Hex("FF FB");
    MEDIA_FRAME frame{};
    frame.audioData = data.data();
    frame.audioSize = 2;
    EXPECT_EQ(plugin.WriteAudioPacket(handle, &frame, nullptr), 2);
    plugin.CloseMediaFile(handle, nullptr, nullptr);
    return true;
}

TEST_F(Paths, AreUtf8OnDisk) {
    const struct {
        const char* m_What;
        std::wstring m_Name;
        std::string m_OnDisk;
    } rows[] = {
        {"blanks", L" a b .mkv", " a b .mkv"},
        {"only a blank", L" ", " "},
        {"no extension", L"file", "file"},
        {"two octets", L"\u00E9.mkv", "\xC3\xA9.mkv"},
        {"three octets", L"\u4E16.mkv", "\xE4\xB8\x96.mkv"},
        {"four octets", L"\U0001F600.mkv", "\xF0\x9F\x98\x80.mkv"},
        {"a lone surrogate, leniently", {static_cast<wchar_t>(0xD800), L'x'}, "\xED\xA0\x80x"},
        {"above Unicode", {static_cast<wchar_t>(0x110000), L'x'}, "\xEF\xBF\xBDx"},
        {"a negative character", {static_cast<wchar_t>(-1), L'x'}, "\xEF\xBF\xBDx"},
        {"signs of a format", L"100%s%n.mkv", "100%s%n.mkv"},
        {"nearly a disc image", L"a.iso", "a.iso"},
        {"a disc image that is not the last extension", L"a.iso:b.mkv", "a.iso:b.mkv"},
        {"a long extension", L"a." + std::wstring(200, L'x'), "a." + std::string(200, 'x')},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
            TempDirectory directory;
            EXPECT_TRUE(WriteOneFrame(m_Plugin, format, (directory / "").wstring() + row.m_Name)) << row.m_What;
            ASSERT_TRUE(std::filesystem::exists(directory / row.m_OnDisk)) << row.m_What;
            EXPECT_EQ(EntriesOf(directory / ""), 1U) << row.m_What;
            EXPECT_EQ(Ebml::Describe(Ebml::Check(Ebml::File(ReadFile(directory / row.m_OnDisk)))), "") << row.m_What;
        }
    }
}

TEST_F(Paths, AreCutAt2047OctetsBetweenCharacters) {
    // A long way round to the directory itself: "./" again and again until 1990 octets are used, or 1991.
    TempDirectory directory;
    const std::wstring root = (directory / "").wstring();
    const struct {
        wchar_t m_Letter;
        std::string m_OnDisk;
    } rows[] = {{L'a', "a"}, {L'\u00E9', "\xC3\xA9"}, {L'\U0001F600', "\xF0\x9F\x98\x80"}};
    for (const auto& row : rows) {
        std::wstring path = root;
        while (path.size() < 1990) path += L"./";
        const std::size_t room = 2047 - path.size();
        std::string name;
        while (name.size() + row.m_OnDisk.size() <= room) name += row.m_OnDisk;
        path += std::wstring(3000, row.m_Letter);
        EXPECT_TRUE(WriteOneFrame(m_Plugin, MakeFourCC("MKA "), path));
        EXPECT_TRUE(std::filesystem::exists(directory / name)) << row.m_OnDisk;
    }
    EXPECT_EQ(EntriesOf(directory / ""), 3U);
}

TEST_F(Paths, OfDiscImagesTakeEverythingAndWriteNothing) {
    for (const wchar_t* name : {L"disc.iso:", L"disc.ISO:/VIDEO/a", L"disc.Iso:x", L".iSo:", L"a.b.iso:mkv"}) {
        for (const FourCC format : kAllFormats) {
            TempDirectory directory;
            const EncodeParam job = MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC "));
            void* const handle = m_Plugin.CreateMediaFile(((directory / "").wstring() + name).c_str(), &job);
            ASSERT_NE(handle, nullptr);
            for (int i = 0; i < 30; ++i) {
                Octets data = Hex("01 02 03");
                MEDIA_FRAME frame{};
                frame.videoData = frame.audioData = data.data();
                frame.videoSize = frame.audioSize = 3;
                frame.frameFlags = 1;
                frame.timestamp = i * 100 * kMillisecond;
                EXPECT_EQ(m_Plugin.WriteVideoPacket(handle, &frame), 3);
                EXPECT_EQ(m_Plugin.WriteAudioPacket(handle, &frame, nullptr), 3);
                m_Plugin.WriteVosData(handle, data.data(), 3);
                m_Plugin.WritezXPSData(handle, data.data(), 3, data.data(), 3);
            }
            m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
            EXPECT_EQ(EntriesOf(directory / ""), 0U);
        }
    }
}

} // namespace
