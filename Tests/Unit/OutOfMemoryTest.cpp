// Every allocation of a session fails once: no call takes half of what it was given, and what is tried again comes out
// as if nothing had happened.
#include <gtest/gtest.h>

#include <new>

#include "FailingAllocator.h"
#include "FakeEnvironment.h"
#include "MKVInterface.h"
#include "SameOctets.h"
#include "TempDirectory.h"

namespace {

// A whole number of batches, so that closing drains nothing: what closing cannot drain is left out.
constexpr std::int64_t kFrames = 30;

struct Job {
    const char* m_Name;
    FourCC m_Format;
    FourCC m_Video; // 0 for none
    FourCC m_Audio;
};

// Makes a call, and once more if memory ran out. Only calls of the plug-in count.
class Attempts {
public:
    explicit Attempts(long failing) : m_Failing(failing) {}

    template <class Call>
    auto operator()(Call call) {
        try {
            return Counted(call);
        } catch (const std::bad_alloc&) {
            ++m_Thrown;
            return Counted(call);
        }
    }

    int m_Thrown = 0;
    long m_Seen = 0; // allocations

private:
    template <class Call>
    auto Counted(Call call) {
        struct Scope {
            explicit Scope(Attempts& attempts) : m_Attempts(attempts) {
                const long left = attempts.m_Failing - attempts.m_Seen;
                FailingAllocator::FailAfter(left > 0 ? left : 0);
            }
            ~Scope() {
                m_Attempts.m_Seen += FailingAllocator::Allocations();
                FailingAllocator::FailAfter(0);
            }
            Attempts& m_Attempts;
        } scope(*this);
        return call();
    }

    long m_Failing;
};

class OutOfMemory : public testing::TestWithParam<Job> {
protected:
    Octets Session(Attempts& attempt) {
        const Job& job = GetParam();
        FakeEnvironment::SetRand({7, 8});
        const std::wstring path = (m_Directory / "out").wstring();
        EncodeParam param{};
        param.formatFourCC = job.m_Format;
        param.videoParam.fourCC = job.m_Video;
        param.videoParam.frameRate = 25;
        param.audioParam.fourCC = job.m_Audio;
        param.disableVideo = job.m_Video == 0 ? 1 : 0;
        param.disableAudio = job.m_Audio == 0 ? 1 : 0;
        void* handle = nullptr;
        while (handle == nullptr) {
            handle = attempt([&] {
                FakeEnvironment::SetRand({7, 8});
                return CreateMediaFile(path.c_str(), &param); // null when there is no memory for the muxer itself
            });
        }
        Octets setup = Hex("67 42 00 0D 11 22");
        attempt([&] { WritezXPSData(handle, setup.data(), 4, setup.data(), 6); });
        for (std::int64_t frame = 0; frame < kFrames; ++frame) {
            MEDIA_FRAME record{};
            record.timestamp = frame * 2500000; // four a second
            record.duration = 2500000;
            record.frameFlags = frame % 8 == 0 ? 1 : 0;
            const Octets video = Hex("00 00 00 01 65 01 02 03 04 05 00 00 00 01 41 06 07 08 09 0A 0B 0C 0D 0E 0F 10");
            const int taken = attempt([&] {
                Octets octets = video;
                record.videoData = octets.data();
                record.videoSize = static_cast<std::int32_t>(octets.size());
                return WriteVideoPacket(handle, &record);
            });
            EXPECT_EQ(taken > 0, job.m_Video != 0);
            Octets audio(60, static_cast<unsigned char>(frame));
            int sizes[] = {3, 10, 20, 30};
            record.audioData = audio.data();
            record.audioSize = 60;
            attempt([&] { return WriteAudioPacket(handle, &record, sizes); });
        }
        attempt([&] { CloseMediaFile(handle, nullptr, nullptr); });
        return ReadFile(m_Directory / "out");
    }

    TempDirectory m_Directory;
};

TEST_P(OutOfMemory, ATriedAgainSessionIsTheSameFile) {
    Attempts undisturbed(0);
    const Octets expected = Session(undisturbed);
    ASSERT_GT(expected.size(), 4096U);
    ASSERT_GT(undisturbed.m_Seen, 60); // clang elides some
    int thrown = 0;
    for (long failing = 1; failing <= undisturbed.m_Seen; ++failing) {
        Attempts attempt(failing);
        ASSERT_TRUE(SameOctets(Session(attempt), expected)) << "allocation " << failing;
        thrown += attempt.m_Thrown;
    }
    EXPECT_GT(thrown, 50);
}

INSTANTIATE_TEST_SUITE_P(Jobs, OutOfMemory,
                         testing::Values(Job{"Lossless", MakeFourCC("MKV "), MakeFourCC("H264"), 0},
                                         Job{"Slices", MakeFourCC("MKV "), MakeFourCC("N264"), 0},
                                         Job{"Audio", MakeFourCC("MKA "), 0, MakeFourCC("AAC ")},
                                         Job{"WebmVideo", MakeFourCC("WEBM"), MakeFourCC("VP8 "), 0},
                                         Job{"WebmAudio", MakeFourCC("WEBM"), 0, MakeFourCC("VBIS")}),
                         [](const auto& row) { return row.param.m_Name; });

} // namespace
