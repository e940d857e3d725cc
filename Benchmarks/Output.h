// SPDX-License-Identifier: MIT
// Where a writer's octets go: a file, or a sink that only counts them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// An open file over the kernel's own calls, or for an empty path one that only counts.
// Throws std::runtime_error when the file does not open or a write fails.
class Sink {
public:
    explicit Sink(const std::string& path);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    void Write(const void* octets, std::size_t count);
    void Seek(std::int64_t position);
    std::int64_t Position() const { return m_Position; }
    std::int64_t Size() const { return m_Size; }
    std::uint64_t Written() const { return m_Written; }

private:
    int m_Descriptor = -1;
    std::int64_t m_Position = 0;
    std::int64_t m_Size = 0;
    std::uint64_t m_Written = 0;
};

// A sink behind a buffer of 1 MiB.
class BufferedOutput {
public:
    static constexpr std::size_t kBufferSize = 1 << 20;

    explicit BufferedOutput(const std::string& path) : m_Sink(path), m_pBuffer(new unsigned char[kBufferSize]) {}

    void Write(const void* octets, std::size_t count);
    void Seek(std::int64_t position);
    std::int64_t Position() const { return m_Sink.Position() + static_cast<std::int64_t>(m_Used); }
    void Flush();
    std::uint64_t Written() const { return m_Sink.Written() + m_Used; }

private:
    Sink m_Sink;
    std::unique_ptr<unsigned char[]> m_pBuffer;
    std::size_t m_Used = 0;
};
