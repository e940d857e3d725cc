// A file's map as a picture.
#pragma once

#include <string>

#include "Map.h"

// A page of SVG: octets across, time up, a colour for each track. Below 500 KB, however long the film.
std::string MapAsSvg(const FileMap& map);
