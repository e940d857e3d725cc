// SPDX-License-Identifier: MIT
// A file's map as a picture.
#pragma once

#include <string>

#include "Map.h"

// Returns an SVG page: octets across, time up, a colour for each track. It stays below 500 KB for films of any length.
std::string MapAsSvg(const FileMap& map);
