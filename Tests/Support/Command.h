// SPDX-License-Identifier: MIT
// Public tools and our own, run by a test.
#pragma once

#include <string>

struct CommandResult {
    int m_ExitCode; // as the shell has it; 128 and more for a signal
    std::string m_Output;
};

// Runs a line of the shell and keeps what it prints to stdout; end it in "2>&1" to keep stderr too.
CommandResult RunCommand(const std::string& line);

// One word for the shell, whatever it holds.
std::string Quoted(const std::string& word);
