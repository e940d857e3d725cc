// SPDX-License-Identifier: MIT
// One pass over a finished file of any size in little memory: the elements of the Segment, and the blocks as they come.
// For files that fit into memory Ebml::File checks every element and every rule.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "VirtualFile.h"

// Throws std::runtime_error for data that is not EBML, with the offset.
class SegmentScan {
public:
    struct Block {
        std::uint64_t m_Cluster; // its Timestamp
        unsigned m_Track;
        int m_Relative;
        std::uint64_t m_FrameSize;

        std::int64_t Time() const { return static_cast<std::int64_t>(m_Cluster) + m_Relative; }
    };
    // Positions count from the first octet of the Segment's payload, as in the file.
    struct Entry {
        std::uint32_t m_Id;
        std::uint64_t m_Position;

        bool operator==(const Entry& other) const { return m_Id == other.m_Id && m_Position == other.m_Position; }
    };
    struct Cluster {
        std::uint64_t m_Position;
        std::uint64_t m_Time;
    };
    struct Cue {
        std::uint64_t m_Time;
        std::uint64_t m_Track;
        std::uint64_t m_ClusterPosition;
        std::uint64_t m_BlockNumber; // 0 for none
    };

    explicit SegmentScan(const VirtualFile& file, std::function<void(const Block&)> onBlock = {});

    std::uint64_t m_PayloadStart = 0; // of the Segment, in the file
    std::uint64_t m_SegmentSize = 0;  // as its header says
    std::vector<Entry> m_Children;    // of the Segment, where they stand; clusters too
    std::vector<std::vector<Entry>> m_SeekHeads;
    std::vector<Cluster> m_Clusters;
    std::vector<Cue> m_Cues;
    std::uint64_t m_BlockCount = 0;
    float m_Duration = -1;
    Octets m_Tracks; // the whole payload

private:
    struct Header {
        std::uint32_t m_Id;
        std::uint64_t m_Offset;
        std::uint64_t m_Payload;
        std::uint64_t m_Size;

        std::uint64_t End() const { return m_Payload + m_Size; }
    };

    unsigned char At(std::uint64_t offset);
    std::uint64_t Number(std::uint64_t offset, std::uint64_t size);
    std::uint64_t Number(const Header& element) { return Number(element.m_Payload, element.m_Size); }
    Header HeaderAt(std::uint64_t offset, std::uint64_t end);
    void ForEach(std::uint64_t begin, std::uint64_t end, const std::function<void(const Header&)>& visit);
    void ScanSeekHead(const Header& head);
    void ScanCluster(const Header& cluster);
    void ScanBlock(const Header& block, std::uint64_t clusterTime);
    void ScanCues(const Header& cues);

    const VirtualFile& m_File;
    std::function<void(const Block&)> m_OnBlock;
    Octets m_Window; // of the file, from m_WindowStart on
    std::uint64_t m_WindowStart = 0;
};

// Everything by which readers find their way: the Segment's size, the main seek head, the cluster index, and each cue's
// cluster. One line for each thing that is wrong.
std::string CheckIndexes(const VirtualFile& file, const SegmentScan& scan);
