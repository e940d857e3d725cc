// SPDX-License-Identifier: MIT
// How a stream is encoded.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AvOptions.h"
#include "MediaFile.h"
#include "Options.h"
#include "Target.h"

struct Encoding {
    // With the padding, as one text.
    std::string AllFilters() const { return m_Filter + (m_Padding.empty() ? "" : "," + m_Padding); }

    const Target* m_pTarget;
    std::string m_Filter;             // what the decoded stream passes, in libavfilter's notation
    std::string m_Padding;            // the same for the end of sound, behind all changes of its parameters
    AvOptions m_Options;              // of the encoder, as libavcodec names them
    std::vector<std::string> m_Notes; // changes that the user did not ask for
    bool m_Deinterlaces;
    bool m_IsCompared;            // the decoded result is compared with what was encoded
    bool m_SetupInFrames;         // key frames carry their parameter sets
    bool m_KeyFramesOpenClusters; // the first picture of each cluster becomes a key frame
    std::int64_t m_Length;        // where to stop, 100 ns after the start of the source
};

// Throws ToolError for options that libavcodec does not know.
Encoding PlanEncoding(const MediaFile& file, AVStream* stream, const Target& target, bool isWebm,
                      const Options& options);
