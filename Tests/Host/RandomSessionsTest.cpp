// SPDX-License-Identifier: MIT
// Random host sessions go through the plug-in and the reference model in step. Every return value, every frame buffer
// and every file has to be the same.
//
// QF_SESSIONS sets how many sessions, QF_FIRST_SEED the first seed; each session's seed is one more than the last.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>
#include <string>

#include "SessionComparison.h"

namespace {

constexpr std::uint64_t kDefaultSessions = 2000;

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

// Every turn that the model names; a run of the default length takes each of them.
const std::set<std::string> kTurns = {
    "A_AAC",
    "A_AC3",
    "A_DTS",
    "A_MPEG/L2",
    "A_MPEG/L3",
    "A_PCM/INT/LIT",
    "A_VORBIS",
    "H.264 set-up: early",
    "H.264 set-up: late, accepted",
    "H.264 set-up: late, refused",
    "H.264 set-up: no picture set",
    "H.264 set-up: no sequence set",
    "H.264 set-up: sequence set of 1 to 3 octets",
    "H264 taken as it stands",
    "MPEG frame is all sequence header",
    "MPEG frame without a sequence header",
    "MPEG sequence header within the frame",
    "MPEG set-up: early",
    "MPEG set-up: late, accepted",
    "MPEG set-up: late, refused",
    "MPEG set-up: no sequence header",
    "SetMuxParam: a term is 0",
    "SetMuxParam: negative divisor",
    "SetMuxParam: positive divisor",
    "SimpleBlock without the keyframe bit",
    "a million empty spans skipped",
    "a ninth octet is left out",
    "audio frame without a track",
    "audio set-up: early",
    "audio set-up: late, accepted",
    "audio set-up: late, refused",
    "audio set-up: nothing given or no track",
    "audio set-up: other codec",
    "block length of 1 octet",
    "block length of 2 octets",
    "block length of 3 octets",
    "block length of 4 octets",
    "clock before 2001",
    "codec I264 in WebM",
    "codec V_MPEG1",
    "codec V_MPEG2",
    "codec V_MPEG4/ISO/ASP",
    "codec V_MPEG4/ISO/AVC in Matroska",
    "codec V_MPEG4/ISO/AVC in WebM",
    "codec V_VP8 in Matroska",
    "codec V_VP8 in WebM",
    "codec havc",
    "codec other audio",
    "codec other video",
    "create: Matroska does not open",
    "create: WebM does not open",
    "create: disc image",
    "create: no track",
    "create: null argument",
    "cue: Matroska, not a keyframe by its flag",
    "cue: WebM, not a keyframe",
    "cue: audio only",
    "cue: block number 1",
    "cue: block number above 1",
    "cue: one is there already",
    "cue: second one in a cluster",
    "cue: video",
    "display aspect written",
    "drained by a video frame",
    "drained by an audio frame",
    "drained by the close",
    "dropped: before -32768",
    "duration: kept",
    "duration: of the blocks",
    "duration: of the last block",
    "empty frame",
    "empty spans skipped",
    "file stays empty",
    "format HMKV",
    "format MKA",
    "format MKV",
    "format WEBM",
    "format unknown",
    "header: Matroska, matroska",
    "header: Matroska, webm",
    "header: WebM, matroska",
    "header: WebM, webm",
    "lossless decided",
    "lossless: block",
    "lossless: none kept",
    "misrouted audio frame",
    "misrouted audio set-up data",
    "misrouted close of Matroska",
    "misrouted close of WebM",
    "misrouted from Matroska",
    "misrouted from WebM",
    "misrouted video frame",
    "misrouted video set-up data",
    "more than 5 blocks queued",
    "next span",
    "no DefaultDuration",
    "no cues",
    "no derivation: the tracks are written",
    "placeholder of 1024",
    "placeholder of 10240",
    "reference 0",
    "reference backward",
    "reference forward",
    "reference of an audio block",
    "relative time truncated",
    "split: count 0 or less",
    "split: count 1",
    "split: duration smaller than the count",
    "split: empty entry",
    "split: many",
    "split: past the end",
    "split: the product wraps",
    "stops before it starts",
    "time before the base",
    "two files open, different muxers",
    "two files open, same muxer",
    "unit: IDR slice",
    "unit: slice",
    "units: cut off before the type",
    "units: dropped by type",
    "units: garbage first",
    "units: no start code",
    "units: none kept",
    "units: only garbage",
    "units: start code after start code",
    "video frame without a track",
    "video set-up: no track",
    "video set-up: other codec",
    "written time wraps",
};

TEST(RandomSessions, PluginAndModelAgreeOnEveryOctet) {
    const std::uint64_t sessions = FromEnvironment("QF_SESSIONS", kDefaultSessions);
    const std::uint64_t firstSeed = FromEnvironment("QF_FIRST_SEED", 1);
    const Plugin plugin(QF_PLUGIN);
    const TempDirectory directory;
    SessionComparison comparison(plugin, directory);
    std::uint64_t ordinary = 0;
    int mismatches = 0;
    for (std::uint64_t seed = firstSeed; seed - firstSeed < sessions && mismatches < 5; ++seed) {
        const RandomSession session = MakeRandomSession(seed);
        ordinary += session.isOrdinary ? 1 : 0;
        const std::string mismatch = comparison.Play(session);
        if (mismatch.empty()) continue;
        ADD_FAILURE() << mismatch;
        ++mismatches;
    }

    std::cout << sessions << " sessions from seed " << firstSeed << ", " << ordinary
              << " of them ordinary: " << comparison.Calls() << " calls, " << comparison.Files() << " files, "
              << comparison.FileOctets() << " octets\n";
    std::set<std::string> taken;
    for (const auto& [turn, times] : comparison.Reached()) {
        std::cout << "  " << times << "\t" << turn << "\n";
        taken.insert(turn);
        EXPECT_EQ(kTurns.count(turn), 1U) << "not in the list: " << turn;
    }
    if (sessions < kDefaultSessions) return;
    for (const std::string& turn : kTurns) EXPECT_EQ(taken.count(turn), 1U) << "never taken: " << turn;
}

// The comparison is worth something only if it can fail.

TEST(RandomSessions, AFlippedOctetInAFileIsReportedWithItsPlace) {
    Octets model(100);
    for (std::size_t i = 0; i < model.size(); ++i) model[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(Difference(model, model), "");
    Octets plugin = model;
    plugin[3] = 0xFE;
    EXPECT_EQ(Difference(plugin, model), "first difference at 3 of 100 (plug-in) and 100 (model) octets\n"
                                         "  plug-in: 00 01 02 [FE] 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 \n"
                                         "  model:   00 01 02 [03] 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 ");
    plugin = model;
    plugin.resize(18);
    EXPECT_EQ(Difference(plugin, model),
              "first difference at 18 of 18 (plug-in) and 100 (model) octets\n"
              "  plug-in: 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 (ends at 18)\n"
              "  model:   02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 [12] 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F "
              "20 21 ");
}

TEST(RandomSessions, EveryForgedAnswerIsFoundOut) {
    const Plugin plugin(QF_PLUGIN);
    const TempDirectory directory;
    SessionComparison comparison(plugin, directory);
    // The first ordinary session: its frames have octets and its file is not empty.
    std::uint64_t seed = 1;
    while (!MakeRandomSession(seed).isOrdinary) ++seed;
    const RandomSession session = MakeRandomSession(seed);
    ASSERT_EQ(comparison.Play(session), "");
    const struct {
        Forgery forgery;
        const char* found;
    } rows[] = {{Forgery::Result, "): result: plug-in "},
                {Forgery::Buffer, "): frame buffer: first difference at "},
                {Forgery::File, " (CloseMediaFile): file: first difference at "},
                {Forgery::FileLength, " (CloseMediaFile): file: first difference at "}};
    for (const auto& row : rows) {
        const std::string report = comparison.Play(session, row.forgery);
        EXPECT_EQ(report.rfind("seed " + std::to_string(seed) + ", call ", 0), 0U) << report;
        EXPECT_NE(report.find(row.found), std::string::npos) << report;
    }
}

TEST(RandomSessions, ASeedGivesTheSameSessionAgain) {
    for (std::uint64_t seed = 1; seed <= 50; ++seed) {
        const RandomSession one = MakeRandomSession(seed);
        const RandomSession two = MakeRandomSession(seed);
        ASSERT_EQ(one.calls.size(), two.calls.size());
        EXPECT_EQ(one.clock, two.clock);
        EXPECT_EQ(one.randValues, two.randValues);
        for (std::size_t i = 0; i < one.calls.size(); ++i) {
            EXPECT_EQ(one.calls[i].kind, two.calls[i].kind);
            EXPECT_EQ(one.calls[i].data.octets, two.calls[i].data.octets);
            EXPECT_EQ(one.calls[i].frameSizes, two.calls[i].frameSizes);
            EXPECT_EQ(one.calls[i].frame.timestamp, two.calls[i].frame.timestamp);
            EXPECT_EQ(one.calls[i].frame.duration, two.calls[i].frame.duration);
            EXPECT_EQ(one.calls[i].frame.frameFlags, two.calls[i].frame.frameFlags);
            EXPECT_EQ(one.calls[i].hostOctets, two.calls[i].hostOctets);
        }
    }
}

} // namespace
