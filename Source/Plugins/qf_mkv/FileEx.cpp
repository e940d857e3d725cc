// SPDX-License-Identifier: MIT
#include "FileEx.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <new>
#include <utility>

#include "MKVFile.h"

static_assert(sizeof(off_t) == 8, "files pass 2 GiB: build with _FILE_OFFSET_BITS=64");

namespace {

// A system call for so many octets costs little compared with copying them, and they stay in the processor's cache.
constexpr unsigned long kBufferSize = 262144;

std::unique_ptr<wchar_t[]> CopyText(const wchar_t* text) {
    if (text == nullptr) return nullptr;
    const std::size_t units = std::wcslen(text) + 1;
    auto copy = std::make_unique<wchar_t[]>(units);
    std::wmemcpy(copy.get(), text, units);
    return copy;
}

} // namespace

std::uint32_t JudgeISOFileW(const wchar_t* path) {
    const wchar_t* extension = path != nullptr ? std::wcsrchr(path, L'.') : nullptr;
    if (extension == nullptr) return 0;
    // ASCII only: in some locales towlower would fold other letters onto these.
    for (const wchar_t* expected = L".iso:"; *expected != L'\0'; ++expected, ++extension) {
        const wchar_t folded = *extension >= L'A' && *extension <= L'Z' ? *extension - L'A' + L'a' : *extension;
        if (folded != *expected) return 0;
    }
    return 1;
}

FileEx::~FileEx() { FileEx::Close(); }

std::uint32_t FileEx::Open(const wchar_t* path, const char* mode) {
    Close();
    auto copy = CopyText(path);
    m_IsPseudoFile = JudgeISOFileW(path);
    if (m_IsPseudoFile == 0) {
        m_IsOutput = std::strcmp(mode, "wb") == 0;
        m_HasEnded = false;
        m_pStream = std::fopen(Utf8Text(path).Data(), mode);
        if (m_pStream == nullptr) return 0;
        if (m_IsOutput) {
            m_DrainedPos = 0;
            if (m_pBuffer == nullptr) m_pBuffer.reset(new (std::nothrow) char[kBufferSize]);
            if (m_pBuffer != nullptr) m_Capacity = kBufferSize;
            fcntl(fileno(m_pStream), F_SETFD, FD_CLOEXEC);
            // The buffer's octets need not be gathered again, and octets that stdio takes have reached the system.
            std::setvbuf(m_pStream, nullptr, _IONBF, 0);
        }
    }
    m_pPath = std::move(copy);
    return 1;
}

void FileEx::Close() {
    if (m_pStream != nullptr) {
        Drain();
        std::fclose(m_pStream);
    }
    m_pStream = nullptr;
    m_Capacity = 0;
    m_DrainedPos = kUnknown;
    m_pPath.reset();
}

int FileEx::Flush() {
    if (m_pStream == nullptr) return 0;
    const bool drained = Drain();
    const int result = std::fflush(m_pStream);
    return drained ? result : EOF;
}

unsigned long FileEx::WriteThrough(const void* buffer, unsigned long count) {
    if (m_pStream == nullptr) return 0;
    // A full buffer is written in whole pages.
    const auto* const octets = static_cast<const char*>(buffer);
    const unsigned long first = std::min(count, m_Capacity - m_Used);
    std::copy_n(octets, first, m_pBuffer.get() + m_Used);
    m_Used += first;
    if (!Drain()) return 0;
    const unsigned long rest = count - first;
    return first + (rest < m_Capacity ? FileEx::Write(octets + first, rest) : WriteOut(octets + first, rest));
}

unsigned long FileEx::WriteOut(const void* octets, unsigned long count) {
    if (count == 0) return 0;
    const unsigned long moved = std::fwrite(octets, 1, count, m_pStream);
    if (m_IsOutput) {
        if (m_DrainedPos != kUnknown) m_DrainedPos += static_cast<std::int64_t>(moved);
        m_HasEnded = moved < count;
        if (m_HasEnded) m_Capacity = 0;
    }
    return moved;
}

bool FileEx::Drain() {
    const unsigned long used = std::exchange(m_Used, 0);
    return WriteOut(m_pBuffer.get(), used) == used && !m_HasEnded;
}

unsigned long FileEx::Read(void* buffer, unsigned long count) {
    if (m_pStream == nullptr) return 0;
    Drain();
    return std::fread(buffer, 1, count, m_pStream);
}

std::int64_t FileEx::GetLength() {
    if (m_IsPseudoFile != 0) return 1;
    if (m_pStream == nullptr) return 0;
    Drain();
    const std::int64_t position = ftello(m_pStream);
    fseeko(m_pStream, 0, SEEK_END);
    const std::int64_t length = ftello(m_pStream);
    fseeko(m_pStream, position, SEEK_SET);
    return length;
}

int FileEx::Seek(std::int64_t offset, int origin) {
    if (m_IsPseudoFile != 0) return 0;
    if (m_pStream == nullptr || !Drain()) return -1;
    const int result = fseeko(m_pStream, offset, origin);
    m_DrainedPos = m_IsOutput && result == 0 && origin == SEEK_SET ? offset : kUnknown;
    return result;
}

std::int64_t FileEx::GetPos() {
    if (m_IsPseudoFile != 0) return 0;
    if (m_pStream == nullptr) return -1;
    const std::int64_t drained = m_DrainedPos != kUnknown ? m_DrainedPos : ftello(m_pStream);
    if (m_IsOutput) m_DrainedPos = drained;
    return drained != -1 ? drained + static_cast<std::int64_t>(m_Used) : -1;
}

std::uint32_t FileEx::EnableMultiThread(unsigned int) { return 0; }
