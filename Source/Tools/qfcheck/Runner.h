// Runs each check in a process of its own, so that whatever the plug-in does there ends nothing but that.
#pragma once

#include <filesystem>
#include <string>

#include "Check.h"
#include "TempDirectory.h"

enum class Outcome { Passed, Failed, Skipped };

struct Result {
    const Check* m_pCheck;
    Outcome m_Outcome;
    std::string m_Message; // empty when passed
    double m_Seconds;
};

class Runner {
public:
    // plugin: an absolute path. Throws std::runtime_error when there is no place for files.
    Runner(std::string plugin, double timeLimit);

    // Throws Interrupted when a signal asks qfcheck to end.
    Result Run(const Check& check);

private:
    std::filesystem::path PlaceFor(Log log);

    // From its construction on, signals that end a program are noted and end it in order.
    struct SignalWatch {
        SignalWatch();
    };

    std::string m_Plugin;
    double m_TimeLimit; // seconds
    SignalWatch m_SignalWatch;
    TempDirectory m_Directory;
    int m_Count = 0;
};

struct Interrupted {
    int m_Signal;
};

// The first argument of a process that is to make one check: its name, the plug-in, the check's directory follow.
inline constexpr const char* kMakeOneCheck = "--make-one-check";

// Makes the check and ends the process. The verdict goes to the descriptor.
[[noreturn]] void MakeCheck(const Check& check, const std::string& plugin, const std::string& directory,
                            int descriptor);
// The same for the words behind kMakeOneCheck.
[[noreturn]] void MakeOneCheck(char** arguments);
