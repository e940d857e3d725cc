// SPDX-License-Identifier: MIT
#include "H264Units.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace {

constexpr unsigned kSupplement = 6; // supplemental enhancement information (SEI)
constexpr unsigned kSequenceSet = 7;
constexpr unsigned kPictureSet = 8;
constexpr unsigned kSubsetSequenceSet = 15;
constexpr unsigned kRecoveryPoint = 6; // a payload type of SEI

// The bits after a unit's first octets, without emulation prevention octets (7.3.1). Reads zeros after the end.
class Bits {
public:
    Bits(const NalUnit& unit, std::size_t from) {
        for (std::size_t i = from; i < unit.m_Size && m_Size < m_Octets.size(); ++i) {
            const bool isGuard = i >= 2 && unit.m_pData[i] == 3 && unit.m_pData[i - 1] == 0 && unit.m_pData[i - 2] == 0;
            if (!isGuard) m_Octets[m_Size++] = unit.m_pData[i];
        }
    }

    // An unsigned number in Exp-Golomb code (9.1); -1 when there is none of less than 16 bits.
    int Number() {
        int zeros = 0;
        while (zeros < 16 && !Next()) ++zeros;
        if (zeros == 16) return -1;
        int value = 1;
        for (; zeros > 0; --zeros) value = 2 * value + (Next() ? 1 : 0);
        return value - 1;
    }

private:
    bool Next() {
        const std::size_t bit = m_At++;
        return bit / 8 < m_Size && (m_Octets[bit / 8] >> (7 - bit % 8) & 1) != 0;
    }

    std::array<std::uint8_t, 16> m_Octets{};
    std::size_t m_Size = 0;
    std::size_t m_At = 0;
};

// Whether one of the messages in an SEI unit (7.3.2.3) marks a recovery point.
bool MarksRecoveryPoint(const NalUnit& unit) {
    std::size_t at = 1;
    // Type and size: the sum of all octets of 255 and the next octet.
    const auto number = [&unit, &at]() {
        std::size_t value = 0;
        while (at < unit.m_Size && unit.m_pData[at] == 255) value += unit.m_pData[at++];
        return at < unit.m_Size ? value + unit.m_pData[at++] : unit.m_Size;
    };
    while (at + 2 < unit.m_Size) {
        const std::size_t type = number();
        const std::size_t size = number();
        if (type == kRecoveryPoint && size > 0) return true;
        // Emulation prevention octets do not count.
        for (std::size_t i = 0, zeros = 0; i < size && at < unit.m_Size; ++at) {
            const bool isGuard = zeros >= 2 && unit.m_pData[at] == 3;
            zeros = unit.m_pData[at] == 0 ? zeros + 1 : 0;
            if (!isGuard) ++i;
        }
    }
    return false;
}

} // namespace

std::vector<NalUnit> WithoutPadding(std::vector<NalUnit> units) {
    for (NalUnit& unit : units) {
        while (unit.m_Size > 0 && unit.m_pData[unit.m_Size - 1] == 0) --unit.m_Size;
    }
    units.erase(std::remove_if(units.begin(), units.end(), [](const NalUnit& unit) { return unit.m_Size == 0; }),
                units.end());
    return units;
}

bool HasInstantRefresh(const std::vector<NalUnit>& units) {
    return std::any_of(units.begin(), units.end(), [](const NalUnit& unit) { return unit.Type() == 5; });
}

bool HasRecoveryPoint(const std::vector<NalUnit>& units) {
    return std::any_of(units.begin(), units.end(),
                       [](const NalUnit& unit) { return unit.Type() == kSupplement && MarksRecoveryPoint(unit); });
}

bool IsIntraPicture(const std::vector<NalUnit>& units) {
    return std::all_of(units.begin(), units.end(), [](const NalUnit& unit) {
        if (!unit.IsSlice()) return true;
        Bits bits(unit, 1);
        bits.Number();                      // first_mb_in_slice
        const int kind = bits.Number() % 5; // slice_type: 2 is I, 4 is SI
        return kind == 2 || kind == 4;
    });
}

int ParameterSetId(const NalUnit& unit) {
    // Profile, constraints and level come first in a sequence set.
    if (unit.Type() == kSequenceSet || unit.Type() == kSubsetSequenceSet) return Bits(unit, 4).Number();
    return unit.Type() == kPictureSet ? Bits(unit, 1).Number() : -1;
}
