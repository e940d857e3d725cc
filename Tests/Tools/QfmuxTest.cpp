// SPDX-License-Identifier: MIT
// qfmux from the outside: every codec, every option, and everything that can go wrong.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "EbmlWalker.h"
#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string Ffmpeg(const std::string& input, const std::string& options) {
    return RunCommand("ffmpeg -nostdin -v error -i " + Quoted(input) + " " + options + " 2>&1").m_Output;
}

class QfmuxTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }
    // No unfinished file lies about.
    void ExpectNothingLeft() const {
        for (const auto& entry : fs::directory_iterator(m_Directory / "")) {
            EXPECT_NE(entry.path().filename().string().substr(0, 7), ".qfmux-");
        }
    }

    TempDirectory m_Directory;
};

// ---- codecs

struct Clip {
    const char* m_Source;
    const char* m_Extension;
    const char* m_Options;
    const char* m_VideoID; // the CodecID expected, null for no such track
    const char* m_AudioID;
    int m_ExitCode;
};

// An MP4's edit list, an MP3's or a Vorbis stream's own count of samples cut sound at the ends, which the header of the
// file has no word for: there the octets of the sound are compared, else what is decoded from them.
enum class Sound { None, Decoded, Octets };

class EveryCodec : public QfmuxTest, public testing::WithParamInterface<std::pair<Clip, Sound>> {};

TEST_P(EveryCodec, ComesBackAsItWentIn) {
    const auto& [clip, sound] = GetParam();
    const std::string source = ClipPath(clip.m_Source);
    const std::string output = Path(std::string("out.") + clip.m_Extension);
    const CommandResult result =
        QfmuxResult("--json " + std::string(clip.m_Options) + " " + Quoted(source) + " " + Quoted(output));
    ASSERT_EQ(result.m_ExitCode, clip.m_ExitCode) << Qfmux(Quoted(source) + " " + Quoted(Path("x.mkv"))).m_Output;
    const json report = json::parse(result.m_Output);
    EXPECT_EQ(report["verified"], "full");
    std::size_t tracks = 0;
    for (const char* expected : {clip.m_VideoID, clip.m_AudioID}) {
        if (expected == nullptr) continue;
        ASSERT_LT(tracks, report["tracks"].size());
        EXPECT_EQ(report["tracks"][tracks++]["codecID"], expected);
    }
    EXPECT_EQ(report["tracks"].size(), tracks);

    std::string options = "-i " + Quoted(output);
    if (clip.m_VideoID != nullptr) options += " -map 0:v -map 1:v";
    if (sound != Sound::None) options += " -map 0:a -map 1:a";
    if (sound == Sound::Octets) options += " -c:a copy";
    ExpectEqualPairs(Ffmpeg(source, options + " -f streamhash -hash md5 -"), tracks);
}

constexpr const char* kAvc = "V_MPEG4/ISO/AVC";
constexpr const char* kAsp = "V_MPEG4/ISO/ASP";
constexpr const char* kPcm = "A_PCM/INT/LIT";
constexpr const char* kVfw = "V_MS/VFW/FOURCC";

INSTANTIATE_TEST_SUITE_P(
    Clips, EveryCodec,
    testing::Values(std::pair{Clip{"h264-aac.mp4", "mkv", "", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-aac.mov", "mkv", "", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-aac.ts", "mkv", "", kAvc, "A_AAC", 0}, Sound::Decoded},
                    std::pair{Clip{"h264-mp3.avi", "mkv", "", kAvc, "A_MPEG/L3", 0}, Sound::Octets},
                    std::pair{Clip{"h264-ac3.mkv", "mkv", "", kAvc, "A_AC3", 0}, Sound::Decoded},
                    std::pair{Clip{"h264-dts.mkv", "mkv", "", kAvc, "A_DTS", 0}, Sound::Decoded},
                    std::pair{Clip{"h264-pcm.mov", "mkv", "", kAvc, kPcm, 0}, Sound::Decoded},
                    std::pair{Clip{"h264-slices.mp4", "mkv", "", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-intra.mp4", "mkv", "", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"raw.h264", "mkv", "", kAvc, nullptr, 0}, Sound::None},
                    std::pair{Clip{"h264-aac.mp4", "mkv", "--h264 N264", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-aac.ts", "mkv", "--h264 A264", kAvc, "A_AAC", 0}, Sound::Decoded},
                    std::pair{Clip{"h264-aac.mp4", "mkv", "--h264 I264", kAvc, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-aac.mp4", "mkv", "--h264 havc", kVfw, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"h264-slices.mp4", "mkv", "--h264 havc", kVfw, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"mpeg1-mp2.mpg", "mkv", "", "V_MPEG1", "A_MPEG/L2", 0}, Sound::Decoded},
                    std::pair{Clip{"mpeg2-mp2.ts", "mkv", "", "V_MPEG2", "A_MPEG/L2", 0}, Sound::Decoded},
                    std::pair{Clip{"mpeg2-ac3.mpg", "mkv", "", "V_MPEG2", "A_AC3", 0}, Sound::Decoded},
                    std::pair{Clip{"raw.m2v", "mkv", "", "V_MPEG2", nullptr, 0}, Sound::None},
                    std::pair{Clip{"mpeg4-aac.mp4", "mkv", "", kAsp, "A_AAC", 0}, Sound::Octets},
                    std::pair{Clip{"mpeg4-mp3.avi", "mkv", "", kAsp, "A_MPEG/L3", 0}, Sound::Octets},
                    std::pair{Clip{"xvid-mp3.avi", "mkv", "", kAsp, "A_MPEG/L3", 0}, Sound::Octets},
                    std::pair{Clip{"mjpeg-pcm.avi", "mkv", "--force-codec", kVfw, kPcm, 1}, Sound::Decoded},
                    std::pair{Clip{"vp8-vorbis.webm", "webm", "", "V_VP8", "A_VORBIS", 0}, Sound::Decoded},
                    std::pair{Clip{"vp8-vorbis.webm", "mkv", "", "V_VP8", "A_VORBIS", 0}, Sound::Decoded},
                    std::pair{Clip{"vp8.ivf", "webm", "", "V_VP8", nullptr, 0}, Sound::None},
                    std::pair{Clip{"raw.aac", "mka", "", nullptr, "A_AAC", 0}, Sound::Decoded},
                    std::pair{Clip{"raw.mp3", "mka", "", nullptr, "A_MPEG/L3", 0}, Sound::Octets},
                    std::pair{Clip{"raw.mp2", "mka", "", nullptr, "A_MPEG/L2", 0}, Sound::Decoded},
                    std::pair{Clip{"raw.ac3", "mka", "", nullptr, "A_AC3", 0}, Sound::Decoded},
                    std::pair{Clip{"raw.dts", "mka", "", nullptr, "A_DTS", 0}, Sound::Decoded},
                    std::pair{Clip{"pcm16.wav", "mka", "", nullptr, kPcm, 0}, Sound::Decoded},
                    std::pair{Clip{"pcm24.wav", "mka", "", nullptr, kPcm, 0}, Sound::Decoded},
                    std::pair{Clip{"vorbis.ogg", "webm", "", nullptr, "A_VORBIS", 0}, Sound::Octets}),
    [](const auto& row) {
        std::string name = std::to_string(row.index) + "_" + row.param.first.m_Source + "_" +
                           row.param.first.m_Extension + "_" + row.param.first.m_Options;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
        return name;
    });

TEST_F(QfmuxTest, WarnsWhenPicturesOfSeveralSlicesFallApart) {
    for (const char* code : {"N264", "A264", "I264"}) {
        const CommandResult result = Qfmux("--overwrite --h264 " + std::string(code) + " " +
                                           Quoted(ClipPath("h264-slices.mp4")) + " " + Quoted(Path("out.mkv")));
        EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find("several slices"), std::string::npos);
    }
}

// The clip is a packed AVI, as Xvid's encoders make them: a B picture lies behind the picture that it is presented
// before, and an empty picture holds its place, flagged as a key frame where that picture is one.
TEST_F(QfmuxTest, OnlyIntraPicturesOfPackedMpeg4AreKeyFrames) {
    ASSERT_EQ(Qfmux(Quoted(ClipPath("xvid-mp3.avi")) + " " + Quoted(Path("a.mkv"))).m_ExitCode, 0);
    const Ebml::File file(ReadFile(Path("a.mkv")));
    const unsigned char mark[] = {0, 0, 1, 0xB6};
    int intra = 0;
    int bidirectional = 0;
    for (const Ebml::Block& block : file.BlocksOf(1)) {
        const auto picture = std::search(block.m_Frame.begin(), block.m_Frame.end(), std::begin(mark), std::end(mark));
        ASSERT_GT(block.m_Frame.end() - picture, 4);
        const int type = picture[4] / 0x40; // ISO 14496-2: 0 I, 1 P, 2 B
        if (type == 0) ++intra;
        if (type == 2) ++bidirectional;
        EXPECT_EQ(!block.m_Reference, type == 0) << block.Time();
    }
    EXPECT_GT(intra, 1);
    EXPECT_GT(bidirectional, 0);
}

// Matroska stores no decoding times, and those of the first reordered pictures lie before the first presentation time.
TEST_F(QfmuxTest, PresentationTimesOfTheFirstPicturesAreWorkedOut) {
    ASSERT_EQ(
        Qfmux("--h264 havc --no-audio " + Quoted(ClipPath("h264-ac3.mkv")) + " " + Quoted(Path("a.mkv"))).m_ExitCode,
        0);
    const Ebml::File file(ReadFile(Path("a.mkv")));
    std::int64_t expected = 0;
    for (const Ebml::Block& block : file.BlocksOf(1)) {
        EXPECT_EQ(block.Time(), expected);
        expected += 40;
    }
    EXPECT_EQ(expected, 3000);
}

// ---- the codecs and streams of each format

// Of each stream, when its packets are presented, in the order of the file, in seconds.
std::map<int, std::vector<double>> PresentationTimes(const std::string& file) {
    std::map<int, std::vector<double>> times;
    std::istringstream lines(
        RunCommand("ffprobe -v error -show_entries packet=stream_index,pts_time -of csv=p=0 " + Quoted(file)).m_Output);
    int stream = 0;
    char comma = 0;
    for (std::string line; std::getline(lines, line);) {
        double time = 0;
        if (std::istringstream(line) >> stream >> comma >> time) times[stream].push_back(time);
    }
    return times;
}

// As one puts recordings together with cat: the times of the second start anew. What belongs together stays together,
// also where sound and picture pass the joint one after the other, and where one of them ends later than the other.
TEST_F(QfmuxTest, JoinedRecordingsFollowOneAnother) {
    // Sound that ends earlier than the picture, and in the part, which starts between two key frames, begins earlier
    // too.
    RunCommand("ffmpeg -nostdin -v error -f lavfi -t 5.5 -i anullsrc=r=48000:cl=mono -f lavfi -t 6 -i "
               "testsrc2=size=160x90:rate=25 "
               "-c:v libx264 -preset ultrafast -bf 2 -g 25 -c:a aac -f mpegts " +
               Quoted(Path("whole.ts")));
    Ffmpeg(Path("whole.ts"), "-ss 2.04 -c copy -f mpegts " + Path("part.ts"));
    std::map<std::string, std::map<int, std::vector<double>>> timesOf;
    const auto alone = [&](const std::string& recording) {
        auto& times = timesOf[recording];
        if (times.empty()) {
            EXPECT_EQ(Qfmux("--overwrite " + recording + " " + Path("alone.mkv")).m_ExitCode, 0);
            times = PresentationTimes(Path("alone.mkv"));
        }
        return times;
    };
    const std::pair<std::string, std::string> pairs[] = {
        {ClipPath("h264-aac.ts"), ClipPath("h264-aac.ts")},
        {ClipPath("mpeg2-mp2.ts"), ClipPath("mpeg2-mp2.ts")},
        {ClipPath("mpeg2-ac3.mpg"), ClipPath("mpeg2-ac3.mpg")},
        {Path("whole.ts"), Path("part.ts")},
        {Path("part.ts"), Path("whole.ts")},
    };
    for (const auto& [first, second] : pairs) {
        SCOPED_TRACE(first + " and " + second);
        Octets octets = ReadFile(first);
        const Octets more = ReadFile(second);
        octets.insert(octets.end(), more.begin(), more.end());
        WriteFile(Path("joined"), octets);
        const CommandResult joined = Qfmux("--overwrite " + Path("joined") + " " + Path("both.mkv"));
        EXPECT_EQ(joined.m_ExitCode, 1);
        EXPECT_NE(joined.m_Output.find("joined jump: "), std::string::npos) << joined.m_Output;

        const auto before = alone(first);
        const auto behind = alone(second);
        const auto both = PresentationTimes(Path("both.mkv"));
        ASSERT_EQ(both.size(), 2U);
        const auto end = [](const std::vector<double>& times) { return *std::max_element(times.begin(), times.end()); };
        const double joint = std::max(end(before.at(0)), end(before.at(1)));
        for (const auto& [stream, times] : both) {
            const std::vector<double>& head = before.at(stream);
            const std::vector<double>& tail = behind.at(stream);
            ASSERT_EQ(times.size(), head.size() + tail.size());
            for (std::size_t i = 0; i < head.size(); ++i) ASSERT_NEAR(times[i], head[i], 0.0011) << "stream " << stream;
            const double moved = both.at(0)[before.at(0).size()] - behind.at(0)[0];
            EXPECT_NEAR(moved, joint, 0.2);
            for (std::size_t i = 0; i < tail.size(); ++i) {
                ASSERT_NEAR(times[head.size() + i] - moved, tail[i], 0.0021)
                    << "frame " << i << " of stream " << stream;
            }
        }
    }
}

// So are fragmented films and Matroska files put together with cat, though their times never jump by design.
TEST_F(QfmuxTest, FilesInOneFollowOneAnother) {
    Ffmpeg(ClipPath("h264-aac.mp4"), "-c copy -movflags frag_keyframe+empty_moov " + Path("part.mp4"));
    Ffmpeg(ClipPath("h264-aac.mp4"), "-c copy " + Path("part.mkv"));
    for (const char* name : {"part.mp4", "part.mkv"}) {
        SCOPED_TRACE(name);
        Octets octets = ReadFile(Path(name));
        const std::size_t size = octets.size();
        octets.resize(2 * size);
        std::copy_n(octets.begin(), size, octets.begin() + static_cast<std::ptrdiff_t>(size));
        WriteFile(Path("both"), octets);
        EXPECT_EQ(Qfmux("--overwrite " + Path("both") + " " + Path("both.mkv")).m_ExitCode, 1);
        const auto both = PresentationTimes(Path("both.mkv"));
        const double moved = both.at(0).back() - both.at(0)[both.at(0).size() / 2 - 1];
        EXPECT_NEAR(moved, 3.05, 0.05);
        for (const auto& [stream, times] : both) {
            ASSERT_EQ(times.size() % 2, 0U);
            const std::size_t half = times.size() / 2;
            for (std::size_t i = 0; i < half; ++i) {
                ASSERT_NEAR(times[half + i] - times[i], moved, 0.0021) << "frame " << i << " of stream " << stream;
            }
        }
    }
}

// A Flash file has set-up data wherever they change.
TEST_F(QfmuxTest, WarnsOfSoundThatChangesOnTheWay) {
    constexpr std::size_t kFileHeader = 13; // with the size of what is in front of the first tag
    for (const std::string rate : {"44100", "22050"}) {
        RunCommand("ffmpeg -nostdin -v error -f lavfi -i anullsrc=r=" + rate + " -t 1 -c:a aac " +
                   Quoted(Path(rate + ".flv")));
    }
    const Octets first = ReadFile(Path("44100.flv"));
    for (const std::string rate : {"44100", "22050"}) {
        Octets joined = first;
        const Octets second = ReadFile(Path(rate + ".flv"));
        ASSERT_GT(second.size(), kFileHeader);
        joined.insert(joined.end(), second.begin() + kFileHeader, second.end());
        WriteFile(Path("joined.flv"), joined);
        const CommandResult result = Qfmux("--overwrite " + Path("joined.flv") + " " + Path("out.mka"));
        EXPECT_EQ(result.m_ExitCode, 1);
        EXPECT_EQ(result.m_Output.find("change within the stream") != std::string::npos, rate == "22050")
            << result.m_Output;
    }

    // Frames of MP3 have no such data, but decoders keep to the first rate.
    for (const std::string rate : {"44100", "48000"}) {
        RunCommand("ffmpeg -nostdin -v error -f lavfi -i sine=r=" + rate +
                   " -t 1 -c:a libmp3lame -write_xing 0 -id3v2_version 0 -f mp3 - >> " + Quoted(Path("joined.mp3")));
    }
    const CommandResult result = Qfmux("--overwrite " + Path("joined.mp3") + " " + Path("out.mka"));
    EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
    EXPECT_NE(result.m_Output.find("change within the stream"), std::string::npos) << result.m_Output;
}

// Takes the time stamps from all but each n-th packet of the picture in a transport stream (ISO 13818-1, PES packets).
Octets WithFewStamps(Octets stream, int n) {
    int packets = 0;
    for (std::size_t at = 0; at + 19 < stream.size(); ++at) {
        const unsigned char mark[] = {0, 0, 1, 0xE0};
        if (!std::equal(std::begin(mark), std::end(mark), &stream[at]) || packets++ % n == 0) continue;
        const std::size_t stamps = (stream[at + 7] & 0x80U) == 0 ? 0 : (stream[at + 7] & 0x40U) != 0 ? 10 : 5;
        stream[at + 7] &= 0x3F;
        std::fill_n(&stream[at + 9], stamps, static_cast<unsigned char>(0xFF));
    }
    return stream;
}

// A broadcast must carry a time stamp at least every 0.7 seconds; other pictures may have none.
TEST_F(QfmuxTest, TimesThatABroadcastLeavesOutAreFilledIn) {
    ASSERT_EQ(Qfmux(ClipPath("h264-aac.ts") + " " + Path("all.mkv")).m_ExitCode, 0);
    const auto expected = PresentationTimes(Path("all.mkv"));
    for (const int n : {2, 3, 12}) {
        SCOPED_TRACE(n);
        WriteFile(Path("few.ts"), WithFewStamps(ReadFile(ClipPath("h264-aac.ts")), n));
        EXPECT_EQ(Qfmux("--overwrite " + Path("few.ts") + " " + Path("few.mkv")).m_ExitCode, 0);
        EXPECT_EQ(PresentationTimes(Path("few.mkv")), expected);
    }
}

// Slides in a broadcast: a picture may be presented long after it was decoded, and nothing is wrong with its times.
TEST_F(QfmuxTest, TimesOfReorderedSlidesAreKept) {
    const std::string slides = Path("slides.ts");
    RunCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=1/5:duration=100 -c:v libx264 -bf 2 " +
               Quoted(slides));
    const std::string output = Path("out.mkv");
    const CommandResult result = Qfmux(Quoted(slides) + " " + Quoted(output));
    ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    const std::vector<double> expected = PresentationTimes(slides)[0];
    const std::vector<double> times = PresentationTimes(output)[0];
    ASSERT_EQ(times.size(), 20U);
    ASSERT_EQ(expected.size(), times.size());
    EXPECT_FALSE(std::is_sorted(expected.begin(), expected.end()));
    for (std::size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(times[i], expected[i] - expected[0], 0.001);
}

// A recording cut between two groups of pictures begins with B pictures that are presented before its first one.
TEST_F(QfmuxTest, PicturesInFrontOfTheFirstAreLeftOut) {
    const std::string whole = Path("whole.ts");
    const std::string cut = Path("cut.ts");
    Ffmpeg(ClipPath("mpeg2-mp2.ts"), "-map v -c copy " + Quoted(whole));
    const json read = json::parse(RunCommand("ffprobe -v error -show_packets -of json " + Quoted(whole)).m_Output);
    const json& packets = read["packets"];
    const auto isKey = [](const json& packet) { return packet["flags"].get<std::string>()[0] == 'K'; };
    const auto key = std::find_if(packets.begin() + 1, packets.end(), isKey);
    ASSERT_NE(key, packets.end());
    const auto time = [](const json& packet) { return std::stod(packet["pts_time"].get<std::string>()); };
    const auto front = std::count_if(key, packets.end(), [&](const json& one) { return time(one) < time(*key); });
    ASSERT_EQ(front, 2);

    // Three packets of 188 octets hold the tables.
    std::ifstream file(whole, std::ios::binary);
    const std::string octets{std::istreambuf_iterator<char>(file), {}};
    std::ofstream(cut, std::ios::binary) << octets.substr(0, std::size_t{3} * 188)
                                         << octets.substr(std::stoul((*key)["pos"].get<std::string>()));
    const std::string output = Path("out.mkv");
    const CommandResult result = Qfmux("--force-codec " + Quoted(cut) + " " + Quoted(output));
    EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
    EXPECT_NE(result.m_Output.find("2 pictures (0.08 s) of " + cut + " were left out"), std::string::npos)
        << result.m_Output;

    const std::vector<double> times = PresentationTimes(output)[0];
    EXPECT_EQ(times.size(), static_cast<std::size_t>(packets.end() - key - front));
    EXPECT_EQ(*std::min_element(times.begin(), times.end()), 0.0);
}

TEST_F(QfmuxTest, DamagedPacketsAreCounted) {
    Octets stream = ReadFile(ClipPath("h264-aac.ts"));
    // The start of an AAC frame (ADTS) in the middle of the sound.
    std::size_t at = stream.size() / 2;
    while (stream[at] != 0xFF || stream[at + 1] != 0xF1) ++at;
    std::fill_n(&stream[at], 40, static_cast<unsigned char>(0x55));
    WriteFile(Path("damaged.ts"), stream);
    const CommandResult result = Qfmux(Path("damaged.ts") + " " + Path("out.mkv"));
    EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
    EXPECT_NE(result.m_Output.find(" has 1 damaged packet"), std::string::npos) << result.m_Output;
    EXPECT_GT(PresentationTimes(Path("out.mkv")).at(1).size(), 100U);
}

TEST_F(QfmuxTest, TwoFilesStartTogetherWhateverTheirTimesCountFrom) {
    Ffmpeg(ClipPath("h264-aac.ts"), "-c copy -output_ts_offset 5000 " + Path("late.ts"));
    // The clock of a transport stream starts again after 26.5 hours, here after one second of three.
    Ffmpeg(ClipPath("h264-aac.ts"), "-c copy -output_ts_offset 95441 " + Path("wrap.ts"));
    for (const std::string& inputs :
         {Path("late.ts") + " " + ClipPath("pcm16.wav"), ClipPath("h264-aac.mp4") + " " + Path("late.ts"),
          Path("wrap.ts") + " " + ClipPath("pcm16.wav")}) {
        SCOPED_TRACE(inputs);
        EXPECT_EQ(Qfmux("--overwrite " + inputs + " " + Path("out.mkv")).m_ExitCode, 0);
        const auto times = PresentationTimes(Path("out.mkv"));
        ASSERT_EQ(times.size(), 2U);
        EXPECT_NEAR(times.at(0)[0], times.at(1)[0], 0.1);
    }
}

TEST_F(QfmuxTest, StreamsThatBeginLateAreKnown) {
    RunCommand(
        "ffmpeg -nostdin -v error -itsoffset 8 -i " + ClipPath("raw.ac3") +
        " -f lavfi -i testsrc2=size=160x90:rate=25 -t 12 -map 0:a -map 1:v -c:a copy -c:v libx264 -preset ultrafast "
        "-f mpegts " +
        Path("late.ts"));
    EXPECT_EQ(Qfmux(Path("late.ts") + " " + Path("out.mkv")).m_ExitCode, 0);
    const Ebml::File file(ReadFile(Path("out.mkv")));
    EXPECT_EQ(file.Float("Segment/Tracks/TrackEntry[1]/Audio/SamplingFrequency"), 48000);
    EXPECT_NEAR(PresentationTimes(Path("out.mkv")).at(1)[0], 8, 0.1);

    // Announced, and then nothing comes: of the sound its code in the table of contents is all there is.
    const Octets whole = ReadFile(Path("late.ts"));
    Octets silent;
    for (std::size_t packet = 0; packet < whole.size(); packet += 188) {
        const bool isSound = whole[packet + 1] % 0x20 == 1 && whole[packet + 2] == 0;
        if (!isSound) silent.insert(silent.end(), &whole[packet], &whole[packet] + 188);
    }
    WriteFile(Path("silent.ts"), silent);
    const CommandResult result = Qfmux("--overwrite " + Path("silent.ts") + " " + Path("out.mkv"));
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_NE(result.m_Output.find("is left out (its sample rate is not known): #0 (ac3)"), std::string::npos)
        << result.m_Output;
    EXPECT_EQ(Qfmux("--overwrite --no-audio " + Path("silent.ts") + " " + Path("out.mkv")).m_ExitCode, 0);
}

TEST_F(QfmuxTest, SoundIsThatOfThePicturesProgramme) {
    RunCommand(
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x180:rate=25 -f lavfi -i anullsrc=r=48000:cl=mono "
        "-f lavfi -i testsrc2=size=160x90:rate=25 -f lavfi -i anullsrc=r=48000:cl=5.1 -t 2 -map 0 -map 1 -map 2 "
        "-map 3 -c:v libx264 -preset ultrafast -c:a ac3 -program title=A:st=0:st=1 -program title=B:st=2:st=3 "
        "-f mpegts " +
        Path("two.ts"));
    const CommandResult result = Qfmux(Path("two.ts") + " " + Path("out.mkv"));
    EXPECT_EQ(result.m_ExitCode, 1) << "two streams are left out";
    EXPECT_NE(result.m_Output.find("1 video stream is left out (the file holds one): #2 (h264)"), std::string::npos)
        << result.m_Output;
    const Ebml::File file(ReadFile(Path("out.mkv")));
    EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry[0]/Video/PixelWidth"), 320U);
    EXPECT_EQ(file.Unsigned("Segment/Tracks/TrackEntry[1]/Audio/Channels"), 1U);
}

// Matroska and QuickTime tell it of a stream, other ISO files (ISO 23001-7) of each frame.
TEST_F(QfmuxTest, EncryptedStreamsAreRefused) {
    ASSERT_EQ(RunCommand("ffmpeg -nostdin -v error -i " + Quoted(ClipPath("h264-aac.mp4")) +
                         " -c copy -encryption_scheme cenc-aes-ctr -encryption_key 000102030405060708090a0b0c0d0e0f "
                         "-encryption_kid 000102030405060708090a0b0c0d0e0f " +
                         Quoted(Path("common.mp4")) + " -c copy -metadata:s:v title=fourteenletter " +
                         Quoted(Path("named.mkv")) + " 2>&1")
                  .m_Output,
              "");
    const auto replaced = [](const Octets& octets, const std::string& from, const std::string& to) {
        std::string text(octets.begin(), octets.end());
        const std::size_t place = text.find(from);
        EXPECT_NE(place, std::string::npos);
        if (place != std::string::npos) text.replace(place, from.size(), to);
        return Octets(text.begin(), text.end());
    };
    WriteFile(Path("quicktime.mp4"), replaced(ReadFile(ClipPath("h264-aac.mp4")), "mp4a", "drms"));
    // The track's Name becomes its ContentEncodings with the identifier of a key (RFC 9559).
    WriteFile(Path("matroska.mkv"), replaced(ReadFile(Path("named.mkv")),
                                             "\x53\x6E\x8E"
                                             "fourteenletter",
                                             "\x6D\x80\x8E\x62\x40\x8B\x50\x33\x81\x01\x50\x35\x84\x47\xE2\x81\x2A"));
    for (const std::string name : {"common.mp4", "quicktime.mp4", "matroska.mkv"}) {
        const CommandResult result = Qfmux(Path(name) + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 2) << name;
        EXPECT_EQ(result.m_Output, "qfmux: cannot read '" + Path(name) + "': it is encrypted\n");
        EXPECT_FALSE(fs::exists(Path("out.mkv")));
    }
    // Streams that are not chosen do not matter.
    EXPECT_EQ(Qfmux("--no-audio " + Path("quicktime.mp4") + " " + Path("picture.mkv")).m_ExitCode, 0);
}

// Telephones record as they are held, and store the rotation for players.
TEST_F(QfmuxTest, WarnsOfALostRotation) {
    RunCommand("ffmpeg -nostdin -v error -i " + Quoted(ClipPath("h264-aac.mp4")) + " -c copy -metadata:s:v rotate=90 " +
               Quoted(Path("turned.mp4")));
    const CommandResult result = Qfmux(Path("turned.mp4") + " " + Path("out.mkv"));
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_NE(result.m_Output.find("qfmux: warning: the rotation by 90 degrees is lost"), std::string::npos)
        << result.m_Output;
    EXPECT_TRUE(fs::exists(Path("out.mkv")));
}

TEST_F(QfmuxTest, WarnsOfLostTransparency) {
    for (const std::string pixels : {"yuva420p", "yuv420p"}) {
        RunCommand("ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=64x64:rate=25:duration=0.2,format=" + pixels +
                   " -c:v libvpx -auto-alt-ref 0 " + Quoted(Path("in.webm")));
        const CommandResult result = Qfmux("--overwrite " + Path("in.webm") + " " + Path("out.webm"));
        const bool isLost = pixels == "yuva420p";
        EXPECT_EQ(result.m_ExitCode, isLost ? 1 : 0) << result.m_Output;
        EXPECT_EQ(result.m_Output.find("transparency is lost") != std::string::npos, isLost) << result.m_Output;
    }
}

// A frame of an IVF file has its time in its header, and nothing else tells that it is wrong.
TEST_F(QfmuxTest, AbsurdTimesAreNotBelieved) {
    const Octets good = ReadFile(ClipPath("vp8.ivf"));
    ASSERT_EQ(Qfmux(ClipPath("vp8.ivf") + " " + Path("good.webm")).m_ExitCode, 0);
    const auto expected = PresentationTimes(Path("good.webm"));
    for (const std::size_t octet :
         {std::size_t{3}, std::size_t{5}, std::size_t{7}}) { // 8 days, 58,000 years, an overflow
        for (const bool two : {false, true}) {
            SCOPED_TRACE("octet " + std::to_string(octet) + (two ? ", two frames" : ""));
            Octets bad = good;
            std::size_t header = 32;
            for (int frame = 0; header < bad.size(); ++frame) {
                if (frame == 20 || (two && frame == 21)) bad[header + 4 + octet] = 0x7F;
                header += 12 + bad[header] + 0x100U * bad[header + 1];
            }
            WriteFile(Path("bad.ivf"), bad);
            const CommandResult result = Qfmux("--overwrite " + Path("bad.ivf") + " " + Path("mended.webm"));
            EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
            EXPECT_EQ(PresentationTimes(Path("mended.webm")), expected);
        }
    }
}

TEST_F(QfmuxTest, RefusesInOneLineThatNamesTheList) {
    struct Row {
        const char* m_Source;
        const char* m_Output;
        const char* m_List;
    };
    for (const Row& row :
         {Row{"h264-aac.mp4", "a.webm", "'VP8 '"}, Row{"vp9-opus.webm", "a.webm", "'VP8 '"},
          Row{"raw.aac", "a.webm", "'VBIS'"}, Row{"mjpeg-pcm.avi", "a.mkv", "'I264', 'A264', 'H264', 'Xvid'"},
          Row{"flac.flac", "a.mka", "'AAC ', 'AC3 ', 'MP3 '"}}) {
        const CommandResult result =
            Qfmux("--quiet " + Quoted(ClipPath(row.m_Source)) + " " + Quoted(Path(row.m_Output)));
        EXPECT_EQ(result.m_ExitCode, 2) << row.m_Source;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_List), std::string::npos) << result.m_Output;
        EXPECT_EQ(result.m_Output.find("('0x"), std::string::npos) << result.m_Output; // the number of FLAC in WAV
        EXPECT_FALSE(fs::exists(Path(row.m_Output)));
    }
    ExpectNothingLeft();
}

TEST_F(QfmuxTest, NotesACodecThatTheListDoesNotName) {
    const CommandResult result = Qfmux(Quoted(ClipPath("raw.dts")) + " " + Quoted(Path("a.mka")));
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_EQ(Lines(result.m_Output), 2) << result.m_Output;
    EXPECT_EQ(result.m_Output.find("qfmux: the audio is dts, which Matroska knows as A_DTS: "), 0U) << result.m_Output;
}

// ---- options

TEST_F(QfmuxTest, FormatIsTakenFromTheExtensionOrTheOption) {
    const std::string source = Quoted(ClipPath("h264-ac3.mkv"));
    const auto formatOf = [&](const std::string& arguments) {
        return json::parse(QfmuxResult("--dry-run --json " + arguments).m_Output)["format"].get<std::string>();
    };
    EXPECT_EQ(formatOf(source + " a.mkv"), "MKV ");
    EXPECT_EQ(formatOf(source + " a.MKA"), "MKA ");
    EXPECT_EQ(formatOf(Quoted(ClipPath("vp8.ivf")) + " a.webm"), "WEBM");
    EXPECT_EQ(formatOf("--format HMKV " + source + " a.mkv"), "HMKV");
    EXPECT_EQ(formatOf("mux --format mka " + source + " -o a.anything"), "MKA ");
    EXPECT_EQ(formatOf("--format MKA " + source + " a.anything"), "MKA ");
    EXPECT_FALSE(fs::exists("a.mkv"));
}

TEST_F(QfmuxTest, StreamsAreChosen) {
    const std::string both = Quoted(ClipPath("h264-aac.mp4"));
    const auto kinds = [&](const std::string& arguments) {
        std::string text;
        const json plan = json::parse(QfmuxResult("--dry-run --json " + arguments + " a.mkv").m_Output);
        for (const json& track : plan["tracks"]) {
            text += track["kind"].get<std::string>() + " " +
                    fs::path(track["input"].get<std::string>()).filename().string() + "#" + track["stream"].dump() +
                    ";";
        }
        return text;
    };
    EXPECT_EQ(kinds(both), "video h264-aac.mp4#0;audio h264-aac.mp4#1;");
    EXPECT_EQ(kinds("--no-audio " + both), "video h264-aac.mp4#0;");
    EXPECT_EQ(kinds("--no-video " + both), "audio h264-aac.mp4#1;");
    EXPECT_EQ(kinds(Quoted(ClipPath("raw.h264")) + " " + Quoted(ClipPath("raw.aac"))),
              "video raw.h264#0;audio raw.aac#0;");
    const std::string two = both + " " + Quoted(ClipPath("h264-ac3.mkv"));
    EXPECT_EQ(kinds(two), "video h264-aac.mp4#0;audio h264-ac3.mkv#1;");
    EXPECT_EQ(kinds("--tracks v:1,a:0 " + two), "video h264-ac3.mkv#0;audio h264-aac.mp4#1;");
    EXPECT_EQ(Qfmux("--tracks v:2 " + two + " a.mkv").m_ExitCode, 3);
}

TEST_F(QfmuxTest, AspectReachesTheHeader) {
    const auto aspect = [&](const std::string& arguments) {
        EXPECT_EQ(Qfmux("--overwrite " + arguments + " " + Quoted(Path("a.mkv"))).m_ExitCode, 0);
        return RunCommand("ffprobe -v error -select_streams v -show_entries stream=display_aspect_ratio -of csv=p=0 " +
                          Quoted(Path("a.mkv")))
            .m_Output;
    };
    EXPECT_EQ(aspect("--aspect 2.39:1 " + Quoted(ClipPath("h264-aac.mp4"))), "239:100\n");
    EXPECT_EQ(aspect("--aspect 21:9 " + Quoted(ClipPath("h264-aac.mp4"))), "7:3\n");
    EXPECT_EQ(aspect(Quoted(ClipPath("h264-wide.mp4"))), "4:3\n") << "the source's, whose pixels are not square";
    const CommandResult webm = Qfmux("--aspect 4:3 " + Quoted(ClipPath("vp8.ivf")) + " " + Quoted(Path("a.webm")));
    EXPECT_EQ(webm.m_ExitCode, 1) << "WebM has no place for it here";
}

// The best stream that the format takes is taken, not the best of all.
TEST_F(QfmuxTest, SoundIsTheBestThatTheFormatTakes) {
    RunCommand("ffmpeg -nostdin -v error -f lavfi -i anullsrc=r=48000:cl=5.1 -f lavfi -i anullsrc=r=48000:cl=mono -t 1 "
               "-map 0 -map 1 -c:a:0 flac -c:a:1 ac3 " +
               Quoted(Path("two.mkv")));
    const CommandResult result = QfmuxResult("--json " + Quoted(Path("two.mkv")) + " " + Quoted(Path("a.mka")));
    EXPECT_EQ(result.m_ExitCode, 1);
    const json report = json::parse(result.m_Output);
    EXPECT_EQ(report["tracks"][0]["codec"], "ac3");
    EXPECT_EQ(report["lost"][0]["text"], "1 audio stream is left out (the file holds one): #0 (flac)");
    const CommandResult asked = Qfmux("--tracks a:0 " + Quoted(Path("two.mkv")) + " " + Quoted(Path("b.mka")));
    EXPECT_EQ(asked.m_ExitCode, 2);
}

// However a run ends, --json is answered with one object.
TEST_F(QfmuxTest, EveryEndingIsAnObject) {
    const std::string clip = Quoted(ClipPath("raw.aac"));
    std::ofstream(Path("there.mka")) << "old";
    for (const auto& [arguments, exitCode] :
         {std::pair{"--no-such-option", 3}, std::pair{"", 3}, std::pair{"missing.mp4 a.mka", 2},
          std::pair{"--plugin nowhere.so in.aac a.mka", 2}, std::pair{"in.aac there.mka", 4},
          std::pair{"--dry-run in.aac there.mka", 1}, std::pair{"--dry-run in.aac no/such/folder/a.mka", 1},
          std::pair{"in.aac a.mka", 0}}) {
        const CommandResult result = RunCommand("cd " + Quoted(Path("")) + "; ln -sf " + clip + " in.aac; " +
                                                Quoted(QF_QFMUX) + " --json " + arguments + " 2>words");
        EXPECT_EQ(result.m_ExitCode, exitCode) << arguments;
        const json object = json::parse(result.m_Output, nullptr, false);
        ASSERT_TRUE(object.is_object()) << arguments << ": " << result.m_Output;
        EXPECT_EQ(object["exitCode"], exitCode);
        if (exitCode > 1) {
            EXPECT_EQ("qfmux: " + object["error"].get<std::string>() + "\n", WordsOf(Path("words").c_str()));
        } else {
            EXPECT_EQ(object.count("error"), 0U);
        }
    }
}

TEST_F(QfmuxTest, DurationEndsTheFile) {
    const CommandResult result =
        QfmuxResult("--json --duration 1 " + Quoted(ClipPath("h264-intra.mp4")) + " " + Quoted(Path("a.mkv")));
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_NEAR(json::parse(result.m_Output)["tracks"][0]["frames"].get<int>(), 25, 1);

    // The sound begins after that.
    Ffmpeg(ClipPath("h264-aac.mp4"),
           "-itsoffset 2 -i " + ClipPath("raw.mp3") + " -map 0:v -map 1:a -c copy " + Path("late.mkv"));
    for (const char* encode : {"", "--encode all "}) {
        const CommandResult early =
            Qfmux(std::string("-y --duration 1 ") + encode + Path("late.mkv") + " " + Path("b.mkv"));
        EXPECT_EQ(early.m_ExitCode, 0) << early.m_Output;
        EXPECT_NE(early.m_Output.find("the audio stream begins after the end of --duration"), std::string::npos)
            << early.m_Output;
        EXPECT_NE(early.m_Output.find(", verified"), std::string::npos) << early.m_Output;
    }
    EXPECT_EQ(Qfmux("-y --duration 0.01 " + ClipPath("h264-aac.mp4") + " " + Path("b.mkv")).m_ExitCode, 0);
}

TEST_F(QfmuxTest, ProgressIsOneObjectALine) {
    const CommandResult result =
        QfmuxResult("--progress json " + Quoted(ClipPath("h264-aac.mp4")) + " " + Quoted(Path("a.mkv")));
    EXPECT_EQ(result.m_ExitCode, 0);
    std::istringstream lines(result.m_Output);
    json last;
    std::string phases;
    int done = 0;
    for (std::string line; std::getline(lines, line);) {
        last = json::parse(line);
        const std::string phase = last["phase"];
        if (phases.size() < phase.size() || phases.substr(phases.size() - phase.size()) != phase) phases += " " + phase;
        if (last["done"]) ++done;
    }
    EXPECT_EQ(phases, " write verify");
    EXPECT_EQ(done, 1);
    EXPECT_EQ(last["done"], true);
    EXPECT_EQ(last["percent"], 100.0);
    const CommandResult bar =
        Qfmux("--overwrite --progress bar " + Quoted(ClipPath("h264-aac.mp4")) + " " + Quoted(Path("a.mkv")));
    EXPECT_NE(bar.m_Output.find('%'), std::string::npos);
    for (const char* mode : {"", "--progress none "}) {
        const CommandResult plain =
            Qfmux(mode + std::string("-y ") + Quoted(ClipPath("h264-mp3.avi")) + " " + Quoted(Path("a.mkv")));
        EXPECT_TRUE(std::regex_match(
            plain.m_Output, std::regex("qfmux: .*/a[.]mkv: 3[.][0-9]+ s, [0-9]+ frames, [0-9]+ kB, verified\n")))
            << plain.m_Output;
        EXPECT_EQ(plain.m_Output.find('%'), std::string::npos) << "no bar where there is no terminal";
    }
}

TEST_F(QfmuxTest, VerboseQuietSyncAndVerifyModes) {
    const std::string files = Quoted(ClipPath("raw.h264")) + " " + Quoted(Path("a.mkv"));
    EXPECT_NE(Qfmux("-v " + files).m_Output.find("h264 as 'H264' (V_MPEG4/ISO/AVC)"), std::string::npos);
    const CommandResult quiet =
        Qfmux("-q --aspect 2.39:1 " + Quoted(ClipPath("vp8.ivf")) + " " + Quoted(Path("a.webm")));
    EXPECT_EQ(quiet.m_Output, "");
    EXPECT_EQ(quiet.m_ExitCode, 1) << "a warning that is not said is a warning all the same";
    EXPECT_EQ(Qfmux("--sync --overwrite " + files).m_ExitCode, 0);
    for (const char* mode : {"full", "decode", "none"}) {
        const CommandResult result = QfmuxResult("--json --overwrite --verify " + std::string(mode) + " " + files);
        EXPECT_EQ(result.m_ExitCode, 0);
        EXPECT_EQ(json::parse(result.m_Output)["verified"], mode);
    }
}

TEST_F(QfmuxTest, FormatsHelpAndVersion) {
    const CommandResult text = QfmuxResult("formats");
    EXPECT_EQ(text.m_ExitCode, 0);
    EXPECT_EQ(Lines(text.m_Output), 4);
    const json formats = json::parse(QfmuxResult("formats --json").m_Output);
    ASSERT_EQ(formats.size(), 4U);
    EXPECT_EQ(formats[0]["format"], "MKV ");
    EXPECT_EQ(formats[0]["video"], (json{"I264", "A264", "H264", "Xvid"}));
    EXPECT_EQ(formats[3]["audio"], json::array({"VBIS"}));

    const CommandResult help = QfmuxResult("--help");
    EXPECT_EQ(help.m_ExitCode, 0);
    int examples = 0;
    for (std::size_t at = help.m_Output.find("\n  qfmux "); at != std::string::npos;
         at = help.m_Output.find("\n  qfmux ", at + 1)) {
        ++examples;
    }
    EXPECT_EQ(examples, 6);
    const CommandResult version = QfmuxResult("--version");
    EXPECT_EQ(version.m_ExitCode, 0);
    EXPECT_NE(version.m_Output.find(QF_VERSION), std::string::npos);
}

TEST_F(QfmuxTest, ManPageAndCompletionKnowEveryOption) {
    const std::string help = QfmuxResult("--help").m_Output;
    const std::string man = WordsOf(QF_SOURCE "/Docs/man/qfmux.1");
    const std::string completion = WordsOf(QF_SOURCE "/Source/Tools/qfmux/qfmux.bash");
    int options = 0;
    const std::string list = help.substr(0, help.find("Examples:"));
    for (std::size_t at = list.find("--"); at != std::string::npos; at = list.find("--", at + 2)) {
        const std::string option = list.substr(at, list.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at + 2) - at);
        EXPECT_NE(man.find(option), std::string::npos) << option;
        EXPECT_NE(completion.find(option), std::string::npos) << option;
        ++options;
    }
    EXPECT_GT(options, 15);
}

// ---- a file that is read once

// All sound behind all pictures but for the first second: more than may wait, so the sound gets the file for itself.
// The frames must be those of the same stream in good order.
TEST_F(QfmuxTest, BadlyInterleavedFilesComeOutAsGoodOnes) {
    ASSERT_EQ(RunCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x180:rate=25:duration=2 -f lavfi -i "
                         "sine=duration=2 -vf noise=alls=80:allf=t -c:v mpeg2video -qscale:v 1 -g 1 -c:a ac3 " +
                         Quoted(Path("piece.ts")) + " && ffmpeg -nostdin -v error -stream_loop 11 -i " +
                         Quoted(Path("piece.ts")) + " -c copy " + Quoted(Path("good.ts")) + " 2>&1")
                  .m_ExitCode,
              0);
    const auto good = ReadFile(Path("good.ts"));
    constexpr std::size_t kPacket = 188;
    std::vector<unsigned char> bad;
    std::vector<unsigned char> sound;
    for (std::size_t at = 0; at < good.size(); at += kPacket) {
        const bool isSound = good[at + 1] % 0x20 == 1 && good[at + 2] == 1 && at > good.size() / 24;
        auto& part = isSound ? sound : bad;
        part.insert(part.end(), &good[at], &good[at] + kPacket);
    }
    ASSERT_GT(bad.size(), std::size_t{34} << 20);
    ASSERT_GT(sound.size(), 100000U);
    bad.insert(bad.end(), sound.begin(), sound.end());
    WriteFile(Path("bad.ts"), bad);
    std::vector<std::string> calls; // but for the path, which is new each time
    for (const std::string name : {"good", "bad"}) {
        const CommandResult result = Qfmux("--quiet --record " + Quoted(Path(name)) + " " + Quoted(Path(name + ".ts")) +
                                           " " + Quoted(Path("out.mkv")));
        ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
        fs::remove(Path("out.mkv"));
        const auto session = ReadFile(Path(name));
        calls.push_back(
            std::regex_replace(std::string(session.begin(), session.end()), std::regex("\"path\":\"[^\"]*\""), ""));
    }
    EXPECT_TRUE(ReadFile(Path("good.payload")) == ReadFile(Path("bad.payload")));
    EXPECT_TRUE(calls[0] == calls[1]);
}

// ---- wrong command lines and files

TEST_F(QfmuxTest, ExplainsInOneLineWhatItCannotDo) {
    const std::string clip = Quoted(ClipPath("h264-aac.mp4"));
    const std::string out = " " + Quoted(Path("a.mkv"));
    std::ofstream(Path("text.mp4")) << "this is no clip";
    std::ofstream(Path("empty.mp4"));
    std::ofstream(Path("there.mkv")) << "old";
    fs::create_directory(Path("folder.mkv"));
    ASSERT_EQ(mkfifo(Path("pipe.mkv").c_str(), 0600), 0);
    fs::copy_file(ClipPath("h264-ac3.mkv"), Path("in.mkv"));
    struct Row {
        std::string m_Arguments;
        int m_ExitCode;
        const char* m_Words;
    };
    const Row rows[] = {
        {"", 3, "are needed"},
        {clip, 3, "are needed"},
        {clip + " " + clip + " " + clip + out, 3, "are needed"},
        {"--no-such-option " + clip + out, 3, "--no-such-option"},
        {"--format AVI " + clip + out, 3, "--format"},
        {"--aspect 16x9 " + clip + out, 3, "--aspect"},
        {"--aspect 0:9 " + clip + out, 3, "--aspect"},
        {"--aspect 2.39 " + clip + out, 3, "--aspect takes two numbers like 16:9 or 2.39:1"},
        {"--aspect 99999999999:9 " + clip + out, 3, "--aspect"},
        {"--tracks x:0 " + clip + out, 3, "--tracks"},
        {"--tracks a:4294967296 " + clip + out, 3, "--tracks"},
        {"--tracks v:0,v:1 " + clip + out, 3, "--tracks takes at most one stream of each kind"},
        {"--tracks v:7 " + clip + out, 3, "--tracks v:7: there is 1 video stream, counted from 0"},
        {"--tracks v:0 " + clip + " " + Quoted(Path("a.mka")), 3, "format 'MKA' holds no video"},
        {"formats --tracks v:0", 3, "--tracks"},
        {"--duration -1 " + clip + out, 3, "--duration takes seconds"},
        {"--duration nan " + clip + out, 3, "--duration takes a number, not 'nan'"},
        {"--progress loud " + clip + out, 3, "--progress"},
        {"--verify maybe " + clip + out, 3, "--verify"},
        {"--h264 X264 " + clip + out, 3, "--h264"},
        {"--no-video --no-audio " + clip + out, 3, "nothing"},
        {clip + " a.avi", 3, ".mkv"},
        {"-" + out, 3, "standard input"},
        {"--format MKV " + clip + " -o -", 3, "standard output"},
        {Quoted(Path("in.mkv")) + " --overwrite " + Quoted(Path("in.mkv")), 3, "is an input"},
        {Quoted(Path("missing.mp4")) + out, 2, "No such file"},
        {Quoted(Path("text.mp4")) + out, 2, "cannot read"},
        {Quoted(Path("empty.mp4")) + out, 2, "cannot read"},
        {Quoted(Path("folder.mkv")) + out, 2, "cannot read"},
        {"--no-video " + Quoted(ClipPath("raw.h264")) + out, 2, "nothing to write"},
        {"--plugin /no/such/plugin.so " + clip + out, 2, "plugin.so"},
        {"--plugin " + Quoted(Path("text.mp4")) + " " + clip + out, 2, "text.mp4"},
        {clip + " " + Quoted(Path("there.mkv")), 4, "--overwrite"},
        {clip + " " + Quoted(Path("folder.mkv")), 4, "no regular file"},
        {"--overwrite " + clip + " " + Quoted(Path("pipe.mkv")), 4, "no regular file"},
        {"--overwrite --format MKV " + clip + " /dev/stdout | cat; exit ${PIPESTATUS[0]}", 4, "no regular file"},
        {clip + " " + Quoted(Path("no/such/folder/a.mkv")), 4, "No such file"},
        {clip + " " + Quoted(Path(std::string(300, 'x') + ".mkv")), 4, "too long"},
    };
    for (const Row& row : rows) {
        const CommandResult result =
            RunCommand("bash -c " + Quoted("{ " + Quoted(QF_QFMUX) + " " + row.m_Arguments + "; } 2>&1"));
        EXPECT_EQ(result.m_ExitCode, row.m_ExitCode) << row.m_Arguments << "\n" << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
        EXPECT_FALSE(fs::exists(Path("a.mkv"))) << row.m_Arguments;
    }
    EXPECT_EQ(ReadFile(Path("there.mkv")).size(), 3U) << "the old file stays";
    ExpectNothingLeft();
}

TEST_F(QfmuxTest, NamesMayHoldAnything) {
    fs::copy_file(ClipPath("raw.aac"), Path("-in put:é.aac"));
    for (const std::string& name :
         {std::string("with blanks .mka"), std::string("ünï 漢字 🎬.mka"), std::string("a'b\"c\\d$e.mka"),
          std::string("new\nline.mka"), std::string(251, 'n') + ".mka"}) {
        const CommandResult result = Qfmux(Quoted(Path("-in put:é.aac")) + " " + Quoted(Path(name)));
        EXPECT_EQ(result.m_ExitCode, 0) << name << ": " << result.m_Output;
        EXPECT_TRUE(fs::exists(Path(name))) << name;
    }
    const CommandResult dash =
        RunCommand("cd " + Quoted(Path("")) + " && " + Quoted(QF_QFMUX) + " -- '-in put:é.aac' -out.mka 2>&1");
    EXPECT_EQ(dash.m_ExitCode, 0) << dash.m_Output;
    EXPECT_TRUE(fs::exists(Path("-out.mka")));
}

// ---- nothing is ever lost

TEST_F(QfmuxTest, AnOldFileGivesWayOnlyToAWholeOne) {
    std::ofstream(Path("a.mkv")) << "old";
    EXPECT_EQ(Qfmux("--overwrite " + Quoted(ClipPath("vp9-opus.webm")) + " " + Quoted(Path("a.mkv"))).m_ExitCode, 2);
    EXPECT_EQ(ReadFile(Path("a.mkv")).size(), 3U);
    EXPECT_EQ(Qfmux("--overwrite " + Quoted(ClipPath("h264-aac.mp4")) + " " + Quoted(Path("a.mkv"))).m_ExitCode, 0);
    EXPECT_GT(ReadFile(Path("a.mkv")).size(), 10000U);
    ExpectNothingLeft();
}

// A file that readers do not open or show otherwise is no film: the plug-in writes it when forced, but qfmux removes
// it.
TEST_F(QfmuxTest, AFileThatDoesNotPlayIsRemoved) {
    const std::string inputs =
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x90:rate=25:duration=1 -f lavfi -i "
        "sine=duration=1 ";
    for (const std::string codec : {"-an -c:v wmv2 a.avi", "-an -c:v libtheora a.ogg", "-vn -c:a alac a.m4a",
                                    "-vn -c:a eac3 a.eac3", "-vn -c:a pcm_f32le a.wav", "-vn -c:a flac a.flac"}) {
        SCOPED_TRACE(codec);
        const std::string source = Path(codec.substr(codec.rfind(' ') + 1));
        ASSERT_EQ(RunCommand(inputs + codec.substr(0, codec.rfind(' ') + 1) + Quoted(source)).m_ExitCode, 0);
        for (const char* mode : {"full", "decode"}) {
            const CommandResult result =
                Qfmux("--quiet --force-codec --verify " + std::string(mode) + " " + source + " " + Path("a.mkv"));
            EXPECT_EQ(result.m_ExitCode, 5) << result.m_Output;
            EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
            EXPECT_FALSE(fs::exists(Path("a.mkv")));
        }
    }
}

TEST_F(QfmuxTest, NoticesAFrameThatIsNotAsItWasSent) {
    const std::string files =
        "--plugin " + Quoted(QF_SPOILER) + " " + Quoted(ClipPath("h264-aac.mp4")) + " " + Quoted(Path("a.mkv"));
    const CommandResult result = Qfmux(files);
    EXPECT_EQ(result.m_ExitCode, 5) << result.m_Output;
    EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
    EXPECT_FALSE(fs::exists(Path("a.mkv")));
    EXPECT_EQ(Qfmux("--verify none " + files).m_ExitCode, 0) << "it was not asked to look";
}

TEST_F(QfmuxTest, AFullDiskIsOneLineAndLeavesNothing) {
    const std::string folder = Path("small");
    fs::create_directory(folder);
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k"), 0) << "only root may mount";
    const CommandResult early = Qfmux(Quoted(ClipPath("h264-aac.mp4")) + " " + Quoted(folder + "/a.mkv"));
    const CommandResult late = Qfmux("--quiet " + Quoted(ClipPath("raw.h264")) + " " + Quoted(folder + "/a.mkv"));
    const bool isEmpty = fs::is_empty(folder);
    umount(folder.c_str());
    EXPECT_EQ(early.m_ExitCode, 4) << early.m_Output;
    EXPECT_NE(early.m_Output.find("has room for"), std::string::npos) << early.m_Output;
    EXPECT_EQ(Lines(early.m_Output), 1);
    EXPECT_EQ(late.m_ExitCode, 4) << "an input that does not say how long it is";
    EXPECT_NE(late.m_Output.find("No space left"), std::string::npos) << late.m_Output;
    EXPECT_NE(late.m_Output.find("was removed"), std::string::npos) << late.m_Output;
    EXPECT_EQ(Lines(late.m_Output), 1);
    EXPECT_TRUE(isEmpty);
}

TEST_F(QfmuxTest, ReportsAFileAtItsSizeLimit) {
    const CommandResult result =
        RunCommand("bash -c " + Quoted("ulimit -f 32; " + Quoted(QF_QFMUX) + " --quiet " +
                                       Quoted(ClipPath("raw.h264")) + " " + Quoted(Path("a.mkv")) + " 2>&1"));
    EXPECT_EQ(result.m_ExitCode, 4) << result.m_Output;
    EXPECT_NE(result.m_Output.find("too large"), std::string::npos) << result.m_Output;
    ExpectNothingLeft();
}

// A file with the output's name is whole. A file that a signal cut off lies beside it until a run completes.
TEST_F(QfmuxTest, ASignalKeepsTheFileUnderAnotherName) {
    const std::string output = Path("a.mkv");
    const std::string partial = Path("a.partial.mkv");
    int exitCode = 0;
    // The signal comes with the second word of progress, long before the ten hours are through.
    const auto stop = [&](const std::string& signal, const std::string& options) {
        const std::string log = Quoted(Path("log"));
        const CommandResult result = RunCommand(
            ": > " + log + "; " + Quoted(QF_QFMUX) + " --progress json --json " + options + " " +
            Quoted(ClipPath("tenhours.mp4")) + " " + Quoted(output) + " > " + log + " 2> " + Quoted(Path("words")) +
            " & until [ $(wc -l < " + log + ") -ge 2 ]; do sleep 0.02; done; kill -" + signal +
            " $!; wait $!; code=$?; " + "grep -v phase " + log + "; exit $code");
        EXPECT_EQ(result.m_ExitCode, exitCode);
        const json object = json::parse(result.m_Output);
        EXPECT_EQ(object["exitCode"], exitCode);
        EXPECT_EQ(object["partial"], partial);
        const std::string words = WordsOf(Path("words").c_str());
        EXPECT_EQ(words, "qfmux: " + object["error"].get<std::string>() + "\n");
        EXPECT_EQ(words.find("qfmux: ended by SIG" + signal + ": the first "), 0U) << words;
        EXPECT_EQ(Ffmpeg(partial, "-c copy -f null -"), "") << "a sound file, only shorter";
        EXPECT_LT(fs::file_size(partial), fs::file_size(ClipPath("tenhours.mp4")));
        ExpectNothingLeft();
    };
    exitCode = 130;
    stop("INT", "");
    EXPECT_FALSE(fs::exists(output));
    exitCode = 129;
    std::ofstream(output) << "old";
    stop("HUP", "--overwrite");
    EXPECT_EQ(ReadFile(output).size(), 3U);
    exitCode = 143;
    std::ofstream(partial) << "older";
    stop("TERM", "-y");
    EXPECT_EQ(ReadFile(output).size(), 3U);

    EXPECT_EQ(Qfmux("-y " + Quoted(ClipPath("raw.aac")) + " -o " + Quoted(output)).m_ExitCode, 0);
    EXPECT_FALSE(fs::exists(partial));
    // An input of that name stays.
    fs::copy_file(output, partial);
    EXPECT_EQ(Qfmux("-y " + Quoted(partial) + " " + Quoted(output)).m_ExitCode, 0);
    EXPECT_TRUE(fs::exists(partial));
}

TEST_F(QfmuxTest, NohupHoldsHangUpsOff) {
    const std::string log = Quoted(Path("log"));
    const CommandResult result =
        RunCommand(": > " + log + "; nohup " + Quoted(QF_QFMUX) + " --progress json --verify none " +
                   Quoted(ClipPath("tenhours.mp4")) + " " + Quoted(Path("a.mkv")) + " > " + log +
                   " 2>/dev/null & until [ $(wc -l < " + log + ") -ge 2 ]; do sleep 0.02; done; kill -HUP $!; wait $!");
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_TRUE(fs::exists(Path("a.mkv")));
}

TEST_F(QfmuxTest, AReplacedFileKeepsItsModeAndALinkItsPlace) {
    const std::string clip = Quoted(ClipPath("raw.aac")) + " ";
    fs::create_directory(Path("other"));
    std::ofstream(Path("other/film.mka")) << "old";
    fs::permissions(Path("other/film.mka"), static_cast<fs::perms>(0640));
    fs::create_symlink("other/film.mka", Path("link.mka"));
    EXPECT_EQ(Qfmux(clip + Quoted(Path("link.mka"))).m_ExitCode, 4);
    EXPECT_EQ(ReadFile(Path("other/film.mka")).size(), 3U);
    EXPECT_EQ(Qfmux("-y " + clip + Quoted(Path("link.mka"))).m_ExitCode, 0);
    EXPECT_TRUE(fs::is_symlink(Path("link.mka")));
    EXPECT_GT(ReadFile(Path("other/film.mka")).size(), 3U);
    EXPECT_EQ(fs::status(Path("other/film.mka")).permissions(), static_cast<fs::perms>(0640));
}

TEST_F(QfmuxTest, RecordsReplaceNothingUnasked) {
    const std::string files = " " + Quoted(ClipPath("raw.aac")) + " " + Quoted(Path("a.mka"));
    std::ofstream(Path("calls.payload")) << "mine";
    const CommandResult refused = Qfmux("--record " + Quoted(Path("calls")) + files);
    EXPECT_EQ(refused.m_ExitCode, 4);
    EXPECT_EQ(refused.m_Output,
              "qfmux: cannot write '" + Path("calls.payload") + "': it exists; --overwrite replaces it\n");
    EXPECT_EQ(ReadFile(Path("calls.payload")).size(), 4U);
    EXPECT_FALSE(fs::exists(Path("calls")));
    EXPECT_EQ(Qfmux("-y --record " + Quoted(Path("calls")) + files).m_ExitCode, 0);
    EXPECT_GT(ReadFile(Path("calls.payload")).size(), 4U);
}

TEST_F(QfmuxTest, MemoryDoesNotGrowWithLength) {
    // From a container whose index libavformat does not hold in memory.
    for (const char* name : {"hour", "tenhours"}) {
        ASSERT_EQ(Qfmux("--verify none " + Quoted(ClipPath(name + std::string(".mp4"))) + " " +
                        Quoted(Path(name + std::string(".mkv"))))
                      .m_ExitCode,
                  0);
    }
    const auto peak = [&](const std::string& name) {
        return PeakMemory(Quoted(QF_QFMUX) + " --overwrite " + Quoted(Path(name)) + " " + Quoted(Path("out-" + name)));
    };
    const long hour = std::max(peak("hour.mkv"), peak("hour.mkv"));
    const long tenHours = peak("tenhours.mkv");
    // The plug-in keeps cues and an index of the clusters: 300 octets for a second of media. The cues are read again by
    // those who compare and play the file.
    EXPECT_LT(tenHours - hour, 9 * 3600 * 500L) << hour << " and " << tenHours;
}

} // namespace
