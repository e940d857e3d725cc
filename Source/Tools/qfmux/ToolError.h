// What ends a run of the tool: one line for the user and an exit code.
#pragma once

#include <stdexcept>
#include <string>

enum ExitCode {
    kExitDone = 0,
    kExitWarnings = 1,     // done, but something was not as it should be
    kExitError = 2,        // an input or the plug-in
    kExitUsage = 3,        // the command line
    kExitOutput = 4,       // the output is full, exists or cannot be written
    kExitVerification = 5, // the finished file does not hold what was sent in
    kExitSignal = 128      // plus the signal's number
};

class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& message) : std::runtime_error(message), m_Code(code) {}

    ExitCode m_Code;
};
