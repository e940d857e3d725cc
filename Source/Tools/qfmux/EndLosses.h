// SPDX-License-Identifier: MIT
// Losses at the beginning and end of streams, and in the presentation of sound.
#pragma once

#include <vector>

#include "LossText.h"
#include "Options.h"
#include "Plan.h"

void TellOfEnds(const std::vector<const PlannedTrack*>& tracks, const Options& options, Losses& losses);
