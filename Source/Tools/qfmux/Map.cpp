#include "Map.h"

#include <ebml/EbmlHead.h>
#include <ebml/EbmlSubHead.h>
#include <ebml/EbmlVoid.h>
#include <fcntl.h>
#include <matroska/KaxBlock.h>
#include <matroska/KaxBlockData.h>
#include <matroska/KaxCluster.h>
#include <matroska/KaxClusterData.h>
#include <matroska/KaxContexts.h>
#include <matroska/KaxCues.h>
#include <matroska/KaxCuesData.h>
#include <matroska/KaxInfo.h>
#include <matroska/KaxInfoData.h>
#include <matroska/KaxSeekHead.h>
#include <matroska/KaxSegment.h>
#include <matroska/KaxTracks.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <queue>

#include "ToolError.h"

namespace {

using namespace libmatroska;
using libebml::EbmlElement;
using libebml::EbmlId;

constexpr std::uint64_t kOpen = std::numeric_limits<std::uint64_t>::max(); // the end of an unknown size
constexpr std::size_t kMostPieces = 4096;                                  // of a track
constexpr std::size_t kMostHoles = 4096;
constexpr std::size_t kMostLags = 512;
constexpr std::size_t kMostProblems = 20;
constexpr std::size_t kReordered = 32; // blocks of a track that may stand in another order than their times; H.264: 16
constexpr double kSmallestGap = 0.25;  // s
constexpr double kSmallestLag = 1.0;   // s
constexpr std::uint64_t kLongestText = 65536;

std::uint32_t IdOf(const EbmlElement& element) { return EBML_ID_VALUE(EbmlId(element)); }
template <class Type>
std::uint32_t IdOf() {
    return EBML_ID_VALUE(EBML_ID(Type));
}

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw ToolError(kExitError, "cannot read '" + path + "': " + reason);
}

// Reads a page at a time, so that skipping from header to header leaves payloads on the disk.
class InputFile : public libebml::IOCallback {
public:
    explicit InputFile(const std::string& path)
        : m_Path(path), m_Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (m_Descriptor < 0) Fail(path, std::strerror(errno));
        struct stat status = {};
        const bool isFile = fstat(m_Descriptor, &status) == 0 && S_ISREG(status.st_mode);
        m_Size = static_cast<std::uint64_t>(status.st_size);
        if (isFile) return;
        ::close(m_Descriptor);
        Fail(path, "it is no regular file");
    }
    ~InputFile() override { ::close(m_Descriptor); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::uint64_t Size() const { return m_Size; }

    // Up to size octets from a position; fewer at the end of the file.
    std::size_t ReadAt(std::uint64_t position, void* buffer, std::size_t size) const {
        std::size_t done = 0;
        while (done < size) {
            const ssize_t n = pread(m_Descriptor, static_cast<char*>(buffer) + done, size - done,
                                    static_cast<off_t>(position + done));
            if (n < 0 && errno != EINTR) Fail(m_Path, std::strerror(errno));
            if (n == 0) break;
            if (n > 0) done += static_cast<std::size_t>(n);
        }
        return done;
    }

    uint32 read(void* buffer, size_t size) override {
        std::size_t done = 0;
        while (done < size) {
            if (m_At < m_PageAt || m_At >= m_PageAt + m_PageSize) {
                m_PageAt = m_At;
                m_PageSize = ReadAt(m_At, m_Page.data(), m_Page.size());
                if (m_PageSize == 0) break;
            }
            const std::size_t from = static_cast<std::size_t>(m_At - m_PageAt);
            const std::size_t n = std::min(size - done, m_PageSize - from);
            std::memcpy(static_cast<char*>(buffer) + done, m_Page.data() + from, n);
            done += n;
            m_At += n;
        }
        return static_cast<uint32>(done);
    }
    void setFilePointer(int64 offset, libebml::seek_mode mode) override {
        const std::uint64_t base = mode == libebml::seek_beginning ? 0 : mode == libebml::seek_end ? m_Size : m_At;
        m_At = base + static_cast<std::uint64_t>(offset);
    }
    uint64 getFilePointer() override { return m_At; }
    size_t write(const void*, size_t) override { throw std::logic_error("the input is never written"); }
    void close() override {}

private:
    std::string m_Path;
    int m_Descriptor;
    std::uint64_t m_Size = 0;
    std::uint64_t m_At = 0;
    std::array<char, 4096> m_Page;
    std::uint64_t m_PageAt = 0;
    std::size_t m_PageSize = 0;
};

// An element's header, read.
struct Found {
    std::unique_ptr<EbmlElement> m_pElement; // null: no element that fits stands there
    std::uint32_t m_Id = 0;
    std::uint64_t m_Position = 0;
    std::uint64_t m_Payload = 0;
    std::uint64_t m_End = 0; // kOpen for an unknown size
    bool m_IsOuter = false;  // it belongs to an element further out: what it was looked for in ends here

    const libebml::EbmlSemanticContext& Context() const { return EBML_CONTEXT(m_pElement); }
};

struct BlockHead {
    std::uint64_t m_Track = 0;
    std::int64_t m_RelativeTime = 0; // ticks
    std::uint64_t m_Frames = 1;
    bool m_IsKey = false;
};

// What is needed of a track while its blocks go by.
struct TrackState {
    struct Span {
        double m_Start;
        double m_End; // m_Start when it is not known
        std::uint64_t m_Position;
        bool operator>(const Span& other) const { return m_Start > other.m_Start; }
    };
    struct Hole {
        Span m_Before;
        Span m_After;
        double Length() const { return m_After.m_Start - m_Before.m_End; }
    };

    double m_FrameDuration = 0; // s, 0 for unknown
    std::uint32_t m_BlocksPerPiece = 1;
    std::priority_queue<Span, std::vector<Span>, std::greater<>> m_Waiting; // to be taken in order of time
    std::optional<Span> m_Previous;
    std::vector<Hole> m_Holes;
    double m_Usual = 0; // sum of the distances that are no holes
    std::uint64_t m_UsualCount = 0;
    bool m_IsLagging = false;
};

// The furthest times of all tracks, so that any track knows how far the others are.
class Leader {
public:
    std::optional<double> Others(std::size_t track) const { return track == m_Track ? m_Second : m_First; }
    void Take(std::size_t track, double time) {
        if (!m_First || time > *m_First) {
            if (track != m_Track) m_Second = m_First;
            m_First = time;
            m_Track = track;
        } else if (track != m_Track && (!m_Second || time > *m_Second)) {
            m_Second = time;
        }
    }

private:
    std::size_t m_Track = std::numeric_limits<std::size_t>::max();
    std::optional<double> m_First;
    std::optional<double> m_Second;
};

class MapReader {
public:
    explicit MapReader(const std::string& path) : m_Path(path), m_File(path) {
        m_Map.m_Path = path;
        m_Map.m_Octets = m_File.Size();
    }

    FileMap Read() {
        if (m_File.Size() == 0) Fail(m_Path, "it is empty");
        ReadHeader();
        while (m_At < m_File.Size()) {
            Found found = Next(KaxMatroska_Context, kOpen);
            if (!found.m_pElement) {
                SkipJunk(m_File.Size());
            } else if (found.m_Id == IdOf<KaxSegment>()) {
                ReadSegment(found);
            } else {
                const bool isHeader = found.m_Id == IdOf<libebml::EbmlHead>();
                const MapElement& element = AddElement(found, isHeader ? MapKind::EbmlHeader : KindOf(found.m_Id));
                m_At = element.End();
            }
        }
        EndSegment();
        CheckPlaces();
        if (m_MoreProblems > 0) {
            m_Map.m_Problems.push_back("and " + std::to_string(m_MoreProblems) + " more of the kind");
        }
        return std::move(m_Map);
    }

private:
    // ---- elements

    std::uint64_t Within(std::uint64_t position) const { return std::min(position, m_File.Size()); }

    // The header at m_At, as a child of a parent of that kind, which ends there. The place in the file is then the
    // payload's; m_At stays.
    Found Next(const libebml::EbmlSemanticContext& parent, std::uint64_t end) {
        // libebml goes on searching, octet by octet, when what stands there is no element. Whether an identifier and a
        // length can begin there is seen beforehand: four octets of identifier and eight of length at most.
        std::array<unsigned char, 12> head = {};
        m_File.setFilePointer(static_cast<int64>(m_At), libebml::seek_beginning);
        const std::size_t n = m_File.read(head.data(), head.size());
        const std::size_t idSize = head[0] >= 0x80 ? 1 : head[0] >= 0x40 ? 2 : head[0] >= 0x20 ? 3 : 4;
        if (head[0] < 0x10 || idSize >= n || head[idSize] == 0) return {};
        int upper = 0;
        Found found;
        m_File.setFilePointer(static_cast<int64>(m_At), libebml::seek_beginning);
        found.m_pElement.reset(EbmlElement::FindNextElement(m_File, parent, upper, kOpen, true));
        if (!found.m_pElement || found.m_pElement->GetElementPosition() != m_At) return {};
        found.m_Id = IdOf(*found.m_pElement);
        found.m_Position = m_At;
        found.m_Payload = m_File.getFilePointer();
        // Not IsFiniteSize: libmatroska makes Segments endless until told otherwise. A length of all ones is unknown.
        const std::uint64_t size = found.m_pElement->EbmlElement::GetSize();
        const bool isUnknown = size == (std::uint64_t{1} << 7 * found.m_pElement->GetSizeLength()) - 1;
        found.m_End = isUnknown ? kOpen : found.m_Payload + size;
        found.m_IsOuter = upper > 0;
        const bool overruns = end != kOpen && found.m_End != kOpen && found.m_End > end && !found.m_IsOuter;
        const bool isGarbage = found.m_pElement->IsDummy() && found.m_End > m_File.Size();
        if (overruns || isGarbage) return {};
        return found;
    }

    // Calls visit for each child; afterwards m_At is where the parent ends. Says whether all of it could be read.
    template <class Visit>
    bool ForChildren(const Found& parent, Visit visit) {
        m_At = parent.m_Payload;
        const std::uint64_t end = Within(parent.m_End);
        while (m_At < end) {
            const Found child = Next(parent.Context(), parent.m_End);
            if (!child.m_pElement) {
                if (parent.m_End != kOpen) m_At = end;
                return end < parent.m_End && parent.m_End != kOpen; // cut off, which is said once for the file
            }
            if (child.m_IsOuter) return parent.m_End == kOpen;
            visit(child);
            if (child.m_End != kOpen) {
                m_At = Within(child.m_End);
            } else if (m_At == child.m_Position) {
                return false; // nobody looked for its end
            }
        }
        return true;
    }

    std::uint64_t Unsigned(const Found& found, std::uint64_t otherwise = 0) {
        auto* const value = dynamic_cast<libebml::EbmlUInteger*>(found.m_pElement.get());
        return value != nullptr && Load(found) ? value->GetValue() : otherwise;
    }
    double Float(const Found& found) {
        auto* const value = dynamic_cast<libebml::EbmlFloat*>(found.m_pElement.get());
        return value != nullptr && Load(found) ? value->GetValue() : 0;
    }
    std::string Text(const Found& found) {
        if (!Load(found)) return {};
        std::string text;
        if (auto* const unicode = dynamic_cast<libebml::EbmlUnicodeString*>(found.m_pElement.get())) {
            text = unicode->GetValueUTF8();
        } else if (auto* const plain = dynamic_cast<libebml::EbmlString*>(found.m_pElement.get())) {
            text = plain->GetValue();
        }
        return text.substr(0, text.find('\0'));
    }
    // Reads the payload of a value, if it is whole.
    bool Load(const Found& found) {
        if (found.m_End > m_File.Size() || found.m_End - found.m_Payload > kLongestText) return false;
        m_File.setFilePointer(static_cast<int64>(found.m_Payload), libebml::seek_beginning);
        found.m_pElement->ReadData(m_File);
        return true;
    }

    // ---- what stands on its own in the map

    static MapKind KindOf(std::uint32_t id) {
        if (id == IdOf<KaxSeekHead>()) return MapKind::SeekHead;
        if (id == IdOf<libebml::EbmlVoid>()) return MapKind::Void;
        if (id == IdOf<KaxInfo>()) return MapKind::Info;
        if (id == IdOf<KaxTracks>()) return MapKind::Tracks;
        if (id == IdOf<KaxCues>()) return MapKind::Cues;
        return MapKind::Other;
    }

    MapElement MakeElement(const Found& found, MapKind kind) const {
        const auto headerSize = static_cast<std::uint32_t>(found.m_Payload - found.m_Position);
        MapElement element{kind, "", found.m_Position, headerSize, 0, {}, false};
        if (found.m_Id == IdOf<libebml::EbmlHead>()) {
            element.m_Name = "EBML";
        } else if (found.m_Id == IdOf<libebml::EbmlVoid>()) {
            element.m_Name = "Void";
        } else if (found.m_Id == IdOf<KaxSeekHead>()) {
            element.m_Name = "SeekHead"; // libmatroska's name is another
        } else if (found.m_pElement->IsDummy()) {
            char name[32];
            std::snprintf(name, sizeof name, "0x%X", found.m_Id);
            element.m_Name = name;
        } else {
            element.m_Name = EBML_NAME(found.m_pElement);
        }
        if (found.m_End == kOpen) {
            element.m_Octets = headerSize;
        } else {
            element.m_Declared = found.m_End - found.m_Position;
            element.m_Octets = Within(found.m_End) - found.m_Position;
            element.m_IsCut = found.m_End > m_File.Size();
        }
        return element;
    }

    MapElement& AddElement(const Found& found, MapKind kind) {
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

    // From m_At, where no element stands, to the next one that can be told for sure: by an identifier of four octets.
    void SkipJunk(std::uint64_t end) {
        static constexpr std::array<std::array<unsigned char, 4>, 10> kMarks = {{{0x1A, 0x45, 0xDF, 0xA3},
                                                                                 {0x18, 0x53, 0x80, 0x67},
                                                                                 {0x1F, 0x43, 0xB6, 0x75},
                                                                                 {0x1C, 0x53, 0xBB, 0x6B},
                                                                                 {0x11, 0x4D, 0x9B, 0x74},
                                                                                 {0x15, 0x49, 0xA9, 0x66},
                                                                                 {0x16, 0x54, 0xAE, 0x6B},
                                                                                 {0x12, 0x54, 0xC3, 0x67},
                                                                                 {0x10, 0x43, 0xA7, 0x70},
                                                                                 {0x19, 0x41, 0xA4, 0x69}}};
        const std::uint64_t from = m_At;
        std::uint64_t next = end;
        std::vector<unsigned char> window(1 << 16);
        for (std::uint64_t at = from + 1; next == end && at + 4 <= end;) {
            const std::size_t n = m_File.ReadAt(at, window.data(), window.size());
            if (n < 4) break;
            for (std::size_t i = 0; i + 4 <= n; ++i) {
                if (window[i] < 0x10 || window[i] > 0x1F) continue;
                const auto is = [&](const auto& mark) { return std::equal(mark.begin(), mark.end(), &window[i]); };
                if (at + i + 4 > end || std::none_of(kMarks.begin(), kMarks.end(), is)) continue;
                next = at + i;
                break;
            }
            at += n - 3;
        }
        const bool endsFile = next == m_File.Size();
        if (endsFile && next - from < 12) {
            m_Map.m_Elements.push_back({MapKind::Junk, "cut header", from, 0, next - from, {}, true});
            Complain("cut off: the file ends within the header at " + std::to_string(from));
        } else {
            m_Map.m_Elements.push_back({MapKind::Junk, "no element", from, 0, next - from, {}, false});
            Complain("the " + std::to_string(next - from) + " octets at " + std::to_string(from) + " are no element");
        }
        m_At = next;
    }

    // ---- the file

    void ReadHeader() {
        std::array<unsigned char, 4> mark = {};
        if (m_File.ReadAt(0, mark.data(), 4) < 4 || mark != std::array<unsigned char, 4>{0x1A, 0x45, 0xDF, 0xA3}) {
            Fail(m_Path, "it is no Matroska or WebM file");
        }
        const Found header = Next(KaxMatroska_Context, kOpen);
        if (!header.m_pElement || header.m_End == kOpen) Fail(m_Path, "its EBML header is broken");
        m_Map.m_DocType = "matroska"; // the default
        ForChildren(header, [&](const Found& child) {
            if (child.m_Id == IdOf<libebml::EDocType>()) m_Map.m_DocType = Text(child);
        });
        if (m_Map.m_DocType != "matroska" && m_Map.m_DocType != "webm") {
            Fail(m_Path, "it is an EBML file of another type than Matroska or WebM");
        }
        m_At = 0;
    }

    void ReadSegment(const Found& segment) {
        EndSegment();
        m_SegmentPayload = segment.m_Payload;
        MapElement& element = AddElement(segment, MapKind::SegmentHeader);
        element.m_Octets = element.m_HeaderSize;
        if (element.m_IsCut) {
            Complain("cut off: the Segment goes on to octet " + std::to_string(segment.m_End) + ", the file ends at " +
                     std::to_string(m_File.Size()));
        }
        m_At = segment.m_Payload;
        const std::uint64_t end = Within(segment.m_End);
        while (m_At < end) {
            const Found child = Next(segment.Context(), segment.m_End);
            if (!child.m_pElement) {
                SkipJunk(end);
            } else if (child.m_IsOuter) {
                if (segment.m_End != kOpen) {
                    Complain("the Segment goes on behind what stands at " + std::to_string(m_At));
                }
                return;
            } else if (child.m_Id == IdOf<KaxCluster>()) {
                ReadCluster(child);
            } else {
                ReadLevelOne(child);
            }
        }
    }

    void ReadLevelOne(const Found& found) {
        const std::size_t index = m_Map.m_Elements.size();
        AddElement(found, KindOf(found.m_Id));
        bool isWhole = true;
        if (found.m_Id == IdOf<KaxSeekHead>()) {
            bool onlyClusters = true;
            std::size_t entries = 0;
            isWhole = ForChildren(found, [&](const Found& child) {
                if (child.m_Id != IdOf<KaxSeek>()) return;
                onlyClusters = ReadSeek(child) == IdOf<KaxCluster>() && onlyClusters;
                ++entries;
            });
            if (onlyClusters && entries > 0) m_Map.m_Elements[index].m_Kind = MapKind::ClusterIndex;
        } else if (found.m_Id == IdOf<KaxInfo>()) {
            isWhole = ReadInfo(found);
        } else if (found.m_Id == IdOf<KaxTracks>()) {
            isWhole = ForChildren(found, [&](const Found& child) {
                if (child.m_Id == IdOf<KaxTrackEntry>()) ReadTrack(child);
            });
        } else if (found.m_Id == IdOf<KaxCues>()) {
            isWhole = ForChildren(found, [&](const Found& child) {
                if (child.m_Id == IdOf<KaxCuePoint>()) ReadCue(child);
            });
        } else {
            m_At = found.m_End == kOpen ? found.m_Payload : Within(found.m_End);
        }
        MapElement& element = m_Map.m_Elements[index];
        element.m_Octets = m_At - found.m_Position;
        if (!isWhole) Complain("the " + element.m_Name + " at " + std::to_string(found.m_Position) + " is damaged");
    }

    bool ReadInfo(const Found& info) {
        double ticks = 0;
        const bool isWhole = ForChildren(info, [&](const Found& child) {
            if (child.m_Id == IdOf<KaxTimecodeScale>()) m_Scale = Unsigned(child, m_Scale);
            if (child.m_Id == IdOf<KaxDuration>()) ticks = Float(child);
            if (child.m_Id == IdOf<KaxMuxingApp>()) m_Map.m_MuxingApp = Text(child);
            if (child.m_Id == IdOf<KaxWritingApp>()) m_Map.m_WritingApp = Text(child);
        });
        if (ticks > 0 && ticks < 1e18) m_Map.m_Duration = ticks * static_cast<double>(m_Scale) / 1e9;
        return isWhole;
    }

    void ReadTrack(const Found& entry) {
        static const std::map<std::uint64_t, const char*> kKinds = {{1, "video"},    {2, "audio"},      {3, "complex"},
                                                                    {16, "logo"},    {17, "subtitles"}, {18, "buttons"},
                                                                    {32, "control"}, {33, "metadata"}};
        std::uint64_t number = 0;
        std::uint64_t type = 0;
        std::uint64_t duration = 0;
        std::string codec;
        ForChildren(entry, [&](const Found& child) {
            if (child.m_Id == IdOf<KaxTrackNumber>()) number = Unsigned(child);
            if (child.m_Id == IdOf<KaxTrackType>()) type = Unsigned(child);
            if (child.m_Id == IdOf<KaxTrackDefaultDuration>()) duration = Unsigned(child);
            if (child.m_Id == IdOf<KaxCodecID>()) codec = Text(child);
        });
        const std::size_t index = TrackIndex(number);
        const auto kind = kKinds.find(type);
        m_Map.m_Tracks[index].m_Kind = kind == kKinds.end() ? "unknown" : kind->second;
        m_Map.m_Tracks[index].m_CodecID = codec;
        // Beyond an hour it is none.
        if (duration < 3600000000000) m_States[index].m_FrameDuration = static_cast<double>(duration) / 1e9;
    }

    std::size_t TrackIndex(std::uint64_t number) {
        const auto [place, isNew] = m_Indices.try_emplace(number, m_Map.m_Tracks.size());
        if (isNew) {
            m_Map.m_Tracks.emplace_back();
            m_Map.m_Tracks.back().m_Number = number;
            m_Map.m_Tracks.back().m_Kind = "unknown";
            m_States.emplace_back();
        }
        return place->second;
    }

    // The identifier that it names.
    std::uint32_t ReadSeek(const Found& seek) {
        std::uint32_t id = 0;
        std::uint64_t position = kOpen;
        ForChildren(seek, [&](const Found& child) {
            if (child.m_Id == IdOf<KaxSeekPosition>()) position = m_SegmentPayload + Unsigned(child);
            auto* const binary = dynamic_cast<libebml::EbmlBinary*>(child.m_pElement.get());
            if (child.m_Id != IdOf<KaxSeekID>() || binary == nullptr || !Load(child)) return;
            for (std::uint64_t i = 0; i < std::min<std::uint64_t>(binary->GetSize(), 4); ++i) {
                id = id << 8 | binary->GetBuffer()[i];
            }
        });
        m_Seeks.push_back({position, id});
        return id;
    }

    void ReadCue(const Found& cue) {
        double time = 0;
        ForChildren(cue, [&](const Found& child) {
            if (child.m_Id == IdOf<KaxCueTime>()) time = Seconds(static_cast<double>(Unsigned(child)));
            if (child.m_Id != IdOf<KaxCueTrackPositions>()) return;
            MapCue entry{time, 0, kOpen, false};
            ForChildren(child, [&](const Found& leaf) {
                if (leaf.m_Id == IdOf<KaxCueTrack>()) entry.m_Track = Unsigned(leaf);
                if (leaf.m_Id == IdOf<KaxCueClusterPosition>()) entry.m_Cluster = m_SegmentPayload + Unsigned(leaf);
            });
            m_Map.m_Cues.push_back(entry);
        });
    }

    // ---- clusters

    double Seconds(double ticks) const { return ticks * static_cast<double>(m_Scale) / 1e9; }

    void ReadCluster(const Found& found) {
        MapCluster cluster{MakeElement(found, MapKind::Cluster), 0, 0, 0, 0, 0};
        std::uint64_t ticks = 0;
        const bool isWhole = ForChildren(found, [&](const Found& child) {
            BlockHead head;
            double duration = 0;
            if (child.m_Id == IdOf<KaxClusterTimecode>()) {
                ticks = Unsigned(child);
            } else if (child.m_Id == IdOf<KaxSimpleBlock>()) {
                if (ReadBlock(child, head)) AddBlock(cluster, child, ticks, head, duration);
            } else if (child.m_Id == IdOf<KaxBlockGroup>()) {
                bool hasBlock = false;
                bool hasReference = false;
                ForChildren(child, [&](const Found& part) {
                    if (part.m_Id == IdOf<KaxBlock>()) hasBlock = ReadBlock(part, head);
                    if (part.m_Id == IdOf<KaxReferenceBlock>()) hasReference = true;
                    if (part.m_Id == IdOf<KaxBlockDuration>()) duration = Seconds(static_cast<double>(Unsigned(part)));
                });
                head.m_IsKey = !hasReference;
                if (hasBlock) AddBlock(cluster, child, ticks, head, duration);
            }
        });
        cluster.m_Element.m_Octets = m_At - found.m_Position;
        if (!isWhole) Complain("the Cluster at " + std::to_string(found.m_Position) + " is damaged");
        cluster.m_Time = Seconds(static_cast<double>(ticks));
        if (cluster.m_Blocks == 0) cluster.m_FirstTime = cluster.m_LastTime = cluster.m_Time;
        m_Map.m_Clusters.push_back(std::move(cluster));
    }

    bool ReadBlock(const Found& found, BlockHead& head) {
        // The head takes four octets at least, and libmatroska reads one more.
        if (found.m_End == kOpen || found.m_Payload + 5 > m_File.Size()) return false;
        auto& block = static_cast<KaxInternalBlock&>(*found.m_pElement);
        m_File.setFilePointer(static_cast<int64>(found.m_Payload), libebml::seek_beginning);
        block.ReadData(m_File, libebml::SCOPE_PARTIAL_DATA);
        head.m_Track = block.TrackNum();
        head.m_RelativeTime = block.GetRelativeTimestamp();
        head.m_Frames = std::max(1U, block.NumberFrames());
        const auto* const simple = dynamic_cast<const KaxSimpleBlock*>(&block);
        head.m_IsKey = simple != nullptr && simple->IsKeyframe();
        return true;
    }

    void AddBlock(MapCluster& cluster, const Found& found, std::uint64_t ticks, const BlockHead& head,
                  double duration) {
        const std::size_t index = TrackIndex(head.m_Track);
        MapTrack& track = m_Map.m_Tracks[index];
        TrackState& state = m_States[index];
        const double time = Seconds(static_cast<double>(ticks) + static_cast<double>(head.m_RelativeTime));
        const std::uint64_t end = found.m_End == kOpen ? m_At : Within(found.m_End);

        cluster.m_FirstTime = cluster.m_Blocks == 0 ? time : std::min(cluster.m_FirstTime, time);
        cluster.m_LastTime = cluster.m_Blocks == 0 ? time : std::max(cluster.m_LastTime, time);
        ++cluster.m_Blocks;
        if (head.m_IsKey && track.m_Kind == "video") ++cluster.m_KeyFrames;

        track.m_FirstTime = track.m_Blocks == 0 ? time : std::min(track.m_FirstTime, time);
        track.m_LastTime = track.m_Blocks == 0 ? time : std::max(track.m_LastTime, time);
        ++track.m_Blocks;
        track.m_Octets += end - found.m_Position;
        if (head.m_IsKey) ++track.m_KeyFrames;

        double lag = 0;
        if (track.IsContinuous()) {
            lag = std::max(0.0, m_Leader.Others(index).value_or(time) - time);
            m_Leader.Take(index, time);
            TakeLag(track, state, {found.m_Position, time}, {end, time}, lag);
        }
        AddPiece(track, state, {found.m_Position, time}, end, head.m_IsKey, lag);

        if (duration <= 0) duration = state.m_FrameDuration * static_cast<double>(head.m_Frames);
        state.m_Waiting.push({time, time + duration, found.m_Position});
        if (state.m_Waiting.size() > kReordered) TakeNextInTime(state);
    }

    static void AddPiece(MapTrack& track, TrackState& state, MapPoint at, std::uint64_t end, bool isKey, double lag) {
        std::vector<MapPiece>& pieces = track.m_Pieces;
        if (pieces.empty() || pieces.back().m_Blocks >= state.m_BlocksPerPiece) {
            if (pieces.size() == kMostPieces) {
                for (std::size_t i = 0; i < kMostPieces / 2; ++i) {
                    pieces[i] = pieces[2 * i];
                    Append(pieces[i], pieces[2 * i + 1]);
                }
                pieces.resize(kMostPieces / 2);
                state.m_BlocksPerPiece *= 2;
            }
            pieces.push_back({at, {end, at.m_Time}, 0, 0, {}, 0});
        }
        MapPiece block{at, {end, at.m_Time}, end - at.m_Position, 1, {}, lag};
        if (isKey) block.m_KeyFrame = at;
        Append(pieces.back(), block);
    }

    static void Append(MapPiece& piece, const MapPiece& next) {
        piece.m_Last = next.m_Last;
        piece.m_Octets += next.m_Octets;
        piece.m_Blocks += next.m_Blocks;
        if (!piece.m_KeyFrame) piece.m_KeyFrame = next.m_KeyFrame;
        piece.m_Lag = std::max(piece.m_Lag, next.m_Lag);
    }

    // A stretch begins with a block more than a second late and ends when less than half of that is left.
    static void TakeLag(MapTrack& track, TrackState& state, MapPoint first, MapPoint last, double lag) {
        if (lag > kSmallestLag && !state.m_IsLagging) {
            state.m_IsLagging = true;
            if (track.m_Lags.size() < kMostLags) track.m_Lags.push_back({first, last, lag});
        } else if (lag < kSmallestLag / 2) {
            state.m_IsLagging = false;
        }
        if (!state.m_IsLagging) return;
        MapLag& stretch = track.m_Lags.back();
        stretch.m_Last = last;
        stretch.m_Largest = std::max(stretch.m_Largest, lag);
    }

    static void TakeNextInTime(TrackState& state) {
        const TrackState::Span span = state.m_Waiting.top();
        state.m_Waiting.pop();
        if (state.m_Previous) {
            const double distance = span.m_Start - state.m_Previous->m_Start;
            if (distance > kSmallestGap) {
                state.m_Holes.push_back({*state.m_Previous, span});
                if (state.m_Holes.size() > 2 * kMostHoles) KeepLargest(state.m_Holes);
            } else {
                state.m_Usual += distance;
                ++state.m_UsualCount;
            }
        }
        state.m_Previous = span;
    }

    static void KeepLargest(std::vector<TrackState::Hole>& holes) {
        if (holes.size() <= kMostHoles) return;
        std::nth_element(holes.begin(), holes.begin() + kMostHoles, holes.end(),
                         [](const auto& a, const auto& b) { return a.Length() > b.Length(); });
        holes.resize(kMostHoles);
    }

    // ---- ends

    // Times begin anew with each Segment, so what is known of them ends with it.
    void EndSegment() {
        for (TrackState& state : m_States) {
            while (!state.m_Waiting.empty()) TakeNextInTime(state);
            state.m_IsLagging = false;
        }
        for (std::size_t i = 0; i < m_States.size(); ++i) {
            if (m_Map.m_Tracks[i].IsContinuous()) FindGaps(m_Map.m_Tracks[i], m_States[i]);
        }
        for (TrackState& state : m_States) {
            state.m_Previous.reset();
            state.m_Holes.clear();
        }
        m_Leader = {};
        m_Scale = 1000000;
    }

    void FindGaps(MapTrack& track, TrackState& state) const {
        if (track.m_Blocks < 2 || !state.m_Previous) return;
        const double usual = state.m_UsualCount >= state.m_Holes.size()
                                 ? state.m_Usual / static_cast<double>(std::max<std::uint64_t>(1, state.m_UsualCount))
                                 : (track.m_LastTime - track.m_FirstTime) / static_cast<double>(track.m_Blocks - 1);
        const double smallest = std::max(kSmallestGap, 3 * usual);
        KeepLargest(state.m_Holes);
        std::sort(state.m_Holes.begin(), state.m_Holes.end(),
                  [](const auto& a, const auto& b) { return a.m_After.m_Start < b.m_After.m_Start; });
        const double first = m_Map.FirstTime();
        if (track.m_FirstTime - first > smallest) {
            track.m_Gaps.push_back(
                {MapGap::Where::Start, first, track.m_FirstTime, track.m_Pieces.front().m_First.m_Position});
        }
        for (const TrackState::Hole& hole : state.m_Holes) {
            const bool knowsEnd = hole.m_Before.m_End > hole.m_Before.m_Start;
            const double from = knowsEnd ? hole.m_Before.m_End : hole.m_Before.m_Start + usual;
            if (hole.m_After.m_Start - from <= smallest) continue;
            track.m_Gaps.push_back({MapGap::Where::Inside, from, hole.m_After.m_Start, hole.m_After.m_Position});
        }
        const Span last = {state.m_Previous->m_Start + usual, m_Map.LastTime()};
        if (last.m_To - last.m_From > smallest) {
            track.m_Gaps.push_back({MapGap::Where::End, last.m_From, last.m_To, state.m_Previous->m_Position});
        }
    }

    struct Span {
        double m_From;
        double m_To;
    };

    // Whether cues and seek heads name what stands where they say.
    void CheckPlaces() {
        std::vector<std::pair<std::uint64_t, std::uint32_t>> places;
        for (const MapCluster& cluster : m_Map.m_Clusters) {
            places.emplace_back(cluster.m_Element.m_Position, IdOf<KaxCluster>());
        }
        for (const MapElement& element : m_Map.m_Elements) {
            std::array<unsigned char, 4> id = {};
            if (element.m_Kind == MapKind::Junk || element.m_Octets < 4) continue;
            m_File.ReadAt(element.m_Position, id.data(), id.size());
            places.emplace_back(element.m_Position, id[0] << 24 | id[1] << 16 | id[2] << 8 | id[3]);
        }
        std::sort(places.begin(), places.end());
        const auto stands = [&](std::uint64_t position, std::uint32_t id) {
            return std::binary_search(places.begin(), places.end(), std::pair{position, id});
        };
        // That a file is cut off is said already.
        const bool isCut = std::any_of(m_Map.m_Elements.begin(), m_Map.m_Elements.end(),
                                       [](const MapElement& element) { return element.m_IsCut; });
        const auto isCutOff = [&](std::uint64_t position) {
            return isCut && position >= m_File.Size() && position != kOpen;
        };
        for (MapCue& cue : m_Map.m_Cues) {
            cue.m_IsFound = stands(cue.m_Cluster, IdOf<KaxCluster>());
            if (!cue.m_IsFound && !isCutOff(cue.m_Cluster))
                Complain("a cue names octet " + Place(cue.m_Cluster) + ", where no Cluster begins");
        }
        for (const auto& [position, id] : m_Seeks) {
            if (stands(position, id) || isCutOff(position)) continue;
            char name[32];
            std::snprintf(name, sizeof name, "0x%X", id);
            Complain("a SeekHead names octet " + Place(position) + ", where no element " + name + " begins");
        }
    }
    static std::string Place(std::uint64_t position) { return position == kOpen ? "?" : std::to_string(position); }

    std::string m_Path;
    InputFile m_File;
    FileMap m_Map;
    std::uint64_t m_At = 0;
    std::uint64_t m_SegmentPayload = 0;
    std::uint64_t m_Scale = 1000000;                // ns a tick
    std::map<std::uint64_t, std::size_t> m_Indices; // of tracks, by number
    std::vector<TrackState> m_States;
    Leader m_Leader;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> m_Seeks; // where, what
    std::uint64_t m_MoreProblems = 0;
};

nlohmann::json ElementAsJson(const MapElement& element) {
    nlohmann::json json = {{"name", element.m_Name},
                           {"role", MapKindName(element.m_Kind)},
                           {"position", element.m_Position},
                           {"headerOctets", element.m_HeaderSize},
                           {"octets", element.m_Octets}};
    if (element.m_Kind != MapKind::Junk) {
        json["declaredOctets"] = element.m_Declared ? nlohmann::json(*element.m_Declared) : nlohmann::json(nullptr);
    }
    if (element.m_IsCut) json["cut"] = true;
    return json;
}

const char* WhereName(MapGap::Where where) {
    return where == MapGap::Where::Start ? "start" : where == MapGap::Where::Inside ? "inside" : "end";
}

} // namespace

const char* MapKindName(MapKind kind) {
    switch (kind) {
    case MapKind::EbmlHeader:
        return "EBML header";
    case MapKind::SegmentHeader:
        return "Segment header";
    case MapKind::SeekHead:
        return "seek head";
    case MapKind::ClusterIndex:
        return "cluster index";
    case MapKind::Void:
        return "reserved space";
    case MapKind::Info:
        return "info";
    case MapKind::Tracks:
        return "tracks";
    case MapKind::Cluster:
        return "cluster";
    case MapKind::Cues:
        return "cues";
    case MapKind::Other:
        return "other";
    case MapKind::Junk:
        return "no element";
    }
    return "";
}

double FileMap::FirstTime() const {
    double time = std::numeric_limits<double>::infinity();
    for (const MapTrack& track : m_Tracks) {
        if (track.m_Blocks > 0) time = std::min(time, track.m_FirstTime);
    }
    return time == std::numeric_limits<double>::infinity() ? 0 : time;
}

double FileMap::LastTime() const {
    double time = FirstTime();
    for (const MapTrack& track : m_Tracks) {
        if (track.m_Blocks > 0) time = std::max(time, track.m_LastTime);
    }
    return time;
}

std::uint64_t FileMap::KeyFrames() const {
    std::uint64_t count = 0;
    for (const MapTrack& track : m_Tracks) count += track.m_Kind == "video" ? track.m_KeyFrames : 0;
    return count;
}

std::vector<MapShare> MapShares(const FileMap& map) {
    std::vector<MapShare> shares;
    const auto take = [&](const std::string& what, std::uint64_t count, std::uint64_t octets) {
        for (MapShare& share : shares) {
            if (share.m_What != what) continue;
            share.m_Count += count;
            share.m_Octets += octets;
            return;
        }
        shares.push_back({what, count, octets});
    };
    const auto takeElement = [&](const MapElement& element) {
        take(element.m_Kind == MapKind::Other ? element.m_Name : MapKindName(element.m_Kind), 1, element.m_Octets);
    };
    // In the order of the file, what clusters hold at the place of the first one.
    const std::uint64_t firstCluster = map.m_Clusters.empty() ? map.m_Octets : map.m_Clusters[0].m_Element.m_Position;
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position < firstCluster) takeElement(element);
    }
    std::uint64_t rest = 0;
    for (const MapCluster& cluster : map.m_Clusters) rest += cluster.m_Element.m_Octets;
    for (const MapTrack& track : map.m_Tracks) {
        take("blocks of track " + std::to_string(track.m_Number) + ", " + track.m_Kind, track.m_Blocks, track.m_Octets);
        rest -= track.m_Octets;
    }
    if (!map.m_Clusters.empty()) take("clusters beside blocks", map.m_Clusters.size(), rest);
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position >= firstCluster) takeElement(element);
    }
    return shares;
}

FileMap ReadFileMap(const std::string& path) {
    try {
        return MapReader(path).Read();
    } catch (const ToolError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) { // libebml's own, for octets that it cannot make sense of
        Fail(path, error.what());
    }
}

nlohmann::json MapAsJson(const FileMap& map) {
    using nlohmann::json;
    json elements = json::array();
    auto cluster = map.m_Clusters.begin();
    const auto addClusters = [&](std::uint64_t before) {
        for (; cluster != map.m_Clusters.end() && cluster->m_Element.m_Position < before; ++cluster) {
            json entry = ElementAsJson(cluster->m_Element);
            entry["time"] = cluster->m_Time;
            entry["blocks"] = cluster->m_Blocks;
            entry["keyFrames"] = cluster->m_KeyFrames;
            entry["firstTime"] = cluster->m_FirstTime;
            entry["lastTime"] = cluster->m_LastTime;
            elements.push_back(std::move(entry));
        }
    };
    for (const MapElement& element : map.m_Elements) {
        addClusters(element.m_Position);
        elements.push_back(ElementAsJson(element));
    }
    addClusters(map.m_Octets);

    json tracks = json::array();
    for (const MapTrack& track : map.m_Tracks) {
        json gaps = json::array();
        for (const MapGap& gap : track.m_Gaps) {
            gaps.push_back({{"where", WhereName(gap.m_Where)},
                            {"from", gap.m_From},
                            {"to", gap.m_To},
                            {"position", gap.m_Position}});
        }
        json lags = json::array();
        for (const MapLag& lag : track.m_Lags) {
            lags.push_back({{"position", lag.m_First.m_Position},
                            {"end", lag.m_Last.m_Position},
                            {"from", lag.m_First.m_Time},
                            {"to", lag.m_Last.m_Time},
                            {"seconds", lag.m_Largest}});
        }
        tracks.push_back({{"number", track.m_Number},
                          {"kind", track.m_Kind},
                          {"codecID", track.m_CodecID},
                          {"blocks", track.m_Blocks},
                          {"keyFrames", track.m_KeyFrames},
                          {"octets", track.m_Octets},
                          {"firstTime", track.m_FirstTime},
                          {"lastTime", track.m_LastTime},
                          {"gaps", std::move(gaps)},
                          {"lags", std::move(lags)}});
    }
    json cues = json::array();
    for (const MapCue& cue : map.m_Cues) {
        cues.push_back({{"time", cue.m_Time},
                        {"track", cue.m_Track},
                        {"clusterPosition", cue.m_IsFound ? json(cue.m_Cluster) : json(nullptr)}});
    }
    json shares = json::array();
    for (const MapShare& share : MapShares(map)) {
        shares.push_back({{"what", share.m_What},
                          {"count", share.m_Count},
                          {"octets", share.m_Octets},
                          {"share", static_cast<double>(share.m_Octets) / static_cast<double>(map.m_Octets)}});
    }
    return {{"file", map.m_Path},
            {"octets", map.m_Octets},
            {"docType", map.m_DocType},
            {"muxingApp", map.m_MuxingApp},
            {"writingApp", map.m_WritingApp},
            {"duration", map.m_Duration ? json(*map.m_Duration) : json(nullptr)},
            {"elements", std::move(elements)},
            {"tracks", std::move(tracks)},
            {"cues", std::move(cues)},
            {"shares", std::move(shares)},
            {"problems", map.m_Problems}};
}
