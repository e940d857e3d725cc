// SPDX-License-Identifier: MIT
// qfmux and qfreplay with damaged files, odd names and bad plug-ins: one clear line, the right exit code, nothing left
// behind. Seeds determine the damage; QF_HOSTILE_RUNS sets the number of damaged files of each clip.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;
using Octets = std::vector<unsigned char>;

int Runs(int usual) {
    const char* const wanted = std::getenv("QF_HOSTILE_RUNS");
    return wanted != nullptr ? std::atoi(wanted) : usual;
}

// Cuts, flips, zeroes, overwrites or repeats some of the octets; half of the places are where headers are, at the ends.
class Damage {
public:
    explicit Damage(unsigned seed) : m_Random(seed) {}

    std::size_t Below(std::size_t n) { return static_cast<std::size_t>(m_Random()) % n; }

    void Apply(Octets& octets) {
        switch (Below(6)) {
        case 0:
            octets.resize(1 + Below(octets.size() - 1));
            return;
        case 1:
        case 2:
            for (std::size_t n = 1 + Below(20); n > 0; --n) {
                octets[Place(octets)] ^= static_cast<unsigned char>(1U << Below(8));
            }
            return;
        case 3:
            Fill(octets, 1 + Below(2000), [] { return std::size_t{0}; });
            return;
        case 4:
            Fill(octets, 1 + Below(16), [this] { return Below(256); });
            return;
        default:
            const std::size_t at = Place(octets);
            const std::size_t size = std::min(octets.size() - at, 1 + Below(1000));
            const Octets again(octets.begin() + static_cast<std::ptrdiff_t>(at),
                               octets.begin() + static_cast<std::ptrdiff_t>(at + size));
            octets.insert(octets.begin() + static_cast<std::ptrdiff_t>(at), again.begin(), again.end());
        }
    }

private:
    std::size_t Place(const Octets& octets) {
        const std::size_t near = Below(std::min<std::size_t>(octets.size(), 2000));
        switch (Below(4)) {
        case 0:
            return near;
        case 1:
            return octets.size() - 1 - near;
        default:
            return Below(octets.size());
        }
    }

    template <class Value>
    void Fill(Octets& octets, std::size_t size, Value value) {
        const std::size_t at = Place(octets);
        for (std::size_t i = at; i < std::min(octets.size(), at + size); ++i) {
            octets[i] = static_cast<unsigned char>(value());
        }
    }

    std::mt19937 m_Random;
};

class HostileTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    // A sanitizer's complaint has an exit code of its own; what the media libraries leak is not ours.
    static CommandResult Run(const std::string& program, const std::string& arguments) {
        return RunCommand("ASAN_OPTIONS=exitcode=86:detect_leaks=0 timeout -k 1 60 " + Quoted(program) + " " +
                          arguments + " 2>&1 </dev/null");
    }
    static CommandResult Mux(const std::string& arguments) { return Run(QF_QFMUX, arguments); }
    static CommandResult Map(const std::string& arguments) { return Run(QF_QFMAP, arguments); }
    CommandResult Replay(const std::string& session, const std::string& output) const {
        return Run(QF_BIN "/qfreplay",
                   Quoted(QF_BIN "/qf_mkv.so") + " --overwrite " + Quoted(session) + " " + Quoted(output));
    }

    void ExpectNothingLeft() const {
        for (const auto& entry : fs::directory_iterator(m_Directory / "")) {
            EXPECT_NE(entry.path().filename().string().substr(0, 7), ".qfmux-");
        }
    }

    TempDirectory m_Directory;
};

// ---- damaged media

class HostileClips : public HostileTest, public testing::WithParamInterface<const char*> {};

TEST_P(HostileClips, AreMuxedOrRefused) {
    const std::string clip = GetParam();
    const Octets whole = ReadFile(ClipPath(clip));
    const std::string input = Path("in" + fs::path(clip).extension().string());
    const std::string output = Path("out.mkv");
    const bool isMatroska = clip.find(".mkv") != std::string::npos || clip.find(".webm") != std::string::npos;
    for (int run = 0; run < Runs(5); ++run) {
        Damage damage(static_cast<unsigned>(run) * 1000 + static_cast<unsigned>(whole.size() % 1000));
        Octets octets = whole;
        damage.Apply(octets);
        WriteFile(input, octets);
        static constexpr const char* kOptions[] = {"", "--h264 N264", "--h264 havc", "--no-video --verify decode"};
        const std::string options = kOptions[damage.Below(std::size(kOptions))];
        const CommandResult result =
            Mux("--quiet --force-codec " + options + " " + Quoted(input) + " " + Quoted(output));
        const std::string what = clip + ", run " + std::to_string(run) + " " + options + ": " + result.m_Output;
        // 5: times that a damaged file jumps to may be more than any file can hold.
        const bool isDone = result.m_ExitCode <= 1;
        EXPECT_TRUE(isDone || result.m_ExitCode == 2 || result.m_ExitCode == 5) << result.m_ExitCode << " " << what;
        EXPECT_EQ(Lines(result.m_Output), isDone ? 0 : 1) << what;
        EXPECT_EQ(fs::exists(output), isDone) << what;
        ExpectNothingLeft();
        if (isDone) {
            const CommandResult map = Map(Quoted(output));
            EXPECT_EQ(map.m_ExitCode, 0) << what << map.m_Output;
            fs::remove(output);
        }
        if (isMatroska) {
            const CommandResult map = Map("--json " + Quoted(input));
            EXPECT_LE(map.m_ExitCode, 2) << what << map.m_Output;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Clips, HostileClips,
                         testing::Values("h264-aac.mp4", "h264-pcm.mov", "h264-aac.ts", "h264-mp3.avi", "h264-ac3.mkv",
                                         "mpeg2-ac3.mpg", "xvid-mp3.avi", "vp8-vorbis.webm", "vp8.ivf", "raw.h264",
                                         "raw.m2v", "raw.aac", "raw.mp3", "pcm24.wav", "vorbis.ogg", "flac.flac"),
                         [](const auto& row) {
                             std::string name = row.param;
                             std::replace_if(
                                 name.begin(), name.end(),
                                 [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
                             return name;
                         });

TEST_F(HostileTest, FilesCutAnywhereAreMuxedMappedOrRefused) {
    for (const char* name : {"h264-aac.mp4", "vp8-vorbis.webm"}) {
        const Octets whole = ReadFile(ClipPath(name));
        const std::string input = Path(name);
        const int runs = Runs(10);
        for (int run = 0; run < runs; ++run) {
            const std::size_t size = whole.size() * static_cast<std::size_t>(run) / static_cast<std::size_t>(runs);
            WriteFile(input, Octets(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            const CommandResult result = Mux("--quiet --overwrite " + Quoted(input) + " " + Quoted(Path("out.mkv")));
            EXPECT_LE(result.m_ExitCode, 2) << name << " " << size << result.m_Output;
            EXPECT_EQ(Lines(result.m_Output), result.m_ExitCode == 2 ? 1 : 0) << result.m_Output;
            EXPECT_LE(Map(Quoted(input)).m_ExitCode, 2) << name << " " << size;
        }
    }
    ExpectNothingLeft();
}

TEST_F(HostileTest, PlaylistsAreNoMedia) {
    // Not even under another name: the first waits for more to come, all of them reach for other files.
    fs::copy_file(ClipPath("h264-aac.ts"), Path("clip.ts"));
    const std::string texts[] = {"#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nclip.ts\n",
                                 "ffconcat version 1.0\nfile clip.ts\n",
                                 "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\n"
                                 "m=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\n"};
    for (const std::string& text : texts) {
        std::ofstream(Path("list.mp4")) << text;
        const CommandResult result = Mux(Quoted(Path("list.mp4")) + " " + Quoted(Path("a.mkv")));
        EXPECT_EQ(result.m_ExitCode, 2);
        EXPECT_NE(result.m_Output.find("list of other files"), std::string::npos) << result.m_Output;
    }
    EXPECT_FALSE(fs::exists(Path("a.mkv")));
}

// ---- damaged sessions

TEST_F(HostileTest, DamagedSessionsAreReplayedOrRefused) {
    ASSERT_EQ(Mux("--record " + Quoted(Path("whole")) + " --duration 0.5 " + Quoted(ClipPath("h264-aac.mp4")) + " " +
                  Quoted(Path("a.mkv")))
                  .m_ExitCode,
              0);
    const Octets text = ReadFile(Path("whole"));
    const Octets payload = ReadFile(Path("whole.payload"));
    for (int run = 0; run < Runs(40); ++run) {
        Damage damage(static_cast<unsigned>(run));
        Octets damagedText = text;
        Octets damagedPayload = payload;
        if (damage.Below(4) == 0) damage.Apply(damagedPayload);
        if (damage.Below(4) == 0) {
            damage.Apply(damagedText);
        } else { // digits for digits, so that it is read to its end
            for (std::size_t n = 0; n < 5; ++n) {
                const std::size_t from = damage.Below(damagedText.size());
                const auto digit =
                    std::find_if(damagedText.begin() + static_cast<std::ptrdiff_t>(from), damagedText.end(),
                                 [](unsigned char c) { return c >= '0' && c <= '9'; });
                if (digit != damagedText.end()) *digit = static_cast<unsigned char>('0' + damage.Below(10));
            }
        }
        WriteFile(Path("session"), damagedText);
        WriteFile(Path("session.payload"), damagedPayload);
        const CommandResult result = Replay(Path("session"), Path("out.mkv"));
        EXPECT_LE(result.m_ExitCode, 2) << run << ": " << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), result.m_ExitCode == 0 ? 0 : 1) << run << ": " << result.m_Output;
    }
}

TEST_F(HostileTest, ReplayNeverOverwritesItsInput) {
    ASSERT_EQ(
        Mux("--record " + Quoted(Path("session")) + " " + Quoted(ClipPath("raw.aac")) + " " + Quoted(Path("a.mka")))
            .m_ExitCode,
        0);
    fs::create_symlink("session.payload", Path("link"));
    const Octets text = ReadFile(Path("session"));
    const Octets payload = ReadFile(Path("session.payload"));
    EXPECT_EQ(Replay(Path("session"), Path("session")).m_ExitCode, 3);
    EXPECT_EQ(Replay(Path("session"), Path("link")).m_ExitCode, 3);
    EXPECT_TRUE(ReadFile(Path("session")) == text && ReadFile(Path("session.payload")) == payload);
    const CommandResult nowhere = Replay(Path("session"), Path("no/such/folder/a.mka"));
    EXPECT_EQ(nowhere.m_ExitCode, 4) << nowhere.m_Output;
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(Replay(Path("pipe"), Path("a.mka")).m_ExitCode, 2);
    EXPECT_EQ(Replay(Path(""), Path("a.mka")).m_ExitCode, 2);
    fs::remove(Path("session.payload"));
    ASSERT_EQ(mkfifo(Path("session.payload").c_str(), 0600), 0);
    const CommandResult pipe = Replay(Path("session"), Path("a.mka"));
    EXPECT_EQ(pipe.m_ExitCode, 2);
    EXPECT_EQ(Lines(pipe.m_Output), 1) << pipe.m_Output;
}

// ---- names and what stands behind them

TEST_F(HostileTest, IsOneLineForEveryKindOfFile) {
    fs::copy_file(ClipPath("h264-aac.mp4"), Path("in.mp4"));
    fs::create_hard_link(Path("in.mp4"), Path("hard.mkv"));
    fs::create_symlink("in.mp4", Path("soft.mkv"));
    fs::create_symlink("nowhere.mkv", Path("dangling.mkv"));
    fs::create_symlink("loop.mp4", Path("loop.mp4"));
    fs::create_symlink("ring.mkv", Path("ring.mkv"));
    fs::create_directory(Path("folder\xFF"));
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    fs::create_directory(Path("a.iso:"));
    struct Row {
        std::string m_Arguments;
        int m_ExitCode;
        std::string m_Words;
    };
    const std::string big(5000, 'n');
    const Row rows[] = {
        {"in.mp4 --overwrite hard.mkv", 3, "is an input"},
        {"in.mp4 --overwrite soft.mkv", 3, "is an input"},
        {"in.mp4 --overwrite ./../" + m_Directory.operator/("").parent_path().filename().string() + "/soft.mkv", 3,
         "is an input"},
        {"in.mp4 -q dangling.mkv; ls nowhere.mkv", 0, "nowhere.mkv"}, // it stands for what it points at
        {"in.mp4 -y ring.mkv", 4, "symbolic links"},
        {"in.mp4 $'folder\\xff/a.mkv'", 4, "not UTF-8"},
        {"in.mp4 /dev/null", 3, "choose the output format"},
        {"in.mp4 --format MKV --overwrite /dev/null", 4, "no regular file"},
        {"in.mp4 --format MKV --overwrite /dev/full", 4, "no regular file"},
        {"in.mp4 ''", 3, "has no name"},
        {"in.mp4 " + big + ".mkv", 4, "too long"},
        {"in.mp4 in.mp4/a.mkv", 4, "Not a directory"},
        {"'' a.mkv", 2, "No such file"},
        {"pipe a.mkv", 2, "no regular file"},
        {"/dev/zero a.mkv", 2, "no regular file"},
        {"a.iso: a.mkv", 2, "no regular file"},
        {"loop.mp4 a.mkv", 2, "symbolic links"},
        {"http://localhost/a.mp4 a.mkv", 2, "No such file"},
        {"%s%n.mp4 a.mkv", 2, "%s%n.mp4"},
        {big + " a.mkv", 2, "too long"},
        {"$'no\\nsuch\\e[31m\\xff.mp4' a.mkv", 2, "no\uFFFDsuch\uFFFD[31m\uFFFD.mp4"},
        {"in.mp4 --record in.mp4 a.mkv", 3, "is the same file as"},
        {"in.mp4 --record ./a.mkv a.mkv", 3, "is the same file as"},
        {"in.mp4 --record pipe a.mkv", 4, "no regular file"},
        {"in.mp4 --record no/such/folder a.mkv", 4, "No such file"},
        {"in.mp4 --quiet --record session a.mkv & ulimit -f 40; wait $!; exec " + Quoted(QF_QFMUX) +
             " in.mp4 --quiet --overwrite --record session a.mkv",
         4, "File too large"},
        {"formats > /dev/full", 4, "No space left"},
        {"--help > /dev/full", 4, "No space left"},
        {"--dry-run in.mp4 a.mkv > /dev/full", 4, "No space left"},
    };
    for (const Row& row : rows) {
        fs::remove(Path("a.mkv"));
        const CommandResult result =
            Run("bash", "-c " + Quoted("cd " + Quoted(Path("")) + "; " + Quoted(QF_QFMUX) + " " + row.m_Arguments));
        EXPECT_EQ(result.m_ExitCode, row.m_ExitCode) << row.m_Arguments << "\n" << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << row.m_Arguments << "\n" << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
    }
    EXPECT_EQ(ReadFile(Path("in.mp4")), ReadFile(ClipPath("h264-aac.mp4")));
    ExpectNothingLeft();
}

TEST_F(HostileTest, NamesOfAnyOctetsAreWrittenAndShown) {
    fs::copy_file(ClipPath("raw.aac"), Path("%s\xFF\n.aac"));
    for (const std::string name : {"%n%s.mka", "a\xFF\xC0.mka", "tab\tand\033[31m.mka", "..mka", "a.iso:.mka"}) {
        const CommandResult result = Mux("--json " + Quoted(Path("%s\xFF\n.aac")) + " " + Quoted(Path(name)));
        EXPECT_EQ(result.m_ExitCode, 0) << name << ": " << result.m_Output;
        EXPECT_TRUE(fs::exists(Path(name))) << name;
        EXPECT_EQ(Mux("--dry-run --json " + Quoted(Path("%s\xFF\n.aac")) + " " + Quoted(Path(name))).m_ExitCode, 1)
            << "it exists by now";
    }
}

TEST_F(HostileTest, ClosedStreamsDoNotEndUpInFiles) {
    const std::string files = Quoted(ClipPath("raw.aac")) + " " + Quoted(Path("a.mka"));
    EXPECT_EQ(RunCommand(Quoted(QF_QFMUX) + " --json -v " + files + " >&- 2>&- <&-").m_ExitCode, 0);
    EXPECT_EQ(Map(Quoted(Path("a.mka"))).m_ExitCode, 0);
    const Octets octets = ReadFile(Path("a.mka"));
    const std::string word = "\"exitCode\"";
    EXPECT_EQ(std::search(octets.begin(), octets.end(), word.begin(), word.end()), octets.end());
    EXPECT_EQ(RunCommand(Quoted(QF_QFMUX) + " --json --overwrite " + files + " 2>/dev/null >/dev/full").m_ExitCode, 1)
        << "the file is there, the word about it is not";
}

// ---- plug-ins

TEST_F(HostileTest, LibrariesThatAreNoPlugIns) {
    std::ofstream(Path("text.so")) << "this is no library";
    std::ofstream(Path("empty.so"));
    const Octets real = ReadFile(QF_BIN "/qf_mkv.so");
    WriteFile(Path("half.so"), Octets(real.begin(), real.begin() + 2000));
    ASSERT_EQ(mkfifo(Path("pipe.so").c_str(), 0600), 0);
    struct Row {
        std::string m_Plugin;
        const char* m_Words;
    };
    std::vector<Row> rows = {{Path("missing.so"), "No such file"}, {Path("text.so"), "text.so"},
                             {Path("empty.so"), "empty.so"},       {Path("half.so"), "cut off"},
                             {Path(""), "no regular file"},        {Path("pipe.so"), "no regular file"},
                             {QF_FOREIGN, "lacks GetFileFormats"}};
    if (fs::exists(QF_I386_BIN "/qf_mkv.so")) rows.push_back({QF_I386_BIN "/qf_mkv.so", "wrong ELF class"});
    const std::string files = " " + Quoted(ClipPath("raw.aac")) + " " + Quoted(Path("a.mka"));
    for (const Row& row : rows) {
        for (const std::string& rest : {files, std::string(" formats"), std::string(" --version")}) {
            const CommandResult result = Mux("--plugin " + Quoted(row.m_Plugin) + rest);
            EXPECT_EQ(result.m_ExitCode, 2) << row.m_Plugin << result.m_Output;
            EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << result.m_Output;
            EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
        }
    }
    EXPECT_FALSE(fs::exists(Path("a.mka")));
}

TEST_F(HostileTest, PlugInsWithEmptyTables) {
    const std::string files = " " + Quoted(ClipPath("raw.aac")) + " " + Quoted(Path("a.mkv"));
    const auto spoiler = [this](const std::string& tables) {
        const std::string path = Path(tables + ".so");
        fs::copy_file(QF_SPOILER, path);
        return "--plugin " + Quoted(path);
    };
    const std::string bare = spoiler("table-bare");
    for (const auto& [plugin, exitCode, words] :
         {std::tuple{spoiler("table-null"), 2, "lists no formats"},
          std::tuple{spoiler("table-empty"), 2, "lists no formats"}, std::tuple{bare, 3, "choose the output format"}}) {
        const CommandResult result = Mux(plugin + files);
        EXPECT_EQ(result.m_ExitCode, exitCode) << plugin << ": " << result.m_Output;
        EXPECT_NE(result.m_Output.find(words), std::string::npos) << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
    }
    EXPECT_EQ(Mux(bare + " formats").m_ExitCode, 0);
    const CommandResult forced = Mux("--format MKV " + bare + files);
    EXPECT_EQ(forced.m_ExitCode, 2) << forced.m_Output;
    EXPECT_NE(forced.m_Output.find("nothing to write"), std::string::npos) << forced.m_Output;
}

TEST_F(HostileTest, ABarePlugInNameIsAFileInTheCurrentDirectory) {
    fs::copy_file(QF_BIN "/qf_mkv.so", Path("mine.so"));
    EXPECT_EQ(RunCommand("cd " + Quoted(Path("")) + " && " + Quoted(QF_QFMUX) + " formats --plugin mine.so").m_ExitCode,
              0);
}

} // namespace
