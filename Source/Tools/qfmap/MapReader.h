// Reads a file's map by libebml and libmatroska: headers only, payloads are skipped, and what is kept does not grow
// with the number of blocks.
#pragma once

#include <string>

#include "Map.h"

// Throws ToolError when the file cannot be read or is not Matroska. Of a file that is cut off or damaged it gives what
// is there, and says so in m_Problems.
FileMap ReadFileMap(const std::string& path);
