// SPDX-License-Identifier: MIT
// The sample clips, muxed by qfmux, as public readers see them: every picture and every sound as in the source.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AvformatFile.h"
#include "Command.h"
#include "FfmpegRun.h"
#include "TempDirectory.h"

namespace {

constexpr const char* kTrackHash = "-f streamhash -hash murmur3";

std::vector<bool> KeyFlags(const std::string& path) {
    std::vector<bool> flags;
    AvformatFile file(path);
    while (const auto packet = file.Next()) {
        if (packet->m_IsVideo) flags.push_back(packet->m_IsKey);
    }
    return flags;
}

struct Clip {
    const char* m_Name;
    const char* m_Source;
    const char* m_Output;
    bool m_HasVideo;
};

class SampleClips : public testing::TestWithParam<Clip> {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    // ffmpeg's answer in this file.
    std::string Answer(const std::string& name) const {
        const std::vector<unsigned char> octets = ReadFile(Path(name));
        EXPECT_FALSE(octets.empty()) << name;
        return {octets.begin(), octets.end()};
    }

    TempDirectory m_Directory;
};

TEST_P(SampleClips, ReadAsTheirSources) {
    const std::string source = std::string(QF_SAMPLES "/") + GetParam().m_Source;
    const std::string output = Path(GetParam().m_Output);
    const std::string remux = Path("remux.mkv");
    for (const std::string& line : {Quoted(QF_QFMUX) + " " + Quoted(source) + " " + Quoted(output),
                                    "mkvmerge --quiet -o " + Quoted(remux) + " " + Quoted(output)}) {
        const CommandResult outcome = RunCommand(line + " 2>&1");
        ASSERT_EQ(outcome.m_ExitCode, 0) << outcome.m_Output;
    }

    const bool hasVideo = GetParam().m_HasVideo;
    const std::string kind = hasVideo ? ":v" : ":a";
    FfmpegRun decode;
    decode.Open(output);
    decode.Ask("", "-f null", "-");
    decode.Ask(kind, kTrackHash, Path("output"));
    FfmpegRun other;
    other.Open(remux);
    other.Ask(kind, kTrackHash, Path("remux"));
    for (const bool isSource : {true, false}) {
        const std::string who = isSource ? "source's " : "output's ";
        other.Open(isSource ? source : output);
        // An edit list tells readers of the MP4 to skip the encoder's first 1,024 samples; Matroska's header has no
        // such word here. What is compared is the octets of the sound.
        other.Ask(":a", std::string("-c copy ") + kTrackHash, Path(who + "sound"));
        if (!hasVideo) continue;
        if (isSource) other.Ask(":v", kTrackHash, Path("source"));
        other.Open(isSource ? source : output, "-ss 3");
        other.Ask(":v", "-frames:v 1 -f streamhash -hash md5", Path(who + "middle"));
    }
    EXPECT_EQ(decode.Run("warning"), "");
    EXPECT_EQ(other.Run("warning"), "");

    EXPECT_EQ(Answer("output's sound"), Answer("source's sound"));
    EXPECT_EQ(Answer("remux"), Answer("output"));
    if (!hasVideo) return;
    EXPECT_EQ(Answer("output"), Answer("source"));
    EXPECT_EQ(Answer("output's middle"), Answer("source's middle"));
    EXPECT_EQ(KeyFlags(output), KeyFlags(source));
}

std::string NameOf(const testing::TestParamInfo<Clip>& info) { return info.param.m_Name; }

constexpr Clip kMatroska = {"Matroska", "h264-aac.mp4", "demo.mkv", true};
constexpr Clip kMatroskaAudio = {"MatroskaAudio", "h264-aac.mp4", "demo.mka", false};
constexpr Clip kWebm = {"Webm", "vp8-vorbis.webm", "demo.webm", true};

INSTANTIATE_TEST_SUITE_P(Formats, SampleClips, testing::Values(kMatroska, kMatroskaAudio, kWebm), NameOf);

} // namespace
