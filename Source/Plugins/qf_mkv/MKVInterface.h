// SPDX-License-Identifier: MIT
/// \file
/// The plug-in's interface to a host: tables of the file formats that it writes and the codecs that each accepts, and
/// the functions that write a file. A host loads the library, finds these names in it and includes this header for
/// their types. GetEncoders, GetFileFormats and GetMultiVersion have plain names; the functions below them are exported
/// under their decorated (Itanium C++ ABI) names.
///
/// The life of a file: CreateMediaFile; WriteVosData and WritezXPSData with codec set-up data, best before the first
/// frame; WriteVideoPacket and WriteAudioPacket with frames, each kind in decoding order; CloseMediaFile.
/// Calls come from one thread at a time. std::bad_alloc is the only exception that leaves the library; the call has
/// then taken nothing in (an H.264 frame may have had its start codes overwritten), and the handle stays usable. A host
/// that is not written in C++ cannot catch it, and the process ends.
#pragma once

#include "HostRecords.h"

/// An exported name.
#define QF_EXPORT __attribute__((visibility("default")))
#if defined(__i386__)
/// A function that a host calls. Hosts of older compilers align their stack to 4 octets only.
#define QF_ENTRY QF_EXPORT __attribute__((force_align_arg_pointer))
#else
/// A function that a host calls.
#define QF_ENTRY QF_EXPORT
#endif

extern "C" {

/// The formats: "MKV ", HMKV, "MKA " and WEBM, then the terminator. "MKA " has no video: its videoEncoders,
/// WriteVideoPacket and WritezXPSData are null. SetMuxParam is null in all records but the first, spare in all.
/// \return FormatArray, the library's own, valid while it is loaded
QF_ENTRY FileFormatInfo* GetFileFormats();

/// The encoders: none, so the table is the terminator.
/// \return EncoderArray, the library's own, valid while it is loaded
QF_ENTRY EncoderInfo* GetEncoders();

/// Writes the version, "5,0,0,14" with its terminating zero.
/// \param buffer room for 9 octets, the host's; or null
/// \return 8, or 0 for a null buffer
QF_ENTRY int GetMultiVersion(char* buffer);

extern QF_EXPORT EncoderEntry MKVAudioEncoders[];  ///< audio codecs of "MKV " and "MKA ", ended by a fourCC of 0
extern QF_EXPORT EncoderEntry MKVVideoEncoders[];  ///< video codecs of "MKV "
extern QF_EXPORT EncoderEntry HMKVAudioEncoders[]; ///< audio codecs of HMKV
extern QF_EXPORT EncoderEntry HMKVVideoEncoders[]; ///< video codecs of HMKV
extern QF_EXPORT EncoderEntry WEBMAudioEncoders[]; ///< audio codecs of WEBM
extern QF_EXPORT EncoderEntry WEBMVideoEncoders[]; ///< video codecs of WEBM

extern QF_EXPORT FileFormatInfo FormatArray[]; ///< the result of GetFileFormats
extern QF_EXPORT EncoderInfo EncoderArray[];   ///< the result of GetEncoders

/// The muxing options that later Matroska files are created with. Set with SetMuxParam.
extern QF_EXPORT MuxParam m_MuxParam;

/// 1 while the file created last is a WebM file, else 0. Every call with a handle goes to the kind of muxer that this
/// flag names: only one kind of file is open at a time, by design. A handle of the other kind is refused (0, or nothing
/// happens), but closing it still completes its file. A failed creation sets the flag too.
extern QF_EXPORT std::uint32_t IsWebm;

} // extern "C"

/// Whether the table has a format.
/// \param format the format's code; the upper half of 8-octet values must be 0
/// \return 1 for a format of the table, else 0; the code 0 is no format
QF_ENTRY int FindFileFormat(unsigned long format);

/// There are no encoders, and no argument is looked at.
/// \param fourCC not used
/// \param param not used
/// \return null
QF_ENTRY void* CreateEncoder(unsigned long fourCC, const EncodeParam* param);

/// There are no encoders, and no argument is looked at.
/// \param encoder not used
/// \param frame not used
/// \param outFrame not used
/// \param outSizes not used
/// \return 0
QF_ENTRY int Encode(void* encoder, const MEDIA_FRAME* frame, MEDIA_FRAME** outFrame, int** outSizes);

/// There are no encoders: does nothing.
/// \param encoder not used
QF_ENTRY void DestroyEncoder(void* encoder);

/// Leaves the record as it is: every audio stream is accepted.
/// \param param not used
/// \return 1
QF_ENTRY int ReviseAudioParam(AudioParam* param);

/// Copies the options and reduces the display aspect to its lowest terms. Files that are open keep theirs.
/// \param param the options, the host's; null for none
/// \return a number without meaning: displayAspectX when a term is 0, else the reduced displayAspectY
QF_ENTRY int SetMuxParam(MuxParam* param);

/// Creates a file for a job. Nothing is written before the first frames. An existing file is replaced. A path whose
/// last extension begins ".iso:" is a pseudo-file: all calls succeed and nothing is written.
///
/// Every format accepts every codec. Codes that VideoParam and AudioParam do not name, VP9, HEVC, AV1, Opus and FLAC
/// among them, become Video-for-Windows and WAVEFORMATEX tracks, in WEBM too.
///
/// The file's date is local time, not UTC: it counts from midnight of 2001-01-01 with summer time claimed for it. It is
/// an hour ahead where mktime subtracts an hour for this, as the GNU C library's does in all zones, UTC included.
///
/// \param path UTF-32, ended by a zero; cut at 2,047 octets of UTF-8
/// \param param the job, copied
/// \return the handle, the host's until CloseMediaFile ends it. Null, with a message in the host's log, for a format
/// that is not in the table, a file that does not open and lack of memory for the muxer; null without a message for a
/// null argument. When the file does not open errno has the reason; otherwise it has no meaning
/// \throws std::bad_alloc: there is no handle; an empty file may have been created
QF_ENTRY void* CreateMediaFile(const wchar_t* path, const EncodeParam* param);

/// Takes one video frame in and copies it. On the H.264 start-code paths the frame's start codes are overwritten with
/// lengths in the host's buffer. Write errors are not reported.
/// \param handle an open file, or null
/// \param frame videoData, videoSize, frameFlags, timestamp and duration (100 ns units); or null
/// \return the octets taken; 0 when there is no such track, nothing to take, or a null argument
/// \throws std::bad_alloc: nothing has been taken in, and the handle stays usable
QF_ENTRY int WriteVideoPacket(void* handle, const MEDIA_FRAME* frame);

/// Takes one audio frame in, or several that lie end to end and share the record's duration evenly, and copies them.
/// Write errors are not reported.
/// \param handle an open file, or null
/// \param frame audioData, audioSize, timestamp and duration (100 ns units); or null
/// \param frameSizes null for one frame, else a count n and the octets of n frames. A size below 1 is no frame; a frame
/// that would reach past audioSize ends the list; with an audioSize of 0 or below the sizes are trusted
/// \return the octets taken; 0 when there is no such track, nothing to take, or a null handle or frame
/// \throws std::bad_alloc: nothing has been taken in, and the handle stays usable
QF_ENTRY int WriteAudioPacket(void* handle, const MEDIA_FRAME* frame, int* frameSizes);

/// Set-up data of audio, copied. AAC: the AudioSpecificConfig (ISO/IEC 14496-3). Vorbis: the three header packets,
/// laced as in Matroska's CodecPrivate. Data for other codecs is ignored. After the first frames have been written the
/// room is fixed: 1,024 octets for AAC, 10,240 for Vorbis, or as many as came before. Data that does not fit is
/// ignored.
/// \param handle an open file, or null
/// \param data the octets, the host's; or null
/// \param length octets at data
/// \throws std::bad_alloc: nothing has been taken in, and the handle stays usable
QF_ENTRY void WriteVosData(void* handle, unsigned char* data, int length);

/// Set-up data of video, copied. H.264: one picture and one sequence parameter set, NAL units without start codes.
/// MPEG-1/2: the sequence header in the second buffer; the first buffer is not read. Data for other codecs is ignored.
/// After the first frames have been written the room is fixed: 1,024 octets for H.264, or as many as came before; data
/// that does not fit is ignored.
/// \param handle an open file, or null
/// \param pictureSet the picture parameter set, the host's; or null
/// \param pictureSetLength octets at pictureSet
/// \param sequenceSet the sequence parameter set or sequence header, the host's; or null
/// \param sequenceSetLength octets at sequenceSet
/// \throws std::bad_alloc: nothing has been taken in, and the handle stays usable
QF_ENTRY void WritezXPSData(void* handle, unsigned char* pictureSet, int pictureSetLength, unsigned char* sequenceSet,
                            int sequenceSetLength);

/// Completes and closes the file and ends the handle. Does not fail and does not report. A file whose disk was full,
/// for however short a time, ends there, and its Segment's size is unknown. Blocks for which memory is short are left
/// out.
/// \param handle an open file of either kind, regardless of IsWebm; or null, for which nothing happens
/// \param progress accepted and never called
/// \param argument accepted and never used
QF_ENTRY void CloseMediaFile(void* handle, ProgressCallback progress, void* argument);
