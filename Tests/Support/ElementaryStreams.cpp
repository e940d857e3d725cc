// SPDX-License-Identifier: MIT
#include "ElementaryStreams.h"

#include <algorithm>
#include <stdexcept>

namespace {

Octets Part(const Octets& octets, std::size_t begin, std::size_t end) {
    return {octets.begin() + static_cast<std::ptrdiff_t>(begin), octets.begin() + static_cast<std::ptrdiff_t>(end)};
}

// Where the octets 00 00 01 begin next; the end when they do not.
std::size_t StartCode(const Octets& octets, std::size_t from) {
    const unsigned char code[] = {0, 0, 1};
    const auto found =
        std::search(octets.begin() + static_cast<std::ptrdiff_t>(from), octets.end(), std::begin(code), std::end(code));
    return static_cast<std::size_t>(found - octets.begin());
}

std::size_t LowToHigh(const Octets& octets, std::size_t at, std::size_t count) {
    std::size_t value = 0;
    for (std::size_t i = count; i > 0; --i) value = value << 8 | octets.at(at + i - 1);
    return value;
}

} // namespace

AvcStream::AvcStream(const Octets& octets) {
    for (std::size_t code = StartCode(octets, 0); code < octets.size();) {
        const std::size_t begin = code + 3;
        code = StartCode(octets, begin);
        std::size_t end = code;
        while (end > begin && octets[end - 1] == 0) --end; // the fourth octet of a start code
        if (end == begin) throw std::runtime_error("an empty NAL unit");
        const Octets unit = Part(octets, begin, end);
        const int type = unit[0] & 0x1F;
        if (type == 9) m_AccessUnits.push_back({{}, false});
        if (m_AccessUnits.empty()) throw std::runtime_error("a NAL unit before the first delimiter");
        if (type == 7 && m_SequenceSet.empty()) m_SequenceSet = unit;
        if (type == 8 && m_PictureSet.empty()) m_PictureSet = unit;
        AccessUnit& current = m_AccessUnits.back();
        current.m_Octets = current.m_Octets + Hex("00 00 00 01") + unit;
        current.m_Key = current.m_Key || type == 5;
    }
    if (m_AccessUnits.empty()) throw std::runtime_error("not an H.264 stream");
}

IvfStream::IvfStream(const Octets& octets) {
    if (octets.size() < 32 || Part(octets, 0, 4) != Ascii("DKIF")) throw std::runtime_error("not an IVF file");
    for (std::size_t at = LowToHigh(octets, 6, 2); at < octets.size();) {
        const std::size_t size = LowToHigh(octets, at, 4);
        at += 12;
        if (size == 0 || size > octets.size() - at) throw std::runtime_error("a cut off IVF frame");
        m_Frames.push_back({Part(octets, at, at + size), (octets[at] & 1) == 0});
        at += size;
    }
}

std::vector<Octets> Ac3Frames(const Octets& octets, std::size_t frameSize) {
    std::vector<Octets> frames;
    for (std::size_t at = 0; at < octets.size(); at += frameSize) {
        if (octets.size() - at < frameSize || octets[at] != 0x0B || octets[at + 1] != 0x77) {
            throw std::runtime_error("not AC-3 of this frame size");
        }
        frames.push_back(Part(octets, at, at + frameSize));
    }
    return frames;
}
