// SPDX-License-Identifier: MIT
// What a run has to tell its user.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Loss.h"

class RunReport {
public:
    void BeQuiet() { m_Quiet = true; }
    void BeVerbose() { m_Verbose = true; }

    // Something worth knowing of a file that comes into being.
    void Note(const std::string& text);
    // Something that is not as it should be; the run ends with exit code 1. Each text is said once.
    void Warn(const std::string& text);
    // Something that such a file does not have.
    void Lose(const Loss& loss);
    // Says the notes and losses, now that the file is there.
    void Tell() const;
    // For --verbose.
    void Detail(const std::string& text);
    // The last line of a run that is done.
    void Close(const std::string& text);

    // Whether something is not as it should be.
    bool HasWarnings() const { return m_HasWarnings; }

    // What --json tells besides: facts of the plan and of the file.
    nlohmann::json& Facts() { return m_Facts; }
    // error: what ended the run, or empty.
    nlohmann::json AsJson(int exitCode, const std::string& error) const;

private:
    bool m_Quiet = false;
    bool m_Verbose = false;
    bool m_HasWarnings = false;
    std::vector<std::string> m_Notes;
    std::vector<std::string> m_Warnings;
    std::vector<Loss> m_Losses;
    nlohmann::json m_Facts = nlohmann::json::object();
};
