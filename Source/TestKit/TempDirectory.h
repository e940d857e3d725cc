// SPDX-License-Identifier: MIT
// A temporary directory that is removed with its object.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return m_Path / name; }

private:
    std::filesystem::path m_Path;
};

std::vector<unsigned char> ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::vector<unsigned char>& octets);
