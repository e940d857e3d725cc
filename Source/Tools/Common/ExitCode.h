// SPDX-License-Identifier: MIT
// How the tools end. The same number means the same in all of them.
#pragma once

enum ExitCode {
    kExitDone = 0,
    kExitWarnings = 1,     // done, but the user was warned
    kExitError = 2,        // an input or the plug-in cannot be used
    kExitUsage = 3,        // the command line
    kExitOutput = 4,       // the output is full, exists or cannot be written
    kExitVerification = 5, // a comparison or check failed
    kExitSignal = 128      // plus the signal's number
};
