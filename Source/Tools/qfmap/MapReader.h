// SPDX-License-Identifier: MIT
// Reads a file's map with libebml and libmatroska. Payloads are skipped, and memory does not grow with the number of
// blocks.
#pragma once

#include <string>

#include "Map.h"

// Throws ToolError when the file cannot be read or is not Matroska. The map of a damaged or cut-off file holds what
// could be read, and m_Problems lists the damage.
FileMap ReadFileMap(const std::string& path);
