// SPDX-License-Identifier: MIT
// How each tool begins and ends.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

// Parses the command line. Prints the help or the version and returns false if the user asked for it. Throws ToolError
// for a wrong command line.
bool Parse(CLI::App& app, int argc, char** argv);

// Calls run and returns its exit code. If run throws, prints the error in one line, passes the error's exit code and
// text to onError, and returns that code.
int RunTool(const std::function<int()>& run,
            const std::function<void(int exitCode, const std::string& reason)>& onError = nullptr);
