// SPDX-License-Identifier: MIT
// Every allocation of a session fails, once or from there on: no call takes in half of its data, a
// repeated call works as if nothing had happened, and nothing is left behind.
#include <map>
#include <new>

#include "HeapMeter.h"
#include "SameOctets.h"
#include "SmallSession.h"

namespace {

using HeapMeter::Failing;

// Only calls of the plug-in count as allocations of the session.
class Memory {
public:
    explicit Memory(long failing, Failing kind = Failing::Once) : m_Failing(failing), m_Kind(kind) {}

    // Returns false when memory ran out for that call, or for the muxer that it should create.
    bool Call(SmallSession& session, int number) {
        const bool failsAlready = m_Failing > 0 && m_Seen >= m_Failing && m_Kind == Failing::FromThereOn;
        const long left = failsAlready ? 1 : m_Failing - m_Seen;
        int result = 0;
        session.Prepare(number);
        HeapMeter::FailAfter(left > 0 ? left : 0, m_Kind);
        try {
            result = session.Make();
        } catch (const std::bad_alloc&) {
            ++m_Thrown;
            m_Seen += Counted();
            return false;
        }
        const bool failed = m_Failing > m_Seen;
        m_Seen += Counted();
        return number != 0 || result != 0 || !(failed && m_Seen >= m_Failing);
    }

    int m_Thrown = 0;
    long m_Seen = 0;

private:
    static long Counted() {
        const long count = HeapMeter::Allocations();
        HeapMeter::FailAfter(0);
        return count;
    }

    const long m_Failing; // from 1 on; 0 for none
    const Failing m_Kind;
};

const SmallJob kJobs[] = {
    kMatroskaJob,
    kWebmJob,
    {"Slices", MakeFourCC("MKV "), MakeFourCC("N264"), MakeFourCC("AC3 ")},
    {"Mpeg2", MakeFourCC("HMKV"), MakeFourCC("MP2V"), MakeFourCC("VBIS")},
    {"LosslessAlone", MakeFourCC("MKV "), MakeFourCC("H264"), 0},
    {"SlicesAlone", MakeFourCC("MKV "), MakeFourCC("N264"), 0},
    {"AudioAlone", MakeFourCC("MKA "), 0, MakeFourCC("AAC ")},
    {"WebmVideoAlone", MakeFourCC("WEBM"), MakeFourCC("VP8 "), 0},
    {"WebmAudioAlone", MakeFourCC("WEBM"), 0, MakeFourCC("VBIS")},
};

class OutOfMemory : public RobustnessTest, public testing::WithParamInterface<SmallJob> {
protected:
    std::filesystem::path Path() const { return m_Directory / "out"; }

    // Leaves a call out; -1 for none.
    Octets SessionWithout(int leftOut) {
        SmallSession session(m_Plugin, GetParam(), Path());
        for (int call = 0; call < session.Calls(); ++call) {
            if (call != leftOut) session.Call(call);
        }
        return ReadFile(Path());
    }

    // Allocations of an undisturbed session, made so that nothing is new to the process afterwards.
    long CountAllocations() {
        Memory memory(0);
        SmallSession session(m_Plugin, GetParam(), Path());
        for (int call = 0; call < session.Calls(); ++call) memory.Call(session, call);
        EXPECT_GT(memory.m_Seen, 40);
        return memory.m_Seen;
    }
};

TEST_P(OutOfMemory, ATriedAgainSessionIsTheSameFile) {
    const Octets expected = Undisturbed(GetParam());
    const long allocations = CountAllocations();
    int thrown = 0;
    for (long failing = 1; failing <= allocations; ++failing) {
        std::filesystem::remove(Path());
        const long live = HeapMeter::LiveBlocks();
        Memory memory(failing);
        {
            SmallSession session(m_Plugin, GetParam(), Path());
            for (int call = 0; call < session.Calls(); ++call) {
                ASSERT_TRUE(memory.Call(session, call) || memory.Call(session, call));
            }
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live) << "allocation " << failing;
        ASSERT_TRUE(SameOctets(ReadFile(Path()), expected)) << "allocation " << failing;
        thrown += memory.m_Thrown;
    }
    EXPECT_GT(thrown, 20);
}

// A host that does not repeat the call loses the data of this call alone.
TEST_P(OutOfMemory, AFailedCallHasNoEffect) {
    const long allocations = CountAllocations();
    const Octets whole = SessionWithout(-1);
    std::map<int, Octets> without;
    const std::size_t descriptors = OpenDescriptors();
    for (long failing = 1; failing <= allocations; ++failing) {
        std::filesystem::remove(Path());
        const long live = HeapMeter::LiveBlocks();
        int failed = -1;
        {
            Memory memory(failing);
            SmallSession session(m_Plugin, GetParam(), Path());
            for (int call = 0; call < session.Calls(); ++call) {
                if (!memory.Call(session, call)) failed = call;
            }
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live) << "allocation " << failing;
        ASSERT_EQ(OpenDescriptors(), descriptors) << "allocation " << failing;
        const Octets file = std::filesystem::exists(Path()) ? ReadFile(Path()) : Octets();
        if (failed == 0) {
            ASSERT_TRUE(file.empty()) << "allocation " << failing;
        } else if (failed < 0) {
            ASSERT_TRUE(SameOctets(file, whole)) << "allocation " << failing;
        } else {
            if (without.count(failed) == 0) without[failed] = SessionWithout(failed);
            ASSERT_TRUE(SameOctets(file, without[failed])) << "allocation " << failing << ", call " << failed;
        }
    }
}

// Memory runs out for good: the file is correct and finished, and closing frees everything.
TEST_P(OutOfMemory, MemoryThatStaysExhaustedLeavesACorrectFile) {
    const std::vector<Ebml::Block> expected = Ebml::File(SessionWithout(-1)).Blocks();
    const long allocations = CountAllocations();
    for (long failing = 1; failing <= allocations; ++failing) {
        std::filesystem::remove(Path());
        const long live = HeapMeter::LiveBlocks();
        {
            Memory memory(failing, Failing::FromThereOn);
            SmallSession session(m_Plugin, GetParam(), Path());
            for (int call = 0; call < session.Calls(); ++call) memory.Call(session, call);
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live) << "allocation " << failing;
        const Octets octets = std::filesystem::exists(Path()) ? ReadFile(Path()) : Octets();
        const Ebml::File file(octets, Ebml::Ending::CutOff);
        const bool begun = file.Has("Segment/Cluster[0]"); // else there is nothing to finish
        ASSERT_EQ(Ebml::Describe(begun ? Ebml::Check(file) : Ebml::CheckUnfinished(file)), "")
            << "allocation " << failing;
        const std::vector<Ebml::Block> blocks = file.Blocks();
        // The blocks are those of the undisturbed file, in its order, each once.
        std::size_t at = 0;
        for (const Ebml::Block& block : blocks) {
            const auto same = [&](const Ebml::Block& other) {
                return other.m_Track == block.m_Track && other.Time() == block.Time() && other.m_Frame == block.m_Frame;
            };
            while (at < expected.size() && !same(expected[at])) ++at;
            ASSERT_LT(at++, expected.size()) << "allocation " << failing << ", the block at " << block.Time();
        }
    }
}

// The files of a host do not touch each other: both are open when memory runs out for one of them, and a third comes
// after.
TEST_P(OutOfMemory, OtherFilesDoNotNotice) {
    const Octets expected = Undisturbed(GetParam());
    const long allocations = CountAllocations();
    for (long failing = 1; failing <= 2 * allocations; failing += 2) {
        for (const char* name : {"first", "second", "out"}) std::filesystem::remove(m_Directory / name);
        const long live = HeapMeter::LiveBlocks();
        {
            Memory memory(failing);
            SmallSession first(m_Plugin, GetParam(), m_Directory / "first");
            SmallSession second(m_Plugin, GetParam(), m_Directory / "second");
            bool firstHurt = false;
            bool secondHurt = false;
            for (int call = 0; call < first.Calls(); ++call) {
                firstHurt = !memory.Call(first, call) || firstHurt;
                secondHurt = !memory.Call(second, call) || secondHurt;
            }
            ASSERT_FALSE(firstHurt && secondHurt) << "allocation " << failing;
            for (const auto& [hurt, session] : {std::pair(firstHurt, &first), std::pair(secondHurt, &second)}) {
                ASSERT_TRUE(hurt || SameOctets(ReadFile(session->Path()), expected)) << "allocation " << failing;
            }
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live) << "allocation " << failing;
        ASSERT_TRUE(SameOctets(SessionWithout(-1), expected)) << "allocation " << failing;
    }
}

INSTANTIATE_TEST_SUITE_P(Jobs, OutOfMemory, testing::ValuesIn(kJobs), [](const auto& row) { return row.param.m_Name; });

} // namespace
