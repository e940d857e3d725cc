// SPDX-License-Identifier: MIT
// A track's parameters and set-up data for the plug-in.
#pragma once

#include <optional>

#include "Session.h"
#include "Track.h"

VideoParam VideoParamOf(const Track& track);
AudioParam AudioParamOf(const Track& track);

// Hands the codecs' set-up data to the plug-in.
void SendSetup(HostCalls& host, void* handle, const std::optional<Track>& video, const std::optional<Track>& audio);
