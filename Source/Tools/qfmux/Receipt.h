// What a run has done, for the user.
#pragma once

#include <cstdint>
#include <optional>

#include "Options.h"
#include "Plan.h"
#include "Report.h"
#include "Track.h"

// Warns of what the tracks met on their way.
void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, Report& report);

// The result as JSON on stdout. size: of the file, octets.
void PrintResult(const Options& options, const Plan& plan, std::optional<Track>& video, std::optional<Track>& audio,
                 const Report& report, int exitCode, std::uint64_t size);
