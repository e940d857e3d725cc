// One run: a media file in, a file of the plug-in's out.
#pragma once

#include <string>

struct RemuxJob {
    std::string m_Plugin;
    std::string m_Input;
    std::string m_Output;
};

// Throws ToolError; then nothing is left at the output's path. Notes for the user go to stderr.
void Remux(const RemuxJob& job);
