// qfmux: puts the streams of media files into a Matroska or WebM file, by way of the plug-in, as a host would.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <random>
#include <string>

#include "Map.h"
#include "MapDrawing.h"
#include "Options.h"
#include "OutputFile.h"
#include "Plan.h"
#include "Plugin.h"
#include "Remux.h"
#include "Report.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

int Fail(int code, const std::string& message) {
    // One line, whatever the message holds.
    std::string line = message.substr(0, message.find('\n'));
    std::fprintf(stderr, "qfmux: %s\n", line.c_str());
    return code;
}

int DrawMap(const Options& options) {
    const FileMap map = ReadFileMap(options.m_Inputs[0]);
    if (!options.m_Output.empty()) {
        OutputFile picture(options.m_Output, options.m_Overwrite, options.m_Inputs);
        const std::string svg = MapAsSvg(map);
        std::FILE* const file = std::fopen(picture.Path().c_str(), "wb");
        const bool isWritten = file != nullptr && std::fwrite(svg.data(), 1, svg.size(), file) == svg.size();
        const bool isClosed = file != nullptr && std::fclose(file) == 0;
        if (!isWritten || !isClosed) {
            throw ToolError(kExitOutput, "cannot write '" + options.m_Output + "': " + picture.WriteFailure());
        }
        picture.Keep(false);
    }
    std::string words;
    if (options.m_Json) {
        // Names of files may hold any octets, JSON only UTF-8.
        words = MapAsJson(map).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    } else if (options.m_Output.empty()) {
        words = MapAsStrip(map, TerminalWidth(), WantsColour());
    }
    if (std::fwrite(words.data(), 1, words.size(), stdout) != words.size() || std::fflush(stdout) != 0) {
        throw ToolError(kExitOutput, "cannot write to stdout: " + std::string(std::strerror(errno)));
    }
    for (const std::string& problem : map.m_Problems) std::fprintf(stderr, "qfmux: warning: %s\n", problem.c_str());
    return map.m_Problems.empty() ? kExitDone : kExitWarnings;
}

int Run(int argc, char** argv) {
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) return kExitDone;
    if (options->m_Command == Command::Map) return DrawMap(*options);
    const Plugin plugin(options->m_Plugin.c_str());
    if (options->m_Command == Command::Formats) {
        const FileFormatInfo* const formats = plugin.GetFileFormats();
        std::fputs((options->m_Json ? FormatsAsJson(formats).dump(2) + "\n" : FormatsAsText(formats)).c_str(), stdout);
        return kExitDone;
    }
    std::srand(std::random_device()()); // track identifiers are the plug-in's rand()
    Report report(options->m_Quiet, options->m_Verbose);
    return Remux(*options, plugin, report);
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    try {
        return Run(argc, argv);
    } catch (const ToolError& error) {
        return Fail(error.m_Code, error.what());
    } catch (const std::bad_alloc&) {
        return Fail(kExitError, "out of memory");
    } catch (const std::exception& error) {
        return Fail(kExitError, error.what());
    }
}
