// SPDX-License-Identifier: MIT
// Recorded sessions: sessions of real media are replayed into both builds of the plug-in and give the same octets.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <vector>

#include "Command.h"
#include "ReferenceModel.h"
#include "TempDirectory.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// The tools of one word size.
struct Build {
    std::string m_Bin;

    CommandResult Replay(const std::string& arguments) const {
        return RunCommand(Quoted(m_Bin + "/qfreplay") + " " + Quoted(m_Bin + "/qf_mkv.so") + " " + arguments + " 2>&1");
    }
};

const Build kNative = {QF_BIN};
const Build kRecord = {QF_I386_BIN}; // the ABI of record

class SessionTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    void Record(const std::string& clip, const std::string& output, const std::string& options = "") {
        const CommandResult result =
            RunCommand(Quoted(QF_QFMUX) + " --quiet --force-codec " + options + " --record " + Quoted(Path("session")) +
                       " " + Quoted(QF_CLIPS "/" + clip) + " " + Quoted(Path(output)) + " 2>&1");
        ASSERT_LE(result.m_ExitCode, 1) << result.m_Output;
    }

    TempDirectory m_Directory;
    const std::string m_Pinned = "--rand 1000000000 --time 1700000000 --check";
};

Model::FourCC CodeOf(const json& value) {
    if (!value.is_string()) return value.get<Model::FourCC>();
    const auto text = value.get<std::string>();
    return Model::MakeFourCC({text.at(0), text.at(1), text.at(2), text.at(3), '\0'});
}

Model::EncodeParam JobOf(const json& param) {
    const json& video = param.at("videoParam");
    const json& audio = param.at("audioParam");
    Model::EncodeParam job;
    job.videoParam = {CodeOf(video.at("fourCC")), video.at("width"), video.at("height"), video.at("frameRate"),
                      video.at("bitCount")};
    job.audioParam = {CodeOf(audio.at("fourCC")), audio.at("sampleRate"), audio.at("channels"),
                      audio.at("bitsPerSample")};
    job.disableVideo = param.at("disableVideo");
    job.disableAudio = param.at("disableAudio");
    job.formatFourCC = CodeOf(param.at("formatFourCC"));
    return job;
}

// Makes a recorded session's calls of the model, with the numbers and the time that replays are given, and compares
// their results. Returns the file.
Octets PlayOnModel(const std::string& session) {
    std::vector<int> rands(16);
    std::iota(rands.begin() + 2, rands.end(), 1);
    rands[0] = 1000000000;
    rands[1] = 1000000001;
    ReferenceModel model(rands, 1700000000);
    const Octets payload = ReadFile(session + ".payload");
    const auto take = [&](const json& reference) {
        if (reference.is_null()) return Octets();
        const auto at = payload.begin() + reference.at("at").get<std::ptrdiff_t>();
        return Octets(at, at + reference.at("size").get<std::ptrdiff_t>());
    };
    Octets file;
    int handle = 0;
    std::ifstream lines(session);
    std::string text;
    std::getline(lines, text); // the version
    while (std::getline(lines, text)) {
        const json line = json::parse(text);
        const std::string call = line.at("call");
        if (call == "SetMuxParam") {
            const json& param = line.at("param");
            const Model::MuxParam given = {
                0, param.at("muxFlags"), 0, param.at("displayAspectX"), param.at("displayAspectY"), 0};
            EXPECT_EQ(model.SetMuxParam(&given), line.at("result"));
        } else if (call == "CreateMediaFile") {
            const Model::EncodeParam job = JobOf(line.at("param"));
            handle = model.CreateMediaFile(ReferenceModel::Path::Opens, &job);
        } else if (call == "WriteVosData") {
            const Octets data = take(line.at("data"));
            model.WriteVosData(handle, data.data(), static_cast<int>(data.size()));
        } else if (call == "WritezXPSData") {
            const Octets picture = take(line.at("pictureSet"));
            const Octets sequence = take(line.at("sequenceSet"));
            model.WritezXPSData(handle, picture.empty() ? nullptr : picture.data(), static_cast<int>(picture.size()),
                                sequence.empty() ? nullptr : sequence.data(), static_cast<int>(sequence.size()));
        } else if (call == "CloseMediaFile") {
            file = model.CloseMediaFile(handle);
        } else {
            Octets data = take(line.at("data"));
            Model::Frame frame;
            frame.data = data.empty() ? nullptr : data.data();
            frame.size = static_cast<std::int32_t>(data.size());
            frame.frameFlags = line.value("frameFlags", 0U);
            frame.timestamp = line.at("timestamp");
            frame.duration = line.at("duration");
            const int result = call == "WriteVideoPacket" ? model.WriteVideoPacket(handle, &frame)
                                                          : model.WriteAudioPacket(handle, &frame, nullptr);
            EXPECT_EQ(result, line.at("result"));
        }
    }
    return file;
}

struct Recording {
    const char* m_Clip;
    const char* m_Output;
    std::string m_Options;
};

class EverySession : public SessionTest, public testing::WithParamInterface<Recording> {};

TEST_P(EverySession, ReplaysAlikeInBothBuilds) {
    const Recording& recording = GetParam();
    Record(recording.m_Clip, recording.m_Output, recording.m_Options);
    const std::string session = Quoted(Path("session")) + " ";
    for (const auto& [build, name] :
         {std::pair{kNative, "native"}, std::pair{kNative, "again"}, std::pair{kRecord, "i386"}}) {
        const CommandResult result = build.Replay(session + Quoted(Path(name)) + " " + m_Pinned);
        ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    }
    const auto native = ReadFile(Path("native"));
    EXPECT_NEAR(static_cast<double>(native.size()), static_cast<double>(ReadFile(Path(recording.m_Output)).size()), 6)
        << "the same file but for its identifiers and date";
    EXPECT_TRUE(native == ReadFile(Path("again")));
    EXPECT_TRUE(native == ReadFile(Path("i386")));
    EXPECT_TRUE(native == PlayOnModel(Path("session")));
}

constexpr const char* kOpenGroups = "--encode all --video-options x264-params=open-gop=1:b-adapt=0:keyint=10";

// Encoders give start codes, with parameter sets in front of key frames.
INSTANTIATE_TEST_SUITE_P(
    Encoders, EverySession,
    testing::Values(Recording{"hevc-aac.mp4", "a.mkv", "--encode all"},
                    Recording{"hevc-aac.mp4", "a.mkv", "--encode all --h264 H264"},
                    Recording{"hevc-aac.mp4", "a.mkv", "--encode all --h264 N264"},
                    Recording{"hevc-aac.mp4", "a.mkv", "--encode all --h264 A264"},
                    Recording{"hevc-aac.mp4", "a.mkv", "--encode all --h264 I264"},
                    Recording{"hevc-aac.mp4", "a.mkv", "--encode all --format HMKV"},
                    Recording{"hevc-aac.mp4", "a.mkv", kOpenGroups},
                    Recording{"uneven.mkv", "a.mkv", std::string(kOpenGroups) + " --h264 H264"},
                    Recording{"uneven.mkv", "a.mkv", std::string(kOpenGroups) + " --h264 N264"},
                    Recording{"fields-mp2.ts", "a.mkv", "--encode all --video-codec mpeg2 --audio-codec mp3"},
                    Recording{"hevc-turned.mp4", "a.mkv", "--encode all --video-codec xvid --audio-codec pcm"},
                    Recording{"uneven.mkv", "a.webm", "--encode all --video-options cpu-used=5,threads=1"},
                    Recording{"six-channels.m4a", "a.mka", "--encode all --audio-codec ac3"}),
    [](const auto& row) { return "Row" + std::to_string(row.index); });

INSTANTIATE_TEST_SUITE_P(
    Clips, EverySession,
    testing::Values(Recording{"h264-aac.mp4", "a.mkv", ""}, Recording{"h264-aac.ts", "a.mkv", ""},
                    Recording{"h264-aac.mp4", "a.mka", ""}, Recording{"h264-slices.mp4", "a.mkv", "--h264 N264"},
                    Recording{"h264-aac.mp4", "a.mkv", "--h264 havc --aspect 4:3"},
                    Recording{"mpeg2-ac3.mpg", "a.mkv", "--format HMKV"}, Recording{"mpeg4-mp3.avi", "a.mkv", ""},
                    Recording{"pcm24.wav", "a.mka", ""}, Recording{"vp8-vorbis.webm", "a.webm", ""},
                    Recording{"vp8-vorbis.webm", "a.mkv", ""}, Recording{"mjpeg-pcm.avi", "a.mkv", ""}),
    [](const auto& row) { return "Row" + std::to_string(row.index); });

TEST_F(SessionTest, SamplesReplayAlikeInBothBuilds) {
    for (const auto& [clip, output] : {std::pair{"h264-aac.mp4", "a.mkv"}, std::pair{"vp8-vorbis.webm", "a.webm"}}) {
        ASSERT_EQ(RunCommand(Quoted(QF_QFMUX) + " --overwrite --record " + Quoted(Path("session")) + " " +
                             Quoted(std::string(QF_SAMPLES "/") + clip) + " " + Quoted(Path(output)))
                      .m_ExitCode,
                  0);
        for (const auto& [build, name] : {std::pair{kNative, "native"}, std::pair{kRecord, "i386"}}) {
            ASSERT_EQ(build.Replay("--overwrite " + Quoted(Path("session")) + " " + Quoted(Path(name)) + " " + m_Pinned)
                          .m_ExitCode,
                      0);
        }
        EXPECT_TRUE(ReadFile(Path("native")) == ReadFile(Path("i386"))) << clip;
    }
}

TEST_F(SessionTest, CheckNamesTheFirstResultThatDiffers) {
    Record("raw.aac", "a.mka");
    std::ifstream in(Path("session"));
    std::ofstream out(Path("changed"));
    int changed = 0;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        const std::size_t at = line.find("\"result\":");
        if (changed == 0 && number > 6 && at != std::string::npos) {
            line.insert(at + 9, "1");
            changed = number;
        }
        out << line << "\n";
    }
    out.close();
    fs::copy_file(Path("session.payload"), Path("changed.payload"));
    ASSERT_GT(changed, 0);
    const std::string arguments = Quoted(Path("changed")) + " " + Quoted(Path("out"));
    const CommandResult checked = kNative.Replay(arguments + " --check");
    EXPECT_EQ(checked.m_ExitCode, 5) << checked.m_Output;
    EXPECT_NE(checked.m_Output.find("line " + std::to_string(changed) + ", WriteAudioPacket"), std::string::npos)
        << checked.m_Output;
    const CommandResult refused = kNative.Replay(arguments);
    EXPECT_EQ(refused.m_ExitCode, 4) << "what is there stays";
    EXPECT_EQ(refused.m_Output, "qfreplay: cannot write '" + Path("out") + "': it exists; --overwrite replaces it\n");
    EXPECT_EQ(kNative.Replay(arguments + " -y").m_ExitCode, 0) << "without the check results do not matter";
}

TEST_F(SessionTest, HandWrittenSessionsTakeOctetsInline) {
    std::ofstream(Path("session")) << R"({"qfsession":1,"plugin":""}
{"call":"CreateMediaFile","file":1,"path":"","param":{"formatFourCC":"MKA ","disableVideo":1,"disableAudio":0,"videoParam":{"fourCC":0,"width":0,"height":0,"frameRate":0,"bitCount":0},"audioParam":{"fourCC":"AC3 ","sampleRate":48000,"channels":2,"bitsPerSample":16}},"result":true}
{"call":"WriteAudioPacket","file":1,"timestamp":0,"duration":20000,"data":{"hex":"0b770102"},"frameSizes":[2,2],"result":4}
{"call":"CloseMediaFile","file":1}
)";
    const CommandResult result = kNative.Replay(Quoted(Path("session")) + " " + Quoted(Path("out.mka")) + " --check");
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
    EXPECT_GT(ReadFile(Path("out.mka")).size(), 4096U);
}

TEST_F(SessionTest, DamagedSessionsAreOneLine) {
    Record("raw.aac", "a.mka");
    struct Row {
        const char* m_Name;
        const char* m_Text;
    };
    for (const Row& row : {Row{"empty", ""}, Row{"no session", "hello\n"}, Row{"other version", "{\"qfsession\":2}\n"},
                           Row{"no such call", "{\"qfsession\":1}\n{\"call\":\"Fly\",\"file\":1}\n"},
                           Row{"a field is missing", "{\"qfsession\":1}\n{\"call\":\"WriteVideoPacket\",\"file\":1}\n"},
                           Row{"octets are missing", "{\"qfsession\":1}\n{\"call\":\"WriteVosData\",\"file\":1,"
                                                     "\"data\":{\"at\":99999999999,\"size\":5}}\n"}}) {
        std::ofstream(Path("damaged")) << row.m_Text;
        const CommandResult result = kNative.Replay(Quoted(Path("damaged")) + " " + Quoted(Path("out")));
        EXPECT_EQ(result.m_ExitCode, 2) << row.m_Name << ": " << result.m_Output;
        EXPECT_EQ(std::count(result.m_Output.begin(), result.m_Output.end(), '\n'), 1) << result.m_Output;
    }
    EXPECT_EQ(kNative.Replay("/no/such/session out").m_ExitCode, 2);
    EXPECT_EQ(kNative.Replay("").m_ExitCode, 3);
}

} // namespace
