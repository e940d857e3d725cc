// SPDX-License-Identifier: MIT
// The results of a run, for the user.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "Options.h"
#include "Plan.h"
#include "Playing.h"
#include "Track.h"

class RunReport;

// Reports irregularities of the tracks: slices in blocks of their own, changed set-up data, missing or jumping times.
void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, RunReport& report);

// Adds the file's properties to the plan's facts. size: of the file, octets.
void AddFileFacts(nlohmann::json& facts, const Options& options, std::optional<Track>& video,
                  std::optional<Track>& audio, std::uint64_t size);

// Adds the counts of played places, pictures and samples.
void AddPlayed(nlohmann::json& facts, const Played& played);

// The closing line: "film.mkv: 6.02 s, 433 frames, 387 kB, verified". length: of the media, 100 ns.
std::string ClosingLine(const Options& options, std::optional<Track>& video, std::optional<Track>& audio,
                        const Played& played, std::int64_t length, std::uint64_t size);
