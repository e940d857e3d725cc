// SPDX-License-Identifier: MIT
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

    // Goes through the media once more. phase: a word for it, which stays the caller's.
    void Begin(const char* phase);
    // position: in the media, 100 ns; size: octets so far. Shown a few times a second at most.
    // Returns true when it was time to show it.
    bool Update(std::int64_t position, std::uint64_t size);
    // The whole is done. Said once, and last.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;
    void Show(bool done);

    ProgressMode m_Mode; // Bar, Json or None
    std::int64_t m_Length;
    const char* m_Phase = "write";
    std::int64_t m_Position = 0;
    std::uint64_t m_Size = 0;
    Clock::time_point m_Start = Clock::now();
    Clock::time_point m_NextShow = m_Start;
    bool m_BarShown = false;
};
