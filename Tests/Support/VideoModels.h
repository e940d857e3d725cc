// SPDX-License-Identifier: MIT
// A second implementation of the video scanners and of the splitter of NAL units, step by step.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "NalUnits.h"
#include "Octets.h"

// A frame in memory of exactly its size, so that a sanitizer sees every octet too far.
struct HostFrame {
    explicit HostFrame(const Octets& octets) : m_Size(static_cast<int>(octets.size())) {
        m_pData = std::make_unique<unsigned char[]>(octets.size());
        std::copy(octets.begin(), octets.end(), m_pData.get());
    }
    Octets Content() const { return {m_pData.get(), m_pData.get() + m_Size}; }

    int m_Size;
    std::unique_ptr<unsigned char[]> m_pData;
};

// The outcome of a splitter: the units handed on, the types asked for, the frame afterwards.
struct Split {
    std::vector<Octets> m_Units;
    std::vector<unsigned> m_Types;
    Octets m_Frame;
    int m_Total = 0;
    bool operator==(const Split& other) const {
        return m_Units == other.m_Units && m_Types == other.m_Types && m_Frame == other.m_Frame &&
               m_Total == other.m_Total;
    }
};

using Keep = std::function<bool(unsigned)>;

inline Split SplitBy(const Keep& keep, const Octets& octets) {
    const HostFrame frame(octets);
    Split split;
    split.m_Total = SplitNalUnits(frame.m_pData.get(), frame.m_Size, keep,
                                  [&](unsigned type, const unsigned char* unit, int length) {
                                      split.m_Types.push_back(type);
                                      split.m_Units.emplace_back(unit, unit + length);
                                  });
    split.m_Frame = frame.Content();
    return split;
}

inline int ModelFindStartCode(const Octets& frame, int from, int length) {
    for (int position = from; position + 4 <= from + length; ++position) {
        const auto at = [&](int i) { return frame[static_cast<std::size_t>(position + i)]; };
        if (at(0) == 0 && at(1) == 0 && at(2) == 0 && at(3) == 1) return position;
    }
    return -1;
}

inline Split ModelSplit(const Keep& keep, Octets frame) {
    Split split;
    const int end = static_cast<int>(frame.size());
    for (int current = 0; current < end;) {
        int length = end - current;
        const int p = ModelFindStartCode(frame, current, length);
        int unit = current;
        if (p >= 0) {
            const int q = ModelFindStartCode(frame, current + 4, length - 4);
            if (q >= 0) length = q - current;
            unit = p;
        }
        if (unit + 4 < end) { // else its type octet lies outside the frame
            const unsigned type = frame[static_cast<std::size_t>(unit + 4)] & 0x1FU;
            if (keep(type)) {
                const auto payload = static_cast<std::uint32_t>(length - 4);
                for (int i = 0; i < 4; ++i) {
                    frame[static_cast<std::size_t>(unit + i)] = static_cast<unsigned char>(payload >> (24 - 8 * i));
                }
                split.m_Types.push_back(type);
                split.m_Units.emplace_back(frame.begin() + current, frame.begin() + current + length);
                split.m_Total += length;
            }
        }
        current += length;
    }
    split.m_Frame = frame;
    return split;
}

// The scan, step by step, with signed positions as in its wording.
inline Octets ModelSequenceHeader(const Octets& video) {
    const int size = static_cast<int>(video.size());
    int start = -1;
    int end = size;
    for (int i = 0; i < size - 3; ++i) {
        const unsigned char* at = video.data() + i;
        if (at[0] != 0 || at[1] != 0 || at[2] != 1) continue;
        if (at[3] == 0xB3) {
            start = i;
        } else if (at[3] != 0xB5 && start >= 0) {
            end = i;
            break;
        }
    }
    return start < 0 ? Octets{} : Octets(video.begin() + start, video.begin() + end);
}
