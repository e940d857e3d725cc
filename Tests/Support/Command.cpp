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

long PeakMemory(const std::string& line) {
    const CommandResult result =
        RunCommand("python3 -c 'import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True, "
                   "stdout=subprocess.DEVNULL); print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)' " +
                   line);
    if (result.m_ExitCode != 0) throw std::runtime_error("this failed: " + line);
    return std::stol(result.m_Output) * 1024;
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
