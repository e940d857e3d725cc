// SPDX-License-Identifier: MIT
#include "PinnedEnvironment.h"

#include <dlfcn.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <utility>

namespace {

std::optional<std::int64_t> g_Time;
std::optional<std::vector<int>> g_Rand;
std::size_t g_NextRand = 0;

// The C library's function of that name, which the one below hides.
template <class Function>
Function* Hidden(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void PinnedEnvironment::PinZone() {
    setenv("TZ", "UTC", 1);
    tzset();
}

void PinnedEnvironment::PinTime(std::int64_t secondsSince1970) { g_Time = secondsSince1970; }

void PinnedEnvironment::PinRand(std::vector<int> values) {
    g_Rand = std::move(values);
    g_NextRand = 0;
}

extern "C" {

int rand() noexcept {
    static const auto hidden = Hidden<int()>("rand");
    if (!g_Rand) return hidden();
    const std::size_t index = g_NextRand++;
    return index < g_Rand->size() ? (*g_Rand)[index] : static_cast<int>(index - g_Rand->size() + 1);
}

// With 64-bit times on a 32-bit machine the C library's header makes this name the symbol __time64.
time_t time(time_t* result) noexcept {
    timespec now{};
    if (g_Time) {
        now.tv_sec = static_cast<time_t>(*g_Time);
    } else {
        clock_gettime(CLOCK_REALTIME, &now);
    }
    if (result != nullptr) *result = now.tv_sec;
    return now.tv_sec;
}
}
