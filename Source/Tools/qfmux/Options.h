// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

enum class Command { Remux, Formats };
enum class VerifyMode { Full, Decode, None };
enum class ProgressMode { Auto, Bar, Json, None };
enum class EncodeMode { None, Auto, Video, Audio, All };

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
    EncodeMode m_Encode = EncodeMode::None;
    std::string m_VideoCodec; // names of encoding targets; empty for the format's usual one
    std::string m_AudioCodec;
    std::string m_VideoOptions; // of the encoders, as libavcodec names them
    std::string m_AudioOptions;
    std::optional<double> m_Quality; // of pictures, 0 to 100
    std::int64_t m_VideoBitrate = 0; // bits per second; 0 for the quality's
    std::int64_t m_AudioBitrate = 0;
    bool m_Deinterlace = false;
    std::string m_Size;        // "1280x720", "1280x", "x720", or empty
    std::string m_VideoFilter; // in libavfilter's notation
    std::string m_AudioFilter;
    double m_Duration = std::numeric_limits<double>::infinity(); // s
    bool m_Overwrite = false;
    bool m_Quiet = false;
    bool m_Verbose = false;
    bool m_Json = false;
    bool m_Sync = false;
    bool m_DryRun = false;
    VerifyMode m_Verify = VerifyMode::Full;
    ProgressMode m_Progress = ProgressMode::Auto;
    // Whether there are options for encoding pictures, or sound.
    bool HasVideoEncoding() const {
        return !m_VideoCodec.empty() || !m_VideoOptions.empty() || m_Quality || m_VideoBitrate > 0 || m_Deinterlace ||
               !m_Size.empty() || !m_VideoFilter.empty();
    }
    bool HasAudioEncoding() const {
        return !m_AudioCodec.empty() || !m_AudioOptions.empty() || m_AudioBitrate > 0 || !m_AudioFilter.empty();
    }

    std::string m_Record; // where to record the session, empty for nowhere
};

// Throws ToolError for a wrong command line. Returns nothing after printing the help or the version.
std::optional<Options> ParseOptions(int argc, char** argv);

// Whether the command line has --json, even if the rest of it is wrong.
bool WantsJson(int argc, char** argv);
