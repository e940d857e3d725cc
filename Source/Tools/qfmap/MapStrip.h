// SPDX-License-Identifier: MIT
// A file's map as text for the terminal.
#pragma once

#include <string>

#include "Map.h"

// Returns a strip of that many columns and a table of the octets that each kind of element takes.
std::string MapAsStrip(const FileMap& map, int columns, bool hasColour);

// The columns of the terminal on stdout; 80 when stdout is no terminal.
int TerminalWidth();
// True when stdout is a terminal and NO_COLOR is not set.
bool WantsColour();
