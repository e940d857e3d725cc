// SPDX-License-Identifier: MIT
/// \file
/// Writes Matroska and WebM files through the qf_mkv plug-in: frames in, files out.
///
///     qf_plugin* plugin;
///     qf_job* job;
///     qf_file* file;
///     qf_plugin_open(NULL, &plugin);
///     qf_job_new(&job);
///     qf_job_set_video(job, "h264", 1280, 720, 25.0);
///     qf_job_set_audio(job, "aac", 48000, 2, 16);
///     qf_file_open(plugin, "film.mkv", job, &file);
///     for (each packet) qf_file_write(file, &packet);
///     qf_file_close(file);
///
/// Results. Every call that may fail returns QF_OK, which is 0, or another value of enum qf_error; qf_error_text() then
/// returns a line of English about it. No C++ exception leaves the library, and no signal that a write raises. A null
/// pointer or a value out of range is QF_ERROR_ARGUMENT. A call that fails has changed nothing, unless its description
/// states otherwise.
///
/// Threads. Any number of threads may use a plug-in at once, and also a file. Only one thread at a time may use a job.
/// Every open file has its own copy of the plug-in, so files of all formats can be written side by side.
///
/// Ownership. The library copies its arguments and keeps no pointer of the caller's beyond a call. It owns the texts
/// that it returns.
///
/// Compatibility. Later versions add functions, values and members at the end of records, and change none. A program
/// that was built with this header runs with every later library of the same major version.
#ifndef QF_HOST_H
#define QF_HOST_H

#include <stddef.h>
#include <stdint.h>

/// The major version of this header: it rises when programs have to change.
#define QF_HOST_VERSION_MAJOR 1
/// The minor version of this header: it rises with additions.
#define QF_HOST_VERSION_MINOR 0
/// The patch version of this header: it rises with corrections.
#define QF_HOST_VERSION_PATCH 0
/// The version of this header as one number: 0x10000 is 1.0.0. qf_host_version() returns the library's.
#define QF_HOST_VERSION (QF_HOST_VERSION_MAJOR * 0x10000 + QF_HOST_VERSION_MINOR * 0x100 + QF_HOST_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/// The results of calls. The numbers never change.
enum qf_error {
    QF_OK = 0,
    QF_ERROR_ARGUMENT = 1, ///< a null pointer, an unknown name or a value out of range
    QF_ERROR_MEMORY = 2,   ///< there is not enough memory
    QF_ERROR_PLUGIN = 3,   ///< the file is no plug-in, or it cannot be loaded
    QF_ERROR_FORMAT = 4,   ///< the plug-in has no such format, or the format does not take the codec
    QF_ERROR_OPEN = 5,     ///< the file cannot be created
    QF_ERROR_EXISTS = 6,   ///< the file exists, and the job does not allow replacing it
    QF_ERROR_WRITE = 7,    ///< not all octets reached the file: the disk is full, for example
    QF_ERROR_DATA = 8,     ///< a packet or set-up data is not valid for its codec
    QF_ERROR_TIME = 9,     ///< a time is missing, out of range or before the previous time
    QF_ERROR_STATE = 10,   ///< the track does not exist, or it has ended
    QF_ERROR_EMPTY = 11,   ///< no packet was written: the file is 0 octets long
    QF_ERROR_INTERNAL = 12 ///< another error; see its text
};

/// The tracks of a file. A file has at most one of each kind.
enum qf_track {
    QF_VIDEO = 1, ///< its number in the file is 1
    QF_AUDIO = 2  ///< its number in the file is 2
};

/// How the NAL units of an H.264 packet are separated.
enum qf_framing {
    QF_FRAMING_AUTO = 0, ///< by lengths when the set-up data is an AVCDecoderConfigurationRecord, else by start codes
    QF_FRAMING_START_CODES = 1, ///< 00 00 01 or 00 00 00 01 in front of each unit (ISO/IEC 14496-10, Annex B)
    QF_FRAMING_LENGTHS = 2      ///< a big-endian length of 1 to 4 octets in front of each unit (ISO/IEC 14496-15)
};

/// An unknown time.
static const int64_t QF_NO_TIME = INT64_MIN;

/// A loaded plug-in.
typedef struct qf_plugin qf_plugin;
/// The tracks of a file and the way it is written.
typedef struct qf_job qf_job;
/// A file that is being written.
typedef struct qf_file qf_file;

/// A format that the plug-in writes. The texts belong to the plug-in.
typedef struct qf_format_info {
    uint32_t struct_size;    ///< sizeof(qf_format_info), set by the caller
    uint32_t four_cc;        ///< the plug-in's code, the first character in the lowest octet
    const char* name;        ///< for qf_job_set_format: "mkv", "hmkv", "mka" or "webm"
    const char* extension;   ///< with its dot
    const char* description; ///< for people
} qf_format_info;

/// A codec that a format takes. The texts belong to the plug-in.
typedef struct qf_codec_info {
    uint32_t struct_size;    ///< sizeof(qf_codec_info), set by the caller
    uint32_t four_cc;        ///< the plug-in's code, the first character in the lowest octet
    int32_t track;           ///< QF_VIDEO or QF_AUDIO
    int32_t is_listed;       ///< 1 when the plug-in's own list of the format names it
    const char* name;        ///< for qf_job_set_video or qf_job_set_audio: "h264", "aac", ...
    const char* codec_id;    ///< the CodecID in the file: "V_MPEG4/ISO/AVC", ...
    const char* description; ///< for people
} qf_codec_info;

/// One compressed frame. A packet of AAC with ADTS headers may hold several frames end to end, and a packet of PCM any
/// number of whole samples. Set members that are not known to zero, except for the times.
typedef struct qf_packet {
    uint32_t struct_size; ///< sizeof(qf_packet)
    int32_t track;        ///< QF_VIDEO or QF_AUDIO
    const void* data;     ///< the octets, the caller's: read during the call only
    size_t size;          ///< octets at data, from 1 to 2,147,483,647 less the octets that rewriting adds
    int64_t pts;          ///< presentation time in the track's time base; QF_NO_TIME: as dts, or after the last packet
    int64_t dts;          ///< decoding time in the track's time base; QF_NO_TIME: the packets come in decoding order
    int64_t duration;     ///< in the track's time base; 0 or below: not known
    int32_t is_key;       ///< video: 1 when the picture needs no other, else 0; audio: 1
    int32_t reserved;     ///< 0
} qf_packet;

/// The library's version.
/// \return the version, counted as QF_HOST_VERSION is: 0x10000 is 1.0.0
uint32_t qf_host_version(void);

/// What went wrong in this thread's last call that did not return QF_OK.
/// \return a line of English with the name of the file or codec; "" when no call has failed. Valid until this thread's
/// next call that fails
const char* qf_error_text(void);

/// The name of an error.
/// \param error a value of qf_error
/// \return "QF_ERROR_MEMORY" for example; "unknown" for any other value
const char* qf_error_name(int error);

/// Loads a plug-in.
/// \param path UTF-8; null for the installed plug-in, which is searched beside this library, in the folder qf_mkv
/// there, and where the packages install it
/// \param plugin receives the plug-in, for qf_plugin_close; null when the call fails
/// \return QF_OK or an error
int qf_plugin_open(const char* path, qf_plugin** plugin);

/// Unloads a plug-in once the last file that was opened with it is closed.
/// \param plugin the plug-in, or null
void qf_plugin_close(qf_plugin* plugin);

/// The path that a plug-in was loaded from.
/// \param plugin the plug-in, or null
/// \return the path in UTF-8; null for null
const char* qf_plugin_path(const qf_plugin* plugin);

/// A plug-in's version.
/// \param plugin the plug-in, or null
/// \return "5,0,0,14" for example; null for null
const char* qf_plugin_version(const qf_plugin* plugin);

/// The number of formats that a plug-in writes.
/// \param plugin the plug-in, or null
/// \return the number; 0 for null
size_t qf_format_count(const qf_plugin* plugin);

/// Describes a format.
/// \param plugin the plug-in
/// \param format the format's number, from 0
/// \param info receives the description; set struct_size before the call
/// \return QF_OK or an error
int qf_format_get(const qf_plugin* plugin, size_t format, qf_format_info* info);

/// The number of codecs that a format takes.
/// \param plugin the plug-in, or null
/// \param format the format's number, from 0
/// \return the number; 0 for null or a format that the plug-in does not have
size_t qf_codec_count(const qf_plugin* plugin, size_t format);

/// Describes a codec.
/// \param plugin the plug-in
/// \param format the format's number, from 0
/// \param codec the codec's number in the format, from 0, video first
/// \param info receives the description; set struct_size before the call
/// \return QF_OK or an error
int qf_codec_get(const qf_plugin* plugin, size_t format, size_t codec, qf_codec_info* info);

/// Makes a job without tracks.
/// \param job receives the job, for qf_job_free; null when the call fails
/// \return QF_OK or an error
int qf_job_new(qf_job** job);

/// Frees a job. Files that were opened with it do not need it.
/// \param job the job, or null
void qf_job_free(qf_job* job);

/// Sets the format. Without it the file's extension decides: .mkv, .mka, .webm.
/// \param job the job
/// \param format "mkv", "hmkv", "mka" or "webm"
/// \return QF_OK or an error
int qf_job_set_format(qf_job* job, const char* format);

/// Adds the video track.
/// \param job the job
/// \param codec a name: "h264", "mpeg1", "mpeg2", "mpeg4", "vp8"; qf_codec_get lists all
/// \param width pixels, above 0
/// \param height pixels, above 0
/// \param frame_rate frames per second; 0 when not known
/// \return QF_OK or an error
int qf_job_set_video(qf_job* job, const char* codec, int32_t width, int32_t height, double frame_rate);

/// Adds the audio track.
/// \param job the job
/// \param codec a name: "aac", "ac3", "mp3", "mp2", "dts", "pcm", "vorbis"; qf_codec_get lists all
/// \param sample_rate Hz, above 0
/// \param channels above 0
/// \param bits_per_sample 8, 16, 24 or 32 for PCM, which is little-endian; for other codecs the value for the file, 0
/// for 16
/// \return QF_OK or an error
int qf_job_set_audio(qf_job* job, const char* codec, int32_t sample_rate, int32_t channels, int32_t bits_per_sample);

/// Sets the set-up data of a track's codec.
///
/// - h264: an AVCDecoderConfigurationRecord ("avcC"), or parameter sets behind start codes. Without it the sets are
///   taken from the first packet.
/// - aac: the AudioSpecificConfig. Without it packets must have ADTS headers.
/// - vorbis: the three header packets laced as in Matroska and Ogg (2, sizes, packets). Without it the first three
///   packets are the headers.
/// - mpeg1, mpeg2, mpeg4: the sequence or object headers. Without it the headers are in the first packet.
/// - Other codecs have no set-up data: it is ignored.
///
/// \param job the job
/// \param track QF_VIDEO or QF_AUDIO
/// \param data the octets, copied
/// \param size octets at data; 0 clears the set-up data
/// \return QF_OK or an error
int qf_job_set_setup(qf_job* job, int track, const void* data, size_t size);

/// Sets how the units of H.264 packets are separated.
/// \param job the job
/// \param framing a value of qf_framing
/// \param length_size octets of a length, 1 to 4, for QF_FRAMING_LENGTHS; otherwise 0
/// \return QF_OK or an error
int qf_job_set_framing(qf_job* job, int framing, int length_size);

/// Sets the unit of a track's times, numerator / denominator seconds. The default is 1 / 10000000, which is 100 ns.
/// \param job the job
/// \param track QF_VIDEO or QF_AUDIO
/// \param numerator above 0
/// \param denominator above 0
/// \return QF_OK or an error
int qf_job_set_time_base(qf_job* job, int track, int32_t numerator, int32_t denominator);

/// Sets the aspect ratio of the picture, 16 and 9 for example, for the Matroska formats. 0 and 0 clear it.
/// \param job the job
/// \param x the horizontal term
/// \param y the vertical term
/// \return QF_OK or an error
int qf_job_set_display_aspect(qf_job* job, int32_t x, int32_t y);

/// Sets whether an existing file is replaced. The default is 0.
/// \param job the job
/// \param overwrite 1 or 0
/// \return QF_OK or an error
int qf_job_set_overwrite(qf_job* job, int overwrite);

/// Sets whether qf_file_close waits until the file is on the disk (fsync). The default is 0.
/// \param job the job
/// \param sync 1 or 0
/// \return QF_OK or an error
int qf_job_set_sync(qf_job* job, int sync);

/// Sets how long a packet waits for the other track at most. The default is 0: without limit. This is for live sources,
/// of which one may fall silent. A packet more than 30 seconds behind the packets already written is then refused with
/// QF_ERROR_TIME. End a track that will have no packets at once, with qf_file_end_track: until a track's first packet
/// the other track's packets are all held in memory.
/// \param job the job
/// \param milliseconds of media time
/// \return QF_OK or an error
int qf_job_set_longest_wait(qf_job* job, int32_t milliseconds);

/// Creates the file, or empties an existing file.
/// \param plugin the plug-in
/// \param path UTF-8; any name that the file system takes. It must be a regular file: a pipe cannot be rewritten
/// \param job with at least one track; it is copied
/// \param file receives the file, for qf_file_close; null when the call fails
/// \return QF_OK or an error
int qf_file_open(qf_plugin* plugin, const char* path, const qf_job* job, qf_file** file);

/// Takes one packet in. The packets of a track come in decoding order. The tracks may come in any order: a packet is
/// held back until the other track has reached its time or has ended. Times may begin anywhere, below zero as well: the
/// file counts from its first block. A missing dts counts as the pts; a packet without either follows the packet before
/// it. Pictures whose presentation time is before the file's first block depend on pictures that were cut off: they are
/// left out, and qf_file_left_out counts them. Each H.264 packet is one picture. All its units are written, behind
/// lengths of 4 octets.
/// \param file the file
/// \param packet the packet, copied
/// \return QF_OK or an error. After QF_ERROR_MEMORY the packet was not taken: try again, or close the file. After
/// QF_ERROR_WRITE all later calls return QF_ERROR_WRITE
int qf_file_write(qf_file* file, const qf_packet* packet);

/// Ends a track: the other track no longer waits for it. A track that ends without a packet is not in the file.
/// \param file the file
/// \param track QF_VIDEO or QF_AUDIO
/// \return QF_OK or an error
int qf_file_end_track(qf_file* file, int track);

/// The number of packets that were left out, see qf_file_write.
/// \param file the file, or null
/// \return the number; 0 for null
uint64_t qf_file_left_out(const qf_file* file);

/// Writes the packets held back, completes the file, checks it and frees the handle, whatever the result.
/// \param file the file
/// \return QF_OK when the file is whole: its Segment has its size, its elements reach to its end, and all packets are
/// in it. After QF_ERROR_WRITE the file ends early; most players play it up to there. After QF_ERROR_EMPTY it has 0
/// octets. QF_ERROR_ARGUMENT for null
int qf_file_close(qf_file* file);

/// Closes the file, removes it and frees the handle.
/// \param file the file, or null
void qf_file_discard(qf_file* file);

#ifdef __cplusplus
}
#endif

#endif
