// qfreplay: makes the calls of a recorded session to any build of the plug-in.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "PinnedEnvironment.h"
#include "Plugin.h"
#include "Session.h"
#include "Surroundings.h"

namespace {

enum ExitCode { kExitDone = 0, kExitDifferent = 1, kExitError = 2, kExitUsage = 3 };

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "qfreplay: %s\n", Clean(message).c_str());
    return code;
}

} // namespace

// CLI11 throws outside parse() for options that are defined wrongly alone.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    OpenStandardStreams();
    CLI::App app("Makes the calls of a session that qfmux --record wrote to a build of the plug-in.", "qfreplay");
    std::string path;
    std::string session;
    std::string output;
    std::optional<int> rand;
    std::optional<std::int64_t> time;
    bool check = false;
    app.add_option("PLUGIN", path, "the plug-in's file, of this program's word size")->required();
    app.add_option("SESSION", session, "the recorded session")->required();
    app.add_option("OUTPUT", output, "the file to write")->required();
    app.add_option("--rand", rand, "what the plug-in's rand() returns first; then one more each time")
        ->check(CLI::Range(0, 1 << 30));
    app.add_option("--time", time, "the time that the plug-in sees, in seconds since 1970, UTC");
    app.add_flag("--check", check, "compare each result with the recorded one; the first that differs ends it");
    app.footer("Exit codes: 0 done, 1 a result differs, 2 error, 3 usage");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return kExitDone;
    } catch (const CLI::ParseError& error) {
        return Fail(kExitUsage, error.what());
    }

    for (const std::string& input : {path, session, session + ".payload"}) {
        if (IsSameFile(input, output))
            return Fail(kExitUsage, "'" + output + "' is an input, which is never overwritten");
    }

    try {
        if (rand) {
            PinnedEnvironment::PinRand({*rand, *rand + 1});
        }
        if (time) {
            PinnedEnvironment::PinZone();
            PinnedEnvironment::PinTime(*time);
        }
        const Plugin plugin(path.c_str());
        std::string difference;
        ReplaySession(plugin, session, output,
                      [&](const nlohmann::json& line, int number, const nlohmann::json& result) {
                          const bool isSame = result.is_null() || line.at("result") == result;
                          if (!check && !isSame && line.at("call") == "CreateMediaFile" && result == false) {
                              throw std::runtime_error("the plug-in cannot create its file");
                          }
                          if (!check || isSame) return true;
                          difference = "line " + std::to_string(number) + ", " + line.at("call").get<std::string>() +
                                       ": recorded " + line.at("result").dump() + ", now " + result.dump();
                          return false;
                      });
        return difference.empty() ? kExitDone : Fail(kExitDifferent, difference);
    } catch (const std::exception& error) {
        return Fail(kExitError, error.what());
    }
}
