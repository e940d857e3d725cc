// qfmux: puts the streams of media files into a Matroska or WebM file, by way of the plug-in, as a host would.
#include <cstdlib>
#include <optional>
#include <random>

#include "CommandLine.h"
#include "ExitCode.h"
#include "Messages.h"
#include "Options.h"
#include "Plan.h"
#include "Plugin.h"
#include "Remux.h"
#include "RunReport.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

int Run(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) return kExitDone;
    const Plugin plugin(options->m_Plugin.c_str());
    if (options->m_Command == Command::Formats) {
        const FileFormatInfo* const formats = FormatsOf(plugin);
        PutResult(options->m_Json ? AsText(FormatsAsJson(formats)) : FormatsAsText(formats));
        return kExitDone;
    }
    std::srand(std::random_device()()); // track identifiers are the plug-in's rand()
    RunReport report(options->m_Quiet, options->m_Verbose);
    return Remux(*options, plugin, report);
}

} // namespace

int main(int argc, char** argv) { return RunTool(Run, argc, argv); }
