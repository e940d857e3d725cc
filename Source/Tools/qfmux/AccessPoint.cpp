// SPDX-License-Identifier: MIT
#include "AccessPoint.h"

#include <algorithm>
#include <cstring>

namespace {

// Calls see with the octet after each start code and the octets that follow, until see returns false.
template <class See>
void EachStartCode(const std::uint8_t* data, std::size_t size, See see) {
    const std::uint8_t* const end = data + size;
    if (size < 4) return;
    for (const std::uint8_t* at = data + 2; at + 1 < end; ++at) {
        at = static_cast<const std::uint8_t*>(std::memchr(at, 1, static_cast<std::size_t>(end - at - 1)));
        if (at == nullptr) return;
        if (at[-1] == 0 && at[-2] == 0 && !see(at[1], at + 2, static_cast<std::size_t>(end - at - 2))) return;
    }
}

// ISO/IEC 11172-2 and 13818-2.
AccessPoint FindMpegVideo(const std::uint8_t* data, std::size_t size, bool hasSetup) {
    AccessPoint point;
    bool hasHeader = hasSetup;
    point.m_Front = size;
    EachStartCode(data, size, [&](unsigned code, const std::uint8_t* behind, std::size_t left) {
        if (code == 0xB3) { // sequence header
            hasHeader = true;
            point.m_Front = std::min(point.m_Front, size - left - 4);
        }
        if (code == 0xB8 && left > 3) point.m_IsClosed = (behind[3] & 0x40) != 0; // group of pictures: closed_gop
        if (code != 0) return true;
        point.m_IsKey = left > 1 && behind[1] / 8 % 8 == 1; // picture_coding_type: I
        return false;
    });
    point.m_IsEntry = point.m_IsKey && hasHeader;
    if (point.m_Front == size) point.m_Front = 0; // no header
    return point;
}

// ISO/IEC 14496-2. In a packed AVI the key flag may be that of the empty picture in whose place a B picture is put.
AccessPoint FindMpeg4(const std::uint8_t* data, std::size_t size, bool isKey, bool hasSetup) {
    AccessPoint point;
    bool hasHeader = hasSetup;
    EachStartCode(data, size, [&](unsigned code, const std::uint8_t* behind, std::size_t left) {
        if (code >= 0x20 && code <= 0x2F) hasHeader = true;    // video object layer
        if (code != 0xB6) return true;                         // video object plane
        point.m_IsKey = isKey && left > 0 && behind[0] < 0x40; // vop_coding_type: I
        return false;
    });
    point.m_IsEntry = point.m_IsKey && hasHeader;
    return point;
}

} // namespace

AccessPoint FindAccessPoint(AVCodecID codec, const std::uint8_t* data, std::size_t size, bool isKey, bool hasSetup) {
    if (codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO) return FindMpegVideo(data, size, hasSetup);
    if (codec == AV_CODEC_ID_MPEG4) return FindMpeg4(data, size, isKey, hasSetup);
    if (codec == AV_CODEC_ID_VP8) isKey = size > 0 && data[0] % 2 == 0; // RFC 6386, 9.1
    return {isKey, isKey, true, 0};
}

AccessPoint FindAccessPoint(const std::vector<NalUnit>& units, bool isKey) {
    const bool isClosed = HasInstantRefresh(units);
    const bool isEntry = isClosed || HasRecoveryPoint(units);
    return {isEntry || (isKey && IsIntraPicture(units)), isEntry, isClosed, 0};
}
