// SPDX-License-Identifier: MIT
// How a file's pictures will be shown otherwise than the source's.
#pragma once

#include "LossText.h"
#include "Plan.h"

void TellOfPictures(const PlannedTrack& video, const Plan& plan, Losses& losses);
