// qfmux: puts the streams of media files into a Matroska or WebM file, by way of the plug-in, as a host would.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>
#include <random>
#include <string>

#include "Options.h"
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

int Run(int argc, char** argv) {
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) return kExitDone;
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
