// SPDX-License-Identifier: MIT
#include "MapReader.h"

#include <ebml/EbmlHead.h>
#include <ebml/EbmlSubHead.h>
#include <ebml/EbmlVoid.h>
#include <matroska/KaxBlock.h>
#include <matroska/KaxBlockData.h>
#include <matroska/KaxCluster.h>
#include <matroska/KaxClusterData.h>
#include <matroska/KaxCues.h>
#include <matroska/KaxCuesData.h>
#include <matroska/KaxInfo.h>
#include <matroska/KaxInfoData.h>
#include <matroska/KaxSeekHead.h>
#include <matroska/KaxSegment.h>
#include <matroska/KaxTracks.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "ElementReader.h"
#include "ToolError.h"
#include "TrackTimes.h"

namespace {

using namespace libmatroska;

constexpr std::size_t kMostProblems = 20;
constexpr std::uint64_t kNowhere = std::numeric_limits<std::uint64_t>::max(); // of a cue or seek that names no place
constexpr std::uint64_t kDefaultScale = 1000000;                              // ns a tick

MapKind KindOf(std::uint32_t id) {
    if (id == IdOf<KaxSeekHead>()) return MapKind::SeekHead;
    if (id == IdOf<libebml::EbmlVoid>()) return MapKind::Void;
    if (id == IdOf<KaxInfo>()) return MapKind::Info;
    if (id == IdOf<KaxTracks>()) return MapKind::Tracks;
    if (id == IdOf<KaxCues>()) return MapKind::Cues;
    return MapKind::Other;
}

const char* TrackKind(std::uint64_t type) {
    static const std::map<std::uint64_t, const char*> kKinds = {{1, "video"},    {2, "audio"},      {3, "complex"},
                                                                {16, "logo"},    {17, "subtitles"}, {18, "buttons"},
                                                                {32, "control"}, {33, "metadata"}};
    const auto kind = kKinds.find(type);
    return kind == kKinds.end() ? "unknown" : kind->second;
}

class MapReader {
public:
    explicit MapReader(const std::string& path) : m_Reader(path), m_Tracks(m_Map) {
        m_Map.m_Path = path;
        m_Map.m_Octets = m_Reader.Size();
    }

    FileMap Read() {
        if (m_Reader.Size() == 0) FailToRead(m_Map.m_Path, "it is empty");
        ReadHeader();
        while (m_Reader.At() < m_Reader.Size()) {
            const FoundElement found = m_Reader.Next();
            if (!found) {
                SkipJunk(m_Reader.Size());
            } else if (found.m_Id == IdOf<KaxSegment>()) {
                ReadSegment(found);
            } else {
                const bool isHeader = found.m_Id == IdOf<libebml::EbmlHead>();
                m_Reader.GoTo(AddElement(found, isHeader ? MapKind::EbmlHeader : KindOf(found.m_Id)).End());
            }
        }
        m_Tracks.EndSegment();
        CheckPlaces();
        if (m_MoreProblems > 0) {
            m_Map.m_Problems.push_back("and " + std::to_string(m_MoreProblems) + " more of the kind");
        }
        return std::move(m_Map);
    }

private:
    // ---- what stands on its own in the map

    MapElement MakeElement(const FoundElement& found, MapKind kind) const {
        const auto headerSize = static_cast<std::uint32_t>(found.m_Payload - found.m_Position);
        MapElement element{kind, found.Name(), found.m_Position, headerSize, headerSize, {}, false};
        if (!found.IsOpen()) {
            element.m_Declared = found.m_End - found.m_Position;
            element.m_Octets = m_Reader.Within(found.m_End) - found.m_Position;
            element.m_IsCut = found.m_End > m_Reader.Size();
        }
        return element;
    }

    MapElement& AddElement(const FoundElement& found, MapKind kind) {
        m_Map.m_Elements.push_back(MakeElement(found, kind));
        return m_Map.m_Elements.back();
    }

    void Complain(const std::string& text) {
        if (m_Map.m_Problems.size() < kMostProblems) {
            m_Map.m_Problems.push_back(text);
        } else {
            ++m_MoreProblems;
        }
    }

    // From here, where no element stands, to the next one that can be told for sure, or to `end`.
    void SkipJunk(std::uint64_t end) {
        const std::uint64_t from = m_Reader.At();
        const std::uint64_t next = m_Reader.FindNext(end);
        const std::uint64_t octets = next - from;
        const bool isHeader = next == m_Reader.Size() && octets < 12; // as long as a header can be
        m_Map.m_Elements.push_back(
            {MapKind::Junk, isHeader ? "cut header" : "no element", from, 0, octets, {}, isHeader});
        Complain(isHeader ? "cut off: the file ends within the header at " + std::to_string(from)
                          : "the " + std::to_string(octets) + " bytes at " + std::to_string(from) + " are no element");
        m_Reader.GoTo(next);
    }

    // ---- the file

    void ReadHeader() {
        if (m_Reader.IdAt(0) != IdOf<libebml::EbmlHead>()) {
            FailToRead(m_Map.m_Path, "it is no Matroska or WebM file");
        }
        const FoundElement header = m_Reader.Next();
        if (!header || header.IsOpen()) FailToRead(m_Map.m_Path, "its EBML header is broken");
        m_Map.m_DocType = "matroska"; // the default
        m_Reader.ForChildren(header, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<libebml::EDocType>()) m_Map.m_DocType = m_Reader.Text(child);
        });
        if (m_Map.m_DocType != "matroska" && m_Map.m_DocType != "webm") {
            FailToRead(m_Map.m_Path, "it is an EBML file of another type than Matroska or WebM");
        }
        m_Reader.GoTo(0);
    }

    void ReadSegment(const FoundElement& segment) {
        m_Tracks.EndSegment();
        m_Scale = kDefaultScale;
        m_SegmentPayload = segment.m_Payload;
        MapElement& element = AddElement(segment, MapKind::SegmentHeader);
        element.m_Octets = element.m_HeaderSize;
        if (element.m_IsCut) {
            Complain("cut off: the Segment goes on to byte " + std::to_string(segment.m_End) + ", the file ends at " +
                     std::to_string(m_Reader.Size()));
        }
        m_Reader.GoTo(segment.m_Payload);
        const std::uint64_t end = m_Reader.Within(segment.m_End);
        while (m_Reader.At() < end) {
            const FoundElement child = m_Reader.NextIn(segment);
            if (!child) {
                SkipJunk(end);
            } else if (child.m_IsOuter) {
                if (!segment.IsOpen()) {
                    Complain("the Segment goes on behind what stands at " + std::to_string(m_Reader.At()));
                }
                return;
            } else if (child.m_Id == IdOf<KaxCluster>()) {
                ReadCluster(child);
            } else {
                ReadLevelOne(child);
            }
        }
    }

    void ReadLevelOne(const FoundElement& found) {
        MapElement& element = AddElement(found, KindOf(found.m_Id));
        bool isWhole = true;
        if (found.m_Id == IdOf<KaxSeekHead>()) {
            bool onlyClusters = true;
            std::size_t entries = 0;
            isWhole = m_Reader.ForChildren(found, [&](const FoundElement& child) {
                if (child.m_Id != IdOf<KaxSeek>()) return;
                onlyClusters = ReadSeek(child) == IdOf<KaxCluster>() && onlyClusters;
                ++entries;
            });
            if (onlyClusters && entries > 0) element.m_Kind = MapKind::ClusterIndex;
        } else if (found.m_Id == IdOf<KaxInfo>()) {
            isWhole = ReadInfo(found);
        } else if (found.m_Id == IdOf<KaxTracks>()) {
            isWhole = m_Reader.ForChildren(found, [&](const FoundElement& child) {
                if (child.m_Id == IdOf<KaxTrackEntry>()) ReadTrack(child);
            });
        } else if (found.m_Id == IdOf<KaxCues>()) {
            isWhole = m_Reader.ForChildren(found, [&](const FoundElement& child) {
                if (child.m_Id == IdOf<KaxCuePoint>()) ReadCue(child);
            });
        } else {
            m_Reader.GoTo(found.IsOpen() ? found.m_Payload : m_Reader.Within(found.m_End));
        }
        element.m_Octets = m_Reader.At() - found.m_Position;
        if (!isWhole) Complain("the " + element.m_Name + " at " + std::to_string(found.m_Position) + " is damaged");
    }

    bool ReadInfo(const FoundElement& info) {
        double ticks = 0;
        const bool isWhole = m_Reader.ForChildren(info, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<KaxTimecodeScale>()) m_Scale = m_Reader.Unsigned(child, m_Scale);
            if (child.m_Id == IdOf<KaxDuration>()) ticks = m_Reader.Float(child);
            if (child.m_Id == IdOf<KaxMuxingApp>()) m_Map.m_MuxingApp = m_Reader.Text(child);
            if (child.m_Id == IdOf<KaxWritingApp>()) m_Map.m_WritingApp = m_Reader.Text(child);
        });
        if (ticks > 0 && ticks < 1e18) m_Map.m_Duration = Seconds(ticks);
        return isWhole;
    }

    void ReadTrack(const FoundElement& entry) {
        std::uint64_t number = 0;
        std::uint64_t type = 0;
        std::uint64_t frameDuration = 0;
        std::string codec;
        m_Reader.ForChildren(entry, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<KaxTrackNumber>()) number = m_Reader.Unsigned(child);
            if (child.m_Id == IdOf<KaxTrackType>()) type = m_Reader.Unsigned(child);
            if (child.m_Id == IdOf<KaxTrackDefaultDuration>()) frameDuration = m_Reader.Unsigned(child);
            if (child.m_Id == IdOf<KaxCodecID>()) codec = m_Reader.Text(child);
        });
        m_Tracks.Describe(number, TrackKind(type), codec, frameDuration);
    }

    // The identifier that it names.
    std::uint32_t ReadSeek(const FoundElement& seek) {
        std::uint32_t id = 0;
        std::uint64_t position = kNowhere;
        m_Reader.ForChildren(seek, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<KaxSeekPosition>()) position = m_SegmentPayload + m_Reader.Unsigned(child);
            if (child.m_Id != IdOf<KaxSeekID>()) return;
            std::vector<unsigned char> octets = m_Reader.Binary(child);
            octets.resize(std::min<std::size_t>(octets.size(), 4));
            for (const unsigned char octet : octets) id = id << 8 | octet;
        });
        m_Seeks.emplace_back(position, id);
        return id;
    }

    void ReadCue(const FoundElement& cue) {
        double time = 0;
        m_Reader.ForChildren(cue, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<KaxCueTime>()) time = Seconds(static_cast<double>(m_Reader.Unsigned(child)));
            if (child.m_Id != IdOf<KaxCueTrackPositions>()) return;
            MapCue entry{time, 0, kNowhere, false};
            m_Reader.ForChildren(child, [&](const FoundElement& leaf) {
                if (leaf.m_Id == IdOf<KaxCueTrack>()) entry.m_Track = m_Reader.Unsigned(leaf);
                if (leaf.m_Id == IdOf<KaxCueClusterPosition>()) {
                    entry.m_Cluster = m_SegmentPayload + m_Reader.Unsigned(leaf);
                }
            });
            m_Map.m_Cues.push_back(entry);
        });
    }

    // ---- clusters

    double Seconds(double ticks) const { return ticks * static_cast<double>(m_Scale) / 1e9; }

    void ReadCluster(const FoundElement& found) {
        MapCluster cluster{MakeElement(found, MapKind::Cluster), 0, 0, 0, 0, 0};
        std::uint64_t ticks = 0;
        const bool isWhole = m_Reader.ForChildren(found, [&](const FoundElement& child) {
            if (child.m_Id == IdOf<KaxClusterTimecode>()) {
                ticks = m_Reader.Unsigned(child);
            } else if (child.m_Id == IdOf<KaxSimpleBlock>()) {
                if (const auto head = m_Reader.Block(child)) AddBlock(cluster, child, ticks, *head, 0);
            } else if (child.m_Id == IdOf<KaxBlockGroup>()) {
                ReadBlockGroup(cluster, child, ticks);
            }
        });
        cluster.m_Element.m_Octets = m_Reader.At() - found.m_Position;
        if (!isWhole) Complain("the Cluster at " + std::to_string(found.m_Position) + " is damaged");
        cluster.m_Time = Seconds(static_cast<double>(ticks));
        if (cluster.m_Blocks == 0) cluster.m_FirstTime = cluster.m_LastTime = cluster.m_Time;
        m_Map.m_Clusters.push_back(std::move(cluster));
    }

    void ReadBlockGroup(MapCluster& cluster, const FoundElement& group, std::uint64_t ticks) {
        std::optional<BlockHead> head;
        bool hasReference = false;
        double duration = 0;
        m_Reader.ForChildren(group, [&](const FoundElement& part) {
            if (part.m_Id == IdOf<KaxBlock>()) head = m_Reader.Block(part);
            if (part.m_Id == IdOf<KaxReferenceBlock>()) hasReference = true;
            if (part.m_Id == IdOf<KaxBlockDuration>()) {
                duration = Seconds(static_cast<double>(m_Reader.Unsigned(part)));
            }
        });
        if (!head) return;
        head->m_IsKey = !hasReference;
        AddBlock(cluster, group, ticks, *head, duration);
    }

    // Found is the SimpleBlock or, read to its end, the BlockGroup.
    void AddBlock(MapCluster& cluster, const FoundElement& found, std::uint64_t ticks, const BlockHead& head,
                  double duration) {
        const double time = Seconds(static_cast<double>(ticks) + static_cast<double>(head.m_RelativeTime));
        const std::uint64_t end = found.IsOpen() ? m_Reader.At() : m_Reader.Within(found.m_End);
        const MapTrack& track =
            m_Tracks.Take({head.m_Track, found.m_Position, end, time, duration, head.m_Frames, head.m_IsKey});
        cluster.m_FirstTime = cluster.m_Blocks == 0 ? time : std::min(cluster.m_FirstTime, time);
        cluster.m_LastTime = cluster.m_Blocks == 0 ? time : std::max(cluster.m_LastTime, time);
        ++cluster.m_Blocks;
        if (head.m_IsKey && track.m_Kind == "video") ++cluster.m_KeyFrames;
    }

    // ---- the whole

    // Whether cues and seek heads name what stands where they say.
    void CheckPlaces() {
        std::vector<std::pair<std::uint64_t, std::uint32_t>> places;
        for (const MapCluster& cluster : m_Map.m_Clusters) {
            places.emplace_back(cluster.m_Element.m_Position, IdOf<KaxCluster>());
        }
        for (const MapElement& element : m_Map.m_Elements) {
            if (element.m_Kind == MapKind::Junk || element.m_Octets < 4) continue;
            places.emplace_back(element.m_Position, m_Reader.IdAt(element.m_Position));
        }
        std::sort(places.begin(), places.end());
        const auto stands = [&](std::uint64_t position, std::uint32_t id) {
            return std::binary_search(places.begin(), places.end(), std::pair{position, id});
        };
        // That a file is cut off is said already.
        const bool isCut = std::any_of(m_Map.m_Elements.begin(), m_Map.m_Elements.end(),
                                       [](const MapElement& element) { return element.m_IsCut; });
        const auto isCutOff = [&](std::uint64_t position) {
            return isCut && position >= m_Reader.Size() && position != kNowhere;
        };
        for (MapCue& cue : m_Map.m_Cues) {
            cue.m_IsFound = stands(cue.m_Cluster, IdOf<KaxCluster>());
            if (cue.m_IsFound || isCutOff(cue.m_Cluster)) continue;
            Complain("a cue names byte " + Place(cue.m_Cluster) + ", where no Cluster begins");
        }
        for (const auto& [position, id] : m_Seeks) {
            if (stands(position, id) || isCutOff(position)) continue;
            char name[32];
            std::snprintf(name, sizeof name, "0x%X", id);
            Complain("a SeekHead names byte " + Place(position) + ", where no element " + name + " begins");
        }
    }
    static std::string Place(std::uint64_t position) { return position == kNowhere ? "?" : std::to_string(position); }

    ElementReader m_Reader;
    FileMap m_Map;
    TrackTimes m_Tracks;                // of m_Map
    std::uint64_t m_SegmentPayload = 0; // what cues and seek heads count from
    std::uint64_t m_Scale = kDefaultScale;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> m_Seeks; // where, what
    std::uint64_t m_MoreProblems = 0;
};

} // namespace

FileMap ReadFileMap(const std::string& path) {
    try {
        return MapReader(path).Read();
    } catch (const ToolError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) { // libebml's own, for octets that it cannot make sense of
        FailToRead(path, error.what());
    }
}
