// SPDX-License-Identifier: MIT
// Whole files, octet by octet. The expected octets were assembled by hand: every length and position below is a sum
// that stands beside it. No value was copied from the program's output.
#include "HostTest.h"

namespace {

using WholeFiles = HostTest;

// Info, 5 + 51 = 56 octets, the same in every file but for its Duration.
Octets Info(const char* duration) {
    return Join({
        Hex("15 49 A9 66 B3"),           // Info, 7 + 7 + 11 + 26 = 51
        Hex("2A D7 B1 83 0F 42 40"),     //   TimestampScale 1000000
        Hex("44 89 84") + Hex(duration), //   Duration, single precision, milliseconds
        // DateUTC, in ns: 725760000 s after 2001-01-01, and one hour more, because mktime takes a claim of summer time
        // for an hour's shift where the zone (UTC) has none.
        Hex("44 61 88 0A 12 6E 26 20 E8 A0 00"),
        Hex("4D 80 97") + Ascii("Tarnwell Matroska Muxer"), //   MuxingApp, 23
    });
}

// The room in front, 4099 octets: a seek head of 65 and the filler behind it.
Octets ReservedRoom(const char* tracks, const char* cues, const char* index) {
    return Join({
        Hex("11 4D 9B 74 BC"),                                       // SeekHead, 4 x 15 = 60
        Hex("4D BB 8C 53 AB 84 15 49 A9 66 53 AC 82 10 03"),         //   Seek: Info at 4099
        Hex("4D BB 8C 53 AB 84 16 54 AE 6B 53 AC 82") + Hex(tracks), // Seek: Tracks
        Hex("4D BB 8C 53 AB 84 1C 53 BB 6B 53 AC 82") + Hex(cues),   // Seek: Cues
        Hex("4D BB 8C 53 AB 84 11 4D 9B 74 53 AC 82") + Hex(index),  // Seek: the cluster index
        Hex("EC 4F BF") + Zeros(4031),                               // Void, 3 + 4031 = 4099 - 65
    });
}

TEST_F(WholeFiles, MkvOfH264AndAacWithSetUpDataFirst) {
    FakeEnvironment::SetRand({0x11223344, 0x55});
    MuxParam mux{};
    mux.muxFlags = 1;
    mux.displayAspectX = 1920;
    mux.displayAspectY = 1080;
    m_Plugin.SetMuxParam(&mux);
    EncodeParam job = MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC "));
    job.videoParam.height = -240;
    HostSession session(m_Plugin, job);
    session.XpsData(Hex("68 CE 38 80"), Hex("67 42 C0 1E D9 40"));
    session.VosData(Hex("12 10"));
    EXPECT_EQ(session.Video(Hex("00 00 00 02 65 88"), 0, 400000, kKey), 6);
    EXPECT_EQ(session.Audio(Hex("21 10"), 0, 5000000), 2);
    EXPECT_EQ(session.Video(Hex("00 00 00 02 41 9A"), 400000, 400000, kDelta), 6);
    EXPECT_EQ(session.Audio(Hex("21 11"), 5000000, 5000000), 2);
    EXPECT_EQ(session.Video(Hex("00 00 00 03 65 88 84"), 10400000, 400000, kKey), 7);
    EXPECT_EQ(session.Audio(Hex("21 12 13"), 10000000, 5000000), 3);

    const Octets expected = Join({
        Hex("1A 45 DF A3 93"),                               // EBML, 11 + 4 + 4 = 19
        Hex("42 82 88") + Ascii("matroska"),                 //   DocType
        Hex("42 87 81 01"),                                  //   DocTypeVersion 1
        Hex("42 85 81 01"),                                  //   DocTypeReadVersion 1
        Hex("18 53 80 67 01 00 00 00 00 00 11 84"),          // Segment, 4099 + 56 + 166 + 70 + 24 + 34 + 35 = 4484
        ReservedRoom("10 3B", "11 3F", "11 61"),             // at 0: Tracks at 4155, Cues at 4415, index at 4449
        Info("44 BB 80 00"),                                 // at 4099: 3 x 500 ms of audio = 1500.0
        Hex("16 54 AE 6B 40 A0"),                            // at 4155: Tracks, 105 + 55 = 160
        Hex("AE E7"),                                        //   TrackEntry, 103
        Hex("D7 81 01"),                                     //     TrackNumber 1
        Hex("73 C5 84 11 22 33 44"),                         //     TrackUID, the first rand
        Hex("83 81 01"),                                     //     TrackType video
        Hex("6D E7 81 01 6D F8 81 01"),                      //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),                   //     Language
        Hex("86 90") + Ascii("V_MPEG4/ISO/AVC") + Hex("00"), // CodecID, with its zero octet
        Hex("63 A2 95"),                                     //     CodecPrivate, 6 + 2 + 6 + 1 + 2 + 4 = 21
        Hex("01 42 C0 1E FF E1"),                  //       profile, compatibility and level of the set; one set
        Hex("00 06 67 42 C0 1E D9 40"),            //       the sequence parameter set
        Hex("01 00 04 68 CE 38 80"),               //       one picture parameter set
        Hex("23 E3 83 84 02 62 5A 00"),            //     DefaultDuration 40000000 ns
        Hex("E0 97"),                              //     Video, 4 + 3 + 4 + 4 + 8 = 23
        Hex("B0 82 01 40"),                        //       PixelWidth 320
        Hex("BA 81 F0"),                           //       PixelHeight 240, the magnitude
        Hex("54 B0 81 10 54 BA 81 09"),            //       DisplayWidth 16, DisplayHeight 9
        Hex("23 83 E3 84 41 C8 00 00"),            //       FrameRate 25.0
        Hex("AE B5"),                              //   TrackEntry, 53
        Hex("D7 81 02"),                           //     TrackNumber 2
        Hex("73 C5 81 55"),                        //     TrackUID, the second rand
        Hex("83 81 02"),                           //     TrackType audio
        Hex("6D E7 81 01 6D F8 81 01"),            //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),         //     Language
        Hex("86 86") + Ascii("A_AAC") + Hex("00"), //     CodecID
        Hex("63 A2 82 12 10"),                     //     CodecPrivate, as given
        Hex("E1 8D"),                              //     Audio, 6 + 3 + 4 = 13
        Hex("B5 84 47 2C 44 00"),                  //       SamplingFrequency 44100.0
        Hex("9F 81 02"),                           //       Channels 2
        Hex("62 64 81 10"),                        //       BitDepth 16
        Hex("1F 43 B6 75 C1"),                     // at 4321: Cluster, 3 + 14 + 10 + 17 + 10 + 11 = 65
        Hex("E7 81 00"),                           //   Timestamp 0
        Hex("A0 8C A1 8A 81 00 00 00") + Hex("00 00 00 02 65 88"),    // video at 0: first where times are equal
        Hex("A0 88 A1 86 82 00 00 00") + Hex("21 10"),                // audio at 0
        Hex("A0 8F FB 81 D8"),                                        //   BlockGroup with a ReferenceBlock of -40
        Hex("A1 8A 81 00 28 00") + Hex("00 00 00 02 41 9A"),          // video at 40
        Hex("A0 88 A1 86 82 01 F4 00") + Hex("21 11"),                // audio at 500
        Hex("A0 89 A1 87 82 03 E8 00") + Hex("21 12 13"),             // audio at 1000: still in this span
        Hex("1F 43 B6 75 93"),                                        // at 4391: Cluster, 4 + 15 = 19
        Hex("E7 82 03 E8"),                                           //   Timestamp 1000
        Hex("A0 8D A1 8B 81 00 28 00") + Hex("00 00 00 03 65 88 84"), // video at 1040
        Hex("1C 53 BB 6B 9D"),                                        // at 4415: Cues, 14 + 15 = 29
        Hex("BB 8C B3 81 00"),                                        //   CuePoint at 0
        Hex("B7 87 F7 81 01 F1 82 10 E1"),                            //     track 1, cluster at 4321
        Hex("BB 8D B3 82 04 10"),                                     //   CuePoint at 1040
        Hex("B7 87 F7 81 01 F1 82 11 27"),                            //     track 1, cluster at 4391
        Hex("11 4D 9B 74 9E"),                                        // at 4449: SeekHead, the cluster index, 30
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 10 E1"),          // Seek: Cluster at 4321
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 11 27"),          // Seek: Cluster at 4391
    });
    ASSERT_EQ(expected.size(), 36U + 4484U);
    ExpectSameFile(expected, session.Close());
}

TEST_F(WholeFiles, MkaOfMp3) {
    FakeEnvironment::SetRand({0x7FFFFFFF});
    EncodeParam job = MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("MP3 "));
    job.audioParam.sampleRate = 48000;
    job.audioParam.channels = 1;
    job.audioParam.bitsPerSample = 0;
    HostSession session(m_Plugin, job);
    EXPECT_EQ(session.Audio(Hex("FF FB 90 01"), 50000000, 261224), 4); // 5000 ms
    EXPECT_EQ(session.Audio(Hex("FF FB 90 02"), 50261224, 261224), 4); // 5026 ms
    EXPECT_EQ(session.Audio(Hex("FF"), 50522448, 261224), 1);          // 5052 ms

    const Octets expected = Join({
        Hex("1A 45 DF A3 93"),                         // EBML, 19
        Hex("42 82 88") + Ascii("matroska"),           //   DocType
        Hex("42 87 81 01 42 85 81 01"),                //   DocTypeVersion 1, DocTypeReadVersion 1
        Hex("18 53 80 67 01 00 00 00 00 00 10 C9"),    // Segment, 4099 + 56 + 62 + 41 + 19 + 20 = 4297
        ReservedRoom("10 3B", "10 A2", "10 B5"),       // Tracks at 4155, Cues at 4258, index at 4277
        Info("42 9C BC 02"),                           // 3 x 261224 x 100 ns = 78.3672 ms
        Hex("16 54 AE 6B B9"),                         // at 4155: Tracks, 57
        Hex("AE B7"),                                  //   TrackEntry, 55
        Hex("D7 81 02"),                               //     TrackNumber 2, without a track 1
        Hex("73 C5 84 7F FF FF FF"),                   //     TrackUID
        Hex("83 81 02"),                               //     TrackType audio
        Hex("6D E7 81 01 6D F8 81 01"),                //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),             //     Language
        Hex("86 8A") + Ascii("A_MPEG/L3") + Hex("00"), //    CodecID
        Hex("E1 8D"),                                  //     Audio, 13
        Hex("B5 84 47 3B 80 00"),                      //       SamplingFrequency 48000.0
        Hex("9F 81 01"),                               //       Channels 1
        Hex("62 64 81 00"),                            //       BitDepth 0, written
        Hex("1F 43 B6 75 A4"),                         // at 4217: Cluster, 3 + 12 + 12 + 9 = 36
        Hex("E7 81 00"),                               //   Timestamp 0: the first block is time zero
        Hex("A0 8A A1 88 82 00 00 00") + Hex("FF FB 90 01"),
        Hex("A0 8A A1 88 82 00 1A 00") + Hex("FF FB 90 02"), // 5026 - 5000
        Hex("A0 87 A1 85 82 00 34 00") + Hex("FF"),          // 5052 - 5000
        Hex("1C 53 BB 6B 8E"),                               // at 4258: Cues, 14
        Hex("BB 8C B3 81 00"),                               //   CuePoint at 0
        Hex("B7 87 F7 81 02 F1 82 10 79"),                   //     track 2, cluster at 4217
        Hex("11 4D 9B 74 8F"),                               // at 4277: SeekHead, the cluster index, 15
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 10 79"),
    });
    ASSERT_EQ(expected.size(), 36U + 4297U);
    ExpectSameFile(expected, session.Close());
}

TEST_F(WholeFiles, WebmOfVp8AndVorbis) {
    FakeEnvironment::SetRand({7, 8});
    EncodeParam job = MakeJob(MakeFourCC("WEBM"), MakeFourCC("VP8 "), MakeFourCC("VBIS"));
    job.videoParam.width = 176;
    job.videoParam.height = 144;
    job.videoParam.frameRate = 30;
    job.audioParam.sampleRate = 48000;
    HostSession session(m_Plugin, job);
    session.VosData(Hex("02 01 01 76 6F 72 78"));
    EXPECT_EQ(session.Video(Hex("9D 01 2A"), 0, 333333, kKey), 3);
    EXPECT_EQ(session.Video(Hex("31"), 333333, 333333, kDelta), 1);
    EXPECT_EQ(session.Audio(Hex("A0 A1"), 0, 500000), 2);                // both kinds seen: all three are drained
    EXPECT_EQ(session.Video(Hex("32 33"), 12000000, 333333, kDelta), 2); // from now on each at once
    EXPECT_EQ(session.Audio(Hex("A2"), 11000000, 500000), 1);
    EXPECT_EQ(session.Audio(Hex("A3"), 12000000, 500000), 1);

    const Octets expected = Join({
        Hex("1A 45 DF A3 9F"),                        // EBML, 4 x 4 + 7 + 2 x 4 = 31
        Hex("42 86 81 01 42 F7 81 01"),               //   EBMLVersion 1, EBMLReadVersion 1
        Hex("42 F2 81 04 42 F3 81 08"),               //   EBMLMaxIDLength 4, EBMLMaxSizeLength 8
        Hex("42 82 84") + Ascii("webm"),              //   DocType
        Hex("42 87 81 02 42 85 81 02"),               //   DocTypeVersion 2, DocTypeReadVersion 2
        Hex("18 53 80 67 01 00 00 00 00 00 11 4D"),   // Segment, 4099 + 56 + 142 + 32 + 31 + 34 + 35 = 4429
        ReservedRoom("10 3B", "11 08", "11 2A"),      // Tracks at 4155, Cues at 4360, index at 4394
        Info("44 96 20 00"),                          // 150 ms of audio is more than 1 s off 1200: 1200 + 1
        Hex("16 54 AE 6B 40 88"),                     // at 4155: Tracks, 67 + 69 = 136
        Hex("AE C1"),                                 //   TrackEntry, 65
        Hex("D7 81 01"),                              //     TrackNumber 1
        Hex("73 C5 81 07"),                           //     TrackUID
        Hex("83 81 01"),                              //     TrackType video
        Hex("6D E7 81 01 6D F8 81 01"),               //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),            //     Language
        Hex("86 86") + Ascii("V_VP8") + Hex("00"),    //     CodecID
        Hex("23 E3 83 84 01 FC A0 55"),               //     DefaultDuration 33333333 ns
        Hex("E0 96"),                                 //     Video, 3 + 3 + 4 + 4 + 8 = 22
        Hex("B0 81 B0 BA 81 90"),                     //       PixelWidth 176, PixelHeight 144
        Hex("54 B0 81 00 54 BA 81 00"),               //       DisplayWidth 0, DisplayHeight 0, both written
        Hex("23 83 E3 84 41 F0 00 00"),               //       FrameRate 30.0
        Hex("AE C3"),                                 //   TrackEntry, 67
        Hex("D7 81 02"),                              //     TrackNumber 2
        Hex("73 C5 81 08"),                           //     TrackUID
        Hex("83 81 02"),                              //     TrackType audio
        Hex("88 81 01 9C 81 01"),                     //     FlagDefault 1, FlagLacing 1
        Hex("6D E7 81 01 6D F8 81 01"),               //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),            //     Language
        Hex("86 89") + Ascii("A_VORBIS") + Hex("00"), //     CodecID
        Hex("63 A2 87 02 01 01 76 6F 72 78"),         //     CodecPrivate, as given
        Hex("E1 8D"),                                 //     Audio, 13
        Hex("B5 84 47 3B 80 00"),                     //       SamplingFrequency 48000.0
        Hex("9F 81 02 62 64 81 10"),                  //       Channels 2, BitDepth 16
        Hex("1F 43 B6 75 9B"),                        // at 4297: Cluster, 3 + 9 + 8 + 7 = 27
        Hex("E7 81 00"),                              //   Timestamp 0
        Hex("A3 87 81 00 00 80") + Hex("9D 01 2A"),   //   SimpleBlock: video at 0, key frame
        Hex("A3 86 82 00 00 80") + Hex("A0 A1"),      //   SimpleBlock: audio at 0, always a key frame
        Hex("A3 85 81 00 21 00") + Hex("31"),         //   SimpleBlock: video at 33
        Hex("1F 43 B6 75 9A"),                        // at 4329: Cluster, 4 + 8 + 7 + 7 = 26
        Hex("E7 82 03 E8"),                           //   Timestamp 1000
        Hex("A3 86 81 00 C8 00") + Hex("32 33"),      //   SimpleBlock: video at 1200, no key frame, cued all the same
        Hex("A3 85 82 00 64 80") + Hex("A2"),         //   SimpleBlock: audio at 1100, as it arrived
        Hex("A3 85 82 00 C8 80") + Hex("A3"),         //   SimpleBlock: audio at 1200
        Hex("1C 53 BB 6B 9D"),                        // at 4360: Cues, 14 + 15 = 29
        Hex("BB 8C B3 81 00 B7 87 F7 81 01 F1 82 10 C9"),    // time 0, cluster at 4297
        Hex("BB 8D B3 82 04 B0 B7 87 F7 81 01 F1 82 10 E9"), // time 1200, cluster at 4329
        Hex("11 4D 9B 74 9E"),                               // at 4394: SeekHead, the cluster index, 30
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 10 C9"),
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 10 E9"),
    });
    ASSERT_EQ(expected.size(), 48U + 4429U);
    ExpectSameFile(expected, session.Close());
}

// The TrackEntry of an H.264 video track, 3 + 1104 octets, from its TrackUID of 1 to its Video.
Octets H264TrackEntry(const Octets& codecPrivate) {
    return Join({
        Hex("AE 44 50"),                   // TrackEntry, 3 + 4 + 3 + 8 + 7 + 18 + 1028 + 8 + 25 = 1104
        Hex("D7 81 01"),                   //   TrackNumber 1
        Hex("73 C5 81 01"),                //   TrackUID
        Hex("83 81 01"),                   //   TrackType video
        Hex("6D E7 81 01 6D F8 81 01"),    //   MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"), //   Language
        Hex("86 90") + Ascii("V_MPEG4/ISO/AVC") + Hex("00"), //   CodecID
        Hex("63 A2 44 00"), codecPrivate,                    //   CodecPrivate, 1024
        Hex("23 E3 83 84 02 62 5A 00"),                      //   DefaultDuration 40000000 ns
        Hex("E0 97"),                                        //   Video, 23
        Hex("B0 82 01 40 BA 81 F0"),                         //     PixelWidth 320, PixelHeight 240
        Hex("54 B0 81 00 54 BA 81 00"),                      //     DisplayWidth 0, DisplayHeight 0
        Hex("23 83 E3 84 41 C8 00 00"),                      //     FrameRate 25.0
    });
}

TEST_F(WholeFiles, N264WithItsPlaceholder) {
    HostSession session(m_Plugin, MakeVideoJob(MakeFourCC("MKV "), MakeFourCC("N264")));
    // Sequence set, picture set, two slices of one IDR picture.
    EXPECT_EQ(session.Video(Hex("00 00 00 01 67 42 00 00 00 01 68 CE 00 00 00 01 65 B8 00 00 00 01 65 B9 77"), 0,
                            400000, kDelta),
              13);
    // Access unit delimiter and a slice.
    EXPECT_EQ(session.Video(Hex("00 00 00 01 09 F0 00 00 00 01 41 9A"), 400000, 400000, kKey), 6);

    const Octets expected = Join({
        Hex("1A 45 DF A3 93"),                      // EBML, 19
        Hex("42 82 88") + Ascii("matroska"),        //   DocType
        Hex("42 87 81 01 42 85 81 01"),             //   DocTypeVersion 1, DocTypeReadVersion 1
        Hex("18 53 80 67 01 00 00 00 00 00 14 F4"), // Segment, 4099 + 56 + 1113 + 57 + 19 + 20 = 5364
        ReservedRoom("10 3B", "14 CD", "14 E0"),    // Tracks at 4155, Cues at 5325, index at 5344
        Info("00 00 00 00"),                        // no audio, not longer than a second: 0.0
        Hex("16 54 AE 6B 44 53"),                   // at 4155: Tracks, 1107
        H264TrackEntry(Zeros(1024)),                //   the placeholder
        Hex("1F 43 B6 75 B4"),                      // at 5268: Cluster, 3 + 14 + 18 + 17 = 52
        Hex("E7 81 00"),                            //   Timestamp 0
        Hex("A0 8C A1 8A 81 00 00 00") + Hex("00 00 00 02 65 B8"),
        Hex("A0 90 FB 81 00"), //   the second slice refers to its own time
        Hex("A1 8B 81 00 00 00") + Hex("00 00 00 03 65 B9 77"),
        Hex("A0 8F FB 81 D8"), //   ReferenceBlock -40: the unit's type decides, not the flags
        Hex("A1 8A 81 00 28 00") + Hex("00 00 00 02 41 9A"),
        Hex("1C 53 BB 6B 8E"),                            // at 5325: Cues, 14
        Hex("BB 8C B3 81 00 B7 87 F7 81 01 F1 82 14 94"), // time 0, cluster at 5268
        Hex("11 4D 9B 74 8F"),                            // at 5344: SeekHead, the cluster index, 15
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 14 94"),
    });
    ASSERT_EQ(expected.size(), 36U + 5364U);
    ExpectSameFile(expected, session.Close());
}

TEST_F(WholeFiles, LosslessH264AndAacWithLateSetUpData) {
    HostSession session(m_Plugin, MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC ")));
    // Delimiter, sequence set, picture set, supplemental information (not kept), IDR slice.
    EXPECT_EQ(session.Video(Hex("00 00 00 01 09 10 00 00 00 01 67 64 00 00 00 01 68 EE "
                                "00 00 00 01 06 05 00 00 00 01 65 88"),
                            0, 400000, kKey),
              24);
    for (unsigned char i = 0; i < 5; ++i) {
        EXPECT_EQ(session.Audio({static_cast<unsigned char>(0x21 + i)}, i * 200000, 200000), 1);
    }
    // The fifth audio frame had everything written, so both sets of data go into their placeholders.
    session.VosData(Hex("12 10"));
    session.XpsData(Hex("68 EE 3C"), Hex("67 64 00 0A AC"));
    EXPECT_EQ(session.Video(Hex("00 00 00 01 41 9A 02"), 400000, 400000, kDelta), 7);

    const Octets expected = Join({
        Hex("1A 45 DF A3 93"),                      // EBML, 19
        Hex("42 82 88") + Ascii("matroska"),        //   DocType
        Hex("42 87 81 01 42 85 81 01"),             //   DocTypeVersion 1, DocTypeReadVersion 1
        Hex("18 53 80 67 01 00 00 00 00 00 19 59"), // Segment, 4099 + 56 + 2192 + 103 + 19 + 20 = 6489
        ReservedRoom("10 3B", "19 32", "19 45"),    // Tracks at 4155, Cues at 6450, index at 6469
        Info("42 C8 00 00"),                        // 5 x 20 ms of audio = 100.0
        Hex("16 54 AE 6B 48 8A"),                   // at 4155: Tracks, 1107 + 1079 = 2186
        H264TrackEntry(Hex("01 64 00 0A FF E1 00 05 67 64 00 0A AC 01 00 03 68 EE 3C") + Zeros(1024 - 19)),
        Hex("AE 44 34"),                           //   TrackEntry, 3 + 4 + 3 + 8 + 7 + 8 + 1028 + 15 = 1076
        Hex("D7 81 02"),                           //     TrackNumber 2
        Hex("73 C5 81 02"),                        //     TrackUID
        Hex("83 81 02"),                           //     TrackType audio
        Hex("6D E7 81 01 6D F8 81 01"),            //     MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"),         //     Language
        Hex("86 86") + Ascii("A_AAC") + Hex("00"), //     CodecID
        Hex("63 A2 44 00 12 10"),
        Zeros(1022),                    //     CodecPrivate, 1024
        Hex("E1 8D B5 84 47 2C 44 00"), //     Audio, 13: SamplingFrequency 44100.0
        Hex("9F 81 02 62 64 81 10"),    //       Channels 2, BitDepth 16
        Hex("1F 43 B6 75 E2"),          // at 6347: Cluster, 3 + 32 + 5 x 9 + 18 = 98
        Hex("E7 81 00"),                //   Timestamp 0
        Hex("A0 9E A1 9C 81 00 00 00"), //   the kept units, each behind its length
        Hex("00 00 00 02 09 10 00 00 00 02 67 64 00 00 00 02 68 EE 00 00 00 02 65 88"),
        Hex("A0 87 A1 85 82 00 00 00 21"),
        Hex("A0 87 A1 85 82 00 14 00 22"),
        Hex("A0 87 A1 85 82 00 28 00 23"),
        Hex("A0 87 A1 85 82 00 3C 00 24"),
        Hex("A0 87 A1 85 82 00 50 00 25") + Hex("A0 90 FB 81 D8 A1 8B 81 00 28 00"),
        Hex("00 00 00 03 41 9A 02"),                      // drained last, at 40
        Hex("1C 53 BB 6B 8E"),                            // at 6450: Cues, 14
        Hex("BB 8C B3 81 00 B7 87 F7 81 01 F1 82 18 CB"), // time 0, cluster at 6347
        Hex("11 4D 9B 74 8F"),                            // at 6469: SeekHead, the cluster index, 15
        Hex("4D BB 8C 53 AB 84 1F 43 B6 75 53 AC 82 18 CB"),
    });
    ASSERT_EQ(expected.size(), 36U + 6489U);
    ExpectSameFile(expected, session.Close());
}

} // namespace
