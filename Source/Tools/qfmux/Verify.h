// SPDX-License-Identifier: MIT
// Whether a finished file holds what was sent in.
#pragma once

#include <optional>
#include <string>

#include "Progress.h"
#include "TrackDigest.h"

// Checks that the Segment's size agrees with the file's length. Returns what is wrong, or nothing.
std::optional<std::string> CheckSegmentSize(const std::string& path);

// Reads the file back and compares each track with what it must hold; null for no such track.
// hasUnits: whether the video track's frames are units of H.264 behind lengths. Returns what is wrong, or nothing.
std::optional<std::string> CheckBlocks(const std::string& path, const TrackDigest* video, bool hasUnits,
                                       const TrackDigest* audio, Progress& progress);
