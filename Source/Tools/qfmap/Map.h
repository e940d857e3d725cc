// SPDX-License-Identifier: MIT
// The layout of a Matroska or WebM file by any writer: its elements, and where and when each track has blocks.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

enum class MapKind {
    EbmlHeader,
    SegmentHeader,
    SeekHead,
    ClusterIndex, // a SeekHead that lists clusters only
    Void,
    Info,
    Tracks,
    Cluster,
    Cues,
    Other, // Tags, Chapters, Attachments and unknown elements
    Junk   // octets that belong to no element
};

// The name under which the map lists a kind of element, "cluster index" for instance.
const char* MapKindName(MapKind kind);

// Positions are octets from the start of the file, times are seconds.
struct MapElement {
    MapKind m_Kind;
    std::string m_Name; // of RFC 9559
    std::uint64_t m_Position;
    std::uint32_t m_HeaderSize;
    std::uint64_t m_Octets;                  // present in the file, header included; the Segment counts its header only
    std::optional<std::uint64_t> m_Declared; // by its header, header included; nothing for an unknown size
    bool m_IsCut;                            // the file ends before the element does

    std::uint64_t End() const { return m_Position + m_Octets; }
};

struct MapCluster {
    MapElement m_Element;
    double m_Time;
    std::uint32_t m_Blocks;
    std::uint32_t m_KeyFrames;
    double m_FirstTime; // of its blocks; both are m_Time when there is none
    double m_LastTime;
};

struct MapPoint {
    std::uint64_t m_Position;
    double m_Time;
};

// Neighbouring blocks of one track: one block in a small file, more in a large one.
struct MapPiece {
    MapPoint m_First;
    MapPoint m_Last; // its position is the end of the last block
    std::uint64_t m_Octets;
    std::uint32_t m_Blocks;
    std::optional<MapPoint> m_KeyFrame; // the first
    double m_Lag;                       // the largest
};

// A stretch of time in which a track has no blocks.
struct MapGap {
    enum class Where { Start, Inside, End };
    Where m_Where;
    double m_From;
    double m_To;
    std::uint64_t m_Position; // of the block behind it, or of the last one
};

// A stretch of the file in which one track's blocks are more than a second later than another track's.
struct MapLag {
    MapPoint m_First;
    MapPoint m_Last;
    double m_Largest; // s
};

struct MapTrack {
    std::uint64_t m_Number = 0;
    std::string m_Kind; // video, audio, subtitles, ...; "unknown" for a number that Tracks does not name
    std::string m_CodecID;
    std::uint64_t m_Blocks = 0;
    std::uint64_t m_KeyFrames = 0;
    std::uint64_t m_Octets = 0; // of SimpleBlocks and BlockGroups, headers included
    double m_FirstTime = 0;
    double m_LastTime = 0;
    std::vector<MapPiece> m_Pieces;
    std::vector<MapGap> m_Gaps; // in order of time
    std::vector<MapLag> m_Lags; // in order of the file

    bool IsContinuous() const { return m_Kind == "video" || m_Kind == "audio"; }
};

struct MapCue {
    double m_Time;
    std::uint64_t m_Track;
    std::uint64_t m_Cluster; // where it points
    bool m_IsFound;          // a cluster begins there
};

struct FileMap {
    std::string m_Path;
    std::uint64_t m_Octets = 0;
    std::string m_DocType;
    std::string m_MuxingApp;
    std::string m_WritingApp;
    std::optional<double> m_Duration;   // as Info has it
    std::vector<MapElement> m_Elements; // all but clusters; no two overlap, and with the clusters they make up the file
    std::vector<MapCluster> m_Clusters;
    std::vector<MapTrack> m_Tracks;
    std::vector<MapCue> m_Cues;
    std::vector<std::string> m_Problems; // one line each

    double FirstTime() const; // of all blocks; 0 for none
    double LastTime() const;
    std::uint64_t KeyFrames() const; // of video tracks
};

// One row of the table: a kind of element, its count and its octets. The rows add up to the file's size.
struct MapShare {
    std::string m_What;
    std::uint64_t m_Count;
    std::uint64_t m_Octets;
};
std::vector<MapShare> MapShares(const FileMap& map);

nlohmann::json MapAsJson(const FileMap& map);
