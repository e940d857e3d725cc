// SPDX-License-Identifier: MIT
// Whether a source is damaged or ends too early.
#pragma once

#include <optional>

#include "RunReport.h"
#include "Track.h"

// Warns with one line for each source, once all frames have been read.
// isCut: the user asked for only the beginning.
void WarnOfDamage(const std::optional<Track>& video, const std::optional<Track>& audio, bool isCut, RunReport& report);
