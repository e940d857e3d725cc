// SPDX-License-Identifier: MIT
// qfmux and qfmap, as their tests run them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "Command.h"
#include "TempDirectory.h"

inline std::string ClipPath(const std::string& name) { return QF_CLIPS "/" + name; }

// The words of a run, errors and results together, or results alone.
inline CommandResult Qfmux(const std::string& arguments) {
    return RunCommand(Quoted(QF_QFMUX) + " " + arguments + " 2>&1");
}
inline CommandResult QfmuxResult(const std::string& arguments) {
    return RunCommand(Quoted(QF_QFMUX) + " " + arguments + " 2>/dev/null");
}
inline CommandResult Qfmap(const std::string& arguments) {
    return RunCommand(Quoted(QF_QFMAP) + " " + arguments + " 2>&1");
}
inline CommandResult QfmapResult(const std::string& arguments) {
    return RunCommand(Quoted(QF_QFMAP) + " " + arguments + " 2>/dev/null");
}

inline int Lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

// A file's words; a manual page's without the backslashes before troff's hyphens.
inline std::string WordsOf(const char* path) {
    const auto octets = ReadFile(path);
    std::string words(octets.begin(), octets.end());
    words.erase(std::remove(words.begin(), words.end(), '\\'), words.end());
    return words;
}

// Expects ffmpeg's hashes of so many pairs of tracks, one line for each track and nothing else, to be equal in each
// pair.
inline void ExpectEqualPairs(const std::string& hashes, std::size_t pairs) {
    std::istringstream lines(hashes);
    std::size_t compared = 0;
    for (std::string left, right; std::getline(lines, left) && std::getline(lines, right); ++compared) {
        EXPECT_NE(left.find("MD5="), std::string::npos) << hashes;
        EXPECT_EQ(left.substr(left.find(',')), right.substr(right.find(','))) << hashes;
    }
    EXPECT_EQ(compared, pairs) << hashes;
    EXPECT_EQ(Lines(hashes), 2 * static_cast<int>(pairs)) << hashes;
}
