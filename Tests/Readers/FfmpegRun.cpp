// SPDX-License-Identifier: MIT
#include "FfmpegRun.h"

#include "Command.h"

void FfmpegRun::Open(const std::string& file, const std::string& options) {
    m_Inputs += " -threads 1 " + options + " -i " + Quoted(file);
    ++m_Opened;
}

void FfmpegRun::Ask(const std::string& tracks, const std::string& options, const std::string& answer) {
    m_Outputs += " -map " + std::to_string(m_Opened - 1) + tracks + " " + options + " " + Quoted(answer);
}

std::string FfmpegRun::Run(const std::string& level) const {
    return RunCommand("ffmpeg -nostdin -v " + level + m_Inputs + m_Outputs + " 2>&1").m_Output;
}
