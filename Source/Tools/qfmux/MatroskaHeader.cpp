// SPDX-License-Identifier: MIT
#include "MatroskaHeader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>

namespace {

constexpr std::uint64_t kEbmlId = 0x1A45DFA3;
constexpr std::uint64_t kSegmentId = 0x18538067;
constexpr std::uint64_t kClusterId = 0x1F43B675;
constexpr std::uint64_t kCuesId = 0x1C53BB6B;
constexpr std::uint64_t kSeekHeadId = 0x114D9B74;
constexpr std::uint64_t kSeekId = 0x4DBB;
constexpr std::uint64_t kSeekIdId = 0x53AB;
constexpr std::uint64_t kInfoId = 0x1549A966;
constexpr std::uint64_t kTimestampScaleId = 0x2AD7B1;
constexpr std::uint64_t kDurationId = 0x4489;
constexpr std::uint64_t kTracksId = 0x1654AE6B;
constexpr std::uint64_t kTrackEntryId = 0xAE;
constexpr std::uint64_t kVideoId = 0xE0;
constexpr std::uint64_t kPixelCropBottomId = 0x54AA;
constexpr std::uint64_t kPixelCropTopId = 0x54BB;
constexpr std::uint64_t kPixelCropLeftId = 0x54CC;
constexpr std::uint64_t kPixelCropRightId = 0x54DD;
constexpr std::uint64_t kDisplayWidthId = 0x54B0;

constexpr int kMostElements = 10000; // few elements precede the frames

class Elements {
public:
    explicit Elements(const std::string& path) : m_File(path, std::ios::binary) {}

    // Visits the elements from the current position to `end`. visit reads or skips the contents and returns false to
    // stop.
    using Visit = std::function<bool(std::uint64_t identifier, std::uint64_t end)>;
    void Each(std::uint64_t end, const Visit& visit) {
        while (m_At < end && ++m_Visited < kMostElements) {
            const std::uint64_t identifier = Number(false);
            const std::uint64_t size = Number(true);
            if (!m_File || size > end - m_At) return;
            const std::uint64_t behind = m_At + size;
            if (!visit(identifier, behind)) return;
            m_At = behind;
            m_File.seekg(static_cast<std::streamoff>(m_At));
        }
    }

    std::uint64_t Unsigned(std::uint64_t end) {
        std::uint64_t value = 0;
        while (m_At < end && m_File) value = value * 256 + Octet();
        return value;
    }

    // A number of four or eight octets.
    double Float(std::uint64_t end) {
        const bool isShort = end - m_At == 4;
        const std::uint64_t bits = Unsigned(end);
        const auto shortBits = static_cast<std::uint32_t>(bits);
        float shortValue = 0;
        double value = 0;
        std::memcpy(&shortValue, &shortBits, sizeof shortValue);
        std::memcpy(&value, &bits, sizeof value);
        return isShort ? double{shortValue} : value;
    }

private:
    std::uint64_t Octet() {
        ++m_At;
        return static_cast<std::uint64_t>(m_File.get()) % 256;
    }

    // RFC 8794, variable-size integers; an unknown size becomes the largest one.
    std::uint64_t Number(bool isSize) {
        const std::uint64_t first = Octet();
        int length = 1;
        for (std::uint64_t mark = 0x80; length <= 8 && (first & mark) == 0; mark /= 2) ++length;
        if (length > 8) m_File.setstate(std::ios::failbit);
        std::uint64_t value = isSize ? first & (0xFFU >> length) : first;
        bool isUnknown = isSize && value == (0xFFU >> length);
        for (int i = 1; i < length && m_File; ++i) {
            const std::uint64_t next = Octet();
            isUnknown = isUnknown && next == 0xFF;
            value = value * 256 + next;
        }
        return isUnknown ? std::numeric_limits<std::int64_t>::max() - m_At : value;
    }

    std::ifstream m_File;
    std::uint64_t m_At = 0;
    int m_Visited = 0;
};

} // namespace

MatroskaHeader ReadMatroskaHeader(const std::string& path) {
    MatroskaHeader header;
    Elements elements(path);
    double ticks = 0;
    std::uint64_t scale = 1000000; // ns in a tick
    const auto visitInfo = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kTimestampScaleId) scale = elements.Unsigned(end);
        if (identifier == kDurationId) ticks = elements.Float(end);
        return true;
    };
    const auto visitVideo = [&](std::uint64_t identifier, std::uint64_t end) {
        MatroskaPicture& picture = header.m_Pictures.back();
        const auto pixels = [&] {
            return static_cast<int>(std::min<std::uint64_t>(elements.Unsigned(end), std::numeric_limits<int>::max()));
        };
        if (identifier == kPixelCropBottomId) picture.m_Crop.m_Bottom = pixels();
        if (identifier == kPixelCropTopId) picture.m_Crop.m_Top = pixels();
        if (identifier == kPixelCropLeftId) picture.m_Crop.m_Left = pixels();
        if (identifier == kPixelCropRightId) picture.m_Crop.m_Right = pixels();
        if (identifier == kDisplayWidthId) picture.m_HasDisplaySize = true;
        return true;
    };
    const auto visitTrack = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier != kVideoId) return true;
        header.m_Pictures.emplace_back();
        elements.Each(end, visitVideo);
        return true;
    };
    const auto visitTracks = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kTrackEntryId) elements.Each(end, visitTrack);
        return true;
    };
    const auto visitSeek = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kSeekIdId && elements.Unsigned(end) == kCuesId) header.m_HasCues = true;
        return true;
    };
    const auto visitSeekHead = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kSeekId) elements.Each(end, visitSeek);
        return true;
    };
    const auto visitSegment = [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kSeekHeadId) elements.Each(end, visitSeekHead);
        if (identifier == kCuesId) header.m_HasCues = true;
        if (identifier == kInfoId) elements.Each(end, visitInfo);
        if (identifier == kTracksId) elements.Each(end, visitTracks);
        return identifier != kClusterId;
    };
    elements.Each(std::numeric_limits<std::int64_t>::max(), [&](std::uint64_t identifier, std::uint64_t end) {
        if (identifier == kSegmentId) elements.Each(end, visitSegment);
        return identifier == kEbmlId;
    });
    header.m_Duration = ticks * static_cast<double>(scale) / 1e9;
    return header;
}
