// SPDX-License-Identifier: MIT
#include "Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

Sink::Sink(const std::string& path) {
    if (path.empty()) return;
    m_Descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (m_Descriptor < 0) throw std::runtime_error(path + ": " + std::strerror(errno));
}

Sink::~Sink() {
    if (m_Descriptor >= 0) close(m_Descriptor);
}

void Sink::Write(const void* octets, std::size_t count) {
    if (m_Descriptor >= 0 && write(m_Descriptor, octets, count) != static_cast<ssize_t>(count)) {
        throw std::runtime_error("the file takes no more");
    }
    m_Written += count;
    m_Position += static_cast<std::int64_t>(count);
    m_Size = std::max(m_Size, m_Position);
}

void Sink::Seek(std::int64_t position) {
    if (m_Descriptor >= 0 && lseek(m_Descriptor, position, SEEK_SET) != position) {
        throw std::runtime_error("the file does not seek");
    }
    m_Position = position;
}

void BufferedOutput::Write(const void* octets, std::size_t count) {
    const auto* data = static_cast<const unsigned char*>(octets);
    while (count > 0) {
        if (m_Used == kBufferSize) Flush();
        const std::size_t part = std::min(count, kBufferSize - m_Used);
        std::memcpy(m_pBuffer.get() + m_Used, data, part);
        m_Used += part;
        data += part;
        count -= part;
    }
}

void BufferedOutput::Seek(std::int64_t position) {
    Flush();
    m_Sink.Seek(position);
}

void BufferedOutput::Flush() {
    if (m_Used > 0) m_Sink.Write(m_pBuffer.get(), m_Used);
    m_Used = 0;
}
