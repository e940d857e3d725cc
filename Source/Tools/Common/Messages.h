// SPDX-License-Identifier: MIT
// Messages on stderr and results on stdout.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Prints the program's name and the text as one line on stderr. Control characters in the text are replaced.
void Say(const std::string& text);

// Prints on stdout. Throws ToolError when the write fails.
void PutResult(const std::string& words);

// File names may contain any octets, but JSON only UTF-8: other octets become U+FFFD.
std::string AsText(const nlohmann::json& json);
