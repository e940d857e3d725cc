// SPDX-License-Identifier: MIT
// The checks that qfcheck makes.
#pragma once

#include <string>
#include <vector>

#include "Host.h"

// The double of the host's log that lies beside the program while a check runs.
enum class Log {
    Unwatched,  // whatever lies beside qfcheck
    FirstName,  // TW_Log.so
    SecondName, // libTW_Log.so
    BothNames,
    None, // beside the program; TW_Log.so lies in the current directory
};

struct Check {
    const char* m_Name; // "group.what"
    const char* m_Summary;
    void (*m_pRun)(Host&); // throws Failure or CannotCheck
    Log m_Log = Log::Unwatched;
};

// All checks, in order. The first is whether the plug-in loads at all.
const std::vector<Check>& AllChecks();

// The parts of that list.
std::vector<Check> ExportChecks();
std::vector<Check> TableChecks();
std::vector<Check> CallChecks();
std::vector<Check> LogChecks();
std::vector<Check> BadCallChecks();
std::vector<Check> LifeChecks();
std::vector<Check> FrameChecks();
std::vector<Check> SessionChecks();
std::vector<Check> ModelChecks();
std::vector<Check> ProcessChecks();
