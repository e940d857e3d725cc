// qfmux: puts the streams of media files into a Matroska or WebM file, by way of the plug-in, as a host would.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>
#include <random>
#include <string>

#include "Map.h"
#include "MapPicture.h"
#include "MapReader.h"
#include "MapStrip.h"
#include "Messages.h"
#include "Options.h"
#include "Plan.h"
#include "Plugin.h"
#include "Remux.h"
#include "RunReport.h"
#include "Session.h"
#include "StagedFile.h"
#include "Surroundings.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

int Fail(int code, const std::string& message) {
    Say(message);
    return code;
}

int DrawMap(const Options& options) {
    const FileMap map = ReadFileMap(options.m_Inputs[0]);
    if (!options.m_Output.empty()) {
        StagedFile picture(options.m_Output, options.m_Overwrite, options.m_Inputs);
        const std::string svg = MapAsSvg(map);
        std::FILE* const file = std::fopen(picture.Path().c_str(), "wb");
        const bool isWritten = file != nullptr && std::fwrite(svg.data(), 1, svg.size(), file) == svg.size();
        const bool isClosed = file != nullptr && std::fclose(file) == 0;
        if (!isWritten || !isClosed) {
            throw ToolError(kExitOutput, "cannot write '" + options.m_Output + "': " + picture.WriteFailure());
        }
        picture.Keep(false);
    }
    if (options.m_Json) {
        PutResult(AsText(MapAsJson(map)));
    } else if (options.m_Output.empty()) {
        PutResult(MapAsStrip(map, TerminalWidth(), WantsColour()));
    }
    for (const std::string& problem : map.m_Problems) Say("warning: " + problem);
    return map.m_Problems.empty() ? kExitDone : kExitWarnings;
}

int Run(int argc, char** argv) {
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) return kExitDone;
    if (options->m_Command == Command::Map) return DrawMap(*options);
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

int main(int argc, char** argv) {
    OpenStandardStreams();
    av_log_set_level(AV_LOG_QUIET);
    try {
        return Run(argc, argv);
    } catch (const ToolError& error) {
        return Fail(error.m_Code, error.what());
    } catch (const RecordError& error) {
        return Fail(kExitOutput, error.what());
    } catch (const std::bad_alloc&) {
        return Fail(kExitError, "out of memory");
    } catch (const std::exception& error) {
        return Fail(kExitError, error.what());
    }
}
