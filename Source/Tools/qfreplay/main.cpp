// SPDX-License-Identifier: MIT
// qfreplay: replays a recorded session on any build of the plug-in.
#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "PinnedEnvironment.h"
#include "Plugin.h"
#include "Session.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

int Run(int argc, char** argv) {
    CLI::App app("Replays a session that qfmux --record recorded on a build of the plug-in.", "qfreplay");
    std::string path;
    std::string session;
    std::string output;
    std::optional<int> rand;
    std::optional<std::int64_t> time;
    bool check = false;
    bool overwrite = false;
    app.add_option("PLUGIN", path, "the plug-in, of the same word size as this program")->required();
    app.add_option("SESSION", session, "the recorded session")->required();
    app.add_option("OUTPUT", output, "the file to write")->required();
    app.add_option("--rand", rand, "make the plug-in's rand() return this number N, then N + 1, then 1, 2, 3, ...")
        ->check(CLI::Range(0, 1 << 30));
    app.add_option("--time", time,
                   "make the plug-in's time() return this, in seconds since 1970; the time zone is UTC");
    app.add_flag("--check", check, "compare each result with the recorded one and stop at the first difference");
    app.add_flag("-y,--overwrite", overwrite, "replace existing files");
    app.set_version_flag("--version", "qfreplay " QF_VERSION, "print the version");
    app.footer(
        "Exit codes: 0 done, 2 the session or the plug-in cannot be used, 3 usage, 4 the output exists or cannot be "
        "written,\n5 a result differs");
    if (!Parse(app, argc, argv)) return kExitDone;

    for (const std::string& input : {path, session, session + ".payload"}) {
        if (IsSameFile(input, output)) {
            throw ToolError(kExitUsage, "'" + output + "' is an input, which is never overwritten");
        }
    }
    if (rand) {
        PinnedEnvironment::PinRand({*rand, *rand + 1});
    }
    if (time) {
        PinnedEnvironment::PinZone();
        PinnedEnvironment::PinTime(*time);
    }
    const Plugin plugin(path.c_str());
    std::string difference;
    ReplaySession(plugin, session, output, overwrite,
                  [&](const nlohmann::json& line, int number, const nlohmann::json& result) {
                      const bool isSame = result.is_null() || line.at("result") == result;
                      if (!check && !isSame && line.at("call") == "CreateMediaFile" && result == false) {
                          throw ToolError(kExitOutput, "the plug-in cannot create its file");
                      }
                      if (!check || isSame) return true;
                      difference = "line " + std::to_string(number) + ", " + line.at("call").get<std::string>() +
                                   ": recorded " + line.at("result").dump() + ", now " + result.dump();
                      return false;
                  });
    if (!difference.empty()) throw ToolError(kExitVerification, difference);
    return kExitDone;
}

} // namespace

int main(int argc, char** argv) {
    return RunTool([=] { return Run(argc, argv); });
}
