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

// The most memory that a program had while it ran, in octets. Throws std::runtime_error when it fails. Pages of its
// libraries count as soon as they are in the system's cache, so a first run may need less than the next one.
long PeakMemory(const std::string& line);

// One word for the shell, whatever it holds.
std::string Quoted(const std::string& word);
