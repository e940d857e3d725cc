// A host without a log: no library of that name lies beside this program.
#include "FakeEnvironment.h"
#include "HostSession.h"
#include "LogReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

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

} // namespace
