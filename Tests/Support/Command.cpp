// SPDX-License-Identifier: MIT
#include "Command.h"

#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>

CommandResult RunCommand(const std::string& line) {
    FILE* const pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot run " + line);
    std::string output;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), output};
}

std::string Quoted(const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}
