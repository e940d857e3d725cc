// SPDX-License-Identifier: MIT
// The C interface: checks arguments and turns exceptions into codes.
#pragma GCC visibility push(default) // what leaves the library
#include "qf_host.h"
#pragma GCC visibility pop

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "ErrorText.h"
#include "FileWriter.h"
#include "HostError.h"
#include "Job.h"
#include "PluginPool.h"
#include "SignalShield.h"

using namespace QfHost;

struct qf_plugin {
    struct Format {
        const FileFormatInfo* m_pRecord;
        std::string m_Name;
        std::string m_Extension;
        std::string m_Description;
        std::vector<const Codec*> m_Codecs;
    };
    std::shared_ptr<PluginPool> m_pPool;
    std::vector<Format> m_Formats;
};

struct qf_job {
    Job m_Job;
};

struct qf_file {
    FileWriter m_Writer;
};

namespace {

int Fail(qf_error code, const char* text) {
    SetErrorText(text);
    return code;
}

template <class Body>
int Guarded(Body body) noexcept {
    const SignalShield shield;
    try {
        body();
        return QF_OK;
    } catch (const HostError& error) {
        return Fail(error.Code(), error.what());
    } catch (const std::bad_alloc&) {
        return Fail(QF_ERROR_MEMORY, "there is not enough memory");
    } catch (const std::exception& error) {
        return Fail(QF_ERROR_INTERNAL, error.what());
    } catch (...) {
        return Fail(QF_ERROR_INTERNAL, "the plug-in failed in a way that it does not explain");
    }
}

void Need(const void* pointer, const char* name) {
    if (pointer == nullptr) throw HostError(QF_ERROR_ARGUMENT, std::string(name) + " is null");
}

void NeedThat(bool condition, const char* otherwise) {
    if (!condition) throw HostError(QF_ERROR_ARGUMENT, otherwise);
}

// Wide texts of the plug-in's tables are UTF-32.
std::string Narrow(const wchar_t* text) { return std::filesystem::path(text).string(); }

// Copies as much of a record as its caller's size has room for.
template <class Record>
void Hand(const Record& record, Record* info) {
    const std::uint32_t size = info->struct_size;
    NeedThat(size >= offsetof(Record, name) + sizeof record.name, "info->struct_size is not the size of a record");
    std::memcpy(info, &record, std::min<std::size_t>(size, sizeof record));
    info->struct_size = size;
}

// Beside this library, in the folder qf_mkv there, or where the packages install it.
std::string InstalledPlugin() {
    Dl_info self{};
    std::error_code ignored;
    if (dladdr(reinterpret_cast<const void*>(&qf_host_version), &self) != 0 && self.dli_fname != nullptr) {
        const std::filesystem::path folder = std::filesystem::absolute(self.dli_fname, ignored).parent_path();
        for (const char* name : {"qf_mkv.so", "qf_mkv/qf_mkv.so"}) {
            if (std::filesystem::exists(folder / name, ignored)) return (folder / name).string();
        }
    }
    // A program that links the library statically may be anywhere.
    for (const char* prefix : {QF_PREFIX, "/usr/local"}) {
        const std::filesystem::path path = std::filesystem::path(prefix) / QF_PLUGIN_BELOW_PREFIX;
        if (std::filesystem::exists(path, ignored)) return path.string();
    }
    return "/usr/" QF_PLUGIN_BELOW_PREFIX;
}

const qf_plugin::Format* FormatAt(const qf_plugin* plugin, size_t format) {
    return plugin != nullptr && format < plugin->m_Formats.size() ? &plugin->m_Formats[format] : nullptr;
}

template <class Body>
int ChangeJob(qf_job* job, Body body) {
    return Guarded([&] {
        Need(job, "job");
        body(job->m_Job);
    });
}

// The job's track of that kind, with a codec of that name.
void SetCodec(TrackJob& job, qf_track track, const char* codec) {
    Need(codec, "codec");
    job.m_pCodec = &FindCodec(track, codec);
}

} // namespace

uint32_t qf_host_version(void) { return QF_HOST_VERSION; }

const char* qf_error_text(void) { return GetErrorText(); }

const char* qf_error_name(int error) {
    switch (error) {
    case QF_OK:
        return "QF_OK";
    case QF_ERROR_ARGUMENT:
        return "QF_ERROR_ARGUMENT";
    case QF_ERROR_MEMORY:
        return "QF_ERROR_MEMORY";
    case QF_ERROR_PLUGIN:
        return "QF_ERROR_PLUGIN";
    case QF_ERROR_FORMAT:
        return "QF_ERROR_FORMAT";
    case QF_ERROR_OPEN:
        return "QF_ERROR_OPEN";
    case QF_ERROR_EXISTS:
        return "QF_ERROR_EXISTS";
    case QF_ERROR_WRITE:
        return "QF_ERROR_WRITE";
    case QF_ERROR_DATA:
        return "QF_ERROR_DATA";
    case QF_ERROR_TIME:
        return "QF_ERROR_TIME";
    case QF_ERROR_STATE:
        return "QF_ERROR_STATE";
    case QF_ERROR_EMPTY:
        return "QF_ERROR_EMPTY";
    case QF_ERROR_INTERNAL:
        return "QF_ERROR_INTERNAL";
    default:
        return "unknown";
    }
}

int qf_plugin_open(const char* path, qf_plugin** plugin) {
    if (plugin != nullptr) *plugin = nullptr;
    return Guarded([&] {
        Need(plugin, "plugin");
        auto made = std::make_unique<qf_plugin>();
        try {
            made->m_pPool = std::make_shared<PluginPool>(path != nullptr ? std::string(path) : InstalledPlugin());
        } catch (const std::runtime_error& error) {
            throw HostError(QF_ERROR_PLUGIN, error.what());
        }
        const FileFormatInfo* record = made->m_pPool->First().Formats();
        for (; record->fourCC != 0; ++record) {
            qf_plugin::Format format{
                record, FormatName(record->fourCC), Narrow(record->extension), Narrow(record->description), {}};
            for (const Codec* codec = kCodecs; codec->m_Name != nullptr; ++codec) {
                if (IsTaken(*record, *codec)) format.m_Codecs.push_back(codec);
            }
            made->m_Formats.push_back(std::move(format));
        }
        *plugin = made.release();
    });
}

void qf_plugin_close(qf_plugin* plugin) { delete plugin; }

const char* qf_plugin_path(const qf_plugin* plugin) {
    return plugin != nullptr ? plugin->m_pPool->Path().c_str() : nullptr;
}

const char* qf_plugin_version(const qf_plugin* plugin) {
    return plugin != nullptr ? plugin->m_pPool->Version().c_str() : nullptr;
}

size_t qf_format_count(const qf_plugin* plugin) { return plugin != nullptr ? plugin->m_Formats.size() : 0; }

int qf_format_get(const qf_plugin* plugin, size_t format, qf_format_info* info) {
    return Guarded([&] {
        Need(plugin, "plugin");
        Need(info, "info");
        const qf_plugin::Format* const found = FormatAt(plugin, format);
        NeedThat(found != nullptr, "there is no format of that number");
        Hand(qf_format_info{sizeof(qf_format_info), found->m_pRecord->fourCC, found->m_Name.c_str(),
                            found->m_Extension.c_str(), found->m_Description.c_str()},
             info);
    });
}

size_t qf_codec_count(const qf_plugin* plugin, size_t format) {
    const qf_plugin::Format* const found = FormatAt(plugin, format);
    return found != nullptr ? found->m_Codecs.size() : 0;
}

int qf_codec_get(const qf_plugin* plugin, size_t format, size_t codec, qf_codec_info* info) {
    return Guarded([&] {
        Need(plugin, "plugin");
        Need(info, "info");
        const qf_plugin::Format* const found = FormatAt(plugin, format);
        NeedThat(found != nullptr, "there is no format of that number");
        NeedThat(codec < found->m_Codecs.size(), "the format has no codec of that number");
        const Codec& row = *found->m_Codecs[codec];
        Hand(qf_codec_info{sizeof(qf_codec_info), row.m_FourCC, row.m_Track, IsListed(*found->m_pRecord, row) ? 1 : 0,
                           row.m_Name, row.m_CodecID, row.m_Description},
             info);
    });
}

int qf_job_new(qf_job** job) {
    if (job != nullptr) *job = nullptr;
    return Guarded([&] {
        Need(job, "job");
        *job = new qf_job;
    });
}

void qf_job_free(qf_job* job) { delete job; }

int qf_job_set_format(qf_job* job, const char* format) {
    return ChangeJob(job, [&](Job& target) {
        Need(format, "format");
        const FourCC code = FormatCode(format);
        if (code == 0) throw HostError(QF_ERROR_ARGUMENT, "there is no format '" + std::string(format) + "'");
        target.m_Format = code;
    });
}

int qf_job_set_video(qf_job* job, const char* codec, int32_t width, int32_t height, double frame_rate) {
    return ChangeJob(job, [&](Job& target) {
        NeedThat(width > 0 && height > 0, "the width and the height of a picture are above 0");
        NeedThat(std::isfinite(frame_rate) && frame_rate >= 0, "the frame rate is a number from 0 on");
        SetCodec(target.m_Video, QF_VIDEO, codec);
        target.m_Width = width;
        target.m_Height = height;
        target.m_FrameRate = frame_rate;
    });
}

int qf_job_set_audio(qf_job* job, const char* codec, int32_t sample_rate, int32_t channels, int32_t bits_per_sample) {
    return ChangeJob(job, [&](Job& target) {
        constexpr int32_t kMostChannels = 255;
        NeedThat(sample_rate > 0, "the sample rate is above 0");
        NeedThat(channels > 0 && channels <= kMostChannels, "the number of channels is from 1 to 255");
        const int32_t bits = bits_per_sample == 0 ? 16 : bits_per_sample;
        NeedThat(bits > 0 && bits <= 64, "the bits per sample are from 1 to 64, or 0 for 16");
        Need(codec, "codec");
        const bool isPcm = FindCodec(QF_AUDIO, codec).m_Framing == Framing::Pcm;
        NeedThat(!isPcm || (bits % 8 == 0 && bits <= 32), "PCM has 8, 16, 24 or 32 bits per sample");
        SetCodec(target.m_Audio, QF_AUDIO, codec);
        target.m_SampleRate = sample_rate;
        target.m_Channels = channels;
        target.m_BitsPerSample = bits;
    });
}

int qf_job_set_setup(qf_job* job, int track, const void* data, size_t size) {
    return ChangeJob(job, [&](Job& target) {
        constexpr size_t kMost = 16 << 20; // far above any codec's
        if (size > 0) Need(data, "data");
        NeedThat(size <= kMost, "the set-up data is too large");
        const auto* const octets = static_cast<const std::uint8_t*>(data);
        target.Track(track).m_Setup = size > 0 ? Octets(octets, octets + size) : Octets();
    });
}

int qf_job_set_framing(qf_job* job, int framing, int length_size) {
    return ChangeJob(job, [&](Job& target) {
        NeedThat(framing >= QF_FRAMING_AUTO && framing <= QF_FRAMING_LENGTHS, "there is no such framing");
        NeedThat(framing == QF_FRAMING_LENGTHS ? length_size >= 1 && length_size <= 4 : length_size == 0,
                 "lengths have 1 to 4 bytes; without lengths that number is 0");
        target.m_Framing = static_cast<qf_framing>(framing);
        target.m_LengthSize = length_size;
    });
}

int qf_job_set_time_base(qf_job* job, int track, int32_t numerator, int32_t denominator) {
    return ChangeJob(job, [&](Job& target) {
        NeedThat(numerator > 0 && denominator > 0, "both numbers of a time base are above 0");
        target.Track(track).m_TimeBase = TimeBase(numerator, denominator);
    });
}

int qf_job_set_display_aspect(qf_job* job, int32_t x, int32_t y) {
    return ChangeJob(job, [&](Job& target) {
        NeedThat((x > 0 && y > 0) || (x == 0 && y == 0), "both terms of a display aspect are above 0, or both are 0");
        target.m_AspectX = x;
        target.m_AspectY = y;
    });
}

int qf_job_set_overwrite(qf_job* job, int overwrite) {
    return ChangeJob(job, [&](Job& target) { target.m_MayOverwrite = overwrite != 0; });
}

int qf_job_set_sync(qf_job* job, int sync) {
    return ChangeJob(job, [&](Job& target) { target.m_Syncs = sync != 0; });
}

int qf_job_set_longest_wait(qf_job* job, int32_t milliseconds) {
    return ChangeJob(job, [&](Job& target) {
        NeedThat(milliseconds >= 0, "the longest wait is not below 0");
        target.m_LongestWait = int64_t{milliseconds} * 10000;
    });
}

int qf_file_open(qf_plugin* plugin, const char* path, const qf_job* job, qf_file** file) {
    if (file != nullptr) *file = nullptr;
    return Guarded([&] {
        Need(plugin, "plugin");
        Need(path, "path");
        Need(job, "job");
        Need(file, "file");
        NeedThat(*path != '\0', "the path is empty");
        *file = new qf_file{{plugin->m_pPool, path, job->m_Job}};
    });
}

int qf_file_write(qf_file* file, const qf_packet* packet) {
    return Guarded([&] {
        Need(file, "file");
        Need(packet, "packet");
        NeedThat(packet->struct_size >= sizeof(qf_packet), "packet->struct_size is not the size of a packet");
        file->m_Writer.Write(*packet);
    });
}

int qf_file_end_track(qf_file* file, int track) {
    return Guarded([&] {
        Need(file, "file");
        file->m_Writer.EndTrack(track);
    });
}

uint64_t qf_file_left_out(const qf_file* file) { return file != nullptr ? file->m_Writer.LeftOut() : 0; }

int qf_file_close(qf_file* file) {
    return Guarded([&] {
        const std::unique_ptr<qf_file> owner(file);
        Need(file, "file");
        file->m_Writer.Close();
    });
}

void qf_file_discard(qf_file* file) {
    if (file == nullptr) return;
    const SignalShield shield;
    file->m_Writer.Discard();
    delete file;
}
