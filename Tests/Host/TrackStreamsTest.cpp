// SPDX-License-Identifier: MIT
// How a job's parameters become track headers.
#include "HostTest.h"

#include <limits>

namespace {

using TrackStreams = HostTest;

Ebml::File VideoFile(const Plugin& plugin, const EncodeParam& job) {
    HostSession session(plugin, job);
    EXPECT_GT(session.Video(Hex("01"), 0, 400000), 0);
    return session.Finish();
}

Ebml::File AudioFile(const Plugin& plugin, const EncodeParam& job) {
    HostSession session(plugin, job);
    EXPECT_GT(session.Audio(Hex("01"), 0, 400000), 0);
    return session.Finish();
}

// BITMAPINFOHEADER of 320x240 with 24 bits.
Octets BitmapHeader(const char* compression) {
    return Join({
        Hex("28 00 00 00"),                 // biSize 40
        Hex("40 01 00 00"),                 // biWidth 320
        Hex("F0 00 00 00"),                 // biHeight 240
        Hex("01 00"),                       // biPlanes
        Hex("18 00"),                       // biBitCount 24
        Ascii(std::string(compression, 4)), // biCompression
        Zeros(20),                          // biSizeImage to biClrImportant
    });
}

TEST_F(TrackStreams, VideoCodecs) {
    const std::string avc = "V_MPEG4/ISO/AVC";
    const std::string vfw = "V_MS/VFW/FOURCC";
    const struct {
        FourCC m_FourCC;
        std::string m_CodecID;
        const char* m_Compression; // of the Video-for-Windows header, or null
        bool m_Placeholder;
        std::string m_WebmCodecID;
    } rows[] = {
        {MakeFourCC("MP1V"), "V_MPEG1", nullptr, false, "V_MPEG1"},
        {MakeFourCC("MP2V"), "V_MPEG2", nullptr, false, "V_MPEG2"},
        {MakeFourCC("MP4V"), "V_MPEG4/ISO/ASP", nullptr, false, "V_MPEG4/ISO/ASP"},
        {MakeFourCC("Xvid"), "V_MPEG4/ISO/ASP", nullptr, false, "V_MPEG4/ISO/ASP"},
        {MakeFourCC("VP8 "), "V_VP8", nullptr, false, "V_VP8"},
        {MakeFourCC("H264"), avc, nullptr, true, avc},
        {MakeFourCC("N264"), avc, nullptr, true, avc},
        {MakeFourCC("A264"), avc, nullptr, true, avc},
        {MakeFourCC("I264"), avc, nullptr, true, vfw}, // not among WebM's
        {MakeFourCC("havc"), vfw, "X264", false, vfw},
        {MakeFourCC("WMV3"), vfw, "WMV3", false, vfw},
        {MakeFourCC("xvid"), vfw, "xvid", false, vfw},
        {0, vfw, "\0\0\0\0", false, vfw},
        {0xFFFFFFFF, vfw, "\xFF\xFF\xFF\xFF", false, vfw},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
            const bool webm = format == MakeFourCC("WEBM");
            HostSession session(m_Plugin, MakeVideoJob(format, row.m_FourCC));
            session.Video(Hex("00 00 00 01 65 88"), 0, 400000);
            const Ebml::File file = session.Finish();
            const std::string& codec = webm ? row.m_WebmCodecID : row.m_CodecID;
            EXPECT_EQ(file.Payload(kTrack + "CodecID"), Ascii(codec) + Hex("00"));
            if (codec == vfw) {
                const char* const compression = row.m_Compression != nullptr ? row.m_Compression : "I264";
                EXPECT_EQ(file.Payload(kTrack + "CodecPrivate"), BitmapHeader(compression));
            } else if (row.m_Placeholder) {
                EXPECT_EQ(file.Payload(kTrack + "CodecPrivate"), Zeros(1024));
            } else {
                EXPECT_FALSE(file.Has(kTrack + "CodecPrivate")) << codec;
            }
            EXPECT_EQ(file.Unsigned(kTrack + "TrackNumber"), 1U);
            EXPECT_EQ(file.Unsigned(kTrack + "TrackType"), 1U);
            EXPECT_FALSE(file.Has(kTrack + "FlagDefault"));
            EXPECT_FALSE(file.Has(kTrack + "FlagLacing"));
        }
    }
}

TEST_F(TrackStreams, AudioCodecs) {
    const struct {
        FourCC m_FourCC;
        std::string m_CodecID;
        std::size_t m_Placeholder;
    } rows[] = {
        {MakeFourCC("MP2A"), "A_MPEG/L2", 0},     {MakeFourCC("MP3 "), "A_MPEG/L3", 0},
        {MakeFourCC("AC3 "), "A_AC3", 0},         {MakeFourCC("DTS "), "A_DTS", 0},
        {MakeFourCC("PCM "), "A_PCM/INT/LIT", 0}, {MakeFourCC("AAC "), "A_AAC", 1024},
        {MakeFourCC("VBIS"), "A_VORBIS", 10240},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "), MakeFourCC("WEBM")}) {
            const bool webm = format == MakeFourCC("WEBM");
            const Ebml::File file = AudioFile(m_Plugin, MakeAudioJob(format, row.m_FourCC));
            EXPECT_EQ(file.Payload(kTrack + "CodecID"), Ascii(row.m_CodecID) + Hex("00"));
            EXPECT_EQ(file.Has(kTrack + "CodecPrivate"), row.m_Placeholder > 0);
            if (row.m_Placeholder > 0) {
                EXPECT_EQ(file.Payload(kTrack + "CodecPrivate"), Zeros(row.m_Placeholder));
            }
            EXPECT_EQ(file.Unsigned(kTrack + "TrackNumber"), 2U);
            EXPECT_EQ(file.Unsigned(kTrack + "TrackType"), 2U);
            EXPECT_EQ(file.Unsigned(kTrack + "MinCache"), 1U);
            EXPECT_EQ(file.Unsigned(kTrack + "MaxCache"), 1U);
            EXPECT_EQ(file.Text(kTrack + "Language"), "und");
            EXPECT_EQ(file.Float(kTrack + "Audio/SamplingFrequency"), 44100.0F);
            EXPECT_EQ(file.Unsigned(kTrack + "Audio/Channels"), 2U);
            EXPECT_EQ(file.Unsigned(kTrack + "Audio/BitDepth"), 16U);
            EXPECT_FALSE(file.Has(kTrack + "DefaultDuration"));
            EXPECT_EQ(file.Has(kTrack + "FlagDefault"), webm);
            EXPECT_EQ(file.Has(kTrack + "FlagLacing"), webm);
        }
    }
}

TEST_F(TrackStreams, UnknownAudioCarriesAWaveFormat) {
    const struct {
        const char* m_What;
        FourCC m_FourCC;
        std::int32_t m_SampleRate, m_Channels, m_Bits;
        const char* m_Private;
    } rows[] = {
        // wFormatTag, nChannels, nSamplesPerSec, nAvgBytesPerSec, nBlockAlign, wBitsPerSample, cbSize 18.
        {"55 00", 0x00000055, 44100, 2, 16, "55 00 02 00 44 AC 00 00 10 B1 02 00 00 00 10 00 12 00"},
        {"only the first two characters count", MakeFourCC("WAVE"), 44100, 2, 16,
         "57 41 02 00 44 AC 00 00 10 B1 02 00 00 00 10 00 12 00"},
        // 1 x 11025 x 12 / 8 = 16537.5.
        {"the division truncates", 0x55, 11025, 1, 12, "55 00 01 00 11 2B 00 00 99 40 00 00 00 00 0C 00 12 00"},
        // -1 x 11025 x 12 / 8 = -16537.5, toward zero -16537 = FFFFBF67.
        {"toward zero", 0x55, 11025, -1, 12, "55 00 FF FF 11 2B 00 00 67 BF FF FF 00 00 0C 00 12 00"},
        // 2 x 2000000000 = 4000000000 - 2^32 = -294967296, x 8 = -2359738368 + 2^32 = 1935228928, / 8 = 241903616.
        {"the product wraps", 0x55, 2000000000, 2, 8, "55 00 02 00 00 94 35 77 00 28 6B 0E 00 00 08 00 12 00"},
        // The most negative number times -1 is itself; x 8 = 0.
        {"extremes", 0x55, INT32_MIN, -1, 8, "55 00 FF FF 00 00 00 80 00 00 00 00 00 00 08 00 12 00"},
        // -2^31 x 1 x 1 / 8 = -2^28 = F0000000.
        {"most negative rate", 0x55, INT32_MIN, 1, 1, "55 00 01 00 00 00 00 80 00 00 00 F0 00 00 01 00 12 00"},
        // 65537 channels and 65552 bits keep their low 16 bits; 65537 x 1 x 65552 = 4296081424 - 2^32 = 1114128,
        // / 8 = 139266 = 00022002.
        {"low 16 bits", 0x55, 1, 65537, 65552, "55 00 01 00 01 00 00 00 02 20 02 00 00 00 10 00 12 00"},
    };
    for (const auto& row : rows) {
        EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), row.m_FourCC);
        job.audioParam.sampleRate = row.m_SampleRate;
        job.audioParam.channels = row.m_Channels;
        job.audioParam.bitsPerSample = row.m_Bits;
        const Ebml::File file = AudioFile(m_Plugin, job);
        EXPECT_EQ(file.Payload(kTrack + "CodecID"), Ascii("A_MS/VFW/FOURCC") + Hex("00")) << row.m_What;
        EXPECT_EQ(file.Payload(kTrack + "CodecPrivate"), Hex(row.m_Private)) << row.m_What;
    }
}

TEST_F(TrackStreams, NumbersAreWidenedWithTheirSign) {
    EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 "));
    job.audioParam.sampleRate = -8000;
    job.audioParam.channels = -1;
    job.audioParam.bitsPerSample = INT32_MIN;
    const Ebml::File audio = AudioFile(m_Plugin, job);
    EXPECT_EQ(audio.Float(kTrack + "Audio/SamplingFrequency"), -8000.0F);
    EXPECT_EQ(audio.Payload(kTrack + "Audio/Channels"), Hex("FF FF FF FF FF FF FF FF"));
    EXPECT_EQ(audio.Payload(kTrack + "Audio/BitDepth"), Hex("FF FF FF FF 80 00 00 00"));

    job.audioParam.sampleRate = 16777217; // 2^24 + 1 is no single-precision number
    EXPECT_EQ(AudioFile(m_Plugin, job).Payload(kTrack + "Audio/SamplingFrequency"), Hex("4B 80 00 00"));

    job = MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("Xvid"));
    job.videoParam.width = -720;
    const Ebml::File video = VideoFile(m_Plugin, job);
    EXPECT_EQ(video.Payload(kTrack + "Video/PixelWidth"), Hex("FF FF FF FF FF FF FD 30"));
}

TEST_F(TrackStreams, HeightsAreMagnitudes) {
    const struct {
        std::int32_t m_Height;
        std::uint64_t m_Pixels;
        const char* m_InHeader;
    } rows[] = {
        {-576, 576, "C0 FD FF FF"},
        {576, 576, "40 02 00 00"},
        {0, 0, "00 00 00 00"},
        {INT32_MAX, 2147483647, "FF FF FF 7F"},
        {INT32_MIN, 2147483648, "00 00 00 80"},
        {-1, 1, "FF FF FF FF"},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
            EncodeParam job = MakeVideoJob(format, MakeFourCC("havc"));
            job.videoParam.width = 720;
            job.videoParam.height = row.m_Height;
            job.videoParam.bitCount = 0x12340020;
            const Ebml::File file = VideoFile(m_Plugin, job);
            EXPECT_EQ(file.Unsigned(kTrack + "Video/PixelWidth"), 720U);
            EXPECT_EQ(file.Unsigned(kTrack + "Video/PixelHeight"), row.m_Pixels);
            EXPECT_EQ(file.Payload(kTrack + "CodecPrivate"), Hex("28 00 00 00 D0 02 00 00") + Hex(row.m_InHeader) +
                                                                 Hex("01 00 20 00") + Ascii("X264") + Zeros(20));
        }
    }
}

TEST_F(TrackStreams, FrameRates) {
    const struct {
        double m_Rate;
        std::uint64_t m_Nanoseconds;
        const char* m_Single;
    } rows[] = {
        {25.0, 40000000, "41 C8 00 00"}, {29.97, 33366700, "41 EF C2 8F"}, // 33366700.03 is truncated
        {30.0, 33333333, "41 F0 00 00"}, {60.0, 16666666, "42 70 00 00"},  // 16666666.67 is truncated, not rounded
        {1e9, 1, "4E 6E 6B 28"},         {2e9, 0, "4E EE 6B 28"},          {0.001, 1000000000000, "3A 83 12 6F"},
    };
    for (const auto& row : rows) {
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
            EncodeParam job = MakeVideoJob(format, MakeFourCC("Xvid"));
            job.videoParam.frameRate = row.m_Rate;
            const Ebml::File file = VideoFile(m_Plugin, job);
            EXPECT_EQ(file.Unsigned(kTrack + "DefaultDuration"), row.m_Nanoseconds) << row.m_Rate;
            EXPECT_EQ(file.Payload(kTrack + "Video/FrameRate"), Hex(row.m_Single)) << row.m_Rate;
        }
    }
}

TEST_F(TrackStreams, ImpossibleFrameRatesDoNoHarm) {
    for (const double rate : {0.0, -0.0, -25.0, 1e-300, 1e300, std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::denorm_min()}) {
        for (const FourCC format : {MakeFourCC("MKV "), MakeFourCC("WEBM")}) {
            EncodeParam job = MakeVideoJob(format, MakeFourCC("Xvid"));
            job.videoParam.frameRate = rate;
            EXPECT_EQ(VideoFile(m_Plugin, job).Blocks().size(), 1U) << rate;
        }
    }
}

TEST_F(TrackStreams, DisplaySizeIsZeroAndWrittenWithoutOptions) {
    const Ebml::File file = VideoFile(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("Xvid")));
    EXPECT_EQ(file.Payload(kTrack + "Video/DisplayWidth"), Hex("00"));
    EXPECT_EQ(file.Payload(kTrack + "Video/DisplayHeight"), Hex("00"));
}

TEST_F(TrackStreams, EachUidIsOneRand) {
    FakeEnvironment::SetRand({0, 0x7FFFFFFF, 256});
    HostSession both(m_Plugin, MakeJob(MakeFourCC("MKV "), MakeFourCC("Xvid"), MakeFourCC("MP3 ")));
    both.Video(Hex("01"), 0, 1);
    const Ebml::File first = both.Finish();
    EXPECT_EQ(first.Payload("Segment/Tracks/TrackEntry[0]/TrackUID"), Hex("00"));
    EXPECT_EQ(first.Payload("Segment/Tracks/TrackEntry[1]/TrackUID"), Hex("7F FF FF FF"));
    const Ebml::File second = AudioFile(m_Plugin, MakeAudioJob(MakeFourCC("WEBM"), MakeFourCC("VBIS")));
    EXPECT_EQ(second.Payload("Segment/Tracks/TrackEntry[0]/TrackUID"), Hex("01 00"));
}

} // namespace
