// SPDX-License-Identifier: MIT
// Pins time and chance: a program that links this file has its own rand and time, and with ENABLE_EXPORTS a plug-in
// that it loads uses them too. Until they are pinned, both call the C library.
#pragma once

#include <cstdint>
#include <vector>

namespace PinnedEnvironment {

// The time zone is UTC from now on.
void PinZone();

// What time() returns from now on.
void PinTime(std::int64_t secondsSince1970);

// What rand() returns from now on, one after another; when they run out, 1, 2, 3, ...
void PinRand(std::vector<int> values);

} // namespace PinnedEnvironment
