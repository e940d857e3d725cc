// SPDX-License-Identifier: MIT
// Opens our files in public readers: every codec and every trait, with every reader. Docs/Readers.md lists the known
// differences. The tests read that table. They fail at a difference that has no row, and at a row that no longer holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "AvformatFile.h"
#include "Command.h"
#include "EbmlWalker.h"
#include "FfmpegRun.h"
#include "GstPlayer.h"
#include "KnownDifferences.h"
#include "Matrix.h"
#include "ReaderFacts.h"
#include "TempDirectory.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kSame = "same";
constexpr const char* kOther = "other";
constexpr const char* kRight = "right";

std::string ClipPath(const char* name) { return QF_READER_CLIPS "/" + std::string(name); }

// What ffmpeg answers about a clip, of which several files are made, is kept for all of them.
std::string ClipAnswer(const std::string& clip, const std::string& question) {
    static const TempDirectory directory;
    return (directory / (fs::path(clip).filename().string() + " " + question)).string();
}

// ffmpeg's options of an output: the hash of a track (of its octets with kCopy), and the hashes of its pictures, which
// GStreamer's are compared with.
constexpr const char* kHash = "-fps_mode passthrough -f streamhash -hash murmur3";
constexpr const char* kPictureHashes = "-fps_mode passthrough -pix_fmt yuv420p -f framehash -hash md5";
constexpr const char* kCopy = "-fps_mode passthrough -c copy -f streamhash -hash murmur3";
constexpr const char* kUnits = "-c copy -bsf:v h264_mp4toannexb -f data";

// Empty when ffmpeg did not write this answer.
std::string ReadAnswer(const std::string& path) {
    if (!fs::exists(path)) return "";
    const Octets octets = ReadFile(path);
    return {octets.begin(), octets.end()};
}

// Whether two answers hold the same hash.
bool SameHash(const std::string& left, const std::string& right) {
    const std::string hash = ReadAnswer(left);
    return hash.find("murmur3=") != std::string::npos && hash == ReadAnswer(right);
}

std::vector<std::string> PictureHashes(const std::string& answer) {
    std::vector<std::string> hashes;
    std::istringstream lines(ReadAnswer(answer));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line[0] != '#') hashes.push_back(line.substr(line.rfind(' ') + 1));
    }
    return hashes;
}

// The H.264 units of the types that the file keeps, each behind its size. The separators are left out, because source
// and file have different ones: start codes of three or four octets, or lengths.
std::string Units(const std::string& octets, bool slicesOnly) {
    const std::string mark("\0\0\1", 3);
    std::string units;
    std::size_t begin = octets.find(mark);
    while (begin != std::string::npos) {
        begin += mark.size();
        const std::size_t next = octets.find(mark, begin);
        std::string unit = octets.substr(begin, next == std::string::npos ? next : next - begin);
        unit.erase(unit.find_last_not_of('\0') + 1);
        const int type = unit.empty() ? 0 : unit[0] & 31;
        const bool isSlice = type == 1 || type == 5;
        if (isSlice || (!slicesOnly && type >= 7 && type <= 9)) units += std::to_string(unit.size()) + ":" + unit;
        begin = next;
    }
    return units;
}

// The properties of a clip, from its packets.
struct ClipFacts {
    double m_Start = 1e9; // ms
    double m_End = 0;
    std::vector<bool> m_Keys;
};

// Finds the key frames of an MPEG-4 stream in an AVI file. The flags of the AVI file are not enough: they also mark the
// empty pictures that hold the place of B pictures.
std::vector<bool> IntraPictures(const std::string& file) {
    const std::string octets = RunCommand("ffmpeg -nostdin -v quiet -i " + Quoted(file) +
                                          " -map 0:v -c copy -bsf:v mpeg4_unpack_bframes -f data -")
                                   .m_Output;
    const std::string mark("\0\0\1\xB6", 4);
    std::vector<bool> intra;
    for (std::size_t at = 0; (at = octets.find(mark, at)) != std::string::npos; at += mark.size()) {
        intra.push_back((octets.at(at + mark.size()) & 0xC0) == 0);
    }
    return intra;
}

ClipFacts ProbeClip(const std::string& file) {
    static std::map<std::string, ClipFacts> known;
    if (const auto found = known.find(file); found != known.end()) return found->second;
    ClipFacts facts;
    AvformatFile clip(file);
    while (const auto packet = clip.Next()) {
        facts.m_Start = std::min(facts.m_Start, packet->m_Time);
        facts.m_End = std::max(facts.m_End, packet->m_Time + packet->m_Duration);
        facts.m_Keys.push_back(packet->m_IsKey);
    }
    if (fs::path(file).extension() == ".avi") facts.m_Keys = IntraPictures(file);
    known[file] = facts;
    return facts;
}

// A case and the properties of its clips.
struct Asked {
    explicit Asked(const Case& one) : m_Tags(one.StaticTags()) {
        double start = 1e9;
        double end = 0;
        for (const bool isVideo : {true, false}) {
            if (isVideo ? one.m_pVideo == nullptr : one.m_pAudio == nullptr) continue;
            ClipFacts& facts = isVideo ? m_Video : m_Audio;
            facts = ProbeClip(ClipPath(isVideo ? one.m_pVideo->m_Clip : one.m_pAudio->m_Clip));
            // The times of a transport stream may begin anywhere: the file counts them from the stream's start.
            const bool countsFromZero =
                fs::path(isVideo ? one.m_pVideo->m_Clip : one.m_pAudio->m_Clip).extension() != ".ts";
            start = std::min(start, countsFromZero ? facts.m_Start : 0);
            end = std::max(end, countsFromZero ? facts.m_End : facts.m_End - facts.m_Start);
        }
        m_Duration = std::to_string(end - start);
    }

    Tags m_Tags;
    ClipFacts m_Video;
    ClipFacts m_Audio;
    std::string m_Duration;
    std::map<std::string, std::string> m_Values;
};

std::vector<Difference> Known() { return ReadKnownDifferences(QF_SOURCE "/Docs/Readers.md"); }

// A block that refers to its own time continues a picture. It counts as a block without a reference.
bool IsKey(const Ebml::Block& block) {
    return block.m_Simple ? (block.m_Flags & 0x80) != 0 : block.m_Reference.value_or(0) == 0;
}

class Matrix : public testing::TestWithParam<Case> {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    void Make();
    void Remux();
    void AskFfmpeg(const std::vector<Ebml::Cue>& cues);
    void Expect(const std::string& reader, const std::string& property, const std::string& says,
                const std::string& asked);
    void ExpectFacts(const std::string& reader, const Facts& says, const char* videoCodec, const char* audioCodec,
                     const std::set<std::string>& silentOn);
    void CheckPayloads();
    void CheckDecoding();
    void CheckFacts();
    void CheckWebmInfo();
    void CheckSeeking(const Ebml::File& file);
    void CheckRemux();
    void CompareWithTheTable();

    TempDirectory m_Directory;
    const Case& m_Case = GetParam();
    Asked m_Asked{GetParam()};
    std::string m_File = Path("out." + GetParam().m_Extension);
    std::string m_VideoClip = m_Case.m_pVideo != nullptr ? ClipPath(m_Case.m_pVideo->m_Clip) : "";
    std::string m_AudioClip = m_Case.m_pAudio != nullptr ? ClipPath(m_Case.m_pAudio->m_Clip) : "";
    std::string m_Remux = Path("remux.mkv");     // mkvmerge's
    json m_Report;                               // qfmux's
    std::string m_Complaints;                    // ffmpeg's about the file
    std::map<std::string, std::string> m_Source; // the answers about the clips, by the kind of track
    std::map<std::string, std::string> m_SourceCopied;

    struct Observed {
        std::string m_Reader;
        std::string m_Property;
        std::string m_Says;
        std::string m_Asked;
    };
    std::vector<Observed> m_Differences;
};

// Makes the file with qfmux. For late set-up data it records qfmux's session, moves the set-up calls behind the first
// frames, and replays the session.
void Matrix::Make() {
    const bool late = m_Case.m_LateSetup == LateSetup::Yes;
    std::string line = Quoted(QF_QFMUX) + " --json " + m_Case.m_Options;
    if (m_Case.m_pVideo != nullptr) line += std::string(" ") + m_Case.m_pVideo->m_Options;
    if (late) line += " --record " + Quoted(Path("session"));
    if (!m_VideoClip.empty()) line += " " + Quoted(m_VideoClip);
    if (!m_AudioClip.empty()) line += " " + Quoted(m_AudioClip);
    const std::string output = late ? Path("early." + m_Case.m_Extension) : m_File;
    const CommandResult made = RunCommand(line + " " + Quoted(output) + " 2>" + Quoted(Path("words")));
    const int expected = m_Asked.m_Tags.count("split") != 0 ? 1 : 0;
    ASSERT_EQ(made.m_ExitCode, expected) << RunCommand("cat " + Quoted(Path("words"))).m_Output;
    m_Report = json::parse(made.m_Output);
    if (!late) return;

    constexpr int kFramesBefore = 60;
    std::vector<std::string> kept;
    std::vector<std::string> moved;
    std::ifstream in(Path("session"));
    for (std::string call; std::getline(in, call);) {
        const bool isSetup =
            call.find("\"WriteVosData\"") != std::string::npos || call.find("\"WritezXPSData\"") != std::string::npos;
        (isSetup ? moved : kept).push_back(call);
    }
    ASSERT_FALSE(moved.empty());
    int frames = 0;
    std::ofstream out(Path("session"));
    for (const std::string& call : kept) {
        out << call << "\n";
        if (call.find("Packet\"") == std::string::npos || ++frames != kFramesBefore) continue;
        for (const std::string& setup : moved) out << setup << "\n";
    }
    out.close();
    ASSERT_GE(frames, kFramesBefore);
    const CommandResult replayed = RunCommand(Quoted(QF_QFREPLAY) + " " + Quoted(QF_PLUGIN) + " " +
                                              Quoted(Path("session")) + " " + Quoted(m_File) + " 2>&1");
    ASSERT_EQ(replayed.m_ExitCode, 0) << replayed.m_Output;
    // Room of 1,024 octets or more shows that the data came after the Tracks element was written.
    const Ebml::File file(ReadFile(m_File));
    for (const Ebml::Element* entry : file.Children("Segment/Tracks", "TrackEntry")) {
        const std::string codec = file.Text(entry->m_Path + "/CodecID");
        if (codec == "V_VP8") continue;
        EXPECT_GE(file.At(entry->m_Path + "/CodecPrivate").m_PayloadSize, 1024U) << codec;
    }
}

void Matrix::Remux() {
    const CommandResult merged = RunCommand("mkvmerge --quiet -o " + Quoted(m_Remux) + " " + Quoted(m_File) + " 2>&1");
    std::string words = merged.m_Output;
    std::replace(words.begin(), words.end(), '\n', ' ');
    Expect("mkvmerge", "remux complaints", words, "");
    EXPECT_LE(merged.m_ExitCode, 1);
}

// Asks ffmpeg about the file, whose complaints count, and in a second run about clips that are new, the copied octets,
// the remux and the first picture after a seek to each cue. The answers are files with the names that the checks read.
void Matrix::AskFfmpeg(const std::vector<Ebml::Cue>& cues) {
    FfmpegRun decode;
    decode.Open(m_File);
    decode.Ask("", "-f null", "-");
    FfmpegRun other;
    std::map<std::string, const char*> copies; // how to copy each kind of track
    for (const json& track : m_Report["tracks"]) {
        const bool isVideo = track["kind"] == "video";
        const std::string kind = isVideo ? "v" : "a";
        const bool splits = isVideo && m_Case.m_pVideo->m_SplitUnits;
        copies[kind] = splits ? kUnits : kCopy;
        decode.Ask(":" + kind, kHash, Path("file." + kind));

        // qfmux reports the filters by which it changes a stream: it puts headers in front of key frames, removes ADTS
        // headers, or replaces lengths by start codes. The source must pass the same filters.
        const std::string filters = track["filters"];
        const std::string copy = copies[kind] + (filters.empty() || splits ? "" : " -bsf:" + kind + " " + filters);
        const std::string& clip = isVideo ? m_VideoClip : m_AudioClip;
        m_SourceCopied[kind] = ClipAnswer(clip, copy);
        if (!fs::exists(m_SourceCopied[kind])) {
            other.Open(clip);
            other.Ask(":" + kind, copy, m_SourceCopied[kind]);
        }
        m_Source[kind] = ClipAnswer(clip, "decoded");
        if (!fs::exists(m_Source[kind])) {
            other.Open(clip, isVideo ? "" : m_Case.m_pAudio->m_SourceOptions);
            other.Ask(":" + kind, kHash, m_Source[kind]);
            if (isVideo) other.Ask(":v", kPictureHashes, ClipAnswer(clip, "pictures"));
        }
    }
    other.Open(m_File);
    for (const auto& [kind, copy] : copies) other.Ask(":" + kind, copy, Path("file copied." + kind));
    const std::string all = "-flags2 +skip_manual"; // samples, also those that an edit list leaves out
    other.Open(m_Remux, all);
    for (const auto& [kind, copy] : copies) other.Ask(":" + kind, kHash, Path("remux." + kind));
    if (copies.count("a") != 0) {
        other.Open(m_File, all);
        other.Ask(":a", kHash, Path("all samples.a"));
    }
    for (const Ebml::Cue& cue : cues) {
        if (copies.count("v") == 0) break;
        const std::string time = std::to_string(cue.m_Time);
        other.Open(m_File, "-seek_timestamp 1 -ss " + time + "ms");
        other.Ask(":v", std::string("-frames:v 1 ") + kPictureHashes, Path("seek to " + time));
    }
    m_Complaints = decode.Run("warning");
    other.Run("quiet");
}

void Matrix::Expect(const std::string& reader, const std::string& property, const std::string& says,
                    const std::string& asked) {
    if (!SameValue(property, says, asked)) m_Differences.push_back({reader, property, says, asked});
}

void Matrix::ExpectFacts(const std::string& reader, const Facts& says, const char* videoCodec, const char* audioCodec,
                         const std::set<std::string>& silentOn) {
    Facts asked = {{"complaints", ""}, {"duration", m_Asked.m_Duration}};
    if (videoCodec != nullptr) {
        asked["video codec"] = videoCodec;
        asked["size"] = "320x180";
        asked["display size"] = "320x180";
        // An uneven clip has the mean rate, which qfmux reports.
        asked["frame rate"] = m_Asked.m_Tags.count("uneven") != 0 ? m_Report["tracks"][0]["frameRate"].dump() : "25";
        asked["key frames"] = Places(m_Asked.m_Video.m_Keys);
    }
    if (audioCodec != nullptr) {
        asked["audio codec"] = audioCodec;
        asked["sample rate"] = std::to_string(m_Case.m_pAudio->m_Rate);
        asked["channels"] = std::to_string(m_Case.m_pAudio->m_Channels);
    }
    asked["container"] = m_Case.m_Extension == "webm" ? "webm" : "matroska";
    for (const auto& [property, value] : asked) {
        if (silentOn.count(property) != 0) continue;
        const auto said = says.find(property);
        Expect(reader, property, said == says.end() ? "nothing" : said->second, value);
    }
}

void Matrix::CheckPayloads() {
    for (const json& track : m_Report["tracks"]) {
        const bool isVideo = track["kind"] == "video";
        const std::string property = isVideo ? "picture octets" : "sound octets";
        const std::string kind = isVideo ? "v" : "a";
        const std::string& source = m_SourceCopied[kind];
        const std::string file = Path("file copied." + kind);
        bool same = false;
        if (isVideo && m_Case.m_pVideo->m_SplitUnits) {
            const bool slicesOnly = m_Case.m_pVideo->m_SlicesOnly;
            const std::string units = Units(ReadAnswer(source), slicesOnly);
            ASSERT_FALSE(units.empty());
            same = Units(ReadAnswer(file), slicesOnly) == units;
        } else {
            same = SameHash(file, source);
        }
        Expect("ffmpeg", property, same ? kSame : kOther, kSame);
    }
}

void Matrix::CheckDecoding() {
    Expect("ffmpeg", "complaints", m_Complaints, "");
    if (m_Case.m_pVideo != nullptr) {
        Expect("ffmpeg", "pictures", SameHash(Path("file.v"), m_Source["v"]) ? kSame : kOther, kSame);
    }
    if (m_Case.m_pAudio != nullptr) {
        Expect("ffmpeg", "sound", SameHash(Path("file.a"), m_Source["a"]) ? kSame : kOther, kSame);
    }
}

void Matrix::CheckFacts() {
    const CodecNames* const video = m_Case.m_pVideo != nullptr ? &m_Case.m_pVideo->m_Codec : nullptr;
    const CodecNames* const audio = m_Case.m_pAudio != nullptr ? &m_Case.m_pAudio->m_Codec : nullptr;
    const auto name = [](const CodecNames* codec, const char* CodecNames::*reader) {
        return codec != nullptr ? codec->*reader : nullptr;
    };
    // Each reader with the properties that it does not report.
    ExpectFacts("mkvinfo", MkvinfoFacts(m_File), name(video, &CodecNames::m_CodecID),
                name(audio, &CodecNames::m_CodecID), {});
    ExpectFacts("mkvmerge", MkvmergeFacts(m_File), name(video, &CodecNames::m_Mkvmerge),
                name(audio, &CodecNames::m_Mkvmerge), {"key frames", "container"});
    ExpectFacts("mediainfo", MediainfoFacts(m_File), name(video, &CodecNames::m_Mediainfo),
                name(audio, &CodecNames::m_Mediainfo), {"key frames", "display size"});
    ExpectFacts("GstDiscoverer", GstDiscovererFacts(m_File), name(video, &CodecNames::m_Gstreamer),
                name(audio, &CodecNames::m_Gstreamer), {"key frames", "display size", "container"});
    ExpectFacts("libavformat", AvformatFacts(m_File), name(video, &CodecNames::m_Avformat),
                name(audio, &CodecNames::m_Avformat), {"display size", "container"});
}

// webm_info refuses a display size of zero. It must accept a copy with another display size, and reports the facts
// there.
void Matrix::CheckWebmInfo() {
    Facts says = WebmInfoFacts(m_File);
    Expect("webm_info", "complaints", says["complaints"], "");
    if (!says["complaints"].empty()) {
        const Ebml::File file(ReadFile(m_File));
        Octets octets = file.Data();
        for (const char* side : {"DisplayWidth", "DisplayHeight"}) {
            const std::string path = std::string("Segment/Tracks/TrackEntry[0]/Video/") + side;
            ASSERT_EQ(file.At(path).m_PayloadSize, 1U);
            octets[file.At(path).PayloadOffset()] = 1;
        }
        const std::string mended = Path("mended.webm");
        std::ofstream(mended, std::ios::binary)
            .write(reinterpret_cast<const char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
        says = WebmInfoFacts(mended);
        EXPECT_EQ(says["complaints"], "");
    }
    const char* const video = m_Case.m_pVideo != nullptr ? m_Case.m_pVideo->m_Codec.m_CodecID : nullptr;
    const char* const audio = m_Case.m_pAudio != nullptr ? m_Case.m_pAudio->m_Codec.m_CodecID : nullptr;
    ExpectFacts("webm_info", says, video, audio, {"display size"});
}

// Seeks to every cue. A reader lands right when the first frame that it reads is in the cue's cluster. The right
// picture is that of the first key frame from there on. In the Matroska formats this is the cue's own frame. In WebM,
// where a cluster may begin without a key frame, it is the next key frame, and no picture is right when no key frame
// follows.
void Matrix::CheckSeeking(const Ebml::File& file) {
    const bool hasPicture = m_Case.m_pVideo != nullptr;
    const std::vector<Ebml::Block> blocks = file.BlocksOf(hasPicture ? 1 : 2);
    const std::vector<const Ebml::Element*> clusters = file.Children("Segment", "Cluster");
    const std::size_t segment = file.At("Segment").PayloadOffset();
    std::vector<std::string> pictures;
    std::vector<std::int64_t> shown; // times in the order of presentation
    if (hasPicture) {
        pictures = PictureHashes(ClipAnswer(m_VideoClip, "pictures"));
        for (const Ebml::Block& block : blocks) shown.push_back(block.Time());
        std::sort(shown.begin(), shown.end());
        shown.erase(std::unique(shown.begin(), shown.end()), shown.end());
        ASSERT_EQ(shown.size(), pictures.size());
    }

    std::optional<GstPlayer> player;
    std::string failure;
    try {
        player.emplace(m_File, hasPicture);
        if (hasPicture) {
            Expect("GStreamer", "key frames", Places(player->PlayForKeyFlags()), Places(m_Asked.m_Video.m_Keys));
            player.emplace(m_File, hasPicture);
        }
    } catch (const std::runtime_error& error) {
        failure = error.what();
        player.reset();
    }
    Expect("GStreamer", "complaints", failure, "");

    const std::vector<Ebml::Cue> cues = file.Cues();
    ASSERT_FALSE(cues.empty());
    AvformatFile seeker(m_File);
    std::map<std::string, std::string> ffmpeg = {{"seek place", ""}, {"seek picture", ""}};
    std::map<std::string, std::string> gstreamer = ffmpeg;
    for (const Ebml::Cue& cue : cues) {
        const auto found = std::find_if(clusters.begin(), clusters.end(), [&](const Ebml::Element* cluster) {
            return cluster->m_Offset == segment + cue.m_ClusterPosition;
        });
        ASSERT_NE(found, clusters.end());
        const auto cluster = static_cast<std::size_t>(found - clusters.begin());
        const auto right = std::find_if(blocks.begin(), blocks.end(), [&](const Ebml::Block& block) {
            return block.m_Cluster >= cluster && IsKey(block);
        });
        const auto time = static_cast<std::int64_t>(cue.m_Time);
        if (m_Case.m_Extension != "webm") {
            ASSERT_NE(right, blocks.end());
            EXPECT_EQ(right->Time(), time);
        }
        std::string wanted;
        if (hasPicture && right != blocks.end()) {
            const auto place = std::lower_bound(shown.begin(), shown.end(), right->Time());
            wanted = pictures[static_cast<std::size_t>(place - shown.begin())];
        }
        const std::string name = std::to_string(time) + ":";
        const auto note = [&name](std::string& words, const std::string& what) {
            words += (words.empty() ? "" : " ") + name + what;
        };
        const auto notePicture = [&](std::map<std::string, std::string>& reader, const std::string& hash) {
            if (!hasPicture || hash == wanted) return;
            const auto which = std::find(pictures.begin(), pictures.end(), hash);
            std::string what = hash.empty() ? "none" : "damaged";
            if (which != pictures.end())
                what = std::to_string(shown[static_cast<std::size_t>(which - pictures.begin())]);
            note(reader["seek picture"], what);
        };

        seeker.SeekTo(time);
        auto first = seeker.Next();
        while (first && first->m_IsVideo != hasPicture) first = seeker.Next();
        if (!first) {
            note(ffmpeg["seek place"], "none");
        } else {
            const auto position = static_cast<std::size_t>(first->m_Position);
            if (position < (*found)->m_Offset || position >= (*found)->End()) note(ffmpeg["seek place"], "elsewhere");
        }
        if (hasPicture) {
            const std::vector<std::string> shownFirst = PictureHashes(Path("seek to " + std::to_string(time)));
            notePicture(ffmpeg, shownFirst.empty() ? "" : shownFirst[0]);
        }

        if (!player) continue;
        try {
            const GstLanding landing = player->Seek(time);
            const bool landed = std::any_of(blocks.begin(), blocks.end(), [&](const Ebml::Block& block) {
                return block.m_Cluster == cluster && block.Time() == landing.m_FrameTime;
            });
            if (!landed) note(gstreamer["seek place"], landing.m_FrameTime ? "elsewhere" : "none");
            notePicture(gstreamer, landing.m_Picture);
        } catch (const std::runtime_error& error) {
            note(gstreamer["seek place"], error.what());
        }
    }
    for (const auto& [property, says] : ffmpeg) Expect("ffmpeg", property, says.empty() ? kRight : says, kRight);
    if (!player) return;
    for (const auto& [property, says] : gstreamer) Expect("GStreamer", property, says.empty() ? kRight : says, kRight);
}

void Matrix::CheckRemux() {
    if (m_Case.m_pVideo != nullptr) {
        Expect("mkvmerge", "remux pictures", SameHash(Path("remux.v"), Path("file.v")) ? kSame : kOther, kSame);
    }
    if (m_Case.m_pAudio != nullptr) {
        Expect("mkvmerge", "remux sound", SameHash(Path("remux.a"), Path("all samples.a")) ? kSame : kOther, kSame);
    }
}

void Matrix::CompareWithTheTable() {
    const std::vector<Difference> known = Known();
    std::vector<bool> occurred(m_Differences.size());
    for (const Difference& row : known) {
        if (!row.Concerns(m_Asked.m_Tags)) continue;
        for (const std::string& reader : row.m_Readers) {
            bool found = false;
            for (std::size_t i = 0; i < m_Differences.size(); ++i) {
                const Observed& seen = m_Differences[i];
                if (!row.Covers(seen.m_Reader, seen.m_Property, seen.m_Says, m_Asked.m_Values)) continue;
                if (seen.m_Reader == reader) found = true;
                occurred[i] = true;
            }
            // webm_info reads WEBM files only.
            if (reader == "webm_info" && m_Case.m_Extension != "webm") continue;
            EXPECT_TRUE(found) << "Docs/Readers.md line " << row.m_Line << ": " << reader << " no longer says '"
                               << row.m_Says << "' of " << row.m_Property;
        }
    }
    std::string tags;
    for (const std::string& tag : m_Asked.m_Tags) tags += (tags.empty() ? "" : ", ") + tag;
    for (std::size_t i = 0; i < m_Differences.size(); ++i) {
        const Observed& seen = m_Differences[i];
        EXPECT_TRUE(occurred[i]) << "not in Docs/Readers.md: " << seen.m_Reader << " | " << seen.m_Property
                                 << " | says '" << seen.m_Says << "' | asked '" << seen.m_Asked
                                 << "' | of a file that is " << tags;
    }
}

TEST_P(Matrix, ReadersAgree) {
    ASSERT_NO_FATAL_FAILURE(Make());
    const Ebml::File file(ReadFile(m_File));
    Remux();
    AskFfmpeg(file.Cues());
    CheckPayloads();
    CheckDecoding();
    CheckFacts();
    if (m_Case.m_Extension == "webm") CheckWebmInfo();
    CheckSeeking(file);
    CheckRemux();
    CompareWithTheTable();
}

INSTANTIATE_TEST_SUITE_P(Files, Matrix, testing::ValuesIn(MatrixCases()),
                         [](const testing::TestParamInfo<Case>& one) { return one.param.Name(); });

TEST(KnownDifferences, EveryRowMeetsAFile) {
    std::vector<Tags> files;
    for (const Case& one : MatrixCases()) files.push_back(one.StaticTags());
    for (const Difference& row : Known()) {
        EXPECT_TRUE(std::any_of(files.begin(), files.end(), [&](const Tags& tags) { return row.Concerns(tags); }))
            << "Docs/Readers.md line " << row.m_Line;
    }
}

} // namespace
