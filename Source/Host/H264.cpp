// SPDX-License-Identifier: MIT
#include "H264.h"

#include <algorithm>
#include <cstring>

namespace QfHost {

namespace {

// The first 00 00 01, or end.
const std::uint8_t* FindStartCode(const std::uint8_t* data, const std::uint8_t* end) {
    if (end - data < 3) return end;
    for (const std::uint8_t* at = data + 2; at < end; ++at) {
        at = static_cast<const std::uint8_t*>(std::memchr(at, 1, static_cast<std::size_t>(end - at)));
        if (at == nullptr) break;
        if (at[-1] == 0 && at[-2] == 0) return at - 2;
    }
    return end;
}

bool IsRecord(const std::vector<std::uint8_t>& setupData) { return setupData.size() >= 7 && setupData[0] == 1; }

std::vector<std::uint8_t> Joined(const std::vector<NalUnit>& units, bool withStartCodes) {
    std::size_t size = 0;
    for (const NalUnit& unit : units) size += 4 + unit.m_Size;
    std::vector<std::uint8_t> frame;
    frame.reserve(size);
    for (const NalUnit& unit : units) AppendUnit(frame, unit, withStartCodes);
    return frame;
}

} // namespace

std::vector<NalUnit> SplitUnits(const std::uint8_t* data, std::size_t size) {
    std::vector<NalUnit> units;
    const std::uint8_t* const end = data + size;
    const std::uint8_t* begin = FindStartCode(data, end);
    while (begin != end) {
        begin += 3;
        const std::uint8_t* const next = FindStartCode(begin, end);
        // Zeros in front of a start code belong to it or are padding: no unit ends in a zero.
        const std::uint8_t* last = next;
        while (last > begin && last[-1] == 0) --last;
        if (last > begin) units.push_back({begin, static_cast<std::size_t>(last - begin)});
        begin = next;
    }
    return units;
}

std::vector<NalUnit> SplitLengths(const std::uint8_t* data, std::size_t size, std::size_t lengthSize, bool& isWhole) {
    std::vector<NalUnit> units;
    isWhole = true;
    while (size > 0) {
        const std::size_t head = std::min(lengthSize, size);
        std::size_t length = 0;
        for (std::size_t i = 0; i < head; ++i) length = length * 256 + data[i];
        data += head;
        size -= head;
        isWhole = head == lengthSize && length <= size;
        length = std::min(length, size);
        if (length > 0) units.push_back({data, length});
        data += length;
        size -= length;
    }
    return units;
}

std::vector<NalUnit> ParameterSets(const std::vector<std::uint8_t>& setupData) {
    if (!IsRecord(setupData)) return SplitUnits(setupData.data(), setupData.size());
    std::vector<NalUnit> sets;
    std::size_t position = 5;
    for (const unsigned mask : {32U, 256U}) { // 5 bits of count for sequence sets, 8 for picture sets
        if (position >= setupData.size()) break;
        for (unsigned count = setupData[position++] % mask; count > 0 && position + 2 <= setupData.size(); --count) {
            const std::size_t length = setupData[position] * 256U + setupData[position + 1];
            position += 2;
            if (length == 0 || length > setupData.size() - position) return sets;
            sets.push_back({&setupData[position], length});
            position += length;
        }
    }
    return sets;
}

H264Setup ReadH264Setup(const std::vector<std::uint8_t>& setupData) {
    H264Setup setup;
    setup.m_StartCodes = !IsRecord(setupData);
    if (!setup.m_StartCodes) setup.m_LengthSize = setupData[4] % 4U + 1;
    return setup;
}

void AppendUnit(std::vector<std::uint8_t>& octets, const NalUnit& unit, bool withStartCode) {
    const std::size_t head = withStartCode ? 1 : unit.m_Size; // 00 00 00 01 is a start code
    for (const unsigned shift : {24U, 16U, 8U, 0U}) octets.push_back(static_cast<std::uint8_t>(head >> shift));
    octets.insert(octets.end(), unit.m_pData, unit.m_pData + unit.m_Size);
}

std::vector<std::uint8_t> WithLongStartCodes(const std::vector<NalUnit>& units) { return Joined(units, true); }

std::vector<std::uint8_t> WithLengths(const std::vector<NalUnit>& units) { return Joined(units, false); }

} // namespace QfHost
