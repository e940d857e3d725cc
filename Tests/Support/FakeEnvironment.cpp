// SPDX-License-Identifier: MIT
#include "FakeEnvironment.h"

#include <utility>

#include "PinnedEnvironment.h"

namespace {

std::int64_t g_Time = 0;

// Before main, and before any test reads the zone.
const bool g_Pinned = [] {
    PinnedEnvironment::PinZone();
    FakeEnvironment::SetTime(1704067200);
    FakeEnvironment::SetRand({});
    return true;
}();

} // namespace

void FakeEnvironment::SetTime(std::int64_t secondsSince1970) {
    g_Time = secondsSince1970;
    PinnedEnvironment::PinTime(secondsSince1970);
}

std::int64_t FakeEnvironment::Time() { return g_Time; }

void FakeEnvironment::SetRand(std::vector<int> values) { PinnedEnvironment::PinRand(std::move(values)); }
