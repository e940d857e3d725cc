// SPDX-License-Identifier: MIT
// Header fields of a Matroska file that libavformat does not expose (RFC 9559).
#pragma once

#include <string>
#include <vector>

struct MatroskaHeader {
    double m_Duration = 0;     // s
    std::vector<bool> m_Crops; // for each video track: whether its pictures are cropped
};

// Empty for a file of another kind. A Tracks element after the frames is not read.
MatroskaHeader ReadMatroskaHeader(const std::string& path);
