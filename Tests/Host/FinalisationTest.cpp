// SPDX-License-Identifier: MIT
// The results of closing: the Duration, the index and the seek head with its filler.
#include "HostTest.h"

#include <cmath>

namespace {

using Finalisation = HostTest;

struct Frame {
    char m_Kind; // v or a
    std::int64_t m_Milliseconds;
    std::int32_t m_Duration; // 100 ns
};

TEST_F(Finalisation, Durations) {
    enum Tracks { kAudio, kVideo, kBoth };
    const struct {
        const char* m_What;
        Tracks m_Tracks;
        std::vector<Frame> m_Frames;
        float m_Duration;
    } rows[] = {
        {"audio: the sum of its durations", kAudio, {{'a', 0, 200000}, {'a', 20, 200000}, {'a', 40, 210000}}, 61.0F},
        {"one second off the last start stays", kAudio, {{'a', 0, 15000000}, {'a', 1000, 5000000}}, 2000.0F},
        {"more than one second off does not", kAudio, {{'a', 0, 15000000}, {'a', 999, 5000000}}, 1000.0F},
        {"one second short stays", kAudio, {{'a', 0, 5000000}, {'a', 2000, 5000000}}, 1000.0F},
        {"more than one second short does not", kAudio, {{'a', 0, 5000000}, {'a', 2001, 5000000}}, 2002.0F},
        // 1999.9 ms count as 1999 for this.
        {"fractions are cut off first", kAudio, {{'a', 0, 15000000}, {'a', 999, 4999000}}, 1999.9F},
        {"the last block written, not the latest", kAudio, {{'a', 0, 1}, {'a', 3000, 1}, {'a', 2500, 1}}, 2501.0F},
        {"durations of less than nothing", kAudio, {{'a', 0, -400000}, {'a', 40, -400000}}, -80.0F},
        {"all at time zero: the largest end", kAudio, {{'a', 0, 500000}, {'a', 0, 300000}}, 50.0F},
        {"all at time zero, far longer than a second", kAudio, {{'a', 0, 50000000}}, 1.0F},
        {"video of one second", kVideo, {{'v', 0, 400000}, {'v', 1000, 400000}}, 0.0F},
        {"video of more than one second", kVideo, {{'v', 0, 400000}, {'v', 1001, 400000}}, 1002.0F},
        {"video of ten", kVideo, {{'v', 0, 400000}, {'v', 9960, 400000}}, 9961.0F},
        {"one frame of video: its end", kVideo, {{'v', 7000, 400000}}, 40.0F},
        {"one frame of video, longer than a second", kVideo, {{'v', 0, 10010000}}, 1.0F},
        {"one frame of video of one second", kVideo, {{'v', 0, 10000000}}, 1000.0F},
        {"audio counts, video does not", kBoth, {{'v', 0, 400000}, {'a', 0, 200000}, {'v', 500, 9000000}}, 20.0F},
        // Frames of a track that the job does not have still add to the sum.
        {"audio that is not in the file", kVideo, {{'v', 0, 1}, {'a', 0, 6000000}, {'v', 500, 1}}, 600.0F},
        // 16777217 is no single-precision number; halves go to the even one.
        {"rounded to single precision", kVideo, {{'v', 0, 1}, {'v', 16777216, 1}}, 16777216.0F},
        {"rounded to single precision, upwards", kVideo, {{'v', 0, 1}, {'v', 16777218, 1}}, 16777220.0F},
    };
    for (const auto& row : rows) {
        for (const FourCC format : kFormatOfEachMuxer) {
            EncodeParam job = MakeJob(format, MakeFourCC("Xvid"), MakeFourCC("MP3 "));
            job.disableVideo = row.m_Tracks == kAudio ? 1 : 0;
            job.disableAudio = row.m_Tracks == kVideo ? 1 : 0;
            HostSession session(m_Plugin, job);
            session.m_Times = Ebml::Times::Lagging;
            for (const Frame& frame : row.m_Frames) {
                const std::int64_t at = frame.m_Milliseconds * kMillisecond;
                if (frame.m_Kind == 'a') {
                    session.Audio(Hex("01"), at, frame.m_Duration);
                } else {
                    session.Video(Hex("01"), at, frame.m_Duration);
                }
            }
            EXPECT_EQ(session.Finish().Float("Segment/Info/Duration"), row.m_Duration) << row.m_What;
        }
    }
}

TEST_F(Finalisation, TheAudioDurationIsRoundedTwice) {
    // The sum to single precision, then the quotient by 10000. Rounded once, each of these would end in another digit.
    const struct {
        std::int32_t m_Sum;
        const char* m_Duration;
    } rows[] = {
        {177826943, "46 8A ED 64"}, // once: 468AED63
        {307432721, "46 F0 2E 8C"}, // once: 46F02E8B
        {565523808, "47 5C E8 62"}, // once: 475CE861
        {516191786, "47 49 A3 2D"}, // once: 4749A32E
    };
    for (const auto& row : rows) {
        for (const FourCC format : kFormatOfEachMuxer) {
            HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
            session.Audio(Hex("01"), 0, row.m_Sum - 5);
            session.Audio(Hex("02"), row.m_Sum - 5, 5);
            EXPECT_EQ(session.Finish().Payload("Segment/Info/Duration"), Hex(row.m_Duration)) << row.m_Sum;
        }
    }
}

TEST_F(Finalisation, AFileOfOneClusterHasItsIndex) {
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    session.Audio(Hex("01"), 0, 1);
    const Ebml::File file = session.Finish();
    ASSERT_EQ(file.Children("Segment/SeekHead[1]", "Seek").size(), 1U);
    EXPECT_EQ(file.Payload("Segment/SeekHead[1]/Seek[0]/SeekID"), Hex("1F 43 B6 75"));
}

TEST_F(Finalisation, AFileWithoutACuePointHasNoCues) {
    // The cue track is video, and there is no video block.
    HostSession session(m_Plugin, MakeJob(MakeFourCC("MKV "), MakeFourCC("Xvid"), MakeFourCC("MP3 ")));
    session.Audio(Hex("01"), 0, 1);
    const Ebml::File file = session.Finish();
    EXPECT_FALSE(file.Has("Segment/Cues"));
    EXPECT_EQ(file.Children("Segment/SeekHead[0]", "Seek").size(), 3U);
    // 5 + 3 x 15 = 50 octets of seek head; 4099 - 50 - 3 of filler.
    EXPECT_EQ(file.At("Segment/SeekHead[0]").m_HeaderSize + file.At("Segment/SeekHead[0]").m_PayloadSize, 50U);
    const Octets filler = file.OctetsOf(file.At("Segment/Void"));
    EXPECT_EQ(filler, Hex("EC 4F CE") + Zeros(4046));
}

TEST_F(Finalisation, TheFillerGivesWayToLongerPositions) {
    // Positions of Cues and of the index in 2, 3 and 4 octets.
    const struct {
        std::size_t m_Frames; // of 100000 octets
        std::size_t m_SeekHead;
    } rows[] = {{0, 65}, {1, 67}, {200, 69}};
    for (const auto& row : rows) {
        HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("Xvid")));
        session.Video(Hex("01"), 0, 1);
        const Octets frame(100000, 0x42);
        for (std::size_t i = 0; i < row.m_Frames; ++i) {
            session.Video(frame, static_cast<std::int64_t>(i) * kSecond / 2, 1);
        }
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.At("Segment/SeekHead[0]").End() - file.At("Segment/SeekHead[0]").m_Offset, row.m_SeekHead);
        EXPECT_EQ(file.At("Segment/Void").End(), file.At("Segment/Info").m_Offset);
    }
}

} // namespace
