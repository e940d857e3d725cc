// SPDX-License-Identifier: MIT
// Hosts built by older compilers for i386 align their stack to 4 octets: every entry point must live with it.
#include <gtest/gtest.h>

#include "MisalignedCall.h"
#include "Plugin.h"
#include "TempDirectory.h"

#if defined(__i386__)

namespace {

TEST(Stack, NeedsNoMoreThanFourOctetsOfAlignment) {
    const Plugin plugin(QF_PLUGIN);
    const TempDirectory directory;
    const std::wstring path = (directory / "a.mkv").wstring();
    EncodeParam param{};
    param.formatFourCC = MakeFourCC("MKV ");
    param.disableAudio = 1;
    unsigned char data[] = {1, 2, 3, 4};
    MEDIA_FRAME frame{};
    frame.videoData = data;
    frame.videoSize = sizeof data;
    for (std::uintptr_t offset = 0; offset < 16; offset += 4) {
        void* const handle = reinterpret_cast<void*>(
            CallMisaligned(reinterpret_cast<void*>(plugin.CreateMediaFile), path.c_str(), &param, offset));
        ASSERT_NE(handle, nullptr);
        for (frame.timestamp = 0; frame.timestamp < 100000000; frame.timestamp += 400000) {
            ASSERT_EQ(CallMisaligned(reinterpret_cast<void*>(plugin.WriteVideoPacket), handle, &frame, offset), 4U);
        }
        CallMisaligned(reinterpret_cast<void*>(plugin.CloseMediaFile), handle, nullptr, offset);
        EXPECT_GT(ReadFile(directory / "a.mkv").size(), 4096U);
    }
}

} // namespace

#endif
