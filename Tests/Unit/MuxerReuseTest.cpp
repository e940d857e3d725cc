// SPDX-License-Identifier: MIT
// A muxer that writes one file after another. Hosts never do this, because the exports make a muxer for each
// file. State of one file must not reach the next.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ClassNames.h"
#include "EbmlWalker.h"
#include "FakeEnvironment.h"
#include "Muxers.h"
#include "TempDirectory.h"

namespace {

constexpr std::int64_t kSecond = 10000000; // host time

EncodeParam Job(bool hasVideo, bool hasAudio) {
    EncodeParam param{};
    param.videoParam.fourCC = MakeFourCC("VP8 ");
    param.videoParam.frameRate = 25.0;
    param.audioParam.fourCC = MakeFourCC("AAC ");
    param.disableVideo = hasVideo ? 0 : 1;
    param.disableAudio = hasAudio ? 0 : 1;
    return param;
}

template <class Muxer>
class MuxerReuse : public testing::Test {
protected:
    void Open(const EncodeParam& job) {
        m_Name = "file" + std::to_string(m_Files++);
        ASSERT_EQ(Create(m_Muxer, (m_Directory / m_Name).wstring(), job), 1U);
    }
    // Frames that are told from all others by their number.
    void Video(std::int64_t time) {
        m_Octets = {0x56, ++m_Frame};
        MEDIA_FRAME frame{};
        frame.videoData = m_Octets.data();
        frame.videoSize = 2;
        frame.frameFlags = 1;
        frame.timestamp = time;
        frame.duration = 400000;
        EXPECT_EQ(m_Muxer.WriteVideoPacket(&frame), 2);
    }
    void Audio(std::int64_t time) {
        m_Octets = {0x41, ++m_Frame};
        MEDIA_FRAME frame{};
        frame.audioData = m_Octets.data();
        frame.audioSize = 2;
        frame.timestamp = time;
        frame.duration = 400000;
        EXPECT_EQ(m_Muxer.WriteAudioPacket(&frame, nullptr), 2);
    }
    void SetUpAudio() {
        const unsigned char setup[] = {0x12, 0x10};
        m_Muxer.WriteVosData(setup, 2);
    }
    Ebml::File Close() {
        m_Muxer.CloseMediaFile();
        return Ebml::File(ReadFile(m_Directory / m_Name));
    }
    // Blocks of the frames since then: the cluster being assembled is the muxer's and not the file's, so that the last
    // one of a file is the next one's first too.
    std::vector<Ebml::Block> BlocksSince(const Ebml::File& file, unsigned frame) const {
        std::vector<Ebml::Block> blocks;
        for (const Ebml::Block& block : file.Blocks()) {
            if (block.m_Frame[1] > frame) blocks.push_back(block);
        }
        return blocks;
    }

    TempDirectory m_Directory;
    Muxer m_Muxer;
    std::string m_Name;
    int m_Files = 0;
    Octets m_Octets;
    unsigned char m_Frame = 0;
};
TYPED_TEST_SUITE(MuxerReuse, Muxers, ClassNames);

TYPED_TEST(MuxerReuse, ConstructionSetsFirstValues) {
    const TypeParam muxer;
    EXPECT_EQ(muxer.m_pFile, nullptr);
    EXPECT_TRUE(muxer.m_Streams.empty());
    EXPECT_EQ(muxer.m_pVideoStream, nullptr);
    EXPECT_EQ(muxer.m_pAudioStream, nullptr);
    ExpectFirstValues(muxer);
    EXPECT_EQ(muxer.m_VideoStarted, 0U);
    EXPECT_EQ(muxer.m_AudioStarted, 0U);
    EXPECT_EQ(muxer.m_AudioDuration, 0);
    EXPECT_EQ(muxer.m_VideoParam.fourCC, 0U);
}

TEST(MKVMuxer, ConstructionSetsFirstValues) {
    const MKVMuxer muxer;
    EXPECT_EQ(muxer.m_FirstVideoFrame, 1U);
    EXPECT_EQ(muxer.m_LosslessH264, 0U);
    EXPECT_EQ(muxer.m_IsH264, 0U);
    EXPECT_EQ(muxer.m_NalBufferUsed, 0);
    EXPECT_EQ(muxer.m_NalBufferSize, 0);
    EXPECT_EQ(muxer.m_pNalBuffer, nullptr);
}

TYPED_TEST(MuxerReuse, NoFrameIsTakenAsNone) {
    TypeParam& muxer = this->m_Muxer;
    for (const bool isOpen : {false, true}) {
        if (isOpen) this->Open(Job(true, true));
        EXPECT_EQ(muxer.WriteVideoPacket(nullptr), 0);
        EXPECT_EQ(muxer.WriteN264Packet(nullptr), 0);
        EXPECT_EQ(muxer.WriteAudioPacket(nullptr, nullptr), 0);
    }
    EXPECT_EQ(muxer.m_VideoStarted, 0U);
    EXPECT_EQ(muxer.m_AudioDuration, 0);
    MEDIA_FRAME frame{};
    this->Open(Job(false, false));
    EXPECT_EQ(muxer.WriteVideoPacket(&frame), 0);
    EXPECT_EQ(muxer.WriteN264Packet(&frame), 0);
}

TEST(MKVMuxer, NoFrameIsRewrittenAsNone) {
    const TempDirectory directory;
    MKVMuxer muxer;
    MEDIA_FRAME frame{};
    EXPECT_EQ(muxer.WriteLossless264Packet(nullptr), 0);
    EXPECT_EQ(muxer.WriteLossless264Packet(&frame), 0);
    ASSERT_EQ(Create(muxer, (directory / "a").wstring(), Job(true, false)), 1U);
    EXPECT_EQ(muxer.WriteLossless264Packet(nullptr), 0);
    EXPECT_EQ(muxer.WriteLossless264Packet(&frame), 0) << "no octets";
}

TYPED_TEST(MuxerReuse, CreationResetsWhatBelongsToOneFile) {
    TypeParam& muxer = this->m_Muxer;
    this->Open(Job(true, true));
    muxer.CloseMediaFile();
    muxer.m_HeaderWritten = muxer.m_VideoStarted = muxer.m_AudioStarted = muxer.m_TracksWritten = 7;
    muxer.m_NoBlockYet = 0;
    muxer.m_FirstBlockTime = muxer.m_LastWriteTime = muxer.m_CueTrack = muxer.m_CueBlockNumber = 7;
    muxer.m_LastCueClusterPos = muxer.m_LastCueTime = 7;
    muxer.m_SegmentPos = muxer.m_SegmentDataPos = muxer.m_InfoPos = muxer.m_TracksPos = muxer.m_ReservedSize = 7;
    muxer.m_AudioDuration = 7;

    this->Open(Job(true, true));
    ExpectFirstValues(muxer);
    EXPECT_EQ(muxer.m_VideoStarted, 0U);
    EXPECT_EQ(muxer.m_AudioStarted, 0U);
    EXPECT_EQ(muxer.m_AudioDuration, 7) << "the muxer's, deliberately";
    EXPECT_EQ(muxer.m_Streams.size(), 2U);
    EXPECT_EQ(muxer.m_pVideoStream, muxer.m_Streams.front().get());
    EXPECT_EQ(muxer.m_pAudioStream, muxer.m_Streams.back().get());

    this->Open(Job(false, true));
    EXPECT_EQ(muxer.m_pVideoStream, nullptr);
    EXPECT_EQ(muxer.m_VideoStarted, 1U) << "there is none to wait for";
    EXPECT_EQ(muxer.m_AudioStarted, 0U);
    this->Open(Job(true, false));
    EXPECT_EQ(muxer.m_pAudioStream, nullptr);
    EXPECT_EQ(muxer.m_VideoStarted, 0U);
    EXPECT_EQ(muxer.m_AudioStarted, 1U);
}

TYPED_TEST(MuxerReuse, EachFileHasAHeaderAndItsOwnTracks) {
    for (const auto& [hasVideo, hasAudio] : {std::pair{true, true}, {true, false}, {false, true}, {true, true}}) {
        this->Open(Job(hasVideo, hasAudio));
        for (int i = 0; i < 7; ++i) {
            if (hasVideo) this->Video(i * 400000);
            if (hasAudio) this->Audio(i * 400000);
        }
        const Ebml::File file = this->Close();
        std::vector<std::uint64_t> tracks;
        for (const Ebml::Element* entry : file.Children("Segment/Tracks", "TrackEntry")) {
            tracks.push_back(file.Unsigned(entry->m_Path + "/TrackNumber"));
        }
        EXPECT_EQ(file.Text("EBML/DocType"), "webm");
        EXPECT_EQ(tracks, (hasVideo && hasAudio ? std::vector<std::uint64_t>{1, 2}
                           : hasVideo           ? std::vector<std::uint64_t>{1}
                                                : std::vector<std::uint64_t>{2}));
    }
}

// Blocks are drained once both kinds have come: as long as one is missing, set-up data replaces the placeholder.
TYPED_TEST(MuxerReuse, EachFileWaitsForBothKindsOfItsOwn) {
    for (const bool videoFirst : {true, false}) {
        this->Open(Job(true, true));
        for (int i = 0; i < 7; ++i) {
            this->Video(i * 400000);
            this->Audio(i * 400000);
        }
        this->Close();
        this->Open(Job(true, true));
        for (int i = 0; i < 7; ++i) {
            if (videoFirst) {
                this->Video(i * 400000);
            } else {
                this->Audio(i * 400000);
            }
        }
        this->SetUpAudio();
        if (videoFirst) {
            this->Audio(7 * 400000);
        } else {
            this->Video(7 * 400000);
        }
        EXPECT_EQ(this->Close().Payload("Segment/Tracks/TrackEntry[1]/CodecPrivate"), Hex("12 10"));
    }
}

TYPED_TEST(MuxerReuse, EachFileCountsItsTimesFromItsOwnFirstBlock) {
    for (const std::int64_t start : {3600 * kSecond, 5 * kSecond, std::int64_t{0}}) {
        this->Open(Job(true, false));
        const unsigned before = this->m_Frame;
        for (int i = 0; i < 3; ++i) this->Video(start + i * 400000);
        const std::vector<Ebml::Block> blocks = this->BlocksSince(this->Close(), before);
        ASSERT_EQ(blocks.size(), 3U);
        EXPECT_EQ(blocks[0].Time(), 0);
        EXPECT_EQ(blocks[2].Time(), 80);
    }
}

// Cue points stay with the muxer, each file adds its own: also one whose clusters begin where the last file's did.
TYPED_TEST(MuxerReuse, EachFileHasACuePointOfItsOwn) {
    for (std::size_t file = 1; file <= 3; ++file) {
        this->Open(Job(true, false));
        for (int i = 0; i < 4; ++i) this->Video(i * 400000);
        const std::vector<Ebml::Cue> cues = this->Close().Cues();
        ASSERT_EQ(cues.size(), file);
        EXPECT_EQ(cues.back().m_Time, 0U);
        EXPECT_EQ(cues.back().m_ClusterPosition, cues.front().m_ClusterPosition);
        if (file > 1) {
            EXPECT_EQ(cues.back().m_BlockNumber, 1U) << "counted anew";
        }
    }
}

// The sum of the sound's durations goes on, deliberately; the end of the last block does not.
TYPED_TEST(MuxerReuse, EachFileHasADurationOfItsOwn) {
    this->Open(Job(true, false));
    this->Video(0);
    this->Video(600 * kSecond);
    EXPECT_EQ(this->Close().Float("Segment/Info/Duration"), 600001.0F);
    this->Open(Job(true, false));
    this->Video(0);
    this->Video(5 * kSecond);
    EXPECT_EQ(this->Close().Float("Segment/Info/Duration"), 5001.0F);
    this->Open(Job(true, false));
    this->Video(0);
    EXPECT_EQ(this->Close().Float("Segment/Info/Duration"), 40.0F);
}

// What is late goes into the file that is open: the Tracks are found where they are, also behind a longer header.
TYPED_TEST(MuxerReuse, LateSetUpDataGoesIntoEachFilesOwnTracks) {
    for (int file = 0; file < 2; ++file) {
        this->Open(Job(false, true));
        for (int i = 0; i < 6; ++i) this->Audio(i * 400000);
        this->SetUpAudio();
        const Octets expected = Hex("12 10") + Octets(1022, 0);
        EXPECT_EQ(this->Close().Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"), expected);
    }
}

std::uint32_t CreateWithoutAJob(MKVMuxer& muxer) { return muxer.CreateMediaFile(L"none", nullptr, nullptr); }
std::uint32_t CreateWithoutAJob(WebmMuxer1& muxer) { return muxer.CreateMediaFile(L"none", nullptr); }

TYPED_TEST(MuxerReuse, ACreationWithoutAJobFinishesTheOpenFile) {
    this->Open(Job(true, false));
    for (int i = 0; i < 7; ++i) this->Video(i * 400000);
    EXPECT_EQ(CreateWithoutAJob(this->m_Muxer), 0U);
    const Ebml::File file(ReadFile(this->m_Directory / this->m_Name)); // while the muxer lives
    EXPECT_EQ(Ebml::Describe(Ebml::Check(file)), "");
    EXPECT_EQ(file.Blocks().size(), 7U);
}

// What an outsider wrote in front goes under the header.
TYPED_TEST(MuxerReuse, TheHeaderStandsAtTheFilesStart) {
    this->Open(Job(true, false));
    IStream& stream = this->m_Muxer;
    stream.Write("outsider", 8, nullptr);
    for (int i = 0; i < 7; ++i) this->Video(i * 400000);
    EXPECT_EQ(this->Close().At("EBML").m_Offset, 0U);
}

} // namespace
