// SPDX-License-Identifier: MIT
#include "MatroskaFile.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "MKVFile.h"

namespace MatroskaWriter {

namespace {

// Stores the `width` low octets of a number, an identifier or a length, with the bit set that marks their count.
// Returns width.
unsigned StoreMarked(unsigned char* target, std::uint64_t value, unsigned width) {
    if (width > 0) StoreBigEndian(target, value % PowerOfTwo(7 * width) + PowerOfTwo(7 * width), width);
    return width;
}

// Stores an element's identifier and the length of its payload. Returns the octets that they take.
constexpr unsigned kMaxHeader = 4 + 8;
unsigned StoreHeader(unsigned char* target, std::uint32_t id, std::uint64_t payloadSize) {
    const unsigned width = StoreMarked(target, id, SignificantOctets(id));
    return width + StoreMarked(target + width, payloadSize, LengthWidth(payloadSize));
}

std::int32_t WriteMarked(IStream* stream, std::uint64_t value, unsigned width) {
    if (width == 0) return 0;
    unsigned char octets[8];
    return stream->Write(octets, StoreMarked(octets, value, width), nullptr);
}

// Octets in which Xiph lacing writes a frame's size.
std::uint64_t LaceWidth(std::uint64_t frameSize) { return frameSize / 255 + 1; }

} // namespace

// ---- identifiers and lengths

std::uint64_t CID::Size(bool) const { return SignificantOctets(m_ID); }

std::int32_t CID::Write(IStream* stream) const { return WriteMarked(stream, m_ID, SignificantOctets(m_ID)); }

std::int32_t CID::HeaderWrite(IStream* stream) const { return HeaderWrite(stream, Size(false)); }

std::int32_t CID::HeaderWrite(IStream* stream, std::uint64_t payloadSize) const {
    unsigned char header[kMaxHeader];
    stream->Write(header, StoreHeader(header, m_ID, payloadSize), nullptr);
    return 0;
}

std::uint64_t CLength::Size(bool) const { return LengthWidth(m_Length); }

std::int32_t CLength::Write(IStream* stream) const { return WriteMarked(stream, m_Length, LengthWidth(m_Length)); }

// ---- values

unsigned CInt::PayloadWidth() const {
    if (m_Value == 0) return 1;
    const std::uint64_t bits = PayloadBits();
    if (m_Value > 0) return SignificantOctets(bits);
    const unsigned width = SignificantOctets(WrappingSubtract(std::uint64_t{0}, bits));
    const bool hasSign = bits / PowerOfTwo(width + 6) % 2 == 1;
    return std::min(hasSign ? width : width + 1, 8U);
}

std::uint64_t CFloat::PayloadBits() const {
    std::uint32_t bits = 0;
    static_assert(sizeof bits == sizeof m_Value, "IEEE 754 single");
    std::memcpy(&bits, &m_Value, sizeof bits);
    return bits;
}

std::int32_t CRun::WriteRun(IStream* stream, const void* octets, std::size_t size) const {
    HeaderWrite(stream, size);
    return stream->Write(octets, static_cast<unsigned long>(size), nullptr);
}

CBinary& CBinary::Set(const std::string& text) {
    m_Data.assign(text.c_str(), text.c_str() + text.size() + 1);
    return *this;
}

std::string CBinary::ToString() const { return {m_Data.begin(), std::find(m_Data.begin(), m_Data.end(), 0)}; }

CANSI& CANSI::Set(std::string text) {
    m_Value = std::move(text);
    return *this;
}

std::uint64_t CANSI::Size(bool withHeader) const { return m_Value.empty() ? 0 : Sized(m_Value.size(), withHeader); }

std::int32_t CANSI::Write(IStream* stream) const {
    return m_Value.empty() ? 0 : WriteRun(stream, m_Value.data(), m_Value.size());
}

CUTF8& CUTF8::Set(std::wstring text) {
    m_Value = std::move(text);
    return *this;
}

std::uint64_t CUTF8::Size(bool withHeader) const {
    return m_Value.empty() ? 0 : Sized(Utf8Text(m_Value.c_str()).Size(), withHeader);
}

std::int32_t CUTF8::Write(IStream* stream) const {
    if (m_Value.empty()) return 0;
    const Utf8Text text(m_Value.c_str());
    return WriteRun(stream, text.Data(), text.Size());
}

// ---- Segment level

std::uint64_t Segment::Size(bool withHeader) const {
    if (m_Size == 0) return kUnknownSize;
    return Sized(m_Size, withHeader);
}

std::int32_t Segment::Write(IStream* stream) const {
    CID::Write(stream);
    WriteMarked(stream, Size(false), 8);
    return 0;
}

std::uint64_t Void::Size(bool withHeader) const { return Sized(m_Size, withHeader); }

std::int32_t Void::Write(IStream* stream) const {
    static constexpr std::array<unsigned char, 64> kZeros{};
    HeaderWrite(stream);
    auto remaining = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_Size));
    while (remaining >= 1) {
        const auto piece = std::min<std::int32_t>(remaining, kZeros.size());
        stream->Write(kZeros.data(), static_cast<unsigned long>(piece), nullptr);
        remaining -= piece;
    }
    return 0;
}

// ---- blocks

std::uint64_t BlockBase::Size(bool withHeader) const {
    std::uint64_t payload = LengthWidth(m_TrackNumber.m_Length) + 3; // 2 octets of time, 1 of flags
    for (const CBinary& frame : m_Frames) payload += frame.m_Data.size();
    if (m_Frames.size() > 1) {
        payload += 1;
        for (auto frame = m_Frames.begin(); frame != std::prev(m_Frames.end()); ++frame) {
            payload += LaceWidth(frame->m_Data.size());
        }
    }
    return Sized(payload, withHeader);
}

void BlockBase::WriteStart(IStream* stream, unsigned char flags) const {
    unsigned char start[kMaxHeader + 8 + 3];
    unsigned size = StoreHeader(start, m_ID, BlockBase::Size(false));
    size += StoreMarked(start + size, m_TrackNumber.m_Length, LengthWidth(m_TrackNumber.m_Length));
    StoreBigEndian(start + size, static_cast<std::uint64_t>(m_Timecode), 2);
    start[size + 2] = flags;
    stream->Write(start, size + 3, nullptr);
}

void BlockBase::WriteFrames(IStream* stream) const {
    for (const CBinary& frame : m_Frames) {
        stream->Write(frame.m_Data.data(), static_cast<unsigned long>(frame.m_Data.size()), nullptr);
    }
}

std::int32_t CBlock::Write(IStream* stream) const {
    constexpr unsigned char kXiphLacing = 0x02;
    const bool laced = m_Frames.size() > 1;
    WriteStart(stream, laced ? kXiphLacing : 0);
    if (laced) {
        Bytes lacing{static_cast<unsigned char>(m_Frames.size())};
        for (auto frame = m_Frames.begin(); frame != std::prev(m_Frames.end()); ++frame) {
            const std::size_t size = frame->m_Data.size();
            lacing.insert(lacing.end(), size / 255, 255);
            lacing.push_back(static_cast<unsigned char>(size % 255));
        }
        stream->Write(lacing.data(), static_cast<unsigned long>(lacing.size()), nullptr);
    }
    WriteFrames(stream);
    return 0;
}

std::int32_t SimpleBlock::Write(IStream* stream) const {
    WriteStart(stream, m_Keyframe != 0 ? 0x80 : 0x00);
    WriteFrames(stream);
    return 0;
}

template class Compound<BlockGroup>;
template class Compound<Cluster>;

} // namespace MatroskaWriter
