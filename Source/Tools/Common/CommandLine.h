// How each tool begins and ends.
#pragma once

#include <CLI/CLI.hpp>

// Parses the command line. Prints the help and returns false when it was asked for. Throws ToolError for a wrong one.
bool Parse(CLI::App& app, int argc, char** argv);

// Calls run and returns the exit code: its own, or that of the error that it threw, which is told in one line.
int RunTool(int (*run)(int argc, char** argv), int argc, char** argv);
