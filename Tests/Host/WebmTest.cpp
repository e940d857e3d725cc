// SPDX-License-Identifier: MIT
// Rules of WebM files alone.
#include "HostTest.h"

namespace {

using Webm = HostTest;

TEST_F(Webm, TheHeaderOctetByOctet) {
    const Octets versions = Hex("42 86 81 01 42 F7 81 01 42 F2 81 04 42 F3 81 08");
    HostSession video(m_Plugin, MakeVideoJob(kWebm, MakeFourCC("VP8 ")));
    video.Video(Hex("01"), 0, 1);
    const Ebml::File videoFile = video.Finish();
    EXPECT_EQ(videoFile.OctetsOf(videoFile.At("EBML")),
              Hex("1A 45 DF A3 9F") + versions + Hex("42 82 84") + Ascii("webm") + Hex("42 87 81 02 42 85 81 02"));
    HostSession audio(m_Plugin, MakeAudioJob(kWebm, MakeFourCC("VBIS")));
    audio.Audio(Hex("01"), 0, 1);
    const Ebml::File audioFile = audio.Finish();
    EXPECT_EQ(audioFile.OctetsOf(audioFile.At("EBML")),
              Hex("1A 45 DF A3 A3") + versions + Hex("42 82 88") + Ascii("matroska") + Hex("42 87 81 02 42 85 81 02"));
}

TEST_F(Webm, EveryBlockIsSimple) {
    HostSession session(m_Plugin, MakeJob(kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
    for (int i = 0; i < 60; ++i) {
        session.Video(Hex("31"), i * 50 * kMillisecond, 500000, i % 7 == 0 ? 0x10U : kDelta);
        session.Audio(Hex("A1"), i * 50 * kMillisecond, 500000);
    }
    const Ebml::File file = session.Finish();
    const std::vector<Ebml::Block> blocks = file.Blocks();
    ASSERT_EQ(blocks.size(), 120U);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_TRUE(blocks[i].m_Simple);
        const bool key = blocks[i].m_Track == 2 || (i / 2) % 7 == 0;
        EXPECT_EQ(blocks[i].m_Flags, key ? 0x80 : 0x00) << i;
    }
    for (const Ebml::Element* cluster : file.Children("Segment", "Cluster")) {
        EXPECT_TRUE(file.Children(cluster->m_Path, "BlockGroup").empty());
    }
}

TEST_F(Webm, AClusterThatOpensWithoutAKeyFrameHasItsCue) {
    HostSession session(m_Plugin, MakeJob(kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
    session.Video(Hex("31"), 0, 400000, kKey);
    session.Audio(Hex("A1"), 0, 400000);
    session.Video(Hex("32"), 1100 * kMillisecond, 400000, kDelta); // opens its cluster
    session.Audio(Hex("A2"), 1100 * kMillisecond, 400000);
    session.Audio(Hex("A3"), 2100 * kMillisecond, 400000);
    session.Video(Hex("33"), 2200 * kMillisecond, 400000, kDelta); // behind an audio block
    session.Video(Hex("34"), 2300 * kMillisecond, 400000, kKey);   // one cue for each cluster
    const std::vector<Ebml::Cue> cues = session.Finish().Cues();
    ASSERT_EQ(cues.size(), 3U);
    EXPECT_EQ(cues[1].m_Time, 1100U);
    EXPECT_FALSE(cues[1].m_BlockNumber.has_value());
    EXPECT_EQ(cues[2].m_Time, 2200U);
    EXPECT_EQ(cues[2].m_BlockNumber, 1U);
}

std::string Order(const Ebml::File& file) {
    std::string text;
    for (const Ebml::Block& block : file.Blocks()) {
        text += (block.m_Track == 1 ? " v" : " a") + std::to_string(block.Time());
    }
    return text;
}

TEST_F(Webm, OnceBothKindsHaveComeEveryFrameIsPlacedAsItArrives) {
    HostSession session(m_Plugin, MakeJob(kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
    session.m_Times = Ebml::Times::Lagging;
    for (const int at : {0, 40, 80, 120, 160, 200}) session.Video(Hex("31"), at * kMillisecond, 400000);
    session.Audio(Hex("A1"), 50 * kMillisecond, 400000); // the second kind: all seven in time order
    session.Audio(Hex("A2"), 300 * kMillisecond, 400000);
    session.Video(Hex("32"), 240 * kMillisecond, 400000); // after it, as it arrived
    session.Audio(Hex("A3"), 250 * kMillisecond, 400000);
    EXPECT_EQ(Order(session.Finish()), " v0 v40 a50 v80 v120 v160 v200 a300 v240 a250");
}

TEST_F(Webm, TheFirstFrameOfTheSecondKindWritesTracks) {
    // Vorbis data given before stands alone; data given later lies in the placeholder.
    const struct {
        const char* m_Calls;
        bool m_Written;
    } rows[] = {{"aaaaaaaa", false}, {"av", true}, {"va", true}, {"vvvvvvv", false}, {"aV", false}, {"vA", false}};
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeJob(kWebm, MakeFourCC("VP8 "), MakeFourCC("VBIS")));
        for (const char* call = row.m_Calls; *call != '\0'; ++call) {
            const Octets data = *call == 'V' || *call == 'A' ? Octets() : Hex("01");
            if (*call == 'v' || *call == 'V') {
                session.Video(data, (call - row.m_Calls) * 400000, 400000);
            } else {
                session.Audio(data, (call - row.m_Calls) * 400000, 400000);
            }
        }
        session.VosData(Hex("02 01 01"));
        EXPECT_EQ(session.Finish().At("Segment/Tracks/TrackEntry[1]/CodecPrivate").m_PayloadSize,
                  row.m_Written ? 10240U : 3U)
            << row.m_Calls;
    }
}

TEST_F(Webm, WithOneKindTheFirstFrameWritesTracks) {
    HostSession audio(m_Plugin, MakeAudioJob(kWebm, MakeFourCC("VBIS")));
    audio.Audio(Hex("01"), 0, 1);
    audio.VosData(Hex("02"));
    EXPECT_EQ(audio.Finish().Payload("Segment/Tracks/TrackEntry/CodecPrivate"), Hex("02") + Zeros(10239));
    HostSession video(m_Plugin, MakeVideoJob(kWebm, MakeFourCC("H264")));
    video.Video(Hex("01"), 0, 1);
    video.XpsData({}, {});
    EXPECT_EQ(video.Finish().Payload("Segment/Tracks/TrackEntry/CodecPrivate"),
              Hex("01 42 00 0D FF 00 00") + Zeros(1017));
}

TEST_F(Webm, H264GoesInAsItStands) {
    // No lossless path, and I264 is no H.264 here.
    for (const FourCC codec : {MakeFourCC("H264"), MakeFourCC("I264"), MakeFourCC("VP8 ")}) {
        HostSession session(m_Plugin, MakeVideoJob(kWebm, codec));
        const Octets frame = Hex("00 00 00 01 67 42 00 00 00 01 06 11 00 00 00 01 65 88");
        EXPECT_EQ(session.Video(frame, 0, 400000), 18);
        EXPECT_EQ(session.m_HostBuffer, frame);
        EXPECT_EQ(session.Finish().Blocks()[0].m_Frame, frame);
    }
}

TEST_F(Webm, KeySlicesAreKeyFrames) {
    HostSession session(m_Plugin, MakeVideoJob(kWebm, MakeFourCC("N264")));
    session.Video(Hex("00 00 00 01 65 88 00 00 00 01 41 99"), 0, 400000, kDelta);
    const std::vector<Ebml::Block> blocks = session.Finish().Blocks();
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_EQ(blocks[0].m_Flags, 0x80);
    EXPECT_EQ(blocks[1].m_Flags, 0x00);
}

} // namespace
