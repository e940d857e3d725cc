// SPDX-License-Identifier: MIT
/// \file
/// The records that cross the boundary between the host and the plug-in.
///
/// The host fills and owns every record; the plug-in only reads them, and keeps no pointer into them beyond the call.
/// Host and plug-in are built separately, so positions and widths are the interface: each is asserted below, for 4-byte
/// and for 8-byte pointers. Fields named `host...` are the host's own: the plug-in does not interpret them.
///
/// Integers are little-endian, 64-bit members are aligned to 4, a wide character is one 32-bit unit (UTF-32).
#pragma once

#include <cstddef>
#include <cstdint>

static_assert(sizeof(wchar_t) == 4, "texts cross the boundary as UTF-32");
static_assert(sizeof(int) == 4, "the interface counts in 32-bit integers");

/// Four ASCII characters, the first in the lowest octet, padded with blanks: `H264` is 0x34363248.
using FourCC = std::uint32_t;

/// The code of four characters, as in `MakeFourCC("AAC ")`.
/// \param text four characters and the terminating zero
/// \return the code
constexpr FourCC MakeFourCC(const char (&text)[5]) {
    return static_cast<unsigned char>(text[0]) + static_cast<unsigned char>(text[1]) * 0x100U +
           static_cast<unsigned char>(text[2]) * 0x10000U + static_cast<unsigned char>(text[3]) * 0x1000000U;
}

#pragma pack(push, 4)

/// One video stream. The muxer copies it whole.
struct VideoParam {
    FourCC fourCC;              ///< H264 I264 A264 N264 havc MP1V MP2V MP4V Xvid "VP8 ", else Video-for-Windows
    std::int32_t width;         ///< pixels
    std::int32_t height;        ///< pixels; negative for a bottom-up picture of that magnitude
    double frameRate;           ///< frames per second, greater than 0
    unsigned char host20[24];   ///< the host's own
    std::int32_t bitCount;      ///< bits per pixel; the low 16 bits are used, in Video-for-Windows headers only
    unsigned char host48[6180]; ///< the host's own
};

/// One audio stream.
struct AudioParam {
    FourCC fourCC;              ///< "AAC " "AC3 " "MP3 " MP2A "DTS " "PCM " VBIS (Vorbis), else WAVEFORMATEX
    std::int32_t sampleRate;    ///< samples per second
    std::int32_t channels;      ///< channels
    unsigned char host12[12];   ///< the host's own
    std::int32_t bitsPerSample; ///< bits per sample; written for compressed codecs too
    unsigned char host28[6164]; ///< the host's own
};

/// One output job. A host's own record may be longer.
struct EncodeParam {
    VideoParam videoParam;      ///< even without video its fourCC "VP8 " makes the DocType "webm"
    AudioParam audioParam;      ///< not looked at when the job has no audio
    std::uint32_t disableVideo; ///< non-zero: the job has no video stream
    std::uint32_t disableAudio; ///< non-zero: the job has no audio stream
    FourCC formatFourCC;        ///< "MKV " HMKV "MKA " WEBM
};

/// Muxing options of the Matroska formats, see SetMuxParam.
struct MuxParam {
    std::uint32_t host0;         ///< the host's own
    std::uint32_t muxFlags;      ///< bit 0: write the display aspect below as the video track's display size
    std::uint32_t host8;         ///< the host's own
    std::int32_t displayAspectX; ///< used when both terms are greater than 0
    std::int32_t displayAspectY; ///< the other term
    std::uint32_t host20;        ///< the host's own
};

/// One compressed frame. Audio and video use different fields for their octets. A host's own record may be longer.
struct MEDIA_FRAME {
    unsigned char host0[12];             ///< the host's own
    unsigned char* videoData;            ///< read by WriteVideoPacket, rewritten on the H.264 start-code paths
    std::int32_t videoSize;              ///< octets at videoData
    unsigned char* audioData;            ///< one audio frame, or several end to end
    std::int32_t audioSize;              ///< octets at audioData
    unsigned char hostAfterAudio[28];    ///< the host's own
    std::uint32_t frameFlags;            ///< video: non-zero when the frame needs no other; not read for audio
    unsigned char hostAfterFlags[24];    ///< the host's own
    std::int64_t timestamp;              ///< start, 100 ns units
    unsigned char hostAfterTimestamp[8]; ///< the host's own
    std::int32_t duration;               ///< 100 ns units; below 1 counts as 1 where the frame's end is formed
};

/// One codec that a format accepts. A list ends with a fourCC of 0.
struct EncoderEntry {
    FourCC fourCC;          ///< the codec, as in VideoParam and AudioParam
    std::uint32_t reserved; ///< 0
};

/// One encoder of a plug-in that offers encoders. This plug-in offers none: its table is the terminator, all zero.
struct EncoderInfo {
    FourCC fourCC;            ///< 0 ends the table
    unsigned char host4[848]; ///< not used here
};

/// Progress of CloseMediaFile. Accepted and never called: closing is synchronous and reports nothing.
using ProgressCallback = unsigned int (*)(void*, unsigned int, unsigned int, unsigned int);

/// One file format: its names, the codecs that it accepts and the functions that write it.
/// A table of formats ends with a fourCC of 0. The functions are the exported functions of the same names.
struct FileFormatInfo {
    FourCC fourCC;               ///< "MKV " HMKV "MKA " WEBM; 0 ends the table
    wchar_t extension[10];       ///< with its dot
    wchar_t shortName[64];       ///< a name for lists
    wchar_t description[128];    ///< a line for lists
    EncoderEntry* audioEncoders; ///< the audio codecs, ended by a fourCC of 0
    EncoderEntry* videoEncoders; ///< the video codecs likewise; null: the format has no video
    void* (*CreateMediaFile)(const wchar_t*, const EncodeParam*);           ///< see CreateMediaFile
    int (*WriteAudioPacket)(void*, const MEDIA_FRAME*, int*);               ///< see WriteAudioPacket
    int (*WriteVideoPacket)(void*, const MEDIA_FRAME*);                     ///< null: the format has no video
    void (*CloseMediaFile)(void*, ProgressCallback, void*);                 ///< see CloseMediaFile
    void (*WriteVosData)(void*, unsigned char*, int);                       ///< see WriteVosData
    void (*WritezXPSData)(void*, unsigned char*, int, unsigned char*, int); ///< null: the format has no video
    void (*spare)();                                                        ///< null in every record
    int (*SetMuxParam)(MuxParam*);                                          ///< null: the format takes no options
};

#pragma pack(pop)

// The positions, word size by word size.
#define QF_ASSERT_AT(record, field, position) static_assert(offsetof(record, field) == (position), #record "." #field)
#define QF_ASSERT_AT_PER_ABI(record, field, position32, position64)                                                    \
    QF_ASSERT_AT(record, field, sizeof(void*) == 4 ? (position32) : (position64))

QF_ASSERT_AT(VideoParam, fourCC, 0);
QF_ASSERT_AT(VideoParam, width, 4);
QF_ASSERT_AT(VideoParam, height, 8);
QF_ASSERT_AT(VideoParam, frameRate, 12);
QF_ASSERT_AT(VideoParam, bitCount, 44);
static_assert(sizeof(VideoParam) == 6228, "VideoParam");

QF_ASSERT_AT(AudioParam, fourCC, 0);
QF_ASSERT_AT(AudioParam, sampleRate, 4);
QF_ASSERT_AT(AudioParam, channels, 8);
QF_ASSERT_AT(AudioParam, bitsPerSample, 24);
static_assert(sizeof(AudioParam) == 6192, "AudioParam");

QF_ASSERT_AT(EncodeParam, videoParam, 0);
QF_ASSERT_AT(EncodeParam, audioParam, 6228);
QF_ASSERT_AT(EncodeParam, disableVideo, 12420);
QF_ASSERT_AT(EncodeParam, disableAudio, 12424);
QF_ASSERT_AT(EncodeParam, formatFourCC, 12428);
static_assert(sizeof(EncodeParam) == 12432, "EncodeParam");

QF_ASSERT_AT(MuxParam, muxFlags, 4);
QF_ASSERT_AT(MuxParam, displayAspectX, 12);
QF_ASSERT_AT(MuxParam, displayAspectY, 16);
static_assert(sizeof(MuxParam) == 24, "MuxParam");

QF_ASSERT_AT(MEDIA_FRAME, videoData, 12);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, videoSize, 16, 20);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, audioData, 20, 24);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, audioSize, 24, 32);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, frameFlags, 56, 64);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, timestamp, 84, 92);
QF_ASSERT_AT_PER_ABI(MEDIA_FRAME, duration, 100, 108);
static_assert(sizeof(MEDIA_FRAME) == (sizeof(void*) == 4 ? 104 : 112), "MEDIA_FRAME");

QF_ASSERT_AT(EncoderEntry, fourCC, 0);
static_assert(sizeof(EncoderEntry) == 8, "EncoderEntry");

QF_ASSERT_AT(EncoderInfo, fourCC, 0);
static_assert(sizeof(EncoderInfo) == 852, "EncoderInfo");

QF_ASSERT_AT(FileFormatInfo, fourCC, 0);
QF_ASSERT_AT(FileFormatInfo, extension, 4);
QF_ASSERT_AT(FileFormatInfo, shortName, 44);
QF_ASSERT_AT(FileFormatInfo, description, 300);
QF_ASSERT_AT(FileFormatInfo, audioEncoders, 812);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, videoEncoders, 816, 820);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, CreateMediaFile, 820, 828);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, WriteAudioPacket, 824, 836);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, WriteVideoPacket, 828, 844);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, CloseMediaFile, 832, 852);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, WriteVosData, 836, 860);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, WritezXPSData, 840, 868);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, spare, 844, 876);
QF_ASSERT_AT_PER_ABI(FileFormatInfo, SetMuxParam, 848, 884);
static_assert(sizeof(FileFormatInfo) == (sizeof(void*) == 4 ? 852 : 892), "FileFormatInfo");

#undef QF_ASSERT_AT_PER_ABI
#undef QF_ASSERT_AT
