// SPDX-License-Identifier: MIT
#include "OutputFile.h"

#include "TempDirectory.h"

Record MakeJob(const std::string& format, const std::string& video, const std::string& audio, unsigned char gap) {
    Record job("EncodeParam", gap);
    job.Set("formatFourCC", Code(format));
    job.Set("disableVideo", std::uint32_t{video.empty()});
    job.Set("disableAudio", std::uint32_t{audio.empty()});
    job.Set("videoParam.fourCC", Code(video));
    job.Set("videoParam.width", 320);
    job.Set("videoParam.height", 240);
    job.Set("videoParam.frameRate", 25.0);
    job.Set("videoParam.bitCount", 24);
    job.Set("audioParam.fourCC", Code(audio));
    job.Set("audioParam.sampleRate", 44100);
    job.Set("audioParam.channels", 2);
    job.Set("audioParam.bitsPerSample", 16);
    return job;
}

OutputFile::OutputFile(Host& host, const Record& job, const std::string& name, unsigned char gap)
    : m_Host(host), m_Path(host.Directory() / name), m_Gap(gap),
      m_pHandle(host.CreateMediaFile(m_Path.wstring().c_str(), &job)) {
    Require(m_pHandle != nullptr, "CreateMediaFile returned null");
    Require(std::filesystem::exists(m_Path), "CreateMediaFile returned a handle, but there is no file");
}

Record OutputFile::MakeFrame(std::int64_t timestamp, std::int32_t duration) const {
    Record frame("MEDIA_FRAME", m_Gap);
    frame.Set("timestamp", timestamp);
    frame.Set("duration", duration);
    return frame;
}

int OutputFile::Video(const Octets& octets, std::int64_t timestamp, bool key, std::int32_t duration) {
    const GuardedOctets buffer(octets);
    Record frame = MakeFrame(timestamp, duration);
    frame.Set("videoData", buffer.Data());
    frame.Set("videoSize", buffer.Size());
    frame.Set("frameFlags", std::uint32_t{key});
    const int result = m_Host.WriteVideoPacket(m_pHandle, &frame);
    m_HostBuffer = buffer.Copy();
    return result;
}

int OutputFile::Audio(const Octets& octets, std::int64_t timestamp, std::int32_t duration) {
    const GuardedOctets buffer(octets);
    Record frame = MakeFrame(timestamp, duration);
    frame.Set("audioData", buffer.Data());
    frame.Set("audioSize", buffer.Size());
    const int result = m_Host.WriteAudioPacket(m_pHandle, &frame, nullptr);
    Require(buffer.Copy() == octets, "WriteAudioPacket wrote into the host's frame");
    return result;
}

int OutputFile::PackedAudio(const Octets& octets, std::int64_t timestamp, std::int32_t duration,
                            std::vector<int> frameSizes) {
    const GuardedOctets buffer(octets);
    Record frame = MakeFrame(timestamp, duration);
    frame.Set("audioData", buffer.Data());
    frame.Set("audioSize", buffer.Size());
    const std::vector<int> before = frameSizes;
    const int result = m_Host.WriteAudioPacket(m_pHandle, &frame, frameSizes.data());
    Require(buffer.Copy() == octets, "WriteAudioPacket wrote into the host's frames");
    Require(frameSizes == before, "WriteAudioPacket wrote into the host's table of sizes");
    return result;
}

void OutputFile::VosData(const Octets& octets) {
    const GuardedOctets buffer(octets);
    m_Host.WriteVosData(m_pHandle, buffer.Data(), buffer.Size());
    Require(buffer.Copy() == octets, "WriteVosData wrote into the host's data");
}

void OutputFile::XpsData(const Octets& pictureSet, const Octets& sequenceSet) {
    const GuardedOctets picture(pictureSet);
    const GuardedOctets sequence(sequenceSet);
    m_Host.WritezXPSData(m_pHandle, picture.Data(), picture.Size(), sequence.Data(), sequence.Size());
    Require(picture.Copy() == pictureSet && sequence.Copy() == sequenceSet, "WritezXPSData wrote into the host's data");
}

void OutputFile::TakeVideo(const Octets& octets, std::int64_t timestamp, bool key) {
    RequireEqual(Video(octets, timestamp, key), static_cast<int>(octets.size()), "the result of WriteVideoPacket");
}

void OutputFile::TakeAudio(const Octets& octets, std::int64_t timestamp) {
    RequireEqual(Audio(octets, timestamp), static_cast<int>(octets.size()), "the result of WriteAudioPacket");
}

Octets OutputFile::Close() {
    m_Host.CloseMediaFile(m_pHandle);
    m_pHandle = nullptr;
    return ReadFile(m_Path);
}

Ebml::File OutputFile::Finish(Ebml::Times times) {
    Ebml::File file(Close());
    const std::vector<Ebml::Problem> problems = Ebml::Check(file, times);
    Require(problems.empty(), "the file is not sound: " + Ebml::Describe(problems));
    return file;
}

void OutputFile::FinishAsTree() {
    const Ebml::File file(Close());
    Require(file.Problems().empty(), "the file is no tree of elements: " + Ebml::Describe(file.Problems()));
}
