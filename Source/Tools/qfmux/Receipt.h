// SPDX-License-Identifier: MIT
// What a run has done, for the user.
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

// Warns of what the tracks met on their way.
void WarnOfTracks(const std::optional<Track>& video, const std::optional<Track>& audio, RunReport& report);

// Adds what came out to the plan's facts. size: of the file, octets.
void AddFileFacts(nlohmann::json& facts, const Options& options, std::optional<Track>& video,
                  std::optional<Track>& audio, std::uint64_t size);

// Adds what was played.
void AddPlayed(nlohmann::json& facts, const Played& played);

// The closing line: "film.mkv: 6.02 s, 433 frames, 387 kB, verified". length: of the media, 100 ns.
std::string ClosingLine(const Options& options, std::optional<Track>& video, std::optional<Track>& audio,
                        const Played& played, std::int64_t length, std::uint64_t size);
