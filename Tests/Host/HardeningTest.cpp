// SPDX-License-Identifier: MIT
// The hardening of the library that ships, read with readelf and nm. Builds with sanitizers have other checks instead.
#ifdef QF_HARDENED

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Command.h"

namespace {

std::vector<std::string> Lines(const std::string& command) {
    const CommandResult result = RunCommand(command + " " + Quoted(QF_PLUGIN));
    EXPECT_EQ(result.m_ExitCode, 0) << command;
    std::vector<std::string> lines;
    std::istringstream text(result.m_Output);
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> LinesWith(const std::string& command, const std::string& word) {
    std::vector<std::string> found;
    for (const std::string& line : Lines(command)) {
        if (line.find(word) != std::string::npos) found.push_back(line);
    }
    return found;
}

// The flags of a program header: the column before the last.
std::string SegmentFlags(const std::string& line) {
    std::istringstream columns(line);
    std::string type;
    std::string column;
    columns >> type;
    for (int i = 0; i < 5; ++i) columns >> column;
    std::string flags;
    for (columns >> column; column.rfind("0x", 0) != 0 && columns; columns >> column) flags += column;
    return flags;
}

TEST(Hardening, TheStackIsNotExecutable) {
    const std::vector<std::string> stack = LinesWith("readelf -lW", "GNU_STACK");
    ASSERT_EQ(stack.size(), 1U);
    EXPECT_EQ(SegmentFlags(stack[0]), "RW");
}

TEST(Hardening, NoSegmentIsBothWritableAndExecutable) {
    const std::vector<std::string> segments = LinesWith("readelf -lW", " LOAD ");
    int executable = 0;
    for (const std::string& segment : segments) {
        const std::string flags = SegmentFlags(segment);
        EXPECT_FALSE(flags.find('W') != std::string::npos && flags.find('E') != std::string::npos) << segment;
        if (flags.find('E') != std::string::npos) ++executable;
    }
    EXPECT_GT(executable, 0);
}

// The loader makes all relocations while it loads the library. Then it makes their memory read-only.
TEST(Hardening, RelocationsAreClosed) {
    EXPECT_EQ(LinesWith("readelf -lW", "GNU_RELRO").size(), 1U);
    const std::vector<std::string> flags = LinesWith("readelf -dW", "(FLAGS)");
    ASSERT_EQ(flags.size(), 1U);
    EXPECT_NE(flags[0].find("BIND_NOW"), std::string::npos);
}

TEST(Hardening, NoRelocationLiesInCode) {
    EXPECT_TRUE(LinesWith("readelf -dW", "TEXTREL").empty());
    EXPECT_FALSE(LinesWith("readelf -dW", "(FLAGS)").empty());
}

TEST(Hardening, StacksAreGuarded) { EXPECT_EQ(LinesWith("nm -D -u", "__stack_chk_fail").size(), 1U); }

// Checked functions of the C library compare the size of a write with the size of its buffer. The compiler uses the
// plain function where it can prove that the write fits, so the library may contain no checked function at all. The
// test therefore reads the compiler's commands.
TEST(Hardening, TheCLibrarysCallsAreChecked) {
    const std::string commands = "grep -E '\"command\": .*qf_mkv_core\\.dir' " + Quoted(QF_COMPILE_COMMANDS);
    const std::string all = RunCommand(commands + " | wc -l").m_Output;
    EXPECT_GT(std::stoi(all), 0);
    EXPECT_EQ(RunCommand(commands + " | grep -E -- ' -O[23] ' | grep -c -- ' -D_FORTIFY_SOURCE=2 '").m_Output, all);
}

} // namespace

#endif
