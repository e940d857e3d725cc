// SPDX-License-Identifier: MIT
#include "StagedFile.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// Follows symbolic links, but not in a circle. The file need not exist.
fs::path Followed(const fs::path& name) {
    constexpr int kMostLinks = 40; // as the kernel has it
    std::error_code error;
    fs::path path = name;
    for (int links = 0; fs::is_symlink(fs::symlink_status(path, error)); ++links) {
        const fs::path next = fs::read_symlink(path, error);
        if (links == kMostLinks || error) return name;
        path = DirectoryOf(path) / next;
    }
    return path;
}

// film.mkv becomes film.partial.mkv. A stem that would make the name too long is cut between characters.
fs::path PartialName(const fs::path& target) {
    const std::string ending = ".partial" + target.extension().string();
    std::string stem = target.stem().string();
    if (stem.size() + ending.size() > NAME_MAX) {
        std::size_t size = NAME_MAX - std::min<std::size_t>(ending.size(), NAME_MAX);
        while (size > 0 && (static_cast<unsigned char>(stem[size]) & 0xC0) == 0x80) --size; // RFC 3629
        stem.resize(size);
    }
    return target.parent_path() / (stem + ending);
}

} // namespace

std::string WhyNotWritable(const std::string& target, bool overwrite) {
    struct stat status {};
    if (stat(target.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) return "it is no regular file";
        if (!overwrite) return "it exists; --overwrite replaces it";
    } else if (errno != ENOENT) {
        return std::strerror(errno);
    }
    return access(DirectoryOf(Followed(target)).c_str(), W_OK | X_OK) == 0 ? "" : std::strerror(errno);
}

StagedFile::StagedFile(const std::string& target, bool overwrite, const std::vector<std::string>& inputs)
    : m_Target(Followed(target)), m_Partial(PartialName(m_Target)), m_Overwrite(overwrite) {
    const auto isInput = [&](const fs::path& path) {
        return std::any_of(inputs.begin(), inputs.end(),
                           [&](const std::string& input) { return IsSameFile(input, path.string()); });
    };
    if (isInput(m_Target)) throw ToolError(kExitUsage, "'" + target + "' is an input, which is never overwritten");
    while (isInput(m_Partial)) m_Partial = PartialName(m_Partial);
    if (const std::string reason = WhyNotWritable(target, overwrite); !reason.empty()) Fail(target, reason);
    // The target's name may have the greatest length already, so this name is short. The folder lets the plug-in create
    // the file: ext4 closes a new file faster than an existing empty file.
    std::string folder = (DirectoryOf(m_Target) / ".qfmux-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) Fail(target, std::strerror(errno));
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
    Fail(m_Target, "it needs about " + std::to_string(octets) + " bytes, and the disk has room for " +
                       std::to_string(space.available) + "; nothing was written");
}

void StagedFile::CheckRoom() const {
    std::error_code error;
    const fs::space_info space = fs::space(DirectoryOf(m_Part), error);
    if (!error && space.available == 0) Fail(m_Target, WriteFailure() + "; the unfinished file was removed");
}

std::string StagedFile::WriteFailure() const {
    // The plug-in does not report write errors, so write to the same file to see the reason.
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
    struct stat old {};
    if (m_Overwrite && stat(m_Target.c_str(), &old) == 0) {
        chmod(m_Part.c_str(), old.st_mode & 07777U); // a failure here leaves the file usable
    }
    // Without m_Overwrite, a file that was created meanwhile stays.
    if (renameat2(AT_FDCWD, m_Part.c_str(), AT_FDCWD, m_Target.c_str(), m_Overwrite ? 0 : RENAME_NOREPLACE) != 0) {
        // Some file systems do not support the flag.
        if (m_Overwrite || errno != EINVAL) Fail(m_Target, std::strerror(errno));
        // link() does not replace a file either.
        if (link(m_Part.c_str(), m_Target.c_str()) != 0 &&
            (errno == EEXIST || rename(m_Part.c_str(), m_Target.c_str()) != 0)) {
            Fail(m_Target, std::strerror(errno));
        }
    }
    if (sync) SyncPath(DirectoryOf(m_Target), O_RDONLY | O_DIRECTORY);
    std::error_code ignored;
    if (fs::is_regular_file(fs::symlink_status(m_Partial, ignored))) fs::remove(m_Partial, ignored);
}

fs::path StagedFile::KeepPartial() {
    if (rename(m_Part.c_str(), m_Partial.c_str()) != 0) Fail(m_Partial, std::strerror(errno));
    return m_Partial;
}
