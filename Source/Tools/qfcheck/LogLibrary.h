// SPDX-License-Identifier: MIT
// The double of the host's log, carried inside the program.
#pragma once

#include "Octets.h"

// The octets of the library file.
Octets LogLibrary();
