// SPDX-License-Identifier: MIT
// Runs public tools and our own in a test.
#pragma once

#include <string>

struct CommandResult {
    int m_ExitCode; // as in the shell; 128 and more for a signal
    std::string m_Output;
};

// Runs a shell line and keeps its stdout; end the line in "2>&1" to keep stderr too.
CommandResult RunCommand(const std::string& line);

// One word for the shell, whatever it holds.
std::string Quoted(const std::string& word);
