// SPDX-License-Identifier: MIT
#include "Workload.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include "ByteOrder.h"
#include "Writer.h"

namespace {

constexpr std::size_t kPoolSize = 64 << 20;

constexpr WorkloadKind kKinds[] = {
    {"movie", "MKV ", "H264", "AAC ", Framing::Lengths, 25, 50, 60000, 6000, 18000, 340, 1024, 48000},
    {"movie-h264", "MKV ", "H264", "AAC ", Framing::StartCodes, 25, 50, 60000, 6000, 18000, 340, 1024, 48000},
    {"movie-n264", "MKV ", "N264", "AAC ", Framing::StartCodes, 25, 50, 60000, 6000, 18000, 340, 1024, 48000},
    {"audio", "MKA ", "", "MP3 ", Framing::None, 0, 0, 0, 0, 0, 417, 1152, 44100},
    {"webm", "WEBM", "VP8 ", "VBIS", Framing::None, 30, 60, 8000, 4000, 12000, 150, 480, 48000},
};

const WorkloadKind& FindKind(const std::string& name) {
    const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&](const WorkloadKind& candidate) { return name == candidate.m_Name; });
    if (kind == std::end(kKinds)) throw std::runtime_error("no workload is called " + name);
    return *kind;
}

// SplitMix64: a fixed sequence of numbers, the same for every compiler and word size.
class Numbers {
public:
    std::uint64_t Next() {
        m_State += 0x9E3779B97F4A7C15U;
        std::uint64_t number = m_State;
        number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
        number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
        return number ^ (number >> 31);
    }

private:
    std::uint64_t m_State = 1;
};

// Random octets, but as in a real H.264 unit: 00 00 is not followed by 00 to 03.
void FillPool(std::vector<unsigned char>& pool, Numbers& numbers) {
    for (std::size_t at = 0; at + sizeof(std::uint64_t) <= pool.size(); at += sizeof(std::uint64_t)) {
        const std::uint64_t number = numbers.Next();
        std::memcpy(pool.data() + at, &number, sizeof number);
    }
    unsigned char* const end = pool.data() + pool.size();
    for (unsigned char* at = pool.data(); end - at > 2; ++at) {
        at = static_cast<unsigned char*>(std::memchr(at, 0, static_cast<std::size_t>(end - at - 2)));
        if (at == nullptr) break;
        if (at[1] == 0 && at[2] <= 3) at[2] = 0x80;
    }
}

unsigned char* Append(unsigned char* target, const unsigned char* unit, std::size_t size) {
    StoreBigEndian(target, 1, 4);
    std::memcpy(target + 4, unit, size);
    return target + 4 + size;
}

} // namespace

Workload::Workload(const std::string& name, unsigned seconds) : m_Kind(FindKind(name)), m_Seconds(seconds) {
    Generate();
}

Workload::Clock Workload::PictureClock() const {
    if (m_Kind.m_FrameRate == 0) return {0, 0, 1, INT64_MAX}; // no picture ever
    return {kSecond / m_Kind.m_FrameRate, kSecond % m_Kind.m_FrameRate, m_Kind.m_FrameRate};
}

Workload::Clock Workload::SoundClock() const {
    const std::int64_t period = m_Kind.m_AudioSamples * kSecond;
    return {period / m_Kind.m_AudioRate, period % m_Kind.m_AudioRate, m_Kind.m_AudioRate};
}

void Workload::Generate() {
    Numbers sizes;
    // First the place of each frame, then the octets, because a short run does not need the whole pool.
    std::vector<std::size_t> pictureOffsets;
    std::vector<std::size_t> soundOffsets;
    std::size_t used = 0;
    Clock pictureClock = PictureClock();
    Clock soundClock = SoundClock();
    while (std::min(pictureClock.m_Time, soundClock.m_Time) < m_Seconds * kSecond) {
        const bool isPicture = pictureClock.m_Time <= soundClock.m_Time;
        const bool isKey = isPicture && m_Pictures.size() % m_Kind.m_KeyInterval == 0;
        std::uint32_t size = m_Kind.m_AudioSize;
        if (isKey) {
            size = m_Kind.m_KeySize;
        } else if (isPicture) {
            const unsigned choices = m_Kind.m_LargestPicture - m_Kind.m_SmallestPicture + 1;
            size = m_Kind.m_SmallestPicture + static_cast<std::uint32_t>(sizes.Next() % choices);
        }
        if (used + size > kPoolSize) break;
        (isPicture ? pictureClock : soundClock).Advance();
        (isPicture ? m_Pictures : m_Sounds).push_back({nullptr, size, isKey});
        (isPicture ? pictureOffsets : soundOffsets).push_back(used);
        used += size;
    }
    m_Pool.resize((used + 7) / 8 * 8);
    Numbers octets;
    FillPool(m_Pool, octets);
    for (std::size_t i = 0; i < m_Sounds.size(); ++i) m_Sounds[i].m_pData = m_Pool.data() + soundOffsets[i];
    for (std::size_t i = 0; i < m_Pictures.size(); ++i) {
        Slot& slot = m_Pictures[i];
        slot.m_pData = m_Pool.data() + pictureOffsets[i];
        if (m_Kind.m_Framing == Framing::Lengths) {
            StoreBigEndian(slot.m_pData, slot.m_Size - 4, 4);
            slot.m_pData[4] = slot.m_IsKey ? 0x65 : 0x41;
        }
    }
    // Whole groups of pictures, so that key frames keep their distance where the pool repeats.
    if (m_Kind.m_KeyInterval != 0 && m_Pictures.size() > m_Kind.m_KeyInterval) {
        m_Pictures.resize(m_Pictures.size() / m_Kind.m_KeyInterval * m_Kind.m_KeyInterval);
    }
}

void Workload::WriteStart(const Slot& slot) const {
    constexpr unsigned char kDelimiter[] = {0x09, 0xF0};
    const unsigned char sliceType = slot.m_IsKey ? 0x65 : 0x41;
    unsigned char* target = Append(slot.m_pData, kDelimiter, sizeof kDelimiter);
    if (slot.m_IsKey) {
        target = Append(target, kSequenceSet, sizeof kSequenceSet);
        target = Append(target, kPictureSet, sizeof kPictureSet);
    }
    Append(target, &sliceType, 1);
}
