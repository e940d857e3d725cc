// SPDX-License-Identifier: MIT
// What a Matroska file tells in front of its frames and libavformat keeps to itself (RFC 9559).
#pragma once

#include <string>
#include <vector>

struct MatroskaHeader {
    double m_Duration = 0;     // s
    std::vector<bool> m_Crops; // of each video track: whether players leave out edges of its pictures
};

// Empty for a file of another kind; without tracks that stand behind the frames.
MatroskaHeader ReadMatroskaHeader(const std::string& path);
