// How far a run is: a bar on the terminal, or one JSON object a line.
#pragma once

#include <chrono>
#include <cstdint>

#include "Options.h"

class Progress {
public:
    // length: of the media, 100 ns; 0 when it is not known.
    Progress(ProgressMode mode, bool quiet, std::int64_t length);
    // Leaves the terminal's line clean.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // position: in the media, 100 ns; size: octets so far. Shown a few times a second at most.
    // Returns true when it was time to show it.
    bool Update(std::int64_t position, std::uint64_t size);
    // The whole is done.
    void Finish(std::int64_t position, std::uint64_t size);

private:
    using Clock = std::chrono::steady_clock;
    void Show(std::int64_t position, std::uint64_t size, double seconds, bool done);

    ProgressMode m_Mode; // Bar, Json or None
    std::int64_t m_Length;
    Clock::time_point m_Start = Clock::now();
    Clock::time_point m_NextShow = m_Start;
    bool m_BarShown = false;
};
