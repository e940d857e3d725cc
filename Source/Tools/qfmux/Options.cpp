#include "Options.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "CommandLine.h"
#include "Messages.h"
#include "Plugin.h"
#include "ToolError.h"

namespace {

constexpr const char* kExamples = R"(Examples:
  qfmux film.mp4 film.mkv                            both streams, as they are
  qfmux film.mp4 sound.mka                           the sound alone
  qfmux clip.webm clean.webm --overwrite             replaces clean.webm once the new one is whole
  qfmux video.h264 sound.aac film.mkv --aspect 16:9  from two files
  qfmux film.ts film.mkv --dry-run --json            what would be done, and why

Exit codes: 0 done, 1 done with warnings, 2 error, 3 usage, 4 output full or unwritable, 5 verification failed,
128+n ended by signal n (the file holds what came before it))";

// The plug-in that lies beside this program, or where packages put it.
std::string DefaultPlugin() {
    std::error_code ignored;
    const auto directory = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto beside = directory / "qf_mkv.so";
    const auto installed = (directory / QF_INSTALLED_PLUGIN).lexically_normal();
    return std::filesystem::exists(installed, ignored) && !std::filesystem::exists(beside, ignored) ? installed.string()
                                                                                                    : beside.string();
}

Aspect ParseAspect(const std::string& text) {
    Aspect aspect{};
    char rest = 0;
    if (std::sscanf(text.c_str(), "%9d:%9d%c", &aspect.m_X, &aspect.m_Y, &rest) != 2 || aspect.m_X <= 0 ||
        aspect.m_Y <= 0) {
        throw ToolError(kExitUsage, "--aspect takes two numbers like 16:9, not '" + text + "'");
    }
    return aspect;
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
        if (chosen) throw ToolError(kExitUsage, "--tracks takes one stream of a kind, not '" + list + "'");
        chosen = index;
    }
}

// An option that takes one of a few words.
template <class Value>
void AddChoice(CLI::App& app, const std::string& name, Value& value, const std::map<std::string, Value>& words,
               const std::string& help) {
    app.add_option(name, value, help)->transform(CLI::CheckedTransformer(words).description(""))->type_name("WORD");
}

std::string VersionText(const std::string& plugin) {
    char version[64] = "";
    Plugin(plugin.c_str()).GetMultiVersion(version);
    return std::string("qfmux with qf_mkv ") + version;
}

} // namespace

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    options.m_Plugin = DefaultPlugin();
    std::vector<std::string> paths;
    std::string tracks;
    std::string aspect;
    bool version = false;

    CLI::App app("Puts the streams of media files into a Matroska (.mkv, .mka) or WebM (.webm) file, as they are.\n"
                 "qfmux formats says which formats and codecs there are; qfmap draws how such a file is laid out.",
                 "qfmux");
    app.footer(kExamples);

    app.add_option("INPUT... OUTPUT", paths, "one or two media files that libavformat reads, then the file to write")
        ->type_name("");
    app.add_option("--format", options.m_Format, "MKV, HMKV, MKA or WEBM; by default the output's extension chooses")
        ->check(CLI::IsMember({"MKV", "HMKV", "MKA", "WEBM"}).description(""))
        ->type_name("WORD");
    app.add_flag("--no-video", options.m_NoVideo, "leave video out");
    app.add_flag("--no-audio", options.m_NoAudio, "leave audio out");
    app.add_option("--tracks", tracks, "which streams, e.g. v:0,a:1; counted over all inputs")->type_name("LIST");
    app.add_option("--aspect", aspect, "display aspect, e.g. 16:9; by default the source's")->type_name("X:Y");
    app.add_option("--h264", options.m_H264,
                   "for testing a plug-in: hands H.264 over in start-code form, which loses units, as H264, N264, "
                   "A264, I264 or havc")
        ->check(CLI::IsMember({"H264", "N264", "A264", "I264", "havc"}).description(""))
        ->type_name("CODE");
    app.add_flag("--force-codec", options.m_ForceCodec, "write codecs that the format does not take");
    app.add_option("--duration", options.m_Duration, "stop after so many seconds")->type_name("S");
    app.add_flag("--overwrite", options.m_Overwrite, "replace an existing output, once the new one is whole");
    app.add_flag("--quiet", options.m_Quiet, "errors only");
    app.add_flag("-v,--verbose", options.m_Verbose, "say what is done");
    app.add_flag("--json", options.m_Json, "results as JSON on stdout");
    AddChoice<ProgressMode>(app, "--progress", options.m_Progress,
                            {{"auto", ProgressMode::Auto},
                             {"bar", ProgressMode::Bar},
                             {"json", ProgressMode::Json},
                             {"none", ProgressMode::None}},
                            "auto (a bar on a terminal), bar, json (one object a line on stdout) or none");
    AddChoice<VerifyMode>(app, "--verify", options.m_Verify,
                          {{"full", VerifyMode::Full}, {"fast", VerifyMode::Fast}, {"none", VerifyMode::None}},
                          "full (reads every frame back, the default), fast (sizes and tracks) or none (sizes)");
    app.add_flag("--sync", options.m_Sync, "have the file on the disk before it is done");
    app.add_flag("--dry-run", options.m_DryRun, "say what would be done, and why");
    app.add_option("--record", options.m_Record, "record every call to the plug-in, for qfreplay")->type_name("FILE");
    app.add_option("--plugin", options.m_Plugin, "the plug-in's file, if not the one beside this program")
        ->type_name("FILE");
    app.add_flag("--version", version, "the versions of tool and plug-in");

    if (!Parse(app, argc, argv)) return std::nullopt;
    if (version) {
        PutResult(VersionText(options.m_Plugin) + "\n");
        return std::nullopt;
    }
    if (paths.size() == 1 && paths[0] == "formats") {
        options.m_Command = Command::Formats;
        return options;
    }
    if (paths.size() < 2 || paths.size() > 3) {
        throw ToolError(kExitUsage, "one or two inputs and an output are needed; see qfmux --help");
    }
    options.m_Output = paths.back();
    paths.pop_back();
    options.m_Inputs = paths;
    if (!aspect.empty()) options.m_Aspect = ParseAspect(aspect);
    ParseTracks(tracks, options);
    if (!(options.m_Duration > 0)) throw ToolError(kExitUsage, "--duration takes seconds, more than 0");
    if (options.m_NoVideo && options.m_NoAudio) {
        throw ToolError(kExitUsage, "--no-video and --no-audio together leave nothing");
    }
    return options;
}
