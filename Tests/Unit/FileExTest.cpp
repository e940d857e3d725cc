// SPDX-License-Identifier: MIT
#include "FileEx.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>

#include "Octets.h"
#include "StdioHook.h"
#include "TempDirectory.h"
#include "VirtualSlot.h"

namespace {

struct JudgeRow {
    const char* m_Reason;
    std::wstring m_Path;
    std::uint32_t m_Expected;
};

const JudgeRow kJudgeRows[] = {
    {"nothing", L"", 0},
    {"no dot", L"iso:", 0},
    {"another extension", L"disc.mkv", 0},
    {"without the colon it is a file", L"disc.iso", 0},
    {"the extension alone", L".iso:", 1},
    {"lower case", L"/media/disc.iso:VIDEO", 1},
    {"upper case", L"disc.ISO:/VIDEO/a", 1},
    {"mixed case", L"disc.Iso:x", 1},
    {"mixed otherwise", L"disc.iSO:", 1},
    {"an earlier extension does not count", L"disc.iso:a.mkv", 0},
    {"the last one does", L"disc.mkv.iso:", 1},
    {"the dot of a directory", L"disc.iso:/VIDEO/a", 1},
    {"letters that only look alike", L"disc.\u0131so:", 0},
    {"a long s is no s", L"disc.i\u017Fo:", 0},
    {"shorter than the five octets", L"disc.is", 0},
    {"longer than 31 characters", L"disc.iso:" + std::wstring(1000, L'x'), 1},
    {"long and something else", L"disc." + std::wstring(1000, L'x'), 0},
    {"what follows need not be text", L"disc.iso:\x110000", 1},
};

TEST(JudgeISOFileW, Rows) {
    for (const JudgeRow& row : kJudgeRows) EXPECT_EQ(JudgeISOFileW(row.m_Path.c_str()), row.m_Expected) << row.m_Reason;
    EXPECT_EQ(JudgeISOFileW(nullptr), 0U) << "no path";
}

unsigned long WriteText(FileEx& file, const std::string& text) {
    return file.Write(text.data(), static_cast<unsigned long>(text.size()));
}

class FileExTest : public testing::Test {
protected:
    std::wstring Path(const std::string& name) const { return (m_Directory / name).wstring(); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(m_Directory / name); }
    bool Holds(const std::string& name, const std::string& text) const {
        return ReadFile(m_Directory / name) == Ascii(text);
    }
    bool IsEmpty() const { return std::filesystem::is_empty(m_Directory / "."); }

    TempDirectory m_Directory;
    FileEx m_File;
    char m_Buffer[16] = "untouched";
};

TEST_F(FileExTest, NothingIsOpenAtFirst) {
    EXPECT_EQ(WriteText(m_File, "abc"), 0U);
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 0U);
    EXPECT_STREQ(m_Buffer, "untouched");
    EXPECT_EQ(m_File.Flush(), 0);
    EXPECT_EQ(m_File.GetLength(), 0);
    EXPECT_EQ(m_File.Seek(0, SEEK_SET), -1);
    EXPECT_EQ(m_File.GetPos(), -1);
    m_File.Close();
}

// They are gathered in a buffer of 256 KiB: some fit, some just so, some are larger than it.
TEST_F(FileExTest, WritesOfEachSizeEndUpInTheirOrder) {
    ASSERT_EQ(m_File.Open(Path("sizes").c_str(), "wb"), 1U);
    std::string expected;
    constexpr unsigned kSizes[] = {1, 262143, 262144, 262145, 3, 262141, 262144, 700000, 524288, 7, 524281};
    for (unsigned write = 0; write < 20000; ++write) {
        const unsigned size = write < std::size(kSizes) ? kSizes[write] : write % 17;
        std::string text(size, static_cast<char>('a' + write % 23));
        EXPECT_EQ(WriteText(m_File, text), text.size());
        expected += text;
        EXPECT_EQ(m_File.GetPos(), static_cast<std::int64_t>(expected.size()));
    }
    m_File.Close();
    EXPECT_TRUE(Holds("sizes", expected));
}

TEST_F(FileExTest, AFullDiskShowsInShortCounts) {
    ASSERT_EQ(m_File.Open(L"/dev/full", "wb"), 1U);
    bool fell = false;
    for (int write = 0; write < 60000 && !fell; ++write) fell = WriteText(m_File, "short") < 5;
    EXPECT_TRUE(fell);
    EXPECT_LT(WriteText(m_File, std::string(700000, 'x')), 700000U);
}

// The file has ended there, whatever room there is later and wherever the octets should go.
TEST_F(FileExTest, AnOutputEndsAtTheFirstOctetThatIsNotTaken) {
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlim_t most = std::exchange(limit.rlim_cur, 100);
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    WriteText(m_File, std::string(90, 'x'));
    EXPECT_EQ(m_File.Flush(), 0);
    WriteText(m_File, std::string(20, 'y'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(m_File.Flush(), EOF);
    limit.rlim_cur = most;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(WriteText(m_File, "z"), 0U);
    EXPECT_EQ(WriteText(m_File, std::string(300000, 'z')), 0U);
    EXPECT_EQ(m_File.Flush(), EOF);
    EXPECT_EQ(m_File.Seek(0, SEEK_SET), -1);
    EXPECT_EQ(WriteText(m_File, "z"), 0U);
    EXPECT_EQ(m_File.GetLength(), 100);
    EXPECT_EQ(m_File.GetPos(), 100);
    m_File.Close();
    EXPECT_TRUE(Holds("a.mkv", std::string(90, 'x') + std::string(10, 'y')));
    ASSERT_EQ(m_File.Open(Path("b.mkv").c_str(), "wb"), 1U);
    EXPECT_EQ(WriteText(m_File, "abc"), 3U) << "another one begins anew";
    m_File.Close();
    EXPECT_TRUE(Holds("b.mkv", "abc"));
}

TEST_F(FileExTest, AnOutputIsNotPassedOnToOtherPrograms) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    int passed = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) != m_Directory / "a.mkv") continue;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
        ++passed;
    }
    EXPECT_EQ(passed, 1);
}

TEST_F(FileExTest, NullWithoutOctetsIsNoError) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    EXPECT_EQ(m_File.Write(nullptr, 0), 0U);
    WriteText(m_File, "abc");
    EXPECT_EQ(m_File.Write(nullptr, 0), 0U);
    EXPECT_EQ(m_File.GetPos(), 3);
}

// In other modes than "wb" results and positions are stdio's.
TEST_F(FileExTest, OtherModesGoToStdio) {
    WriteFile(m_Directory / "a", Ascii("0123456789"));
    ASSERT_EQ(m_File.Open(Path("a").c_str(), "rb"), 1U);
    EXPECT_EQ(WriteText(m_File, "x"), 0U) << "for reading alone";
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 3U) << "which a write that failed does not end";
    EXPECT_EQ(m_File.GetPos(), 3);
    EXPECT_EQ(m_File.GetLength(), 10);
    EXPECT_EQ(m_File.Read(m_Buffer, 2), 2U);
    EXPECT_EQ(std::string(m_Buffer, 2), "34");

    ASSERT_EQ(m_File.Open(Path("a").c_str(), "ab"), 1U);
    EXPECT_EQ(WriteText(m_File, "ab"), 2U);
    EXPECT_EQ(m_File.GetPos(), 12);
    EXPECT_EQ(m_File.Seek(0, SEEK_SET), 0);
    EXPECT_EQ(m_File.GetPos(), 0);
    EXPECT_EQ(WriteText(m_File, "c"), 1U);
    EXPECT_EQ(m_File.Flush(), 0);
    EXPECT_EQ(m_File.GetPos(), 13) << "behind what is there, wherever the position was";
    m_File.Close();
    EXPECT_TRUE(Holds("a", "0123456789abc"));

    ASSERT_EQ(m_File.Open(Path("a").c_str(), "r+b"), 1U);
    EXPECT_EQ(m_File.Read(m_Buffer, 4), 4U);
    EXPECT_EQ(m_File.Seek(0, SEEK_CUR), 0);
    EXPECT_EQ(WriteText(m_File, "XY"), 2U);
    EXPECT_EQ(m_File.GetPos(), 6);
    EXPECT_EQ(m_File.Seek(0, SEEK_CUR), 0);
    EXPECT_EQ(m_File.Read(m_Buffer, 1), 1U);
    EXPECT_EQ(m_Buffer[0], '6');
    m_File.Close();
    EXPECT_TRUE(Holds("a", "0123XY6789abc"));
}

TEST_F(FileExTest, WritesReadsAndSeeks) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb+"), 1U);
    EXPECT_EQ(m_File.GetPos(), 0);
    EXPECT_EQ(m_File.GetLength(), 0);
    EXPECT_EQ(WriteText(m_File, "0123456789"), 10U);
    EXPECT_EQ(m_File.GetPos(), 10);
    EXPECT_EQ(m_File.Seek(4, SEEK_SET), 0);
    EXPECT_EQ(m_File.GetLength(), 10);
    EXPECT_EQ(m_File.GetPos(), 4) << "asking for the length moves nothing";
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 3U);
    EXPECT_EQ(std::string(m_Buffer, 3), "456");
    EXPECT_EQ(m_File.Seek(-2, SEEK_CUR), 0);
    EXPECT_EQ(m_File.GetPos(), 5);
    EXPECT_EQ(m_File.Seek(-1, SEEK_END), 0);
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 1U) << "a short read";
    EXPECT_EQ(m_Buffer[0], '9');
    EXPECT_EQ(m_File.Seek(-1, SEEK_SET), -1) << "there is nothing in front of the file";
    EXPECT_EQ(m_File.Seek(0, 77), -1) << "no such origin";
    EXPECT_EQ(m_File.Seek(2, SEEK_SET), 0);
    EXPECT_EQ(WriteText(m_File, "ab"), 2U);
    EXPECT_EQ(WriteText(m_File, ""), 0U);
    EXPECT_EQ(m_File.Flush(), 0);
    EXPECT_TRUE(Holds("a.mkv", "01ab456789")) << "flushed";
}

TEST_F(FileExTest, CountsIn64Bits) {
    constexpr std::int64_t kFar = 5LL << 30;
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    EXPECT_EQ(m_File.Seek(kFar, SEEK_SET), 0);
    EXPECT_EQ(m_File.GetPos(), kFar);
    EXPECT_EQ(WriteText(m_File, "a"), 1U);
    EXPECT_EQ(m_File.Seek(1, SEEK_SET), 0);
    EXPECT_EQ(m_File.GetLength(), kFar + 1);
    EXPECT_EQ(m_File.GetPos(), 1);
}

TEST_F(FileExTest, ReadsNothingFromAFileOpenedForWriting) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    WriteText(m_File, "abc");
    m_File.Seek(0, SEEK_SET);
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 0U);
}

// Small writes reach stdio in whole pages, wherever one lies across the buffer's end.
TEST_F(FileExTest, SmallWritesGoOutInWholePages) {
    std::vector<std::size_t> sizes;
    StdioHook::SetWrite([&](const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
        sizes.push_back(size * count);
        return StdioHook::Write(octets, size, count, stream);
    });
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    for (int write = 0; write < 160000; ++write) WriteText(m_File, "seventh");
    m_File.Close();
    StdioHook::SetWrite({});
    ASSERT_EQ(sizes.size(), 5U) << "1,120,000 octets";
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(sizes[i], 262144U);
    EXPECT_EQ(sizes[4], 1120000U - 4 * 262144U);
}

// No two octets of it are alike for long, so that a piece in a wrong place would show.
TEST_F(FileExTest, LargeWritesKeepTheOrderOfTheirOctets) {
    std::string pattern(2000000, '\0');
    for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<char>(i % 251);
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    std::string expected;
    for (const std::size_t size : {10U, 600000U, 7U, 262140U, 3U, 262144U, 262150U, 1U, 2000000U}) {
        const std::string text = pattern.substr(0, size);
        EXPECT_EQ(WriteText(m_File, text), size);
        expected += text;
    }
    m_File.Close();
    EXPECT_TRUE(Holds("a.mkv", expected));
}

TEST_F(FileExTest, AskingForTheLengthMovesNothingBeyond32Bits) {
    constexpr std::int64_t kFar = 5LL << 30;
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    EXPECT_EQ(m_File.Seek(kFar, SEEK_SET), 0);
    EXPECT_EQ(WriteText(m_File, "a"), 1U);
    EXPECT_EQ(m_File.GetLength(), kFar + 1);
    EXPECT_EQ(WriteText(m_File, "b"), 1U);
    EXPECT_EQ(m_File.GetLength(), kFar + 2) << "behind the first";
    m_File.Open(L"none/a", "wb"); // closes it
}

TEST_F(FileExTest, KnowsItsPositionBehindALargeWriteAtItsEnd) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    WriteText(m_File, "abc");
    EXPECT_EQ(m_File.Seek(0, SEEK_END), 0);
    EXPECT_EQ(WriteText(m_File, std::string(1000000, 'x')), 1000000U);
    EXPECT_EQ(m_File.GetPos(), 1000003);
}

// What is read lies behind what was written, in every mode: octets that are gathered go out first.
TEST_F(FileExTest, ReadsBehindWhatWasWritten) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    WriteText(m_File, "0123456789");
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 0U);
    EXPECT_TRUE(Holds("a.mkv", "0123456789")) << "on the disk before the read";
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "rb+"), 1U);
    WriteText(m_File, "ab");
    EXPECT_EQ(m_File.Seek(0, SEEK_CUR), 0);
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 3U);
    EXPECT_EQ(std::string(m_Buffer, 3), "234");
}

TEST_F(FileExTest, OpensAPathWithoutADot) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(m_Directory / ".");
    EXPECT_EQ(m_File.Open(L"plain", "wb"), 1U);
    std::filesystem::current_path(before);
    EXPECT_TRUE(Exists("plain"));
}

TEST_F(FileExTest, TakesPathsInUtf8) {
    const std::wstring directory = Path("");
    EXPECT_EQ(m_File.Open((directory + L"\u00E9\u20AC\U0001F600.mkv").c_str(), "wb"), 1U);
    EXPECT_TRUE(Exists("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80.mkv"));
    EXPECT_EQ(m_File.Open((directory + L"\xD800.mkv").c_str(), "wb"), 1U);
    EXPECT_TRUE(Exists("\xED\xA0\x80.mkv")) << "lenient";
}

// A run of slashes is as good as one, so it brings a name to where the path is cut.
TEST_F(FileExTest, CutsPathsAt2047Octets) {
    std::wstring path = Path("");
    path.resize(2044, L'/');
    EXPECT_EQ(m_File.Open((path + L"abcdef").c_str(), "wb"), 1U);
    EXPECT_TRUE(Exists("abc"));
    EXPECT_EQ(m_File.Open((path + L"xy\u00E9z").c_str(), "wb"), 1U);
    EXPECT_TRUE(Exists("xy")) << "never inside a character";
}

TEST_F(FileExTest, DoesNotOpenWhatCannotBeOpened) {
    EXPECT_EQ(m_File.Open(Path("none/a.mkv").c_str(), "wb"), 0U) << "no such directory";
    EXPECT_EQ(m_File.Open(Path("none.mkv").c_str(), "rb"), 0U) << "no such file to read";
    EXPECT_EQ(m_File.Open(Path("").c_str(), "wb"), 0U) << "a directory";
    EXPECT_EQ(m_File.Open(L"", "wb"), 0U) << "no name";
    EXPECT_EQ(m_File.Open(nullptr, "wb"), 0U) << "no path";
    EXPECT_EQ(WriteText(m_File, "abc"), 0U);
    EXPECT_EQ(m_File.GetLength(), 0);
    EXPECT_TRUE(IsEmpty());
}

TEST_F(FileExTest, OpeningClosesWhatIsOpen) {
    ASSERT_EQ(m_File.Open(Path("a.mkv").c_str(), "wb"), 1U);
    WriteText(m_File, "first");
    ASSERT_EQ(m_File.Open(Path("b.mkv").c_str(), "wb"), 1U);
    EXPECT_TRUE(Holds("a.mkv", "first"));
    WriteText(m_File, "second");
    EXPECT_EQ(m_File.Open(Path("none/c.mkv").c_str(), "wb"), 0U);
    EXPECT_TRUE(Holds("b.mkv", "second")) << "also when the next does not open";
    EXPECT_EQ(WriteText(m_File, "third"), 0U);
}

TEST_F(FileExTest, OpeningTruncatesForWriting) {
    m_File.Open(Path("a.mkv").c_str(), "wb");
    WriteText(m_File, "first");
    m_File.Open(Path("a.mkv").c_str(), "wb");
    m_File.Close();
    EXPECT_TRUE(Holds("a.mkv", ""));
}

TEST_F(FileExTest, ClosedIsAsNeverOpened) {
    m_File.Open(Path("a.mkv").c_str(), "wb");
    WriteText(m_File, "abc");
    m_File.Close();
    EXPECT_TRUE(Holds("a.mkv", "abc"));
    m_File.Close();
    EXPECT_EQ(WriteText(m_File, "abc"), 0U);
    EXPECT_EQ(m_File.GetLength(), 0);
    EXPECT_EQ(m_File.Flush(), 0);
}

TEST_F(FileExTest, DestructionCloses) {
    {
        FileEx file;
        file.Open(Path("a.mkv").c_str(), "wb");
        WriteText(file, "abc");
    }
    EXPECT_TRUE(Holds("a.mkv", "abc"));
}

TEST_F(FileExTest, APseudoFileTakesAndGivesNothing) {
    ASSERT_EQ(m_File.Open(Path("disc.Iso:x").c_str(), "wb"), 1U);
    EXPECT_TRUE(IsEmpty());
    EXPECT_EQ(WriteText(m_File, "abc"), 0U);
    EXPECT_EQ(m_File.Read(m_Buffer, 3), 0U);
    EXPECT_EQ(m_File.Flush(), 0);
    EXPECT_EQ(m_File.GetLength(), 1);
    EXPECT_EQ(m_File.GetPos(), 0);
    EXPECT_EQ(m_File.Seek(100, SEEK_SET), 0);
    EXPECT_EQ(m_File.Seek(-100, SEEK_SET), 0) << "whatever the place";
    EXPECT_EQ(m_File.GetPos(), 0);
    m_File.Close();
    EXPECT_EQ(m_File.GetLength(), 1) << "it stays one when it is closed";
    EXPECT_EQ(m_File.GetPos(), 0);
    EXPECT_EQ(m_File.Seek(1, SEEK_SET), 0);
}

TEST_F(FileExTest, PseudoFilesAndFilesTakeTurns) {
    m_File.Open(Path("a.mkv").c_str(), "wb");
    WriteText(m_File, "abc");
    ASSERT_EQ(m_File.Open(Path("disc.iso:").c_str(), "wb"), 1U);
    EXPECT_TRUE(Holds("a.mkv", "abc"));
    ASSERT_EQ(m_File.Open(Path("b.mkv").c_str(), "wb"), 1U);
    EXPECT_EQ(m_File.GetLength(), 0);
    EXPECT_EQ(WriteText(m_File, "abc"), 3U);
    EXPECT_EQ(m_File.GetPos(), 3);
    m_File.Open(Path("disc.iso:").c_str(), "wb");
    EXPECT_EQ(m_File.Open(Path("none/a.mkv").c_str(), "wb"), 0U);
    EXPECT_EQ(m_File.GetLength(), 0) << "a file that did not open is no pseudo-file";
}

TEST_F(FileExTest, AFullDiskShowsInResults) {
    ASSERT_TRUE(std::filesystem::exists("/dev/full"));
    ASSERT_EQ(m_File.Open(L"/dev/full", "wb"), 1U);
    WriteText(m_File, "abc");
    EXPECT_EQ(m_File.Flush(), EOF);
}

TEST_F(FileExTest, HasNoThreadToEnable) {
    EXPECT_EQ(m_File.EnableMultiThread(1), 0U);
    EXPECT_EQ(m_File.EnableMultiThread(0), 0U);
}

TEST_F(FileExTest, OpenClosesThroughTheTable) {
    struct Counting : FileEx {
        void Close() override {
            ++m_Closed;
            FileEx::Close();
        }
        int m_Closed = 0;
    } file;
    file.Open(Path("a.mkv").c_str(), "wb");
    file.Open(Path("disc.iso:").c_str(), "wb");
    EXPECT_EQ(file.m_Closed, 2);
}

TEST(FileEx, SlotsStandInTheirOrder) {
    // 0 and 1 are the two destructors.
    EXPECT_EQ(VirtualSlot(&FileEx::Open), 2U);
    EXPECT_EQ(VirtualSlot(&FileEx::Close), 3U);
    EXPECT_EQ(VirtualSlot(&FileEx::Flush), 4U);
    EXPECT_EQ(VirtualSlot(&FileEx::Write), 5U);
    EXPECT_EQ(VirtualSlot(&FileEx::Read), 6U);
    EXPECT_EQ(VirtualSlot(&FileEx::GetLength), 7U);
    EXPECT_EQ(VirtualSlot(&FileEx::Seek), 8U);
    EXPECT_EQ(VirtualSlot(&FileEx::GetPos), 9U);
    EXPECT_EQ(VirtualSlot(&FileEx::EnableMultiThread), 10U);
}

TEST(IStream, SlotsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&IStream::Read), 0U);
    EXPECT_EQ(VirtualSlot(&IStream::Write), 1U);
    EXPECT_EQ(VirtualSlot(&IStream::Seek), 2U);
}

} // namespace
