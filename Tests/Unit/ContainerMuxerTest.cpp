// SPDX-License-Identifier: MIT
// Functions of a muxer that the exports cannot reach: its stream, a second file, destruction with a file open.
#include "ContainerMuxer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "ClassNames.h"
#include "FakeEnvironment.h"
#include "Muxers.h"
#include "SameOctets.h"
#include "TempDirectory.h"
#include "VirtualSlot.h"

namespace {

EncodeParam VideoJob(FourCC fourCC) {
    EncodeParam param{};
    param.videoParam.fourCC = fourCC;
    param.videoParam.width = 16;
    param.videoParam.height = 16;
    param.videoParam.frameRate = 25.0;
    param.disableAudio = 1;
    return param;
}

template <class Muxer>
void WriteVideo(Muxer& muxer, Octets& octets, std::int64_t timestamp) {
    MEDIA_FRAME frame{};
    frame.videoData = octets.data();
    frame.videoSize = static_cast<std::int32_t>(octets.size());
    frame.frameFlags = 1;
    frame.timestamp = timestamp;
    frame.duration = 400000;
    EXPECT_EQ(muxer.WriteVideoPacket(&frame), frame.videoSize);
}

// A few frames, some of them still queued at the end.
template <class Muxer>
void WriteSomeVideo(Muxer& muxer) {
    Octets octets = Hex("01 02 03");
    for (int i = 0; i < 7; ++i) WriteVideo(muxer, octets, i * 400000);
}

template <class Muxer>
class AnyMuxer : public testing::Test {
protected:
    std::wstring Path(const std::string& name) const { return (m_Directory / name).wstring(); }
    Octets File(const std::string& name) const { return ReadFile(m_Directory / name); }

    // The same job for each test, with the same track identifier.
    std::uint32_t CreateSomeVideo(Muxer& muxer, const std::string& name) {
        FakeEnvironment::SetRand({0x12345678});
        return Create(muxer, Path(name), m_Job);
    }
    // What a file of WriteSomeVideo is when it is closed as a host does.
    Octets ClosedByItself() {
        Muxer muxer;
        EXPECT_EQ(CreateSomeVideo(muxer, "closed"), 1U);
        WriteSomeVideo(muxer);
        muxer.CloseMediaFile();
        const Octets octets = File("closed");
        EXPECT_GT(octets.size(), 4099U);
        return octets;
    }

    TempDirectory m_Directory;
    EncodeParam m_Job = VideoJob(MakeFourCC("VP8 "));
};
TYPED_TEST_SUITE(AnyMuxer, Muxers, ClassNames);

// ---- the stream

struct StreamResults {
    std::int32_t m_Status;
    unsigned long m_Moved;
};

StreamResults WriteText(IStream& stream, const std::string& text) {
    unsigned long written = 77;
    const std::int32_t status = stream.Write(text.data(), static_cast<unsigned long>(text.size()), &written);
    return {status, written};
}

void ExpectNoFile(IStream& stream) {
    char buffer[4] = "abc";
    unsigned long moved = 77;
    std::int64_t status = 77;
    EXPECT_EQ(stream.Read(buffer, 3, &moved), -1);
    EXPECT_EQ(stream.Write(buffer, 3, &moved), -1);
    EXPECT_EQ(stream.Seek(0, SEEK_SET, &status), -1);
    EXPECT_EQ(stream.Read(buffer, 3, nullptr), -1);
    EXPECT_EQ(stream.Write(buffer, 3, nullptr), -1);
    EXPECT_EQ(stream.Seek(0, SEEK_SET, nullptr), -1);
    EXPECT_EQ(moved, 77U);
    EXPECT_EQ(status, 77);
    EXPECT_STREQ(buffer, "abc");
}

TYPED_TEST(AnyMuxer, ItsStreamFailsWithoutAFile) {
    TypeParam muxer;
    ExpectNoFile(muxer);
    ASSERT_EQ(Create(muxer, this->Path("a"), this->m_Job), 1U);
    muxer.CloseMediaFile();
    ExpectNoFile(muxer);
}

TYPED_TEST(AnyMuxer, ItsStreamWritesAndSeeks) {
    TypeParam muxer;
    ASSERT_EQ(Create(muxer, this->Path("a"), this->m_Job), 1U);
    IStream& stream = muxer;
    EXPECT_EQ(WriteText(stream, "0123456789").m_Status, 0);
    EXPECT_EQ(WriteText(stream, "abc").m_Moved, 3U);
    EXPECT_EQ(WriteText(stream, "").m_Moved, 0U);
    EXPECT_EQ(stream.Write("d", 1, nullptr), 0) << "nobody need ask for the count";

    std::int64_t status = 77;
    EXPECT_EQ(stream.Seek(100, SEEK_SET, &status), 0);
    EXPECT_EQ(status, 0) << "the status, not the position";
    EXPECT_EQ(stream.Seek(2, SEEK_SET, nullptr), 0);
    WriteText(stream, "AB");
    EXPECT_EQ(stream.Seek(1, SEEK_CUR, &status), 0);
    WriteText(stream, "C");
    EXPECT_EQ(stream.Seek(-1, SEEK_END, &status), 0);
    WriteText(stream, "D");
    status = 77;
    EXPECT_EQ(stream.Seek(-1, SEEK_SET, &status), 0) << "whatever the seek did";
    EXPECT_EQ(status, -1);
    status = 77;
    EXPECT_EQ(stream.Seek(0, 55, &status), 0);
    EXPECT_EQ(status, -1) << "no such origin";

    muxer.CloseMediaFile();
    EXPECT_TRUE(SameOctets(this->File("a"), Ascii("01AB4C6789abcD")));
}

TYPED_TEST(AnyMuxer, ItsStreamReadsShortWithoutFailing) {
    TypeParam muxer;
    ASSERT_EQ(Create(muxer, this->Path("a"), this->m_Job), 1U);
    WriteText(muxer, "abc");
    muxer.Seek(0, SEEK_SET, nullptr);
    char buffer[4] = "xyz";
    unsigned long moved = 77;
    EXPECT_EQ(muxer.Read(buffer, 3, &moved), 0);
    EXPECT_EQ(moved, 0U) << "the file is open for writing";
    EXPECT_EQ(muxer.Read(buffer, 3, nullptr), 0);
    EXPECT_STREQ(buffer, "xyz");
}

TYPED_TEST(AnyMuxer, ItsStreamToAPseudoFileMovesNothing) {
    TypeParam muxer;
    ASSERT_EQ(Create(muxer, this->Path("disc.iso:a"), this->m_Job), 1U);
    const StreamResults results = WriteText(muxer, "abc");
    EXPECT_EQ(results.m_Status, 0);
    EXPECT_EQ(results.m_Moved, 0U);
    std::int64_t status = 77;
    EXPECT_EQ(muxer.Seek(-5, SEEK_SET, &status), 0);
    EXPECT_EQ(status, 0);
    WriteSomeVideo(muxer);
    muxer.CloseMediaFile();
    EXPECT_TRUE(std::filesystem::is_empty(this->m_Directory / "."));
}

TYPED_TEST(AnyMuxer, ItsStreamMovesNothingWhenTheFileDidNotOpen) {
    TypeParam muxer;
    EXPECT_EQ(Create(muxer, this->Path("none/a"), this->m_Job), 0U);
    const StreamResults results = WriteText(muxer, "abc");
    EXPECT_EQ(results.m_Status, 0) << "there is a file object, only not an open file";
    EXPECT_EQ(results.m_Moved, 0U);
    muxer.CloseMediaFile();
    ExpectNoFile(muxer);
}

// ---- one file after another

TYPED_TEST(AnyMuxer, ASecondFileFinishesTheFirst) {
    const Octets expected = this->ClosedByItself();
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "first"), 1U);
    WriteSomeVideo(muxer);
    ASSERT_EQ(Create(muxer, this->Path("second"), this->m_Job), 1U);
    EXPECT_TRUE(SameOctets(this->File("first"), expected));
    muxer.CloseMediaFile();
    EXPECT_TRUE(this->File("second").empty()) << "no frame was queued for it";
    EXPECT_TRUE(SameOctets(this->File("first"), expected)) << "untouched by the second";
}

TYPED_TEST(AnyMuxer, ASecondFileThatDoesNotOpenFinishesTheFirst) {
    const Octets expected = this->ClosedByItself();
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "first"), 1U);
    WriteSomeVideo(muxer);
    EXPECT_EQ(Create(muxer, this->Path("none/second"), this->m_Job), 0U);
    EXPECT_TRUE(SameOctets(this->File("first"), expected));
}

TYPED_TEST(AnyMuxer, ASecondFileHasTheTracksOfItsOwnJob) {
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "first"), 1U);
    EncodeParam nothing{};
    nothing.disableVideo = 1;
    nothing.disableAudio = 1;
    ASSERT_EQ(Create(muxer, this->Path("second"), nothing), 1U);
    Octets octets = Hex("01");
    MEDIA_FRAME frame{};
    frame.videoData = frame.audioData = octets.data();
    frame.videoSize = frame.audioSize = 1;
    EXPECT_EQ(muxer.WriteVideoPacket(&frame), 0);
    EXPECT_EQ(muxer.WriteAudioPacket(&frame, nullptr), 0);
    muxer.CloseMediaFile();
    EXPECT_TRUE(this->File("second").empty());
}

TYPED_TEST(AnyMuxer, StaysUsableAfterAFileThatDidNotOpen) {
    const Octets expected = this->ClosedByItself();
    TypeParam muxer;
    EXPECT_EQ(Create(muxer, this->Path("none/a"), this->m_Job), 0U);
    ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
    WriteSomeVideo(muxer);
    muxer.CloseMediaFile();
    EXPECT_TRUE(SameOctets(this->File("a"), expected));
}

// Whether H.264 comes with start codes is asked of a muxer's first frame, not of each file's.
TEST(MKVMuxer, LooksAtItsFirstVideoFrameOnly) {
    const TempDirectory directory;
    const EncodeParam job = VideoJob(MakeFourCC("H264"));
    MKVMuxer muxer;
    ASSERT_EQ(Create(muxer, (directory / "first").wstring(), job), 1U);
    Octets prefixed = Hex("00000002 65AA");
    WriteVideo(muxer, prefixed, 0);
    ASSERT_EQ(Create(muxer, (directory / "second").wstring(), job), 1U);
    Octets startCode = Hex("00000001 65AABB");
    WriteVideo(muxer, startCode, 0);
    EXPECT_TRUE(SameOctets(startCode, Hex("00000001 65AABB"))) << "not rewritten";
}

// That there was an H264 job stays with the muxer, whatever the next job is.
TEST(MKVMuxer, RemembersAnH264Job) {
    const TempDirectory directory;
    MKVMuxer muxer;
    EXPECT_EQ(muxer.m_IsH264, 0U);
    ASSERT_EQ(Create(muxer, (directory / "first").wstring(), VideoJob(MakeFourCC("H264"))), 1U);
    ASSERT_EQ(Create(muxer, (directory / "second").wstring(), VideoJob(MakeFourCC("MP4V"))), 1U);
    EXPECT_EQ(muxer.m_IsH264, 1U);
    Octets startCode = Hex("00000001 65AABB");
    WriteVideo(muxer, startCode, 0);
    EXPECT_EQ(muxer.m_LosslessH264, 1U);
    EXPECT_TRUE(SameOctets(startCode, Hex("00000003 65AABB"))) << "rewritten";
}

TEST(MKVMuxer, AnH264JobStartsWithoutABuffer) {
    const TempDirectory directory;
    MKVMuxer muxer;
    const EncodeParam job = VideoJob(MakeFourCC("H264"));
    ASSERT_EQ(Create(muxer, (directory / "first").wstring(), job), 1U);
    Octets frame = Hex("00000001 65AABB");
    WriteVideo(muxer, frame, 0);
    EXPECT_EQ(muxer.m_NalBufferSize, 7);
    EXPECT_EQ(muxer.m_NalBufferUsed, 7);
    EXPECT_NE(muxer.m_pNalBuffer, nullptr);
    EXPECT_EQ(Create(muxer, (directory / "none/second").wstring(), job), 0U) << "also when the file does not open";
    EXPECT_EQ(muxer.m_NalBufferSize, 0);
    EXPECT_EQ(muxer.m_NalBufferUsed, 0);
    EXPECT_EQ(muxer.m_pNalBuffer, nullptr);
}

// What a new file finds as a new muxer has it, and what it finds as the last file left it.
TYPED_TEST(AnyMuxer, ASecondFileStartsWithItsOwnState) {
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "first"), 1U);
    WriteSomeVideo(muxer);
    MEDIA_FRAME sound{};
    sound.duration = 5;
    muxer.WriteAudioPacket(&sound, nullptr);
    EXPECT_NE(muxer.m_SegmentPos, 0);
    EXPECT_EQ(muxer.m_CueTrack, 1);
    ASSERT_EQ(this->CreateSomeVideo(muxer, "second"), 1U);
    EXPECT_EQ(muxer.m_Streams.size(), 1U);
    EXPECT_EQ(muxer.m_pVideoStream, muxer.m_Streams.front().get());
    EXPECT_EQ(muxer.m_pAudioStream, nullptr);
    ExpectFirstValues(muxer);
    EXPECT_EQ(muxer.m_VideoStarted, 0U);
    EXPECT_EQ(muxer.m_AudioStarted, 1U) << "the job has none";
    EXPECT_EQ(muxer.m_AudioDuration, 5);
    EXPECT_EQ(muxer.m_Cues.m_CuePoints.size(), 1U);
    EXPECT_EQ(muxer.m_SeekHead.m_Seeks.size(), 4U);
    EXPECT_EQ(muxer.m_ClusterIndex.m_Seeks.size(), 1U);
}

// ---- elements and streams set up by hand

TYPED_TEST(AnyMuxer, CuesNameTheFirstVideoEntrysOwnNumber) {
    struct Row {
        std::uint64_t m_Type, m_Number;
        std::int64_t m_CueTrack;
    };
    for (const Row& row : {Row{1, 1, 1}, Row{1, 5, 5}, Row{2, 5, 2}, Row{17, 1, 2}, Row{1, 0, 2}}) {
        TypeParam muxer;
        ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
        muxer.m_pVideoStream->m_pTrackEntry->m_TrackType.Set(row.m_Type);
        muxer.m_pVideoStream->m_pTrackEntry->m_TrackNumber.Set(row.m_Number);
        WriteSomeVideo(muxer);
        EXPECT_EQ(muxer.m_CueTrack, row.m_CueTrack) << row.m_Type;
        muxer.CloseMediaFile();
    }
}

// Positions are the file's, whoever has written there.
TYPED_TEST(AnyMuxer, PositionsAreAskedOfTheFile) {
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
    Octets octets = Hex("01 02 03");
    for (int i = 0; i < 5; ++i) WriteVideo(muxer, octets, i * 400000);
    const std::int64_t end = muxer.m_pFile->GetPos();
    EXPECT_EQ(WriteText(muxer, "between").m_Status, 0);
    for (int i = 0; i < 5; ++i) WriteVideo(muxer, octets, 15000000 + i * 400000);
    ASSERT_EQ(muxer.m_ClusterIndex.m_Seeks.size(), 1U);
    const auto position = static_cast<std::int64_t>(muxer.m_ClusterIndex.m_Seeks.back().m_SeekPosition.m_Value);
    EXPECT_EQ(position, end + 7 - muxer.m_SegmentDataPos);
    muxer.CloseMediaFile();
}

// The steps of writing may be called by themselves, also when there is nothing to write to.
TYPED_TEST(AnyMuxer, StepsWithoutAFileDoNothing) {
    TypeParam muxer;
    MEDIA_FRAME frame{};
    unsigned char octets[] = {0, 0, 0, 0, 1, 0x65};
    frame.videoData = octets;
    frame.videoSize = 6;
    EXPECT_EQ(muxer.WriteBeginInfo(), 1);
    EXPECT_EQ(muxer.WritePacket(), 0);
    EXPECT_EQ(muxer.WriteDuration(), 1);
    EXPECT_EQ(muxer.WriteEndInfo(), 1);
    EXPECT_EQ(muxer.WriteN264Packet(&frame), 0);
    EXPECT_EQ(muxer.WriteN264Packet(nullptr), 0);
    EXPECT_EQ(muxer.WriteVideoPacket(&frame), 0);
    EXPECT_EQ(muxer.FindStartCode(octets, 6), octets + 1);
    EXPECT_EQ(muxer.FindStartCode(octets, 4), nullptr);
    muxer.CloseMediaFile();
}

TYPED_TEST(AnyMuxer, StepsByThemselvesWriteTheFile) {
    TypeParam muxer;
    ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
    Octets octets = Hex("01 02 03");
    for (int i = 0; i < 7; ++i) muxer.m_pVideoStream->WritePacket(octets.data(), 3, i * 400000, i * 400000 + 400000, 1);
    const std::int32_t written = muxer.WritePacket();
    EXPECT_EQ(written, muxer.m_pFile->GetPos());
    EXPECT_EQ(muxer.m_HeaderWritten, 1U);
    EXPECT_EQ(muxer.WriteDuration(), 1);
    EXPECT_EQ(muxer.WriteEndInfo(), 1);
    muxer.m_pFile->Flush();
    EXPECT_TRUE(SameOctets(this->File("a"), this->ClosedByItself()));
}

// A block without frames and one with two, with a priority: each is written as it stands, in its own cluster alone.
TEST(MKVMuxer, BlocksSetUpByHandAreWrittenOnce) {
    const TempDirectory directory;
    MKVMuxer muxer;
    ASSERT_EQ(Create(muxer, (directory / "a").wstring(), VideoJob(MakeFourCC("VP8 "))), 1U);
    auto& queue = muxer.m_pVideoStream->m_Queue;
    for (const int frames : {0, 2}) {
        MatroskaWriter::BlockGroup& group = queue.emplace_back(0xA0);
        group.m_ReferencePriority.Set(9);
        group.m_Block.m_TrackNumber.m_Length = 1;
        for (int i = 0; i < frames; ++i) group.m_Block.m_Frames.emplace_back(0).m_Data = Hex("0A 0B");
    }
    muxer.WritePacket();
    Octets octets = Hex("01 02 03");
    for (int i = 1; i < 10; ++i) WriteVideo(muxer, octets, i * 15000000);
    muxer.CloseMediaFile();
    const Octets file = ReadFile(directory / "a");
    const auto count = [&file](const Octets& part) {
        int found = 0;
        for (auto at = file.begin();; ++at, ++found) {
            at = std::search(at, file.end(), part.begin(), part.end());
            if (at == file.end()) return found;
        }
    };
    EXPECT_EQ(count(Hex("A0 89 FA 81 09 A1 84 81 0000 00")), 1);
    EXPECT_EQ(count(Hex("A0 8F FA 81 09 A1 8A 81 0000 02 02 02 0A0B 0A0B")), 1);
    EXPECT_EQ(count(Hex("FA 81 09")), 2);
    EXPECT_EQ(count(Hex("A1 87 81")), 9);
}

// ---- set-up data

struct FixedRow {
    const char* m_Reason;
    std::uint32_t m_TracksWritten;
    const char* m_Data;
    const char* m_CodecPrivate; // of 01020304
};

const FixedRow kFixedRows[] = {
    {"shorter, in place of it", 0, "AABB", "AABB"},   {"longer, in place of it", 0, "AABBCCDDEE", "AABBCCDDEE"},
    {"over the head", 1, "AABB", "AABB0304"},         {"over all of it", 1, "AABBCCDD", "AABBCCDD"},
    {"it does not fit", 1, "AABBCCDDEE", "01020304"},
};

TYPED_TEST(AnyMuxer, SetUpDataGoesOverTheHeadOnceTheTracksAreInTheFile) {
    this->m_Job.audioParam.fourCC = MakeFourCC("AAC ");
    this->m_Job.disableAudio = 0;
    for (const FixedRow& row : kFixedRows) {
        TypeParam muxer;
        ASSERT_EQ(Create(muxer, this->Path("a"), this->m_Job), 1U);
        Octets& codecPrivate = muxer.m_pAudioStream->m_pTrackEntry->m_CodecPrivate.m_Data;
        codecPrivate = Hex("01020304");
        muxer.m_TracksWritten = row.m_TracksWritten;
        const Octets data = Hex(row.m_Data);
        muxer.WriteVosData(data.data(), static_cast<int>(data.size()));
        EXPECT_TRUE(SameOctets(codecPrivate, Hex(row.m_CodecPrivate))) << row.m_Reason;
    }
}

// ---- the end

TYPED_TEST(AnyMuxer, DestructionFinishesTheFile) {
    const Octets expected = this->ClosedByItself();
    {
        TypeParam muxer;
        ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
        WriteSomeVideo(muxer);
    }
    EXPECT_TRUE(SameOctets(this->File("a"), expected));
    auto muxer = std::make_unique<TypeParam>();
    ASSERT_EQ(this->CreateSomeVideo(*muxer, "b"), 1U);
    WriteSomeVideo(*muxer);
    std::unique_ptr<IStream> stream = std::move(muxer);
    stream.reset();
    EXPECT_TRUE(SameOctets(this->File("b"), expected)) << "through the stream's virtual destructor";
}

TYPED_TEST(AnyMuxer, DestructionLeavesAFileWithoutFramesEmpty) {
    {
        TypeParam muxer;
        ASSERT_EQ(Create(muxer, this->Path("a"), this->m_Job), 1U);
    }
    EXPECT_TRUE(this->File("a").empty());
}

TYPED_TEST(AnyMuxer, ClosingTwiceIsClosingOnce) {
    const Octets expected = this->ClosedByItself();
    TypeParam muxer;
    muxer.CloseMediaFile();
    ASSERT_EQ(this->CreateSomeVideo(muxer, "a"), 1U);
    WriteSomeVideo(muxer);
    muxer.CloseMediaFile();
    muxer.CloseMediaFile();
    EXPECT_TRUE(SameOctets(this->File("a"), expected));
}

TYPED_TEST(AnyMuxer, StreamSlotsComeFirst) {
    EXPECT_EQ(VirtualSlot(&TypeParam::Read), 0U);
    EXPECT_EQ(VirtualSlot(&TypeParam::Write), 1U);
    EXPECT_EQ(VirtualSlot(&TypeParam::Seek), 2U);
}

} // namespace
