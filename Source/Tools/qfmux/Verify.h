// SPDX-License-Identifier: MIT
// Comparison of a finished file with the frames sent to the plug-in.
#pragma once

#include <optional>
#include <string>

#include "Progress.h"
#include "TrackDigest.h"

// Checks that the Segment's size agrees with the file's length. Returns the fault, or nothing.
std::optional<std::string> CheckSegmentSize(const std::string& path);

// Reads the file back and compares each track with its expected digest; null for no such track.
// hasUnits: whether the video frames are H.264 units with length prefixes. Returns the fault, or nothing.
std::optional<std::string> CheckBlocks(const std::string& path, const TrackDigest* video, bool hasUnits,
                                       const TrackDigest* audio, Progress& progress);
