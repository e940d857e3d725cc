// SPDX-License-Identifier: MIT
// The test sets time and random numbers: this file's rand and time replace those of the C library, in the test program
// and in a plug-in that it loads. The time zone is UTC.
#pragma once

#include <cstdint>
#include <vector>

namespace FakeEnvironment {

// The result of time(); 2024-01-01 00:00:00 UTC at the start of each test program.
void SetTime(std::int64_t secondsSince1970);
std::int64_t Time();

// The results of rand(), one after another; when they run out, 1, 2, 3, ...
void SetRand(std::vector<int> values);

} // namespace FakeEnvironment
