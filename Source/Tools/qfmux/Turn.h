// SPDX-License-Identifier: MIT
// How players turn a stream's pictures.
#pragma once

#include <string>

#include "AvPtr.h"

// "rotation by 90 degrees", "mirroring", or empty.
std::string TurnText(const AVStream* stream);

// The filters that turn the pictures so, in libavfilter's notation.
std::string TurnFilter(const AVStream* stream);
