// SPDX-License-Identifier: MIT
// A file for libebml that reads a page at a time, so that skipping from header to header leaves payloads on the disk.
#pragma once

#include <ebml/IOCallback.h>

#include <array>
#include <cstdint>
#include <string>

// Throws ToolError: the file cannot be read, for that reason.
[[noreturn]] void FailToRead(const std::string& path, const std::string& reason);

class PagedFile : public libebml::IOCallback {
public:
    // The constructor and all reads throw ToolError when the file cannot be read or is not a regular file.
    explicit PagedFile(const std::string& path);
    ~PagedFile() override;
    PagedFile(const PagedFile&) = delete;
    PagedFile& operator=(const PagedFile&) = delete;

    std::uint64_t Size() const { return m_Size; }
    // Reads up to size octets from a position, without changing the page. Returns fewer at the end of the file.
    std::size_t ReadAt(std::uint64_t position, void* buffer, std::size_t size) const;
    void GoTo(std::uint64_t position) { m_At = position; }

    uint32 read(void* buffer, size_t size) override;
    void setFilePointer(int64 offset, libebml::seek_mode mode) override;
    uint64 getFilePointer() override { return m_At; }
    size_t write(const void* buffer, size_t size) override;
    void close() override {}

private:
    std::string m_Path;
    int m_Descriptor;
    std::uint64_t m_Size = 0;
    std::uint64_t m_At = 0;
    std::array<char, 4096> m_Page;
    std::uint64_t m_PageAt = 0;
    std::size_t m_PageSize = 0;
};
