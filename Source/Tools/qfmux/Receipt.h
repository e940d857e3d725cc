// What a run has done, for the user.
#pragma once

#include <cstdint>
#include <optional>

#include "Options.h"
#include "Plan.h"
#include "RunReport.h"
#include "Track.h"

// Warns of what the tracks met on their way.
void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, RunReport& report);

// The result as JSON on stdout. size: of the file, octets.
void PrintResult(const Options& options, const Plan& plan, std::optional<Track>& video, std::optional<Track>& audio,
                 const RunReport& report, int exitCode, std::uint64_t size);
