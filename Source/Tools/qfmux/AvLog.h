// SPDX-License-Identifier: MIT
// The log of the media libraries, which is not printed.
#pragma once

#include <string>

// Keeps the errors in the log from now on.
void KeepAvErrors();

// The last error that a decoder, an encoder or a filter has logged on this thread since the last call, or else
// libavutil's text for the error code.
std::string TakeAvError(int result);
