// SPDX-License-Identifier: MIT
// How much there is to do.
#pragma once

#include <cstdint>

#include "Options.h"
#include "Plan.h"

// How long the media is, 100 ns, and about how many octets the chosen streams have; 0 for not known.
struct Extent {
    std::int64_t m_Length = 0;
    std::uint64_t m_Octets = 0;
};

Extent EstimateExtent(const Plan& plan, const Options& options);
