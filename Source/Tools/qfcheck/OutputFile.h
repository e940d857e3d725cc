// SPDX-License-Identifier: MIT
// One output file of the plug-in's, driven as a host drives it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "EbmlWalker.h"
#include "Host.h"

constexpr std::int64_t kMillisecond = 10000; // host times count 100 ns
constexpr std::int32_t kFrameTime = 400000;  // 25 frames a second

inline constexpr const char* kFormats[] = {"MKV ", "HMKV", "MKA ", "WEBM"};

// An EncodeParam: 320x240 at 25 frames a second and 24 bits, 44100 Hz stereo of 16 bits. An empty code disables its
// kind. Every octet that belongs to the host holds `gap`.
Record MakeJob(const std::string& format, const std::string& video, const std::string& audio, unsigned char gap = 0);

class OutputFile {
public:
    // Creates the file. Throws a Failure when there is no handle. The host's own octets in frames hold `gap` too.
    OutputFile(Host& host, const Record& job, const std::string& name = "file", unsigned char gap = 0);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void* Handle() const { return m_pHandle; }

    // The frame's octets after the last Video call.
    Octets m_HostBuffer;

    // The buffer is freed after the call. Data that the plug-in only reads must stay unchanged.
    int Video(const Octets& octets, std::int64_t timestamp, bool key = true, std::int32_t duration = kFrameTime);
    int Audio(const Octets& octets, std::int64_t timestamp, std::int32_t duration = kFrameTime);
    // frameSizes as the host passes it: a count and the sizes.
    int PackedAudio(const Octets& octets, std::int64_t timestamp, std::int32_t duration, std::vector<int> frameSizes);
    void VosData(const Octets& octets);
    void XpsData(const Octets& pictureSet, const Octets& sequenceSet);

    // The same, and the result must be the number of octets.
    void TakeVideo(const Octets& octets, std::int64_t timestamp, bool key = true);
    void TakeAudio(const Octets& octets, std::int64_t timestamp);

    // Closes the file and returns its octets.
    Octets Close();
    // The same, as a tree in which the walker finds no fault.
    Ebml::File Finish(Ebml::Times times = Ebml::Times::InOrder);
    // The same for files that make no sense, but are trees of elements.
    void FinishAsTree();

private:
    Record MakeFrame(std::int64_t timestamp, std::int32_t duration) const;

    Host& m_Host;
    std::filesystem::path m_Path;
    unsigned char m_Gap;
    void* m_pHandle;
};
