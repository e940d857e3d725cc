// SPDX-License-Identifier: MIT
#include "HostSession.h"

#include <gtest/gtest.h>

#include <cstring>

EncodeParam MakeJob(FourCC format, FourCC video, FourCC audio, unsigned char gap) {
    EncodeParam job;
    std::memset(&job, gap, sizeof job);
    job.videoParam.fourCC = video;
    job.videoParam.width = 320;
    job.videoParam.height = 240;
    job.videoParam.frameRate = 25;
    job.videoParam.bitCount = 24;
    job.audioParam.fourCC = audio;
    job.audioParam.sampleRate = 44100;
    job.audioParam.channels = 2;
    job.audioParam.bitsPerSample = 16;
    job.disableVideo = 0;
    job.disableAudio = 0;
    job.formatFourCC = format;
    return job;
}

EncodeParam MakeVideoJob(FourCC format, FourCC video) {
    EncodeParam job = MakeJob(format, video, 0);
    job.disableAudio = 1;
    return job;
}

EncodeParam MakeAudioJob(FourCC format, FourCC audio) {
    EncodeParam job = MakeJob(format, 0, audio);
    job.disableVideo = 1;
    return job;
}

HostSession::HostSession(const Plugin& plugin, const EncodeParam& job)
    : m_Plugin(plugin), m_Path(m_Directory / "file"),
      m_pHandle(plugin.CreateMediaFile(m_Path.wstring().c_str(), &job)) {
    EXPECT_NE(m_pHandle, nullptr) << "no file could be created";
}

HostSession::~HostSession() {
    if (m_pHandle != nullptr) Close();
}

MEDIA_FRAME HostSession::MakeFrame(std::int64_t timestamp, std::int32_t duration) const {
    MEDIA_FRAME frame;
    std::memset(&frame, m_Gap, sizeof frame);
    frame.videoData = nullptr;
    frame.videoSize = 0;
    frame.audioData = nullptr;
    frame.audioSize = 0;
    frame.timestamp = timestamp;
    frame.duration = duration;
    return frame;
}

int HostSession::Video(const Octets& octets, std::int64_t timestamp, std::int32_t duration, std::uint32_t flags) {
    const GuardedOctets buffer(octets);
    MEDIA_FRAME frame = MakeFrame(timestamp, duration);
    frame.videoData = buffer.Data();
    frame.videoSize = buffer.Size();
    frame.frameFlags = flags;
    const int result = m_Plugin.WriteVideoPacket(m_pHandle, &frame);
    m_HostBuffer = buffer.Copy();
    return result;
}

int HostSession::Audio(const Octets& octets, std::int64_t timestamp, std::int32_t duration) {
    const GuardedOctets buffer(octets);
    MEDIA_FRAME frame = MakeFrame(timestamp, duration);
    frame.audioData = buffer.Data();
    frame.audioSize = buffer.Size();
    const int result = m_Plugin.WriteAudioPacket(m_pHandle, &frame, nullptr);
    EXPECT_EQ(buffer.Copy(), octets) << "audio frames are only read";
    return result;
}

int HostSession::PackedAudio(const Octets& octets, std::int64_t timestamp, std::int32_t duration,
                             std::vector<int> frameSizes) {
    const GuardedOctets buffer(octets);
    MEDIA_FRAME frame = MakeFrame(timestamp, duration);
    frame.audioData = buffer.Data();
    frame.audioSize = buffer.Size();
    const std::vector<int> before = frameSizes;
    const int result = m_Plugin.WriteAudioPacket(m_pHandle, &frame, frameSizes.data());
    EXPECT_EQ(buffer.Copy(), octets) << "audio frames are only read";
    EXPECT_EQ(frameSizes, before) << "the table of sizes is only read";
    return result;
}

void HostSession::VosData(const Octets& octets) {
    const GuardedOctets buffer(octets);
    m_Plugin.WriteVosData(m_pHandle, buffer.Data(), buffer.Size());
    EXPECT_EQ(buffer.Copy(), octets) << "set-up data is only read";
}

void HostSession::XpsData(const Octets& pictureSet, const Octets& sequenceSet) {
    const GuardedOctets picture(pictureSet);
    const GuardedOctets sequence(sequenceSet);
    m_Plugin.WritezXPSData(m_pHandle, picture.Data(), picture.Size(), sequence.Data(), sequence.Size());
    EXPECT_EQ(picture.Copy(), pictureSet) << "set-up data is only read";
    EXPECT_EQ(sequence.Copy(), sequenceSet) << "set-up data is only read";
}

Octets HostSession::Close() {
    m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
    m_pHandle = nullptr;
    Octets octets = ReadFile(m_Path);
    const std::string problems = octets.empty() ? "" : Ebml::Describe(Ebml::Check(Ebml::File(octets), m_Times));
    EXPECT_EQ(problems, "");
    return octets;
}

void ExpectSameFile(const Octets& expected, const Octets& actual) {
    EXPECT_EQ(Ebml::CompareFiles(expected, actual), "");
}
