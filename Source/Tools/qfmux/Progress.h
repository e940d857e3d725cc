// SPDX-License-Identifier: MIT
// The progress of a run: a bar on the terminal, or one JSON object per line.
#pragma once

#include <chrono>
#include <cstdint>

#include "Options.h"

class Progress {
public:
    // length: of the media, 100 ns; 0 when it is not known.
    Progress(ProgressMode mode, bool quiet, std::int64_t length);
    // Clears the terminal's line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Starts a new pass over the media. phase: its name, which must outlive this object.
    void Begin(const char* phase);
    // position: in the media, 100 ns; size: octets so far; pictures: encoded so far. Shows at most a few updates a
    // second. Returns whether this update was due.
    bool Update(std::int64_t position, std::uint64_t size, std::uint64_t pictures = 0);
    // To be called once, at the end of the run.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;
    void Show(bool done);

    ProgressMode m_Mode; // Bar, Json or None
    std::int64_t m_Length;
    const char* m_Phase = "write";
    std::int64_t m_Position = 0;
    std::uint64_t m_Size = 0;
    std::uint64_t m_Pictures = 0;
    Clock::time_point m_Start = Clock::now();
    Clock::time_point m_NextShow = m_Start;
    bool m_BarShown = false;
};
