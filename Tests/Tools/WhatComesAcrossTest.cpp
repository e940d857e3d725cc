// SPDX-License-Identifier: MIT
// The tables of Docs/WhatComesAcross.md: each row has a source here, and each source a row.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Octets.h"
#include "QfmuxCommand.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Fate {
    std::string m_Kind; // empty where it comes across
    int m_ExitCode;
};

struct Row {
    Fate m_Copied;
    Fate m_Encoded;
    bool m_IsKnownBefore; // to --dry-run
};

// By their first cell.
std::map<std::string, Row> RowsOfThePage() {
    std::ifstream page(QF_SOURCE "/Docs/WhatComesAcross.md");
    std::map<std::string, Row> rows;
    int tables = 0;
    bool isIn = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| a source has |", 0) == 0) {
            ++tables;
            isIn = true;
            std::getline(page, line); // the rule below the heads
            continue;
        }
        isIn = isIn && line.rfind("| ", 0) == 0;
        if (!isIn) continue;
        std::vector<std::string> cells;
        std::istringstream words(line.substr(1));
        for (std::string cell; std::getline(words, cell, '|');) {
            cell.erase(0, cell.find_first_not_of(" `"));
            cell.erase(cell.find_last_not_of(" `") + 1);
            cells.push_back(cell);
        }
        if (cells.size() != 7) throw std::runtime_error("not a row: " + line);
        rows[cells[0]] = {{cells[2], std::stoi(cells[3])}, {cells[5], std::stoi(cells[6])}, tables == 1};
    }
    return rows;
}

struct Source {
    const char* m_Row;
    const char* m_Name; // of the file
    std::string
        m_Make; // commands of the shell, in a folder of their own; CLIP, WEBM and SOUND are clips of the tools' tests
    const char* m_Output = "out.mkv";
    std::function<void()> m_Patch = nullptr; // what no muxer at hand writes
    // What a command says of the file when it came across, copied and encoded.
    const char* m_Ask = "";
    const char* m_Answer = "";
    const char* m_EncodedAnswer = m_Answer;
};

// Puts octets over the file, so many behind the first place of some others.
void Patch(const char* file, const Octets& from, const Octets& to, std::size_t behind = 0) {
    Octets octets = ReadFile(file);
    const auto found = std::search(octets.begin(), octets.end(), from.begin(), from.end());
    if (found == octets.end()) throw std::runtime_error(std::string("nothing to patch in ") + file);
    std::copy(to.begin(), to.end(), found + static_cast<std::ptrdiff_t>(behind));
    WriteFile(file, octets);
}

// Adds a box to the end of another one, whose path is given. To a file whose other data lie before these boxes.
void AddBox(const char* file, const std::vector<const char*>& path, const Octets& box) {
    Octets octets = ReadFile(file);
    auto at = octets.begin();
    std::size_t size = 0;
    for (const char* const code : path) {
        const Octets name = Ascii(code);
        at = std::search(at, octets.end(), name.begin(), name.end());
        if (at - octets.begin() < 4 || at == octets.end()) throw std::runtime_error(std::string("no box ") + code);
        size = 0;
        for (auto octet = at - 4; octet != at; ++octet) size = size * 256 + static_cast<std::uint8_t>(*octet);
        for (std::size_t i = 0, rest = size + box.size(); i < 4; ++i, rest /= 256) {
            *(at - 1 - static_cast<std::ptrdiff_t>(i)) = static_cast<Octets::value_type>(rest % 256);
        }
    }
    octets.insert(at - 4 + static_cast<std::ptrdiff_t>(size), box.begin(), box.end());
    WriteFile(file, octets);
}

const std::string kPicture = "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=25:duration=0.4 ";
const std::string kCopy = "ffmpeg -nostdin -v error -i CLIP -map 0:v -c copy ";
const std::string kSound = "ffmpeg -nostdin -v error -i SOUND -t 1 ";
// mkvmerge warns of what it changes, with exit code 1.
const auto Mkvmerge = [](const std::string& options) {
    return "mkvmerge -q -o in.mkv " + options + " --no-audio CLIP >/dev/null || [ $? = 1 ]";
};
constexpr const char* kAskColours = "ffprobe -v error -select_streams v -show_entries "
                                    "stream=color_primaries,color_transfer,color_space -of csv=p=0 out.mkv";

constexpr const char* kAskSize = "ffprobe -v error -show_entries stream=width,height -of csv=p=0 out.*";

std::vector<Source> Sources() {
    return {
        {"H.264 with all its units: captions, recovery points, other SEI", "in.mp4",
         kPicture + "-c:v libx264 -x264-params open-gop=1:keyint=5:bframes=2 in.mp4", "out.mkv", nullptr,
         "ffmpeg -v error -i out.mkv -c copy -bsf:v h264_mp4toannexb,trace_headers -f null - -v trace 2>&1 | "
         "grep -c 'Recovery Point' | sed 's/^[1-9].*/some/'",
         "some\n", "0\n"},
        {"colour data in its H.264 frames", "in.mp4",
         kPicture + "-c:v libx264 -color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc in.mp4", "out.mkv",
         nullptr, kAskColours, "bt2020nc,smpte2084,bt2020\n", "bt709,bt709,bt709\n"},
        {"colour data that its container alone has", "in.mkv",
         Mkvmerge("--colour-primaries 0:9 --colour-transfer-characteristics 0:1 --colour-matrix-coefficients 0:9"),
         "out.mkv", nullptr, kAskColours, "", "bt2020nc,bt709,bt2020\n"},
        {"HDR data that its container alone has: mastering display, content light level", "in.mkv",
         Mkvmerge("--max-content-light 0:1000 --max-frame-light 0:400 --max-luminance 0:1000 --min-luminance 0:0.01 "
                  "--chromaticity-coordinates 0:0.68,0.32,0.265,0.69,0.15,0.06 "
                  "--white-colour-coordinates 0:0.3127,0.3290")},
        {"a configuration of Dolby Vision", "in.mp4", kCopy + "in.mp4", "out.mkv",
         [] { // in the place of the bit rates
             Patch("in.mp4", Ascii("btrt"), Ascii("dvvC"));
             Patch("in.mp4", Ascii("dvvC"), Hex("01 00 10 21 10 00 00 00 00 00 00 00"), 4);
         }},
        {"an ICC profile", "in.mov", kCopy + "-color_primaries bt709 -color_trc bt709 -colorspace bt709 in.mov",
         "out.mkv", [] { Patch("in.mov", Ascii("colrnclc"), Ascii("colrprof")); }},
        {"pixels that are not square, into Matroska", "in.mp4", kCopy + "-aspect 4:3 in.mp4", "out.mkv", nullptr,
         "ffprobe -v error -select_streams v -show_entries stream=display_aspect_ratio -of csv=p=0 out.mkv", "4:3\n"},
        {"pixels that are not square, into WebM", "in.webm", kPicture + "-c:v libvpx -aspect 4:3 in.webm", "out.webm",
         nullptr, kAskSize, "", "86,64\n"},
        {"a rotation", "in.mp4", kCopy + "-metadata:s:v rotate=90 in.mp4", "out.mkv", nullptr, kAskSize, "",
         "180,320\n"},
        {"cropping in an MP4 file (clean aperture)", "in.mp4", kCopy + "in.mp4", "out.mkv",
         [] { // 300 by 160 pixels of 320 by 180; their middle lies 4 to the right of the pictures' and 2 above
             AddBox("in.mp4", {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"},
                    Hex("00 00 00 28 63 6C 61 70 00 00 01 2C 00 00 00 01 00 00 01 40 00 00 00 02 "
                        "00 00 00 04 00 00 00 01 FF FF FF FE 00 00 00 01"));
         },
         kAskSize, "", "300,160\n"},
        {"cropping in a Matroska file", "in.mkv", Mkvmerge("--cropping 0:4,4,4,4"), "out.mkv", nullptr, kAskSize, "",
         "312,172\n"},
        {"stereo 3D that its H.264 frames tell of", "in.mkv",
         kPicture + "-c:v libx264 -x264-params frame-packing=3 in.mkv", "out.mkv", nullptr,
         "ffprobe -v error -read_intervals %+#1 -show_frames -of json out.mkv | grep -o 'Stereo 3D'", "Stereo 3D\n"},
        {"stereo 3D that its container alone tells of", "in.mkv", Mkvmerge("--stereo-mode 0:1")},
        {"a spherical projection", "in.mkv", Mkvmerge("--projection-type 0:1")},
        {"transparency", "in.webm",
         "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=25:duration=0.4,format=yuva420p -c:v libvpx "
         "-auto-alt-ref 0 in.webm",
         "out.webm"},
        {"a field order that its frames do not tell", "in.mkv", kPicture + "-c:v libvpx -field_order tt in.mkv"},
        {"a field order that its frames tell", "in.mpg",
         kPicture + "-vf setfield=tff -c:v mpeg2video -flags +ildct+ilme in.mpg", "out.mkv", nullptr,
         "ffprobe -v error -show_entries stream=field_order -of csv=p=0 out.mkv | grep -o tt", "tt\n"},
        {"a second video stream", "in.mp4", "ffmpeg -nostdin -v error -i CLIP -map 0:v -map 0:v -c copy in.mp4"},
        {"a second audio stream", "in.mp4", "ffmpeg -nostdin -v error -i CLIP -map 0 -map 0:a -c copy in.mp4"},
        {"video, into a file for sound", "in.mp4", "ln -s CLIP in.mp4", "out.mka"},
        {"subtitles", "in.mkv",
         "printf '1\\n00:00:00,000 --> 00:00:01,000\\nHello\\n' > in.srt; ffmpeg -nostdin -v error -i CLIP -i in.srt "
         "-map 0 -map 1 -c copy -c:s srt in.mkv"},
        {"a data stream, such as a time code", "in.mov", kCopy + "-timecode 01:00:00:00 in.mov"},
        {"the navigation data of a DVD", "in.vob", kPicture + "-c:v mpeg2video -f dvd in.vob"},
        {"attachments", "in.mkv", "echo a >a.txt; " + kCopy + "-attach a.txt -metadata:s:t mimetype=text/plain in.mkv"},
        {"a cover picture", "in.mp4",
         kPicture + "-frames:v 1 c.jpg; ffmpeg -nostdin -v error -i CLIP -i c.jpg -map 0 -map 1 -c copy "
                    "-disposition:v:1 attached_pic in.mp4"},
        {"chapters", "in.mp4",
         "printf ';FFMETADATA1\\n[CHAPTER]\\nTIMEBASE=1/1\\nSTART=0\\nEND=1\\ntitle=One\\n' > c.txt; "
         "ffmpeg -nostdin -v error -i CLIP -i c.txt -map 0:v -map_metadata 1 -c copy in.mp4"},
        {"a title", "in.mp4", kCopy + "-metadata title=Film in.mp4"},
        {"tags", "in.mp4", kCopy + "-metadata artist=Somebody in.mp4"},
        {"languages of its tracks", "in.mp4", kCopy + "-metadata:s:v language=ger in.mp4"},
        {"names of its tracks", "in.mkv", Mkvmerge("--track-name 0:Camera")},
        {"flags: not default, forced, for the hard of hearing, ...", "in.mkv", Mkvmerge("--forced-display-flag 0:1")},
        {"replay gain", "in.mp3", kSound + "-c:a libmp3lame -metadata REPLAYGAIN_TRACK_GAIN='-3.00 dB' in.mp3",
         "out.mka"},
        {"sound with an encoder delay, in MP4", "in.mp4", kSound + "-c:a aac in.mp4", "out.mka"},
        {"sound whose end is trimmed, in Ogg", "in.ogg", kSound + "-c:a libvorbis in.ogg", "out.mka"},
        {"sound whose end is trimmed, in Matroska with cues", "in.mkv",
         "ffmpeg -nostdin -v error -f lavfi -i sine=duration=3 -c:a libvorbis s.ogg; ffmpeg -nostdin -v error -i CLIP "
         "-i s.ogg -map 0:v -map 1:a -c copy in.mkv"},
        {"PCM sound whose channels are not in the usual places", "in.wav",
         kSound + "-af 'pan=5.1(side)|c0=c0|c1=c0|c2=c0|c3=c0|c4=c0|c5=c0' in.wav", "out.mka"},
        {"PCM sound with channels overhead", "in.wav",
         "ffmpeg -nostdin -v error -f lavfi -i 'aevalsrc=0.1|0.1|0.1|0.1:c=FL+FR+TFL+TFR:d=0.2' in.wav", "out.mka"},
        {"an edit list that hides its first pictures", "in.mp4",
         "ffmpeg -nostdin -v error -ss 0.3 -i CLIP -map 0:v -c copy in.mp4", "out.mkv", nullptr,
         "for file in in.mp4 out.mkv; do ffmpeg -nostdin -v error -i $file -f framemd5 - | grep -c '^0'; done | uniq",
         "", "67\n"},
        {"an edit list of several parts of video", "in.mp4",
         "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=25:duration=3 -c:v libx264 -g 75 whole.mp4; "
         "ffmpeg -nostdin -v error -itsoffset 1 -i whole.mp4 -c copy in.mp4",
         "out.mkv",
         // The film's late begin becomes a first part, and the second one begins in the midst of a group of pictures.
         [] {
             Patch("in.mp4", Ascii("elst"), Hex("00 00 00 00"), 16);
             Patch("in.mp4", Ascii("elst"), Hex("00 00 4F 00"), 28);
         },
         "for file in in.mp4 out.mkv; do ffmpeg -nostdin -v error -i $file -vsync passthrough -f framemd5 - | "
         "awk -F, '/^0/ {print $3}' | md5sum; done | uniq | wc -l",
         "", "1\n"},
        {"an edit list of several parts of sound", "in.mp4",
         "ffmpeg -nostdin -v error -itsoffset 1 -i CLIP -map 0:a -c copy in.mp4", "out.mka",
         [] { Patch("in.mp4", Ascii("elst"), Hex("00 00 00 00"), 16); }},
        {"an edit list that changes the speed", "in.mp4", kCopy + "in.mp4", "out.mkv",
         [] { Patch("in.mp4", Ascii("elst"), Hex("00 00 80 00"), 20); }},
        {"key frames more than a second apart, into WebM", "in.webm", "ln -s WEBM in.webm", "out.webm"},
        {"a last picture that stands for more than a second", "in.mp4",
         "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:rate=1/3:duration=9 -c:v libx264 -bf 0 in.mp4"},
    };
}

class WhatComesAcross : public testing::Test {
protected:
    WhatComesAcross() : m_Before(fs::current_path()) { fs::current_path(m_Directory / ""); }
    ~WhatComesAcross() override { fs::current_path(m_Before); }

    static std::string Filled(std::string text, const std::string& word, const std::string& value) {
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + value.size())) {
            text.replace(at, word.size(), value);
        }
        return text;
    }

    static void ExpectFate(const Source& source, const Fate& fate, bool isKnownBefore, bool isEncoded) {
        SCOPED_TRACE(isEncoded ? "encoded" : "copied");
        const bool isWritten = !isKnownBefore || fate.m_Kind.empty();
        // What the encoders make need not be small. libvpx in one thread: it lets threads wait by spinning.
        const std::string output = source.m_Output;
        const std::string options = output == "out.mkv"    ? "--video-options preset=ultrafast "
                                    : output == "out.webm" ? "--video-options threads=1,deadline=realtime,cpu-used=8 "
                                                           : "";
        const std::string encode = " --encode all " + options;
        const CommandResult result =
            RunCommand(Quoted(QF_QFMUX) + (isWritten ? " -y --json" : " --dry-run --json") +
                       (isEncoded ? encode : " ") + source.m_Name + " " + source.m_Output + " 2>words");
        EXPECT_EQ(result.m_ExitCode, fate.m_ExitCode) << WordsOf("words");
        const json report = json::parse(result.m_Output);
        std::set<std::string> kinds;
        for (const json& loss : report["lost"]) {
            EXPECT_TRUE(kinds.insert(loss["kind"]).second) << "told twice: " << loss["kind"];
            // On stderr the same words, once, unless they are asked for.
            const std::string words = WordsOf("words");
            const std::string text = loss["text"];
            const std::size_t at = words.find(text);
            EXPECT_EQ(at != std::string::npos, isWritten && loss["weight"] != "as asked") << words;
            if (at == std::string::npos) continue;
            EXPECT_EQ(words.find(text, at + 1), std::string::npos) << words;
        }
        if (!fate.m_Kind.empty()) {
            EXPECT_EQ(kinds.count(fate.m_Kind), 1U) << report["lost"].dump();
            return;
        }
        for (const char* kind : {"colour", "aspect", "rotation", "stereo 3D", "HDR", "trimming", "edit list",
                                 "field order", "seeking", "channel layout"}) {
            EXPECT_EQ(kinds.count(kind), 0U) << kind;
        }
        EXPECT_EQ(RunCommand(std::string(source.m_Ask) + " 2>&1").m_Output,
                  isEncoded ? source.m_EncodedAnswer : source.m_Answer);
    }

    void Make(const Source& source) {
        for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
        std::string line = Filled(source.m_Make, "CLIP", QF_CLIPS "/h264-aac.mp4");
        line = Filled(Filled(line, "WEBM", QF_CLIPS "/vp8-vorbis.webm"), "SOUND", QF_CLIPS "/pcm16.wav");
        const CommandResult made = RunCommand("{ " + line + "; } 2>&1");
        ASSERT_EQ(made.m_ExitCode, 0) << line << "\n" << made.m_Output;
        if (source.m_Patch) source.m_Patch();
    }

    TempDirectory m_Directory;
    fs::path m_Before;
};

TEST_F(WhatComesAcross, IsAsThePageSays) {
    std::map<std::string, Row> rows = RowsOfThePage();
    EXPECT_GT(rows.size(), 30U);
    for (const Source& source : Sources()) {
        SCOPED_TRACE(source.m_Row);
        ASSERT_EQ(rows.count(source.m_Row), 1U) << "the page has no such row";
        const Row row = rows[source.m_Row];
        rows.erase(source.m_Row);
        Make(source);
        ExpectFate(source, row.m_Copied, row.m_IsKnownBefore, false);
        ExpectFate(source, row.m_Encoded, row.m_IsKnownBefore, true);
    }
    for (const auto& [row, unused] : rows) ADD_FAILURE() << "no source for the row: " << row;
}

// A plain film has nothing to lose.
TEST_F(WhatComesAcross, APlainFilmLosesNothing) {
    const CommandResult result = QfmuxResult("--dry-run --json " + Quoted(ClipPath("mpeg2-ac3.mpg")) + " out.mkv");
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_EQ(json::parse(result.m_Output)["lost"], json::array());
}

TEST_F(WhatComesAcross, ARequestedLossIsNoWarning) {
    for (const auto& [row, option] :
         {std::pair{"subtitles", "--no-subtitles"}, std::pair{"a data stream, such as a time code", "--no-data"},
          std::pair{"a second audio stream", "--tracks a:1"}}) {
        const std::vector<Source> sources = Sources();
        const auto source =
            std::find_if(sources.begin(), sources.end(),
                         [&, wanted = std::string(row)](const Source& one) { return one.m_Row == wanted; });
        ASSERT_NE(source, sources.end());
        Make(*source);
        const CommandResult result =
            Qfmux(std::string("--dry-run ") + option + " " + source->m_Name + " " + source->m_Output);
        EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
        EXPECT_NE(result.m_Output.find("left out (as asked)"), std::string::npos) << result.m_Output;
    }
}

} // namespace
