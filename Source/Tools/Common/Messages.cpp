// SPDX-License-Identifier: MIT
#include "Messages.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Surroundings.h"
#include "ToolError.h"

void Say(const std::string& text) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, Clean(text).c_str());
}

void PutResult(const std::string& words) {
    if (std::fwrite(words.data(), 1, words.size(), stdout) == words.size() && std::fflush(stdout) == 0) return;
    throw ToolError(kExitOutput, std::string("cannot write to stdout: ") + std::strerror(errno));
}

std::string AsText(const nlohmann::json& json) {
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
