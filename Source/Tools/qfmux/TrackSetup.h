// SPDX-License-Identifier: MIT
// What the plug-in is told of a track in front of its frames.
#pragma once

#include <optional>

#include "Session.h"
#include "Track.h"

VideoParam VideoParamOf(const Track& track);
AudioParam AudioParamOf(const Track& track);

// Hands the codecs' set-up data to the plug-in.
void SendSetup(HostCalls& host, void* handle, const std::optional<Track>& video, const std::optional<Track>& audio);
