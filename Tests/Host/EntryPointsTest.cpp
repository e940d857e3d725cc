#include <gtest/gtest.h>

#include "Plugin.h"
#include "TempDirectory.h"

namespace {

TEST(EntryPoints, CreateFollowedAtOnceByCloseLeavesAnEmptyFile) {
    Plugin plugin(QF_PLUGIN);
    TempDirectory directory;
    EncodeParam param{};
    param.formatFourCC = MakeFourCC("MKV ");
    void* const handle = plugin.CreateMediaFile((directory / "a.mkv").wstring().c_str(), &param);
    ASSERT_NE(handle, nullptr);
    plugin.CloseMediaFile(handle, nullptr, nullptr);
    EXPECT_TRUE(ReadFile(directory / "a.mkv").empty());
}

} // namespace
