// A file's map as text for the terminal.
#pragma once

#include <string>

#include "Map.h"

// A strip of that many columns, and a table of what takes how many octets.
std::string MapAsStrip(const FileMap& map, int columns, bool hasColour);

// Of stdout: a terminal's own, else 80.
int TerminalWidth();
// stdout is a terminal, and NO_COLOR is not set.
bool WantsColour();
