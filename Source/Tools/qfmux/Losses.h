// SPDX-License-Identifier: MIT
// The losses that are known before a run.
#pragma once

#include <memory>
#include <vector>

#include "Loss.h"
#include "Options.h"
#include "Plan.h"

// Lists every loss that is known before the frames are read, one entry for each kind.
std::vector<Loss> ListLosses(const Plan& plan, const std::vector<std::shared_ptr<MediaFile>>& inputs,
                             const Options& options);
