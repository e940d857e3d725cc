// SPDX-License-Identifier: MIT
// Losses that change how pictures are shown.
#pragma once

#include "LossText.h"
#include "Plan.h"

void TellOfPictures(const PlannedTrack& video, const Plan& plan, Losses& losses);
