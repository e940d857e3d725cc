// SPDX-License-Identifier: MIT
#include "Script.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>

namespace Script {

namespace {

using Kind = HostCall::Kind;

Model::FourCC CodeOf(const std::string& text) {
    char four[5] = "    ";
    std::copy_n(text.begin(), std::min<std::size_t>(text.size(), 4), four);
    return Model::MakeFourCC(four);
}

HostBuffer Whole(Octets octets) {
    HostBuffer buffer;
    buffer.length = static_cast<std::int32_t>(octets.size());
    buffer.octets = std::move(octets);
    return buffer;
}

Octets Assembled(std::initializer_list<unsigned char> types, std::size_t size, unsigned seed, bool startCodes) {
    Octets octets;
    for (const unsigned char type : types) {
        // No zeros in it, so that no start code comes about.
        Octets unit = Frame(size, seed++);
        for (unsigned char& octet : unit) octet |= 0x80;
        const auto length = static_cast<std::uint32_t>(unit.size() + 1);
        for (int shift = 24; shift >= 0; shift -= 8) {
            octets.push_back(static_cast<unsigned char>(startCodes ? shift == 0 : length >> shift));
        }
        octets.push_back(type);
        octets.insert(octets.end(), unit.begin(), unit.end());
    }
    return octets;
}

} // namespace

Model::EncodeParam Job(const std::string& format, const std::string& video, const std::string& audio) {
    Model::EncodeParam job;
    job.formatFourCC = CodeOf(format);
    job.videoParam = {CodeOf(video), 320, 240, 25.0, 24};
    job.audioParam = {CodeOf(audio), 44100, 2, 16};
    job.disableVideo = video.empty() ? 1 : 0;
    job.disableAudio = audio.empty() ? 1 : 0;
    if (video.empty()) job.videoParam.fourCC = 0;
    return job;
}

Octets Frame(std::size_t size, unsigned seed) {
    Octets octets(size);
    std::minstd_rand next(seed + 1);
    for (unsigned char& octet : octets) octet = static_cast<unsigned char>(next() >> 8 & 0xFF);
    return octets;
}

Octets Units(std::initializer_list<unsigned char> types, std::size_t size, unsigned seed) {
    return Assembled(types, size, seed, true);
}

Octets LengthUnits(std::initializer_list<unsigned char> types, std::size_t size, unsigned seed) {
    return Assembled(types, size, seed, false);
}

HostCall& Calls::Add(Kind kind) {
    HostCall& call = m_Calls.emplace_back();
    call.kind = kind;
    call.slot = m_Slot;
    return call;
}

Calls& Calls::Slot(int slot) {
    m_Slot = slot;
    return *this;
}

Calls& Calls::Options(std::uint32_t flags, std::int32_t x, std::int32_t y) {
    Add(Kind::SetMuxParam).muxParam = {0, flags, 0, x, y, 0};
    return *this;
}

Calls& Calls::Create(const Model::EncodeParam& job, Path path) {
    HostCall& call = Add(Kind::CreateMediaFile);
    call.encodeParam = std::make_shared<const Model::EncodeParam>(job);
    call.path = path;
    return *this;
}

Calls& Calls::Video(Octets frame, std::int64_t time, bool key, std::int32_t duration) {
    HostCall& call = Add(Kind::WriteVideoPacket);
    call.data = Whole(std::move(frame));
    call.frame.timestamp = time;
    call.frame.duration = duration;
    call.frame.frameFlags = key ? 1 : 0;
    return *this;
}

Calls& Calls::Audio(Octets frame, std::int64_t time, std::int32_t duration) {
    HostCall& call = Add(Kind::WriteAudioPacket);
    call.data = Whole(std::move(frame));
    call.frame.timestamp = time;
    call.frame.duration = duration;
    return *this;
}

Calls& Calls::PackedAudio(Octets frames, std::int64_t time, std::int32_t duration, std::vector<int> sizes,
                          std::int32_t told) {
    Audio(std::move(frames), time, duration);
    HostCall& call = m_Calls.back();
    call.isSplit = true;
    call.frameSizes = std::move(sizes);
    if (told >= 0) call.data.length = told;
    return *this;
}

Calls& Calls::AudioSetUp(Octets data) {
    Add(Kind::WriteVosData).data = Whole(std::move(data));
    return *this;
}

Calls& Calls::VideoSetUp(Octets pictureSet, Octets sequenceSet) {
    HostCall& call = Add(Kind::WritezXPSData);
    call.data = Whole(std::move(pictureSet));
    call.sequence = Whole(std::move(sequenceSet));
    return *this;
}

Calls& Calls::Close() {
    Add(Kind::CloseMediaFile);
    return *this;
}

RandomSession Calls::Session() const {
    RandomSession session;
    session.clock = 1700000000;
    for (const HostCall& call : m_Calls) {
        if (call.kind != Kind::CreateMediaFile) continue;
        // A UID of each width, and the largest.
        for (const int value : {0x7FFFFFFF, 0x12, 0x3456, 0x789ABC}) session.randValues.push_back(value);
    }
    session.calls = m_Calls;
    return session;
}

} // namespace Script
