#include "FileEx.h"

#include <stdio_ext.h>

#include <cwchar>
#include <new>
#include <utility>

#include "MKVFile.h"

static_assert(sizeof(off_t) == 8, "files pass 2 GiB: build with _FILE_OFFSET_BITS=64");

namespace {

// Gathers the small writes of a cluster's headers and audio frames into few calls of the operating system, and stays in
// the processor's cache.
constexpr std::size_t kBufferSize = 65536;

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
    // ASCII only, whatever the locale: towlower would fold other letters onto these in some.
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
        m_pStream = std::fopen(Utf8Text(path).Data(), mode);
        if (m_pStream == nullptr) return 0;
        // One thread uses the file.
        __fsetlocking(m_pStream, FSETLOCKING_BYCALLER);
        if (m_pBuffer == nullptr) m_pBuffer.reset(new (std::nothrow) char[kBufferSize]);
        // Without memory for it the stream has its own small one.
        if (m_pBuffer != nullptr) std::setvbuf(m_pStream, m_pBuffer.get(), _IOFBF, kBufferSize);
    }
    m_pPath = std::move(copy);
    return 1;
}

void FileEx::Close() {
    if (m_pStream != nullptr) std::fclose(m_pStream);
    m_pStream = nullptr;
    m_pPath.reset();
}

int FileEx::Flush() { return m_pStream != nullptr ? std::fflush(m_pStream) : 0; }

unsigned long FileEx::Write(const void* buffer, unsigned long count) {
    std::FILE* const stream = m_pStream;
    if (stream == nullptr) return 0;
    // Identifiers, lengths and numbers go into the buffer octet by octet, which is cheaper than a call.
    constexpr unsigned long kShort = 12;
    if (count > kShort) return std::fwrite(buffer, 1, count, stream);
    const auto* const octets = static_cast<const unsigned char*>(buffer);
    unsigned long moved = 0;
    while (moved < count && putc_unlocked(octets[moved], stream) != EOF) ++moved;
    return moved;
}

unsigned long FileEx::Read(void* buffer, unsigned long count) {
    return m_pStream != nullptr ? std::fread(buffer, 1, count, m_pStream) : 0;
}

std::int64_t FileEx::GetLength() {
    if (m_IsPseudoFile != 0) return 1;
    if (m_pStream == nullptr) return 0;
    const std::int64_t position = GetPos();
    Seek(0, SEEK_END);
    const std::int64_t length = GetPos();
    Seek(position, SEEK_SET);
    return length;
}

int FileEx::Seek(std::int64_t offset, int origin) {
    if (m_IsPseudoFile != 0) return 0;
    return m_pStream != nullptr ? fseeko(m_pStream, offset, origin) : -1;
}

std::int64_t FileEx::GetPos() {
    if (m_IsPseudoFile != 0) return 0;
    return m_pStream != nullptr ? ftello(m_pStream) : -1;
}

std::uint32_t FileEx::EnableMultiThread(unsigned int) { return 0; }
