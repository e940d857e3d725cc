// SPDX-License-Identifier: MIT
#include "MeteredFile.h"

#include <algorithm>
#include <cstdio>

#include "StdioHook.h"

struct MeteredFile::Cookie {
    static ssize_t Write(void* cookie, const char*, std::size_t count) {
        auto& file = *static_cast<MeteredFile*>(cookie);
        const auto octets = static_cast<std::int64_t>(count);
        ++file.m_DiskWrites;
        file.m_DiskOctets += octets;
        file.m_Position += octets;
        file.m_Size = std::max(file.m_Size, file.m_Position);
        return static_cast<ssize_t>(count);
    }

    static int Seek(void* cookie, off64_t* offset, int origin) {
        auto& file = *static_cast<MeteredFile*>(cookie);
        const std::int64_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.m_Position : file.m_Size;
        if (from + *offset < 0) return -1;
        *offset = file.m_Position = from + *offset;
        return 0;
    }
};

MeteredFile::MeteredFile() {
    StdioHook::SetOpen([this](const std::string& path, const char* mode) -> std::FILE* {
        if (path != Path()) return StdioHook::Open(path.c_str(), mode);
        cookie_io_functions_t functions{};
        functions.write = Cookie::Write;
        functions.seek = Cookie::Seek;
        return fopencookie(this, mode, functions);
    });
    StdioHook::SetWrite([this](const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
        ++m_StdioWrites;
        return StdioHook::Write(octets, size, count, stream);
    });
    StdioHook::SetSeek([this](std::FILE* stream, off_t offset, int origin) {
        ++m_StdioSeeks;
        return StdioHook::Seek(stream, offset, origin);
    });
}

MeteredFile::~MeteredFile() {
    StdioHook::SetOpen({});
    StdioHook::SetWrite({});
    StdioHook::SetSeek({});
}
