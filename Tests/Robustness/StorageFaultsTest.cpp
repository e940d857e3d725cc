// SPDX-License-Identifier: MIT
// Every storage call of a small session fails once, fails from there on, is cut short or is late. The host's calls
// return their usual results, the close returns, nothing leaks, other files are not affected, and the octets written
// before the fault stay correct. After a failed write the plug-in writes nothing more anywhere, even if the storage
// works again, and the guide's check finds the file incomplete.
#include <cerrno>

#include "FaultyFile.h"
#include "HeapMeter.h"
#include "IsWhole.h"
#include "SameOctets.h"
#include "SmallSession.h"

namespace {

constexpr int kFrames = 22; // five clusters, so that the file is flushed once

struct Row {
    const char* m_Name;
    Level m_Level;
    Operation m_Operation;

    friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.m_Name; }
};

class StorageFaults : public RobustnessTest, public testing::WithParamInterface<std::tuple<SmallJob, Row>> {
protected:
    StorageFaults() : m_Job(std::get<0>(GetParam())), m_Row(std::get<1>(GetParam())) {
        m_Expected = Undisturbed(m_Job, kFrames);
        const Ebml::File file(m_Expected);
        m_Front = file.At("Segment/Tracks").End();
        SmallSession session(m_Plugin, m_Job, m_Directory / "undisturbed", kFrames);
        for (int call = 0; call < session.Calls(); ++call) m_Results.push_back(session.Call(call));
    }

    // Calls of that kind that a session makes.
    long Count() {
        const FaultyFile faulty(Path(), {m_Row.m_Level, m_Row.m_Operation});
        SmallSession(m_Plugin, m_Job, Path(), kFrames).Run();
        EXPECT_EQ(ReadFile(Path()), m_Expected) << "no fault, no difference";
        return faulty.Calls(m_Row.m_Operation);
    }

    void Try(const Fault& fault) {
        SCOPED_TRACE(testing::Message() << fault);
        const FaultyFile faulty(Path(), fault);
        const long live = HeapMeter::LiveBlocks();
        {
            SmallSession session(m_Plugin, m_Job, Path(), kFrames);
            SmallSession bystander(m_Plugin, m_Job, Bystander(), kFrames);
            const bool opens = fault.m_Operation != Operation::Open || fault.m_Effect == Effect::Delay;
            for (int call = 0; call < session.Calls(); ++call) {
                const int expected = m_Results[static_cast<std::size_t>(call)];
                ASSERT_EQ(session.Call(call), opens || session.ReturnsNothing(call) ? expected : 0);
                ASSERT_EQ(bystander.Call(call), expected);
            }
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live);
        ASSERT_EQ(faulty.Struck(), fault.m_Effect != Effect::Delay);
        ASSERT_TRUE(SameOctets(ReadFile(Bystander()), m_Expected));
        if (fault.m_Effect == Effect::Delay) {
            ASSERT_TRUE(SameOctets(ReadFile(Path()), m_Expected));
        } else if (fault.m_Operation == Operation::Open) {
            ASSERT_FALSE(std::filesystem::exists(Path()));
        } else {
            Judge(ReadFile(Path()), fault, faulty);
        }
        // New files each time: what is truncated some file systems write to the disk at once.
        std::filesystem::remove(Path());
        std::filesystem::remove(Bystander());
    }

    void Judge(const Octets& disk, const Fault& fault, const FaultyFile& faulty) {
        const bool losesOctets = fault.m_Operation == Operation::Write || fault.m_Operation == Operation::Seek;
        ASSERT_EQ(IsWhole(Path()), disk == m_Expected);
        ASSERT_EQ(disk == m_Expected, !losesOctets);
        const Ebml::File file(disk, Ebml::Ending::CutOff);
        ASSERT_EQ(Ebml::Describe(file.Problems()), "");
        if (losesOctets) {
            ASSERT_EQ(faulty.LaterWrites(), 0) << "nothing more is written";
            // But for a size that was itself cut short.
            const bool isCut = fault.m_Effect == Effect::Shorten;
            ASSERT_TRUE(isCut || !file.Has("Segment") || file.At("Segment").m_UnknownSize);
        }
        // It is the beginning of the file, with all that was written before the fault.
        ASSERT_GE(disk.size(), static_cast<std::size_t>(faulty.End()));
        ASSERT_LE(disk.size(), m_Expected.size());
        ASSERT_EQ(EqualUpTo(disk, m_Expected, m_Front), disk.size());
    }

    std::filesystem::path Path() const { return m_Directory / "out"; }

    std::filesystem::path Bystander() const { return m_Directory / "bystander"; }

    const SmallJob m_Job;
    const Row m_Row;
    Octets m_Expected;
    std::vector<int> m_Results;
    std::size_t m_Front = 0; // where Tracks end, the last element that is written again
};

TEST_P(StorageFaults, EveryCallOnceAndFromThereOn) {
    const long count = Count();
    std::printf("%ld calls\n", count);
    ASSERT_GT(count, 0);
    std::filesystem::remove(Path());
    const std::size_t descriptors = OpenDescriptors();
    Fault fault{m_Row.m_Level, m_Row.m_Operation};
    for (fault.m_Number = 1; fault.m_Number <= count; ++fault.m_Number) {
        for (fault.m_Error = ENOSPC; fault.m_Error != 0; fault.m_Error = fault.m_Error == ENOSPC ? EIO : 0) {
            for (const bool lasts : {false}) {
                fault.m_Lasts = lasts;
                fault.m_Effect = Effect::Fail;
                Try(fault);
                fault.m_Effect = Effect::Shorten;
                if (m_Row.m_Operation == Operation::Write) Try(fault);
                if (HasFatalFailure()) return;
            }
        }
        fault.m_Lasts = false;
        fault.m_Effect = Effect::Delay;
        Try(fault);
        if (HasFatalFailure()) return;
        ASSERT_EQ(OpenDescriptors(), descriptors);
    }
}

constexpr Row kRows[] = {
    {"Open", Level::Stdio, Operation::Open},    {"Write", Level::Stdio, Operation::Write},
    {"Seek", Level::Stdio, Operation::Seek},    {"Flush", Level::Stdio, Operation::Flush},
    {"Close", Level::Stdio, Operation::Close},  {"DiskWrite", Level::Disk, Operation::Write},
    {"DiskSeek", Level::Disk, Operation::Seek}, {"DiskClose", Level::Disk, Operation::Close},
};

INSTANTIATE_TEST_SUITE_P(All, StorageFaults,
                         testing::Combine(testing::Values(kMatroskaJob, kWebmJob), testing::ValuesIn(kRows)),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param).m_Name) + std::get<1>(row.param).m_Name;
                         });

} // namespace
