// What a run has to tell its user.
#pragma once

#include <string>
#include <vector>

class RunReport {
public:
    RunReport(bool quiet, bool verbose) : m_Quiet(quiet), m_Verbose(verbose) {}

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
