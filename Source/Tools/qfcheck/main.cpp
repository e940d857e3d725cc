// SPDX-License-Identifier: MIT
// qfcheck: checks, one by one, whether a build of the plug-in keeps the interface.
#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "ElfFile.h"
#include "Messages.h"
#include "Report.h"
#include "Runner.h"
#include "ToolError.h"

namespace {

constexpr const char* kExamples = R"(Examples:
  qfcheck ./qf_mkv.so                                all checks
  qfcheck --list                                     list the checks
  qfcheck ./qf_mkv.so --only 'log.*' --only load     some checks
  qfcheck ./qf_mkv.so --json > report.json           a report for a program
  qfcheck ./qf_mkv.so --junit report.xml             a report for a build server

Exit codes: 0 all checks passed, 2 the file cannot be checked, 3 usage, 4 the report cannot be written, 5 a check
failed, 128+n ended by signal n)";

std::vector<const Check*> Chosen(const std::vector<std::string>& patterns) {
    std::vector<const Check*> chosen;
    for (const Check& check : AllChecks()) {
        const auto matches = [&](const std::string& p) { return fnmatch(p.c_str(), check.m_Name, 0) == 0; };
        if (patterns.empty() || std::any_of(patterns.begin(), patterns.end(), matches)) chosen.push_back(&check);
    }
    for (const std::string& pattern : patterns) {
        const auto matches = [&](const Check* check) { return fnmatch(pattern.c_str(), check->m_Name, 0) == 0; };
        if (std::none_of(chosen.begin(), chosen.end(), matches)) {
            throw ToolError(kExitUsage, "no check is called '" + pattern + "'; --list shows all names");
        }
    }
    return chosen;
}

void WriteReport(const std::string& path, const std::string& words) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    const bool isWritten = file != nullptr && std::fwrite(words.data(), 1, words.size(), file) == words.size();
    const bool isClosed = file != nullptr && std::fclose(file) == 0;
    if (!isWritten || !isClosed) throw ToolError(kExitOutput, "cannot write '" + path + "': " + std::strerror(errno));
}

const std::string kLeftOut = "left out: ";

// Whether the other checks depend on this one.
bool IsGround(const Check& check) {
    const std::string name = check.m_Name;
    return name == "load" || name == "exports.names";
}

// Makes the checks in order. Leaves out the rest when a check on which the others depend has failed, or when three
// checks have hung. When the plug-in does not load and "load" was not chosen, every chosen check fails.
std::vector<Result> RunAll(Runner& runner, const std::vector<const Check*>& checks, bool quiet) {
    const Check& load = AllChecks().front();
    const Result loaded = runner.Run(load);
    std::string reason; // why checks are left out
    int hangs = 0;
    std::vector<Result> results;
    for (const Check* check : checks) {
        const bool isOfExports = std::string(check->m_Name).find("exports.") == 0;
        if (check == &load) {
            results.push_back(loaded);
        } else if (!reason.empty() && !isOfExports) {
            results.push_back({check, Outcome::Skipped, kLeftOut + reason, 0});
            continue;
        } else if (loaded.m_Outcome == Outcome::Passed) {
            results.push_back(runner.Run(*check));
        } else {
            results.push_back({check, Outcome::Failed, "the plug-in does not load: " + loaded.m_Message, 0});
        }
        const Result& result = results.back();
        if (result.m_Outcome == Outcome::Failed && IsGround(*check)) reason = std::string(check->m_Name) + " failed";
        if (result.m_Message.find("hangs: ") == 0 && ++hangs == 3) reason = "three checks have hung";
        if (!quiet) {
            std::printf("%s\n", AsText(result).c_str());
            std::fflush(stdout);
        }
    }
    const auto leftOut = std::count_if(results.begin(), results.end(),
                                       [](const Result& result) { return result.m_Message.find(kLeftOut) == 0; });
    if (leftOut > 0 && !quiet) std::printf("skipped  %td other checks: %s\n", leftOut, reason.c_str());
    return results;
}

int Run(int argc, char** argv) {
    if (argc == 7 && std::string(argv[1]) == kMakeOneCheck) MakeOneCheck(argv + 2);

    CommandLine line("qfcheck",
                     "Checks a build of the qf_mkv plug-in, or of any plug-in of its interface, as a host sees it.");
    std::string plugin;
    bool json = false;
    std::string junit;
    bool list = false;
    std::vector<std::string> only;
    double timeLimit = 10;
    line.OptionalArgument("PLUGIN", plugin, "the plug-in's file, of this program's word size");
    line.Flag("--json", json, "print one JSON object instead of lines");
    line.Option("--junit", "FILE", junit, "also write a JUnit report to FILE");
    line.Flag("--list", list, "list the checks and exit");
    line.Repeatable("--only", "NAME", only,
                    "make only the checks with this NAME, in which * and ? are wildcards; may be repeated");
    line.Number(
        "--timeout", "SECONDS", [&](double seconds) { timeLimit = seconds; },
        "the time limit for each call of the plug-in (default: 10)", 0.1, 86400);
    line.Version("qfcheck " QF_VERSION ", " + std::to_string(kWordSize) + "-bit");
    line.Footer(kExamples);
    if (!line.Parse(argc, argv)) return kExitDone;

    try {
        const std::vector<const Check*> checks = Chosen(only);
        if (list) {
            for (const Check* check : checks) std::printf("%-26s %s\n", check->m_Name, check->m_Summary);
            return kExitDone;
        }
        if (plugin.empty()) throw ToolError(kExitUsage, "PLUGIN is missing; --help has examples");
        const std::string why = WhyNotALibrary(plugin);
        if (!why.empty()) throw ToolError(kExitError, why);
        Runner runner(std::filesystem::absolute(plugin).string(), timeLimit);
        const std::vector<Result> results = RunAll(runner, checks, json);
        PutResult(json ? AsJson(plugin, results) : Summary(results) + "\n");
        if (!junit.empty()) WriteReport(junit, AsJUnit(plugin, results));
        const bool isGood = std::none_of(results.begin(), results.end(),
                                         [](const Result& result) { return result.m_Outcome == Outcome::Failed; });
        return isGood ? kExitDone : kExitVerification;
    } catch (const Interrupted& interrupted) {
        return kExitSignal + interrupted.m_Signal;
    }
}

} // namespace

int main(int argc, char** argv) {
    return RunTool([&] { return Run(argc, argv); });
}
