#include "FakeEnvironment.h"

#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

std::int64_t g_Time = 1704067200;
std::vector<int> g_Rand;
std::size_t g_NextRand = 0;

// Before main, and before any test reads the zone.
const bool g_ZoneSet = [] {
    setenv("TZ", "UTC", 1);
    tzset();
    return true;
}();

} // namespace

void FakeEnvironment::SetTime(std::int64_t secondsSince1970) { g_Time = secondsSince1970; }

std::int64_t FakeEnvironment::Time() { return g_Time; }

void FakeEnvironment::SetRand(std::vector<int> values) {
    g_Rand = std::move(values);
    g_NextRand = 0;
}

extern "C" {

int rand() noexcept {
    const std::size_t index = g_NextRand++;
    return index < g_Rand.size() ? g_Rand[index] : static_cast<int>(index - g_Rand.size() + 1);
}

time_t time(time_t* result) noexcept {
    const auto now = static_cast<time_t>(g_Time);
    if (result != nullptr) *result = now;
    return now;
}
}
