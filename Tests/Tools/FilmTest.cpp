// SPDX-License-Identifier: MIT
// qfmux keeps the user's film: the file plays and seeks whatever the source.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "EbmlWalker.h"
#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;

class FilmTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    // Six seconds, drawn and encoded with ffmpeg.
    void Make(const std::string& name, const std::string& options) {
        ASSERT_EQ(RunCommand("ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=160x90:rate=25:duration=6 -f lavfi "
                             "-i sine=duration=6 -map 0:v -c:v libx264 -preset ultrafast " +
                             options + " " + Quoted(Path(name)) + " 2>&1")
                      .m_Output,
                  "");
    }

    TempDirectory m_Directory;
};

std::string Ffmpeg(const std::string& arguments) {
    return RunCommand("ffmpeg -nostdin -v quiet -y " + arguments).m_Output;
}

// Of the pictures that come out of a decoder, begun at a time in seconds, the hashes.
std::vector<std::string> Pictures(const std::string& file, const std::string& start = "") {
    std::vector<std::string> hashes;
    std::istringstream lines(
        Ffmpeg((start.empty() ? "" : "-ss " + start) + " -i " + Quoted(file) + " -map 0:v:0 -f framemd5 -"));
    for (std::string line; std::getline(lines, line);) {
        if (line.substr(0, 1) != "#") hashes.push_back(line.substr(line.rfind(' ') + 1));
    }
    return hashes;
}

// A transport stream as if its recording had begun later: its tables, then what lies behind a share of it.
Octets FromTheMiddle(const Octets& stream, double share) {
    constexpr std::size_t kPacket = 188;
    const auto begin = static_cast<std::size_t>(static_cast<double>(stream.size()) * share) / kPacket * kPacket;
    Octets cut(stream.begin(), stream.begin() + 3 * kPacket);
    cut.insert(cut.end(), stream.begin() + static_cast<std::ptrdiff_t>(begin), stream.end());
    return cut;
}

// The NAL units of H.264 in start-code form, one after the other.
std::vector<Octets> UnitsOfStream(const Octets& stream) {
    std::vector<Octets> units;
    Octets unit;
    bool isInside = false;
    for (std::size_t i = 0; i < stream.size(); ++i) {
        const bool isCode = i + 2 < stream.size() && stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1;
        if (!isCode) {
            unit.push_back(stream[i]);
            continue;
        }
        while (!unit.empty() && unit.back() == 0) unit.pop_back();
        if (isInside) units.push_back(unit);
        unit.clear();
        isInside = true;
        i += 2;
    }
    units.push_back(unit);
    return units;
}

std::vector<Octets> UnitsOfFile(const std::string& path) {
    std::vector<Octets> units;
    const Ebml::File file(ReadFile(path));
    for (const Ebml::Block& block : file.BlocksOf(1)) {
        for (std::size_t at = 0; at + 4 <= block.m_Frame.size();) {
            std::size_t size = 0;
            for (int i = 0; i < 4; ++i) size = size * 256 + block.m_Frame[at++];
            units.emplace_back(&block.m_Frame[at], &block.m_Frame[at] + size);
            at += size;
        }
    }
    return units;
}

constexpr const char* kOpen = "-g 25 -bf 2 -x264-params open-gop=1:b-adapt=0 ";

// Key frames of open groups of pictures are known by their recovery points alone.
TEST_F(FilmTest, OpenGroupsOfPicturesPlayAndSeek) {
    Make("open.ts", std::string(kOpen) + "-map 1:a -c:a aac");
    ASSERT_EQ(Qfmux("--quiet " + Path("open.ts") + " " + Path("out.mkv")).m_ExitCode, 0);
    const std::vector<std::string> all = Pictures(Path("out.mkv"));
    EXPECT_EQ(all, Pictures(Path("open.ts")));
    EXPECT_EQ(all.size(), 150U);
    const std::vector<std::string> behind = Pictures(Path("out.mkv"), "4");
    ASSERT_GE(behind.size(), 49U);
    EXPECT_TRUE(std::equal(behind.rbegin(), behind.rend(), all.rbegin()));
}

TEST_F(FilmTest, ARecordingFromTheMiddleBeginsWithAPictureThatDecodes) {
    Make("open.ts", std::string(kOpen) + "-map 1:a -c:a aac");
    for (const double share : {0.3, 0.45, 0.7}) {
        SCOPED_TRACE(share);
        WriteFile(Path("cut.ts"), FromTheMiddle(ReadFile(Path("open.ts")), share));
        const CommandResult result = Qfmux("--overwrite " + Path("cut.ts") + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find(" left out before the first picture that can be decoded"), std::string::npos)
            << result.m_Output;
        EXPECT_NE(result.m_Output.find("of sound"), std::string::npos) << result.m_Output;
        const std::vector<std::string> pictures = Pictures(Path("out.mkv"));
        EXPECT_GE(pictures.size(), 25U);
        EXPECT_EQ(pictures.size(), Ebml::File(ReadFile(Path("out.mkv"))).BlocksOf(1).size());
        EXPECT_EQ(pictures, Pictures(Path("cut.ts")));
    }
}

TEST_F(FilmTest, EveryUnitOfH264IsKept) {
    Make("raw.h264", std::string(kOpen) + "-aud 1");
    Octets stream = ReadFile(Path("raw.h264"));
    // An end of sequence behind the first picture: one octet, whose length is a start code.
    const Octets end = {0, 0, 1, 0x0A};
    const unsigned char delimiter[] = {0, 0, 0, 1, 9};
    const auto second = std::search(stream.begin() + 5, stream.end(), std::begin(delimiter), std::end(delimiter));
    ASSERT_NE(second, stream.end());
    stream.insert(second, end.begin(), end.end());
    WriteFile(Path("raw.h264"), stream);
    ASSERT_LE(Qfmux("--quiet " + Path("raw.h264") + " " + Path("out.mkv")).m_ExitCode, 1);
    const std::vector<Octets> units = UnitsOfStream(stream);
    EXPECT_GT(units.size(), 300U);
    EXPECT_EQ(UnitsOfFile(Path("out.mkv")), units);
    EXPECT_EQ(Pictures(Path("out.mkv")), Pictures(Path("raw.h264")));
}

// The file's set-up data have one set of each kind. The others come with the pictures from which players may begin.
TEST_F(FilmTest, ChangingParameterSetsAreInTheFramesThatNeedThem) {
    Make("one.h264", "-g 25");
    Make("two.h264", "-g 25 -x264-params sps-id=1:cabac=1");
    Octets both = ReadFile(Path("one.h264"));
    const Octets two = ReadFile(Path("two.h264"));
    both.insert(both.end(), two.begin(), two.end());
    WriteFile(Path("both.h264"), both);
    // In MP4 the sets of the first part are in front of all frames, those of the second in one frame alone.
    Ffmpeg("-i " + Path("both.h264") + " -c copy " + Path("both.mp4"));
    for (const char* source : {"both.h264", "both.mp4"}) {
        SCOPED_TRACE(source);
        ASSERT_LE(Qfmux("--quiet --overwrite " + Path(source) + " " + Path("out.mkv")).m_ExitCode, 1);
        const std::vector<std::string> all = Pictures(Path("out.mkv"));
        EXPECT_EQ(all.size(), 300U);
        EXPECT_EQ(all, Pictures(Path("both.h264")));
        const std::vector<std::string> behind = Pictures(Path("out.mkv"), "9");
        ASSERT_EQ(behind.size(), 75U);
        EXPECT_TRUE(std::equal(behind.rbegin(), behind.rend(), all.rbegin()));
    }
}

TEST_F(FilmTest, AStreamWithoutABeginningIsRefused) {
    Make("whole.mp4", "-g 250");
    Ffmpeg("-i " + Path("whole.mp4") + " -c copy -bsf:v 'filter_units=remove_types=5|6' " + Path("none.mp4"));
    const CommandResult result = Qfmux(Path("none.mp4") + " " + Path("out.mkv"));
    EXPECT_EQ(result.m_ExitCode, 2) << result.m_Output;
    EXPECT_NE(result.m_Output.find("decoding cannot begin at any of its pictures"), std::string::npos)
        << result.m_Output;
    EXPECT_FALSE(fs::exists(Path("out.mkv")));
}

TEST_F(FilmTest, AnEditListInsideAGroupOfPicturesIsNoFault) {
    Make("whole.mp4", "-g 50 -bf 2 -map 1:a -c:a aac");
    Ffmpeg("-ss 1.4 -i " + Path("whole.mp4") + " -c copy " + Path("edit.mp4"));
    for (const char* mode : {"full", "decode"}) {
        const CommandResult result =
            Qfmux("--overwrite --verify " + std::string(mode) + " " + Path("edit.mp4") + " " + Path("out.mkv"));
        EXPECT_LE(result.m_ExitCode, 1) << result.m_Output;
    }
}

TEST_F(FilmTest, WarnsOfSourcesThatEndTooEarly) {
    Make("whole.mkv", "-g 25 -bf 2 -map 1:a -c:a aac");
    for (const char* name : {"cut.mkv", "cut.mp4", "cut.flv"}) {
        SCOPED_TRACE(name);
        Ffmpeg("-i " + Path("whole.mkv") + " -c copy -movflags faststart " + Path(name));
        EXPECT_EQ(Qfmux("--quiet --overwrite " + Path(name) + " " + Path("out.mkv")).m_ExitCode, 0);
        fs::resize_file(Path(name), fs::file_size(Path(name)) * 6 / 10);
        const CommandResult result = Qfmux("--overwrite " + Path(name) + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find(Path(name) + " ends after 3."), std::string::npos) << result.m_Output;
        EXPECT_NE(result.m_Output.find(" of 6.0"), std::string::npos) << result.m_Output;
        EXPECT_GT(Pictures(Path("out.mkv")).size(), 70U);
    }
}

// A track's DURATION tag is its end when libavformat wrote it, and its length when mkvmerge did. A Flash file has the
// length of the whole file alone.
TEST_F(FilmTest, SoundThatBeginsLateIsNotShort) {
    Make("whole.mp4", "-g 25 -bf 2 -map 1:a -c:a aac");
    Ffmpeg("-i " + Path("whole.mp4") + " -itsoffset 5 -i " + Path("whole.mp4") + " -map 0:v -map 1:a -c copy " +
           Path("late.mkv"));
    RunCommand("mkvmerge -q -o " + Path("merged.mkv") + " " + Path("late.mkv"));
    Ffmpeg("-i " + Path("late.mkv") + " -c copy " + Path("late.flv"));
    for (const char* name : {"late.mkv", "merged.mkv", "late.flv"}) {
        const CommandResult result = Qfmux("--overwrite " + Path(name) + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
    }
}

// A disc with a scratch: libavformat finds no fault with the packets.
TEST_F(FilmTest, PicturesThatDecodersConcealAreReported) {
    Octets octets = ReadFile(ClipPath("mpeg2-ac3.mpg"));
    std::fill_n(octets.begin() + 20000, 1500, Octets::value_type{0});
    WriteFile(Path("scratch.mpg"), octets);
    for (const char* verify : {"full", "decode"}) {
        const CommandResult result =
            Qfmux(std::string("-y --verify ") + verify + " " + Path("scratch.mpg") + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find("has damaged pictures that decoders conceal"), std::string::npos)
            << result.m_Output;
    }
}

// Six packets of a broadcast are lost.
TEST_F(FilmTest, DamagedPicturesAreCountedAndNoFaultOfTheFile) {
    Make("whole.ts", "-g 25 -bf 2 -map 1:a -c:a aac");
    Octets stream = ReadFile(Path("whole.ts"));
    const auto middle = stream.begin() + static_cast<std::ptrdiff_t>(stream.size() / 376 * 188);
    stream.erase(middle, middle + std::ptrdiff_t{6} * 188);
    WriteFile(Path("damaged.ts"), stream);
    for (const char* mode : {"full", "decode"}) {
        const CommandResult result =
            Qfmux("--overwrite --verify " + std::string(mode) + " " + Path("damaged.ts") + " " + Path("out.mkv"));
        EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find(" damaged packet"), std::string::npos) << result.m_Output;
    }
}

} // namespace
