// SPDX-License-Identifier: MIT
// qfreplay: replays a recorded session on any build of the plug-in.
#include <cstdint>
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
    CommandLine line("qfreplay", "Replays a session that qfmux --record recorded on a build of the plug-in.");
    std::string path;
    std::string session;
    std::string output;
    std::optional<std::int64_t> rand;
    std::optional<std::int64_t> time;
    bool check = false;
    bool overwrite = false;
    line.Argument("PLUGIN", path, "the plug-in, of the same word size as this program");
    line.Argument("SESSION", session, "the recorded session");
    line.Argument("OUTPUT", output, "the file to write");
    line.Whole("--rand", "N", rand, "make the plug-in's rand() return this number N, then N + 1, then 1, 2, 3, ...", 0,
               1 << 30);
    line.Whole("--time", "SECONDS", time,
               "make the plug-in's time() return this, in seconds since 1970; the time zone is UTC");
    line.Flag("--check", check, "compare each result with the recorded one and stop at the first difference");
    line.Flag("-y,--overwrite", overwrite, "replace existing files");
    line.Version("qfreplay " QF_VERSION);
    line.Footer(
        "Exit codes: 0 done, 2 the session or the plug-in cannot be used, 3 usage, 4 the output exists or cannot be "
        "written,\n5 a result differs");
    if (!line.Parse(argc, argv)) return kExitDone;

    for (const std::string& input : {path, session, session + ".payload"}) {
        if (IsSameFile(input, output)) {
            throw ToolError(kExitUsage, "'" + output + "' is an input, which is never overwritten");
        }
    }
    if (rand) {
        const auto first = static_cast<int>(*rand);
        PinnedEnvironment::PinRand({first, first + 1});
    }
    if (time) {
        PinnedEnvironment::PinZone();
        PinnedEnvironment::PinTime(*time);
    }
    const Plugin plugin(path.c_str());
    std::string difference;
    ReplaySession(plugin, session, output, overwrite,
                  [&](const nlohmann::json& call, int number, const nlohmann::json& result) {
                      const bool isSame = result.is_null() || call.at("result") == result;
                      if (!check && !isSame && call.at("call") == "CreateMediaFile" && result == false) {
                          throw ToolError(kExitOutput, "the plug-in cannot create its file");
                      }
                      if (!check || isSame) return true;
                      difference = "line " + std::to_string(number) + ", " + call.at("call").get<std::string>() +
                                   ": recorded " + call.at("result").dump() + ", now " + result.dump();
                      return false;
                  });
    if (!difference.empty()) throw ToolError(kExitVerification, difference);
    return kExitDone;
}

} // namespace

int main(int argc, char** argv) {
    return RunTool([=] { return Run(argc, argv); });
}
