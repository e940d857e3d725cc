// SPDX-License-Identifier: MIT
// Packets in the forms of encoders and containers, and the blocks made from them.
#include "LibraryTest.h"

namespace {

const Octets kSequenceSet = Hex("67 64001F AC D9");
const Octets kPictureSet = Hex("68 EB E3");
const Octets kRecord = Hex("01 64001F FF E1 0006") + kSequenceSet + Hex("01 0003") + kPictureSet;
const Octets kSlice = Hex("65 88 84 00 11");
const Octets kMessage = Hex("06 05 01 AA 80");
const Octets kEnd = Hex("0A"); // end of sequence: one octet

Octets InFront(const Octets& unit, std::size_t lengthSize) {
    Octets octets;
    for (std::size_t i = lengthSize; i-- > 0;)
        octets.push_back(i < 4 ? static_cast<unsigned char>(unit.size() >> (8 * i)) : 0);
    return octets + unit;
}

Octets Lengths(const std::vector<Octets>& units, std::size_t lengthSize = 4) {
    Octets octets;
    for (const Octets& unit : units) octets = octets + InFront(unit, lengthSize);
    return octets;
}

class H264Frames : public LibraryTest {
protected:
    // Writes a packet and another one, and gives the first block.
    Octets BlockOf(const JobHandle& job, const Octets& packet) {
        FileHandle file = Open(job);
        EXPECT_EQ(Write(file, QF_VIDEO, packet, 0, 0), QF_OK) << qf_error_text();
        EXPECT_EQ(Write(file, QF_VIDEO, packet, 40, 40, 0, false), QF_OK) << qf_error_text();
        EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
        const Ebml::File read = Read();
        m_Private = read.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate");
        return read.BlocksOf(1).at(0).m_Frame;
    }

    Octets m_Private;
};

TEST_F(H264Frames, WithStartCodesOfEitherLengthKeepAllTheirUnits) {
    const Octets packet = Hex("00000001") + Hex("09 F0") + Hex("000001") + kSequenceSet + Hex("00000001") +
                          kPictureSet + Hex("000001") + kMessage + Hex("000001") + kSlice + Hex("0000");
    const Octets block = BlockOf(MillisecondJob("h264", nullptr), packet);
    EXPECT_TRUE(SameOctets(block, Lengths({Hex("09 F0"), kSequenceSet, kPictureSet, kMessage, kSlice})));
    EXPECT_TRUE(SameOctets(m_Private, kRecord));
}

TEST_F(H264Frames, WithLengthsOfAnySizeGetOnesOfFourOctets) {
    for (const std::size_t size : {1U, 2U, 3U, 4U}) {
        const JobHandle job = MillisecondJob("h264", nullptr);
        qf_job_set_overwrite(job.get(), 1);
        Octets record = kRecord;
        record[4] = static_cast<unsigned char>(0xFC + size - 1);
        qf_job_set_setup(job.get(), QF_VIDEO, record.data(), record.size());
        EXPECT_TRUE(SameOctets(BlockOf(job, Lengths({kMessage, kSlice}, size)), Lengths({kMessage, kSlice})));
        EXPECT_TRUE(SameOctets(m_Private, kRecord));
    }
}

// The plug-in recognises start codes by 00 00 00 01 in a first frame.
TEST_F(H264Frames, KeepAUnitOfOneOctetWhichLooksLikeAStartCode) {
    const JobHandle job = MillisecondJob("h264", nullptr);
    qf_job_set_setup(job.get(), QF_VIDEO, kRecord.data(), kRecord.size());
    EXPECT_TRUE(SameOctets(BlockOf(job, Lengths({kSlice, kEnd})), Lengths({kSlice, kEnd})));
}

TEST_F(H264Frames, MayStateTheirFraming) {
    const JobHandle job = MillisecondJob("h264", nullptr);
    qf_job_set_framing(job.get(), QF_FRAMING_LENGTHS, 2);
    EXPECT_TRUE(SameOctets(BlockOf(job, Lengths({kSequenceSet, kPictureSet, kSlice}, 2)),
                           Lengths({kSequenceSet, kPictureSet, kSlice})));
    EXPECT_TRUE(SameOctets(m_Private, kRecord));
}

// The file's record has room for one of each kind.
TEST_F(H264Frames, HaveFurtherParameterSetsInFrontOfKeyFrames) {
    const Octets second = Hex("68 EB E4");
    const Octets record =
        Hex("01 64001F FF E1 0006") + kSequenceSet + Hex("02 0003") + kPictureSet + Hex("0003") + second;
    const JobHandle job = MillisecondJob("h264", nullptr);
    qf_job_set_setup(job.get(), QF_VIDEO, record.data(), record.size());
    EXPECT_TRUE(SameOctets(BlockOf(job, Lengths({Hex("09 F0"), kSlice})),
                           Lengths({Hex("09 F0"), kSequenceSet, kPictureSet, second, kSlice})));
    EXPECT_TRUE(SameOctets(m_Private, kRecord));
    EXPECT_TRUE(SameOctets(Read().BlocksOf(1).at(1).m_Frame, Lengths({Hex("09 F0"), kSlice})));
}

TEST_F(H264Frames, AreSlicesAloneUnderOtherNames) {
    const JobHandle job = MillisecondJob("n264", nullptr);
    qf_job_set_setup(job.get(), QF_VIDEO, kRecord.data(), kRecord.size());
    EXPECT_TRUE(SameOctets(BlockOf(job, Lengths({kMessage, kSlice})), Lengths({kSlice})));
}

TEST_F(H264Frames, ThatAreDamagedAreRefused) {
    const struct {
        const char* m_Name;
        Octets m_Setup;
        Octets m_Packet;
        const char* m_Words;
    } rows[] = {
        {"no start code", {}, kSlice, "does not begin with a start code"},
        {"zeros", {}, Zeros(9), "does not begin with a start code"},
        {"no parameter sets", {}, Hex("000001") + kSlice, "no parameter sets"},
        {"a length beyond the packet", kRecord, Hex("00000009 65"), "reaches beyond its packet"},
        {"half a length", kRecord, Hex("0000"), "reaches beyond its packet"},
        {"an absurd length", kRecord, Hex("FFFFFFFF 65"), "reaches beyond its packet"},
        {"a record cut off", Hex("01 64001F FF E1 00FF") + kSequenceSet, Lengths({kSlice}), "no parameter sets"},
    };
    for (const auto& row : rows) {
        const JobHandle job = MillisecondJob("h264", nullptr);
        qf_job_set_overwrite(job.get(), 1);
        qf_job_set_setup(job.get(), QF_VIDEO, row.m_Setup.data(), row.m_Setup.size());
        const FileHandle file = Open(job);
        EXPECT_EQ(Write(file, QF_VIDEO, row.m_Packet, 0, 0), QF_ERROR_DATA) << row.m_Name;
        EXPECT_TRUE(ErrorSays(row.m_Words)) << row.m_Name;
    }
}

class SoundFrames : public LibraryTest {};

Octets Adts(const Octets& frame, unsigned channels = 2) {
    const std::size_t size = frame.size() + 7;
    return Octets{0xFF,
                  0xF1,
                  0x4C, // low complexity, 48 kHz
                  static_cast<unsigned char>(channels << 6 | size >> 11),
                  static_cast<unsigned char>(size >> 3),
                  static_cast<unsigned char>(size << 5 | 0x1F),
                  0xFC} +
           frame;
}

TEST_F(SoundFrames, OfAacLoseTheirAdtsHeaders) {
    FileHandle file = Open(MillisecondJob(nullptr, "aac"), "film.mka");
    const Octets one = Hex("21 1B 80");
    const Octets other = Hex("21 4C");
    EXPECT_EQ(Write(file, QF_AUDIO, Adts(one) + Adts(other), 0, 0), QF_OK) << qf_error_text();
    EXPECT_EQ(Write(file, QF_AUDIO, Adts(one), 43, 43, 21), QF_OK);
    EXPECT_EQ(Write(file, QF_AUDIO, Hex("FFF1"), 64, 64), QF_OK) << "set-up data is known: it is a raw frame";
    EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
    const Ebml::File read = Read("film.mka");
    EXPECT_TRUE(SameOctets(read.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"), Hex("11 90")));
    const auto blocks = read.BlocksOf(2);
    ASSERT_EQ(blocks.size(), 4U);
    EXPECT_TRUE(SameOctets(blocks[0].m_Frame, one));
    EXPECT_TRUE(SameOctets(blocks[1].m_Frame, other));
    EXPECT_EQ(blocks[1].Time(), 21);
    EXPECT_EQ(blocks[2].Time(), 43);
}

TEST_F(SoundFrames, OfAacWithoutSetupAreRefused) {
    const struct {
        Octets m_Packet;
        const char* m_Words;
    } rows[] = {
        {Hex("21 1B 80"), "no ADTS header"},
        {Adts(Hex("21"), 0), "which channels"},
        {Adts(Hex("21 1B")) + Hex("FFF1"), "reaches beyond its packet"},
    };
    const FileHandle file = Open(MillisecondJob(nullptr, "aac"));
    for (const auto& row : rows) {
        EXPECT_EQ(Write(file, QF_AUDIO, row.m_Packet, 0, 0), QF_ERROR_DATA);
        EXPECT_TRUE(ErrorSays(row.m_Words));
    }
}

Octets Header(unsigned char type, std::size_t size) {
    return Octets{type} + Ascii("vorbis") + Repeated(size - 7, type);
}

TEST_F(SoundFrames, OfVorbisHaveTheirHeadersInFrontOrLaced) {
    const std::vector<Octets> headers = {Header(1, 30), Header(3, 300), Header(5, 600)};
    const Octets laced = Hex("02 1E FF 2D") + headers[0] + headers[1] + headers[2];
    Octets sized;
    for (const Octets& header : headers) sized = sized + InFront(header, 2);
    const Octets sound = Hex("00 11 22");
    const char* const names[] = {"packets.webm", "laced.webm", "sized.webm"};
    for (const std::size_t form : {0U, 1U, 2U}) {
        const JobHandle job = MillisecondJob(nullptr, "vorbis");
        if (form == 1) qf_job_set_setup(job.get(), QF_AUDIO, laced.data(), laced.size());
        if (form == 2) qf_job_set_setup(job.get(), QF_AUDIO, sized.data(), sized.size());
        FileHandle file = Open(job, names[form]);
        for (const Octets& header : headers) EXPECT_EQ(Write(file, QF_AUDIO, header, QF_NO_TIME, QF_NO_TIME), QF_OK);
        EXPECT_EQ(Write(file, QF_AUDIO, sound, 0, 0, 20), QF_OK) << qf_error_text();
        EXPECT_EQ(Write(file, QF_AUDIO, Header(5, 500), 20, 20), QF_ERROR_DATA);
        EXPECT_EQ(Close(file), QF_OK) << qf_error_text();
        const Ebml::File read = Read(names[form]);
        EXPECT_TRUE(SameOctets(read.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"), laced));
        EXPECT_EQ(read.BlocksOf(2).size(), 1U);
    }
}

TEST_F(SoundFrames, OfVorbisWithoutHeadersAreRefused) {
    const FileHandle file = Open(MillisecondJob(nullptr, "vorbis"));
    EXPECT_EQ(Write(file, QF_AUDIO, Hex("00 11"), 0, 0), QF_ERROR_DATA);
    EXPECT_TRUE(ErrorSays("three header packets"));
    EXPECT_EQ(Write(file, QF_AUDIO, Header(3, 30), 0, 0), QF_ERROR_DATA);
    const JobHandle job = MillisecondJob(nullptr, "vorbis");
    for (const char* const setup : {"02", "02 FF", "02 01 01 00", "0001", "0001 01 0001 02 0001 03", "FFFF 00"}) {
        const Octets octets = Hex(setup);
        qf_job_set_setup(job.get(), QF_AUDIO, octets.data(), octets.size());
        EXPECT_EQ(OpenFile(m_Plugin, Path("none.mkv"), job), nullptr) << setup;
        EXPECT_TRUE(ErrorSays("does not hold three header packets"));
        EXPECT_FALSE(std::filesystem::exists(Path("none.mkv")));
    }
}

TEST_F(SoundFrames, OfPcmAreWholeSamples) {
    const FileHandle file = Open(MillisecondJob(nullptr, "pcm"));
    EXPECT_EQ(Write(file, QF_AUDIO, Zeros(192), 0, 0), QF_OK);
    EXPECT_EQ(Write(file, QF_AUDIO, Zeros(193), 1, 1), QF_ERROR_DATA);
}

class VideoFrames : public LibraryTest {};

TEST_F(VideoFrames, OfMpeg4HaveTheirHeadersInFrontOfKeyFrames) {
    const Octets headers = Hex("000001B0 01 00000120 00C8");
    const Octets picture = Hex("000001B6 10");
    const JobHandle job = MillisecondJob("mpeg4", nullptr);
    qf_job_set_setup(job.get(), QF_VIDEO, headers.data(), headers.size());
    FileHandle file = Open(job);
    EXPECT_EQ(Write(file, QF_VIDEO, picture, 0, 0), QF_OK);
    EXPECT_EQ(Write(file, QF_VIDEO, picture, 40, 40, 0, false), QF_OK);
    EXPECT_EQ(Write(file, QF_VIDEO, headers + picture, 80, 80), QF_OK);
    EXPECT_EQ(Close(file), QF_OK);
    const auto blocks = Read().BlocksOf(1);
    EXPECT_TRUE(SameOctets(blocks.at(0).m_Frame, headers + picture));
    EXPECT_TRUE(SameOctets(blocks.at(1).m_Frame, picture));
    EXPECT_TRUE(SameOctets(blocks.at(2).m_Frame, headers + picture));
}

TEST_F(VideoFrames, OfMpeg2HaveTheirHeaderInTheSetUpData) {
    const Octets header = Hex("000001B3 1400B423 FFFFE018");
    const JobHandle job = MillisecondJob("mpeg2", nullptr);
    qf_job_set_setup(job.get(), QF_VIDEO, header.data(), header.size());
    qf_job_set_display_aspect(job.get(), 32, 18);
    FileHandle file = Open(job);
    EXPECT_EQ(Write(file, QF_VIDEO, Hex("00000100 0008"), 0, 0), QF_OK);
    EXPECT_EQ(Close(file), QF_OK);
    const Ebml::File read = Read();
    EXPECT_TRUE(SameOctets(read.Payload("Segment/Tracks/TrackEntry[0]/CodecPrivate"), header));
    EXPECT_EQ(read.Unsigned("Segment/Tracks/TrackEntry[0]/Video/DisplayWidth"), 16U);
    EXPECT_EQ(read.Unsigned("Segment/Tracks/TrackEntry[0]/Video/DisplayHeight"), 9U);
}

} // namespace
