// SPDX-License-Identifier: MIT
// What a file will not have of its sources.
#pragma once

#include <memory>
#include <vector>

#include "Loss.h"
#include "Options.h"
#include "Plan.h"

// Names every loss that can be known before the frames are read, one entry for each kind.
std::vector<Loss> ListLosses(const Plan& plan, const std::vector<std::shared_ptr<MediaFile>>& inputs,
                             const Options& options);
