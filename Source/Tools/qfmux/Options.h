// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

enum class Command { Remux, Formats };
enum class VerifyMode { Full, Decode, None };
enum class ProgressMode { Auto, Bar, Json, None };

struct Aspect {
    int m_X;
    int m_Y;
};

struct Options {
    Command m_Command = Command::Remux;
    std::vector<std::string> m_Inputs; // one or two
    std::string m_Output;
    std::string m_Plugin;
    std::string m_Format; // MKV, HMKV, MKA, WEBM; empty: from the output's extension
    bool m_NoVideo = false;
    bool m_NoAudio = false;
    bool m_NoSubtitles = false;      // do not warn: they are always left out
    bool m_NoData = false;           // the same
    std::optional<int> m_VideoIndex; // index among the inputs' video streams; if absent, the best one
    std::optional<int> m_AudioIndex;
    std::optional<Aspect> m_Aspect; // if absent, the source's when its pixels are not square
    std::string m_H264;             // H264, N264, A264, I264, havc: the code of the start-code form; empty for lengths
    bool m_ForceCodec = false;
    double m_Duration = std::numeric_limits<double>::infinity(); // s
    bool m_Overwrite = false;
    bool m_Quiet = false;
    bool m_Verbose = false;
    bool m_Json = false;
    bool m_Sync = false;
    bool m_DryRun = false;
    VerifyMode m_Verify = VerifyMode::Full;
    ProgressMode m_Progress = ProgressMode::Auto;
    std::string m_Record; // where to record the session, empty for nowhere
};

// Throws ToolError for a wrong command line. Returns nothing after printing the help or the version.
std::optional<Options> ParseOptions(int argc, char** argv);

// Whether the command line has --json, even if the rest of it is wrong.
bool WantsJson(int argc, char** argv);
