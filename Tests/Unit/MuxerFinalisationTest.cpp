// SPDX-License-Identifier: MIT
// The last steps of a file, called one by one: the values written back into its front.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "EbmlWalker.h"
#include "MKVMuxer.h"
#include "SameOctets.h"
#include "TempDirectory.h"

namespace {

// The octets at the start of the Segment's payload, of a file whose front has that much room.
Octets FrontWithRoom(std::int64_t room) {
    const TempDirectory directory;
    EncodeParam job{};
    job.disableVideo = job.disableAudio = 1;
    MKVMuxer muxer;
    EXPECT_EQ(muxer.CreateMediaFile((directory / "a").wstring().c_str(), &job, nullptr), 1U);
    muxer.WriteBeginInfo();
    const auto start = static_cast<std::size_t>(muxer.m_SegmentDataPos);
    muxer.m_ReservedSize = room;
    EXPECT_EQ(muxer.WriteEndInfo(), 1);
    muxer.CloseMediaFile();
    const Octets file = ReadFile(directory / "a");
    return Octets(file.begin() + static_cast<std::ptrdiff_t>(start),
                  file.begin() + static_cast<std::ptrdiff_t>(start) + 48);
}

// A seek head of 5 octets, of 20 with the entry for Info (at 4,099) and of 35 with that for Tracks too, and a filler
// over the rest of the room. Behind that lies what was there before: zeros.
TEST(MuxerFinalisation, TheSeekHeadKeepsWhatTheRoomHoldsAndAFillerTakesTheRest) {
    const char* const info = "4DBB 8C 53AB 84 1549A966 53AC 82 1003 ";
    const struct {
        std::int64_t m_Room;
        std::string m_Front;
    } rows[] = {
        {3, "114D9B74 80 00"},         // -2 are left: no filler
        {4, "114D9B74 80 EC 00"},      // -1: a filler without a length, deliberately
        {5, "114D9B74 80 EC 00"},      // 0, likewise
        {6, "114D9B74 80 EC 00"},      // 1, likewise
        {7, "114D9B74 80 EC 80 00"},   // 2: the smallest that is one
        {8, "114D9B74 80 EC 81 0000"}, // 3
        {21, "114D9B74 80 EC 8E"},     // an entry for Info would leave no room for a filler
        {22, std::string("114D9B74 8F ") + info + "EC 80 00"},
    };
    for (const auto& row : rows) {
        Octets expected = Hex(row.m_Front.c_str());
        Octets actual = FrontWithRoom(row.m_Room);
        actual.resize(expected.size());
        EXPECT_TRUE(SameOctets(actual, expected)) << row.m_Room;
    }
}

// The filler's length field, at the edges of its widths. The seek head takes 35 octets.
TEST(MuxerFinalisation, TheFillersLengthTakesTheFewestOctetsThatFit) {
    const struct {
        std::int64_t m_Rest;
        const char* m_Filler;
    } rows[] = {
        {2, "EC 80 00"},       {3, "EC 81 00"},         {126, "EC FC 00"},
        {127, "EC FC 00"}, // one octet short of the room, deliberately: 124 octets need but one for their length
        {128, "EC FD 00"},     {129, "EC FE 00"},       {130, "EC 407F 00"},
        {16382, "EC 7FFB 00"}, {16383, "EC 7FFB 00"},   {16385, "EC 7FFD 00"},
        {16386, "EC 7FFE 00"}, {16387, "EC 203FFF 00"},
    };
    for (const auto& row : rows) {
        Octets expected = Hex(row.m_Filler);
        Octets actual = FrontWithRoom(35 + row.m_Rest);
        actual.erase(actual.begin(), actual.begin() + 35);
        actual.resize(expected.size());
        EXPECT_TRUE(SameOctets(actual, expected)) << row.m_Rest;
    }
}

// Cue points are for the first video entry, whatever number it was given.
TEST(MuxerFinalisation, TheCueTrackMayHaveANumberOfAnyWidth) {
    const TempDirectory directory;
    EncodeParam job{};
    job.disableAudio = 1;
    MKVMuxer muxer;
    ASSERT_EQ(muxer.CreateMediaFile((directory / "a").wstring().c_str(), &job, nullptr), 1U);
    muxer.m_pVideoStream->m_pTrackEntry->m_TrackNumber.Set((1ULL << 40) + 1);
    Octets octets = Hex("01");
    MEDIA_FRAME frame{};
    frame.videoData = octets.data();
    frame.videoSize = 1;
    frame.frameFlags = 1;
    muxer.WriteVideoPacket(&frame);
    muxer.WritePacket();
    ASSERT_EQ(muxer.m_Cues.m_CuePoints.size(), 1U);
    EXPECT_EQ(muxer.m_Cues.m_CuePoints[0].m_CueTrackPositions[0].m_CueTrack.m_Value, (1ULL << 40) + 1);
}

// The steps of writing, each by itself.
TEST(MuxerFinalisation, EachStepReachesTheFile) {
    const TempDirectory directory;
    EncodeParam job{};
    job.videoParam.fourCC = MakeFourCC("VP8 ");
    job.videoParam.frameRate = 25.0;
    job.audioParam.fourCC = MakeFourCC("MP3 ");
    MKVMuxer muxer;
    ASSERT_EQ(muxer.CreateMediaFile((directory / "a").wstring().c_str(), &job, nullptr), 1U);
    Octets octets(20000, 0x11);
    MEDIA_FRAME frame{};
    frame.videoData = octets.data();
    frame.videoSize = 20000;
    frame.frameFlags = 1;
    for (int i = 0; i < 4; ++i) {
        frame.timestamp = i * 20000000;
        muxer.WriteVideoPacket(&frame);
    }
    const std::int32_t written = muxer.WritePacket();
    EXPECT_GT(written, 60000) << "three clusters";
    EXPECT_EQ(written, muxer.m_pFile->GetPos());
    EXPECT_EQ(muxer.WritePacket(), 0) << "nothing is queued";

    frame.audioData = octets.data();
    frame.audioSize = 100;
    frame.duration = 12340000;
    muxer.WriteAudioPacket(&frame, nullptr);
    EXPECT_EQ(muxer.WriteDuration(), 1);
    muxer.m_pFile->Flush();
    const Ebml::File file(ReadFile(directory / "a"), Ebml::Ending::CutOff);
    EXPECT_EQ(file.Float("Segment/Info/Duration"), 1234.0F);
}

} // namespace
