// SPDX-License-Identifier: MIT
// A session's records as a host lays them out in memory, with the host's own octets between the fields.
#pragma once

#include "HostRecords.h"
#include "RandomSession.h"

EncodeParam JobOf(const HostCall& call);
MuxParam OptionsOf(const HostCall& call);
// Without data.
MEDIA_FRAME FrameOf(const HostCall& call);
