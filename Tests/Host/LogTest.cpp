// SPDX-License-Identifier: MIT
// Every message of the plug-in, and the log function that receives it.
#include "HostTest.h"
#include "LogReader.h"

#include <new>

namespace {

bool g_NoMemory = false;

} // namespace

// The plug-in meets this one in place of the standard library's.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (g_NoMemory) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

using Messages = std::vector<std::wstring>;

class Log : public HostTest {
protected:
    void* Create(const wchar_t* path, FourCC format) {
        const EncodeParam job = MakeJob(format, MakeFourCC("H264"), MakeFourCC("AAC "));
        return m_Plugin.CreateMediaFile(path, &job);
    }

    LogReader m_Log{"TW_Log.so"};
    TempDirectory m_Directory;
};

TEST_F(Log, TheFirstOfTwoNamesIsTaken) {
    m_Plugin.GetFileFormats();
    EXPECT_EQ(m_Log.Take().size(), 1U);
    EXPECT_FALSE(LogReader::IsLoaded("libTW_Log.so"));
}

TEST_F(Log, ReturnOfTheFileFormats) {
    m_Plugin.GetFileFormats();
    m_Plugin.GetFileFormats();
    EXPECT_EQ(m_Log.Take(), (Messages{L"TWLogEx: qf_mkv.dll: Return file formats...",
                                      L"TWLogEx: qf_mkv.dll: Return file formats..."}));
}

TEST_F(Log, UnknownFormatWithItsFourCharacters) {
    const struct {
        const char* m_What;
        FourCC m_Format;
        const wchar_t* m_Text;
    } rows[] = {
        {"four characters", MakeFourCC("AVI "), L"AVI "},
        {"case matters", MakeFourCC("mkv "), L"mkv "},
        {"signs of a format", MakeFourCC("%s%d"), L"%s%d"},
        {"the terminator is not a format", 0, L""},
        {"text ends at a zero octet", 0x43004241, L"AB"},
        {"two octets of UTF-8", 0x42A9C341, L"A\u00E9B"},
        {"four octets of UTF-8", 0x80989FF0, L"\U0001F600"},
        {"a lead octet without its trail ends the text", 0xC3434241, L"ABC"},
        {"an octet that UTF-8 does not have", 0x42FF4141, L"AA"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Create((m_Directory / "a").wstring().c_str(), row.m_Format), nullptr) << row.m_What;
        EXPECT_EQ(m_Log.Take(),
                  Messages{L"TWLogEx: qf_mkv.dll: Can't find the file format[" + std::wstring(row.m_Text) + L"]."})
            << row.m_What;
        EXPECT_FALSE(std::filesystem::exists(m_Directory / "a")) << row.m_What;
    }
}

TEST_F(Log, NoMemoryForTheMuxer) {
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
        g_NoMemory = true;
        void* const handle = Create((m_Directory / "a").wstring().c_str(), format);
        g_NoMemory = false;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(m_Log.Take(), Messages{L"TWLog: qf_mkv.dll: Not enough memory to create avi writer."});
        EXPECT_FALSE(std::filesystem::exists(m_Directory / "a"));
    }
}

TEST_F(Log, FileThatDoesNotOpenWithItsPath) {
    std::filesystem::create_directory(m_Directory / "folder");
    const std::wstring root = (m_Directory / "").wstring();
    const struct {
        const char* m_What;
        std::wstring m_Path;
        int m_Why; // errno
    } rows[] = {
        {"no such directory", root + L"none/a.mkv", ENOENT},
        {"a directory", root + L"folder", EISDIR},
        {"an empty path", L"", ENOENT},
        {"not ASCII", root + L"nirgendwo \u00E4\u4E16\U0001F600/a.mkv", ENOENT},
        {"signs of a format", root + L"none/100%s%n%d%%.mkv", ENOENT},
        {"a name longer than any file system takes", root + std::wstring(3000, L'x'), ENAMETOOLONG},
    };
    for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
        for (const auto& row : rows) {
            errno = 0;
            EXPECT_EQ(Create(row.m_Path.c_str(), format), nullptr) << row.m_What;
            EXPECT_EQ(errno, row.m_Why) << row.m_What;
            EXPECT_EQ(m_Log.Take(), Messages{L"TWLogEx: qf_mkv.dll: Create media file[" + row.m_Path + L"] failed"})
                << row.m_What;
        }
    }
}

TEST_F(Log, NothingElseIsLogged) {
    EXPECT_EQ(m_Plugin.FindFileFormat(MakeFourCC("AVI ")), 0);
    EXPECT_EQ(m_Plugin.FindFileFormat(MakeFourCC("MKV ")), 1);
    m_Plugin.GetEncoders();
    m_Plugin.SetMuxParam(nullptr);
    const EncodeParam job = MakeJob(MakeFourCC("AVI "), 0, 0);
    EXPECT_EQ(m_Plugin.CreateMediaFile(nullptr, &job), nullptr);
    EXPECT_EQ(m_Plugin.CreateMediaFile((m_Directory / "a").wstring().c_str(), nullptr), nullptr);
    EXPECT_EQ(m_Plugin.CreateMediaFile(nullptr, nullptr), nullptr);
    MEDIA_FRAME frame{};
    EXPECT_EQ(m_Plugin.WriteVideoPacket(nullptr, &frame), 0);
    EXPECT_EQ(m_Plugin.WriteAudioPacket(nullptr, &frame, nullptr), 0);
    {
        HostSession session(m_Plugin, MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC ")));
        EXPECT_EQ(m_Plugin.WriteVideoPacket(session.Handle(), nullptr), 0);
        EXPECT_EQ(m_Plugin.WriteAudioPacket(session.Handle(), nullptr, nullptr), 0);
        session.Video(Hex("00"), 0, 1);
        session.Audio(Hex("00"), 0, 1);
    }
    EXPECT_EQ(m_Log.Take(), Messages{});
}

} // namespace
