// SPDX-License-Identifier: MIT
// Blocks into clusters: order, spans, cue points.
#include "HostTest.h"

#include <chrono>

namespace {

using Interleaving = HostTest;

// One frame of a session: v and V are video's delta and key frames, a is audio.
struct TimedFrame {
    char m_Kind;
    std::int64_t m_Milliseconds;
};

Ebml::File Mux(const Plugin& plugin, const EncodeParam& job, const std::vector<TimedFrame>& frames,
               Ebml::Times times = Ebml::Times::InOrder) {
    HostSession session(plugin, job);
    session.m_Times = times;
    for (const TimedFrame& frame : frames) {
        const std::int64_t at = frame.m_Milliseconds * kMillisecond;
        if (frame.m_Kind == 'a') {
            session.Audio(Hex("AA"), at, 10000);
        } else {
            session.Video(Hex("BB"), at, 10000, frame.m_Kind == 'V' ? kKey : kDelta);
        }
    }
    return session.Finish();
}

// "1000: V1001 a1500": each cluster with its blocks, in the order of the file.
std::string Layout(const Ebml::File& file) {
    std::string text;
    std::size_t cluster = SIZE_MAX;
    for (const Ebml::Block& block : file.Blocks()) {
        if (block.m_Cluster != cluster) text += (text.empty() ? "" : " | ") + std::to_string(block.m_ClusterTime) + ":";
        cluster = block.m_Cluster;
        text += std::string(" ") +
                (block.m_Track == 2              ? "a"
                 : block.m_Reference.has_value() ? "v"
                                                 : "V") +
                std::to_string(block.m_RelativeTime);
    }
    return text;
}

// "40@0#2": a cue point at 40 ms in the first cluster, with block number 2.
std::string CueText(const Ebml::File& file) {
    std::string text;
    const std::vector<const Ebml::Element*> clusters = file.Children("Segment", "Cluster");
    for (const Ebml::Cue& cue : file.Cues()) {
        if (!text.empty()) text += " ";
        text += std::to_string(cue.m_Time) + "@";
        for (std::size_t i = 0; i < clusters.size(); ++i) {
            const std::size_t position = clusters[i]->m_Offset - file.At("Segment").PayloadOffset();
            if (position == cue.m_ClusterPosition) text += std::to_string(i);
        }
        if (cue.m_BlockNumber.has_value()) text += "#" + std::to_string(*cue.m_BlockNumber);
    }
    return text;
}

TEST_F(Interleaving, SpansAndCues) {
    const EncodeParam audio = MakeAudioJob(kMkv, MakeFourCC("MP3 "));
    const EncodeParam video = MakeVideoJob(kMkv, MakeFourCC("Xvid"));
    const EncodeParam both = MakeJob(kMkv, MakeFourCC("Xvid"), MakeFourCC("MP3 "));
    const Ebml::Times lagging = Ebml::Times::Lagging;
    const Ebml::Times inOrder = Ebml::Times::InOrder;
    const struct {
        const char* m_What;
        const EncodeParam& m_Job;
        std::vector<TimedFrame> m_Frames;
        Ebml::Times m_Times;
        const char* m_Layout;
        const char* m_Cues;
    } rows[] = {
        {"a block on the edge stays",
         audio,
         {{'a', 0}, {'a', 500}, {'a', 1000}, {'a', 1001}},
         inOrder,
         "0: a0 a500 a1000 | 1000: a1",
         "0@0 1001@1"},
        {"empty spans are skipped",
         audio,
         {{'a', 0}, {'a', 200}, {'a', 3500}},
         inOrder,
         "0: a0 a200 | 3000: a500",
         "0@0 3500@1"},
        {"the edge after empty spans",
         audio,
         {{'a', 0}, {'a', 3000}, {'a', 3001}},
         inOrder,
         "0: a0 | 2000: a1000 | 3000: a1",
         "0@0 3000@1 3001@2"},
        {"the first block is time zero", audio, {{'a', 5000}, {'a', 5100}}, inOrder, "0: a0 a100", "0@0"},
        {"whatever its track", both, {{'a', 5000}, {'V', 5100}}, inOrder, "0: a0 V100", "100@0#1"},
        // Rounding cuts toward zero: these are -4999, -3999 and 0 ms.
        {"before zero too",
         audio,
         {{'a', -5000}, {'a', -4000}, {'a', 0}},
         inOrder,
         "0: a0 a1000 | 4000: a999",
         "0@0 4999@1"},
        {"video first where times are equal",
         both,
         {{'a', 0}, {'a', 40}, {'V', 0}, {'v', 40}},
         inOrder,
         "0: V0 a0 v40 a40",
         "0@0"},
        {"two key frames in a cluster, one cue",
         video,
         {{'V', 0}, {'V', 40}, {'V', 1040}, {'V', 1080}},
         inOrder,
         "0: V0 V40 | 1000: V40 V80",
         "0@0 1040@1"},
        {"two audio blocks before the key frame",
         both,
         {{'a', 0}, {'a', 20}, {'V', 40}},
         inOrder,
         "0: a0 a20 V40",
         "40@0#1"},
        {"delta frames before the key frame are counted",
         both,
         {{'V', 0}, {'a', 0}, {'v', 1040}, {'a', 1050}, {'v', 1080}, {'V', 1120}},
         inOrder,
         "0: V0 a0 | 1000: v40 a50 v80 V120",
         "0@0 1120@1#3"},
        {"a cluster without a key frame has no cue",
         video,
         {{'V', 0}, {'v', 1040}, {'V', 2040}},
         inOrder,
         "0: V0 | 1000: v40 | 2000: V40",
         "0@0 2040@2"},
        {"audio is no cue track where there is video",
         both,
         {{'V', 0}, {'a', 0}, {'a', 1500}},
         inOrder,
         "0: V0 a0 | 1000: a500",
         "0@0"},
        {"dropped below -32768",
         audio,
         {{'a', 100000}, {'a', 67232}, {'a', 67231}, {'a', 100010}},
         lagging,
         "0: a0 a-32768 a10",
         "0@0"},
        {"a dropped block is not counted",
         video,
         {{'V', 100000}, {'V', 0}, {'v', 102000}, {'V', 102001}},
         lagging,
         "0: V0 | 1000: v1000 | 2000: V1",
         "0@0 2001@2"},
        {"a lagging block goes into the cluster that is open",
         video,
         {{'V', 0}, {'V', 1500}, {'v', 400}},
         lagging,
         "0: V0 | 1000: V500 v-600",
         "0@0 1500@1"},
        // The second rule of cue points: in the same cluster, but more than 1000 ms after the last.
        {"a lagging key frame and one 1200 ms later",
         video,
         {{'V', 0}, {'v', 1500}, {'V', 400}, {'V', 1600}},
         lagging,
         "0: V0 | 1000: v500 V-600 V600",
         "0@0 400@1#2 1600@1#3"},
        {"a lagging key frame and one 1000 ms later",
         video,
         {{'V', 0}, {'v', 1500}, {'V', 400}, {'V', 1400}},
         lagging,
         "0: V0 | 1000: v500 V-600 V400",
         "0@0 400@1#2"},
        // The first run is started by the video block at 3000; the last audio block waits for the close, where it is
        // the earliest of all that wait, though its cluster is long written.
        {"an audio stream that comes late",
         both,
         {{'V', 0},
          {'v', 500},
          {'v', 1000},
          {'v', 1500},
          {'v', 2500},
          {'a', 0},
          {'v', 3000},
          {'v', 3500},
          {'v', 3600},
          {'v', 3700},
          {'v', 3800},
          {'a', 20}},
         lagging,
         "0: V0 a0 v500 v1000 | 1000: v500 | 2000: v500 v1000 a-1980 | 3000: v500 v600 v700 v800",
         "0@0"},
    };
    for (const auto& row : rows) {
        const Ebml::File file = Mux(m_Plugin, row.m_Job, row.m_Frames, row.m_Times);
        EXPECT_EQ(Layout(file), row.m_Layout) << row.m_What;
        EXPECT_EQ(CueText(file), row.m_Cues) << row.m_What;
    }
}

TEST_F(Interleaving, ARepeatedTimeIsAReferenceOfZeroAndAKeyFrameForCues) {
    // The later frame of the second cluster refers to its own time, so for cue points it is a key frame.
    const Ebml::File file =
        Mux(m_Plugin, MakeVideoJob(kMkv, MakeFourCC("Xvid")), {{'V', 0}, {'v', 1040}, {'v', 1040}, {'v', 1080}});
    ASSERT_EQ(file.Blocks().size(), 4U);
    EXPECT_EQ(file.Blocks()[2].m_Reference, 0);
    EXPECT_EQ(CueText(file), "0@0 1040@1#2");
}

TEST_F(Interleaving, RelativeTimesKeep16Bits) {
    // 39000 ms behind its cluster: -39000 is 26536 in 16 bits.
    const Ebml::File file = Mux(m_Plugin, MakeAudioJob(kMkv, MakeFourCC("MP3 ")), {{'a', 0}, {'a', 41000}, {'a', 1000}},
                                Ebml::Times::Lagging);
    EXPECT_EQ(Layout(file), "0: a0 | 40000: a1000 a26536");
}

TEST_F(Interleaving, EachRunDrainsBothQueues) {
    // Ten blocks of audio wait; video's fifth starts a run that drains all of them in time order.
    HostSession session(m_Plugin, MakeJob(kMkv, MakeFourCC("Xvid"), MakeFourCC("MP3 ")));
    for (int i = 0; i < 4; ++i) session.Video(Hex("BB"), i * 40 * kMillisecond, 400000);
    session.Audio(Hex("AA"), 0, 200000);
    for (int i = 1; i < 4; ++i) session.Audio(Hex("AA"), i * 30 * kMillisecond, 200000);
    session.Video(Hex("BB"), 160 * kMillisecond, 400000);
    // From here a new run: older audio comes after what is in the cluster.
    session.Audio(Hex("AA"), 100 * kMillisecond, 200000);
    session.Video(Hex("BB"), 90 * kMillisecond, 400000);
    session.m_Times = Ebml::Times::Lagging;
    EXPECT_EQ(Layout(session.Finish()), "0: V0 a0 a30 V40 a60 V80 a90 V120 V160 V90 a100");
}

TEST_F(Interleaving, LongFilesHaveAWholeIndex) {
    // Ten minutes, audio of 20 ms and video of 40 ms, a key frame each 2 s; Check compares every entry.
    HostSession session(m_Plugin, MakeJob(kMkv, MakeFourCC("Xvid"), MakeFourCC("MP3 ")));
    for (int i = 0; i < 15000; ++i) {
        session.Video(Octets(20, 1), i * 40 * kMillisecond, 400000, i % 50 == 0 ? kKey : kDelta);
        session.Audio(Octets(4, 2), i * 40 * kMillisecond, 200000);
        session.Audio(Octets(4, 3), (i * 40 + 20) * kMillisecond, 200000);
    }
    session.m_Times = Ebml::Times::Lagging; // what is queued lags by a few frames at each run
    const Ebml::File file = session.Finish();
    EXPECT_EQ(file.Children("Segment", "Cluster").size(), 600U);
    EXPECT_EQ(file.Cues().size(), 300U);
    EXPECT_EQ(file.Blocks().size(), 45000U);
}

TEST_F(Interleaving, TimeStampsFarAwayCostNothing) {
    constexpr std::int64_t kTenYears = 3652 * 86400 * kSecond; // 3652 days
    for (const FourCC format : {kMkv, MakeFourCC("WEBM")}) {
        const auto before = std::chrono::steady_clock::now();
        HostSession session(m_Plugin, MakeAudioJob(format, MakeFourCC("MP3 ")));
        session.Audio(Hex("01"), 0, 10000);
        session.Audio(Hex("02"), kTenYears, 10000);
        session.Audio(Hex("03"), kTenYears * 1000, 10000);
        const Ebml::File file = session.Finish();
        const std::vector<Ebml::Block> blocks = file.Blocks();
        ASSERT_EQ(blocks.size(), 3U);
        EXPECT_EQ(blocks[1].Time(), kTenYears / kMillisecond);
        EXPECT_EQ(blocks[1].m_RelativeTime, 1000) << "on a span's edge, so in the span before";
        EXPECT_EQ(blocks[2].Time(), kTenYears / kMillisecond * 1000);
        // One by one, at ten million spans a second, this would need nearly nine hours.
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    }
}

} // namespace
