// SPDX-License-Identifier: MIT
// A file of any size, written within seconds: the plug-in opens it by its path and writes it through real stdio. The
// inside of large frames is only counted and reads as zeros. Everything else is kept, octet for octet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "Octets.h"

class VirtualFile {
public:
    // stdio passes what is larger than its buffer on as it is, so no piece of this size is anything but a frame's
    // inside.
    static constexpr std::size_t kCounted = 1 << 20;

    // From now until its end this program's fopen knows Path().
    VirtualFile();
    ~VirtualFile();
    VirtualFile(const VirtualFile&) = delete;
    VirtualFile& operator=(const VirtualFile&) = delete;

    std::filesystem::path Path() const { return "/virtual/file"; }
    // By which another program can read the file while this one runs.
    std::filesystem::path ReadersPath() const;

    bool WasOpened() const { return m_Opened; }
    std::uint64_t Size() const { return m_Size; }
    // Fewer octets than asked for where the file ends.
    Octets Read(std::uint64_t at, std::size_t count) const;

private:
    struct Cookie; // the C library's view of it

    int m_Descriptor; // of a sparse file in memory
    std::uint64_t m_Position = 0;
    std::uint64_t m_Size = 0;
    bool m_Opened = false;
};
