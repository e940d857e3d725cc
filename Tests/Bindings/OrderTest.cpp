// SPDX-License-Identifier: MIT
// Times, and the order in which packets of two tracks become blocks.
#include "LibraryTest.h"

namespace {

const Octets kSound = Zeros(192);

class Order : public LibraryTest {
protected:
    static std::string BlocksOf(const Ebml::File& file) {
        std::string text;
        for (const Ebml::Block& block : file.Blocks()) {
            text += (block.m_Track == 1 ? "v" : "a") + std::to_string(block.Time()) + " ";
        }
        return text;
    }
    // A track for itself and then the other come out as the two in turn.
    std::string Blocks() const { return BlocksOf(Read()); }
};

TEST_F(Order, OfTracksThatComeOneAfterTheOtherIsThatOfTheirTimes) {
    FileHandle file = Open(MillisecondJob("vp8", "pcm"));
    for (int i = 0; i < 100; ++i) ASSERT_EQ(Write(file, QF_VIDEO, kPicture, i * 1000, i * 1000, 1000), QF_OK);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(Write(file, QF_AUDIO, kSound, i * 1000 + 500, i * 1000 + 500, 1000), QF_OK);
    ASSERT_EQ(Close(file), QF_OK) << qf_error_text();
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += "v" + std::to_string(i * 1000) + " a" + std::to_string(i * 1000 + 500) + " ";
    EXPECT_EQ(Blocks(), expected);
}

TEST_F(Order, OfReorderedPicturesIsThatOfDecoding) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    const int times[][2] = {{0, -80}, {120, -40}, {40, 0}, {80, 40}};
    for (const auto& [pts, dts] : times) ASSERT_EQ(Write(file, QF_VIDEO, kPicture, pts, dts, 40, pts == 0), QF_OK);
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_EQ(Blocks(), "v0 v120 v40 v80 ");
}

TEST_F(Order, OfPicturesWithoutDecodingTimesIsThatInWhichTheyCome) {
    FileHandle file = Open(MillisecondJob("vp8", "pcm"));
    for (const int pts : {0, 120, 40, 80, 240}) {
        ASSERT_EQ(Write(file, QF_VIDEO, kPicture, pts, QF_NO_TIME, 40, pts == 0), QF_OK) << qf_error_text();
        ASSERT_EQ(Write(file, QF_AUDIO, kSound, QF_NO_TIME, QF_NO_TIME, 40), QF_OK);
    }
    ASSERT_EQ(Close(file), QF_OK);
    const Ebml::File read(ReadFile(Path()));
    EXPECT_EQ(read.BlocksOf(1).size(), 5U);
    EXPECT_EQ(read.BlocksOf(2).at(4).Time(), 160);
}

// As demuxers give Matroska files: the first pictures' decoding times are not known.
TEST_F(Order, OfPicturesWhoseDecodingTimesBeginLateIsThatInWhichTheyCome) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    const std::int64_t times[][2] = {{21, QF_NO_TIME}, {141, QF_NO_TIME}, {61, 21}, {101, 61}, {261, 101}};
    for (const auto& [pts, dts] : times) ASSERT_EQ(Write(file, QF_VIDEO, kPicture, pts, dts, 40, pts == 21), QF_OK);
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 181, 100), QF_ERROR_TIME);
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_EQ(Blocks(), "v0 v120 v40 v80 v240 ");
}

// Frames follow one another by the length that their codec gives them.
TEST_F(Order, OfSoundWithoutTimesIsThatOfItsSamples) {
    const struct {
        const char* m_Codec;
        std::int64_t m_Second;
    } rows[] = {{"ac3", 32}, {"mp3", 24}, {"mp2", 24}, {"pcm", 1}};
    for (const auto& row : rows) {
        const JobHandle job = MillisecondJob(nullptr, row.m_Codec);
        qf_job_set_overwrite(job.get(), 1);
        FileHandle file = Open(job, "film.mka");
        for (int i = 0; i < 2; ++i) ASSERT_EQ(Write(file, QF_AUDIO, kSound, QF_NO_TIME, QF_NO_TIME), QF_OK);
        ASSERT_EQ(Close(file), QF_OK);
        EXPECT_EQ(Read("film.mka").BlocksOf(2).at(1).Time(), row.m_Second) << row.m_Codec;
    }
}

TEST_F(Order, IsKeptBelowZeroAndFromAnyStart) {
    for (const std::int64_t start : {-90000000, -40, 0, 7, 90000000}) {
        const JobHandle job = MillisecondJob("vp8", "pcm");
        qf_job_set_overwrite(job.get(), 1);
        FileHandle file = Open(job);
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(Write(file, QF_VIDEO, kPicture, start + i * 40, start + i * 40, 40, i == 0), QF_OK);
            ASSERT_EQ(Write(file, QF_AUDIO, kSound, start + i * 40 + 10, start + i * 40 + 10, 40), QF_OK);
        }
        ASSERT_EQ(Close(file), QF_OK);
        EXPECT_EQ(Blocks(), "v0 a10 v40 a50 v80 a90 ") << start;
        const auto blocks = Read().BlocksOf(1);
        EXPECT_EQ(blocks.at(1).m_Reference, -40) << start;
    }
}

TEST_F(Order, LeavesOutPicturesInFrontOfTheFirstBlock) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    const int times[][2] = {{80, 0}, {0, 40}, {40, 80}, {120, 120}};
    for (const auto& [pts, dts] : times) ASSERT_EQ(Write(file, QF_VIDEO, kPicture, pts, dts, 40, pts == 80), QF_OK);
    EXPECT_EQ(qf_file_left_out(file.get()), 2U);
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_EQ(Blocks(), "v0 v40 ");
}

TEST_F(Order, DoesNotWaitForATrackThatHasEnded) {
    FileHandle file = Open(MillisecondJob("vp8", "pcm"));
    ASSERT_EQ(Write(file, QF_VIDEO, kPicture, 0, 0, 40), QF_OK);
    ASSERT_EQ(qf_file_end_track(file.get(), QF_AUDIO), QF_OK);
    EXPECT_EQ(Write(file, QF_AUDIO, kSound, 0, 0), QF_ERROR_STATE);
    const Octets large = kPicture + Zeros(5000);
    for (int i = 1; i < 100; ++i) ASSERT_EQ(Write(file, QF_VIDEO, large, i * 40, i * 40, 40, false), QF_OK);
    EXPECT_GT(std::filesystem::file_size(Path()), 4000U) << "clusters are on their way";
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_EQ(Read().Children("Segment/Tracks", "TrackEntry").size(), 1U);
}

TEST_F(Order, WaitsForASilentSourceAsLongAsTheJobSays) {
    const JobHandle job = MillisecondJob("vp8", "pcm");
    qf_job_set_longest_wait(job.get(), 1000);
    FileHandle file = Open(job);
    ASSERT_EQ(Write(file, QF_AUDIO, kSound, 0, 0, 40), QF_OK);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(Write(file, QF_VIDEO, kPicture, i * 40, i * 40, 40, i == 0), QF_OK);
    EXPECT_GT(std::filesystem::file_size(Path()), 10000U);
    EXPECT_EQ(Write(file, QF_AUDIO, kSound, 1000, 1000, 40), QF_ERROR_TIME);
    EXPECT_TRUE(ErrorSays("30 seconds"));
    EXPECT_EQ(Write(file, QF_AUDIO, kSound, 79000, 79000, 40), QF_OK);
    ASSERT_EQ(Close(file), QF_OK) << qf_error_text();
    const Ebml::File read(ReadFile(Path()));
    EXPECT_EQ(Ebml::Describe(Ebml::Check(read, Ebml::Times::Lagging)), "");
}

TEST_F(Order, RefusesTimesThatGoBack) {
    const FileHandle file = Open(MillisecondJob("vp8", "pcm"));
    ASSERT_EQ(Write(file, QF_VIDEO, kPicture, 100, 100), QF_OK);
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 140, 99), QF_ERROR_TIME);
    EXPECT_TRUE(ErrorSays("99"));
    ASSERT_EQ(Write(file, QF_AUDIO, kSound, 100, QF_NO_TIME), QF_OK);
    EXPECT_EQ(Write(file, QF_AUDIO, kSound, 99, QF_NO_TIME), QF_ERROR_TIME);
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, INT64_MAX, INT64_MAX), QF_ERROR_TIME);
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, INT64_MIN + 1, INT64_MIN + 1), QF_ERROR_TIME);
}

TEST_F(Order, SoundWithoutDurationsLastsUpToTheNextPacket) {
    FileHandle file = Open(MillisecondJob(nullptr, "ac3"));
    for (int i = 0; i < 4; ++i) ASSERT_EQ(Write(file, QF_AUDIO, kSound, i * 32, i * 32), QF_OK);
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_FLOAT_EQ(Read().Float("Segment/Info/Duration"), 128);
}

// Any unit will do: 1001/30000 s is exact over a million pictures, and 90 kHz is rounded to the nearest 100 ns.
TEST_F(Order, CountsInTheTracksUnit) {
    const JobHandle job = MillisecondJob("vp8", nullptr);
    qf_job_set_time_base(job.get(), QF_VIDEO, 1001, 30000);
    FileHandle file = Open(job);
    const std::int64_t far = 1000000;
    ASSERT_EQ(Write(file, QF_VIDEO, kPicture, -far, -far, 1), QF_OK);
    ASSERT_EQ(Write(file, QF_VIDEO, kPicture, far, far, 1), QF_OK) << qf_error_text();
    ASSERT_EQ(Close(file), QF_OK);
    EXPECT_EQ(Read().BlocksOf(1).at(1).Time(), 66733333);
}

} // namespace
