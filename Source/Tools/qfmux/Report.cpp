#include "Report.h"

#include <algorithm>
#include <cstdio>

namespace {

void Say(const std::string& text) { std::fprintf(stderr, "qfmux: %s\n", text.c_str()); }

} // namespace

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
