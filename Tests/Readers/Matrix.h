// SPDX-License-Identifier: MIT
// The files that public readers open: pairs of a picture clip and a sound clip, and their codes.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "KnownDifferences.h"

// What each reader calls a codec.
struct CodecNames {
    const char* m_CodecID;
    const char* m_Mkvmerge;
    const char* m_Mediainfo;
    const char* m_Gstreamer;
    const char* m_Avformat;
};

struct VideoRow {
    const char* m_Name;
    const char* m_Clip;
    const char* m_Options; // of qfmux
    CodecNames m_Codec;
    bool m_SplitUnits; // H.264 whose units are taken apart on the way: what is compared is the units
    bool m_SlicesOnly; // of which slices alone are kept
    Tags m_Tags;
};

struct AudioRow {
    const char* m_Name;
    const char* m_Clip;
    const char* m_SourceOptions; // of ffmpeg, so that it decodes what the source says to leave out
    CodecNames m_Codec;
    int m_Rate;
    int m_Channels;
    Tags m_Tags;
};

enum class LateSetup { No, Yes };

struct Case {
    std::string m_Extension;
    std::string m_Options;
    const VideoRow* m_pVideo; // null for none
    const AudioRow* m_pAudio;
    LateSetup m_LateSetup = LateSetup::No;

    std::string Name() const;
    Tags StaticTags() const;
};

// For GoogleTest's messages.
void PrintTo(const Case& one, std::ostream* out);

// Every code and trait with every reader, about fifty files; with QF_READERS_FULL in the environment every picture with
// every sound.
std::vector<Case> MatrixCases();
