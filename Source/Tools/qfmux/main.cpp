// qfmux: puts the streams of a media file into a Matroska or WebM file, by way of the plug-in, as a host would.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <string>

#include "Remux.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

// The plug-in that lies beside this program.
std::string DefaultPlugin() {
    std::error_code ignored;
    return (std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / "qf_mkv.so").string();
}

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "qfmux: %s\n", message.c_str());
    return code;
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_FATAL);
    CLI::App app("Puts the streams of a media file into a Matroska (.mkv, .mka) or WebM (.webm) file, as they are.");
    RemuxJob job;
    job.m_Plugin = DefaultPlugin();
    app.add_option("INPUT", job.m_Input, "any media file that libavformat reads")->required();
    app.add_option("OUTPUT", job.m_Output, "its extension chooses the format")->required();
    app.add_option("--plugin", job.m_Plugin, "the plug-in's file, when it is not beside this program");
    try {
        app.parse(argc, argv);
        Remux(job);
        return kExitDone;
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return Fail(kExitUsage, error.what());
    } catch (const ToolError& error) {
        return Fail(error.m_Code, error.what());
    } catch (const std::bad_alloc&) {
        return Fail(kExitError, "out of memory");
    } catch (const std::exception& error) {
        return Fail(kExitError, error.what());
    }
}
