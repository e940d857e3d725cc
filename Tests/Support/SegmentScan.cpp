// SPDX-License-Identifier: MIT
#include "SegmentScan.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::uint32_t kEbml = 0x1A45DFA3;
constexpr std::uint32_t kSegment = 0x18538067;
constexpr std::uint32_t kVoid = 0xEC;
constexpr std::uint32_t kSeekHead = 0x114D9B74;
constexpr std::uint32_t kInfo = 0x1549A966;
constexpr std::uint32_t kTracks = 0x1654AE6B;
constexpr std::uint32_t kCluster = 0x1F43B675;
constexpr std::uint32_t kCues = 0x1C53BB6B;

[[noreturn]] void Fail(std::uint64_t offset, const char* what) {
    throw std::runtime_error("octet " + std::to_string(offset) + ": " + what);
}

} // namespace

SegmentScan::SegmentScan(const VirtualFile& file, std::function<void(const Block&)> onBlock)
    : m_File(file), m_OnBlock(std::move(onBlock)) {
    const Header ebml = HeaderAt(0, file.Size());
    if (ebml.m_Id != kEbml) Fail(0, "no EBML header");
    const Header segment = HeaderAt(ebml.End(), file.Size());
    if (segment.m_Id != kSegment) Fail(ebml.End(), "no Segment");
    m_PayloadStart = segment.m_Payload;
    m_SegmentSize = segment.m_Size;
    ForEach(segment.m_Payload, segment.End(), [&](const Header& child) {
        m_Children.push_back({child.m_Id, child.m_Offset - m_PayloadStart});
        if (child.m_Id == kSeekHead) ScanSeekHead(child);
        if (child.m_Id == kCluster) ScanCluster(child);
        if (child.m_Id == kCues) ScanCues(child);
        if (child.m_Id == kTracks) m_Tracks = m_File.Read(child.m_Payload, static_cast<std::size_t>(child.m_Size));
        if (child.m_Id != kInfo) return;
        ForEach(child.m_Payload, child.End(), [&](const Header& value) {
            if (value.m_Id != 0x4489) return;
            const auto bits = static_cast<std::uint32_t>(Number(value));
            std::memcpy(&m_Duration, &bits, sizeof m_Duration);
        });
    });
}

unsigned char SegmentScan::At(std::uint64_t offset) {
    if (offset < m_WindowStart || offset - m_WindowStart >= m_Window.size()) {
        m_WindowStart = offset;
        m_Window = m_File.Read(offset, 1 << 14);
        if (m_Window.empty()) Fail(offset, "the file ends too early");
    }
    return m_Window[static_cast<std::size_t>(offset - m_WindowStart)];
}

std::uint64_t SegmentScan::Number(std::uint64_t offset, std::uint64_t size) {
    if (size < 1 || size > 8) Fail(offset, "a number of no such width");
    std::uint64_t value = 0;
    for (std::uint64_t i = 0; i < size; ++i) value = value << 8 | At(offset + i);
    return value;
}

SegmentScan::Header SegmentScan::HeaderAt(std::uint64_t offset, std::uint64_t end) {
    const auto width = [&](std::uint64_t at) {
        std::uint64_t octets = 1;
        for (unsigned marker = 0x80; marker != 0 && (At(at) & marker) == 0; marker >>= 1) ++octets;
        return octets;
    };
    const std::uint64_t idWidth = width(offset);
    if (idWidth > 4) Fail(offset, "no identifier");
    const std::uint64_t lengthAt = offset + idWidth;
    const std::uint64_t lengthWidth = width(lengthAt);
    if (lengthWidth > 8) Fail(lengthAt, "no length");
    const std::uint64_t length = Number(lengthAt, lengthWidth) - (std::uint64_t{1} << (7 * lengthWidth));
    const Header header{static_cast<std::uint32_t>(Number(offset, idWidth)), offset, lengthAt + lengthWidth, length};
    if (header.m_Payload > end || length > end - header.m_Payload) Fail(offset, "an element larger than its parent");
    return header;
}

void SegmentScan::ForEach(std::uint64_t begin, std::uint64_t end, const std::function<void(const Header&)>& visit) {
    while (begin < end) {
        const Header element = HeaderAt(begin, end);
        visit(element);
        begin = element.End();
    }
}

void SegmentScan::ScanSeekHead(const Header& head) {
    std::vector<Entry>& entries = m_SeekHeads.emplace_back();
    ForEach(head.m_Payload, head.End(), [&](const Header& seek) {
        Entry entry{};
        ForEach(seek.m_Payload, seek.End(), [&](const Header& value) {
            if (value.m_Id == 0x53AB) entry.m_Id = static_cast<std::uint32_t>(Number(value));
            if (value.m_Id == 0x53AC) entry.m_Position = Number(value);
        });
        entries.push_back(entry);
    });
}

void SegmentScan::ScanCluster(const Header& cluster) {
    std::uint64_t time = 0;
    ForEach(cluster.m_Payload, cluster.End(), [&](const Header& child) {
        if (child.m_Id == 0xE7) time = Number(child);
        if (child.m_Id == 0xA3) ScanBlock(child, time);
        if (child.m_Id != 0xA0) return;
        ForEach(child.m_Payload, child.End(), [&](const Header& part) {
            if (part.m_Id == 0xA1) ScanBlock(part, time);
        });
    });
    m_Clusters.push_back({cluster.m_Offset - m_PayloadStart, time});
}

void SegmentScan::ScanBlock(const Header& block, std::uint64_t clusterTime) {
    ++m_BlockCount;
    if (block.m_Size < 4 || At(block.m_Payload) < 0x80) Fail(block.m_Offset, "a block of no track below 127");
    const auto relative = static_cast<std::int16_t>(Number(block.m_Payload + 1, 2));
    if (m_OnBlock) m_OnBlock({clusterTime, At(block.m_Payload) & 0x7FU, relative, block.m_Size - 4});
}

void SegmentScan::ScanCues(const Header& cues) {
    ForEach(cues.m_Payload, cues.End(), [&](const Header& point) {
        Cue cue{};
        ForEach(point.m_Payload, point.End(), [&](const Header& part) {
            if (part.m_Id == 0xB3) cue.m_Time = Number(part);
            if (part.m_Id != 0xB7) return;
            ForEach(part.m_Payload, part.End(), [&](const Header& value) {
                if (value.m_Id == 0xF7) cue.m_Track = Number(value);
                if (value.m_Id == 0xF1) cue.m_ClusterPosition = Number(value);
                if (value.m_Id == 0x5387) cue.m_BlockNumber = Number(value);
            });
        });
        m_Cues.push_back(cue);
    });
}

std::string CheckIndexes(const VirtualFile& file, const SegmentScan& scan) {
    using Entry = SegmentScan::Entry;
    std::string problems;
    const auto expect = [&](bool holds, const std::string& text) {
        if (!holds) problems += text + "\n";
    };
    expect(scan.m_PayloadStart + scan.m_SegmentSize == file.Size(), "the Segment does not end with the file");

    // The children of the Segment, except clusters and the filler.
    std::vector<Entry> children = scan.m_Children;
    expect(children.size() > 3 && children[0] == Entry{kSeekHead, 0} && children[1].m_Id == kVoid &&
               children[2] == Entry{kInfo, 4099},
           "the Segment does not begin with a seek head, a filler and, at 4,099, the Info");
    std::vector<Entry> clusters;
    std::vector<Entry> others;
    for (std::size_t i = 2; i < children.size(); ++i) {
        (children[i].m_Id == kCluster ? clusters : others).push_back(children[i]);
    }
    expect(others.size() == 4 && others[1].m_Id == kTracks && others[2].m_Id == kCues && others[3].m_Id == kSeekHead,
           "not Info, Tracks, Cues and the cluster index, once each");
    expect(scan.m_SeekHeads.size() == 2, "not two seek heads");
    if (!problems.empty()) return problems;
    expect(scan.m_SeekHeads[0] == others, "the main seek head does not name what is there");
    expect(scan.m_SeekHeads[1] == clusters, "the cluster index does not name every cluster at its place");
    expect(scan.m_Clusters[0].m_Time == 0, "the first cluster is not at 0");
    for (std::size_t i = 1; i < scan.m_Clusters.size(); ++i) {
        if (scan.m_Clusters[i].m_Time <= scan.m_Clusters[i - 1].m_Time) {
            expect(false, "cluster " + std::to_string(i) + " is not later than the one before");
        }
    }
    for (const SegmentScan::Cue& cue : scan.m_Cues) {
        const auto cluster = std::lower_bound(
            scan.m_Clusters.begin(), scan.m_Clusters.end(), cue.m_ClusterPosition,
            [](const SegmentScan::Cluster& c, std::uint64_t position) { return c.m_Position < position; });
        const bool resolves = cluster != scan.m_Clusters.end() && cluster->m_Position == cue.m_ClusterPosition &&
                              cue.m_Time >= cluster->m_Time && cue.m_Time <= cluster->m_Time + 1000;
        expect(resolves, "the cue at " + std::to_string(cue.m_Time) + " ms does not name its cluster");
    }
    return problems;
}
