// SPDX-License-Identifier: MIT
// A library as a file: whether it is one that this program can load, and which names it exports.
#pragma once

#include <string>
#include <vector>

// Null-free words for the user if `path` cannot be checked by this program: missing, not a library, of another word
// size or machine. Empty if it can.
std::string WhyNotALibrary(const std::string& path);

constexpr int kWordSize = sizeof(void*) == 4 ? 32 : 64;

struct ExportedName {
    std::string m_Name;
    bool m_IsFunction;
};

// The names that the library defines for others. Throws std::runtime_error for a file that is damaged or has no section
// headers.
std::vector<ExportedName> ExportedNames(const std::string& path);
