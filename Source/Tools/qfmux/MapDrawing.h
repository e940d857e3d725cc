// How a file's map is shown: a picture, or a strip for the terminal.
#pragma once

#include <string>

#include "Map.h"

// A page of SVG: octets across, time up, a colour for each track. Below 500 KB, however long the film.
std::string MapAsSvg(const FileMap& map);

// A strip of that many columns, and a table of what takes how many octets.
std::string MapAsStrip(const FileMap& map, int columns, bool hasColour);

// Of stdout: a terminal's own, else 80.
int TerminalWidth();
// stdout is a terminal, and NO_COLOR is not set.
bool WantsColour();
