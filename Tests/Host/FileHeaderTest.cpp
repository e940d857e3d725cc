// SPDX-License-Identifier: MIT
// The elements in front of the first cluster.
#include "HostTest.h"

#include <cstdlib>
#include <ctime>

namespace {

using FileHeader = HostTest;

TEST_F(FileHeader, AsFirstWritten) {
    // Frames large enough for the C library to put the first cluster and all before it on the disk.
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    for (int i = 0; i < 12; ++i) session.Audio(Octets(300000, 0x11), i * 200 * kMillisecond, 2000000);
    Octets onDisk = ReadFile(session.Path());
    ASSERT_GT(onDisk.size(), 5000U);
    const Octets expected = Join({
        Hex("1A 45 DF A3 93 42 82 88") + Ascii("matroska") + Hex("42 87 81 01 42 85 81 01"),
        Hex("18 53 80 67 01 FF FF FF FF FF FF FF"), // Segment of unknown size
        Hex("EC 50 00") + Zeros(4096),              // Void, 4099 octets
        Hex("15 49 A9 66 B3"),
        Hex("2A D7 B1 83 0F 42 40"),
        Hex("44 89 84 00 00 00 00"), // Duration 0.0
        Hex("44 61 88 0A 12 6E 26 20 E8 A0 00"),
        Hex("4D 80 97") + Ascii("Tarnwell Matroska Muxer"),
        Hex("16 54 AE 6B"),
    });
    onDisk.resize(expected.size());
    ExpectSameFile(expected, onDisk);
}

TEST_F(FileHeader, DocTypeFollowsTheVideoCodec) {
    const struct {
        FourCC m_Format;
        FourCC m_Video;
        bool m_HasVideo;
        const char* m_DocType;
    } rows[] = {
        {MakeFourCC("MKV "), MakeFourCC("VP8 "), true, "webm"},
        {MakeFourCC("HMKV"), MakeFourCC("VP8 "), true, "webm"},
        {MakeFourCC("MKV "), MakeFourCC("H264"), true, "matroska"},
        {MakeFourCC("MKV "), MakeFourCC("VP80"), true, "matroska"},
        {MakeFourCC("MKA "), 0, false, "matroska"},
        {MakeFourCC("WEBM"), MakeFourCC("VP8 "), true, "webm"},
        {MakeFourCC("WEBM"), MakeFourCC("H264"), true, "matroska"},
        {MakeFourCC("WEBM"), 0, false, "matroska"},
    };
    for (const auto& row : rows) {
        EncodeParam job = MakeJob(row.m_Format, row.m_Video, MakeFourCC("VBIS"));
        job.disableVideo = row.m_HasVideo ? 0 : 1;
        HostSession session(m_Plugin, job);
        session.Audio(Hex("01"), 0, 1);
        const Ebml::File file = session.Finish();
        EXPECT_EQ(file.Text("EBML/DocType"), row.m_DocType);
        const bool webm = row.m_Format == MakeFourCC("WEBM");
        EXPECT_EQ(file.Unsigned("EBML/DocTypeVersion"), webm ? 2U : 1U);
        EXPECT_EQ(file.Unsigned("EBML/DocTypeReadVersion"), webm ? 2U : 1U);
        EXPECT_EQ(file.Has("EBML/EBMLVersion"), webm);
        EXPECT_EQ(file.Has("EBML/EBMLReadVersion"), webm);
        EXPECT_EQ(file.Has("EBML/EBMLMaxIDLength"), webm);
        EXPECT_EQ(file.Has("EBML/EBMLMaxSizeLength"), webm);
    }
}

TEST_F(FileHeader, TheEntryOfInfoIs4099) {
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    session.Audio(Hex("01"), 0, 1);
    const Ebml::File file = session.Finish();
    EXPECT_EQ(file.Payload("Segment/SeekHead[0]/Seek[0]/SeekID"), Hex("15 49 A9 66"));
    EXPECT_EQ(file.Unsigned("Segment/SeekHead[0]/Seek[0]/SeekPosition"), 4099U);
    EXPECT_EQ(file.Unsigned("Segment/Info/TimestampScale"), 1000000U);
}

// The epoch is local midnight of 2001-01-01 with summer time claimed. In UTC, where there is none, the C library takes
// an hour for it: 978307200 - 3600.
constexpr std::int64_t kEpochInUtc = 978303600;

TEST_F(FileHeader, DateUtcIsNanosecondsSinceTheEpochAsShortAsTheyGo) {
    const struct {
        const char* m_What;
        std::int64_t m_Now;
        const char* m_Date;
    } rows[] = {
        {"the epoch", kEpochInUtc, "00"},
        {"one second", kEpochInUtc + 1, "3B 9A CA 00"},
        {"one second before", kEpochInUtc - 1, "C4 65 36 00"},
        {"2024", 1704067200, "0A 12 6E 26 20 E8 A0 00"},
        {"as far as 32 bits go", kEpochInUtc + INT32_MAX, "1D CD 64 FF C4 65 36 00"},
        // 2^31 + 1 more than the epoch and 2^32 less: -(2^31 - 1) s = E2329B00 3B9ACA00. Bit 14 is set: 8 octets.
        {"32 bits wrap", kEpochInUtc + 0x80000001, "E2 32 9B 00 3B 9A CA 00"},
    };
    for (const auto& row : rows) {
        FakeEnvironment::SetTime(row.m_Now);
        for (const FourCC format : {MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
            HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("VBIS")));
            for (int i = 0; i < 7; ++i) session.Audio(Hex("01"), i * kSecond, 10000000);
            EXPECT_EQ(session.Finish().Payload("Segment/Info/DateUTC"), Hex(row.m_Date)) << row.m_What;
        }
    }
}

TEST_F(FileHeader, DateUtcCountsFromLocalMidnightAnHourEarly) {
    // One hour ahead of UTC, with summer time: midnight is 978303600, and an hour of summer time makes it 978300000.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    FakeEnvironment::SetTime(978300000 + 1);
    HostSession session(m_Plugin, MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 ")));
    session.Audio(Hex("01"), 0, 1);
    EXPECT_EQ(session.Finish().Signed("Segment/Info/DateUTC"), 1000000000);
    setenv("TZ", "UTC", 1);
    tzset();
}

} // namespace
