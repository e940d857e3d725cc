// SPDX-License-Identifier: MIT
// qfmux --encode from the outside: sources of many kinds into every format, compared with what ffmpeg makes of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "EbmlWalker.h"
#include "Octets.h"
#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kFfmpeg = "ffmpeg -nostdin -v error -y ";

class EncodeTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    // Runs qfmux and returns its report; the exit code is part of it.
    json Report(const std::string& arguments) const {
        const CommandResult result = QfmuxResult("--json " + arguments);
        json report = json::parse(result.m_Output, nullptr, false);
        EXPECT_TRUE(report.is_object()) << Qfmux("-y " + arguments).m_Output;
        return report.is_object() ? report : json::object();
    }

    TempDirectory m_Directory;
};

// What a player shows and plays.
struct Media {
    std::vector<double> m_Times;       // of the pictures, s
    std::vector<int> m_Lumas;          // their means
    std::vector<std::int16_t> m_Sound; // at 48 kHz, from the file's first moment on

    // How long the flash appears after the beep is heard, in seconds; nothing if one of them is missing.
    std::optional<double> Distance() const {
        const auto flash = std::find_if(m_Lumas.begin(), m_Lumas.end(), [](int luma) { return luma > 200; });
        const auto beep =
            std::find_if(m_Sound.begin(), m_Sound.end(), [](int value) { return std::abs(value) > 5000; });
        if (flash == m_Lumas.end() || beep == m_Sound.end()) return std::nullopt;
        return m_Times[static_cast<std::size_t>(flash - m_Lumas.begin())] -
               static_cast<double>(beep - m_Sound.begin()) / 48000;
    }
};

std::vector<std::int16_t> Samples(const std::string& path) {
    const auto octets = ReadFile(path);
    std::vector<std::int16_t> samples(octets.size() / 2);
    std::memcpy(samples.data(), octets.data(), samples.size() * 2);
    return samples;
}

// ffmpeg's outputs for Played. The frame checksum (Adler-32 without its one) of a single octet ends in that octet.
std::string OutputsToPlay(int input, bool hasVideo, bool hasAudio, const std::string& folder) {
    const std::string map = " -map " + std::to_string(input);
    std::string line;
    if (hasVideo) {
        line += map +
                ":v:0 -fps_mode passthrough -enc_time_base 1/90000 -vf scale=1:1:flags=area,format=gray -f framecrc " +
                folder + "pictures";
    }
    if (hasAudio) {
        line += map + ":a:0 -af aresample=48000:async=1:first_pts=0 -ac 1 -f s16le " + folder + "sound";
    }
    return line;
}

Media Played(bool hasVideo, bool hasAudio, const std::string& folder) {
    Media media;
    if (hasVideo) {
        const auto octets = ReadFile(folder + "pictures");
        std::istringstream lines(std::string(octets.begin(), octets.end()));
        for (std::string text; std::getline(lines, text);) {
            if (text[0] == '#') continue;
            std::replace(text.begin(), text.end(), ',', ' ');
            std::istringstream words(text);
            long stream = 0;
            long decoded = 0;
            long shown = 0;
            words >> stream >> decoded >> shown;
            media.m_Times.push_back(static_cast<double>(shown) / 90000);
            media.m_Lumas.push_back(static_cast<int>(std::stoul(text.substr(text.rfind('x') + 1), nullptr, 16) & 0xFF));
        }
    }
    if (hasAudio) media.m_Sound = Samples(folder + "sound");
    return media;
}

// Decodes a file with ffmpeg.
Media Play(const std::string& file, bool hasVideo, bool hasAudio, const std::string& folder) {
    const std::string line = kFfmpeg + (" -i " + Quoted(file)) + OutputsToPlay(0, hasVideo, hasAudio, folder) + " 2>&1";
    EXPECT_EQ(RunCommand(line).m_ExitCode, 0) << line;
    return Played(hasVideo, hasAudio, folder);
}

// ---- sources of every kind

enum class Same {
    No,     // the encoder gets key frames or times that ffmpeg's command line does not give it
    Octets, // of the stream that ffmpeg makes with the same encoder, options and filter
    Pictures
};

// Without g, WebM's key frames are where its clusters begin.
constexpr const char* kOwnKeys = "--encode auto --video-options cpu-used=5,threads=1";
constexpr const char* kEvenKeys = "--encode all --video-options cpu-used=5,threads=1,g=10";

struct Conversion {
    const char* m_Source;
    const char* m_Output;
    const char* m_Options;
    const char* m_VideoID; // null for no such track
    unsigned m_Width;
    unsigned m_Height;
    const char* m_AudioID;
    float m_Rate;
    unsigned m_Channels;
    int m_ExitCode;
    Same m_Same;
};

class EveryConversion : public EncodeTest, public testing::WithParamInterface<Conversion> {
protected:
    // What ffmpeg makes of the source with a track's encoder, options and filter. A file of Matroska asks encoders to
    // leave the set-up data out of the frames, a file of AVI does not.
    static std::string Options(const json& track, const std::string& output) {
        const std::string kind = track["kind"] == "video" ? "v" : "a";
        const json& encoding = track["encoding"];
        std::string line = " -map 0:" + kind + ":0 -filter:" + kind + " " + Quoted(encoding["filter"]) + " -c:" + kind +
                           " " + encoding["encoder"].get<std::string>();
        for (const auto& [name, value] : encoding["options"].items()) {
            line += " -" + name + ":" + kind + " " + Quoted(value);
        }
        return line + " " + Quoted(output);
    }

    static void ExpectKeyFramesOpenClusters(const Ebml::File& file) {
        std::set<std::size_t> clusters;
        for (const Ebml::Block& block : file.BlocksOf(1)) {
            const bool isFirst = clusters.insert(block.m_Cluster).second;
            EXPECT_TRUE(!isFirst || (block.m_Flags & 0x80) != 0) << block.Time();
        }
        EXPECT_GE(clusters.size(), 2U);
    }

    std::string Theirs(const json& track) const {
        const bool isVideo = track["kind"] == "video";
        const bool hasPlace = !isVideo || track["code"] == "H264";
        return Path(std::string("theirs-") + (isVideo ? "v" : "a") + (hasPlace ? ".mkv" : ".avi"));
    }
};

TEST_P(EveryConversion, IsConvertedAsByFfmpeg) {
    const Conversion& clip = GetParam();
    const std::string source = ClipPath(clip.m_Source);
    const std::string output = Path(clip.m_Output);
    const std::string arguments = clip.m_Options + (" " + Quoted(source)) + " " + Quoted(output);
    const json report = Report(arguments);
    ASSERT_EQ(report.value("exitCode", -1), clip.m_ExitCode) << report.dump(1);
    EXPECT_NE(report["verified"], "none");

    const Ebml::File file(ReadFile(output));
    EXPECT_EQ(Ebml::Describe(Ebml::Check(file, Ebml::Times::Lagging)), "");
    std::string entry = "Segment/Tracks/TrackEntry[0]/";
    if (clip.m_VideoID != nullptr) {
        EXPECT_EQ(file.Text(entry + "CodecID"), clip.m_VideoID);
        EXPECT_EQ(file.Unsigned(entry + "Video/PixelWidth"), clip.m_Width);
        EXPECT_EQ(file.Unsigned(entry + "Video/PixelHeight"), clip.m_Height);
        entry = "Segment/Tracks/TrackEntry[1]/";
    }
    if (clip.m_AudioID != nullptr) {
        EXPECT_EQ(file.Text(entry + "CodecID"), clip.m_AudioID);
        EXPECT_EQ(file.Float(entry + "Audio/SamplingFrequency"), clip.m_Rate);
        EXPECT_EQ(file.Unsigned(entry + "Audio/Channels"), clip.m_Channels);
    }

    const bool hasVideo = clip.m_VideoID != nullptr;
    const bool hasAudio = clip.m_AudioID != nullptr;
    // The second start of ffmpeg plays both, and compares ours with what the first one makes.
    std::string make = kFfmpeg + std::string("-noautorotate -i ") + Quoted(source);
    std::string inputs = kFfmpeg + (" -i " + Quoted(source)) + " -i " + Quoted(output);
    std::string maps;
    std::size_t encoded = 0;
    for (const json& track : report["tracks"]) {
        if (clip.m_Same == Same::No || track.count("encoding") == 0) continue;
        make += Options(track, Theirs(track));
        inputs += " -i " + Quoted(Theirs(track));
        const std::string kind = track["kind"] == "video" ? ":v" : ":a";
        maps += " -map 1" + kind + " -map " + std::to_string(++encoded + 1) + kind;
    }
    EXPECT_EQ(encoded > 0, clip.m_Same != Same::No);
    if (encoded > 0) {
        const CommandResult made = RunCommand(make + " 2>&1");
        ASSERT_EQ(made.m_ExitCode, 0) << make << "\n" << made.m_Output;
        maps += std::string(clip.m_Same == Same::Octets ? " -c copy" : "") + " -f streamhash -hash md5 -";
    }
    SCOPED_TRACE(make);
    const std::string play = inputs + OutputsToPlay(0, hasVideo, hasAudio, Path("source.")) +
                             OutputsToPlay(1, hasVideo, hasAudio, Path("output.")) + maps + " 2>&1";
    const CommandResult played = RunCommand(play);
    EXPECT_EQ(played.m_ExitCode, 0) << play;
    ExpectEqualPairs(played.m_Output, encoded);
    const Media before = Played(hasVideo, hasAudio, Path("source."));
    const Media after = Played(hasVideo, hasAudio, Path("output."));
    ASSERT_EQ(after.m_Times.size(), before.m_Times.size());
    for (std::size_t i = 0; i < after.m_Times.size(); ++i) {
        // Matroska counts milliseconds.
        EXPECT_NEAR(after.m_Times[i] - after.m_Times[0], before.m_Times[i] - before.m_Times[0], 0.0011) << i;
    }
    if (hasAudio) {
        const auto samples = static_cast<double>(before.m_Sound.size());
        // Whole frames, and an encoder's delay in front.
        const double mostMore = 48000 * (0.05 + 2048 / static_cast<double>(clip.m_Rate));
        EXPECT_NEAR(static_cast<double>(after.m_Sound.size()), samples, mostMore);
        EXPECT_GT(samples, 48000 * 0.3);
    }
    EXPECT_EQ(after.Distance().has_value(), before.Distance().has_value());
    EXPECT_NEAR(after.Distance().value_or(0), before.Distance().value_or(0), 0.010);
    const bool isWebm = output.substr(output.rfind('.')) == ".webm";
    if (hasVideo && isWebm && clip.m_Options == std::string(kOwnKeys)) ExpectKeyFramesOpenClusters(file);
}

constexpr const char* kH264 = "V_MPEG4/ISO/AVC";
constexpr const char* kHavc = "V_MS/VFW/FOURCC";
constexpr const char* kMpeg4 = "V_MPEG4/ISO/ASP";
constexpr const char* kVp8 = "V_VP8";
constexpr const char* kAac = "A_AAC";
constexpr const char* kAc3 = "A_AC3";
constexpr const char* kVorbis = "A_VORBIS";

INSTANTIATE_TEST_SUITE_P(
    Clips, EveryConversion,
    testing::Values(
        Conversion{"hevc-aac.mp4", "a.mkv", "--encode auto", kH264, 160, 90, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"hevc-aac.mp4", "a.mkv", "--encode all --format HMKV", kHavc, 160, 90, kAc3, 48000, 1, 0,
                   Same::Pictures},
        Conversion{"hevc-aac.mp4", "a.webm", kEvenKeys, kVp8, 160, 90, kVorbis, 48000, 1, 0, Same::Octets},
        Conversion{"hevc-aac.mp4", "a.webm", kOwnKeys, kVp8, 160, 90, kVorbis, 48000, 1, 0, Same::No},
        Conversion{"hevc-aac.mp4", "a.mka", "--encode all", nullptr, 0, 0, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"hevc-turned.mp4", "a.mkv", "--encode auto", kH264, 90, 160, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"hevc-pq.mkv", "a.mkv", "--encode auto", kH264, 160, 90, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"hevc-pq.mkv", "a.webm", kEvenKeys, kVp8, 160, 90, kVorbis, 48000, 1, 0, Same::Octets},
        Conversion{"av1-opus.mkv", "a.mkv", "--encode auto", kH264, 160, 90, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"av1-opus.mkv", "a.mkv", "--encode auto --video-codec xvid --audio-codec mp3", kMpeg4, 160, 90,
                   "A_MPEG/L3", 48000, 1, 0, Same::Octets},
        Conversion{"vp9-44100.mkv", "a.mkv", "--encode auto --quality 40", kH264, 160, 90, kAac, 44100, 1, 0,
                   Same::Octets},
        Conversion{"vp9-44100.mkv", "a.webm", kEvenKeys, kVp8, 160, 90, kVorbis, 44100, 1, 0, Same::Octets},
        Conversion{"mpeg2-eac3.ts", "a.mkv", "--encode auto", kH264, 160, 90, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"mpeg2-eac3.ts", "a.mka", "--encode auto --audio-codec ac3", nullptr, 0, 0, kAc3, 48000, 1, 0,
                   Same::Octets},
        Conversion{"fields-mp2.ts", "a.mkv", "--encode all --deinterlace", kH264, 160, 90, kAac, 48000, 1, 0,
                   Same::Octets},
        Conversion{"prores-96k.mov", "a.mkv", "--encode auto --video-options preset=ultrafast", kH264, 160, 90, kAac,
                   96000, 1, 0, Same::Octets},
        Conversion{"prores-96k.mov", "a.mkv", "--encode all --format HMKV", kHavc, 160, 90, kAc3, 48000, 1, 0,
                   Same::Pictures},
        Conversion{"mjpeg-8k.avi", "a.mkv", "--encode all", kH264, 160, 90, kAac, 8000, 1, 0, Same::Octets},
        Conversion{"mjpeg-8k.avi", "a.webm", kEvenKeys, kVp8, 160, 90, kVorbis, 8000, 1, 0, Same::Octets},
        Conversion{"mjpeg-8k.avi", "a.mkv", "--encode all --video-codec mpeg4 --audio-codec pcm", kMpeg4, 160, 90,
                   "A_PCM/INT/LIT", 8000, 1, 0, Same::Octets},
        Conversion{"mjpeg-8k.avi", "a.mkv", "--encode all --audio-codec dts", kH264, 160, 90, "A_DTS", 8000, 1, 0,
                   Same::Octets},
        Conversion{"drawn.gif", "a.mkv", "--encode auto --size 80x", kH264, 80, 46, nullptr, 0, 0, 0, Same::No},
        Conversion{"drawn.gif", "a.webm", kOwnKeys, kVp8, 160, 90, nullptr, 0, 0, 0, Same::No},
        Conversion{"dv.avi", "a.mkv", "--encode all --deinterlace --video-codec mpeg2 --audio-codec mp2", "V_MPEG2",
                   720, 576, "A_MPEG/L2", 48000, 2, 0, Same::Octets},
        Conversion{"uneven.mkv", "a.mkv", "--encode auto", kH264, 160, 90, kAac, 48000, 1, 0, Same::No},
        Conversion{"uneven.mkv", "a.webm", kOwnKeys, kVp8, 160, 90, kVorbis, 48000, 1, 0, Same::No},
        Conversion{"open-gop.ts", "a.mkv", "--encode all --video-filter hflip --audio-filter volume=0.9", kH264, 160,
                   90, kAac, 48000, 1, 0, Same::Octets},
        Conversion{"six-channels.m4a", "a.mka", "--encode auto", nullptr, 0, 0, kAac, 48000, 6, 0, Same::Octets},
        Conversion{"six-channels.m4a", "a.webm", "--encode auto", nullptr, 0, 0, kVorbis, 48000, 6, 0, Same::Octets}),
    [](const auto& row) {
        std::string name = std::to_string(row.index) + "_" + row.param.m_Source + "_" + row.param.m_Output;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
        return name;
    });

TEST_F(EncodeTest, EachChannelStaysInItsPlace) {
    const auto levels = [&](const std::string& file) {
        EXPECT_EQ(RunCommand(kFfmpeg + std::string("-i ") + Quoted(file) +
                             " -af aformat=channel_layouts=5.1 -f s16le " + Path("sound"))
                      .m_ExitCode,
                  0);
        const std::vector<std::int16_t> samples = Samples(Path("sound"));
        std::vector<double> found;
        for (std::size_t channel = 0; channel < 6; ++channel) {
            double sum = 0;
            for (std::size_t i = channel; i < samples.size(); i += 6)
                sum += static_cast<double>(samples[i]) * samples[i];
            found.push_back(std::sqrt(sum * 6 / static_cast<double>(samples.size())));
        }
        return found;
    };
    const std::vector<double> source = levels(ClipPath("six-channels.m4a"));
    EXPECT_GT(source[5], 5000);
    for (const auto& [codec, output] : {std::pair{"aac", "a.mka"}, std::pair{"ac3", "a.mka"}, std::pair{"dts", "a.mka"},
                                        std::pair{"pcm", "a.mka"}, std::pair{"vorbis", "a.webm"}}) {
        SCOPED_TRACE(codec);
        const std::string name = Path(output);
        const json report = Report("-y --encode all --audio-codec " + std::string(codec) + " " +
                                   Quoted(ClipPath("six-channels.m4a")) + " " + name);
        EXPECT_EQ(report.value("exitCode", -1), 0) << report.dump(1);
        const std::vector<double> result = levels(name);
        for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(result[i], source[i], source[i] * 0.28) << i;
    }
}

// A frame that was filled up at each change would move all that follows.
TEST_F(EncodeTest, SoundStaysInStepWhenItsChannelsChange) {
    struct Piece {
        const char* m_Channels;
        const char* m_Picture;
        const char* m_Sound;
    };
    // Whole frames of AC-3 and whole pictures, but half a frame of AAC more than whole ones.
    constexpr double kLength = 0.928;
    const std::string all = Path("all.ts");
    int start = 0;
    for (const auto& [channels, picture, sound] :
         {Piece{"2", "null", "0"}, Piece{"6", "null", "0"},
          Piece{"2", "drawbox=color=white:t=fill:enable='gte(t,0.4)'", "if(gte(t,0.416),0.8*sin(6000*t),0)"}}) {
        const std::string length = ":d=" + std::to_string(kLength);
        const CommandResult made = RunCommand(
            kFfmpeg + std::string("-f lavfi -i ") +
            Quoted("color=c=black:s=64x64:r=125/4" + length + "," + std::string(picture)) + " -f lavfi -i " +
            Quoted("aevalsrc='" + std::string(sound) + "':s=48000" + length) + " -c:v libx264 -bf 0 -c:a ac3 -ac " +
            channels + " -output_ts_offset " + std::to_string(kLength * start++) + " -f mpegts - >> " + Quoted(all));
        ASSERT_EQ(made.m_ExitCode, 0) << made.m_Output;
    }
    for (const char* const codec : {"aac", "mp3", "dts", "vorbis"}) {
        SCOPED_TRACE(codec);
        Report("-y --encode all --audio-codec " + std::string(codec) + " " + Quoted(all) + " " + Path("a.mkv"));
        const Media played = Play(Path("a.mkv"), true, true, Path("output."));
        EXPECT_NEAR(played.Distance().value_or(9), 0, 0.010);
    }
}

// Players place no channel whose layout is unknown.
TEST_F(EncodeTest, LayoutsThatDecodersDoNotNameAreReplaced) {
    struct Row {
        const char* m_Layout;
        const char* m_Codec;
        const char* m_Result;
    };
    const Row rows[] = {{"5.1(side)", "aac", "5.1"}, {"5.0(side)", "aac", "5.0"}, {"6.1", "aac", "7.1"},
                        {"7.1", "aac", "7.1"},       {"2.1", "aac", "2.1"},       {"4.0", "vorbis", "5.0"},
                        {"7.1", "ac3", "5.1(side)"}, {"7.1", "mp3", "stereo"}};
    const auto source = [&](std::size_t i) { return Path(std::to_string(i) + ".wav"); };
    std::string inputs;
    std::string outputs;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        inputs += "-f lavfi -i " +
                  Quoted("anoisesrc=a=0.1:d=0.2:r=48000,aformat=channel_layouts=" + std::string(rows[i].m_Layout)) +
                  " ";
        outputs += "-map " + std::to_string(i) + " " + source(i) + " ";
    }
    RunCommand(kFfmpeg + inputs + outputs);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [layout, codec, result] = rows[i];
        SCOPED_TRACE(std::string(layout) + " " + codec);
        Report("-y --encode all --audio-codec " + std::string(codec) + " " + source(i) + " " + Path("a.mka"));
        EXPECT_EQ(
            RunCommand("ffprobe -v error -show_entries stream=channel_layout -of csv=p=0 " + Path("a.mka")).m_Output,
            result + std::string("\n"));
    }
}

// Each of the two parts begins within a group of pictures, and the numbers of the pictures overlap.
TEST_F(EncodeTest, PartsOfAnEditListAreDecodedApart) {
    RunCommand(kFfmpeg +
               std::string("-f lavfi -i testsrc2=size=64x64:rate=25:duration=3 -c:v libx265 -preset ultrafast "
                           "-x265-params log-level=error:keyint=50 ") +
               Path("whole.mp4"));
    RunCommand(kFfmpeg + std::string("-itsoffset 1 -i ") + Path("whole.mp4") + " -c copy " + Path("parts.mp4"));
    Octets octets = ReadFile(Path("parts.mp4"));
    const Octets list = Ascii("elst");
    const auto found = std::search(octets.begin(), octets.end(), list.begin(), list.end());
    ASSERT_GT(octets.end() - found, 36);
    // The pause becomes a second from 0.5 s on, and the film what there is from 2.78 s on.
    for (const auto& [at, start] : {std::pair{16, Hex("00 00 1D 00")}, std::pair{28, Hex("00 00 8F 00")}}) {
        std::copy(start.begin(), start.end(), found + at);
    }
    WriteFile(Path("parts.mp4"), octets);
    const json report = Report("-y --encode all " + Path("parts.mp4") + " " + Path("a.mkv"));
    EXPECT_EQ(report.value("exitCode", -1), 0) << report.dump(1);
    EXPECT_EQ(Play(Path("a.mkv"), true, false, Path("output.")).m_Times.size(), 30U);
}

TEST_F(EncodeTest, TimesOfPicturesOnlyGoOn) {
    for (const char* start : {"0", "0.9"}) {
        RunCommand(kFfmpeg +
                   std::string("-f lavfi -i testsrc2=size=64x64:rate=25:d=1 -c:v libx264 -output_ts_offset ") + start +
                   " -f mpegts - >> " + Path("joined.ts"));
    }
    Report("-y --encode all " + Path("joined.ts") + " " + Path("a.mkv"));
    const std::vector<double> times = Play(Path("a.mkv"), true, false, Path("output.")).m_Times;
    EXPECT_EQ(times.size(), 50U);
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end())
        << testing::PrintToString(times);
}

// The headers of a chained stream are no sound.
TEST_F(EncodeTest, ChainedOpusHasNoGap) {
    RunCommand(kFfmpeg + std::string("-f lavfi -i sine=d=1 -c:a libopus ") + Path("part.ogg") + "; cat " +
               Path("part.ogg") + " " + Path("part.ogg") + " > " + Path("chained.ogg"));
    const json report = Report("-y --encode all " + Path("chained.ogg") + " " + Path("a.mka"));
    ASSERT_EQ(report.value("warnings", json::array()).size(), 1U) << report.dump(1);
    EXPECT_NE(report["warnings"][0].get<std::string>().find("jump"), std::string::npos) << report.dump(1);
    EXPECT_NEAR(static_cast<double>(Play(Path("a.mka"), false, true, Path("output.")).m_Sound.size()) / 48000, 2.0,
                0.1);
}

// Ten channels without places, as an AIFF file has them: PCM keeps them, and others need a choice.
TEST_F(EncodeTest, ChannelsWithoutPlacesAreKeptOrChosenAmong) {
    const std::string source = Path("ten.aiff");
    RunCommand(kFfmpeg + std::string("-f lavfi -i ") +
               Quoted("aevalsrc=0.1|0.1|0.1|0.1|0.1|0.1|0.1|0.1|0.1|0.1:d=0.2") + " " + source);
    const std::string ask = "ffprobe -v error -show_entries stream=channels -of csv=p=0 " + Path("a.mka");
    Report("-y --encode all --audio-codec pcm " + source + " " + Path("a.mka"));
    EXPECT_EQ(RunCommand(ask).m_Output, "10\n");
    Report("-y --encode all --audio-filter 'pan=stereo|c0=c0|c1=c9' " + source + " " + Path("a.mka"));
    EXPECT_EQ(RunCommand(ask).m_Output, "2\n");
    const CommandResult refused = Qfmux("-y --quiet --encode all " + source + " " + Path("a.mka"));
    EXPECT_EQ(refused.m_ExitCode, 2);
    EXPECT_NE(refused.m_Output.find("the positions of the 10 channels are unknown"), std::string::npos)
        << refused.m_Output;
    EXPECT_EQ(Lines(refused.m_Output), 1) << refused.m_Output;
}

// ---- what is encoded, and what is copied

TEST_F(EncodeTest, OnlyWhatTheFormatDoesNotListIsEncoded) {
    struct Row {
        const char* m_Clip;
        const char* m_Options;
        const char* m_Output;
        const char* m_Encoded;
    };
    for (const Row& row :
         {Row{"h264-opus.mkv", "--encode auto", "a.mkv", "audio "},
          Row{"h264-opus.mkv", "--encode audio", "a.mkv", "audio "},
          Row{"h264-opus.mkv", "--encode auto", "a.webm", "video audio "},
          Row{"h264-opus.mkv", "--encode all", "a.mkv", "video audio "},
          Row{"h264-opus.mkv", "--encode auto --format HMKV", "a.mkv", "audio "},
          Row{"hevc-aac.mp4", "--encode auto", "a.mkv", "video "}, Row{"hevc-aac.mp4", "--encode auto", "a.mka", ""},
          Row{"hevc-aac.mp4", "--encode video", "a.mkv", "video "}, Row{"h264-aac.mp4", "--encode auto", "a.mkv", ""},
          Row{"h264-aac.mp4", "--encode none", "a.mkv", ""},
          Row{"h264-aac.mp4", "--encode auto --quality 50", "a.mkv", "video "},
          Row{"h264-aac.mp4", "--encode auto --audio-bitrate 64k", "a.mkv", "audio "},
          Row{"vp8-vorbis.webm", "--encode auto", "a.webm", ""},
          Row{"vp8-vorbis.webm", "--encode auto", "a.mkv", "video audio "}}) {
        const json report =
            Report("--dry-run " + std::string(row.m_Options) + " " + ClipPath(row.m_Clip) + " " + Path(row.m_Output));
        std::string encoded;
        for (const json& track : report["tracks"]) {
            if (track.count("encoding") > 0) encoded += track["kind"].get<std::string>() + " ";
        }
        EXPECT_EQ(encoded, row.m_Encoded) << row.m_Clip << " " << row.m_Options << " " << row.m_Output;
    }
    // The copy is none the worse for its neighbour.
    const std::string source = ClipPath("h264-opus.mkv");
    ASSERT_EQ(Qfmux("--encode auto " + source + " " + Path("a.mkv")).m_ExitCode, 0);
    const auto hash = [](const std::string& file) {
        return RunCommand(kFfmpeg + std::string("-i ") + file + " -map 0:v -c copy -f streamhash -").m_Output;
    };
    EXPECT_EQ(hash(Path("a.mkv")), hash(source));
}

TEST_F(EncodeTest, ARefusedCopyNamesTheOption) {
    for (const auto& [source, output] :
         {std::pair{"hevc-aac.mp4", "a.mkv"}, std::pair{"h264-aac.mp4", "a.webm"}, std::pair{"flac.flac", "a.mka"}}) {
        const CommandResult result = Qfmux(ClipPath(source) + " " + Path(output));
        EXPECT_EQ(result.m_ExitCode, 2);
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find("(--encode auto converts it"), std::string::npos) << result.m_Output;
        EXPECT_LE(Qfmux("--encode auto --duration 0.2 " + ClipPath(source) + " " + Path(output)).m_ExitCode, 1);
    }
}

TEST_F(EncodeTest, HdrBecomesBt709) {
    const CommandResult result = Qfmux("--encode all " + ClipPath("hevc-pq.mkv") + " " + Path("a.mkv"));
    EXPECT_NE(result.m_Output.find("HDR (PQ) is tone-mapped to BT.709"), std::string::npos) << result.m_Output;
    EXPECT_EQ(RunCommand("ffprobe -v error -select_streams v -show_entries "
                         "stream=pix_fmt,color_space,color_transfer,color_primaries -of csv=p=0 " +
                         Path("a.mkv"))
                  .m_Output,
              "yuv420p,bt709,bt709,bt709\n");
}

TEST_F(EncodeTest, TransparentPartsBecomeBlack) {
    for (const auto& [codec, input] : {std::pair{"format=rgba -c:v png", "in.mov"},
                                       std::pair{"format=yuva420p -c:v libvpx -auto-alt-ref 0", "vp8.webm"},
                                       std::pair{"format=yuva420p -c:v libvpx-vp9", "vp9.webm"}}) {
        ASSERT_EQ(RunCommand(kFfmpeg + std::string("-f lavfi -i color=white@0:size=64x64:rate=25:duration=0.4,") +
                             codec + " " + Path(input))
                      .m_ExitCode,
                  0);
        const CommandResult result = Qfmux("-y --encode auto " + Path(input) + " " + Path("a.mkv"));
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
        EXPECT_NE(result.m_Output.find("transparent parts of the pictures become black"), std::string::npos)
            << result.m_Output;
        const Media media = Play(Path("a.mkv"), true, false, Path("output."));
        EXPECT_EQ(media.m_Times.size(), 10U);
        for (const int luma : media.m_Lumas) EXPECT_LT(luma, 4) << input;
    }
}

// Sizes that a filter refuses, sizes that an encoder refuses, and pictures that change theirs.
TEST_F(EncodeTest, OddAndChangingSizes) {
    const std::string draw = kFfmpeg + std::string("-f lavfi -i testsrc2=size=64x64:rate=25:duration=0.4 ");
    const std::string hdr = "-color_primaries bt2020 -color_trc arib-std-b67 -colorspace bt2020nc ";
    const std::string odd = "-vf format=yuv444p10,crop=63:61:exact=1,format=yuv420p10 -c:v ffv1 " + hdr;
    ASSERT_EQ(RunCommand(draw + odd + Path("odd.mkv")).m_ExitCode, 0);
    ASSERT_EQ(RunCommand(draw + "-c:v mpeg2video " + Path("one.ts")).m_ExitCode, 0);
    ASSERT_EQ(RunCommand(draw + "-s 96x80 -c:v mpeg2video -output_ts_offset 0.4 " + Path("two.ts")).m_ExitCode, 0);
    ASSERT_EQ(RunCommand("cat " + Path("one.ts") + " " + Path("two.ts") + " > " + Path("both.ts")).m_ExitCode, 0);
    struct Row {
        const char* m_Arguments;
        const char* m_Output;
        const char* m_Size;
        const char* m_Words;
    };
    for (const Row& row :
         {Row{"odd.mkv", "a.mkv", "62,60\n", "one row or column of pixels is cut off"},
          Row{"odd.mkv", "a.webm", "63,61\n", "HDR (HLG) is tone-mapped to BT.709"},
          Row{"one.ts --size 33x31", "a.mkv", "32,30\n", "one row or column of pixels is cut off"},
          Row{"both.ts", "a.mkv", "64,64\n", "change their size: all are scaled to that of the first"}}) {
        const CommandResult result = Qfmux("-y --encode auto " + Path(row.m_Arguments) + " " + Path(row.m_Output));
        EXPECT_LE(result.m_ExitCode, 1) << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << result.m_Output;
        EXPECT_EQ(
            RunCommand("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " + Path(row.m_Output)).m_Output,
            row.m_Size)
            << row.m_Arguments;
    }
}

// Frames of H.264 and MPEG-2 carry captions (ATSC A/53), stereo 3D and colours. Those of other codecs do not.
TEST_F(EncodeTest, TellsWhatFramesOfTheNewCodecCannotCarry) {
    const std::string identifier = "086f3693b7b34f2c965321492feee5b8"; // of the user data, which become captions
    ASSERT_EQ(RunCommand(kFfmpeg +
                         std::string("-f lavfi -i testsrc2=size=64x64:rate=25:duration=0.4 -c:v libx264 "
                                     "-x264-params frame-packing=3 -color_primaries bt709 -color_trc bt709 "
                                     "-colorspace bt709 -bsf:v h264_metadata=sei_user_data=" +
                                     identifier + "+12345678 ") +
                         Path("in.mp4"))
                  .m_ExitCode,
              0);
    Octets file = ReadFile(Path("in.mp4"));
    const Octets mark = Hex(identifier);
    const auto at = std::search(file.begin(), file.end(), mark.begin(), mark.end());
    ASSERT_NE(at, file.end());
    const Octets captions = Hex("B5 00 31 47 41 39 34 03 C1 FF FC 94 20 FF FF FF");
    std::copy(captions.begin(), captions.end(), at);
    *(at - 2) = 4; // registered user data
    WriteFile(Path("in.mp4"), file);
    for (const auto& [codec, expected] :
         {std::pair{"h264", ""}, std::pair{"mpeg2", ""}, std::pair{"vp8", "stereo 3D captions colour "}}) {
        SCOPED_TRACE(codec);
        const json report = Report("-y --force-codec --encode all --video-codec " + std::string(codec) + " " +
                                   Path("in.mp4") + " " + Path("a.mkv"));
        std::string lost;
        for (const json& loss : report["lost"]) lost += loss["kind"].get<std::string>() + " ";
        EXPECT_EQ(lost, expected);
        EXPECT_EQ(report.value("exitCode", -1), lost.empty() ? 0 : 1) << report.dump(1);
        const std::string frames =
            RunCommand("ffprobe -v error -read_intervals %+#1 -show_frames " + Path("a.mkv")).m_Output;
        EXPECT_EQ(frames.find("Closed Captions") != std::string::npos, lost.empty());
        EXPECT_EQ(frames.find("Stereo 3D") != std::string::npos, lost.empty());
    }
}

TEST_F(EncodeTest, FieldsAreJoinedOnlyWhenAsked) {
    for (const bool isAsked : {false, true}) {
        const json report = Report(std::string(isAsked ? "--deinterlace " : "") + "-y --encode video " +
                                   ClipPath("fields-mp2.ts") + " " + Path("a.mkv"));
        EXPECT_EQ(report.value("exitCode", -1), isAsked ? 0 : 1) << report.dump(1);
        EXPECT_EQ(report["lost"].dump().find("field order") == std::string::npos, isAsked);
        const std::string filter = report["tracks"][0]["encoding"]["filter"];
        EXPECT_EQ(filter.find("bwdif") != std::string::npos, isAsked);
        EXPECT_EQ(RunCommand("ffprobe -v error -select_streams v -read_intervals %+#5 -show_entries "
                             "frame=interlaced_frame -of csv=p=0 " +
                             Path("a.mkv") + " | grep -o '[01]' | sort -u")
                      .m_Output,
                  "0\n");
    }
}

// ---- verification

TEST_F(EncodeTest, VerifyDecodeTellsHowLikeTheSourceEachMinuteIs) {
    const std::string files = ClipPath("hevc-aac.mp4") + " " + Path("a.mkv");
    const json good = Report("--encode all --verify decode " + files);
    ASSERT_EQ(good.value("exitCode", -1), 0) << good.dump(1);
    const json& pictures = good["tracks"][0]["encoding"]["minutes"];
    ASSERT_EQ(pictures.size(), 1U);
    EXPECT_GT(pictures[0]["ssim"].get<double>(), 0.95);
    EXPECT_LT(pictures[0]["ssim"].get<double>(), 1);
    const json& sound = good["tracks"][1]["encoding"]["minutes"];
    ASSERT_EQ(sound.size(), 1U);
    // A beep of half the full scale for 8 % of the time.
    EXPECT_NEAR(sound[0]["sourceLevel"].get<double>(), 20 * std::log10(0.5) + 10 * std::log10(0.5 * 0.08), 0.3);
    EXPECT_NEAR(sound[0]["level"].get<double>(), sound[0]["sourceLevel"].get<double>(), 0.3);

    const CommandResult poor = Qfmux("-y --encode all --verify decode --video-options crf=51 " + files);
    EXPECT_EQ(poor.m_ExitCode, 0);
    EXPECT_NE(poor.m_Output.find("the encoded pictures differ more than usual from their source in minute 1 (SSIM 0."),
              std::string::npos)
        << poor.m_Output;
}

// ---- damaged and cut sources

TEST_F(EncodeTest, DamagedPicturesAreConcealedAndCounted) {
    Octets stream = ReadFile(ClipPath("open-gop.ts"));
    // Three packets of video in the middle, inside a picture.
    std::size_t damaged = 0;
    for (std::size_t packet = stream.size() / 376 * 188; damaged < 3; packet += 188) {
        if (stream[packet + 1] != 0x01 || stream[packet + 2] != 0) continue;
        for (std::size_t i = 60; i < 188; ++i) stream[packet + i] = static_cast<unsigned char>(i * 37);
        ++damaged;
    }
    WriteFile(Path("damaged.ts"), stream);
    const CommandResult result = Qfmux("--encode all " + Path("damaged.ts") + " " + Path("a.mkv"));
    EXPECT_EQ(result.m_ExitCode, 1) << result.m_Output;
    EXPECT_NE(result.m_Output.find(" damaged picture"), std::string::npos) << result.m_Output;
    EXPECT_NE(result.m_Output.find(" that the decoder concealed or left out"), std::string::npos) << result.m_Output;
    const std::size_t there = Play(Path("damaged.ts"), true, false, Path("source.")).m_Times.size();
    EXPECT_EQ(Play(Path("a.mkv"), true, false, Path("output.")).m_Times.size(), there);
}

// A recording from the middle begins with pictures that refer to others before it.
TEST_F(EncodeTest, ACutRecordingBeginsWhereItDecodes) {
    const Octets whole = ReadFile(ClipPath("open-gop.ts"));
    for (const double share : {0.3, 0.6}) {
        SCOPED_TRACE(share);
        const auto begin = static_cast<std::ptrdiff_t>(static_cast<double>(whole.size()) * share / 188) * 188;
        Octets cut(whole.begin(), whole.begin() + std::ptrdiff_t{3} * 188);
        cut.insert(cut.end(), whole.begin() + begin, whole.end());
        WriteFile(Path("cut.ts"), cut);
        const json report = Report("-y --encode all " + Path("cut.ts") + " " + Path("a.mkv"));
        EXPECT_LE(report.value("exitCode", -1), 1) << report.dump(1);
        const Media source = Play(Path("cut.ts"), true, true, Path("source."));
        const Media output = Play(Path("a.mkv"), true, true, Path("output."));
        EXPECT_GE(output.m_Times.size(), 15U);
        EXPECT_LE(output.m_Times.size(), source.m_Times.size());
        EXPECT_GE(output.m_Times.size() + 10, source.m_Times.size()) << "a group of pictures at most";
        EXPECT_LT(output.m_Times.front(), 0.5);
        if (share > 0.5) continue; // behind the flash
        ASSERT_TRUE(output.Distance() && source.Distance());
        EXPECT_NEAR(*output.Distance(), *source.Distance(), 0.010);
    }
}

// ---- endings

TEST_F(EncodeTest, ASignalKeepsWhatIsEncoded) {
    const std::string log = Quoted(Path("log"));
    const CommandResult result = RunCommand(
        ": > " + log + "; " + Quoted(QF_QFMUX) + " --progress json --json --encode all " +
        Quoted(ClipPath("hour.mp4")) + " " + Quoted(Path("a.mkv")) + " > " + log + " 2>/dev/null & until [ $(wc -l < " +
        log + ") -ge 3 ]; do sleep 0.02; done; kill -INT $!; wait $!; code=$?; cat " + log + "; exit $code");
    EXPECT_EQ(result.m_ExitCode, 130);
    std::istringstream lines(result.m_Output);
    std::string rest;
    bool hasRate = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("\"phase\"") == std::string::npos) {
            rest += line;
        } else {
            hasRate = hasRate || json::parse(line).value("framesPerSecond", 0.0) > 0;
        }
    }
    EXPECT_TRUE(hasRate) << result.m_Output;
    EXPECT_EQ(json::parse(rest)["partial"], Path("a.partial.mkv"));
    EXPECT_FALSE(fs::exists(Path("a.mkv")));
    EXPECT_EQ(RunCommand(kFfmpeg + std::string("-i ") + Path("a.partial.mkv") + " -f null - 2>&1").m_Output, "");
    const Ebml::File partial(ReadFile(Path("a.partial.mkv")));
    EXPECT_GT(partial.BlocksOf(1).size(), 25U);
    EXPECT_GT(partial.BlocksOf(2).size(), 5U);
}

TEST_F(EncodeTest, MemoryDoesNotGrowWithLength) {
    const auto peak = [&](const std::string& seconds) {
        return PeakMemory(Quoted(QF_QFMUX) +
                          " -y -q --encode all --video-options preset=ultrafast,rc-lookahead=0 --duration " + seconds +
                          " " + Quoted(ClipPath("hour.mp4")) + " " + Quoted(Path("a.mkv")));
    };
    const long minute = std::max(peak("60"), peak("60"));
    const long minutes = peak("480");
    // Seven minutes of decoded pictures have 36 MB, and of sound 7 MB.
    EXPECT_LT(minutes - minute, 3 << 20) << minute << " and " << minutes;
}

// ---- wrong command lines

TEST_F(EncodeTest, ExplainsInOneLineWhatItCannotEncode) {
    const std::string clip = Quoted(ClipPath("hevc-aac.mp4"));
    struct Row {
        const char* m_Options;
        int m_ExitCode;
        const char* m_Words;
    };
    for (const Row& row : {
             Row{"--encode some", 3, "--encode takes auto, video, audio, all or none, not 'some'"},
             Row{"--encode all --video-codec h265", 3, "--video-codec"},
             Row{"--encode all --video-codec aac", 3, "--video-codec"},
             Row{"--encode 4", 3, "--encode takes auto, video, audio, all or none, not '4'"},
             Row{"--encode all --audio-codec opus", 3, "--audio-codec takes aac, "},
             Row{"--encode all --quality 101", 3, "--quality takes a number from 0 to 100, not"},
             Row{"--encode all --quality -1", 3, "--quality takes a number from 0 to 100, not"},
             Row{"--encode all --quality good", 3, "--quality takes a number from 0 to 100, not"},
             Row{"--encode all --quality 5 --video-bitrate 1M", 3, "exclude each other"},
             Row{"--encode all --video-bitrate 0", 3, "--video-bitrate takes bits per second"},
             Row{"--encode all --video-bitrate 5G", 3, "--video-bitrate takes bits per second"},
             Row{"--encode all --audio-bitrate fast", 3, "--audio-bitrate takes bits per second"},
             Row{"--encode all --size 16", 3, "--size takes a size"},
             Row{"--encode all --size 0x0", 3, "--size takes a size"},
             Row{"--encode all --video-options crf", 3, "--video-options takes a list"},
             Row{"--encode all --video-options crv=20", 3, "--video-options: libx264 has no option 'crv'"},
             Row{"--encode all --audio-options crf=20", 3, "--audio-options: aac has no option 'crf'"},
             Row{"--encode all --audio-options ar=44100", 3, "'ar' is a property of the source"},
             Row{"--encode all --video-options time_base=1/5", 3, "'time_base' is a property of the source"},
             Row{"--video-codec h264", 3, "--video-codec needs --encode auto, video or all"},
             Row{"--encode audio --video-codec h264", 3, "--video-codec needs --encode"},
             Row{"--encode audio --video-options crf=20", 3, "--video-options needs --encode"},
             Row{"--encode audio --quality 50", 3, "--quality needs --encode"},
             Row{"--encode none --video-bitrate 1M", 3, "--video-bitrate needs --encode"},
             Row{"--deinterlace", 3, "--deinterlace needs --encode"},
             Row{"--size 80x", 3, "--size needs --encode"},
             Row{"--video-filter hflip", 3, "--video-filter needs --encode"},
             Row{"--encode video --audio-codec aac", 3, "--audio-codec needs --encode auto, audio or all"},
             Row{"--encode video --audio-options b=1", 3, "--audio-options needs --encode"},
             Row{"--audio-bitrate 64k", 3, "--audio-bitrate needs --encode"},
             Row{"--encode video --audio-filter anull", 3, "--audio-filter needs --encode"},
             Row{"--encode all --video-options b=much", 2, "libx264 refuses to encode with "},
             Row{"--encode all --video-filter no_such_filter", 2, "libavfilter refuses "},
             Row{"--encode all --audio-filter volume=loud", 2, "libavfilter refuses "},
             Row{"--encode all --format WEBM --audio-codec aac", 2, "without --audio-codec it becomes vorbis"},
         }) {
        const CommandResult result = Qfmux("--quiet " + std::string(row.m_Options) + " " + clip + " " + Path("a.mkv"));
        EXPECT_EQ(result.m_ExitCode, row.m_ExitCode) << row.m_Options << "\n" << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << row.m_Options << "\n" << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << row.m_Options << "\n" << result.m_Output;
        EXPECT_FALSE(fs::exists(Path("a.mkv"))) << row.m_Options;
    }
}

} // namespace
