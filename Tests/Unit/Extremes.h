// SPDX-License-Identifier: MIT
// The largest and the smallest numbers of two widths.
#pragma once

#include <cstdint>
#include <limits>

constexpr std::int64_t kMost64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t kMost32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast32 = std::numeric_limits<std::int32_t>::min();
