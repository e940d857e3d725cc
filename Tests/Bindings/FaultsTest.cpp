// SPDX-License-Identifier: MIT
// A full disk: calls return codes, no signal is raised, and a text reports the fault while the file is still open.
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <random>

#include "LibraryTest.h"

namespace {

const Octets kLargePicture = Repeated(20000, 0x10);

// Writes of this process beyond that size fail as on a full disk.
class SizeLimit {
public:
    explicit SizeLimit(rlim_t octets) {
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit limit{octets, m_Before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SizeLimit() { setrlimit(RLIMIT_FSIZE, &m_Before); }
    SizeLimit(const SizeLimit&) = delete;
    SizeLimit& operator=(const SizeLimit&) = delete;

private:
    rlimit m_Before{};
};

volatile std::sig_atomic_t g_Signals = 0;

class Faults : public LibraryTest {
protected:
    void SetUp() override {
        struct sigaction action {};
        action.sa_handler = [](int) { g_Signals = g_Signals + 1; };
        sigaction(SIGXFSZ, &action, nullptr);
    }
    // Returns the first error and the packet's number.
    std::pair<int, int> WriteFilm(const FileHandle& file, int pictures) const {
        for (int i = 0; i < pictures; ++i) {
            const int error = Write(file, QF_VIDEO, kLargePicture, i * 40, i * 40, 40, i == 0);
            if (error != QF_OK) return {error, i};
        }
        return {QF_OK, pictures};
    }
};

TEST_F(Faults, OfALimitShowWhileTheFileIsOpen) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    {
        const SizeLimit limit(1000000); // 50 pictures
        const auto [error, picture] = WriteFilm(file, 1000);
        EXPECT_EQ(error, QF_ERROR_WRITE);
        EXPECT_TRUE(ErrorSays("File too large"));
        EXPECT_LT(picture, 250) << "some seconds later at the latest";
        EXPECT_EQ(WriteFilm(file, 1).first, QF_ERROR_WRITE);
        EXPECT_EQ(Close(file), QF_ERROR_WRITE);
        EXPECT_TRUE(ErrorSays("is not whole: File too large"));
    }
    EXPECT_EQ(g_Signals, 0);
    EXPECT_LE(std::filesystem::file_size(Path()), 1000000U);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGXFSZ), 0);
}

TEST_F(Faults, AtTheEndShowWhenTheFileIsClosed) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    EXPECT_EQ(WriteFilm(file, 60).first, QF_OK);
    const SizeLimit limit(1000000);
    EXPECT_EQ(Close(file), QF_ERROR_WRITE);
    EXPECT_EQ(g_Signals, 0);
}

// The disk has room again when the file is closed, but not all of it arrived: its length alone would not show that.
TEST_F(Faults, InTheMiddleShowWhenTheFileIsClosed) {
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    EXPECT_EQ(WriteFilm(file, 60).first, QF_OK);
    {
        const SizeLimit limit(800000);
        for (int i = 60; i < 90; ++i) {
            if (Write(file, QF_VIDEO, kLargePicture, i * 40, i * 40, 40, false) != QF_OK) break;
        }
    }
    EXPECT_EQ(Close(file), QF_ERROR_WRITE) << "a part was lost";
}

TEST_F(Faults, AreNotSeenInLongGoodFiles) {
    FileHandle file = Open(MillisecondJob("vp8", "pcm"));
    std::mt19937 random(1);
    int sound = 0;
    for (int i = 0; i < 3000; ++i) {
        const Octets picture(random() % 3000 + 1, 0x10);
        ASSERT_EQ(Write(file, QF_VIDEO, picture, i * 40, i * 40, 40, i % 50 == 0), QF_OK) << qf_error_text();
        for (; sound < i * 40 && random() % 4 != 0; sound += 20) {
            ASSERT_EQ(Write(file, QF_AUDIO, Zeros(64), sound, sound, 20), QF_OK) << qf_error_text();
        }
    }
    EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
    Read();
}

// Whatever a signal was sent for before stays.
TEST_F(Faults, OfOthersStayPending) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    raise(SIGXFSZ);
    FileHandle file = Open(MillisecondJob("vp8", nullptr));
    EXPECT_EQ(WriteFilm(file, 60).first, QF_OK);
    EXPECT_EQ(Close(file), QF_OK);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGXFSZ), 1);
}

} // namespace
