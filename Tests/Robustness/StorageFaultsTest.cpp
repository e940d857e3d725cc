// Every call that a small session makes to its storage fails once, or from there on, is cut short, or is late: the
// host's calls return what they always return, the close returns, nothing leaks, other files do not notice, and what
// had been written when the fault struck is still there and right.
#include <cerrno>

#include "FaultyFile.h"
#include "HeapMeter.h"
#include "SameOctets.h"
#include "SmallSession.h"

namespace {

constexpr int kFrames = 22; // five clusters, so that the file is flushed once

struct Row {
    const char* m_Name;
    Level m_Level;
    Operation m_Operation;
    // Whether all that was written before the fault outlives it. Else the front alone: late set-up data is written over
    // the Tracks, and when the way back to the file's end fails, what follows is written over the clusters.
    bool m_KeepsAll;

    friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.m_Name; }
};

class StorageFaults : public RobustnessTest, public testing::WithParamInterface<std::tuple<SmallJob, Row>> {
protected:
    StorageFaults() : m_Job(std::get<0>(GetParam())), m_Row(std::get<1>(GetParam())) {
        m_Expected = Undisturbed(m_Job, kFrames);
        const Ebml::File file(m_Expected);
        m_SegmentPayload = file.At("Segment").PayloadOffset();
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
        const auto place = static_cast<std::size_t>(faulty.Place());
        const auto lowest = std::min(static_cast<std::size_t>(faulty.Lowest()), m_Row.m_KeepsAll ? SIZE_MAX : m_Front);
        // Up to the fault the file parses. How long the Segment came to be is no matter of what stands before.
        Octets head(disk.begin(), disk.begin() + static_cast<std::ptrdiff_t>(std::min(lowest, disk.size())));
        if (head.size() > m_SegmentPayload) {
            const Octets unknown = Hex("01 FF FF FF FF FF FF FF");
            std::copy(unknown.begin(), unknown.end(), head.begin() + static_cast<std::ptrdiff_t>(m_SegmentPayload) - 8);
        }
        ASSERT_EQ(Ebml::Describe(Ebml::File(head, Ebml::Ending::CutOff).Problems()), "");
        // Clusters and what follows them stay as they were written: all of them when the fault strikes what is written
        // over the front, those before it when it strikes themselves.
        const bool appending = place >= m_Front && fault.m_Operation == Operation::Write;
        const std::size_t kept = !m_Row.m_KeepsAll ? lowest
                                 : appending       ? place
                                                   : static_cast<std::size_t>(faulty.End());
        ASSERT_GE(disk.size(), kept);
        for (std::size_t i = m_Front; i < kept; ++i) {
            ASSERT_EQ(disk[i], m_Expected[i]) << "octet " << i << " of " << kept << ", the fault is at " << place;
        }
    }

    std::filesystem::path Path() const { return m_Directory / "out"; }

    std::filesystem::path Bystander() const { return m_Directory / "bystander"; }

    const SmallJob m_Job;
    const Row m_Row;
    Octets m_Expected;
    std::vector<int> m_Results;
    std::size_t m_SegmentPayload = 0;
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
            for (const bool lasts : {false, true}) {
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
    {"Open", Level::Stdio, Operation::Open, true},    {"Write", Level::Stdio, Operation::Write, true},
    {"Seek", Level::Stdio, Operation::Seek, true},    {"Flush", Level::Stdio, Operation::Flush, true},
    {"Close", Level::Stdio, Operation::Close, true},  {"DiskWrite", Level::Disk, Operation::Write, true},
    {"DiskSeek", Level::Disk, Operation::Seek, true}, {"DiskClose", Level::Disk, Operation::Close, true},
};

INSTANTIATE_TEST_SUITE_P(All, StorageFaults,
                         testing::Combine(testing::Values(kMatroskaJob, kWebmJob), testing::ValuesIn(kRows)),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param).m_Name) + std::get<1>(row.param).m_Name;
                         });

} // namespace
