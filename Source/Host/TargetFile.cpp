// SPDX-License-Identifier: MIT
#include "TargetFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

#include "HostError.h"

namespace QfHost {

namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

[[noreturn]] void Fail(const std::string& path, qf_error code, const std::string& reason) {
    throw HostError(code, "cannot write '" + path + "': " + reason);
}

Descriptor Create(const std::string& path, bool mayOverwrite) {
    struct stat status {};
    // A device or a pipe is not opened, since opening may have side effects.
    if (stat(path.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) Fail(path, QF_ERROR_OPEN, "it is no regular file");
        if (!mayOverwrite) Fail(path, QF_ERROR_EXISTS, "it exists, and the job does not say that it may be replaced");
    }
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | (mayOverwrite ? O_TRUNC : O_EXCL);
    Descriptor file(open(path.c_str(), flags, 0666));
    if (file.Number() >= 0) return file;
    if (errno == ENOMEM) throw std::bad_alloc();
    Fail(path, errno == EEXIST ? QF_ERROR_EXISTS : QF_ERROR_OPEN, Reason(errno));
}

} // namespace

TargetFile::TargetFile(const char* path, bool mayOverwrite)
    : m_Path(std::filesystem::absolute(path).string()), m_File(Create(m_Path, mayOverwrite)) {}

std::wstring TargetFile::NameForPlugin() const {
    const std::string byNumber = "/proc/self/fd/" + std::to_string(m_File.Number());
    if (access(byNumber.c_str(), W_OK) == 0) return {byNumber.begin(), byNumber.end()};
    // Without /proc the plug-in gets the file's name. It takes fewer names than the system: it cuts long names and
    // writes nothing to a file inside a disc image.
    std::wstring name;
    try {
        name = std::filesystem::path(m_Path).wstring();
    } catch (const std::system_error&) {
        Fail(m_Path, QF_ERROR_OPEN, "its name is not in UTF-8");
    }
    constexpr std::size_t kLongestName = 2047;
    if (m_Path.size() > kLongestName) Fail(m_Path, QF_ERROR_OPEN, "its name is too long for the plug-in");
    if (std::filesystem::path(m_Path).extension().string().rfind(".iso:", 0) == 0) {
        Fail(m_Path, QF_ERROR_OPEN, "the plug-in takes it for a disc image");
    }
    return name;
}

std::uint64_t TargetFile::Length() const {
    struct stat status {};
    return fstat(m_File.Number(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::string TargetFile::WhyNotLonger() const {
    static const char zeros[65536] = {};
    const auto length = static_cast<off_t>(Length());
    std::string reason;
    // Twice: part of the first write may still fit.
    for (off_t position = length, i = 0; i < 2; ++i) {
        const ssize_t written = pwrite(m_File.Number(), zeros, sizeof zeros, position);
        if (written < 0) reason = Reason(errno);
        position += written > 0 ? written : 0;
    }
    while (ftruncate(m_File.Number(), length) != 0 && errno == EINTR) {
    }
    return reason;
}

void TargetFile::Sync() const {
    if (fsync(m_File.Number()) != 0) Fail(m_Path, QF_ERROR_WRITE, Reason(errno));
}

void TargetFile::Remove() const noexcept {
    struct stat mine {};
    struct stat named {};
    if (fstat(m_File.Number(), &mine) == 0 && stat(m_Path.c_str(), &named) == 0 && mine.st_dev == named.st_dev &&
        mine.st_ino == named.st_ino) {
        unlink(m_Path.c_str());
    }
}

} // namespace QfHost
