// SPDX-License-Identifier: MIT
// One run: reads media files and writes one file with the plug-in.
#pragma once

#include "Options.h"
#include "Plugin.h"

class RunReport;

// Returns the exit code of a run whose file is in place: done, done with warnings, or ended by a signal.
// Otherwise throws ToolError and leaves the target unchanged.
int Remux(const Options& options, const Plugin& plugin, RunReport& report);
