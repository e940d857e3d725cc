// SPDX-License-Identifier: MIT
// What a tool tells its user: lines on stderr, and results on stdout.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// One line on stderr behind the program's name, whatever the text holds.
void Say(const std::string& text);

// Words on stdout. Throws ToolError when they do not get there.
void PutResult(const std::string& words);

// Names of files may hold any octets, JSON only UTF-8.
std::string AsText(const nlohmann::json& json);
