// SPDX-License-Identifier: MIT
#include "IsWhole.h"

#include <cstddef>
#include <cstdint>
#include <fstream>

#include "GuideIsWhole.inc"
