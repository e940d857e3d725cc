// SPDX-License-Identifier: MIT
// Calls with odd arguments return a code with a text and change nothing.
#include <sys/stat.h>

#include <cmath>
#include <csignal>
#include <thread>

#include "LibraryTest.h"

namespace {

class Errors : public LibraryTest {};

TEST_F(Errors, AreReturnedForNullPointers) {
    qf_plugin* plugin = nullptr;
    qf_job* const job = NewJob().release();
    const JobHandle owner(job);
    const JobHandle video = MillisecondJob("vp8", nullptr);
    const FileHandle file = Open(video);
    qf_file* other = nullptr;
    qf_format_info format{};
    qf_codec_info codec{};
    EXPECT_EQ(qf_plugin_open(QF_PLUGIN, nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_plugin_open("", &plugin), QF_ERROR_PLUGIN);
    EXPECT_EQ(qf_format_get(nullptr, 0, &format), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_format_get(m_Plugin.get(), 0, nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_format_get(m_Plugin.get(), 4, &format), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_codec_get(nullptr, 0, 0, &codec), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_codec_get(m_Plugin.get(), 0, 0, nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_codec_get(m_Plugin.get(), SIZE_MAX, 0, &codec), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_codec_get(m_Plugin.get(), 0, SIZE_MAX, &codec), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_format_count(nullptr), 0U);
    EXPECT_EQ(qf_codec_count(nullptr, 0), 0U);
    EXPECT_EQ(qf_codec_count(m_Plugin.get(), 4), 0U);
    EXPECT_EQ(qf_plugin_path(nullptr), nullptr);
    EXPECT_EQ(qf_plugin_version(nullptr), nullptr);
    EXPECT_EQ(qf_job_new(nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_format(nullptr, "mkv"), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_format(job, nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_video(nullptr, "vp8", 1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_video(job, nullptr, 1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_audio(nullptr, "aac", 1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_audio(job, nullptr, 1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_setup(nullptr, QF_VIDEO, "", 0), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_setup(job, QF_VIDEO, nullptr, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_setup(job, QF_VIDEO, nullptr, 0), QF_OK);
    EXPECT_EQ(qf_job_set_framing(nullptr, 0, 0), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_time_base(nullptr, QF_VIDEO, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_display_aspect(nullptr, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_overwrite(nullptr, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_sync(nullptr, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_longest_wait(nullptr, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_open(nullptr, "a.mkv", video.get(), &other), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), nullptr, video.get(), &other), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), "a.mkv", nullptr, &other), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), "a.mkv", video.get(), nullptr), QF_ERROR_ARGUMENT);
    const qf_packet packet = PacketOf(QF_VIDEO, kPicture, 0, 0);
    EXPECT_EQ(qf_file_write(nullptr, &packet), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_write(file.get(), nullptr), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_end_track(nullptr, QF_VIDEO), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_left_out(nullptr), 0U);
    EXPECT_EQ(qf_file_close(nullptr), QF_ERROR_ARGUMENT);
    EXPECT_TRUE(ErrorSays("file is null"));
    qf_plugin_close(nullptr);
    qf_job_free(nullptr);
    qf_file_discard(nullptr);
}

TEST_F(Errors, AreReturnedForNumbersOutOfRange) {
    const JobHandle job = NewJob();
    for (const double rate : {-1.0, static_cast<double>(NAN), static_cast<double>(INFINITY)}) {
        EXPECT_EQ(qf_job_set_video(job.get(), "vp8", 1, 1, rate), QF_ERROR_ARGUMENT);
    }
    EXPECT_EQ(qf_job_set_video(job.get(), "vp8", 0, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_video(job.get(), "vp8", 1, INT32_MIN, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_video(job.get(), "aac", 1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_TRUE(ErrorSays("there is no video codec 'aac'"));
    EXPECT_EQ(qf_job_set_audio(job.get(), "aac", 0, 2, 16), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_audio(job.get(), "aac", 48000, 256, 16), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_audio(job.get(), "aac", 48000, 2, -1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_audio(job.get(), "pcm", 48000, 2, 20), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_setup(job.get(), 3, "x", 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_setup(job.get(), QF_VIDEO, "x", SIZE_MAX), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_framing(job.get(), 3, 0), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_framing(job.get(), QF_FRAMING_LENGTHS, 5), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_framing(job.get(), QF_FRAMING_START_CODES, 4), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_time_base(job.get(), QF_AUDIO, 1, 0), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_time_base(job.get(), -1, 1, 1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_display_aspect(job.get(), 16, 0), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_longest_wait(job.get(), -1), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_format(job.get(), ""), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_job_set_format(job.get(), "matroska"), QF_ERROR_ARGUMENT);
    EXPECT_EQ(OpenFile(m_Plugin, Path(), job), nullptr);
    EXPECT_TRUE(ErrorSays("the job has no track"));
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(Errors, AreReturnedForOddPackets) {
    const FileHandle file = Open(MillisecondJob("vp8", nullptr));
    const qf_packet good = PacketOf(QF_VIDEO, kPicture, 0, 0);
    const struct {
        int m_Error;
        void (*m_Spoil)(qf_packet&);
    } rows[] = {
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.struct_size = 4; }},
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.track = 0; }},
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.track = INT32_MIN; }},
        {QF_ERROR_STATE, [](qf_packet& packet) { packet.track = QF_AUDIO; }},
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.data = nullptr; }},
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.size = 0; }},
        {QF_ERROR_ARGUMENT, [](qf_packet& packet) { packet.size = SIZE_MAX; }},
        {QF_ERROR_TIME, [](qf_packet& packet) { packet.duration = INT64_MAX; }},
    };
    for (const auto& row : rows) {
        qf_packet packet = good;
        row.m_Spoil(packet);
        EXPECT_EQ(qf_file_write(file.get(), &packet), row.m_Error) << &row - rows;
        EXPECT_STRNE(qf_error_text(), "");
    }
    EXPECT_EQ(qf_file_write(file.get(), &good), QF_OK);
}

TEST_F(Errors, AreReturnedForFormatsThatDoNotFit) {
    const JobHandle mpeg = MillisecondJob("mpeg2", nullptr);
    EXPECT_EQ(OpenFile(m_Plugin, Path("film.webm"), mpeg), nullptr);
    EXPECT_TRUE(ErrorSays("the format webm does not take MPEG-2 video"));
    EXPECT_EQ(OpenFile(m_Plugin, Path("film.mka"), mpeg), nullptr);
    EXPECT_EQ(OpenFile(m_Plugin, Path("film.avi"), mpeg), nullptr);
    EXPECT_TRUE(ErrorSays("no format 'avi'"));
    EXPECT_EQ(OpenFile(m_Plugin, Path("film"), mpeg), nullptr);
    EXPECT_TRUE(ErrorSays("extension"));
    qf_job_set_format(mpeg.get(), "hmkv");
    EXPECT_NE(OpenFile(m_Plugin, Path("film"), mpeg), nullptr);
}

TEST_F(Errors, AreReturnedForFilesThatMayNotBeWritten) {
    const JobHandle job = MillisecondJob("vp8", nullptr);
    WriteFile(Path("there.mkv"), Hex("01"));
    qf_file* file = nullptr;
    EXPECT_EQ(qf_file_open(m_Plugin.get(), Path("there.mkv").c_str(), job.get(), &file), QF_ERROR_EXISTS);
    EXPECT_EQ(ReadFile(Path("there.mkv")), Hex("01"));
    EXPECT_EQ(qf_file_open(m_Plugin.get(), Path("none/film.mkv").c_str(), job.get(), &file), QF_ERROR_OPEN);
    qf_job_set_overwrite(job.get(), 1);
    EXPECT_EQ(mkfifo(Path("pipe.mkv").c_str(), 0600), 0);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), Path("pipe.mkv").c_str(), job.get(), &file), QF_ERROR_OPEN);
    EXPECT_TRUE(ErrorSays("it is no regular file"));
    qf_job_set_format(job.get(), "mkv");
    EXPECT_EQ(qf_file_open(m_Plugin.get(), "/dev/null", job.get(), &file), QF_ERROR_OPEN);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), "", job.get(), &file), QF_ERROR_ARGUMENT);
    EXPECT_EQ(qf_file_open(m_Plugin.get(), std::string(100000, 'x').c_str(), job.get(), &file), QF_ERROR_OPEN);
}

// The plug-in takes such names for other things, or cuts them.
TEST_F(Errors, AreNotReturnedForOddNames) {
    const JobHandle job = MillisecondJob("vp8", nullptr);
    qf_job_set_format(job.get(), "mkv");
    std::filesystem::path deep = m_Directory / "";
    for (int i = 0; i < 12; ++i) {
        deep /= std::string(200, 'd');
        std::filesystem::create_directory(deep);
    }
    for (const std::string& name : {std::string("disc.iso:x"), std::string("\xFF\xFE no UTF-8.mkv"), std::string("\n"),
                                    std::string("\u732B.mkv"), (deep / "film.mkv").string()}) {
        const std::filesystem::path path = m_Directory / "" / name;
        FileHandle file = OpenFile(m_Plugin, path, job);
        ASSERT_NE(file, nullptr) << qf_error_text();
        EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 0, 0), QF_OK);
        EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
        EXPECT_GT(std::filesystem::file_size(path), 4000U);
    }
}

TEST_F(Errors, AreReturnedForLibrariesThatAreNoPlugins) {
    const std::vector<unsigned char> library = ReadFile(QF_PLUGIN);
    const struct {
        const char* m_Name;
        Octets m_Octets;
    } rows[] = {
        {"empty.so", {}},
        {"text.so", Ascii("no library")},
        {"cut.so", Octets(library.begin(), library.begin() + 10000)},
        {"other.so", ReadFile(QF_LOG_LIBRARY)},
    };
    qf_plugin* plugin = nullptr;
    for (const auto& row : rows) {
        WriteFile(Path(row.m_Name), row.m_Octets);
        EXPECT_EQ(qf_plugin_open(Path(row.m_Name).c_str(), &plugin), QF_ERROR_PLUGIN) << row.m_Name;
        EXPECT_STRNE(qf_error_text(), "");
        EXPECT_EQ(plugin, nullptr);
    }
    for (const char* const path : {"/nowhere.so", "/", "/dev/zero"}) {
        EXPECT_EQ(qf_plugin_open(path, &plugin), QF_ERROR_PLUGIN) << path;
    }
}

TEST_F(Errors, HaveATextForEachThread) {
    qf_job_new(nullptr);
    std::thread([] {
        EXPECT_STREQ(qf_error_text(), "");
        qf_file_close(nullptr);
        EXPECT_TRUE(ErrorSays("file is null"));
    }).join();
    EXPECT_TRUE(ErrorSays("job is null"));
}

TEST_F(Errors, AreReturnedForFilesWithoutAPacket) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    EXPECT_EQ(Close(file), QF_ERROR_EMPTY);
    EXPECT_EQ(std::filesystem::file_size(Path()), 0U);
}

TEST_F(Errors, LeaveNothingOfADiscardedFile) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 0, 0), QF_OK);
    file.reset();
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(Errors, DoNotFollowAFileThatIsRenamedMeanwhile) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    std::filesystem::rename(Path(), Path("other.mkv"));
    WriteFile(Path(), Hex("01"));
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 0, 0), QF_OK);
    EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
    EXPECT_EQ(ReadFile(Path()), Hex("01"));
    Read("other.mkv");
}

// The plug-in is needed as long as a file is open.
TEST_F(Errors, DoNotOccurWhenThePluginIsClosedEarly) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    m_Plugin.reset();
    EXPECT_EQ(Write(file, QF_VIDEO, kPicture, 0, 0), QF_OK);
    EXPECT_EQ(Close(file), QF_OK);
}

} // namespace
