// SPDX-License-Identifier: MIT
// One run: media files in, a file of the plug-in's out.
#pragma once

#include "Options.h"
#include "Plugin.h"

class RunReport;

// Returns the exit code of a run that ended with its file in place: done, with warnings, or by a signal.
// Throws ToolError else; then the target is as it was before.
int Remux(const Options& options, const Plugin& plugin, RunReport& report);
