// SPDX-License-Identifier: MIT
// A host whose log has the second of the two names: only libTW_Log.so lies beside this program.
#include "LogReader.h"
#include "Plugin.h"

#include <gtest/gtest.h>

namespace {

TEST(SecondName, IsTakenWhereTheFirstIsMissing) {
    LogReader log("libTW_Log.so");
    Plugin plugin(QF_PLUGIN);
    plugin.GetFileFormats();
    EncodeParam job{};
    job.formatFourCC = MakeFourCC("AVI ");
    EXPECT_EQ(plugin.CreateMediaFile(L"a", &job), nullptr);
    EXPECT_EQ(log.Take(), (std::vector<std::wstring>{
                              L"TWLogEx: qf_mkv.dll: Return file formats...",
                              L"TWLogEx: qf_mkv.dll: Can't find the file format[AVI ].",
                          }));
}

} // namespace
