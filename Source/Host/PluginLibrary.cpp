// SPDX-License-Identifier: MIT
#include "PluginLibrary.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace QfHost {

namespace {

[[noreturn]] void Fail(const std::string& what, int error) {
    if (error == ENOMEM) throw std::bad_alloc();
    throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

Descriptor OpenRegularFile(const std::string& path) {
    const std::string failure = "cannot read '" + path + "'";
    struct stat status {};
    // Checked first: reading a pipe, for example, could block for ever.
    if (stat(path.c_str(), &status) != 0) Fail(failure, errno);
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(failure + ": it is no regular file");
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Number() < 0) Fail(failure, errno);
    return file;
}

void* Load(const std::string& path, const std::string& nameInErrors) {
    errno = 0;
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) return library;
    // For lack of memory the loader's text may be the same as for a missing file.
    if (errno == ENOMEM) throw std::bad_alloc();
    const char* const reason = dlerror();
    std::string text = reason != nullptr ? reason : "it cannot be loaded";
    if (const std::size_t at = text.find(path); at != std::string::npos) text.replace(at, path.size(), nameInErrors);
    throw std::runtime_error(text);
}

void CopyOctets(int from, int to) {
    char octets[65536];
    for (off_t position = 0;;) {
        const ssize_t count = pread(from, octets, sizeof octets, position);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) Fail("cannot read the plug-in", errno);
        if (count == 0) return;
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = write(to, octets + done, static_cast<std::size_t>(count - done));
            if (written < 0 && errno != EINTR) Fail("cannot copy the plug-in", errno);
            if (written > 0) done += written;
        }
        position += count;
    }
}

// A file without a name. None when the system has no such files, loads no library from them or has no /proc.
Descriptor NamelessFile() {
    constexpr unsigned kMayHoldCode = 0x10; // MFD_EXEC: from Linux 6.3 on, where administrators may ask for it
    Descriptor file(memfd_create("qf_mkv", MFD_CLOEXEC | kMayHoldCode));
    if (file.Number() < 0) file = Descriptor(memfd_create("qf_mkv", MFD_CLOEXEC));
    return file;
}

std::string NameOf(const Descriptor& file) { return "/proc/self/fd/" + std::to_string(file.Number()); }

// A file under a name of its own while an object of this class lives.
class NamedCopy {
public:
    NamedCopy() {
        const char* const folder = std::getenv("TMPDIR");
        m_Path = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/qf_mkv-XXXXXX";
        m_File = Descriptor(mkostemp(m_Path.data(), O_CLOEXEC));
        if (m_File.Number() < 0) Fail("cannot create a copy of the plug-in in '" + m_Path + "'", errno);
    }
    ~NamedCopy() { unlink(m_Path.c_str()); }
    NamedCopy(const NamedCopy&) = delete;
    NamedCopy& operator=(const NamedCopy&) = delete;
    const std::string& Path() const { return m_Path; }
    int Number() const { return m_File.Number(); }

private:
    std::string m_Path;
    Descriptor m_File;
};

} // namespace

Descriptor::~Descriptor() {
    if (m_Number >= 0) close(m_Number);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(m_Number, other.m_Number);
    return *this;
}

// Made absolute: the loader would look a bare name up in its own folders.
PluginFile::PluginFile(const std::string& path)
    : m_Path(std::filesystem::absolute(path).string()), m_File(OpenRegularFile(path)) {
    NeedWholeLibrary();
}

// The loader maps the parts that a library's headers name, and crashes on a truncated library. It reports all other
// faults of a file.
void PluginFile::NeedWholeLibrary() const {
    const auto read = [this](void* to, std::size_t size, std::uint64_t position) {
        return pread(m_File.Number(), to, size, static_cast<off_t>(position)) == static_cast<ssize_t>(size);
    };
    ElfW(Ehdr) head = {};
    if (!read(&head, sizeof head, 0)) return;
    const bool isNative = std::memcmp(head.e_ident, ELFMAG, SELFMAG) == 0 &&
                          head.e_ident[EI_CLASS] == (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32);
    if (!isNative || head.e_phentsize != sizeof(ElfW(Phdr))) return;
    struct stat status {};
    if (fstat(m_File.Number(), &status) != 0) Fail("cannot read '" + m_Path + "'", errno);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    for (unsigned i = 0; i < head.e_phnum; ++i) {
        ElfW(Phdr) segment = {};
        if (read(&segment, sizeof segment, head.e_phoff + std::uint64_t{i} * sizeof segment) &&
            segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset) {
            continue;
        }
        throw std::runtime_error("cannot load '" + m_Path + "': it is cut off");
    }
}

void* LoadLibrary(const PluginFile& file) { return Load(file.Path(), file.Path()); }

PluginLibrary::PluginLibrary(const PluginFile& file, Shared) : m_pLibrary(LoadLibrary(file)) {}

PluginLibrary::PluginLibrary(const PluginFile& file, Private) : m_Copy(NamelessFile()), m_pLibrary(nullptr) {
    if (m_Copy.Number() >= 0 && access(NameOf(m_Copy).c_str(), R_OK) == 0) {
        CopyOctets(file.File().Number(), m_Copy.Number());
        m_pLibrary = Load(NameOf(m_Copy), file.Path());
        return;
    }
    const NamedCopy copy;
    CopyOctets(file.File().Number(), copy.Number());
    m_pLibrary = Load(copy.Path(), file.Path());
}

PluginLibrary::~PluginLibrary() { dlclose(m_pLibrary); }

void* PluginLibrary::Needed(const char* name) const {
    void* const symbol = dlsym(m_pLibrary, name);
    if (symbol == nullptr) throw std::runtime_error(std::string("it is no plug-in of this kind: it lacks ") + name);
    return symbol;
}

} // namespace QfHost
