// SPDX-License-Identifier: MIT
// Where a file begins.
#pragma once

#include <optional>

#include "Track.h"

class RunReport;

// Leaves out the pictures in front of the first with which decoding can begin, and the sound in front of that.
// Throws ToolError when there is no such picture.
void LeaveOutFront(Track& video, std::optional<Track>& audio);

// Warns of what was left out in front, once all frames have been sent.
void WarnOfFront(const Track& video, const std::optional<Track>& audio, RunReport& report);
