// SPDX-License-Identifier: MIT
#include "PagedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "ToolError.h"

void FailToRead(const std::string& path, const std::string& reason) {
    throw ToolError(kExitError, "cannot read '" + path + "': " + reason);
}

PagedFile::PagedFile(const std::string& path)
    : m_Path(path), m_Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (m_Descriptor < 0) FailToRead(path, std::strerror(errno));
    struct stat status = {};
    const bool isFile = fstat(m_Descriptor, &status) == 0 && S_ISREG(status.st_mode);
    m_Size = static_cast<std::uint64_t>(status.st_size);
    if (isFile) return;
    ::close(m_Descriptor);
    FailToRead(path, "it is no regular file");
}

PagedFile::~PagedFile() { ::close(m_Descriptor); }

std::size_t PagedFile::ReadAt(std::uint64_t position, void* buffer, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n =
            pread(m_Descriptor, static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(position + done));
        if (n < 0 && errno != EINTR) FailToRead(m_Path, std::strerror(errno));
        if (n == 0) break;
        if (n > 0) done += static_cast<std::size_t>(n);
    }
    return done;
}

uint32 PagedFile::read(void* buffer, size_t size) {
    std::size_t done = 0;
    while (done < size) {
        if (m_At < m_PageAt || m_At >= m_PageAt + m_PageSize) {
            m_PageAt = m_At;
            m_PageSize = ReadAt(m_At, m_Page.data(), m_Page.size());
            if (m_PageSize == 0) break;
        }
        const std::size_t from = static_cast<std::size_t>(m_At - m_PageAt);
        const std::size_t n = std::min(size - done, m_PageSize - from);
        std::memcpy(static_cast<char*>(buffer) + done, m_Page.data() + from, n);
        done += n;
        m_At += n;
    }
    return static_cast<uint32>(done);
}

void PagedFile::setFilePointer(int64 offset, libebml::seek_mode mode) {
    const std::uint64_t base = mode == libebml::seek_beginning ? 0 : mode == libebml::seek_end ? m_Size : m_At;
    m_At = base + static_cast<std::uint64_t>(offset);
}

size_t PagedFile::write(const void*, size_t) { throw std::logic_error("the input is never written"); }
