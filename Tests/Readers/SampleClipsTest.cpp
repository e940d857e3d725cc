// SPDX-License-Identifier: MIT
// The sample clips, muxed by qfmux, as public readers see them: every picture and every sound as in the source.
#include <gtest/gtest.h>

#include <string>

#include "Command.h"
#include "TempDirectory.h"

namespace {

CommandResult RunCommandWithErrors(const std::string& line) { return RunCommand(line + " 2>&1"); }

// The hashes of what ffmpeg decodes, one line for each stream of that kind. Any complaint of ffmpeg's stands among
// them.
std::string DecodedHashes(const std::string& file, const std::string& kind) {
    return RunCommandWithErrors("ffmpeg -nostdin -v warning -i " + Quoted(file) + " -map 0:" + kind +
                                " -f streamhash -")
        .m_Output;
}

// The key flag of each picture, in file order.
std::string KeyFlags(const std::string& file) {
    return RunCommandWithErrors("ffprobe -v warning -select_streams v -show_entries packet=flags -of csv=p=0 " +
                                Quoted(file))
        .m_Output;
}

struct Clip {
    const char* m_Name;
    const char* m_Source;
    const char* m_Output;
    bool m_HasVideo;
};

class SampleClips : public testing::TestWithParam<Clip> {
protected:
    void SetUp() override {
        const CommandResult outcome =
            RunCommandWithErrors(Quoted(QF_QFMUX) + " " + Quoted(m_Source) + " " + Quoted(m_Output));
        ASSERT_EQ(outcome.m_ExitCode, 0) << outcome.m_Output;
    }

    TempDirectory m_Directory;
    std::string m_Source = std::string(QF_SAMPLES "/") + GetParam().m_Source;
    std::string m_Output = (m_Directory / GetParam().m_Output).string();
};

TEST_P(SampleClips, DecodeToTheSourcesPicturesAndSound) {
    if (GetParam().m_HasVideo) {
        EXPECT_EQ(DecodedHashes(m_Output, "v"), DecodedHashes(m_Source, "v"));
        EXPECT_EQ(KeyFlags(m_Output), KeyFlags(m_Source));
    }
    // An edit list tells readers of the MP4 to skip the encoder's first 1,024 samples; Matroska's header has no such
    // word here. What is compared is the octets of the sound.
    const std::string hash = " -map 0:a -c copy -f streamhash -";
    const CommandResult source = RunCommandWithErrors("ffmpeg -nostdin -v warning -i " + Quoted(m_Source) + hash);
    const CommandResult output = RunCommandWithErrors("ffmpeg -nostdin -v warning -i " + Quoted(m_Output) + hash);
    EXPECT_EQ(output.m_Output, source.m_Output);
    EXPECT_NE(output.m_Output.find("SHA256="), std::string::npos);
}

TEST_P(SampleClips, DecodeWithoutAComplaint) {
    const CommandResult outcome =
        RunCommandWithErrors("ffmpeg -nostdin -v warning -i " + Quoted(m_Output) + " -f null -");
    EXPECT_EQ(outcome.m_ExitCode, 0);
    EXPECT_EQ(outcome.m_Output, "");
}

class SampleClipsWithVideo : public SampleClips {};

TEST_P(SampleClipsWithVideo, SeekToTheMiddle) {
    const std::string frame = " -map 0:v -frames:v 1 -f framehash -hash md5 - | tail -n 1 | sed 's/.*, *//'";
    const CommandResult source =
        RunCommandWithErrors("ffmpeg -nostdin -v warning -ss 3 -i " + Quoted(m_Source) + frame);
    const CommandResult output =
        RunCommandWithErrors("ffmpeg -nostdin -v warning -ss 3 -i " + Quoted(m_Output) + frame);
    EXPECT_EQ(output.m_Output, source.m_Output);
    EXPECT_EQ(output.m_Output.size(), 33U) << output.m_Output;
}

TEST_P(SampleClips, MkvmergeRemuxesThem) {
    const std::string remux = (m_Directory / "remux.mkv").string();
    const CommandResult outcome = RunCommandWithErrors("mkvmerge --quiet -o " + Quoted(remux) + " " + Quoted(m_Output));
    EXPECT_EQ(outcome.m_ExitCode, 0) << outcome.m_Output;
    const std::string kind = GetParam().m_HasVideo ? "v" : "a";
    EXPECT_EQ(DecodedHashes(remux, kind), DecodedHashes(m_Output, kind));
}

std::string NameOf(const testing::TestParamInfo<Clip>& info) { return info.param.m_Name; }

constexpr Clip kMatroska = {"Matroska", "h264-aac.mp4", "demo.mkv", true};
constexpr Clip kMatroskaAudio = {"MatroskaAudio", "h264-aac.mp4", "demo.mka", false};
constexpr Clip kWebm = {"Webm", "vp8-vorbis.webm", "demo.webm", true};

INSTANTIATE_TEST_SUITE_P(Formats, SampleClips, testing::Values(kMatroska, kMatroskaAudio, kWebm), NameOf);
INSTANTIATE_TEST_SUITE_P(Formats, SampleClipsWithVideo, testing::Values(kMatroska, kWebm), NameOf);

} // namespace
