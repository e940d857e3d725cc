// SPDX-License-Identifier: MIT
// The library's exports and imports, as the public tools nm and readelf list them.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "Command.h"

namespace {

// The last column of each line that names a symbol: its name, decorated names decoded.
std::set<std::string> ExportedNames() {
    std::set<std::string> names;
    std::istringstream lines(RunCommand("nm -D -C --defined-only " + Quoted(QF_PLUGIN)).m_Output);
    for (std::string line; std::getline(lines, line);) {
        std::string address;
        std::string kind;
        std::string name;
        std::istringstream columns(line);
        columns >> address >> kind >> std::ws;
        std::getline(columns, name);
        names.insert(name);
    }
    return names;
}

TEST(Exports, AreExactlyTheInterface) {
    const std::set<std::string> expected = {
        "FormatArray",
        "EncoderArray",
        "MKVAudioEncoders",
        "MKVVideoEncoders",
        "HMKVAudioEncoders",
        "HMKVVideoEncoders",
        "WEBMAudioEncoders",
        "WEBMVideoEncoders",
        "m_MuxParam",
        "IsWebm",
        "GetEncoders",
        "GetFileFormats",
        "GetMultiVersion",
        "FindFileFormat(unsigned long)",
        "CreateEncoder(unsigned long, EncodeParam const*)",
        "Encode(void*, MEDIA_FRAME const*, MEDIA_FRAME**, int**)",
        "DestroyEncoder(void*)",
        "ReviseAudioParam(AudioParam*)",
        "SetMuxParam(MuxParam*)",
        "CreateMediaFile(wchar_t const*, EncodeParam const*)",
        "WriteVideoPacket(void*, MEDIA_FRAME const*)",
        "WriteAudioPacket(void*, MEDIA_FRAME const*, int*)",
        "WriteVosData(void*, unsigned char*, int)",
        "WritezXPSData(void*, unsigned char*, int, unsigned char*, int)",
        "CloseMediaFile(void*, unsigned int (*)(void*, unsigned int, unsigned int, unsigned int), void*)",
    };
    EXPECT_EQ(expected.size(), 25U);
    EXPECT_EQ(ExportedNames(), expected);
}

TEST(Exports, OnlyTheLanguagesLibrariesAreNeeded) {
    const std::set<std::string> allowed = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6", "libdl.so.2",
                                           "ld-linux.so.2", "ld-linux-x86-64.so.2",
                                           // The sanitizers' own, in their builds.
                                           "libasan.so.8", "libubsan.so.1"};
    std::istringstream lines(RunCommand("readelf -d " + Quoted(QF_PLUGIN)).m_Output);
    int needed = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("(NEEDED)") == std::string::npos) continue;
        ++needed;
        const std::size_t open = line.find('[');
        const std::string name = line.substr(open + 1, line.find(']') - open - 1);
        EXPECT_EQ(allowed.count(name), 1U) << name;
    }
    EXPECT_GT(needed, 0);
}

} // namespace
