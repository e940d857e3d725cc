// Time and chance, pinned: a program that links this file has its own rand and time, and with ENABLE_EXPORTS so has a
// plug-in that it loads. Until they are pinned they are the C library's.
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
