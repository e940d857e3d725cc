// SPDX-License-Identifier: MIT
// The library's facts about a plug-in and about itself.
#include <fstream>
#include <set>
#include <sstream>

#include "Command.h"
#include "LibraryTest.h"

namespace {

TEST_F(LibraryTest, ListsFormatsAndCodecs) {
    std::string listed;
    for (std::size_t format = 0; format < qf_format_count(m_Plugin.get()); ++format) {
        qf_format_info info{};
        info.struct_size = sizeof info;
        ASSERT_EQ(qf_format_get(m_Plugin.get(), format, &info), QF_OK);
        listed += std::string(info.name) + " " + info.extension + ":";
        for (std::size_t codec = 0; codec < qf_codec_count(m_Plugin.get(), format); ++codec) {
            qf_codec_info row{};
            row.struct_size = sizeof row;
            ASSERT_EQ(qf_codec_get(m_Plugin.get(), format, codec, &row), QF_OK);
            listed += std::string(row.is_listed != 0 ? " +" : " ") + row.name;
        }
        listed += "\n";
    }
    EXPECT_EQ(listed,
              "mkv .mkv: +h264 +a264 +i264 n264 havc mpeg1 mpeg2 mpeg4 +xvid vp8 +aac +ac3 +mp3 mp2 dts pcm vorbis\n"
              "hmkv .mkv: h264 +a264 +i264 n264 +havc mpeg1 mpeg2 mpeg4 xvid vp8 aac +ac3 mp3 mp2 dts pcm vorbis\n"
              "mka .mka: +aac +ac3 +mp3 mp2 dts pcm vorbis\n"
              "webm .webm: +vp8 +vorbis\n");
    EXPECT_STREQ(qf_plugin_version(m_Plugin.get()), "5,0,0,14");
    EXPECT_STREQ(qf_plugin_path(m_Plugin.get()), QF_PLUGIN);
}

TEST_F(LibraryTest, DescribesACodec) {
    qf_codec_info info{};
    info.struct_size = sizeof info;
    ASSERT_EQ(qf_codec_get(m_Plugin.get(), 3, 1, &info), QF_OK);
    EXPECT_EQ(info.track, QF_AUDIO);
    EXPECT_EQ(info.four_cc, 0x53494256U); // VBIS
    EXPECT_STREQ(info.codec_id, "A_VORBIS");
    EXPECT_STREQ(info.description, "Vorbis");
}

// A record of an older program ends earlier, and nothing behind its end is written.
TEST_F(LibraryTest, WritesNoMoreOfARecordThanItsCallerKnows) {
    qf_format_info info{};
    info.struct_size = offsetof(qf_format_info, extension);
    ASSERT_EQ(qf_format_get(m_Plugin.get(), 0, &info), QF_OK);
    EXPECT_STREQ(info.name, "mkv");
    EXPECT_EQ(info.extension, nullptr);
    info.struct_size = sizeof info.struct_size;
    EXPECT_EQ(qf_format_get(m_Plugin.get(), 0, &info), QF_ERROR_ARGUMENT);
}

TEST(Library, FindsThePluginBesideItself) {
    const PluginHandle plugin = OpenPlugin(nullptr);
    ASSERT_NE(plugin, nullptr) << qf_error_text();
    EXPECT_TRUE(std::filesystem::equivalent(qf_plugin_path(plugin.get()), QF_PLUGIN));
}

TEST(Library, HasItsHeadersVersion) {
    EXPECT_EQ(qf_host_version(), static_cast<std::uint32_t>(QF_HOST_VERSION));
    EXPECT_STREQ(qf_error_name(QF_ERROR_TIME), "QF_ERROR_TIME");
    EXPECT_STREQ(qf_error_name(-1), "unknown");
}

// The library exports exactly the functions that the header declares, and with GNU ld the name of the version.
TEST(Library, ExportsWhatTheHeaderDeclares) {
    std::set<std::string> exported;
    std::istringstream symbols(RunCommand("nm -D --defined-only --format=posix " QF_HOST_LIBRARY).m_Output);
    for (std::string line; std::getline(symbols, line);) exported.insert(line.substr(0, line.find(' ')));
    exported.erase("QF_HOST_1.0");
    std::set<std::string> declared;
    std::istringstream names(RunCommand("sed -nE 's/^[a-z].*[ *](qf_[a-z0-9_]+)\\(.*/\\1@@QF_HOST_1.0/p' " QF_SOURCE
                                        "/Source/Host/qf_host.h")
                                 .m_Output);
    for (std::string name; std::getline(names, name);) declared.insert(name);
    EXPECT_EQ(declared.size(), 29U);
    EXPECT_EQ(exported, declared);
}

// C11 without extensions, every warning an error; and what a generator of other languages' bindings makes of it.
TEST(Library, HasAHeaderInPlainC) {
    const CommandResult result =
        RunCommand("gcc -x c -std=c11 -Wall -Wextra -Wpedantic -Wconversion -Wc++-compat -Werror "
                   "-fsyntax-only " QF_SOURCE "/Source/Host/qf_host.h 2>&1");
    EXPECT_EQ(result.m_ExitCode, 0) << result.m_Output;
}

} // namespace
