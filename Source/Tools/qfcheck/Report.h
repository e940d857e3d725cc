// SPDX-License-Identifier: MIT
// The results of the checks, for people and for programs.
#pragma once

#include <string>
#include <vector>

#include "Runner.h"

// One line.
std::string AsText(const Result& result);
// "12 passed, 1 failed, 0 skipped"
std::string Summary(const std::vector<Result>& results);

std::string AsJson(const std::string& plugin, const std::vector<Result>& results);
std::string AsJUnit(const std::string& plugin, const std::vector<Result>& results);
