// SPDX-License-Identifier: MIT
// One start of ffmpeg that answers many questions: a start takes more time than reading a short clip.
#pragma once

#include <string>

class FfmpegRun {
public:
    // The questions that follow are about this file. It is decoded in one thread, because several threads do not always
    // decode pictures with missing slices to the same result.
    // options: of this input, as on ffmpeg's command line
    void Open(const std::string& file, const std::string& options = "");

    // Asks for an output.
    // tracks: ":v", ":a" or empty for all
    // answer: the output's name; ffmpeg leaves no file there when it cannot make it
    void Ask(const std::string& tracks, const std::string& options, const std::string& answer);

    // Returns what ffmpeg says at this level of its log.
    std::string Run(const std::string& level) const;

private:
    int m_Opened = 0;
    std::string m_Inputs;
    std::string m_Outputs;
};
