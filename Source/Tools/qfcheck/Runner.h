// SPDX-License-Identifier: MIT
// Runs each check in a process of its own, so that a plug-in cannot end more than its check.
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
    // plugin: an absolute path. timeLimit: seconds from one call of the plug-in to the next. Throws std::runtime_error
    // when there is no directory for temporary files.
    Runner(std::string plugin, double timeLimit);
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    // Throws Interrupted when a signal asks qfcheck to end.
    Result Run(const Check& check);

private:
    std::filesystem::path PlaceFor(Log log);

    // From its construction on, signals that end a program are noted and end it in order.
    struct SignalWatch {
        SignalWatch();
    };

    std::string m_Plugin;
    double m_TimeLimit;
    SignalWatch m_SignalWatch;
    TempDirectory m_Directory;
    const int m_TrailFile = Trail::MakeFile();
    const Trail m_Trail{m_TrailFile};
    int m_Count = 0;
};

struct Interrupted {
    int m_Signal;
};

// The first argument of a process that is to make one check: its name, the plug-in, the check's directory and the
// numbers of Ends follow.
inline constexpr const char* kMakeOneCheck = "--make-one-check";

// Descriptors shared with the watching process: a pipe for the verdict, the file of a Trail.
struct Ends {
    int m_Verdict;
    int m_Trail;
};

// Makes the check and ends the process.
[[noreturn]] void MakeCheck(const Check& check, const std::string& plugin, const std::string& directory, Ends ends);
// The same for the arguments behind kMakeOneCheck.
[[noreturn]] void MakeOneCheck(char** arguments);
