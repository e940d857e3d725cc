// SPDX-License-Identifier: MIT
// The output file, and the byte stream through which every element writes itself.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

// 1 when the last extension of path begins ".iso:" in any case: the name of a file inside a disc image, a pseudo-file.
std::uint32_t JudgeISOFileW(const wchar_t* path);

// One file over stdio with 64-bit offsets. Failures are reported only by results.
// A pseudo-file opens with success and then takes and gives nothing, by design: 0 octets move and its position stays 0.
//
// The mode "wb" is for output. Elements write a few octets at a time: the file gathers them in a buffer of its own,
// since a call of fwrite costs more than such a copy. The first octet that stdio does not take ends the file: no later
// octet is written anywhere, so that the disk has the beginning of the file without a hole. The descriptor is not
// passed on to programs that the process starts. In all other modes it is a plain stdio file.
class FileEx {
public:
    FileEx() = default;
    FileEx(const FileEx&) = delete;
    FileEx& operator=(const FileEx&) = delete;
    virtual ~FileEx();

    // Closes an open file and opens path, cut at 2,047 octets of UTF-8, with a mode of fopen. Returns 1, or 0 when the
    // file does not open; a null path does not.
    virtual std::uint32_t Open(const wchar_t* path, const char* mode);
    virtual void Close();
    // Returns fflush's result, EOF when octets are lost, 0 when nothing is open.
    virtual int Flush();
    // Return the number of octets moved, 0 when nothing is open. Octets in the buffer count as moved.
    virtual unsigned long Write(const void* buffer, unsigned long count) {
        if (count >= m_Capacity - m_Used) return WriteThrough(buffer, count);
        std::copy_n(static_cast<const char*>(buffer), count, m_pBuffer.get() + m_Used);
        m_Used += count;
        return count;
    }
    virtual unsigned long Read(void* buffer, unsigned long count);
    // Returns the file's size, 1 for a pseudo-file, 0 when nothing is open. Leaves the position where it is.
    virtual std::int64_t GetLength();
    // origin: SEEK_SET, SEEK_CUR or SEEK_END. Returns 0, or -1 on failure and when nothing is open.
    virtual int Seek(std::int64_t offset, int origin);
    // Returns the position, 0 for a pseudo-file, -1 on failure and when nothing is open.
    virtual std::int64_t GetPos();
    // Does nothing and returns 0: the file has no worker thread and no lock.
    virtual std::uint32_t EnableMultiThread(unsigned int enable);

private:
    [[gnu::cold]] unsigned long WriteThrough(const void* buffer, unsigned long count);
    // Hands octets to stdio. Returns their number if it takes all of them; output ends where it does not.
    unsigned long WriteOut(const void* octets, unsigned long count);
    // Writes the buffer out and empties it. Returns false when stdio does not take all of it.
    bool Drain();

    std::FILE* m_pStream = nullptr;
    std::unique_ptr<wchar_t[]> m_pPath; // as given to Open, for debuggers
    std::uint32_t m_IsPseudoFile = 0;   // outlives Close
    bool m_IsOutput = false;            // opened with "wb"
    bool m_HasEnded = false;            // an octet of its output was not taken
    std::unique_ptr<char[]> m_pBuffer;  // from the first output on
    unsigned long m_Capacity = 0; // of the buffer; 0 while nothing is gathered, also when there is no memory for it
    unsigned long m_Used = 0;
    static constexpr std::int64_t kUnknown = -1;
    std::int64_t m_DrainedPos = kUnknown; // of output, the stream's position: asking for it is a system call
};

// The stream that elements write to. Results are 0, or -1 when there is no file behind it.
class IStream {
public:
    IStream() = default;
    IStream(const IStream&) = delete;
    IStream& operator=(const IStream&) = delete;

    // Moves up to count octets and stores the number moved, unless that pointer is null. A short move is no failure.
    virtual std::int32_t Read(void* buffer, unsigned long count, unsigned long* read) = 0;
    virtual std::int32_t Write(const void* buffer, unsigned long count, unsigned long* written) = 0;
    // Stores the seek's status, 0 or -1, deliberately not the new position.
    virtual std::int32_t Seek(std::int64_t offset, unsigned long origin, std::int64_t* status) = 0;
    virtual ~IStream() = default;
};
