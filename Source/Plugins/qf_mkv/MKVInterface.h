// The plug-in's face to a host: tables that say which file formats it writes and which codecs each accepts, and the
// functions that write a file. A host loads the library, finds these names in it and includes this header for their
// types. GetEncoders, GetFileFormats and GetMultiVersion have plain names; the functions below them are exported under
// their decorated (Itanium C++ ABI) names.
//
// The life of a file: CreateMediaFile; WriteVosData and WritezXPSData with codec set-up data, best before the first
// frame; WriteVideoPacket and WriteAudioPacket with frames, each kind in decoding order; CloseMediaFile.
// Calls come from one thread at a time. std::bad_alloc is the only exception that leaves the library; the call has then
// taken nothing in (an H.264 frame may have had its start codes overwritten), and the handle stays usable.
#pragma once

#include "HostRecords.h"

#define QF_EXPORT __attribute__((visibility("default")))
#if defined(__i386__)
// Hosts of older compilers align their stack to 4 octets only.
#define QF_ENTRY QF_EXPORT __attribute__((force_align_arg_pointer))
#else
#define QF_ENTRY QF_EXPORT
#endif

extern "C" {

// The formats: "MKV ", HMKV, "MKA " and WEBM, then the terminator. The library's own, valid while it is loaded.
QF_ENTRY FileFormatInfo* GetFileFormats();

// The encoders on offer: none, so the terminator. The library's own, valid while it is loaded.
QF_ENTRY EncoderInfo* GetEncoders();

// Writes the version, "5,0,0,14" with its terminating zero, 9 octets in all. Returns 8, or 0 for a null buffer.
QF_ENTRY int GetMultiVersion(char* buffer);

// The codecs of each format, ended by a fourCC of 0.
extern QF_EXPORT EncoderEntry MKVAudioEncoders[];
extern QF_EXPORT EncoderEntry MKVVideoEncoders[];
extern QF_EXPORT EncoderEntry HMKVAudioEncoders[];
extern QF_EXPORT EncoderEntry HMKVVideoEncoders[];
extern QF_EXPORT EncoderEntry WEBMAudioEncoders[];
extern QF_EXPORT EncoderEntry WEBMVideoEncoders[];

// What GetFileFormats and GetEncoders return.
extern QF_EXPORT FileFormatInfo FormatArray[];
extern QF_EXPORT EncoderInfo EncoderArray[];

// The muxing options that later Matroska files are created with. Set them through SetMuxParam.
extern QF_EXPORT MuxParam m_MuxParam;

// 1 while the file created last is a WebM file, else 0. Every call with a handle goes to the muxer that this flag
// names, not to the handle's own: one kind of file is open at a time, by design. A handle of the other kind is refused
// (0, or nothing happens), and closing it still completes its file.
extern QF_EXPORT std::uint32_t IsWebm;

} // extern "C"

// 1 for a format of the table, else 0. 0 is none.
QF_ENTRY int FindFileFormat(unsigned long format);

// There are no encoders: null, 0 and nothing, and no argument is looked at.
QF_ENTRY void* CreateEncoder(unsigned long fourCC, const EncodeParam* param);
QF_ENTRY int Encode(void* encoder, const MEDIA_FRAME* frame, MEDIA_FRAME** outFrame, int** outSizes);
QF_ENTRY void DestroyEncoder(void* encoder);

// Returns 1 and leaves the record as it is: every audio stream will do.
QF_ENTRY int ReviseAudioParam(AudioParam* param);

// Copies the options, null for none, and reduces the display aspect to its lowest terms. Files that are open keep
// theirs. Returns a number without meaning: displayAspectX when a term is 0, else the reduced displayAspectY.
QF_ENTRY int SetMuxParam(MuxParam* param);

// Creates path (UTF-32, cut at 2,047 octets of UTF-8) for the job and returns the handle, which CloseMediaFile ends.
// Returns null, with a message in the host's log, for a format that is not in the table, a file that does not open and
// lack of memory for the muxer; without a message for a null argument. Nothing is written before the first frames.
// A path whose last extension begins ".iso:" is a pseudo-file: all calls succeed and nothing is written.
QF_ENTRY void* CreateMediaFile(const wchar_t* path, const EncodeParam* param);

// Take one frame in and copy it. Return the octets taken; 0 when there is no such track, nothing to take, or a null
// handle or frame. On the H.264 start-code paths the frame's start codes are overwritten in the host's buffer.
// frameSizes: null for one audio frame, else a count n and the octets of n frames that lie end to end in audioData. A
// frame that would reach past audioSize ends the list; an audioSize of 0 or below leaves it to the table.
QF_ENTRY int WriteVideoPacket(void* handle, const MEDIA_FRAME* frame);
QF_ENTRY int WriteAudioPacket(void* handle, const MEDIA_FRAME* frame, int* frameSizes);

// AAC: the AudioSpecificConfig (ISO/IEC 14496-3). Vorbis: the three header packets, laced as in Matroska's
// CodecPrivate. Data for other codecs is ignored. After the first frames have been written the room is fixed: 1,024
// octets for AAC, 10,240 for Vorbis, or what came before; what does not fit is ignored.
QF_ENTRY void WriteVosData(void* handle, unsigned char* data, int length);

// H.264: one picture and one sequence parameter set, NAL units without start codes. MPEG-1/2: the sequence header in
// the second buffer, the first is not looked at. Data for other codecs is ignored. After the first frames have been
// written the room is fixed: 1,024 octets for H.264, or what came before; what does not fit is ignored.
QF_ENTRY void WritezXPSData(void* handle, unsigned char* pictureSet, int pictureSetLength, unsigned char* sequenceSet,
                            int sequenceSetLength);

// Completes and closes the file and ends the handle. The callback and its argument are accepted and never used.
// Does not fail: a file whose disk is full, or for whose index memory ran out, ends where it could be written.
QF_ENTRY void CloseMediaFile(void* handle, ProgressCallback progress, void* argument);
