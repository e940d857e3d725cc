// SPDX-License-Identifier: MIT
// Recorded sessions: sessions of real media are replayed into both builds of the plug-in and give the same octets.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Command.h"
#include "TempDirectory.h"

namespace {

namespace fs = std::filesystem;

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

struct Recording {
    const char* m_Clip;
    const char* m_Output;
    const char* m_Options;
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
}

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
