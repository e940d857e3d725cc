// SPDX-License-Identifier: MIT
// Where a file begins.
#pragma once

#include <optional>

#include "Track.h"

class RunReport;

// Leaves out the pictures before the first picture at which decoding can begin, and the sound before this picture.
// Throws ToolError when there is no such picture.
void LeaveOutFront(Track& video, std::optional<Track>& audio);

// Warns of the frames that were left out, once all frames have been sent.
void WarnOfFront(const Track& video, const std::optional<Track>& audio, RunReport& report);
