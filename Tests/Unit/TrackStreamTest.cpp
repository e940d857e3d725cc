// SPDX-License-Identifier: MIT
// Tracks of both muxers: header values, and the queue.
#include "TrackStream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>

#include "ClassNames.h"
#include "ElementRows.h"
#include "Extremes.h"
#include "FakeEnvironment.h"
#include "MKVMuxer.h"
#include "WebmMuxer1.h"

using namespace MatroskaWriter;

namespace {

VideoParam MakeVideo(const char (&fourCC)[5]) {
    VideoParam video{};
    video.fourCC = MakeFourCC(fourCC);
    video.width = 720;
    video.height = 576;
    video.frameRate = 25.0;
    video.bitCount = 24;
    return video;
}

AudioParam MakeAudio(const char (&fourCC)[5]) {
    AudioParam audio{};
    audio.fourCC = MakeFourCC(fourCC);
    audio.sampleRate = 44100;
    audio.channels = 2;
    audio.bitsPerSample = 16;
    return audio;
}

// How each class of stream is made; the WebM one has no muxing options.
template <class Stream>
Stream MakeStream(const VideoParam& video, [[maybe_unused]] const MuxParam* mux = nullptr) {
    long result = -1;
    if constexpr (std::is_same_v<Stream, MatroskaStream>) {
        return Stream(&video, mux, &result);
    } else {
        return Stream(&video, &result);
    }
}

template <class Stream>
Stream MakeStream(const AudioParam& audio) {
    long result = -1;
    return Stream(&audio, &result);
}

template <class Stream>
class AnyStream : public testing::Test {};
using Streams = testing::Types<MatroskaStream, MatroskaStreamWebm>;
TYPED_TEST_SUITE(AnyStream, Streams, ClassNames);

// ---- times

struct TimeRow {
    std::int64_t m_HostTime;
    std::int64_t m_Milliseconds;
};

const TimeRow kTimeRows[] = {
    {0, 0},
    {4999, 0},
    {5000, 1},
    {14999, 1},
    {15000, 2},
    {400000, 40},
    {-5000, 0},
    {-5001, 0},
    {-14999, 0},
    {-15000, -1},
    {-15001, -1},
    {-25000, -2},
    {36000000000000, 3600000000},
    {kMost64 - 5000, 922337203685477},
    {kLeast64, -922337203685477},
};

TEST(ToMilliseconds, Rows) {
    for (const TimeRow& row : kTimeRows)
        EXPECT_EQ(ToMilliseconds(row.m_HostTime), row.m_Milliseconds) << row.m_HostTime;
}

// ---- a video track's header

TEST(MatroskaStream, VideoHeaderWhole) {
    FakeEnvironment::SetRand({0x12345678});
    const VideoParam video = MakeVideo("VP8 ");
    const auto stream = MakeStream<MatroskaStream>(video);
    EXPECT_TRUE(SameOctets(Written(*stream.m_pTrackEntry),
                           Element("AE", Hex("D7 81 01 73C5 84 12345678 83 81 01 6DE7 81 01 6DF8 81 01"
                                             "22B59C 83 756E64 86 86 565F56503800 23E383 84 02625A00"
                                             "E0 98 B0 82 02D0 BA 82 0240 54B0 81 00 54BA 81 00"
                                             "2383E3 84 41C80000"))));
}

TEST(MatroskaStream, AudioHeaderWhole) {
    FakeEnvironment::SetRand({0x7FFFFFFF});
    const AudioParam audio = MakeAudio("AC3 ");
    const auto stream = MakeStream<MatroskaStream>(audio);
    EXPECT_TRUE(SameOctets(Written(*stream.m_pTrackEntry),
                           Element("AE", Hex("D7 81 02 73C5 84 7FFFFFFF 83 81 02 6DE7 81 01 6DF8 81 01"
                                             "22B59C 83 756E64 86 86 415F41433300"
                                             "E1 8D B5 84 472C4400 9F 81 02 6264 81 10"))));
}

TEST(MatroskaStreamWebm, VideoHeaderIsTheSame) {
    const VideoParam video = MakeVideo("VP8 ");
    FakeEnvironment::SetRand({77, 77});
    const auto matroska = MakeStream<MatroskaStream>(video);
    const auto webm = MakeStream<MatroskaStreamWebm>(video);
    EXPECT_TRUE(SameOctets(Written(*webm.m_pTrackEntry), Written(*matroska.m_pTrackEntry)));
}

TEST(MatroskaStreamWebm, AudioHeaderCarriesTwoFlagsMore) {
    FakeEnvironment::SetRand({0});
    const AudioParam audio = MakeAudio("VBIS");
    const auto stream = MakeStream<MatroskaStreamWebm>(audio);
    EXPECT_TRUE(SameOctets(Written(*stream.m_pTrackEntry),
                           Element("AE", Hex("D7 81 02 73C5 81 00 83 81 02 88 81 01 9C 81 01 6DE7 81 01 6DF8 81 01"
                                             "22B59C 83 756E64 86 89 415F564F5242495300"
                                             "E1 8D B5 84 472C4400 9F 81 02 6264 81 10"))));
}

TYPED_TEST(AnyStream, AsksForOneRandomNumber) {
    FakeEnvironment::SetRand({11, 22, 33});
    const VideoParam video = MakeVideo("VP8 ");
    const AudioParam audio = MakeAudio("AC3 ");
    EXPECT_EQ(MakeStream<TypeParam>(video).m_pTrackEntry->m_TrackUID.m_Value, 11U);
    EXPECT_EQ(MakeStream<TypeParam>(audio).m_pTrackEntry->m_TrackUID.m_Value, 22U);
    EXPECT_EQ(MakeStream<TypeParam>(video).m_pTrackEntry->m_TrackUID.m_Value, 33U);
}

TYPED_TEST(AnyStream, StartsOutWithoutBlocksAndTimes) {
    const VideoParam video = MakeVideo("VP8 ");
    const AudioParam audio = MakeAudio("AC3 ");
    const auto check = [](const TypeParam& stream) {
        EXPECT_TRUE(stream.m_Queue.empty());
        EXPECT_EQ(stream.m_WrittenTime, 0);
        EXPECT_EQ(stream.m_LastStart, -1);
        EXPECT_EQ(stream.m_LastEnd, -1);
        EXPECT_FALSE(stream.m_HeaderInFile);
    };
    check(MakeStream<TypeParam>(video));
    check(MakeStream<TypeParam>(audio));
}

struct SizeRow {
    const char* m_Reason;
    std::int32_t m_Width, m_Height;
    std::uint64_t m_PixelWidth, m_PixelHeight;
};

const SizeRow kSizeRows[] = {
    {"plain", 720, 576, 720, 576},
    {"bottom-up", 720, -576, 720, 576},
    {"nothing", 0, 0, 0, 0},
    {"the magnitude of the least height has no 32-bit number", 1, kLeast32, 1, 2147483648U},
    {"the largest", kMost32, kMost32, 2147483647, 2147483647},
    {"a width is widened with its sign", -1, 1, 0xFFFFFFFFFFFFFFFF, 1},
};

TYPED_TEST(AnyStream, PixelSizes) {
    for (const SizeRow& row : kSizeRows) {
        VideoParam video = MakeVideo("VP8 ");
        video.width = row.m_Width;
        video.height = row.m_Height;
        const auto stream = MakeStream<TypeParam>(video);
        EXPECT_EQ(stream.m_pTrackEntry->m_Video.m_PixelWidth.m_Value, row.m_PixelWidth) << row.m_Reason;
        EXPECT_EQ(stream.m_pTrackEntry->m_Video.m_PixelHeight.m_Value, row.m_PixelHeight) << row.m_Reason;
    }
}

struct RateRow {
    double m_Rate;
    std::uint64_t m_DefaultDuration; // ns
    float m_FrameRate;
};

const RateRow kRateRows[] = {
    {25.0, 40000000, 25.0F},
    {29.97, 33366700, 29.97F},
    {24000.0 / 1001.0, 41708333, 23.976025F},
    {60.0, 16666666, 60.0F},
    {1e9, 1, 1e9F},
    {2e9, 0, 2e9F},
    {0.5, 2000000000, 0.5F},
};

TYPED_TEST(AnyStream, FrameRates) {
    for (const RateRow& row : kRateRows) {
        VideoParam video = MakeVideo("VP8 ");
        video.frameRate = row.m_Rate;
        const auto stream = MakeStream<TypeParam>(video);
        EXPECT_TRUE(stream.m_pTrackEntry->m_DefaultDuration.m_IsSet);
        EXPECT_EQ(stream.m_pTrackEntry->m_DefaultDuration.m_Value, row.m_DefaultDuration) << row.m_Rate;
        EXPECT_TRUE(stream.m_pTrackEntry->m_Video.m_FrameRate.m_IsSet);
        EXPECT_EQ(stream.m_pTrackEntry->m_Video.m_FrameRate.m_Value, row.m_FrameRate) << row.m_Rate;
    }
}

// What has no meaning must at least do no harm.
TYPED_TEST(AnyStream, SurvivesAnyFrameRate) {
    for (const double rate : {0.0, -0.0, -25.0, 1e-300, -1e-300, 1e300, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        VideoParam video = MakeVideo("VP8 ");
        video.frameRate = rate;
        const auto stream = MakeStream<TypeParam>(video);
        EXPECT_EQ(Written(*stream.m_pTrackEntry).size(), stream.m_pTrackEntry->Size(true)) << rate;
    }
}

struct AspectRow {
    const char* m_Reason;
    std::uint32_t m_Flags;
    std::int32_t m_X, m_Y;
    std::uint64_t m_Width, m_Height;
};

const AspectRow kAspectRows[] = {
    {"16:9", 1, 16, 9, 16, 9},
    {"as they stand, not reduced here", 1, 1920, 1080, 1920, 1080},
    {"other bits do not matter", 0xFFFFFFFF, 4, 3, 4, 3},
    {"bit 0 is clear", 0xFFFFFFFE, 16, 9, 0, 0},
    {"no horizontal term", 1, 0, 9, 0, 0},
    {"no vertical term", 1, 16, 0, 0, 0},
    {"a negative horizontal term", 1, -16, 9, 0, 0},
    {"a negative vertical term", 1, 16, -9, 0, 0},
    {"the largest", 1, kMost32, 1, 2147483647, 1},
};

TEST(MatroskaStream, DisplayAspects) {
    const VideoParam video = MakeVideo("Xvid");
    for (const AspectRow& row : kAspectRows) {
        MuxParam mux{};
        mux.muxFlags = row.m_Flags;
        mux.displayAspectX = row.m_X;
        mux.displayAspectY = row.m_Y;
        const auto stream = MakeStream<MatroskaStream>(video, &mux);
        const Video& entry = stream.m_pTrackEntry->m_Video;
        EXPECT_TRUE(entry.m_DisplayWidth.m_IsSet && entry.m_DisplayHeight.m_IsSet) << row.m_Reason;
        EXPECT_EQ(entry.m_DisplayWidth.m_Value, row.m_Width) << row.m_Reason;
        EXPECT_EQ(entry.m_DisplayHeight.m_Value, row.m_Height) << row.m_Reason;
        EXPECT_FALSE(entry.m_DisplayUnit.m_IsSet) << row.m_Reason;
    }
}

const char* const kVfw = "V_MS/VFW/FOURCC";
const char* const kAvc = "V_MPEG4/ISO/AVC";

struct VideoCodecRow {
    const char m_FourCC[5];
    const char* m_Matroska;
    const char* m_Webm;
    const char* m_Compression; // of the Video-for-Windows header, where there is one
};

const VideoCodecRow kVideoCodecRows[] = {
    {"MP1V", "V_MPEG1", "V_MPEG1", ""},
    {"MP2V", "V_MPEG2", "V_MPEG2", ""},
    {"MP4V", "V_MPEG4/ISO/ASP", "V_MPEG4/ISO/ASP", ""},
    {"Xvid", "V_MPEG4/ISO/ASP", "V_MPEG4/ISO/ASP", ""},
    {"VP8 ", "V_VP8", "V_VP8", ""},
    {"H264", kAvc, kAvc, ""},
    {"N264", kAvc, kAvc, ""},
    {"A264", kAvc, kAvc, ""},
    {"I264", kAvc, kVfw, "I264"}, // not AVC in WebM
    {"havc", kVfw, kVfw, "X264"}, // under the name that players know
    {"XVID", kVfw, kVfw, "XVID"}, // case counts
    {"VP80", kVfw, kVfw, "VP80"},
    {"h264", kVfw, kVfw, "h264"},
    {"DIV3", kVfw, kVfw, "DIV3"},
};

void ExpectVideoCodec(const TrackEntry& entry, const VideoCodecRow& row, const std::string& codecID) {
    EXPECT_TRUE(SameOctets(entry.m_CodecID.m_Data, Ascii(codecID + '\0'))) << row.m_FourCC;
    Octets codecPrivate;
    if (codecID == kVfw) {
        codecPrivate = Join({Hex("28000000 D0020000 C0FDFFFF 0100 1800"), Ascii(row.m_Compression), Repeated(20, 0)});
    }
    EXPECT_TRUE(SameOctets(entry.m_CodecPrivate.m_Data, codecPrivate)) << row.m_FourCC;
}

TEST(MatroskaStream, VideoCodecs) {
    for (const VideoCodecRow& row : kVideoCodecRows) {
        VideoParam video = MakeVideo(row.m_FourCC);
        video.height = -576;
        ExpectVideoCodec(*MakeStream<MatroskaStream>(video).m_pTrackEntry, row, row.m_Matroska);
    }
}

TEST(MatroskaStreamWebm, VideoCodecs) {
    for (const VideoCodecRow& row : kVideoCodecRows) {
        VideoParam video = MakeVideo(row.m_FourCC);
        video.height = -576;
        ExpectVideoCodec(*MakeStream<MatroskaStreamWebm>(video).m_pTrackEntry, row, row.m_Webm);
    }
}

TYPED_TEST(AnyStream, ACodeOfZeroIsACode) {
    const VideoParam video{};
    const auto stream = MakeStream<TypeParam>(video);
    EXPECT_EQ(stream.m_pTrackEntry->m_CodecID.ToString(), kVfw);
    EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data,
                           Join({Hex("28000000 00000000 00000000 0100 0000"), Repeated(24, 0)})));
}

// ---- an audio track's header

struct AudioCodecRow {
    FourCC m_FourCC;
    const char* m_CodecID;
    const char* m_CodecPrivate;
};

const AudioCodecRow kAudioCodecRows[] = {
    {MakeFourCC("MP2A"), "A_MPEG/L2", ""},
    {MakeFourCC("MP3 "), "A_MPEG/L3", ""},
    {MakeFourCC("AC3 "), "A_AC3", ""},
    {MakeFourCC("DTS "), "A_DTS", ""},
    {MakeFourCC("PCM "), "A_PCM/INT/LIT", ""},
    {MakeFourCC("AAC "), "A_AAC", ""},
    {MakeFourCC("VBIS"), "A_VORBIS", ""},
    {0x00000055, "A_MS/VFW/FOURCC", "5500 0200 44AC0000 10B10200 0000 1000 1200"},
    {MakeFourCC("aac "), "A_MS/VFW/FOURCC", "6161 0200 44AC0000 10B10200 0000 1000 1200"},
    {0, "A_MS/VFW/FOURCC", "0000 0200 44AC0000 10B10200 0000 1000 1200"},
};

TYPED_TEST(AnyStream, AudioCodecs) {
    for (const AudioCodecRow& row : kAudioCodecRows) {
        AudioParam audio = MakeAudio("none");
        audio.fourCC = row.m_FourCC;
        const auto stream = MakeStream<TypeParam>(audio);
        EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecID.m_Data, Ascii(std::string(row.m_CodecID) + '\0')))
            << row.m_CodecID;
        EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, Hex(row.m_CodecPrivate))) << row.m_CodecID;
    }
}

TYPED_TEST(AnyStream, AudioValuesAreWidenedWithTheirSign) {
    AudioParam audio = MakeAudio("PCM ");
    audio.channels = -2;
    audio.bitsPerSample = kLeast32;
    audio.sampleRate = 16777217; // 2^24 + 1 has no single: the even neighbour is taken
    const auto stream = MakeStream<TypeParam>(audio);
    const Audio& entry = stream.m_pTrackEntry->m_Audio;
    EXPECT_EQ(entry.m_Channels.m_Value, 0xFFFFFFFFFFFFFFFE);
    EXPECT_EQ(entry.m_BitDepth.m_Value, 0xFFFFFFFF80000000);
    EXPECT_EQ(entry.m_SamplingFrequency.m_Value, 16777216.0F);
    EXPECT_FALSE(entry.m_OutputSamplingFrequency.m_IsSet);
    EXPECT_FALSE(stream.m_pTrackEntry->m_DefaultDuration.m_IsSet);
}

// ---- filling it anew

template <class Stream>
void InitAgain(Stream& stream, const VideoParam& video) {
    if constexpr (std::is_same_v<Stream, MatroskaStream>) {
        stream.Init(&video, nullptr);
    } else {
        stream.Init(&video);
    }
}

TYPED_TEST(AnyStream, InitReportsNoFailure) {
    const VideoParam video{};
    const AudioParam audio{};
    auto stream = MakeStream<TypeParam>(video);
    if constexpr (std::is_same_v<TypeParam, MatroskaStream>) {
        EXPECT_EQ(stream.Init(&video, nullptr), 0);
    } else {
        EXPECT_EQ(stream.Init(&video), 0);
    }
    EXPECT_EQ(stream.Init(&audio), 0);
    long result = -1;
    const TypeParam sound(&audio, &result);
    EXPECT_EQ(result, 0) << "the constructor hands it on";
}

// Of sound the times of the last frame stay.
TYPED_TEST(AnyStream, ASecondInitForSoundLeavesTheTimes) {
    const AudioParam audio = MakeAudio("AC3 ");
    auto stream = MakeStream<TypeParam>(audio);
    const unsigned char octet = 0xAB;
    stream.WritePacket(&octet, 1, 400000, 800000, 1);
    stream.m_WrittenTime = 5;
    stream.Init(&audio);
    EXPECT_EQ(stream.m_LastStart, 400000);
    EXPECT_EQ(stream.m_LastEnd, 800000);
    EXPECT_EQ(stream.m_WrittenTime, 0);
    EXPECT_EQ(stream.m_Queue.size(), 1U);
}

TYPED_TEST(AnyStream, ASecondInitReplacesTheHeaderAndLeavesTheQueue) {
    FakeEnvironment::SetRand({1, 2});
    const VideoParam first = MakeVideo("H264");
    auto stream = MakeStream<TypeParam>(first);
    const unsigned char octet = 0xAB;
    stream.WritePacket(&octet, 1, 400000, 800000, 1);
    stream.m_WrittenTime = 5;
    stream.m_pTrackEntry->m_Name.Set(L"old");
    VideoParam second = MakeVideo("VP8 ");
    second.width = 100;
    InitAgain(stream, second);
    EXPECT_EQ(stream.m_Queue.size(), 1U);
    EXPECT_EQ(stream.m_WrittenTime, 0);
    EXPECT_EQ(stream.m_LastStart, -1);
    EXPECT_EQ(stream.m_LastEnd, -1);
    EXPECT_EQ(stream.m_pTrackEntry->m_ID, 0xAEU);
    EXPECT_EQ(stream.m_pTrackEntry->m_TrackUID.m_Value, 2U);
    EXPECT_EQ(stream.m_pTrackEntry->m_CodecID.ToString(), "V_VP8");
    EXPECT_TRUE(stream.m_pTrackEntry->m_CodecPrivate.m_Data.empty());
    EXPECT_TRUE(stream.m_pTrackEntry->m_Name.m_Value.empty());
    EXPECT_EQ(stream.m_pTrackEntry->m_Video.m_PixelWidth.m_Value, 100U);
}

// ---- taking frames in

template <class Stream>
int Write(Stream& stream, const Octets& frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) {
    return stream.WritePacket(frame.data(), static_cast<int>(frame.size()), start, end, keyFrame);
}

const BlockBase& BlockOf(const BlockGroup& group) { return group.m_Block; }
const BlockBase& BlockOf(const SimpleBlock& block) { return block; }

TYPED_TEST(AnyStream, AFrameBecomesABlock) {
    const VideoParam video = MakeVideo("VP8 ");
    const AudioParam audio = MakeAudio("AC3 ");
    const auto check = [](TypeParam stream, std::uint64_t track) {
        Octets frame = Hex("01 02 03");
        EXPECT_EQ(Write(stream, frame, 404999, 805000, 1), 3);
        frame[0] = 9; // the block has a copy
        EXPECT_EQ(stream.m_LastStart, 404999);
        EXPECT_EQ(stream.m_LastEnd, 805000);
        EXPECT_EQ(stream.m_Queue.size(), 1U);
        const BlockBase& block = BlockOf(stream.m_Queue.front());
        EXPECT_EQ(block.m_TrackNumber.m_Length, track);
        EXPECT_EQ(block.m_Timecode, 40);
        EXPECT_EQ(block.m_StopTime, 81);
        ASSERT_EQ(block.m_Frames.size(), 1U);
        EXPECT_EQ(block.m_Frames.front().m_ID, 0U);
        EXPECT_TRUE(SameOctets(block.m_Frames.front().m_Data, Hex("01 02 03")));
    };
    check(MakeStream<TypeParam>(video), 1);
    check(MakeStream<TypeParam>(audio), 2);
}

TYPED_TEST(AnyStream, BlocksQueueInTheirOrder) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<TypeParam>(video);
    for (const int time : {3, 1, 2}) Write(stream, Hex("AB"), time * 10000, 0, 1);
    std::vector<std::int64_t> times;
    for (const auto& block : stream.m_Queue) times.push_back(BlockOf(block).m_Timecode);
    EXPECT_EQ(times, (std::vector<std::int64_t>{3, 1, 2}));
}

TYPED_TEST(AnyStream, NothingIsTakenFromNothing) {
    const VideoParam video = MakeVideo("H264");
    auto stream = MakeStream<TypeParam>(video);
    const unsigned char octet = 0xAB;
    EXPECT_EQ(stream.WritePacket(&octet, 0, 1, 2, 1), 0);
    EXPECT_EQ(stream.WritePacket(&octet, -1, 1, 2, 1), 0);
    EXPECT_EQ(stream.WritePacket(&octet, kLeast32, 1, 2, 1), 0);
    EXPECT_EQ(stream.WritePacket(nullptr, 1, 1, 2, 1), 0);
    EXPECT_TRUE(stream.m_Queue.empty());
    EXPECT_EQ(stream.m_LastStart, -1);
    EXPECT_EQ(stream.m_LastEnd, -1);
    EXPECT_TRUE(stream.m_pTrackEntry->m_CodecPrivate.m_Data.empty());
}

// ---- references

struct ReferenceRow {
    const char* m_Reason;
    std::int64_t m_Last;
    std::int64_t m_Start;
    unsigned int m_KeyFrame;
    std::optional<std::int64_t> m_Reference;
};

const ReferenceRow kReferenceRows[] = {
    {"40 ms after the last", 0, 400000, 0, -40},
    {"a key frame needs none", 0, 400000, 1, std::nullopt},
    {"any flag but 0 is a key frame's", 0, 400000, 0x80000000, std::nullopt},
    {"a key frame at the same time", 400000, 400000, 1, 0},
    {"another frame at the same time", 400000, 400000, 0, 0},
    {"in front of the last", 800000, 400000, 0, 40},
    {"-0.5 ms: away from zero", 0, 5000, 0, -1},
    {"less", 0, 4999, 0, 0},
    {"0.5 ms: away from zero", 5000, 0, 0, 1},
    {"less, too", 4999, 0, 0, 0},
    {"-1.4999 ms", 0, 14999, 0, -1},
    {"-1.5 ms", 0, 15000, 0, -2},
    {"1.4999 ms", 14999, 0, 0, 1},
    {"1.5 ms", 15000, 0, 0, 2},
    {"a last frame of before 0 is no reference", -1, 400000, 0, std::nullopt},
    {"nor for one of the same time", -10000, -10000, 1, std::nullopt},
    {"a frame of before 0 may have one", 10000, -10000, 0, 2},
    {"ten years", 0, 3155760000000000, 0, -315576000000},
};

TEST(MatroskaStream, References) {
    const VideoParam video = MakeVideo("VP8 ");
    for (const ReferenceRow& row : kReferenceRows) {
        auto stream = MakeStream<MatroskaStream>(video);
        Write(stream, Hex("01"), row.m_Last, row.m_Last + 1, 1);
        Write(stream, Hex("02"), row.m_Start, row.m_Start + 1, row.m_KeyFrame);
        const CInt& first = stream.m_Queue.front().m_ReferenceBlock;
        const CInt& reference = stream.m_Queue.back().m_ReferenceBlock;
        EXPECT_FALSE(first.m_IsSet) << row.m_Reason;
        EXPECT_EQ(reference.m_IsSet, row.m_Reference.has_value()) << row.m_Reason;
        EXPECT_EQ(reference.m_Value, row.m_Reference.value_or(0)) << row.m_Reason;
    }
}

TEST(MatroskaStream, AFirstFrameHasNoReferenceKeyOrNot) {
    const VideoParam video = MakeVideo("VP8 ");
    for (const unsigned int keyFrame : {0U, 1U}) {
        auto stream = MakeStream<MatroskaStream>(video);
        Write(stream, Hex("01"), -1, 0, keyFrame); // at the time that stands for none
        EXPECT_FALSE(stream.m_Queue.front().m_ReferenceBlock.m_IsSet) << keyFrame;
    }
}

TEST(MatroskaStream, AFrame40MsAfterTheFirstInOctets) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<MatroskaStream>(video);
    Write(stream, Hex("01"), 0, 400000, 1);
    Write(stream, Hex("02"), 400000, 800000, 0);
    EXPECT_TRUE(SameOctets(Written(stream.m_Queue.front()), Hex("A0 87 A1 85 81 0000 00 01")));
    EXPECT_TRUE(SameOctets(Written(stream.m_Queue.back()), Hex("A0 8A FB 81 D8 A1 85 81 0028 00 02")));
    EXPECT_EQ(stream.m_Queue.back().m_Block.m_StopTime, 80);
}

TEST(MatroskaStream, OnlyBlocksWithoutAReferenceMayBeCued) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<MatroskaStream>(video);
    Write(stream, Hex("01"), 0, 1, 1);
    Write(stream, Hex("02"), 400000, 400001, 0);
    Write(stream, Hex("03"), 400000, 400001, 1); // a reference to 0 counts as none
    EXPECT_TRUE(stream.MayBeCued(stream.m_Queue.front()));
    stream.m_Queue.pop_front();
    EXPECT_FALSE(stream.MayBeCued(stream.m_Queue.front()));
    stream.m_Queue.pop_front();
    EXPECT_TRUE(stream.MayBeCued(stream.m_Queue.front()));
    stream.m_Queue.pop_front();
    EXPECT_EQ(stream.m_Queue.size(), 0U);
}

TEST(MatroskaStream, OnlySubtitlesHaveADuration) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<MatroskaStream>(video);
    Write(stream, Hex("01"), 0, 400000, 1);
    EXPECT_FALSE(stream.m_Queue.back().m_BlockDuration.m_IsSet);
    stream.m_pTrackEntry->m_TrackType.m_Value = 17;
    Write(stream, Hex("01"), 1000000, 1404999, 1);
    EXPECT_TRUE(stream.m_Queue.back().m_BlockDuration.m_IsSet);
    EXPECT_EQ(stream.m_Queue.back().m_BlockDuration.m_Value, 40U);
    Write(stream, Hex("01"), 2000000, 2405000, 1);
    EXPECT_EQ(stream.m_Queue.back().m_BlockDuration.m_Value, 41U);
    for (const std::uint64_t type : {1U, 2U, 16U, 18U, 33U, 273U}) {
        stream.m_pTrackEntry->m_TrackType.m_Value = type;
        Write(stream, Hex("01"), 3000000, 3405000, 1);
        EXPECT_FALSE(stream.m_Queue.back().m_BlockDuration.m_IsSet) << type;
    }
}

TYPED_TEST(AnyStream, SurvivesAnyTime) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<TypeParam>(video);
    for (const std::int64_t start : {kMost64, kLeast64, std::int64_t{0}, kMost64, kLeast64 + 1}) {
        for (const std::int64_t end : {kMost64, kLeast64}) EXPECT_EQ(Write(stream, Hex("01"), start, end, 0), 1);
    }
    EXPECT_EQ(stream.m_Queue.size(), 10U);
}

TEST(MatroskaStreamWebm, BlocksCarryTheKeyFlagAndMayAllBeCued) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<MatroskaStreamWebm>(video);
    Write(stream, Hex("01"), 0, 1, 1);
    Write(stream, Hex("02"), 400000, 400001, 0);
    Write(stream, Hex("03"), 400000, 400001, 0x100);
    const char* const octets[] = {"A3 85 81 0000 80 01", "A3 85 81 0028 00 02", "A3 85 81 0028 80 03"};
    for (const char* const block : octets) {
        EXPECT_TRUE(SameOctets(Written(stream.m_Queue.front()), Hex(block)));
        EXPECT_TRUE(stream.MayBeCued(stream.m_Queue.front()));
        stream.m_Queue.pop_front();
    }
}

// ---- blocks that are used again

// Moves the whole queue into a list that stands for a cluster's.
template <class Stream>
std::list<typename Stream::Block> Drained(Stream& stream) {
    std::list<typename Stream::Block> blocks;
    blocks.splice(blocks.end(), stream.m_Queue);
    return blocks;
}

TYPED_TEST(AnyStream, TakesItsBlocksBackAndFillsThemAgain) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<TypeParam>(video);
    for (int i = 0; i < 3; ++i) Write(stream, Repeated(100, 0xAA), i * 400000, i * 400000 + 1, 0);
    const auto* const block = &stream.m_Queue.front();
    const unsigned char* const octets = BlockOf(*block).m_Frames.front().m_Data.data();
    auto blocks = Drained(stream);
    stream.TakeBack(blocks);
    EXPECT_TRUE(blocks.empty());
    Write(stream, Hex("01 02"), 0, 1, 1);
    ASSERT_EQ(&stream.m_Queue.front(), block) << "the same memory";
    EXPECT_EQ(BlockOf(*block).m_Frames.front().m_Data.data(), octets) << "for the frame, too";

    auto fresh = MakeStream<TypeParam>(video);
    Write(fresh, Hex("01 02"), 0, 1, 1);
    EXPECT_TRUE(SameOctets(Written(*block), Written(fresh.m_Queue.front()))) << "nothing is left of what was in it";
}

TYPED_TEST(AnyStream, KeepsTheMemoryOfFramesOfUpTo1024Octets) {
    for (const std::size_t size : {1024U, 1025U}) {
        auto stream = MakeStream<TypeParam>(MakeVideo("VP8 "));
        Write(stream, Repeated(size, 0xAA), 0, 1, 0);
        auto blocks = Drained(stream);
        stream.TakeBack(blocks);
        Write(stream, Hex("01"), 0, 1, 1);
        const std::size_t capacity = BlockOf(stream.m_Queue.front()).m_Frames.front().m_Data.capacity();
        EXPECT_EQ(capacity, size == 1024 ? 1024U : 1U) << size;
    }
}

TYPED_TEST(AnyStream, LeavesBlocksOfOtherTracksAndBlocksWithoutFrames) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<TypeParam>(video);
    std::list<typename TypeParam::Block> blocks;
    TypeParam::BlockOf(blocks.emplace_back(TypeParam::Block::kId)).m_TrackNumber.m_Length = kVideoTrack;
    BlockBase& other = TypeParam::BlockOf(blocks.emplace_back(TypeParam::Block::kId));
    other.m_TrackNumber.m_Length = kAudioTrack;
    other.m_Frames.emplace_back(0).m_Data = Hex("01");
    stream.TakeBack(blocks);
    EXPECT_EQ(blocks.size(), 2U);
    Write(stream, Hex("02"), 0, 1, 1);
    EXPECT_TRUE(SameOctets(BlockOf(stream.m_Queue.front()).m_Frames.front().m_Data, Hex("02")));
}

// A block that somebody else built, with everything in it that one can have.
void FillAll(BlockGroup& group) {
    group.m_ID = 0xA7;
    group.m_BlockDuration.Set(1).m_ID = 0x9C;
    group.m_ReferencePriority.Set(2).m_ID = 0xFC;
    group.m_ReferenceBlock.Set(3).m_ID = 0xFD;
    group.m_ReferenceVirtual.Set(4).m_ID = 0xFE;
    group.m_CodecState.m_Data = Hex("05");
    group.m_Block.m_ID = 0xA8;
}
void FillAll(SimpleBlock& block) {
    block.m_ID = 0xA7;
    block.m_Keyframe = 0xFFFFFFFF;
}

TYPED_TEST(AnyStream, RenewsBlocksThatItDidNotBuild) {
    const VideoParam video = MakeVideo("VP8 ");
    auto stream = MakeStream<TypeParam>(video);
    std::list<typename TypeParam::Block> blocks;
    FillAll(blocks.emplace_back(TypeParam::Block::kId));
    BlockBase& header = TypeParam::BlockOf(blocks.back());
    header.m_TrackNumber.m_Length = kVideoTrack;
    header.m_TrackNumber.m_ID = 0x77;
    header.m_Frames.emplace_back(0x55).m_Data = Hex("01 02 03");
    header.m_Frames.emplace_back(0x56).m_Data = Hex("04");
    stream.TakeBack(blocks);
    Write(stream, Hex("0A"), 0, 1, 0);
    Write(stream, Hex("0B"), 400000, 400001, 0);
    auto fresh = MakeStream<TypeParam>(video);
    Write(fresh, Hex("0A"), 0, 1, 0);
    Write(fresh, Hex("0B"), 400000, 400001, 0);
    auto expected = fresh.m_Queue.begin();
    for (const auto& block : stream.m_Queue) {
        EXPECT_TRUE(SameOctets(Written(block), Written(*expected++)));
        EXPECT_EQ(BlockOf(block).m_Frames.front().m_ID, 0U);
        EXPECT_EQ(BlockOf(block).m_TrackNumber.m_ID, 0U);
    }
}

// ---- what the first frame settles

const Octets kMpegFrame = Hex("AA 000001B3 11 000001B5 22 000001B8 33");
const Octets kMpegHeader = Hex("000001B3 11 000001B5 22");

struct DerivedRow {
    const char m_FourCC[5];
    Octets m_CodecPrivate;
};

TYPED_TEST(AnyStream, DerivesTheCodecPrivateOfVideo) {
    const DerivedRow rows[] = {
        {"MP1V", kMpegHeader},
        {"MP2V", kMpegHeader},
        {"H264", Repeated(1024, 0)},
        {"N264", Repeated(1024, 0)},
        {"A264", Repeated(1024, 0)},
        {"MP4V", {}},
        {"Xvid", {}},
        {"VP8 ", {}},
    };
    for (const DerivedRow& row : rows) {
        const VideoParam video = MakeVideo(row.m_FourCC);
        auto stream = MakeStream<TypeParam>(video);
        Write(stream, kMpegFrame, 0, 1, 1);
        EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, row.m_CodecPrivate)) << row.m_FourCC;
    }
    const VideoParam other = MakeVideo("MJPG");
    auto stream = MakeStream<TypeParam>(other);
    const Octets before = stream.m_pTrackEntry->m_CodecPrivate.m_Data;
    Write(stream, kMpegFrame, 0, 1, 1);
    EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, before)) << "set from the start";
}

TEST(MatroskaStream, DerivesTheCodecPrivateOfI264) {
    const VideoParam video = MakeVideo("I264");
    auto stream = MakeStream<MatroskaStream>(video);
    Write(stream, Hex("01"), 0, 1, 1);
    EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, Repeated(1024, 0)));
}

TYPED_TEST(AnyStream, DerivesTheCodecPrivateOfAudio) {
    const DerivedRow rows[] = {
        {"AAC ", Repeated(1024, 0)},
        {"VBIS", Repeated(10240, 0)},
        {"MP2A", {}},
        {"MP3 ", {}},
        {"AC3 ", {}},
        {"DTS ", {}},
        {"PCM ", {}},
    };
    for (const DerivedRow& row : rows) {
        const AudioParam audio = MakeAudio(row.m_FourCC);
        auto stream = MakeStream<TypeParam>(audio);
        Write(stream, kMpegFrame, 0, 1, 1);
        EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, row.m_CodecPrivate)) << row.m_FourCC;
    }
}

TYPED_TEST(AnyStream, DerivesAsLongAsTheCodecPrivateIsEmpty) {
    const VideoParam video = MakeVideo("MP2V");
    auto stream = MakeStream<TypeParam>(video);
    const Octets& codecPrivate = stream.m_pTrackEntry->m_CodecPrivate.m_Data;
    Write(stream, Hex("00000100 AA"), 0, 1, 1);
    EXPECT_TRUE(codecPrivate.empty()) << "a frame without a header";
    Write(stream, kMpegFrame, 1, 2, 1);
    EXPECT_TRUE(SameOctets(codecPrivate, kMpegHeader));
    Write(stream, Hex("000001B3 99"), 2, 3, 1);
    EXPECT_TRUE(SameOctets(codecPrivate, kMpegHeader)) << "settled";
}

TYPED_TEST(AnyStream, DerivesNothingInPlaceOfSetUpData) {
    const VideoParam video = MakeVideo("H264");
    auto stream = MakeStream<TypeParam>(video);
    const Octets data = Hex("01 42");
    stream.m_pTrackEntry->m_CodecPrivate.m_Data = data;
    Write(stream, Hex("AA"), 0, 1, 1);
    EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, data));
}

// A header in the file has no room for more.
TYPED_TEST(AnyStream, DerivesNothingOnceTheHeaderIsInTheFile) {
    const VideoParam video = MakeVideo("MP2V");
    auto stream = MakeStream<TypeParam>(video);
    stream.m_HeaderInFile = true;
    Write(stream, kMpegFrame, 0, 1, 1);
    EXPECT_TRUE(stream.m_pTrackEntry->m_CodecPrivate.m_Data.empty());
}

// The type decides with the identifier, and only AVC's may go on.
TYPED_TEST(AnyStream, DerivesTheCodecPrivateByTypeAndIdentifier) {
    struct Row {
        const char* m_CodecID;
        std::uint64_t m_Type;
        Octets m_CodecPrivate;
    };
    const Row rows[] = {
        {"V_MPEG4/ISO/AVC/EXTRA", kVideoTrack, Repeated(1024, 0)},
        {"V_MPEG4/ISO/AV", kVideoTrack, {}},
        {"V_MPEG2X", kVideoTrack, {}},
        {"A_AAC/MPEG4", kAudioTrack, {}},
        {"A_VORBIS2", kAudioTrack, {}},
        {"A_AAC", kVideoTrack, {}},
        {"V_MPEG2", kAudioTrack, {}},
        {"V_MPEG4/ISO/AVC", 17, {}},
        {"V_MPEG1", 17, {}},
        {"A_VORBIS", 17, {}},
        {"V_MPEG1", kVideoTrack, kMpegHeader},
        {"A_AAC", kAudioTrack, Repeated(1024, 0)},
    };
    const VideoParam video = MakeVideo("VP8 ");
    for (const Row& row : rows) {
        auto stream = MakeStream<TypeParam>(video);
        stream.m_pTrackEntry->m_CodecID.Set(row.m_CodecID);
        stream.m_pTrackEntry->m_TrackType.Set(row.m_Type);
        Write(stream, kMpegFrame, 0, 1, 1);
        EXPECT_TRUE(SameOctets(stream.m_pTrackEntry->m_CodecPrivate.m_Data, row.m_CodecPrivate)) << row.m_CodecID;
    }
}

} // namespace
