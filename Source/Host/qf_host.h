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
/// has a line of English about it. No C++ exception leaves the library, and no signal that a write raises. A null
/// pointer and a value out of range are QF_ERROR_ARGUMENT. A call that fails has changed nothing, unless it says so.
///
/// Threads. A plug-in may be used by any number of threads at once, and so may a file. A job belongs to one thread at a
/// time. Every open file has a copy of the plug-in to itself, so files of all formats are written side by side.
///
/// Ownership. The library copies what it is given, and keeps no pointer of the caller's beyond a call. Texts that it
/// returns are its own.
///
/// Growing. Functions, values and members at the end of records are added, and none is changed: a program that was
/// built with this header runs with every later library of the same major version.
#ifndef QF_HOST_H
#define QF_HOST_H

#include <stddef.h>
#include <stdint.h>

/// The version of this header. qf_host_version() has the library's.
#define QF_HOST_VERSION_MAJOR 1
#define QF_HOST_VERSION_MINOR 0
#define QF_HOST_VERSION_PATCH 0
#define QF_HOST_VERSION (QF_HOST_VERSION_MAJOR * 0x10000 + QF_HOST_VERSION_MINOR * 0x100 + QF_HOST_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/// What a call returns. The numbers stay.
enum qf_error {
    QF_OK = 0,
    QF_ERROR_ARGUMENT = 1, ///< a null pointer, an unknown name or a value out of range
    QF_ERROR_MEMORY = 2,   ///< there is not enough memory
    QF_ERROR_PLUGIN = 3,   ///< the plug-in cannot be loaded, or it is none
    QF_ERROR_FORMAT = 4,   ///< the plug-in has no such format, or the format does not take the codec
    QF_ERROR_OPEN = 5,     ///< the file cannot be created
    QF_ERROR_EXISTS = 6,   ///< the file exists, and the job does not say that it may be replaced
    QF_ERROR_WRITE = 7,    ///< not all octets reached the file: the disk is full, for example
    QF_ERROR_DATA = 8,     ///< a packet or set-up data is not what its codec needs
    QF_ERROR_TIME = 9,     ///< a time is missing, out of range or before the one in front of it
    QF_ERROR_STATE = 10,   ///< the track does not exist, or it has ended
    QF_ERROR_EMPTY = 11,   ///< no packet was written: the file is 0 octets long
    QF_ERROR_INTERNAL = 12 ///< something else; the text says more
};

/// The tracks of a file. A file has one of each kind at most.
enum qf_track {
    QF_VIDEO = 1, ///< its number in the file is 1
    QF_AUDIO = 2  ///< its number in the file is 2
};

/// How the NAL units of an H.264 packet are told apart.
enum qf_framing {
    QF_FRAMING_AUTO = 0, ///< by lengths when the set-up data is an AVCDecoderConfigurationRecord, else by start codes
    QF_FRAMING_START_CODES = 1, ///< 00 00 01 or 00 00 00 01 in front of each unit (ISO/IEC 14496-10, Annex B)
    QF_FRAMING_LENGTHS = 2      ///< a big-endian length of 1 to 4 octets in front of each unit (ISO/IEC 14496-15)
};

/// A time that is not known.
static const int64_t QF_NO_TIME = INT64_MIN;

/// A loaded plug-in.
typedef struct qf_plugin qf_plugin;
/// What a file will hold and how it is written.
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
    const char* codec_id;    ///< what the file says: "V_MPEG4/ISO/AVC", ...
    const char* description; ///< for people
} qf_codec_info;

/// One compressed frame. Of AAC with ADTS headers several may lie end to end, and of PCM it is any number of whole
/// samples. Zero is right for members that are not known, except for the times.
typedef struct qf_packet {
    uint32_t struct_size; ///< sizeof(qf_packet)
    int32_t track;        ///< QF_VIDEO or QF_AUDIO
    const void* data;     ///< the octets, the caller's: read during the call only
    size_t size;          ///< octets at data, from 1 to 2,147,483,647 less what rewriting adds
    int64_t pts;          ///< presentation time in the track's time base; QF_NO_TIME: as dts, or behind the one before
    int64_t dts;          ///< decoding time in the track's time base; QF_NO_TIME: the packets come in decoding order
    int64_t duration;     ///< in the track's time base; 0 or below: not known
    int32_t is_key;       ///< of video: 1 when the picture needs no other, else 0. Sound is always 1.
    int32_t reserved;     ///< 0
} qf_packet;

/// The library's version, as QF_HOST_VERSION counts: 0x10000 is 1.0.0.
uint32_t qf_host_version(void);

/// A line of English about the last call of this thread that did not return QF_OK, with the file's or the codec's name
/// in it. "" when there was none. Valid until the next call of this thread that fails.
const char* qf_error_text(void);

/// The name of an error, "QF_ERROR_MEMORY" for example. "unknown" for a value that is none.
const char* qf_error_name(int error);

/// Loads a plug-in.
/// path: UTF-8; null for the installed one, which is looked for beside this library, in the folder qf_mkv there, and
/// where the packages put it. *plugin: for qf_plugin_close; null when the call fails.
int qf_plugin_open(const char* path, qf_plugin** plugin);

/// Unloads it, when the last file that was opened with it is closed. Null is allowed.
void qf_plugin_close(qf_plugin* plugin);

/// Where the plug-in was loaded from. Null for a null plug-in.
const char* qf_plugin_path(const qf_plugin* plugin);

/// Its version, "5,0,0,14" for example. Null for a null plug-in.
const char* qf_plugin_version(const qf_plugin* plugin);

/// How many formats it writes. 0 for a null plug-in.
size_t qf_format_count(const qf_plugin* plugin);

/// Describes one, from 0 on. info: struct_size is set before the call.
int qf_format_get(const qf_plugin* plugin, size_t format, qf_format_info* info);

/// How many codecs a format takes. 0 for a null plug-in and a format that it does not have.
size_t qf_codec_count(const qf_plugin* plugin, size_t format);

/// Describes one, from 0 on: video first. info: struct_size is set before the call.
int qf_codec_get(const qf_plugin* plugin, size_t format, size_t codec, qf_codec_info* info);

/// Makes a job without tracks. *job: for qf_job_free; null when the call fails.
int qf_job_new(qf_job** job);

/// Frees it. Files that were opened with it do not need it. Null is allowed.
void qf_job_free(qf_job* job);

/// The format, by its name: "mkv", "hmkv", "mka" or "webm". Without it the file's extension decides: .mkv, .mka, .webm.
int qf_job_set_format(qf_job* job, const char* format);

/// Adds the video track.
/// codec: a name: "h264", "mpeg1", "mpeg2", "mpeg4", "vp8"; qf_codec_get has them all. width, height: pixels, above 0.
/// frame_rate: frames per second; 0 for not known.
int qf_job_set_video(qf_job* job, const char* codec, int32_t width, int32_t height, double frame_rate);

/// Adds the audio track.
/// codec: a name: "aac", "ac3", "mp3", "mp2", "dts", "pcm", "vorbis"; qf_codec_get has them all. sample_rate: Hz, above
/// 0. channels: above 0. bits_per_sample: of PCM 8, 16, 24 or 32, little-endian; of others what the file shall say, 0
/// for 16.
int qf_job_set_audio(qf_job* job, const char* codec, int32_t sample_rate, int32_t channels, int32_t bits_per_sample);

/// The set-up data of a track's codec, which is copied.
/// h264: an AVCDecoderConfigurationRecord ("avcC"), or parameter sets behind start codes. Without it they are taken
/// from the first packet. aac: the AudioSpecificConfig. Without it packets must have ADTS headers. vorbis: the three
/// header packets laced as in Matroska and Ogg (2, sizes, packets). Without it they are the first three packets that
/// are written. mpeg1, mpeg2, mpeg4: the sequence or object headers. Without it they are in the first packet. Other
/// codecs have none: what is given is ignored. size 0 takes it back.
int qf_job_set_setup(qf_job* job, int track, const void* data, size_t size);

/// How the units of H.264 packets are told apart: a value of enum qf_framing. length_size: octets of a length, 1 to 4,
/// for QF_FRAMING_LENGTHS; otherwise 0.
int qf_job_set_framing(qf_job* job, int framing, int length_size);

/// The unit of a track's times: numerator / denominator seconds, both above 0. Without it 1 / 10000000, which is 100
/// ns.
int qf_job_set_time_base(qf_job* job, int track, int32_t numerator, int32_t denominator);

/// The shape of the picture, 16 and 9 for example, for the Matroska formats. 0 and 0 take it back.
int qf_job_set_display_aspect(qf_job* job, int32_t x, int32_t y);

/// Whether a file that exists is replaced: 1 or 0. Without it, it is not.
int qf_job_set_overwrite(qf_job* job, int overwrite);

/// Whether qf_file_close waits until the file is on the disk (fsync): 1 or 0. Without it, it does not.
int qf_job_set_sync(qf_job* job, int sync);

/// How long a packet waits for the other track at most, in milliseconds of media time; 0, as without it, for ever. For
/// live sources, of which one may fall silent. A packet that comes more than 30 seconds behind what was written is
/// refused with QF_ERROR_TIME. A track that will have nothing is ended at once, see qf_file_end_track: until its
/// first packet all is in memory.
int qf_job_set_longest_wait(qf_job* job, int32_t milliseconds);

/// Creates the file, empty, or empties the one that is there.
/// path: UTF-8; any name that the file system takes. A regular file: one cannot be built in a pipe. job: with one track
/// at least; it is copied. *file: for qf_file_close; null when the call fails.
int qf_file_open(qf_plugin* plugin, const char* path, const qf_job* job, qf_file** file);

/// Takes one packet in. The packets of a track come in decoding order; the tracks may come in any order: a packet is
/// held back until the other track has reached its time or has ended. Times may begin anywhere, below zero as well: the
/// file counts from its first block. A packet without a dts has its pts; one without either follows the one before it.
/// Pictures that are presented before the file's first block belong to ones that were cut off: they are left out, and
/// qf_file_left_out counts them. Each H.264 packet is one picture. All its units are written, behind lengths of 4
/// octets. After QF_ERROR_MEMORY the packet was not taken: try again, or close the file. After QF_ERROR_WRITE all later
/// calls return QF_ERROR_WRITE.
int qf_file_write(qf_file* file, const qf_packet* packet);

/// No more packets of a track will come: the other one need not wait for it. A track that ends without a packet is not
/// in the file.
int qf_file_end_track(qf_file* file, int track);

/// How many packets were left out, see qf_file_write. 0 for a null file.
uint64_t qf_file_left_out(const qf_file* file);

/// Writes what is held back, completes the file, looks at it and frees the handle, whatever is returned.
/// QF_OK says that the file is whole: its Segment has its size, its elements reach to its end, and all packets are in
/// it. QF_ERROR_WRITE leaves what could be written; most players play it up to there. QF_ERROR_EMPTY leaves 0 octets.
/// QF_ERROR_ARGUMENT for null.
int qf_file_close(qf_file* file);

/// Closes the file, removes it and frees the handle. Null is allowed.
void qf_file_discard(qf_file* file);

#ifdef __cplusplus
}
#endif

#endif
