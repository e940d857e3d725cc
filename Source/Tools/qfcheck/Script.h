// SPDX-License-Identifier: MIT
// A session in the making: the calls of a host, one after another.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "RandomSession.h"

namespace Script {

using Path = ReferenceModel::Path;

constexpr std::int64_t kMs = 10000;         // host times count 100 ns
constexpr std::int64_t kPicture = 40 * kMs; // of 25 a second
constexpr std::int32_t kFrameTime = 400000; // 25 frames a second

// A job of 320x240 at 25 frames a second and 24 bits, 44100 Hz stereo of 16 bits. Codes are of up to four characters,
// empty for a kind that is disabled.
Model::EncodeParam Job(const std::string& format, const std::string& video, const std::string& audio);

// Octets that look like no other frame's.
Octets Frame(std::size_t size, unsigned seed);
// Units behind start codes of 4 octets, or behind their lengths. Types of a byte: 0x65 an IDR slice, 0x41 a slice.
Octets Units(std::initializer_list<unsigned char> types, std::size_t size, unsigned seed);
Octets LengthUnits(std::initializer_list<unsigned char> types, std::size_t size, unsigned seed);

class Calls {
public:
    explicit Calls(int slot = 0) : m_Slot(slot) {}

    // Calls that follow are for the file of this slot.
    Calls& Slot(int slot);
    Calls& Options(std::uint32_t flags, std::int32_t x, std::int32_t y);
    Calls& Create(const Model::EncodeParam& job, Path path = Path::Opens);
    Calls& Video(Octets frame, std::int64_t time, bool key = true, std::int32_t duration = kFrameTime);
    Calls& Audio(Octets frame, std::int64_t time, std::int32_t duration = kFrameTime);
    // sizes: a count and the sizes, as the host passes them. told: what the record says of the frame's size; the truth
    // when negative.
    Calls& PackedAudio(Octets frames, std::int64_t time, std::int32_t duration, std::vector<int> sizes,
                       std::int32_t told = -1);
    Calls& AudioSetUp(Octets data);
    Calls& VideoSetUp(Octets pictureSet, Octets sequenceSet);
    Calls& Close();

    // The session of these calls.
    RandomSession Session() const;

private:
    HostCall& Add(HostCall::Kind kind);

    int m_Slot;
    std::vector<HostCall> m_Calls;
};

} // namespace Script
