// SPDX-License-Identifier: MIT
#include "RunReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Messages.h"

RunReport::RunReport() : m_pFacts(std::make_unique<nlohmann::json>(nlohmann::json::object())) {}

RunReport::~RunReport() = default;

void RunReport::Note(const std::string& text) { m_Notes.push_back(text); }

void RunReport::Warn(const std::string& text) {
    if (std::find(m_Warnings.begin(), m_Warnings.end(), text) != m_Warnings.end()) return;
    m_HasWarnings = true;
    m_Warnings.push_back(text);
    if (!m_Quiet) Say("warning: " + text);
}

void RunReport::Lose(const Loss& loss) {
    m_HasWarnings = m_HasWarnings || loss.m_Weight == LossWeight::Warning;
    m_Losses.push_back(loss);
}

void RunReport::Tell() const {
    if (m_Quiet) return;
    for (const std::string& note : m_Notes) Say(note);
    for (const Loss& loss : m_Losses) {
        if (loss.m_Weight == LossWeight::Note) Say(loss.m_Text);
        if (loss.m_Weight == LossWeight::Warning) Say("warning: " + loss.m_Text);
    }
}

void RunReport::Detail(const std::string& text) {
    if (m_Verbose && !m_Quiet) Say(text);
}

void RunReport::Close(const std::string& text) {
    if (!m_Quiet) Say(text);
}

nlohmann::json RunReport::AsJson(int exitCode, const std::string& error) const {
    nlohmann::json json = *m_pFacts;
    json["lost"] = nlohmann::json::array();
    for (const Loss& loss : m_Losses) {
        static constexpr const char* kWeights[] = {"as asked", "note", "warning"};
        json["lost"].push_back(
            {{"kind", loss.m_Kind}, {"text", loss.m_Text}, {"weight", kWeights[static_cast<int>(loss.m_Weight)]}});
    }
    json["notes"] = m_Notes;
    json["warnings"] = m_Warnings;
    json["exitCode"] = exitCode;
    if (!error.empty()) json["error"] = error;
    return json;
}
