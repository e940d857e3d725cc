// SPDX-License-Identifier: MIT
// The estimated amount of work.
#pragma once

#include <cstdint>

#include "Options.h"
#include "Plan.h"

// The length of the media, 100 ns, and the approximate octets of the chosen streams; 0 if not known.
struct Extent {
    std::int64_t m_Length = 0;
    std::uint64_t m_Octets = 0;
};

Extent EstimateExtent(const Plan& plan, const Options& options);
