// SPDX-License-Identifier: MIT
// How each tool begins and ends.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

// Parses the command line. Prints the help or the version and returns false when it was asked for. Throws ToolError for
// a wrong one.
bool Parse(CLI::App& app, int argc, char** argv);

// Calls run and returns the exit code: its own, or that of the error that it threw, which is told in one line. onError,
// if given, gets both then.
int RunTool(const std::function<int()>& run,
            const std::function<void(int exitCode, const std::string& reason)>& onError = nullptr);
