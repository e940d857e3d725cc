// SPDX-License-Identifier: MIT
// Whether what came out is the user's film.
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
    // length: of the media as far as it is known, 100 ns, else 0. The tracks must outlive it.
    Verification(const Options& options, std::int64_t length, std::optional<Track>& video, std::optional<Track>& audio);

    // To be called for each frame that becomes a block. time: of the block, ms in the file.
    void Take(bool isVideo, const Frame& frame, std::int64_t time);

    // To be called once the file is closed. Throws ToolError when the file does not hold all that was sent, or does not
    // play as the source does, as far as was asked.
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
