// SPDX-License-Identifier: MIT
// qfmux: copies or encodes the streams of media files into a Matroska or WebM file. It is a host of the plug-in.
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>

#include "AvLog.h"
#include "CommandLine.h"
#include "Messages.h"
#include "Options.h"
#include "Plan.h"
#include "Plugin.h"
#include "Remux.h"
#include "RunReport.h"
#include "SignalGuard.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

int Run(int argc, char** argv, RunReport& report) {
    const SignalGuard signals;
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) return kExitDone;
    const Plugin plugin(options->m_Plugin.c_str());
    if (options->m_Command == Command::Formats) {
        const FileFormatInfo* const formats = FormatsOf(plugin);
        PutResult(options->m_Json ? AsText(FormatsAsJson(formats)) : FormatsAsText(formats));
        return kExitDone;
    }
    std::srand(std::random_device()()); // track identifiers are the plug-in's rand()
    if (options->m_Quiet) report.BeQuiet();
    if (options->m_Verbose) report.BeVerbose();
    const int exitCode = Remux(*options, plugin, report);
    if (!options->m_Json) return exitCode;
    try {
        PutResult(AsText(report.AsJson(exitCode, "")));
    } catch (const ToolError& error) {
        if (options->m_DryRun) throw;
        report.Warn(error.what()); // the file is in place all the same
        return kExitWarnings;
    }
    return exitCode;
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): without memory for the report there is nothing to say it with
int main(int argc, char** argv) {
    KeepAvErrors();
    RunReport report;
    return RunTool([&] { return Run(argc, argv, report); },
                   [&](int exitCode, const std::string& reason) {
                       if (WantsJson(argc, argv)) PutResult(AsText(report.AsJson(exitCode, Clean(reason))));
                   });
}
