// SPDX-License-Identifier: MIT
// Streams that are left out.
#pragma once

#include <memory>
#include <vector>

#include "LossText.h"
#include "Options.h"
#include "Plan.h"

void TellOfStreams(const Plan& plan, const std::vector<std::shared_ptr<MediaFile>>& inputs, const Options& options,
                   Losses& losses);
