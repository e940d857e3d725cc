// SPDX-License-Identifier: MIT
// Codec set-up data: stored as given before the Tracks element is written; later it must fit the space or is dropped.
#include "HostTest.h"

#include <sys/mman.h>

namespace {

using SetupData = HostTest;

// Frames enough for Tracks to be written, in a file of one kind of media.
void FeedAudio(HostSession& session) {
    for (int i = 0; i < 6; ++i) session.Audio(Hex("21"), i * 200000, 200000);
}

void FeedVideo(HostSession& session) {
    for (int i = 0; i < 6; ++i) session.Video(Hex("65 66 67"), i * 400000, 400000);
}

TEST_F(SetupData, AudioBeforeAnyFrameIsStoredAsItComes) {
    for (const FourCC codec : {MakeFourCC("AAC "), MakeFourCC("VBIS")}) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeAudioJob(format, codec));
            session.VosData(Octets(3000, 0x77)); // replaced by the next
            session.VosData(Hex("12 10"));
            FeedAudio(session);
            EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("12 10"));
        }
    }
}

TEST_F(SetupData, AudioBetweenTheFirstFrameAndTheWritingReplacesThePlaceholder) {
    HostSession session(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("AAC ")));
    session.Audio(Hex("21"), 0, 200000);
    session.VosData(Octets(2000, 0x77)); // larger than the placeholder
    EXPECT_EQ(session.Finish().Payload(kPrivate), Octets(2000, 0x77));
}

TEST_F(SetupData, LateAudioIsPatchedIntoThePlaceholder) {
    for (const FourCC format : kFormatOfEachMuxer) {
        Octets files[2];
        for (const bool late : {false, true}) {
            FakeEnvironment::SetRand({});
            HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("AAC ")));
            FeedAudio(session);
            if (late) session.VosData(Hex("12 10"));
            session.Audio(Hex("21"), 50 * kSecond, 200000); // writing goes on where it was
            files[late ? 1 : 0] = session.Close();
        }
        const Ebml::File plain(files[0]);
        EXPECT_EQ(plain.Payload(kPrivate), Zeros(1024));
        Octets expected = files[0];
        expected[plain.At(kPrivate).PayloadOffset()] = 0x12;
        expected[plain.At(kPrivate).PayloadOffset() + 1] = 0x10;
        ExpectSameFile(expected, files[1]);
    }
}

TEST_F(SetupData, LateAudioFitsOrIsDropped) {
    const struct {
        FourCC m_Codec;
        std::size_t m_Room;
        std::size_t m_Length;
        bool m_Fits;
    } rows[] = {
        {MakeFourCC("AAC "), 1024, 1024, true},    {MakeFourCC("AAC "), 1024, 1025, false},
        {MakeFourCC("VBIS"), 10240, 10240, true},  {MakeFourCC("VBIS"), 10240, 10241, false},
        {MakeFourCC("VBIS"), 10240, 12000, false},
    };
    for (const auto& row : rows) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeAudioJob(format, row.m_Codec));
            FeedAudio(session);
            session.VosData(Octets(row.m_Length, 0x77));
            const Octets expected = row.m_Fits ? Octets(row.m_Length, 0x77) : Zeros(row.m_Room);
            EXPECT_EQ(session.Finish().Payload(kPrivate), expected) << row.m_Length;
        }
    }
}

TEST_F(SetupData, AShorterLateCallLeavesTheTailOfTheOneBefore) {
    HostSession session(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("AAC ")));
    FeedAudio(session);
    session.VosData(Hex("01 02 03 04 05"));
    session.VosData(Hex("A1 A2"));
    EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("A1 A2 03 04 05") + Zeros(1019));
}

TEST_F(SetupData, TheRoomIsFixedWhenTracksIsWritten) {
    HostSession session(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("AAC ")));
    session.VosData(Hex("01 02 03"));
    FeedAudio(session);
    session.VosData(Hex("A1 A2 A3 A4")); // does not fit
    session.VosData(Hex("B1 B2"));
    EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("B1 B2 03"));
}

TEST_F(SetupData, OtherAudioCodecsIgnoreIt) {
    for (const FourCC codec :
         {MakeFourCC("MP3 "), MakeFourCC("AC3 "), MakeFourCC("MP2A"), MakeFourCC("DTS "), MakeFourCC("PCM ")}) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeAudioJob(format, codec));
            session.VosData(Hex("12 10"));
            FeedAudio(session);
            session.VosData(Hex("12 10"));
            EXPECT_FALSE(session.Finish().Has(kPrivate));
        }
    }
    HostSession session(m_Plugin, MakeAudioJob(kMkv, 0x55));
    session.VosData(Hex("12 10"));
    FeedAudio(session);
    session.VosData(Hex("12 10"));
    EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("55 00 02 00 44 AC 00 00 10 B1 02 00 00 00 10 00 12 00"));
}

TEST_F(SetupData, AudioDataOfNoOctetsIsIgnored) {
    Octets data = Hex("99");
    for (const bool late : {false, true}) {
        HostSession session(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("AAC ")));
        session.VosData(Hex("12 10"));
        if (late) FeedAudio(session);
        m_Plugin.WriteVosData(session.Handle(), nullptr, 5);
        m_Plugin.WriteVosData(session.Handle(), nullptr, 0);
        m_Plugin.WriteVosData(session.Handle(), data.data(), 0);
        m_Plugin.WriteVosData(session.Handle(), data.data(), -1);
        m_Plugin.WriteVosData(session.Handle(), data.data(), INT32_MIN);
        if (!late) FeedAudio(session);
        EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("12 10"));
    }
}

TEST_F(SetupData, AudioDataIsNotForTheVideoTrackAndTheOtherWayRound) {
    HostSession video(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    video.VosData(Hex("12 10"));
    FeedVideo(video);
    video.VosData(Hex("12 10"));
    EXPECT_EQ(video.Finish().Payload(kPrivate), Zeros(1024));
    HostSession audio(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("AAC ")));
    audio.XpsData(Hex("68"), Hex("67"));
    FeedAudio(audio);
    audio.XpsData(Hex("68"), Hex("67"));
    EXPECT_EQ(audio.Finish().Payload(kPrivate), Zeros(1024));
}

// H.264.

struct SetRow {
    const char* m_What;
    Octets m_Picture;
    Octets m_Sequence;
    Octets m_Record;
};

std::vector<SetRow> SetRows() {
    const Octets sequence25 = Hex("67 4D 40 1F") + Octets(21, 0x5A);
    return {
        {"both", Hex("68 CE 38 80"), sequence25,
         Hex("01 4D 40 1F FF E1 00 19") + sequence25 + Hex("01 00 04 68 CE 38 80")},
        {"neither", {}, {}, Hex("01 42 00 0D FF 00 00")},
        {"sequence set only", {}, Hex("67 64 00 28 AC"), Hex("01 64 00 28 FF E1 00 05 67 64 00 28 AC 00")},
        {"picture set only", Hex("68 CE"), {}, Hex("01 42 00 0D FF 00 01 00 02 68 CE")},
        {"sequence set of 3 octets", {}, Hex("67 64 00"), Hex("01 42 00 0D FF E1 00 03 67 64 00 00")},
        {"sequence set of 4 octets", {}, Hex("67 64 01 28"), Hex("01 64 01 28 FF E1 00 04 67 64 01 28 00")},
        {"sequence set of 1 octet", Hex("68"), Hex("67"), Hex("01 42 00 0D FF E1 00 01 67 01 00 01 68")},
        {"nothing is looked into", Hex("00 00 00 01 68"), Hex("00 00 00 01 67"),
         Hex("01 00 00 01 FF E1 00 05 00 00 00 01 67 01 00 05 00 00 00 01 68")},
    };
}

TEST_F(SetupData, ParameterSetsBecomeADecoderConfigurationRecord) {
    for (const FourCC codec : {MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("A264"), MakeFourCC("I264")}) {
        for (const SetRow& row : SetRows()) {
            HostSession early(m_Plugin, MakeVideoJob(kMkv, codec));
            early.XpsData(Octets(100, 1), Octets(100, 2)); // replaced by the next
            early.XpsData(row.m_Picture, row.m_Sequence);
            early.Video(Hex("00 00 00 01 65 88"), 0, 400000);
            EXPECT_EQ(early.Finish().Payload(kPrivate), row.m_Record) << row.m_What;

            HostSession late(m_Plugin, MakeVideoJob(kMkv, codec));
            for (int i = 0; i < 5; ++i) late.Video(Hex("00 00 00 01 65 88"), i * 400000, 400000);
            late.XpsData(row.m_Picture, row.m_Sequence);
            late.Video(Hex("00 00 00 01 65 88"), 50 * kSecond, 400000);
            EXPECT_EQ(late.Finish().Payload(kPrivate), row.m_Record + Zeros(1024 - row.m_Record.size())) << row.m_What;
        }
    }
}

TEST_F(SetupData, ParameterSetsInWebm) {
    for (const FourCC codec : {MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("A264")}) {
        for (const SetRow& row : SetRows()) {
            HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("WEBM"), codec));
            session.XpsData(row.m_Picture, row.m_Sequence);
            session.Video(Hex("00 00 00 01 65 88"), 0, 400000);
            EXPECT_EQ(session.Finish().Payload(kPrivate), row.m_Record) << row.m_What;
        }
    }
}

TEST_F(SetupData, LateParameterSetsFitOrAreDropped) {
    // 1000 + 9 + 13 + 2 = 1024.
    const Octets picture(13, 0x68);
    const Octets sequence = Hex("67 64 00 28") + Octets(996, 0x5A);
    HostSession fits(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    FeedVideo(fits);
    fits.XpsData(picture, sequence);
    EXPECT_EQ(fits.Finish().Payload(kPrivate), Hex("01 64 00 28 FF E1 03 E8") + sequence + Hex("01 00 0D") + picture);
    HostSession dropped(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    FeedVideo(dropped);
    dropped.XpsData(picture + Hex("68"), sequence);
    EXPECT_EQ(dropped.Finish().Payload(kPrivate), Zeros(1024));
    // The early data determine the room; a smaller record leaves their tail.
    HostSession early(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    early.XpsData(Hex("68 CE"), Hex("67 64 00 28 AC"));
    FeedVideo(early);
    early.XpsData(Hex("68 CE CF"), Hex("67 64 00 28 AC"));
    early.XpsData({}, {});
    EXPECT_EQ(early.Finish().Payload(kPrivate), Hex("01 42 00 0D FF 00 00 05 67 64 00 28 AC 01 00 02 68 CE"));
}

// More than 32-bit memory holds: they are not looked at, let alone copied.
TEST_F(SetupData, LateDataThatCannotFitNeedsNoMemory) {
    constexpr int kHuge = 1200 << 20;
    void* const huge = mmap(nullptr, kHuge, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(huge, MAP_FAILED);
    auto* const octets = static_cast<unsigned char*>(huge);
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC ")));
        for (int i = 0; i < 6; ++i) {
            session.Video(Hex("65 66 67"), i * 400000, 400000);
            session.Audio(Hex("21"), i * 400000, 400000);
        }
        EXPECT_NO_THROW(m_Plugin.WritezXPSData(session.Handle(), octets, kHuge, octets, kHuge));
        EXPECT_NO_THROW(m_Plugin.WriteVosData(session.Handle(), octets, kHuge));
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"), Zeros(1024));
        EXPECT_EQ(file.Payload("Segment/Tracks/TrackEntry[1]/CodecPrivate"), Zeros(1024));
    }
    munmap(huge, kHuge);
}

TEST_F(SetupData, LongParameterSetsKeepTheLow16BitsOfTheirLength) {
    const Octets picture(65536 + 2, 0x68);
    const Octets sequence = Hex("67 64 00 28") + Octets(65536, 0x5A);
    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
    session.XpsData(picture, sequence);
    FeedVideo(session);
    EXPECT_EQ(session.Finish().Payload(kPrivate),
              Hex("01 64 00 28 FF E1 00 04") + sequence + Hex("01 00 02") + picture);
}

TEST_F(SetupData, AbsentParameterSets) {
    Octets set = Hex("67 64 00 28 AC");
    unsigned char* const data = set.data();
    const struct {
        unsigned char* m_pPicture;
        int m_PictureLength;
        unsigned char* m_pSequence;
        int m_SequenceLength;
    } rows[] = {
        {nullptr, 5, nullptr, 5},
        {data, 0, data, 0},
        {data, -1, data, -1},
        {data, INT32_MIN, data, INT32_MIN},
        {nullptr, INT32_MAX, nullptr, INT32_MAX},
        {nullptr, INT32_MIN, data, -5},
    };
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("H264")));
        m_Plugin.WritezXPSData(session.Handle(), row.m_pPicture, row.m_PictureLength, row.m_pSequence,
                               row.m_SequenceLength);
        FeedVideo(session);
        EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("01 42 00 0D FF 00 00"));
    }
}

TEST_F(SetupData, OtherVideoCodecsIgnoreIt) {
    for (const FourCC codec : {MakeFourCC("MP4V"), MakeFourCC("Xvid"), MakeFourCC("VP8 ")}) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeVideoJob(format, codec));
            session.XpsData(Hex("68 CE"), Hex("67 64 00 28 AC"));
            FeedVideo(session);
            session.XpsData(Hex("68 CE"), Hex("67 64 00 28 AC"));
            EXPECT_FALSE(session.Finish().Has(kPrivate));
        }
    }
    // Video for Windows, I264 in WebM among it.
    for (const FourCC format : kFormatOfEachMuxer) {
        HostSession session(m_Plugin, MakeVideoJob(format, format == kMkv ? MakeFourCC("havc") : MakeFourCC("I264")));
        session.XpsData(Hex("68 CE"), Hex("67 64 00 28 AC"));
        FeedVideo(session);
        session.XpsData(Hex("68 CE"), Hex("67 64 00 28 AC"));
        const Octets header = session.Finish().Payload(kPrivate);
        ASSERT_EQ(header.size(), 40U);
        EXPECT_EQ(header[0], 40);
        EXPECT_EQ(Octets(header.begin() + 16, header.begin() + 20), Ascii(format == kMkv ? "X264" : "I264"));
    }
}

// MPEG-1 and MPEG-2.

TEST_F(SetupData, MpegSequenceHeaders) {
    const Octets header = Hex("00 00 01 B3 01 02 03 04 05 06 07 08");
    const Octets extension = Hex("00 00 01 B5 11 12 13 14 15 16");
    const Octets group = Hex("00 00 01 B8 21 22");
    const struct {
        const char* m_What;
        Octets m_First, m_Second;
        Octets m_Private; // empty for none
    } rows[] = {
        {"header, extension, group", {}, header + extension + group, header + extension},
        {"to the end", {}, header + extension, header + extension},
        {"the first buffer is not looked at", Hex("00 00 01 B3 FF FF"), header, header},
        {"octets before it", {}, Hex("AA") + group + header, header},
        {"none", {}, group + extension, {}},
        {"no second buffer", header, {}, {}},
    };
    for (const FourCC format : kFormatOfEachMuxer) {
        for (const FourCC codec : {MakeFourCC("MP1V"), MakeFourCC("MP2V")}) {
            for (const auto& row : rows) {
                HostSession session(m_Plugin, MakeVideoJob(format, codec));
                session.XpsData(row.m_First, row.m_Second);
                FeedVideo(session);
                const Ebml::File file = session.Finish();
                EXPECT_EQ(file.Has(kPrivate), !row.m_Private.empty()) << row.m_What;
                if (!row.m_Private.empty()) {
                    EXPECT_EQ(file.Payload(kPrivate), row.m_Private) << row.m_What;
                }
            }
        }
    }
}

TEST_F(SetupData, LateMpegSequenceHeaders) {
    const Octets header = Hex("00 00 01 B3 01 02 03 04");
    // There is no placeholder for these: without a header in the first frames there is no room.
    HostSession none(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("MP2V")));
    FeedVideo(none);
    none.XpsData({}, header);
    EXPECT_FALSE(none.Finish().Has(kPrivate));

    HostSession session(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("MP2V")));
    session.XpsData({}, header);
    FeedVideo(session);
    session.XpsData({}, header + Hex("09"));                   // too long
    session.XpsData({}, Hex("00 00 01 B8 AA"));                // none
    session.XpsData({}, Hex("AA 00 00 01 B3 0A 00 00 01 B8")); // shorter
    EXPECT_EQ(session.Finish().Payload(kPrivate), Hex("00 00 01 B3 0A 02 03 04"));
}

TEST_F(SetupData, ARewriteTouchesNothingBehindTracks) {
    // Both tracks' data, again and again while clusters are written.
    HostSession session(m_Plugin, MakeJob(kMkv, MakeFourCC("H264"), MakeFourCC("AAC ")));
    for (int i = 0; i < 100; ++i) {
        const auto octet = static_cast<unsigned char>(i);
        session.Video(Octets(500, octet), i * 100 * kMillisecond, 1000000, i % 10 == 0 ? kKey : kDelta);
        session.Audio(Octets(50, octet), i * 100 * kMillisecond, 1000000);
        session.VosData(Hex("12") + Octets{octet});
        session.XpsData(Hex("68") + Octets{octet}, Hex("67 64 00 28") + Octets{octet});
    }
    const Ebml::File file = session.Finish();
    EXPECT_EQ(file.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"),
              Hex("01 64 00 28 FF E1 00 05 67 64 00 28 63 01 00 02 68 63"));
    EXPECT_EQ(file.Payload("Segment/Tracks/TrackEntry[1]/CodecPrivate"), Hex("12 63"));
    const std::vector<Ebml::Block> blocks = file.Blocks();
    ASSERT_EQ(blocks.size(), 200U);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto octet = static_cast<unsigned char>(i / 2);
        EXPECT_EQ(blocks[i].m_Frame, Octets(i % 2 == 0 ? 500U : 50U, octet));
    }
}

} // namespace
