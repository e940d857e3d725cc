// SPDX-License-Identifier: MIT
#include "Options.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <numeric>
#include <regex>
#include <sstream>
#include <string_view>

#include "CommandLine.h"
#include "Messages.h"
#include "Plugin.h"
#include "Target.h"
#include "ToolError.h"

namespace {

// Sections of the help.
constexpr const char* kStreams = "Streams";
constexpr const char* kEncoding = "Encoding";
constexpr const char* kMessages = "Messages";
constexpr const char* kForTests = "For testing a plug-in";

constexpr const char* kExamples = R"(Examples:
  qfmux film.mov film.mkv --encode auto              copies what Matroska players know, encodes the rest
  qfmux film.mp4 film.mkv                            both streams, unchanged
  qfmux film.mp4 sound.mka                           the sound only
  qfmux clip.webm -o clean.webm -y                   replaces clean.webm when the new file is complete
  qfmux video.h264 sound.aac film.mkv --aspect 16:9  from two files
  qfmux film.ts film.mkv --dry-run --json            what would be written and lost

To use a file whose name is that of a subcommand, write ./formats.
Exit codes: 0 done, 1 done with warnings, 2 an input or the plug-in cannot be used, 3 usage, 4 the output exists or
cannot be written, 5 verification failed, 128+n ended by signal n)";

// The plug-in beside this program, or else the installed one.
std::string DefaultPlugin() {
    std::error_code ignored;
    const auto directory = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto beside = directory / "qf_mkv.so";
    const auto installed = (directory / QF_INSTALLED_PLUGIN).lexically_normal();
    return std::filesystem::exists(installed, ignored) && !std::filesystem::exists(beside, ignored) ? installed.string()
                                                                                                    : beside.string();
}

// Both numbers may have decimals: 2.39:1 is 239:100.
Aspect ParseAspect(const std::string& text) {
    static const std::regex kSides(R"((\d{1,6})(?:\.(\d{1,6}))?[:/](\d{1,6})(?:\.(\d{1,6}))?)");
    std::smatch match;
    std::int64_t x = 0;
    std::int64_t y = 0;
    if (std::regex_match(text, match, kSides)) {
        const auto decimals = static_cast<std::size_t>(std::max(match.length(2), match.length(4)));
        const auto scaled = [&](std::size_t whole, std::size_t part) {
            std::string digits = match.str(part);
            digits.resize(decimals, '0');
            return std::stoll(match.str(whole) + digits);
        };
        x = scaled(1, 2);
        y = scaled(3, 4);
        if (const std::int64_t common = std::gcd(x, y); common > 0) {
            x /= common;
            y /= common;
        }
    }
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (x <= 0 || y <= 0 || x > kMost || y > kMost) {
        throw ToolError(kExitUsage, "--aspect takes two numbers like 16:9 or 2.39:1, not '" + text + "'");
    }
    return {static_cast<int>(x), static_cast<int>(y)};
}

void ParseTracks(const std::string& list, Options& options) {
    std::istringstream words(list);
    for (std::string word; std::getline(words, word, ',');) {
        char kind = 0;
        int index = 0;
        char rest = 0;
        if (std::sscanf(word.c_str(), "%c:%9d%c", &kind, &index, &rest) != 2 || index < 0 ||
            (kind != 'v' && kind != 'a')) {
            throw ToolError(kExitUsage, "--tracks takes a list like v:0,a:1, not '" + list + "'");
        }
        std::optional<int>& chosen = kind == 'v' ? options.m_VideoIndex : options.m_AudioIndex;
        if (chosen) throw ToolError(kExitUsage, "--tracks takes at most one stream of each kind, not '" + list + "'");
        chosen = index;
    }
}

std::string VersionText(const std::string& plugin) {
    char version[64] = "";
    Plugin(plugin.c_str()).GetMultiVersion(version);
    return std::string("qfmux with qf_mkv ") + version;
}

// Arguments that are not parsed yet.
struct MuxWords {
    std::vector<std::string> m_Paths;
    std::string m_Tracks;
    std::string m_Aspect;
};

void AddPlugin(CommandLine& line, Options& options) {
    line.Section(kForTests);
    line.Option("--plugin", "FILE", options.m_Plugin,
                "the plug-in to use; by default the one beside this program or the installed one");
}

// Bits per second: "2500000", "2500k", "2.5M".
void AddBitrate(CommandLine& line, const std::string& name, std::int64_t& rate, const std::string& help) {
    const auto read = [name, &rate](const std::string& text) {
        static const std::regex kRate(R"((\d{1,9}(?:\.\d{1,6})?)([kM]?))");
        std::smatch match;
        const bool isRate = std::regex_match(text, match, kRate);
        const double unit = !isRate || match.str(2).empty() ? 1 : match.str(2) == "k" ? 1e3 : 1e6;
        const double value = isRate ? std::stod(match.str(1)) * unit : 0;
        if (value < 1 || value > 1e9) {
            throw ToolError(kExitUsage, name + " takes bits per second like 2500k or 2.5M, not '" + text + "'");
        }
        rate = static_cast<std::int64_t>(value);
    };
    line.Option(name, "RATE", read, help);
}

void AddEncodeOptions(CommandLine& line, Options& options) {
    line.Section(kEncoding);
    line.Choice<EncodeMode>("--encode", options.m_Encode,
                            {{"auto", EncodeMode::Auto},
                             {"video", EncodeMode::Video},
                             {"audio", EncodeMode::Audio},
                             {"all", EncodeMode::All},
                             {"none", EncodeMode::None}},
                            "auto (streams whose codec the format does not list), video, audio, all or none (the "
                            "default)");
    line.Choice("--video-codec", "CODEC", options.m_VideoCodec, TargetNames(AVMEDIA_TYPE_VIDEO),
                "h264 (the default), havc (for hmkv), vp8 (for webm), mpeg4, xvid, mpeg2 or mpeg1");
    line.Choice("--audio-codec", "CODEC", options.m_AudioCodec, TargetNames(AVMEDIA_TYPE_AUDIO),
                "aac (the default), ac3 (for hmkv), vorbis (for webm), mp3, mp2, dts or pcm");
    line.Number(
        "--quality", "N", [&](double quality) { options.m_Quality = quality; },
        "quality of the pictures, 0 to 100; 70 is the default", 0, 100);
    AddBitrate(line, "--video-bitrate", options.m_VideoBitrate, "bits per second instead of a quality, e.g. 2500k");
    AddBitrate(line, "--audio-bitrate", options.m_AudioBitrate, "bits per second, e.g. 192k");
    line.Option("--video-options", "LIST", options.m_VideoOptions,
                "options of the encoder as libavcodec names them, e.g. crf=20,preset=slow");
    line.Option("--audio-options", "LIST", options.m_AudioOptions, "the same for sound");
    line.Flag("--deinterlace", options.m_Deinterlace, "deinterlace pictures that are marked as interlaced");
    line.Option("--size", "WxH", options.m_Size, "scale the pictures, e.g. 1280x720; 1280x or x720 keeps their shape");
    line.Option("--video-filter", "TEXT", options.m_VideoFilter,
                "filters in libavfilter's notation, e.g. hqdn3d,eq=gamma=1.1");
    line.Option("--audio-filter", "TEXT", options.m_AudioFilter, "the same for sound, e.g. loudnorm,aresample=48000");
}

void AddMuxOptions(CommandLine& line, Options& options, MuxWords& words) {
    line.Footer(kExamples);
    line.Arguments("INPUT... OUTPUT", words.m_Paths, "one or two media files that libavformat reads, then the output");
    line.Option("-o,--output", "FILE", options.m_Output, "the file to write; all other names are then inputs");
    line.Choice("--format", "WORD", options.m_Format, {"MKV", "HMKV", "MKA", "WEBM"},
                "mkv, hmkv, mka or webm; the default follows from the output's extension");
    line.Flag("-y,--overwrite", options.m_Overwrite, "replace an existing output when the new file is complete");
    line.Choice<VerifyMode>("--verify", options.m_Verify,
                            {{"full", VerifyMode::Full}, {"decode", VerifyMode::Decode}, {"none", VerifyMode::None}},
                            "full (the default: compares all frames, plays the beginning and up to five other places), "
                            "decode (plays everything) or none (compares sizes only)");
    line.Flag("--sync", options.m_Sync, "flush the file to the disk before the program ends");
    line.Flag("--dry-run", options.m_DryRun, "print what would be written and lost, and write nothing");

    line.Section(kStreams);
    line.Flag("--no-video", options.m_NoVideo, "leave video out");
    line.Flag("--no-audio", options.m_NoAudio, "leave audio out");
    line.Flag("--no-subtitles", options.m_NoSubtitles, "do not warn that subtitles are left out");
    line.Flag("--no-data", options.m_NoData, "do not warn that data streams are left out");
    line.Option("--tracks", "LIST", words.m_Tracks, "the streams to copy, e.g. v:0,a:1, counted over all inputs");
    line.Option("--aspect", "X:Y", words.m_Aspect,
                "display aspect ratio, e.g. 16:9 or 2.39:1; the default is the source's");
    line.Number(
        "--duration", "S", [&](double seconds) { options.m_Duration = seconds; }, "stop after S seconds");

    line.Section(kMessages);
    line.Flag("-q,--quiet", options.m_Quiet, "print errors only");
    line.Flag("-v,--verbose", options.m_Verbose, "print details of each step");
    line.Flag("--json", options.m_Json, "print one JSON object on stdout, even if the run fails");
    line.Choice<ProgressMode>("--progress", options.m_Progress,
                              {{"auto", ProgressMode::Auto},
                               {"bar", ProgressMode::Bar},
                               {"json", ProgressMode::Json},
                               {"none", ProgressMode::None}},
                              "auto (a bar on a terminal), bar, json (one object per line on stdout) or none");

    AddEncodeOptions(line, options);

    line.Section(kForTests);
    line.Choice("--h264", "CODE", options.m_H264, {"H264", "N264", "A264", "I264", "havc"},
                "pass H.264 in start-code form, which loses NAL units, as H264, N264, A264, I264 or havc");
    line.Flag("--force-codec", options.m_ForceCodec, "write codecs that the format does not support");
    line.Option("--record", "FILE", options.m_Record, "record every call to the plug-in, for qfreplay");
    AddPlugin(line, options);
}

// Options for a stream that is not encoded would change nothing.
void CheckEncodeOptions(const Options& options) {
    const EncodeMode mode = options.m_Encode;
    const bool someVideo = mode != EncodeMode::None && mode != EncodeMode::Audio;
    const bool someAudio = mode != EncodeMode::None && mode != EncodeMode::Video;
    const auto need = [](bool isGiven, bool isUsed, const char* name, const char* modes) {
        if (isGiven && !isUsed) throw ToolError(kExitUsage, std::string(name) + " needs --encode " + modes);
    };
    const char* const kForVideo = "auto, video or all";
    need(!options.m_VideoCodec.empty(), someVideo, "--video-codec", kForVideo);
    need(!options.m_VideoOptions.empty(), someVideo, "--video-options", kForVideo);
    need(options.m_Quality.has_value(), someVideo, "--quality", kForVideo);
    need(options.m_VideoBitrate > 0, someVideo, "--video-bitrate", kForVideo);
    need(options.m_Deinterlace, someVideo, "--deinterlace", kForVideo);
    need(!options.m_Size.empty(), someVideo, "--size", kForVideo);
    need(!options.m_VideoFilter.empty(), someVideo, "--video-filter", kForVideo);
    const char* const kForAudio = "auto, audio or all";
    need(!options.m_AudioCodec.empty(), someAudio, "--audio-codec", kForAudio);
    need(!options.m_AudioOptions.empty(), someAudio, "--audio-options", kForAudio);
    need(options.m_AudioBitrate > 0, someAudio, "--audio-bitrate", kForAudio);
    need(!options.m_AudioFilter.empty(), someAudio, "--audio-filter", kForAudio);
    if (options.m_Quality && options.m_VideoBitrate > 0) {
        throw ToolError(kExitUsage, "--quality and --video-bitrate exclude each other");
    }
    static const std::regex kSize(R"((\d{2,5})x(\d{2,5})?|x\d{2,5})");
    if (!options.m_Size.empty() && !std::regex_match(options.m_Size, kSize)) {
        throw ToolError(kExitUsage, "--size takes a size like 1280x720, 1280x or x720, not '" + options.m_Size + "'");
    }
}

void ReadWords(const MuxWords& words, Options& options) {
    options.m_Inputs = words.m_Paths;
    if (options.m_Output.empty() && words.m_Paths.size() > 1) {
        options.m_Output = words.m_Paths.back();
        options.m_Inputs.pop_back();
        if (options.m_Output.empty()) throw ToolError(kExitUsage, "the output has no name");
    }
    if (options.m_Output.empty() || options.m_Inputs.empty() || options.m_Inputs.size() > 2) {
        throw ToolError(kExitUsage, "one or two inputs and an output are needed; see qfmux --help");
    }
    if (std::count(options.m_Inputs.begin(), options.m_Inputs.end(), "-") > 0) {
        throw ToolError(kExitUsage,
                        "cannot read from standard input, because a source is read more than once ('./-' is a file)");
    }
    if (options.m_Output == "-") {
        throw ToolError(
            kExitUsage,
            "cannot write to standard output, because the start of a file is written last ('./-' is a file)");
    }
    if (!words.m_Aspect.empty()) options.m_Aspect = ParseAspect(words.m_Aspect);
    ParseTracks(words.m_Tracks, options);
    if (!(options.m_Duration > 0)) throw ToolError(kExitUsage, "--duration takes seconds greater than 0");
    CheckEncodeOptions(options);
    if (options.m_NoVideo && options.m_NoAudio) {
        throw ToolError(kExitUsage, "--no-video and --no-audio together leave nothing to write");
    }
}

} // namespace

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    options.m_Plugin = DefaultPlugin();
    MuxWords words;
    bool version = false;

    CommandLine line("qfmux", "Copies the streams of media files into a Matroska (.mkv, .mka) or WebM (.webm) file, or "
                              "encodes them.\nqfmap draws the layout of such a file.");
    line.Flag("--version", version, "print the versions of qfmux and the plug-in");
    AddMuxOptions(line, options, words);

    CommandLine mux = line.Subcommand("mux", "the default: writes OUTPUT");
    AddMuxOptions(mux, options, words);
    CommandLine formats = line.Subcommand("formats", "lists the formats and codecs that the plug-in supports");
    formats.Flag("--json", options.m_Json, "print JSON on stdout");
    AddPlugin(formats, options);
    if (!line.Parse(argc, argv)) return std::nullopt;
    if (version) {
        PutResult(VersionText(options.m_Plugin) + "\n");
        return std::nullopt;
    }
    if (formats.IsGiven()) {
        if (!words.m_Paths.empty()) throw ToolError(kExitUsage, "formats takes no files");
        options.m_Command = Command::Formats;
    } else {
        ReadWords(words, options);
    }
    return options;
}

bool WantsJson(int argc, char** argv) {
    const auto end = std::find(argv, argv + argc, std::string_view("--"));
    return std::find(argv, end, std::string_view("--json")) != end;
}
