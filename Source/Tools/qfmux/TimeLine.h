// SPDX-License-Identifier: MIT
// The times of a file's packets, and how those that jump are mended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

constexpr AVRational kHostTimeBase = {1, 10000000};   // 100 ns
constexpr AVRational kAvTimeBase = {1, AV_TIME_BASE}; // microseconds
constexpr std::int64_t kSecond = kHostTimeBase.den;
// 3,653 years: sums and differences of such times stay within 64 bits for any time stamps of a damaged file.
constexpr std::int64_t kFurthestTime = std::int64_t{1} << 60;
// The largest number of H.264 pictures that wait between decoding and presentation.
constexpr std::size_t kLargestPictureBuffer = 16;
constexpr std::int64_t kLeastGap = 1000000; // 0.1 s, in sound that should have none
// Converts a stamp to 100 ns units, limited to kFurthestTime.
std::int64_t HostTime(std::int64_t stamp, AVRational timeBase);

// Rounded, as the file's times are.
constexpr std::int64_t ToMilliseconds(std::int64_t hostTime) { return (hostTime + 5000) / 10000; }

// The cluster, counted from 0, of a block at this time, ms. A cluster takes the blocks of one second; a block on the
// boundary belongs to the cluster before it.
constexpr std::int64_t ClusterOf(std::int64_t milliseconds) {
    return milliseconds <= 0 ? 0 : (milliseconds - 1) / 1000;
}

// The times of packets jump where a recording was cut, joined or damaged. Packets after a jump are moved to the end of
// the packets before it. Streams reach such a place one after the other and stay in step.
class TimeLine {
public:
    // shift: added to all times from the beginning, 100 ns.
    TimeLine(bool mayJump, std::int64_t shift);

    // To be called for each packet in the order of the file.
    void Mend(AVPacket& packet, AVRational timeBase);
    int Jumps() const { return m_Jumps; }

private:
    // 100 ns units.
    struct Stream {
        std::int64_t m_Expected = 0; // when the next packet is due
        std::int64_t m_Shift = 0;
        std::int64_t m_ShiftBefore = 0;
    };
    bool Fits(const Stream& stream, std::int64_t time, std::int64_t mostAhead) const;
    void ChooseStamp(AVPacket& packet, AVRational timeBase, const Stream& stream) const;
    std::int64_t LatestExpected() const;
    std::int64_t ShiftBehindJump(const Stream& stream, std::int64_t told);

    const bool m_MayJump;
    const std::int64_t m_FirstShift;
    std::map<int, Stream> m_Streams;
    int m_Jumps = 0;
};
