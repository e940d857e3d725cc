// SPDX-License-Identifier: MIT
// qfmap: its facts about files, ours and others', compared with an independent reader, and the pictures that it draws.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "EbmlWalker.h"
#include "Octets.h"
#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

void WriteFile(const std::string& path, const Octets& octets) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
}

class MapTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    std::string Mux(const std::string& source, const std::string& name) const {
        const CommandResult result = Qfmux("--quiet --verify none " + Quoted(source) + " " + Quoted(Path(name)));
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
        return Path(name);
    }

    // The map as data. Its elements always make up the file, without a hole and without an overlap.
    static json Map(const std::string& path, int exitCode = 0) {
        const CommandResult result = QfmapResult("--json " + Quoted(path));
        EXPECT_EQ(result.m_ExitCode, exitCode) << path;
        const json map = json::parse(result.m_Output);
        EXPECT_EQ(map["octets"], fs::file_size(path));
        std::uint64_t end = 0;
        for (const json& element : map["elements"]) {
            EXPECT_EQ(element["position"], end) << element;
            end = element["position"].get<std::uint64_t>() + element["octets"].get<std::uint64_t>();
        }
        EXPECT_EQ(end, fs::file_size(path));
        std::uint64_t sum = 0;
        for (const json& share : map["shares"]) sum += share["octets"].get<std::uint64_t>();
        EXPECT_EQ(sum, fs::file_size(path));
        return map;
    }

    std::string Svg(const std::string& path, int exitCode = 0) const {
        const std::string svg = Path("map.svg");
        const CommandResult result = Qfmap("--overwrite " + Quoted(path) + " -o " + Quoted(svg));
        EXPECT_EQ(result.m_ExitCode, exitCode) << result.m_Output;
        const CommandResult lint = RunCommand("xmllint --nonet --noout " + Quoted(svg) + " 2>&1");
        EXPECT_EQ(lint.m_ExitCode, 0) << lint.m_Output;
        const auto octets = ReadFile(svg);
        return {octets.begin(), octets.end()};
    }

    // The result of an XPath expression on the last picture.
    std::string InSvg(const std::string& expression) const {
        std::string text =
            RunCommand("xmllint --xpath " + Quoted("string(" + expression + ")") + " " + Quoted(Path("map.svg")))
                .m_Output;
        if (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    }

    TempDirectory m_Directory;
};

// ---- our own files, against the walker

class OurFiles : public MapTest, public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(OurFiles, AreMappedAsTheWalkerSeesThem) {
    const std::string path = Mux(QF_SAMPLES "/" + std::string(GetParam().first), GetParam().second);
    const Ebml::File file(ReadFile(path));
    ASSERT_EQ(Ebml::Describe(Ebml::Check(file, Ebml::Times::Lagging)), "");
    const json map = Map(path);
    EXPECT_EQ(map["problems"], json::array());
    EXPECT_EQ(map["docType"], file.Text("EBML/DocType"));
    EXPECT_DOUBLE_EQ(map["duration"].get<double>(), static_cast<double>(file.Float("Segment/Info/Duration")) / 1000);

    std::vector<const Ebml::Element*> elements;
    for (const Ebml::Element& root : file.Roots()) {
        elements.push_back(&root);
        for (const Ebml::Element& child : root.m_Children) {
            if (std::string(root.m_pType->m_Name) == "Segment") elements.push_back(&child);
        }
    }
    ASSERT_EQ(map["elements"].size(), elements.size());
    const std::vector<Ebml::Block> blocks = file.Blocks();
    const auto times = file.ClusterTimes();
    std::size_t cluster = 0;
    std::size_t seekHeads = 0;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const json& entry = map["elements"][i];
        const Ebml::Element& element = *elements[i];
        const std::string name = element.m_pType->m_Name;
        EXPECT_EQ(entry["name"], name);
        EXPECT_EQ(entry["position"], element.m_Offset) << name;
        EXPECT_EQ(entry["headerOctets"], element.m_HeaderSize) << name;
        EXPECT_EQ(entry["declaredOctets"], element.m_HeaderSize + element.m_PayloadSize) << name;
        EXPECT_EQ(entry["octets"], element.m_HeaderSize + (name == "Segment" ? 0 : element.m_PayloadSize)) << name;
        const std::string role = entry["role"];
        if (name == "SeekHead") {
            EXPECT_EQ(role, seekHeads == 0 ? "seek head" : "cluster index");
            ++seekHeads;
        }
        EXPECT_EQ(role == "reserved space", name == "Void");
        if (name != "Cluster") continue;
        ASSERT_LT(cluster, times.size());
        EXPECT_EQ(std::lround(entry["time"].get<double>() * 1000), static_cast<long>(times[cluster]));
        EXPECT_EQ(entry["blocks"], std::count_if(blocks.begin(), blocks.end(),
                                                 [&](const Ebml::Block& block) { return block.m_Cluster == cluster; }));
        ++cluster;
    }
    EXPECT_EQ(cluster, times.size());
    EXPECT_EQ(seekHeads, 2U);

    for (const json& track : map["tracks"]) {
        std::uint64_t count = 0;
        std::uint64_t keys = 0;
        std::int64_t first = INT64_MAX;
        std::int64_t last = INT64_MIN;
        for (const Ebml::Block& block : file.BlocksOf(track["number"].get<std::uint64_t>())) {
            ++count;
            keys += (block.m_Simple ? (block.m_Flags & 0x80) != 0 : !block.m_Reference) ? 1U : 0U;
            first = std::min(first, block.Time());
            last = std::max(last, block.Time());
        }
        EXPECT_EQ(track["blocks"], count);
        EXPECT_EQ(track["keyFrames"], keys);
        EXPECT_EQ(std::lround(track["firstTime"].get<double>() * 1000), first);
        EXPECT_EQ(std::lround(track["lastTime"].get<double>() * 1000), last);
        EXPECT_EQ(track["gaps"], json::array());
        EXPECT_EQ(track["lags"], json::array());
    }
    EXPECT_EQ(map["tracks"].size(), file.Children("Segment/Tracks", "TrackEntry").size());

    const std::vector<Ebml::Cue> cues = file.Cues();
    ASSERT_EQ(map["cues"].size(), cues.size());
    EXPECT_GT(cues.size(), 0U);
    for (std::size_t i = 0; i < cues.size(); ++i) {
        EXPECT_EQ(std::lround(map["cues"][i]["time"].get<double>() * 1000), static_cast<long>(cues[i].m_Time));
        EXPECT_EQ(map["cues"][i]["track"], cues[i].m_Track);
        EXPECT_EQ(map["cues"][i]["clusterPosition"], cues[i].m_ClusterPosition + file.At("Segment").PayloadOffset());
    }
}

TEST_P(OurFiles, SharesAreThoseOfTheBlocks) {
    const std::string path = Mux(QF_SAMPLES "/" + std::string(GetParam().first), GetParam().second);
    const Ebml::File file(ReadFile(path));
    // What lies in clusters as BlockGroup or SimpleBlock, by track.
    std::map<std::uint64_t, std::uint64_t> expected;
    const std::vector<Ebml::Block> blocks = file.Blocks();
    std::size_t next = 0;
    for (const Ebml::Element* const cluster : file.Children("Segment", "Cluster")) {
        for (const Ebml::Element& child : cluster->m_Children) {
            const std::string name = child.m_pType->m_Name;
            if (name != "BlockGroup" && name != "SimpleBlock") continue;
            ASSERT_LT(next, blocks.size());
            expected[blocks[next++].m_Track] += child.m_HeaderSize + child.m_PayloadSize;
        }
    }
    for (const json& track : Map(path)["tracks"]) {
        EXPECT_EQ(track["octets"], expected[track["number"].get<std::uint64_t>()]);
    }
    const std::string table = QfmapResult(Quoted(path)).m_Output;
    for (const auto& [number, octets] : expected) {
        std::string grouped = std::to_string(octets);
        for (std::size_t i = grouped.size(); i > 3; i -= 3) grouped.insert(i - 3, ",");
        EXPECT_TRUE(std::regex_search(
            table, std::regex("blocks of track " + std::to_string(number) + ", [a-z]+ +[0-9,]+ +" + grouped)))
            << table;
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, OurFiles,
                         testing::Values(std::pair{"h264-aac.mp4", "demo.mkv"}, std::pair{"h264-aac.mp4", "demo.mka"},
                                         std::pair{"vp8-vorbis.webm", "demo.webm"}),
                         [](const auto& row) {
                             std::string name = row.param.second;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// ---- others' files

TEST_F(MapTest, MkvmergesFilesAreMappedAsMkvinfoSeesThem) {
    const std::string remux = Path("remux.mkv");
    ASSERT_EQ(RunCommand("mkvmerge --quiet -o " + Quoted(remux) + " " + Quoted(ClipPath("h264-aac.mp4"))).m_ExitCode,
              0);
    // "|+ Tracks at 4285 size 203 data size 197", a line an element; lines of the Segment's children begin "|+".
    const std::string info = RunCommand("mkvinfo --all --positions --size " + Quoted(remux)).m_Output;
    std::istringstream lines(info);
    struct Row {
        std::uint64_t m_Position;
        std::uint64_t m_Size;
        std::string m_Name;
    };
    std::vector<Row> rows;
    bool isInSegment = false;
    const std::regex form("^([|]?)[+] (.*) at ([0-9]+) size ([0-9]+) data size [0-9]+.*");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, form)) continue;
        if (match[1].length() == 0) isInSegment = match[2].str().rfind("Segment", 0) == 0;
        if (isInSegment && match[1].length() == 1) {
            rows.push_back({std::stoull(match[3]), std::stoull(match[4]), match[2]});
        }
    }
    const json map = Map(remux);
    EXPECT_EQ(map["problems"], json::array());
    ASSERT_GT(rows.size(), 7U) << info.substr(0, 500);
    ASSERT_EQ(map["elements"].size(), rows.size() + 2); // and the EBML header and the Segment's own
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(map["elements"][i + 2]["position"], rows[i].m_Position) << rows[i].m_Name;
        EXPECT_EQ(map["elements"][i + 2]["octets"], rows[i].m_Size) << rows[i].m_Name;
    }
    EXPECT_EQ(map["tracks"][0]["blocks"], 75) << "3 s at 25 Hz";
    EXPECT_EQ(map["tracks"][0]["keyFrames"], 3) << "one each 25";
    for (const json& cue : map["cues"]) EXPECT_NE(cue["clusterPosition"], nullptr);
    EXPECT_GT(map["cues"].size(), 0U);
    Svg(remux);
}

TEST_F(MapTest, UnknownSizesAreFollowed) {
    // As a live stream, whose Segment has no size, and as a file: the same blocks.
    const std::string live = Path("live.mkv");
    const std::string input =
        "ffmpeg -nostdin -v error -i " + Quoted(ClipPath("h264-aac.mp4")) + " -c copy -f matroska ";
    ASSERT_EQ(RunCommand(input + "-live 1 - > " + Quoted(live)).m_ExitCode, 0);
    ASSERT_EQ(RunCommand(input + Quoted(Path("file.mkv"))).m_ExitCode, 0);
    const json map = Map(live);
    const json whole = Map(Path("file.mkv"));
    EXPECT_EQ(map["elements"][1]["name"], "Segment");
    EXPECT_EQ(map["elements"][1]["declaredOctets"], nullptr);
    EXPECT_GT(whole["elements"][1]["declaredOctets"], 1000);
    ASSERT_EQ(map["tracks"].size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        for (const char* key : {"blocks", "keyFrames", "firstTime", "lastTime", "codecID"}) {
            EXPECT_EQ(map["tracks"][i][key], whole["tracks"][i][key]) << key;
        }
    }
    EXPECT_EQ(map["tracks"][0]["blocks"], 75);
    EXPECT_NE(Svg(live).find("unknown"), std::string::npos);
}

// ---- files made by hand (identifiers of RFC 9559)

Octets Unsigned(std::uint32_t id, std::uint64_t value) {
    Octets octets;
    for (int shift = 56; shift >= 0; shift -= 8) {
        if (shift == 0 || value >> shift != 0) octets.push_back(static_cast<unsigned char>(value >> shift));
    }
    return Element(id, octets);
}

Octets SimpleBlock(unsigned char track, int time, bool isKey, std::size_t size) {
    return Element(0xA3, Octets{static_cast<unsigned char>(0x80 | track), static_cast<unsigned char>(time >> 8 & 0xFF),
                                static_cast<unsigned char>(time & 0xFF), static_cast<unsigned char>(isKey ? 0x80 : 0)} +
                             Zeros(size));
}

Octets Track(std::uint64_t number, std::uint64_t type, const char* codec) {
    return Element(0xAE, Unsigned(0xD7, number) + Unsigned(0x83, type) + Element(0x86, Ascii(codec)));
}

const Octets kHeader = Element(0x1A45DFA3, Element(0x4282, Ascii("matroska")));
const Octets kInfo = Element(0x1549A966, Unsigned(0x2AD7B1, 1000000));
const Octets kTracks = Element(0x1654AE6B, Track(1, 1, "V_TEST") + Track(2, 2, "A_TEST"));

Octets Cluster(std::uint64_t time, const Octets& blocks) { return Element(0x1F43B675, Unsigned(0xE7, time) + blocks); }
Octets Segment(const Octets& children) { return Element(0x18538067, children); }

TEST_F(MapTest, ClustersOfUnknownSizeEndWhereTheNextElementOfTheSegmentBegins) {
    const Octets first = Hex("1F 43 B6 75 01 FF FF FF FF FF FF FF") + Unsigned(0xE7, 0) + SimpleBlock(1, 0, true, 20) +
                         SimpleBlock(2, 5, true, 10);
    const Octets second = Hex("1F 43 B6 75 FF") + Unsigned(0xE7, 1000) + SimpleBlock(1, 0, true, 30);
    const Octets start = kHeader + Hex("18 53 80 67 FF") + kInfo + kTracks;
    const std::uint64_t inSegment = kInfo.size() + kTracks.size() + first.size();
    const Octets cues = Element(
        0x1C53BB6B, Element(0xBB, Unsigned(0xB3, 1000) + Element(0xB7, Unsigned(0xF7, 1) + Unsigned(0xF1, inSegment))));
    WriteFile(Path("open.mkv"), start + first + second + cues);
    const json map = Map(Path("open.mkv"));
    EXPECT_EQ(map["problems"], json::array());
    const json& elements = map["elements"];
    ASSERT_EQ(elements.size(), 7U);
    EXPECT_EQ(elements[4]["octets"], first.size());
    EXPECT_EQ(elements[4]["declaredOctets"], nullptr);
    EXPECT_EQ(elements[4]["blocks"], 2);
    EXPECT_EQ(elements[5]["octets"], second.size());
    EXPECT_EQ(elements[5]["headerOctets"], 5);
    EXPECT_EQ(elements[6]["name"], "Cues");
    EXPECT_EQ(map["cues"][0]["clusterPosition"], start.size() + first.size());
    Svg(Path("open.mkv"));
}

TEST_F(MapTest, LagsAndGapsAreFound) {
    // Video each 100 ms for 20 s. Audio each 100 ms, but of what belongs to 4 s to 7 s nothing comes before the video
    // of 7 s, and from 12 s to 14.5 s there is none. It ends with 18 s.
    Octets clusters;
    std::size_t firstLate = 0;
    std::size_t lastLate = 0;
    const Octets before = kHeader + Segment(kInfo + kTracks);
    std::vector<std::pair<int, unsigned char>> order; // time in ms, track
    for (int i = 0; i < 200; ++i) {
        order.emplace_back(i * 100, 1);
        if (i == 70) {
            for (int late = 40; late < 70; ++late) order.emplace_back(late * 100, 2);
        }
        if ((i < 40 || i >= 70) && (i < 120 || i >= 145) && i < 180) order.emplace_back(i * 100, 2);
    }
    // One cluster for each 10 s of the file, so that positions are easily counted from its start.
    Octets blocks;
    std::vector<std::pair<std::size_t, std::size_t>> late; // position and end within all blocks
    for (const auto& [time, track] : order) {
        const Octets block = SimpleBlock(track, time, true, 40);
        if (track == 2 && time >= 4000 && time < 7000) late.emplace_back(blocks.size(), blocks.size() + block.size());
        blocks = blocks + block;
    }
    clusters = Cluster(0, blocks);
    const Octets file = kHeader + Segment(kInfo + kTracks + clusters);
    WriteFile(Path("lag.mkv"), file);
    const std::size_t start = file.size() - blocks.size();
    // The audio of 4.0 s is 3 s behind the video of 7.0 s, that of 6.0 s one second. The stretch ends at the last one
    // that is half a second behind.
    firstLate = start + late.front().first;
    lastLate = start + late[6500 / 100 - 40].second;

    const json map = Map(Path("lag.mkv"));
    EXPECT_EQ(map["tracks"][0]["lags"], json::array());
    EXPECT_EQ(map["tracks"][0]["gaps"], json::array());
    const json& lags = map["tracks"][1]["lags"];
    ASSERT_EQ(lags.size(), 1U) << lags;
    EXPECT_EQ(lags[0]["position"], firstLate);
    EXPECT_EQ(lags[0]["end"], lastLate);
    EXPECT_DOUBLE_EQ(lags[0]["seconds"].get<double>(), 3.0);
    EXPECT_DOUBLE_EQ(lags[0]["from"].get<double>(), 4.0);
    const json& gaps = map["tracks"][1]["gaps"];
    ASSERT_EQ(gaps.size(), 2U) << gaps;
    EXPECT_EQ(gaps[0]["where"], "inside");
    EXPECT_NEAR(gaps[0]["from"].get<double>(), 12.0, 1e-6) << "the block of 11.9 s lasts as long as the others";
    EXPECT_NEAR(gaps[0]["to"].get<double>(), 14.5, 1e-6);
    EXPECT_EQ(gaps[1]["where"], "end");
    EXPECT_NEAR(gaps[1]["from"].get<double>(), 18.0, 1e-6);

    Svg(Path("lag.mkv"));
    EXPECT_EQ(InSvg("count(//*[@class=\"lag\" and name()=\"path\"])"), "1");
    EXPECT_EQ(InSvg("count(//*[@class=\"gap\"]/*)"), "2") << "bands that say what they are";
    EXPECT_EQ(InSvg("//*[contains(@class,\"halo\")][contains(.,\"behind\")]"), "audio is 3 s behind");
    const std::string strip = QfmapResult(Quoted(Path("lag.mkv"))).m_Output;
    EXPECT_NE(strip.find("audio has a gap of 2.5 s, from 0:12.0 to 0:14.5"), std::string::npos) << strip;
    EXPECT_NE(strip.find("audio lags"), std::string::npos) << strip;
    EXPECT_TRUE(std::regex_search(strip, std::regex("\naudio [^\n]*!"))) << strip;
    EXPECT_FALSE(std::regex_search(strip, std::regex("\nvideo [^\n]*!"))) << strip;
}

TEST_F(MapTest, ReportsLateTracksAndPicturesOutOfOrder) {
    // Decoding order I P B B: never a gap, however the times jump.
    Octets blocks = SimpleBlock(1, 0, true, 10);
    for (int i = 0; i < 40; ++i) {
        blocks = blocks + SimpleBlock(1, i * 300 + 300, false, 10) + SimpleBlock(1, i * 300 + 100, false, 10) +
                 SimpleBlock(1, i * 300 + 200, false, 10);
        if (i >= 10) blocks = blocks + SimpleBlock(2, i * 300, true, 10);
    }
    WriteFile(Path("b.mkv"), kHeader + Segment(kInfo + kTracks + Cluster(0, blocks)));
    const json map = Map(Path("b.mkv"));
    EXPECT_EQ(map["tracks"][0]["gaps"], json::array());
    EXPECT_EQ(map["tracks"][0]["keyFrames"], 1);
    ASSERT_EQ(map["tracks"][1]["gaps"].size(), 1U);
    EXPECT_EQ(map["tracks"][1]["gaps"][0]["where"], "start");
    EXPECT_DOUBLE_EQ(map["tracks"][1]["gaps"][0]["to"].get<double>(), 3.0);
}

TEST_F(MapTest, AfterDamageTheNextClusterIsFound) {
    const Octets good = Cluster(1000, SimpleBlock(1, 0, true, 100));
    const Octets start = kHeader + Segment({}); // its header grows with the children
    const Octets children = kInfo + kTracks + good + Zeros(1000) + good;
    const Octets file = kHeader + Segment(children);
    WriteFile(Path("damaged.mkv"), file);
    const json map = Map(Path("damaged.mkv"), 1);
    const json& elements = map["elements"];
    ASSERT_EQ(elements.size(), 7U);
    EXPECT_EQ(elements[5]["role"], "no element");
    EXPECT_EQ(elements[5]["octets"], 1000);
    EXPECT_EQ(elements[6]["name"], "Cluster");
    EXPECT_EQ(elements[6]["position"], file.size() - good.size());
    EXPECT_EQ(map["tracks"][0]["blocks"], 2);
    ASSERT_EQ(map["problems"].size(), 1U);
    EXPECT_NE(map["problems"][0].get<std::string>().find("1000 bytes at"), std::string::npos);
    Svg(Path("damaged.mkv"), 1);
}

TEST_F(MapTest, ReportsCuesAndSeekHeadsThatPointNowhere) {
    const Octets cues = Element(
        0x1C53BB6B, Element(0xBB, Unsigned(0xB3, 0) + Element(0xB7, Unsigned(0xF7, 1) + Unsigned(0xF1, 12345678))));
    const Octets seek = Element(0x114D9B74, Element(0x4DBB, Element(0x53AB, Hex("1C 53 BB 6B")) + Unsigned(0x53AC, 3)));
    WriteFile(Path("wrong.mkv"),
              kHeader + Segment(seek + kInfo + kTracks + Cluster(0, SimpleBlock(1, 0, true, 10)) + cues));
    const json map = Map(Path("wrong.mkv"), 1);
    EXPECT_EQ(map["problems"].size(), 2U) << map["problems"];
    EXPECT_EQ(map["cues"][0]["clusterPosition"], nullptr);
}

TEST_F(MapTest, SpoiledFilesAreMappedWholeOrRefused) {
    const Octets octets = ReadFile(Mux(QF_SAMPLES "/vp8-vorbis.webm", "demo.webm"));
    std::mt19937 random(5);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random()) % n; };
    int mapped = 0;
    for (int run = 0; run < 16; ++run) {
        Octets spoiled = octets;
        for (std::size_t n = 1 + below(6); n > 0; --n) {
            // Half of them where headers are many: in the first octets.
            const std::size_t at = below(2) == 0 ? 40 + below(6000) : below(spoiled.size());
            const auto place = spoiled.begin() + static_cast<std::ptrdiff_t>(at);
            switch (below(3)) {
            case 0:
                *place = static_cast<unsigned char>(random() & 0xFF);
                break;
            case 1:
                spoiled.erase(place, place + 2);
                break;
            default:
                spoiled.insert(place, 3, static_cast<unsigned char>(below(2) == 0 ? 0x00 : 0xFF));
            }
        }
        WriteFile(Path("spoiled.webm"), spoiled);
        const CommandResult result = QfmapResult("--json " + Quoted(Path("spoiled.webm")));
        ASSERT_LE(result.m_ExitCode, 2) << run;
        if (result.m_ExitCode == 2) continue;
        ++mapped;
        Map(Path("spoiled.webm"), result.m_ExitCode);
        Svg(Path("spoiled.webm"), result.m_ExitCode);
    }
    EXPECT_GT(mapped, 8);
}

// ---- files that are cut off

TEST_F(MapTest, DrawsTheRestOfACutFile) {
    const std::string path = Mux(QF_SAMPLES "/h264-aac.mp4", "demo.mkv");
    const Octets octets = ReadFile(path);
    const Ebml::File file(octets);
    const json whole = Map(path);
    for (const std::size_t size : {octets.size() - 1, octets.size() * 2 / 3, octets.size() / 2, octets.size() / 3,
                                   std::size_t{4100}, std::size_t{150}, std::size_t{40}, std::size_t{36}}) {
        WriteFile(Path("cut.mkv"), Octets(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(size)));
        const json map = Map(Path("cut.mkv"), 1);
        ASSERT_GE(map["problems"].size(), 1U) << size;
        EXPECT_EQ(map["problems"][0], "cut off: the Segment goes on to byte " + std::to_string(octets.size()) +
                                          ", the file ends at " + std::to_string(size));
        // All that lies wholly within is as it was, but for the last element.
        for (std::size_t i = 2; i + 1 < map["elements"].size(); ++i) {
            EXPECT_EQ(map["elements"][i], whole["elements"][i]) << size;
        }
        std::uint64_t blocks = 0;
        for (const Ebml::Element* const cluster : file.Children("Segment", "Cluster")) {
            for (const Ebml::Element& child : cluster->m_Children) {
                // A block counts when its head of four octets is there; libmatroska asks for one more. The BlockGroup
                // of a picture that refers to another holds that first.
                const std::string name = child.m_pType->m_Name;
                if (name == "BlockGroup" && child.m_Children.back().PayloadOffset() + 5 <= size) ++blocks;
            }
        }
        std::uint64_t mapped = 0;
        for (const json& track : map["tracks"]) mapped += track["blocks"].get<std::uint64_t>();
        EXPECT_EQ(mapped, blocks) << size;
        EXPECT_NE(Svg(Path("cut.mkv"), 1).find("! cut off"), std::string::npos);
        const CommandResult strip = Qfmap(Quoted(Path("cut.mkv")));
        EXPECT_EQ(strip.m_ExitCode, 1);
        EXPECT_NE(strip.m_Output.find("qfmap: warning: cut off"), std::string::npos);
    }
}

// ---- big files

TEST_F(MapTest, PayloadsOfGigabytesAreSkipped) {
    // Four clusters of 2,000,000,000 octets, nearly all of them a hole on the disk; lengths of eight octets.
    constexpr std::uint64_t kPayload = 2000000000;
    constexpr std::uint64_t kBlock = 4 + kPayload;
    constexpr std::uint64_t kCluster = 3 + 9 + kBlock;
    const auto length = [](std::uint64_t value) {
        Octets octets{0x01};
        for (int shift = 48; shift >= 0; shift -= 8) octets.push_back(static_cast<unsigned char>(value >> shift));
        return octets;
    };
    const Octets head =
        kHeader + Hex("18 53 80 67") + length(kInfo.size() + kTracks.size() + 4 * (12 + kCluster)) + kInfo + kTracks;
    const std::string path = Path("big.mkv");
    std::ofstream stream(path, std::ios::binary);
    const auto write = [&](const Octets& octets) {
        stream.write(reinterpret_cast<const char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
    };
    write(head);
    for (unsigned char i = 0; i < 4; ++i) {
        write(Hex("1F 43 B6 75") + length(kCluster) + Hex("E7 81") + Octets{i} + Hex("A3") + length(kBlock) +
              Hex("81 00 00 80"));
        stream.seekp(static_cast<std::streamoff>(kPayload - 1), std::ios::cur);
        write({0});
    }
    stream.close();
    ASSERT_EQ(fs::file_size(path), head.size() + 4 * (12 + kCluster));

    const CommandResult result = RunCommand(
        "bash -c " + Quoted("ulimit -v 1000000; timeout 20 " + Quoted(QF_QFMAP) + " --json " + Quoted(path) + " 2>&1"));
    ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    const json map = json::parse(result.m_Output);
    ASSERT_EQ(map["elements"].size(), 8U);
    for (std::uint64_t i = 0; i < 4; ++i) {
        EXPECT_EQ(map["elements"][4 + i]["position"], head.size() + i * (12 + kCluster));
        EXPECT_EQ(map["elements"][4 + i]["octets"], 12 + kCluster);
        EXPECT_EQ(map["elements"][4 + i]["blocks"], 1);
    }
    Svg(path);
    EXPECT_EQ(InSvg("//*[name()=\"text\"][contains(.,\"from its start\")]"), "place in the file, GB from its start →");
}

TEST_F(MapTest, TenHoursFitInto500Kilobytes) {
    const std::string path = Mux(ClipPath("tenhours.mp4"), "tenhours.mkv");
    const std::string svg = Svg(path);
    EXPECT_LT(svg.size(), 500000U);
    EXPECT_GT(svg.size(), 10000U);
    EXPECT_LT(PeakMemory(Quoted(QF_QFMAP) + " " + Quoted(path)), 120000 * 1024) << "for some 1.2 million blocks";
}

// ---- pictures and words

TEST_F(MapTest, PicturesStandOnTheirOwnAndAreTheSameEachTime) {
    const std::string path = Mux(QF_SAMPLES "/h264-aac.mp4", "demo.mkv");
    const std::string svg = Svg(path);
    EXPECT_EQ(svg, Svg(path));
    EXPECT_EQ(svg.find("href"), std::string::npos);
    EXPECT_EQ(svg.find("url("), std::string::npos);
    EXPECT_EQ(svg.find("<script"), std::string::npos);
    EXPECT_NE(svg.find("prefers-color-scheme:dark"), std::string::npos);
    for (const char* word : {"EBML header", "seek head", "reserved (Void)", "info", "tracks", "7 clusters", "cues",
                             "cluster index", "key frames", "time in the film, min:s", "place in the file, kB"}) {
        EXPECT_NE(svg.find(word), std::string::npos) << word;
    }
}

TEST_F(MapTest, NamesAreEscaped) {
    const std::string path = Mux(QF_SAMPLES "/vp8-vorbis.webm", "demo.webm");
    const std::string names[][2] = {
        {"a <b> & \"c\" 'd'.webm", "a <b> & \"c\" 'd'.webm"},
        {"ünï 漢字 🎬.webm", "ünï 漢字 🎬.webm"},
        {"a\xFF\xC0\x80.webm", "a\uFFFD\uFFFD\uFFFD.webm"},
        {"a\xED\xA0\x80.webm", "a\uFFFD\uFFFD\uFFFD.webm"},
        {"a\033[31m\n\u0085\uFFFE.webm", "a\uFFFD[31m\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD.webm"},
        {"]]>--<!--.webm", "]]>--<!--.webm"}};
    for (const auto& [name, shown] : names) {
        fs::copy_file(path, Path(name));
        Svg(Path(name));
        EXPECT_EQ(InSvg("//*[@class=\"title\"]"), shown);
        const CommandResult strip = QfmapResult(Quoted(Path(name)));
        EXPECT_EQ(strip.m_Output.substr(0, strip.m_Output.find('\n')), shown);
        EXPECT_EQ(QfmapResult("--json " + Quoted(Path(name))).m_ExitCode, 0);
    }
}

TEST_F(MapTest, ColoursAreForTerminals) {
    const std::string path = Mux(QF_SAMPLES "/h264-aac.mp4", "demo.mkv");
    EXPECT_EQ(QfmapResult(Quoted(path)).m_Output.find('\033'), std::string::npos);
    const auto onTerminal = [&](const std::string& environment) {
        return RunCommand(environment + " script -qec " + Quoted(Quoted(QF_QFMAP) + " " + Quoted(path)) +
                          " /dev/null < /dev/null")
            .m_Output;
    };
    EXPECT_NE(onTerminal("env -u NO_COLOR").find("\033["), std::string::npos);
    EXPECT_EQ(onTerminal("NO_COLOR=1").find("\033["), std::string::npos);
    EXPECT_NE(onTerminal("NO_COLOR=1").find("layout"), std::string::npos);
}

TEST_F(MapTest, ManPageAndCompletionKnowItsOptions) {
    const std::string help = QfmapResult("--help").m_Output;
    const std::string man = WordsOf(QF_SOURCE "/Docs/man/qfmap.1");
    const std::string bash = QF_SOURCE "/Source/Tools/qfmap/qfmap.bash";
    const std::string offered = RunCommand("bash -c " + Quoted("source " + Quoted(bash) +
                                                               "; COMP_WORDS=(qfmap --); COMP_CWORD=1; _qfmap; "
                                                               "echo \"${COMPREPLY[@]}\""))
                                    .m_Output;
    int options = 0;
    for (const char* option : {"--help", "--output", "--overwrite", "--json", "--version"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
        EXPECT_NE(man.find(option), std::string::npos) << option;
        EXPECT_NE(offered.find(option), std::string::npos) << offered;
    }
    const std::string list = help.substr(0, help.find("Examples:"));
    for (std::size_t at = list.find("--"); at != std::string::npos; at = list.find("--", at + 2)) ++options;
    EXPECT_EQ(options, 5) << "an option that this test does not know:\n" << list;
}

// ---- files that it cannot map

TEST_F(MapTest, ExplainsInOneLineWhatItCannotDo) {
    const std::string good = Mux(QF_SAMPLES "/vp8-vorbis.webm", "demo.webm");
    WriteFile(Path("empty.mkv"), {});
    WriteFile(Path("text.mkv"), Ascii("this is no film"));
    WriteFile(Path("three.mkv"), Hex("1A 45 DF"));
    WriteFile(Path("broken.mkv"), Hex("1A 45 DF A3 00"));
    WriteFile(Path("other.ebml"), Element(0x1A45DFA3, Element(0x4282, Ascii("something"))));
    WriteFile(Path("there.svg"), Ascii("old"));
    fs::create_directory(Path("folder.mkv"));
    ASSERT_EQ(mkfifo(Path("pipe.mkv").c_str(), 0600), 0);
    const std::string quoted = Quoted(good);
    struct Row {
        std::string m_Arguments;
        int m_ExitCode;
        const char* m_Words;
    };
    const Row rows[] = {
        {Quoted(Path("missing.mkv")), 2, "No such file"},
        {Quoted(Path("empty.mkv")), 2, "is empty"},
        {Quoted(Path("text.mkv")), 2, "no Matroska or WebM"},
        {Quoted(Path("three.mkv")), 2, "no Matroska or WebM"},
        {Quoted(ClipPath("h264-aac.mp4")), 2, "no Matroska or WebM"},
        {Quoted(ClipPath("pcm16.wav")) + " -o " + Quoted(Path("a.svg")), 2, "no Matroska or WebM"},
        {Quoted(Path("broken.mkv")), 2, "EBML header"},
        {Quoted(Path("other.ebml")), 2, "another type"},
        {Quoted(Path("folder.mkv")), 2, "no regular file"},
        {Quoted(Path("pipe.mkv")), 2, "no regular file"},
        {"", 3, "FILE is required"},
        {quoted + " " + quoted, 3, "not expected"},
        {"--no-such-option " + quoted, 3, "--no-such-option"},
        {quoted + " -o", 3, "-o"},
        {quoted + " --overwrite -o " + quoted, 3, "is an input"},
        {quoted + " -o " + Quoted(Path("there.svg")), 4, "--overwrite"},
        {quoted + " -o " + Quoted(Path("no/such/folder.svg")), 4, "No such file"},
        {quoted + " -o " + Quoted(Path("folder.mkv")), 4, "no regular file"},
        {quoted + " > /dev/full", 4, "No space left"},
        {quoted + " --json > /dev/full", 4, "No space left"},
    };
    for (const Row& row : rows) {
        const CommandResult result = RunCommand("timeout 20 " + Quoted(QF_QFMAP) + " 2>&1 " + row.m_Arguments);
        EXPECT_EQ(result.m_ExitCode, row.m_ExitCode) << row.m_Arguments << "\n" << result.m_Output;
        EXPECT_NE(result.m_Output.find(row.m_Words), std::string::npos) << row.m_Arguments << "\n" << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
        EXPECT_FALSE(fs::exists(Path("a.svg")));
    }
    EXPECT_EQ(ReadFile(Path("there.svg")), Ascii("old"));
    EXPECT_EQ(Qfmap(Quoted(Path("there.svg"))).m_ExitCode, 2);
}

} // namespace
