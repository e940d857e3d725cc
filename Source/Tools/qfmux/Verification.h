// SPDX-License-Identifier: MIT
// Verification of the finished file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Excerpts.h"
#include "Options.h"
#include "Playing.h"
#include "Progress.h"
#include "StagedFile.h"
#include "Track.h"

class RunReport;

class Verification {
public:
    // length: the media's expected length, 100 ns; 0 if it is not known. The tracks must outlive this object.
    Verification(const Options& options, std::int64_t length, std::optional<Track>& video, std::optional<Track>& audio);

    // To be called for each frame that becomes a block. time: of the block, ms in the file.
    void Take(bool isVideo, const Frame& frame, std::int64_t time);

    // To be called once the file is closed. Throws ToolError when frames are missing or differ, or when the file plays
    // differently from the source. --verify chooses the checks.
    void Check(const StagedFile& output, Progress& progress, RunReport& report);

    const Played& Play() const { return m_Played; }

private:
    const Options& m_Options;
    std::optional<Track>& m_Video;
    std::optional<Track>& m_Audio;
    std::optional<Excerpts> m_Excerpts; // for VerifyMode::Full
    std::unique_ptr<WholePlay> m_Whole; // for VerifyMode::Decode
    Played m_Played;
};
