// SPDX-License-Identifier: MIT
// Where a file's streams will begin and end otherwise than the source's, and how its sound will be heard.
#pragma once

#include <vector>

#include "LossText.h"
#include "Plan.h"

void TellOfEnds(const std::vector<const PlannedTrack*>& tracks, Losses& losses);
