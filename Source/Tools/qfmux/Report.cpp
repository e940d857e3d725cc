#include "Report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Surroundings.h"
#include "ToolError.h"

void Say(const std::string& text) { std::fprintf(stderr, "qfmux: %s\n", Clean(text).c_str()); }

void PutResult(const std::string& words) {
    if (std::fwrite(words.data(), 1, words.size(), stdout) == words.size() && std::fflush(stdout) == 0) return;
    throw ToolError(kExitOutput, std::string("cannot write to stdout: ") + std::strerror(errno));
}

std::string AsText(const nlohmann::json& json) {
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

void Report::Note(const std::string& text) {
    m_Notes.push_back(text);
    if (!m_Quiet) Say(text);
}

void Report::Warn(const std::string& text) {
    if (std::find(m_Warnings.begin(), m_Warnings.end(), text) != m_Warnings.end()) return;
    m_Warnings.push_back(text);
    if (!m_Quiet) Say("warning: " + text);
}

void Report::Detail(const std::string& text) {
    if (m_Verbose && !m_Quiet) Say(text);
}
