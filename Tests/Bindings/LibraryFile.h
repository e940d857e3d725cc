// SPDX-License-Identifier: MIT
// The C library's handles, freed with their objects, and calls with the arguments that most tests leave alone.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "Octets.h"
#include "qf_host.h"

struct FreesHandles {
    void operator()(qf_plugin* plugin) const { qf_plugin_close(plugin); }
    void operator()(qf_job* job) const { qf_job_free(job); }
    void operator()(qf_file* file) const { qf_file_discard(file); }
};
using PluginHandle = std::unique_ptr<qf_plugin, FreesHandles>;
using JobHandle = std::unique_ptr<qf_job, FreesHandles>;
using FileHandle = std::unique_ptr<qf_file, FreesHandles>;

inline PluginHandle OpenPlugin(const char* path = QF_PLUGIN) {
    qf_plugin* plugin = nullptr;
    qf_plugin_open(path, &plugin);
    return PluginHandle(plugin);
}

inline JobHandle NewJob() {
    qf_job* job = nullptr;
    qf_job_new(&job);
    return JobHandle(job);
}

// Null when it does not open.
inline FileHandle OpenFile(const PluginHandle& plugin, const std::filesystem::path& path, const JobHandle& job) {
    qf_file* file = nullptr;
    qf_file_open(plugin.get(), path.c_str(), job.get(), &file);
    return FileHandle(file);
}

// Times in milliseconds, for jobs made by MillisecondJob.
inline qf_packet PacketOf(int track, const Octets& octets, std::int64_t pts, std::int64_t dts,
                          std::int64_t duration = 0, bool isKey = true) {
    return {sizeof(qf_packet), track, octets.data(), octets.size(), pts, dts, duration, isKey ? 1 : 0, 0};
}

inline int Write(const FileHandle& file, int track, const Octets& octets, std::int64_t pts, std::int64_t dts,
                 std::int64_t duration = 0, bool isKey = true) {
    const qf_packet packet = PacketOf(track, octets, pts, dts, duration, isKey);
    return qf_file_write(file.get(), &packet);
}

inline int Close(FileHandle& file) { return qf_file_close(file.release()); }

// That counts in milliseconds. A null codec: no such track.
inline JobHandle MillisecondJob(const char* video, const char* audio) {
    JobHandle job = NewJob();
    if (video != nullptr) qf_job_set_video(job.get(), video, 320, 180, 25);
    if (audio != nullptr) qf_job_set_audio(job.get(), audio, 48000, 2, 16);
    for (const int track : {QF_VIDEO, QF_AUDIO}) qf_job_set_time_base(job.get(), track, 1, 1000);
    return job;
}
