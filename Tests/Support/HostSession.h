// SPDX-License-Identifier: MIT
// One output file, driven as a host drives it. Everything that goes wrong is reported to the running test.
#pragma once

#include "EbmlWalker.h"
#include "GuardedOctets.h"
#include "Octets.h"
#include "Plugin.h"
#include "TempDirectory.h"

#include <cstdint>
#include <string>
#include <vector>

// Host times are counts of 100 ns.
constexpr std::int64_t kMillisecond = 10000;
constexpr std::int64_t kSecond = 1000 * kMillisecond;

constexpr FourCC kMkv = MakeFourCC("MKV ");
constexpr FourCC kWebm = MakeFourCC("WEBM");
constexpr FourCC kFormatOfEachMuxer[] = {kMkv, kWebm};
constexpr FourCC kAllFormats[] = {kMkv, MakeFourCC("HMKV"), MakeFourCC("MKA "), kWebm};

constexpr std::uint32_t kKey = 1;
constexpr std::uint32_t kDelta = 0;

// Jobs: 320x240 at 25 frames a second and 24 bits, 44100 Hz stereo of 16 bits. Every octet that belongs to the host
// holds `gap`.
EncodeParam MakeJob(FourCC format, FourCC video, FourCC audio, unsigned char gap = 0);
EncodeParam MakeVideoJob(FourCC format, FourCC video);
EncodeParam MakeAudioJob(FourCC format, FourCC audio);

class HostSession {
public:
    // Creates the file; a null handle fails the test.
    HostSession(const Plugin& plugin, const EncodeParam& job);
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // Set before Close when the streams of this file are not in time order.
    Ebml::Times m_Times = Ebml::Times::InOrder;
    // The frame's octets after the last Video call.
    Octets m_HostBuffer;
    // The value of the host's own octets in each frame record.
    unsigned char m_Gap = 0;

    void* Handle() const { return m_pHandle; }
    std::filesystem::path Path() const { return m_Path; }

    int Video(const Octets& octets, std::int64_t timestamp, std::int32_t duration, std::uint32_t flags = kKey);
    int Audio(const Octets& octets, std::int64_t timestamp, std::int32_t duration);
    // frameSizes as the host passes it: a count and the sizes.
    int PackedAudio(const Octets& octets, std::int64_t timestamp, std::int32_t duration, std::vector<int> frameSizes);
    void VosData(const Octets& octets);
    // An empty set is passed as null with length 0.
    void XpsData(const Octets& pictureSet, const Octets& sequenceSet);

    // Finishes the file and returns it. A file that is not empty must pass Ebml::Check.
    Octets Close();
    // The same, as a tree.
    Ebml::File Finish() { return Ebml::File(Close()); }

private:
    MEDIA_FRAME MakeFrame(std::int64_t timestamp, std::int32_t duration) const;

    const Plugin& m_Plugin;
    TempDirectory m_Directory;
    std::filesystem::path m_Path;
    void* m_pHandle;
};

// Fails the test with offset and path of the first difference.
void ExpectSameFile(const Octets& expected, const Octets& actual);
