// SPDX-License-Identifier: MIT
// A host without a log: no library of that name lies beside this program.
#include "FakeEnvironment.h"
#include "HostSession.h"
#include "LogReader.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

// What the path of this program reads as; null for what it is.
const char* g_pProgram = nullptr;

} // namespace

// The plug-in meets this one in place of the C library's.
extern "C" ssize_t readlink(const char* path, char* buffer, std::size_t size) noexcept {
    if (g_pProgram == nullptr) return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
    const std::string program = g_pProgram;
    if (program.empty()) {
        errno = EACCES;
        return -1;
    }
    return static_cast<ssize_t>(program.copy(buffer, size));
}

namespace {

bool AnyLogIsLoaded() {
    std::ifstream maps("/proc/self/maps");
    return std::string(std::istreambuf_iterator<char>(maps), {}).find("TW_Log") != std::string::npos;
}

TEST(Silent, EveryCallThatLogsWorksTheSame) {
    FakeEnvironment::SetRand({});
    // A log that lies where the program was started from is not the host's.
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    std::filesystem::current_path(program.parent_path().parent_path());
    ASSERT_TRUE(std::filesystem::exists("TW_Log.so"));

    Plugin plugin(QF_PLUGIN);
    EXPECT_EQ(plugin.GetFileFormats(), plugin.m_pFormatArray);
    EncodeParam job = MakeAudioJob(MakeFourCC("AVI "), MakeFourCC("MP3 "));
    TempDirectory directory;
    EXPECT_EQ(plugin.CreateMediaFile((directory / "a").wstring().c_str(), &job), nullptr);
    job.formatFourCC = MakeFourCC("MKA ");
    EXPECT_EQ(plugin.CreateMediaFile((directory / "none/a").wstring().c_str(), &job), nullptr);
    HostSession session(plugin, job);
    EXPECT_EQ(session.Audio(Hex("FF FB"), 0, 260000), 2);
    const Ebml::File file = session.Finish();
    ASSERT_EQ(file.Blocks().size(), 1U);
    EXPECT_EQ(file.Blocks()[0].m_Frame, Hex("FF FB"));
    EXPECT_FALSE(AnyLogIsLoaded());
}

// A bare name would be looked up where the loader looks for libraries: this program's run path, where a log lies.
TEST(Silent, NoLogIsLookedForWhereTheProgramsPathCannotBeRead) {
    for (const char* const program : {"", "no-folder"}) {
        g_pProgram = program;
        Plugin plugin(QF_PLUGIN);
        EXPECT_EQ(plugin.GetFileFormats(), plugin.m_pFormatArray);
        EXPECT_FALSE(AnyLogIsLoaded()) << program;
        g_pProgram = nullptr;
    }
    void* const library = dlopen("TW_Log.so", RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(library, nullptr) << "a bare name finds one";
    dlclose(library);
}

// errno tells a host why its file does not open, whatever looking for a log has met since.
TEST(Silent, ErrnoIsOfTheFileThatDidNotOpen) {
    TempDirectory directory;
    const std::wstring path = (directory / "none/a").wstring();
    const EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 "));
    Plugin plugin(QF_PLUGIN);
    g_pProgram = ""; // reads as an error of its own
    EXPECT_EQ(plugin.CreateMediaFile(path.c_str(), &job), nullptr);
    EXPECT_EQ(errno, ENOENT);
    g_pProgram = nullptr;
}

// The last one here: a log stays loaded.
TEST(Silent, TheLogLiesInTheProgramsFolderWhateverTheProgramsName) {
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path folder = program.parent_path().parent_path();
    ASSERT_TRUE(std::filesystem::exists(folder / "TW_Log.so"));
    for (const char* const name : {"host", "my-host", "a.b.c", "-", "a,b", "+0*"}) {
        const std::string path = folder / name;
        g_pProgram = path.c_str();
        LogReader log((folder / "TW_Log.so").c_str());
        Plugin plugin(QF_PLUGIN);
        plugin.GetFileFormats();
        EXPECT_EQ(log.Take().size(), 1U) << name;
        g_pProgram = nullptr;
    }
}

} // namespace
