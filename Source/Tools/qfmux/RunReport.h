// SPDX-License-Identifier: MIT
// The messages of a run.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Loss.h"

class RunReport {
public:
    RunReport();
    ~RunReport();

    void BeQuiet() { m_Quiet = true; }
    void BeVerbose() { m_Verbose = true; }

    // Adds a remark on the file.
    void Note(const std::string& text);
    // Prints a warning, each text once. The run ends with exit code 1.
    void Warn(const std::string& text);
    // Adds a loss.
    void Lose(const Loss& loss);
    // Prints the notes and losses, once the file exists.
    void Tell() const;
    // Prints a line for --verbose.
    void Detail(const std::string& text);
    // Prints the last line of a complete run.
    void Close(const std::string& text);

    // Whether there were warnings, losses of that weight included.
    bool HasWarnings() const { return m_HasWarnings; }

    // Further members for --json: facts of the plan and of the file.
    nlohmann::json& Facts() { return *m_pFacts; }
    // error: the error that ended the run, or empty.
    nlohmann::json AsJson(int exitCode, const std::string& error) const;

private:
    bool m_Quiet = false;
    bool m_Verbose = false;
    bool m_HasWarnings = false;
    std::vector<std::string> m_Notes;
    std::vector<std::string> m_Warnings;
    std::vector<Loss> m_Losses;
    std::unique_ptr<nlohmann::json> m_pFacts;
};
