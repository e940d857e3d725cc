// SPDX-License-Identifier: MIT
#include "VirtualFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "StdioHook.h"

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB");

struct VirtualFile::Cookie {
    static ssize_t Write(void* cookie, const char* octets, std::size_t count) {
        auto& file = *static_cast<VirtualFile*>(cookie);
        if (count < kCounted && pwrite(file.m_Descriptor, octets, count, static_cast<off_t>(file.m_Position)) !=
                                    static_cast<ssize_t>(count)) {
            return 0; // an error, as fopencookie has it
        }
        file.m_Position += count;
        if (file.m_Position > file.m_Size) {
            file.m_Size = file.m_Position;
            if (ftruncate(file.m_Descriptor, static_cast<off_t>(file.m_Size)) != 0) return 0;
        }
        return static_cast<ssize_t>(count);
    }

    static int Seek(void* cookie, off64_t* offset, int origin) {
        auto& file = *static_cast<VirtualFile*>(cookie);
        const std::uint64_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.m_Position : file.m_Size;
        const off64_t position = static_cast<off64_t>(from) + *offset;
        if (position < 0) return -1;
        file.m_Position = static_cast<std::uint64_t>(position);
        *offset = position;
        return 0;
    }
};

VirtualFile::VirtualFile() : m_Descriptor(memfd_create("virtual", MFD_CLOEXEC)) {
    if (m_Descriptor < 0) throw std::runtime_error("no file in memory");
    StdioHook::SetOpen([this](const std::string& path, const char* mode) -> std::FILE* {
        if (path != Path()) return StdioHook::Open(path.c_str(), mode);
        if (m_Opened || std::string(mode) != "wb") {
            errno = EINVAL;
            return nullptr;
        }
        m_Opened = true;
        cookie_io_functions_t functions{};
        functions.write = Cookie::Write;
        functions.seek = Cookie::Seek;
        return fopencookie(this, mode, functions);
    });
}

VirtualFile::~VirtualFile() {
    StdioHook::SetOpen({});
    close(m_Descriptor);
}

std::filesystem::path VirtualFile::ReadersPath() const {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_Descriptor);
}

Octets VirtualFile::Read(std::uint64_t at, std::size_t count) const {
    Octets octets(count);
    const ssize_t got = pread(m_Descriptor, octets.data(), count, static_cast<off_t>(at));
    if (got < 0) throw std::runtime_error("the file in memory cannot be read");
    octets.resize(static_cast<std::size_t>(got));
    return octets;
}
