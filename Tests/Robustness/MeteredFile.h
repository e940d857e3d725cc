// SPDX-License-Identifier: MIT
// Counts a plug-in's work on its output file: calls of stdio, writes to the disk and octets. The octets themselves are
// not kept.
#pragma once

#include <cstdint>
#include <filesystem>

class MeteredFile {
public:
    // From now until its end writing to Path() is such a file.
    MeteredFile();
    ~MeteredFile();
    MeteredFile(const MeteredFile&) = delete;
    MeteredFile& operator=(const MeteredFile&) = delete;

    static std::filesystem::path Path() { return "/metered/file"; }

    std::int64_t m_StdioWrites = 0;
    std::int64_t m_StdioSeeks = 0;
    std::int64_t m_DiskWrites = 0;
    std::int64_t m_DiskOctets = 0; // written, those written over others included
    std::int64_t m_Size = 0;

private:
    struct Cookie;
    std::int64_t m_Position = 0;
};
