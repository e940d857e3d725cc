// SPDX-License-Identifier: MIT
// The ledger must notice missing, additional, reordered and changed blocks.
#include "PayloadLedger.h"

#include <gtest/gtest.h>

#include "HostSession.h"

namespace {

struct LedgerFrame {
    HostCall::Kind m_Kind;
    Octets m_Octets;
};

constexpr HostCall::Kind kVideoCall = HostCall::Kind::WriteVideoPacket;
constexpr HostCall::Kind kAudioCall = HostCall::Kind::WriteAudioPacket;

const std::vector<LedgerFrame> kWritten = {{kVideoCall, Hex("01")},       {kAudioCall, Hex("02 03")},
                                           {kVideoCall, Hex("04 05 06")}, {kAudioCall, Hex("07")},
                                           {kVideoCall, Hex("08")},       {kVideoCall, Hex("09")}};

// Compares the ledger of a host with these frames, 100 ms apart, with the file of a host that wrote kWritten.
std::string Judge(const std::vector<LedgerFrame>& frames) {
    static const Plugin plugin(QF_PLUGIN);
    const EncodeParam job = MakeJob(MakeFourCC("MKV "), MakeFourCC("Xvid"), MakeFourCC("AC3 "));
    HostSession session(plugin, job);
    std::int64_t timestamp = 0;
    for (const LedgerFrame& frame : kWritten) {
        if (frame.m_Kind == kVideoCall) session.Video(frame.m_Octets, timestamp, 1);
        if (frame.m_Kind == kAudioCall) session.Audio(frame.m_Octets, timestamp, 1);
        timestamp += 100 * kMillisecond;
    }

    PayloadLedger ledger;
    ledger.Begin();
    Model::EncodeParam told;
    told.videoParam.fourCC = job.videoParam.fourCC;
    HostCall create;
    create.path = ReferenceModel::Path::Opens;
    create.encodeParam = std::make_shared<const Model::EncodeParam>(told);
    ledger.Created(create, true);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        HostCall call;
        call.kind = frames[i].m_Kind;
        call.frame.timestamp = static_cast<std::int64_t>(i) * 100 * kMillisecond;
        call.data.octets = frames[i].m_Octets;
        call.data.length = static_cast<std::int32_t>(frames[i].m_Octets.size());
        EXPECT_EQ(ledger.Wrote(call, call.data.length), "");
    }
    const Octets file = session.Close();
    return ledger.Closed(0, &file);
}

TEST(PayloadLedger, AcceptsTheWrittenFrames) { EXPECT_EQ(Judge(kWritten), ""); }

TEST(PayloadLedger, MissesABlock) {
    std::vector<LedgerFrame> frames = kWritten;
    frames.push_back({kAudioCall, Hex("0A")});
    EXPECT_EQ(Judge(frames), "ledger: track 2 lacks a block");
}

TEST(PayloadLedger, FindsABlockTooMany) {
    std::vector<LedgerFrame> frames = kWritten;
    frames.pop_back();
    EXPECT_EQ(Judge(frames), "ledger: track 1 has a block too many");
}

TEST(PayloadLedger, FindsBlocksInAnotherOrder) {
    std::vector<LedgerFrame> frames = kWritten;
    std::swap(frames[4], frames[5]);
    EXPECT_NE(Judge(frames).find("ledger: track 1, block 2: first difference at 0"), std::string::npos);
}

TEST(PayloadLedger, FindsAnotherOctet) {
    std::vector<LedgerFrame> frames = kWritten;
    frames[1].m_Octets[1] = 0xFF;
    EXPECT_NE(Judge(frames).find("ledger: track 2, block 0: first difference at 1"), std::string::npos);
}

TEST(PayloadLedger, CountsTheOctetsThatACallTook) {
    PayloadLedger ledger;
    HostCall call;
    call.kind = kVideoCall;
    EXPECT_EQ(ledger.Wrote(call, 0), "");
    EXPECT_EQ(ledger.Wrote(call, 3), "ledger: took 3 octets instead of 0");
}

} // namespace
