// SPDX-License-Identifier: MIT
// Header fields of a Matroska file that libavformat does not expose (RFC 9559).
#pragma once

#include <string>
#include <vector>

#include "Crop.h"

struct MatroskaPicture {
    Crop m_Crop;
    bool m_HasDisplaySize = false;
};

struct MatroskaHeader {
    double m_Duration = 0;                   // s
    bool m_HasCues = false;                  // an index by which libavformat seeks
    std::vector<MatroskaPicture> m_Pictures; // of each video track
};

// Empty for a file of another kind. A Tracks element after the frames is not read.
MatroskaHeader ReadMatroskaHeader(const std::string& path);
