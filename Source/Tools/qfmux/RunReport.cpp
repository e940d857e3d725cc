#include "RunReport.h"

#include <algorithm>

#include "Messages.h"

void RunReport::Note(const std::string& text) {
    m_Notes.push_back(text);
    if (!m_Quiet) Say(text);
}

void RunReport::Warn(const std::string& text) {
    if (std::find(m_Warnings.begin(), m_Warnings.end(), text) != m_Warnings.end()) return;
    m_HasWarnings = true;
    m_Warnings.push_back(text);
    if (!m_Quiet) Say("warning: " + text);
}

void RunReport::Lose(const Loss& loss, bool isTold) {
    static constexpr const char* kWeights[] = {"as asked", "note", "warning"};
    const bool isWarning = loss.m_Weight == LossWeight::Warning;
    m_HasWarnings = m_HasWarnings || isWarning;
    m_Lost.push_back(
        {{"kind", loss.m_Kind}, {"text", loss.m_Text}, {"weight", kWeights[static_cast<int>(loss.m_Weight)]}});
    if (isTold && !m_Quiet && loss.m_Weight != LossWeight::AsAsked) Say((isWarning ? "warning: " : "") + loss.m_Text);
}

void RunReport::Detail(const std::string& text) {
    if (m_Verbose && !m_Quiet) Say(text);
}

void RunReport::Close(const std::string& text) {
    if (!m_Quiet) Say(text);
}

nlohmann::json RunReport::AsJson(int exitCode, const std::string& error) const {
    nlohmann::json json = m_Facts;
    json["lost"] = m_Lost;
    json["notes"] = m_Notes;
    json["warnings"] = m_Warnings;
    json["exitCode"] = exitCode;
    if (!error.empty()) json["error"] = error;
    return json;
}
