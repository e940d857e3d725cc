#include "StagedFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "Surroundings.h"
#include "ToolError.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const fs::path& target, const std::string& reason) {
    throw ToolError(kExitOutput, "cannot write '" + target.string() + "': " + reason);
}

fs::path DirectoryOf(const fs::path& path) { return path.has_parent_path() ? path.parent_path() : fs::path("."); }

void SyncPath(const fs::path& path, int flags) {
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC);
    if (descriptor < 0) Fail(path, std::strerror(errno));
    const int result = fsync(descriptor);
    const int error = errno;
    close(descriptor);
    if (result != 0) Fail(path, std::strerror(error));
}

} // namespace

StagedFile::StagedFile(const std::string& target, bool overwrite, const std::vector<std::string>& inputs)
    : m_Target(target), m_Overwrite(overwrite) {
    std::error_code error;
    for (const std::string& input : inputs) {
        if (IsSameFile(input, target)) {
            throw ToolError(kExitUsage, "'" + target + "' is an input, which is never overwritten");
        }
    }
    const fs::file_status status = fs::status(m_Target, error);
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status))
            Fail(m_Target, "it is no regular file, and a file cannot be built in a stream");
        if (!overwrite) Fail(m_Target, "it exists; --overwrite replaces it");
    }
    // A short name: the target's may be as long as names get. In a folder of its own the plug-in creates the file,
    // which ext4 closes faster than one that it finds empty.
    std::string folder = (DirectoryOf(m_Target) / ".qfmux-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) Fail(m_Target, std::strerror(errno));
    m_Part = fs::path(folder) / "part";
}

StagedFile::~StagedFile() {
    std::error_code ignored;
    fs::remove(m_Part, ignored);
    fs::remove(m_Part.parent_path(), ignored);
}

void StagedFile::NeedRoom(std::uint64_t octets) const {
    std::error_code error;
    const fs::space_info space = fs::space(DirectoryOf(m_Part), error);
    if (error || space.available >= octets) return;
    Fail(m_Target, "it will take about " + std::to_string(octets) + " octets and the disk has room for " +
                       std::to_string(space.available) + "; nothing was written");
}

void StagedFile::CheckRoom() const {
    std::error_code error;
    const fs::space_info space = fs::space(DirectoryOf(m_Part), error);
    if (!error && space.available == 0) Fail(m_Target, WriteFailure() + "; the unfinished file was removed");
}

std::string StagedFile::WriteFailure() const {
    // The plug-in says nothing of write errors: ask the system again, in the same file.
    const int descriptor = open(m_Part.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (descriptor < 0) return std::strerror(errno);
    const std::vector<char> zeros(65536);
    std::string reason = "write error";
    const ssize_t written = write(descriptor, zeros.data(), zeros.size());
    if (written < 0 ||
        (written < static_cast<ssize_t>(zeros.size()) && write(descriptor, zeros.data(), zeros.size()) < 0)) {
        reason = std::strerror(errno);
    }
    close(descriptor);
    return reason;
}

void StagedFile::Keep(bool sync) {
    if (sync) SyncPath(m_Part, O_RDONLY);
    // Without leave to overwrite, a file that has come into being meanwhile stays.
    if (renameat2(AT_FDCWD, m_Part.c_str(), AT_FDCWD, m_Target.c_str(), m_Overwrite ? 0 : RENAME_NOREPLACE) != 0) {
        const bool unknownFlag = !m_Overwrite && errno == EINVAL; // not every file system knows it
        if (!unknownFlag || rename(m_Part.c_str(), m_Target.c_str()) != 0) Fail(m_Target, std::strerror(errno));
    }
    if (sync) SyncPath(DirectoryOf(m_Target), O_RDONLY | O_DIRECTORY);
}
