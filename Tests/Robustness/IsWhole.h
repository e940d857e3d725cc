// SPDX-License-Identifier: MIT
// The check of a closed file that Docs/HostGuide.md gives to hosts.
#pragma once

#include <string>

bool IsWhole(const std::string& path);
