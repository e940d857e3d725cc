// SPDX-License-Identifier: MIT
// Docs/HostGuide.md is correct: its programs and command lines write whole files, its host compiles with the two
// headers alone, its positions are those of the records, its names those of the library.
#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Command.h"
#include "EbmlWalker.h"
#include "HostRecords.h"
#include "TempDirectory.h"

namespace {

using Row = std::vector<std::string>;

std::string Text(const std::string& path) {
    const std::vector<unsigned char> octets = ReadFile(std::string(QF_SOURCE "/") + path);
    return {octets.begin(), octets.end()};
}

std::string Guide() { return Text("Docs/HostGuide.md"); }

// The document's blocks of a language, in their order.
std::vector<std::string> Blocks(const std::string& language) {
    const std::string guide = Guide();
    const std::string fence = "\n```" + language + "\n";
    std::vector<std::string> blocks;
    for (std::size_t at = guide.find(fence); at != std::string::npos; at = guide.find(fence, at)) {
        at += fence.size();
        blocks.push_back(guide.substr(at, guide.find("```", at) - at));
    }
    return blocks;
}

// The cells of the table with this first row; code marks and blanks around them are left out.
std::vector<Row> Table(const std::string& heading) {
    std::vector<Row> rows;
    std::istringstream guide(Guide());
    bool isInside = false;
    for (std::string line; std::getline(guide, line);) {
        if (line == heading) {
            isInside = true;
            std::getline(guide, line);
        } else if (isInside) {
            if (line.rfind('|', 0) != 0) break;
            Row row;
            std::istringstream cells(line.substr(1));
            for (std::string cell; std::getline(cells, cell, '|');) {
                row.push_back(std::regex_replace(cell, std::regex("^ +| +$|`"), ""));
            }
            rows.push_back(row);
        }
    }
    EXPECT_FALSE(rows.empty()) << heading;
    return rows;
}

class GuideHost : public ::testing::Test {
protected:
    // A folder with the two headers and the program is all that the compiler is shown.
    void SetUp() override {
        for (const char* header : {"HostRecords.h", "MKVInterface.h"}) {
            WriteFile(m_Directory / header, ReadFile(std::string(QF_SOURCE "/Source/Plugins/qf_mkv/") + header));
        }
        ASSERT_EQ(Blocks("cpp").size(), 1U);
        const std::string host = Blocks("cpp")[0];
        WriteFile(m_Directory / "host.cpp", {host.begin(), host.end()});
        const CommandResult result =
            RunCommand("cd " + Quoted(m_Directory / "") +
                       " && " QF_COMPILER " " QF_COMPILER_FLAGS
                       " -std=c++17 -Wall -Wextra -Wpedantic -Werror host.cpp -o host -ldl 2>&1");
        ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    }

    std::string CommandLine() const {
        return Quoted(m_Directory / "host") + " " + Quoted(QF_PLUGIN) +
               " " QF_STREAMS "/picture.h264 " QF_STREAMS "/sound.ac3 " + Quoted(m_Directory / "film.mkv") + " 2>&1";
    }

    TempDirectory m_Directory;
};

TEST_F(GuideHost, WritesAWholeFile) {
    const CommandResult result = RunCommand(CommandLine());
    ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    EXPECT_EQ(result.m_Output, (m_Directory / "film.mkv").string() + ": whole\n");

    const Ebml::File file(ReadFile(m_Directory / "film.mkv"));
    EXPECT_EQ(Ebml::Describe(Ebml::Check(file)), "");
    EXPECT_EQ(file.BlocksOf(1).size(), 1000U);
    EXPECT_EQ(file.BlocksOf(2).size(), 1250U);

    const std::string film = Quoted(m_Directory / "film.mkv");
    EXPECT_EQ(RunCommand("ffprobe -v warning -show_entries stream=codec_name -of csv=p=0 " + film + " 2>&1").m_Output,
              "h264\nac3\n");
    // The first key frames' worth is decoded without a complaint.
    const CommandResult decoded = RunCommand("ffmpeg -nostdin -v warning -t 4 -i " + film + " -f null - 2>&1");
    EXPECT_EQ(decoded.m_ExitCode, 0);
    EXPECT_EQ(decoded.m_Output, "");
}

// Writes beyond 100 blocks fail with EFBIG, as they would on a full disk.
TEST_F(GuideHost, SeesThatAFileIsShort) {
    const CommandResult result = RunCommand("trap '' XFSZ; ulimit -f 100; " + CommandLine());
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Output, (m_Directory / "film.mkv").string() + ": not all of it reached the disk\n");
}

TEST_F(GuideHost, SaysWhatIsMissing) {
    const CommandResult result = RunCommand(Quoted(m_Directory / "host") + " ./none.so a b c 2>&1");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_NE(result.m_Output.find("none.so"), std::string::npos) << result.m_Output;
}

// The ten lines of each way, as they stand on the page, with what the page has drawn first.
class GuideLines : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return Quoted(m_Directory / name); }
    void Save(const std::string& name, const std::string& text) const {
        WriteFile(m_Directory / name, {text.begin(), text.end()});
    }
    // In the folder with the streams, with what was built first on all paths.
    CommandResult Run(const std::string& line) const {
        return RunCommand(
            "cd " + Path("") +
            " && ln -sf " QF_STREAMS "/picture.ivf " QF_STREAMS "/picture.h264 " QF_STREAMS "/sound.ac3 . "
            "&& export PATH=" QF_BIN ":$PATH LD_LIBRARY_PATH=" QF_BIN " PYTHONPATH=" QF_SOURCE
            "/Source/Bindings/python GST_PLUGIN_PATH=" QF_BIN "/gstreamer-1.0 GST_REGISTRY=$PWD/registry.bin; " +
            line);
    }
    // Kinds and numbers of a film's packets.
    std::string Packets() const {
        return RunCommand(
                   "ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 " +
                   Path("film.mkv") + " 2>&1")
            .m_Output;
    }

    TempDirectory m_Directory;
};

TEST_F(GuideLines, OfCWriteAFilm) {
    ASSERT_EQ(Blocks("c").size(), 1U);
    Save("film.c", Blocks("c")[0]);
    const CommandResult built =
        Run(QF_COMPILER " " QF_COMPILER_FLAGS " -x c -std=c11 -Wall -Wextra -Werror -I" QF_SOURCE
                        "/Source/Host film.c -o film -L" QF_BIN " -lqf_host 2>&1");
    ASSERT_EQ(built.m_ExitCode, 0) << built.m_Output;
    EXPECT_EQ(Run("./film picture.ivf sound.ac3 film.mkv 2>&1").m_Output, "film.mkv: whole\n");
    EXPECT_EQ(Packets(), "vp8,1000\nac3,1250\n");
    const Ebml::File film(ReadFile(m_Directory / "film.mkv"));
    EXPECT_EQ(Ebml::Describe(Ebml::Check(film)), "");
    EXPECT_EQ(film.BlocksOf(2).at(1249).Time(), 1249 * 32);
    const CommandResult failed = Run("./film picture.ivf sound.ac3 . 2>&1");
    EXPECT_EQ(failed.m_ExitCode, 1);
    EXPECT_NE(failed.m_Output.find("QF_ERROR_FORMAT: "), std::string::npos) << failed.m_Output;
}

#ifdef QF_GUIDE_TOOLS
TEST_F(GuideLines, OfPythonWriteFilms) {
    const std::vector<std::string> blocks = Blocks("python");
    ASSERT_EQ(blocks.size(), 2U);
    const char* const packets[] = {"vp8,1000\n", "pcm_s16le,100\n"};
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        Save("film.py", blocks[i]);
        const CommandResult result = Run("/usr/bin/python3 -B film.py picture.ivf film.mkv 2>&1");
        EXPECT_EQ(result.m_Output, "");
        EXPECT_EQ(result.m_ExitCode, 0);
        EXPECT_EQ(Packets(), packets[i]);
    }
    // It is the package's example.
    const std::string example = Text("Source/Bindings/python/examples/remux");
    EXPECT_EQ(example.substr(example.find("import sys")), blocks[0]);
}

TEST_F(GuideLines, OfTheShellWriteFilms) {
    const std::vector<std::string> blocks = Blocks("sh");
    ASSERT_EQ(blocks.size(), 2U);
    const char* const packets[] = {"h264,100\naac,189\n", "vp8,1000\nac3,1250\n"};
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        Save("lines.sh", blocks[i]);
        const CommandResult result = Run("sh -e lines.sh 2>&1");
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
        EXPECT_EQ(Packets(), packets[i]);
    }
}
#endif

struct Place {
    std::size_t m_Position;
    std::size_t m_Width;
};

#define QF_PLACE(record, field)                                                                                        \
    {                                                                                                                  \
#record "." #field, Place { offsetof(record, field), sizeof(record::field) }                                   \
    }

const std::map<std::string, Place> kPlaces = {
    QF_PLACE(VideoParam, fourCC),
    QF_PLACE(VideoParam, width),
    QF_PLACE(VideoParam, height),
    QF_PLACE(VideoParam, frameRate),
    QF_PLACE(VideoParam, bitCount),
    QF_PLACE(AudioParam, fourCC),
    QF_PLACE(AudioParam, sampleRate),
    QF_PLACE(AudioParam, channels),
    QF_PLACE(AudioParam, bitsPerSample),
    QF_PLACE(EncodeParam, videoParam),
    QF_PLACE(EncodeParam, audioParam),
    QF_PLACE(EncodeParam, disableVideo),
    QF_PLACE(EncodeParam, disableAudio),
    QF_PLACE(EncodeParam, formatFourCC),
    QF_PLACE(MuxParam, muxFlags),
    QF_PLACE(MuxParam, displayAspectX),
    QF_PLACE(MuxParam, displayAspectY),
    QF_PLACE(MEDIA_FRAME, videoData),
    QF_PLACE(MEDIA_FRAME, videoSize),
    QF_PLACE(MEDIA_FRAME, audioData),
    QF_PLACE(MEDIA_FRAME, audioSize),
    QF_PLACE(MEDIA_FRAME, frameFlags),
    QF_PLACE(MEDIA_FRAME, timestamp),
    QF_PLACE(MEDIA_FRAME, duration),
    QF_PLACE(EncoderEntry, fourCC),
    QF_PLACE(EncoderInfo, fourCC),
    QF_PLACE(FileFormatInfo, fourCC),
    QF_PLACE(FileFormatInfo, extension),
    QF_PLACE(FileFormatInfo, shortName),
    QF_PLACE(FileFormatInfo, description),
    QF_PLACE(FileFormatInfo, audioEncoders),
    QF_PLACE(FileFormatInfo, videoEncoders),
    QF_PLACE(FileFormatInfo, CreateMediaFile),
    QF_PLACE(FileFormatInfo, WriteAudioPacket),
    QF_PLACE(FileFormatInfo, WriteVideoPacket),
    QF_PLACE(FileFormatInfo, CloseMediaFile),
    QF_PLACE(FileFormatInfo, WriteVosData),
    QF_PLACE(FileFormatInfo, WritezXPSData),
    QF_PLACE(FileFormatInfo, spare),
    QF_PLACE(FileFormatInfo, SetMuxParam),
};

std::string WithoutCommas(std::string number) { return std::regex_replace(number, std::regex(","), ""); }

struct DocumentedPlace {
    std::string m_Width;        // octets, or "pointer"
    std::string m_Positions[2]; // i386, x86_64

    bool operator==(const DocumentedPlace& other) const {
        return m_Positions[0] == other.m_Positions[0] && m_Positions[1] == other.m_Positions[1];
    }
};

// Of every field that the guide names; a record stands in its first row, with its size.
struct DocumentedRecords {
    std::map<std::string, DocumentedPlace> m_Places;
    std::map<std::string, std::string> m_Sizes[2];

    DocumentedRecords() {
        std::string record;
        for (const Row& row : Table("| record | field | width | i386 | x86_64 |")) {
            std::smatch match;
            if (std::regex_match(row[0], match, std::regex("(\\w+) \\(([0-9,]*[0-9])(, ([0-9]+))? octets.*\\)"))) {
                record = match[1];
                m_Sizes[0][record] = WithoutCommas(match[2]);
                m_Sizes[1][record] = match[4].matched ? match[4].str() : WithoutCommas(match[2]);
            } else {
                EXPECT_EQ(row[0], "");
            }
            m_Places[record + "." + row[1]] = {WithoutCommas(row[2]), {WithoutCommas(row[3]), WithoutCommas(row[4])}};
        }
    }
};

constexpr int kAbi = sizeof(void*) == 4 ? 0 : 1;

TEST(GuideRecords, ArePlacedAndSizedAsInThisAbi) {
    const DocumentedRecords guide;
    EXPECT_EQ(guide.m_Places.size(), kPlaces.size());
    for (const auto& [name, place] : kPlaces) {
        ASSERT_EQ(guide.m_Places.count(name), 1U) << name;
        const DocumentedPlace& documented = guide.m_Places.at(name);
        EXPECT_EQ(documented.m_Positions[kAbi], std::to_string(place.m_Position)) << name;
        const std::string width = documented.m_Width == "pointer" ? std::to_string(sizeof(void*)) : documented.m_Width;
        EXPECT_EQ(width, std::to_string(place.m_Width)) << name;
    }
    const std::map<std::string, std::size_t> sizes = {
        {"VideoParam", sizeof(VideoParam)},     {"AudioParam", sizeof(AudioParam)},
        {"EncodeParam", sizeof(EncodeParam)},   {"MuxParam", sizeof(MuxParam)},
        {"MEDIA_FRAME", sizeof(MEDIA_FRAME)},   {"FileFormatInfo", sizeof(FileFormatInfo)},
        {"EncoderEntry", sizeof(EncoderEntry)}, {"EncoderInfo", sizeof(EncoderInfo)},
    };
    EXPECT_EQ(guide.m_Sizes[kAbi].size(), sizes.size());
    for (const auto& [record, size] : sizes) {
        ASSERT_EQ(guide.m_Sizes[kAbi].count(record), 1U) << record;
        EXPECT_EQ(guide.m_Sizes[kAbi].at(record), std::to_string(size)) << record;
    }
}

// For both ABIs at once: each row of the guide has its assertion in the header, and the other way round.
TEST(GuideRecords, AgreeWithTheHeadersAssertions) {
    std::map<std::string, DocumentedPlace> asserted;
    const std::string header = Text("Source/Plugins/qf_mkv/HostRecords.h");
    const std::regex assertion("\nQF_ASSERT_AT(_PER_ABI)?\\((\\w+), (\\w+), ([0-9]+)(, ([0-9]+))?\\);");
    for (std::sregex_iterator match(header.begin(), header.end(), assertion), end; match != end; ++match) {
        const std::smatch& parts = *match;
        asserted[parts[2].str() + "." + parts[3].str()] = {
            "", {parts[4].str(), parts[6].matched ? parts[6].str() : parts[4].str()}};
    }
    const DocumentedRecords guide;
    for (const auto& [name, place] : guide.m_Places) {
        ASSERT_EQ(asserted.count(name), 1U) << name << " is not asserted";
        EXPECT_TRUE(asserted.at(name) == place) << name;
    }
    EXPECT_EQ(asserted.size(), guide.m_Places.size());
}

TEST(GuideNames, AreTheLibrarys) {
    std::set<std::string> documented;
    for (const Row& row : Table("| declared as | exported as |")) {
        EXPECT_TRUE(row[1] == row[0] || row[1].rfind("_Z" + std::to_string(row[0].size()) + row[0], 0) == 0) << row[0];
        documented.insert(row[1]);
    }
    std::set<std::string> exported;
    std::istringstream lines(RunCommand("nm -D --defined-only --format=posix " + Quoted(QF_PLUGIN)).m_Output);
    for (std::string line; std::getline(lines, line);) exported.insert(line.substr(0, line.find(' ')));
    EXPECT_EQ(documented, exported);
}

} // namespace
