// What a muxer does that the exports cannot reach: its stream, a second file, destruction with a file open.
#include "ContainerMuxer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "ClassNames.h"
#include "FakeEnvironment.h"
#include "MKVMuxer.h"
#include "SameOctets.h"
#include "TempDirectory.h"
#include "VirtualSlot.h"
#include "WebmMuxer1.h"

namespace {

std::uint32_t Create(MKVMuxer& muxer, const std::wstring& path, const EncodeParam& param) {
    return muxer.CreateMediaFile(path.c_str(), &param, nullptr);
}
std::uint32_t Create(WebmMuxer1& muxer, const std::wstring& path, const EncodeParam& param) {
    return muxer.CreateMediaFile(path.c_str(), &param);
}

EncodeParam VideoJob(FourCC fourCC) {
    EncodeParam param{};
    param.videoParam.fourCC = fourCC;
    param.videoParam.width = 16;
    param.videoParam.height = 16;
    param.videoParam.frameRate = 25.0;
    param.disableAudio = 1;
    return param;
}

void WriteVideo(ContainerMuxer& muxer, Octets& octets, std::int64_t timestamp) {
    MEDIA_FRAME frame{};
    frame.videoData = octets.data();
    frame.videoSize = static_cast<std::int32_t>(octets.size());
    frame.frameFlags = 1;
    frame.timestamp = timestamp;
    frame.duration = 400000;
    EXPECT_EQ(muxer.WriteVideoPacket(&frame), frame.videoSize);
}

// A few frames, some of them still queued at the end.
void WriteSomeVideo(ContainerMuxer& muxer) {
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
using Muxers = testing::Types<MKVMuxer, WebmMuxer1>;
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
