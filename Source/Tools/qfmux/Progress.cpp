// SPDX-License-Identifier: MIT
#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace {

constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr int kBarWidth = 30;

std::string ClockText(double seconds) {
    const auto whole = std::lround(seconds);
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    return text;
}

} // namespace

Progress::Progress(ProgressMode mode, bool quiet, std::int64_t length) : m_Mode(mode), m_Length(length) {
    if (mode == ProgressMode::Auto) {
        m_Mode = !quiet && isatty(STDERR_FILENO) != 0 ? ProgressMode::Bar : ProgressMode::None;
    }
}

Progress::~Progress() {
    if (m_BarShown) std::fputs("\r\033[K", stderr);
}

void Progress::Begin(const char* phase) {
    m_Phase = phase;
    m_Position = 0;
    m_Pictures = 0;
    m_Start = m_NextShow = Clock::now();
}

bool Progress::Update(std::int64_t position, std::uint64_t size, std::uint64_t pictures) {
    m_Position = position;
    m_Size = size;
    m_Pictures = pictures;
    const Clock::time_point now = Clock::now();
    if (now < m_NextShow) return false;
    m_NextShow = now + kInterval;
    Show(false);
    return true;
}

void Progress::Finish() {
    if (m_Mode == ProgressMode::Json) Show(true);
}

void Progress::Show(bool done) {
    if (m_Mode == ProgressMode::None) return;
    const double seconds = std::chrono::duration<double>(Clock::now() - m_Start).count();
    const double mediaSeconds = static_cast<double>(m_Position) / 1e7;
    const double length = static_cast<double>(m_Length) / 1e7;
    const double share = done ? 1.0 : length > 0 ? std::clamp(mediaSeconds / length, 0.0, 1.0) : 0.0;
    const double speed = seconds > 0 ? mediaSeconds / seconds : 0.0;
    const double rate = seconds > 0 ? static_cast<double>(m_Pictures) / seconds : 0.0;
    const double remaining = share > 0 ? seconds / share - seconds : 0.0;
    if (m_Mode == ProgressMode::Json) {
        nlohmann::json line = {{"phase", m_Phase}, {"percent", share * 100}, {"seconds", mediaSeconds},
                               {"speed", speed},   {"remaining", remaining}, {"size", m_Size},
                               {"done", done}};
        if (m_Pictures > 0) line["framesPerSecond"] = rate;
        std::printf("%s\n", line.dump().c_str());
        std::fflush(stdout);
        return;
    }
    std::string bar(kBarWidth, '.');
    std::fill_n(bar.begin(), static_cast<int>(share * kBarWidth), '#');
    // Encoders may be slower than the film.
    std::fprintf(stderr, "\r\033[K%-6s [%s] %3.0f %%  %.*fx  ", m_Phase, bar.c_str(), share * 100, speed < 10 ? 1 : 0,
                 speed);
    if (m_Pictures > 0) std::fprintf(stderr, "%.0f frames/s  ", rate);
    std::fprintf(stderr, "%s left  %.1f MB", ClockText(remaining).c_str(), static_cast<double>(m_Size) / 1e6);
    std::fflush(stderr);
    m_BarShown = true;
}
