// What the user is told: lines on stderr, and results on stdout.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// One line on stderr, whatever the text holds.
void Say(const std::string& text);

// Words on stdout. Throws ToolError when they do not get there.
void PutResult(const std::string& words);

// Names of files may hold any octets, JSON only UTF-8.
std::string AsText(const nlohmann::json& json);

class Report {
public:
    Report(bool quiet, bool verbose) : m_Quiet(quiet), m_Verbose(verbose) {}

    // Something worth knowing.
    void Note(const std::string& text);
    // Something that is not as it should be; the run ends with exit code 1. Each text is said once.
    void Warn(const std::string& text);
    // For --verbose.
    void Detail(const std::string& text);

    const std::vector<std::string>& Notes() const { return m_Notes; }
    const std::vector<std::string>& Warnings() const { return m_Warnings; }

private:
    bool m_Quiet;
    bool m_Verbose;
    std::vector<std::string> m_Notes;
    std::vector<std::string> m_Warnings;
};
