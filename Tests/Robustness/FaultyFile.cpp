// SPDX-License-Identifier: MIT
#include "FaultyFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "StdioHook.h"

namespace {

constexpr const char* kOperations[] = {"open", "write", "seek", "flush", "close"};
constexpr const char* kEffects[] = {"fails", "is cut short", "is late"};

void Wait() { usleep(200); }

} // namespace

std::ostream& operator<<(std::ostream& out, const Fault& fault) {
    return out << (fault.m_Level == Level::Disk ? "disk: " : "stdio: ")
               << kOperations[static_cast<std::size_t>(fault.m_Operation)] << ' ' << fault.m_Number << ' '
               << kEffects[static_cast<std::size_t>(fault.m_Effect)] << " (" << std::strerror(fault.m_Error) << ')'
               << (fault.m_Lasts ? ", as do all that follow" : "");
}

FaultyFile::FaultyFile(std::filesystem::path path, const Fault& fault) : m_Path(std::move(path)), m_Fault(fault) {
    if (m_Fault.m_Level == Level::Disk) {
        InstallDisk();
    } else {
        InstallStdio();
    }
}

FaultyFile::~FaultyFile() {
    StdioHook::SetOpen({});
    StdioHook::SetWrite({});
    StdioHook::SetSeek({});
    StdioHook::SetFlush({});
    StdioHook::SetClose({});
}

// A call that is only late has no other effect and is none.
bool FaultyFile::Strikes(Operation operation) {
    const long number = ++m_Calls[static_cast<std::size_t>(operation)];
    if (m_Fault.m_Operation != operation || m_Fault.m_Number == 0) return false;
    if (m_Fault.m_Lasts ? number < m_Fault.m_Number : number != m_Fault.m_Number) return false;
    errno = m_Fault.m_Error;
    if (m_Fault.m_Effect != Effect::Delay) return true;
    Wait();
    return false;
}

void FaultyFile::NoteWrite(bool strikes, std::size_t octets, off_t position) {
    if (m_Struck && octets > 0) ++m_LaterWrites;
    if (!m_Struck) m_End = std::max(m_End, position);
    m_Struck = m_Struck || strikes;
}

// ---- the calls of stdio

void FaultyFile::InstallStdio() {
    StdioHook::SetOpen([this](const std::string& path, const char* mode) -> std::FILE* {
        const bool mine = path == m_Path && mode[0] == 'w';
        if (mine && Strikes(Operation::Open)) {
            m_Struck = true;
            return nullptr;
        }
        std::FILE* const stream = StdioHook::Open(path.c_str(), mode);
        if (mine) m_pStream = stream;
        return stream;
    });
    StdioHook::SetWrite([this](const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
        return stream == m_pStream ? Write(octets, size, count, stream) : StdioHook::Write(octets, size, count, stream);
    });
    // Octets that a plug-in puts into the buffer without fwrite show in the position, at the latest when it seeks.
    const auto note = [this](std::FILE* stream) {
        if (!m_Struck) m_End = std::max(m_End, ftello(stream));
    };
    StdioHook::SetSeek([this, note](std::FILE* stream, off_t offset, int origin) {
        if (stream != m_pStream) return StdioHook::Seek(stream, offset, origin);
        note(stream);
        if (!Strikes(Operation::Seek)) return StdioHook::Seek(stream, offset, origin);
        m_Struck = true;
        return -1;
    });
    StdioHook::SetFlush([this, note](std::FILE* stream) {
        if (stream == nullptr || stream != m_pStream) return StdioHook::Flush(stream);
        note(stream);
        if (!Strikes(Operation::Flush)) return StdioHook::Flush(stream);
        m_Struck = true;
        return EOF;
    });
    StdioHook::SetClose([this, note](std::FILE* stream) {
        if (stream != m_pStream) return StdioHook::Close(stream);
        note(stream);
        m_pStream = nullptr;
        const bool strikes = Strikes(Operation::Close);
        m_Struck = m_Struck || strikes;
        const int result = StdioHook::Close(stream); // which frees it whatever it returns
        errno = m_Fault.m_Error;
        return strikes ? EOF : result;
    });
}

std::size_t FaultyFile::Write(const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
    std::size_t written = count;
    const bool strikes = Strikes(Operation::Write);
    if (strikes) written = m_Fault.m_Effect == Effect::Shorten ? count / 2 : 0;
    if (written > 0) written = StdioHook::Write(octets, size, written, stream);
    NoteWrite(strikes, written, ftello(stream));
    errno = m_Fault.m_Error;
    return written;
}

// ---- the disk below

struct FaultyFile::Cookie {
    static ssize_t Write(void* cookie, const char* octets, std::size_t count) {
        auto& file = *static_cast<FaultyFile*>(cookie);
        std::size_t size = count;
        const bool strikes = file.Strikes(Operation::Write);
        if (strikes) size = file.m_Fault.m_Effect == Effect::Shorten ? count / 2 : 0;
        const ssize_t written = size > 0 ? pwrite(file.m_Descriptor, octets, size, file.m_Position) : 0;
        if (written < 0) return 0;
        file.m_Position += written;
        file.NoteWrite(strikes, static_cast<std::size_t>(written), file.m_Position);
        errno = file.m_Fault.m_Error;
        return written; // less than count is an error, as fopencookie has it
    }

    static int Seek(void* cookie, off64_t* offset, int origin) {
        auto& file = *static_cast<FaultyFile*>(cookie);
        if (file.Strikes(Operation::Seek)) {
            file.m_Struck = true;
            return -1;
        }
        const off_t from = origin == SEEK_SET   ? 0
                           : origin == SEEK_CUR ? file.m_Position
                                                : lseek(file.m_Descriptor, 0, SEEK_END);
        if (from + *offset < 0) return -1;
        file.m_Position = from + *offset;
        *offset = file.m_Position;
        return 0;
    }

    static int Close(void* cookie) {
        auto& file = *static_cast<FaultyFile*>(cookie);
        const bool strikes = file.Strikes(Operation::Close);
        file.m_Struck = file.m_Struck || strikes;
        close(std::exchange(file.m_Descriptor, -1));
        errno = file.m_Fault.m_Error;
        return strikes ? -1 : 0;
    }
};

void FaultyFile::InstallDisk() {
    StdioHook::SetOpen([this](const std::string& path, const char* mode) -> std::FILE* {
        if (path != m_Path || mode[0] != 'w') return StdioHook::Open(path.c_str(), mode);
        if (Strikes(Operation::Open)) {
            m_Struck = true;
            return nullptr;
        }
        m_Descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (m_Descriptor < 0) return nullptr;
        cookie_io_functions_t functions{};
        functions.write = Cookie::Write;
        functions.seek = Cookie::Seek;
        functions.close = Cookie::Close;
        return fopencookie(this, mode, functions);
    });
}
