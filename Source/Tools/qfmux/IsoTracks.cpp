// SPDX-License-Identifier: MIT
#include "IsoTracks.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <tuple>
#include <utility>

namespace {

constexpr std::uint32_t Code(const char (&text)[5]) {
    std::uint32_t code = 0;
    for (int i = 0; i < 4; ++i) code = code * 256 + static_cast<unsigned char>(text[i]);
    return code;
}

// The boxes of a file. Reads zeros after the end.
class Boxes {
public:
    explicit Boxes(const std::string& path) : m_File(path, std::ios::binary) {
        m_File.seekg(0, std::ios::end);
        m_Size = static_cast<std::uint64_t>(std::max<std::streamoff>(m_File.tellg(), 0));
    }

    std::uint64_t FileSize() const { return m_Size; }

    std::uint64_t Number(std::uint64_t at, int octets) {
        char data[8] = {};
        m_File.clear();
        m_File.seekg(static_cast<std::streamoff>(at));
        m_File.read(data, octets);
        std::uint64_t number = 0;
        for (int i = 0; i < octets; ++i) number = number * 256 + static_cast<unsigned char>(data[i]);
        return number;
    }

    // Visits the boxes from `at` to `end` with their code and the position of their contents, until visit returns
    // false.
    using Visit = std::function<bool(std::uint32_t code, std::uint64_t from, std::uint64_t to)>;
    void Each(std::uint64_t at, std::uint64_t end, const Visit& visit) {
        while (at < end && end - at >= 8 && ++m_Visited < kMostBoxes) {
            std::uint64_t size = Number(at, 4);
            std::uint64_t header = 8;
            if (size == 1) {
                size = Number(at + 8, 8);
                header = 16;
            }
            if (size == 0) size = end - at; // the last one
            if (size < header || size > end - at) return;
            if (!visit(static_cast<std::uint32_t>(Number(at + 4, 4)), at + header, at + size)) return;
            at += size;
        }
    }

private:
    static constexpr int kMostBoxes = 100000; // a file may hold nothing but boxes

    std::ifstream m_File;
    std::uint64_t m_Size = 0;
    int m_Visited = 0;
};

struct TrackBoxes {
    IsoTrack m_Track;
    std::uint32_t m_Identifier = 0;
    std::uint64_t m_MediaLength = 0; // in the media's units
    std::uint64_t m_EditStart = 0;   // the same, of the last edit
    std::uint64_t m_EditLength = 0;  // in the film's units
};

class Reader {
public:
    explicit Reader(const std::string& path) : m_Boxes(path) {
        m_Boxes.Each(0, m_Boxes.FileSize(), [this](std::uint32_t code, std::uint64_t from, std::uint64_t to) {
            if (code != Code("moov")) return true;
            m_Boxes.Each(from, to, [this](std::uint32_t inner, std::uint64_t at, std::uint64_t end) {
                if (inner == Code("mvhd")) m_FilmScale = ReadScale(at).first;
                if (inner == Code("trak")) Keep(at, end);
                return true;
            });
            return false; // only one exists
        });
    }

    std::map<std::uint32_t, IsoTrack> m_Tracks;

private:
    // Units a second and length, of an mvhd or mdhd box.
    std::pair<std::uint32_t, std::uint64_t> ReadScale(std::uint64_t at) {
        const bool isLong = m_Boxes.Number(at, 1) == 1;
        const std::uint64_t place = at + (isLong ? 20 : 12);
        return {static_cast<std::uint32_t>(m_Boxes.Number(place, 4)), m_Boxes.Number(place + 4, isLong ? 8 : 4)};
    }

    void Keep(std::uint64_t at, std::uint64_t end) {
        TrackBoxes track;
        Read(track, at, end, 0);
        IsoTrack& kept = track.m_Track;
        if (kept.m_MediaEdits == 1 && m_FilmScale > 0 && track.m_EditLength > 0) {
            // One unit of the film may be many units of the media.
            const std::uint64_t shown =
                (track.m_EditLength + 1) * std::uint64_t{kept.m_TimeScale} / m_FilmScale + track.m_EditStart;
            if (track.m_MediaLength > shown) kept.m_HiddenEnd = track.m_MediaLength - shown;
        }
        m_Tracks[track.m_Identifier] = kept;
    }

    void Read(TrackBoxes& track, std::uint64_t from, std::uint64_t to, int depth) {
        constexpr int kDeepest = 4; // trak, mdia, minf, stbl
        m_Boxes.Each(from, to, [&](std::uint32_t code, std::uint64_t at, std::uint64_t end) {
            switch (code) {
            case Code("tkhd"):
                track.m_Identifier =
                    static_cast<std::uint32_t>(m_Boxes.Number(at + (m_Boxes.Number(at, 1) == 1 ? 20 : 12), 4));
                break;
            case Code("mdhd"):
                std::tie(track.m_Track.m_TimeScale, track.m_MediaLength) = ReadScale(at);
                break;
            case Code("elst"):
                ReadEdits(track, at, end);
                break;
            case Code("stsd"):
                m_Boxes.Each(at + 8, end, [&](std::uint32_t, std::uint64_t entry, std::uint64_t entryEnd) {
                    constexpr std::uint64_t kVisualSampleEntry = 78;
                    if (entryEnd - entry < kVisualSampleEntry) return true;
                    m_Boxes.Each(entry + kVisualSampleEntry, entryEnd,
                                 [&](std::uint32_t inner, std::uint64_t place, std::uint64_t) {
                                     if (inner == Code("clap")) track.m_Track.m_Crop = ReadAperture(entry, place);
                                     return true;
                                 });
                    return true;
                });
                break;
            case Code("edts"):
            case Code("mdia"):
            case Code("minf"):
            case Code("stbl"):
                if (depth < kDeepest) Read(track, at, end, depth + 1);
                break;
            default:
                break;
            }
            return true;
        });
    }

    // entry: the visual sample entry, which has the size of the pictures; at: its clean aperture, as fractions of
    // pixels: width and height, and how far its middle lies right of and below that of the pictures.
    Crop ReadAperture(std::uint64_t entry, std::uint64_t at) {
        constexpr std::uint64_t kWidthAt = 24;
        const auto part = [&](std::uint64_t place) {
            const auto numerator = static_cast<std::int32_t>(m_Boxes.Number(place, 4));
            const std::uint64_t denominator = m_Boxes.Number(place + 4, 4);
            return denominator > 0 ? static_cast<double>(numerator) / static_cast<double>(denominator) : 0;
        };
        const auto cut = [&](std::uint64_t axis, int& before, int& behind) {
            const auto size = static_cast<double>(m_Boxes.Number(entry + kWidthAt + 2 * axis, 2));
            const double left = size - part(at + 8 * axis);
            const double offset = part(at + 16 + 8 * axis);
            constexpr double kMost = 1 << 16;
            before = static_cast<int>(std::lround(std::clamp(left / 2 + offset, 0.0, kMost)));
            behind = static_cast<int>(std::lround(std::clamp(left - before, 0.0, kMost)));
        };
        Crop crop;
        cut(0, crop.m_Left, crop.m_Right);
        cut(1, crop.m_Top, crop.m_Bottom);
        return crop;
    }

    void ReadEdits(TrackBoxes& track, std::uint64_t at, std::uint64_t end) {
        const int width = m_Boxes.Number(at, 1) == 1 ? 8 : 4;
        const std::uint64_t entry = 2 * static_cast<std::uint64_t>(width) + 4;
        const std::uint64_t count = std::min(m_Boxes.Number(at + 4, 4), (end - at) / entry);
        at += 8;
        for (std::uint64_t i = 0; i < count; ++i, at += entry) {
            const std::uint64_t start = m_Boxes.Number(at + static_cast<std::uint64_t>(width), width);
            const bool isEmpty = start >> (8 * width - 1) != 0; // -1: nothing is shown, the film begins later
            if (isEmpty) continue;
            ++track.m_Track.m_MediaEdits;
            track.m_EditLength = m_Boxes.Number(at, width);
            track.m_EditStart = start;
            constexpr std::uint64_t kNormalSpeed = 0x10000;
            if (m_Boxes.Number(at + entry - 4, 4) != kNormalSpeed) track.m_Track.m_ChangesSpeed = true;
        }
    }

    Boxes m_Boxes;
    std::uint32_t m_FilmScale = 0;
};

} // namespace

std::map<std::uint32_t, IsoTrack> ReadIsoTracks(const std::string& path) { return Reader(path).m_Tracks; }
