#include "RunReport.h"

#include <algorithm>

#include "Messages.h"

void RunReport::Note(const std::string& text) {
    m_Notes.push_back(text);
    if (!m_Quiet) Say(text);
}

void RunReport::Warn(const std::string& text) {
    if (std::find(m_Warnings.begin(), m_Warnings.end(), text) != m_Warnings.end()) return;
    m_Warnings.push_back(text);
    if (!m_Quiet) Say("warning: " + text);
}

void RunReport::Detail(const std::string& text) {
    if (m_Verbose && !m_Quiet) Say(text);
}
