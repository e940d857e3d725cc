// SPDX-License-Identifier: MIT
#include "EbmlWalker.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>

namespace Ebml {

namespace {

constexpr std::size_t kReserved = 4099; // the room for the main seek head
constexpr std::uint64_t kSpan = 1000;   // milliseconds of one cluster

constexpr Type kTypes[] = {
    // RFC 8794, the EBML header.
    {0x1A45DFA3, "EBML", "", Kind::Master, false},
    {0x4286, "EBMLVersion", "EBML", Kind::Unsigned, false},
    {0x42F7, "EBMLReadVersion", "EBML", Kind::Unsigned, false},
    {0x42F2, "EBMLMaxIDLength", "EBML", Kind::Unsigned, false},
    {0x42F3, "EBMLMaxSizeLength", "EBML", Kind::Unsigned, false},
    {0x4282, "DocType", "EBML", Kind::Text, false},
    {0x4287, "DocTypeVersion", "EBML", Kind::Unsigned, false},
    {0x4285, "DocTypeReadVersion", "EBML", Kind::Unsigned, false},

    // RFC 9559.
    {0x18538067, "Segment", "", Kind::Master, false},
    {0xEC, "Void", "Segment", Kind::Filler, false},

    {0x114D9B74, "SeekHead", "Segment", Kind::Master, true},
    {0x4DBB, "Seek", "SeekHead", Kind::Master, true},
    {0x53AB, "SeekID", "Seek", Kind::Binary, false},
    {0x53AC, "SeekPosition", "Seek", Kind::Unsigned, false},

    {0x1549A966, "Info", "Segment", Kind::Master, false},
    {0x2AD7B1, "TimestampScale", "Info", Kind::Unsigned, false},
    {0x4489, "Duration", "Info", Kind::Float, false},
    {0x4461, "DateUTC", "Info", Kind::Signed, false},
    {0x4D80, "MuxingApp", "Info", Kind::Text, false},

    {0x1654AE6B, "Tracks", "Segment", Kind::Master, false},
    {0xAE, "TrackEntry", "Tracks", Kind::Master, true},
    {0xD7, "TrackNumber", "TrackEntry", Kind::Unsigned, false},
    {0x73C5, "TrackUID", "TrackEntry", Kind::Unsigned, false},
    {0x83, "TrackType", "TrackEntry", Kind::Unsigned, false},
    {0x88, "FlagDefault", "TrackEntry", Kind::Unsigned, false},
    {0x9C, "FlagLacing", "TrackEntry", Kind::Unsigned, false},
    {0x6DE7, "MinCache", "TrackEntry", Kind::Unsigned, false},
    {0x6DF8, "MaxCache", "TrackEntry", Kind::Unsigned, false},
    {0x22B59C, "Language", "TrackEntry", Kind::Text, false},
    {0x86, "CodecID", "TrackEntry", Kind::ZeroEndedText, false}, // deliberately with its zero octet
    {0x63A2, "CodecPrivate", "TrackEntry", Kind::Binary, false},
    {0x23E383, "DefaultDuration", "TrackEntry", Kind::Unsigned, false},
    {0xE0, "Video", "TrackEntry", Kind::Master, false},
    {0xB0, "PixelWidth", "Video", Kind::Unsigned, false},
    {0xBA, "PixelHeight", "Video", Kind::Unsigned, false},
    {0x54B0, "DisplayWidth", "Video", Kind::Unsigned, false},
    {0x54BA, "DisplayHeight", "Video", Kind::Unsigned, false},
    {0x2383E3, "FrameRate", "Video", Kind::Float, false},
    {0xE1, "Audio", "TrackEntry", Kind::Master, false},
    {0xB5, "SamplingFrequency", "Audio", Kind::Float, false},
    {0x9F, "Channels", "Audio", Kind::Unsigned, false},
    {0x6264, "BitDepth", "Audio", Kind::Unsigned, false},

    {0x1F43B675, "Cluster", "Segment", Kind::Master, true},
    {0xE7, "Timestamp", "Cluster", Kind::Unsigned, false},
    {0xA3, "SimpleBlock", "Cluster", Kind::Block, true},
    {0xA0, "BlockGroup", "Cluster", Kind::Master, true},
    {0xFB, "ReferenceBlock", "BlockGroup", Kind::Signed, false},
    {0xA1, "Block", "BlockGroup", Kind::Block, false}, // deliberately the last child, see Check

    {0x1C53BB6B, "Cues", "Segment", Kind::Master, false},
    {0xBB, "CuePoint", "Cues", Kind::Master, true},
    {0xB3, "CueTime", "CuePoint", Kind::Unsigned, false},
    {0xB7, "CueTrackPositions", "CuePoint", Kind::Master, true},
    {0xF7, "CueTrack", "CueTrackPositions", Kind::Unsigned, false},
    {0xF1, "CueClusterPosition", "CueTrackPositions", Kind::Unsigned, false},
    // Deliberately not RFC 9559's 0x5378.
    {0x5387, "CueBlockNumber5387", "CueTrackPositions", Kind::Unsigned, false},
};

const Type* FindType(std::uint64_t id) {
    for (const Type& type : kTypes) {
        if (type.m_Id == id) return &type;
    }
    return nullptr;
}

// The width that the first octet of an EBML variable-size integer announces; 0 for none of 1 to 8.
std::size_t AnnouncedWidth(unsigned char first) {
    for (std::size_t width = 1; width <= 8; ++width) {
        if ((first & (0x80U >> (width - 1))) != 0) return width;
    }
    return 0;
}

std::size_t ShortestLength(std::uint64_t size) {
    std::size_t width = 1;
    while (width < 8 && size >= (std::uint64_t{1} << (7 * width)) - 1) ++width;
    return width;
}

// The last eight octets of a number that has more.
std::uint64_t HighToLow(const Octets& octets) {
    std::uint64_t value = 0;
    for (std::size_t i = octets.size() - std::min<std::size_t>(octets.size(), 8); i < octets.size(); ++i) {
        value = value << 8 | octets[i];
    }
    return value;
}

std::int64_t SignedHighToLow(Octets octets) {
    if (octets.empty() || octets[0] < 0x80) return static_cast<std::int64_t>(HighToLow(octets));
    for (unsigned char& octet : octets) octet = static_cast<unsigned char>(0xFF - octet);
    return -1 - static_cast<std::int64_t>(HighToLow(octets)); // two's complement
}

std::string Hexadecimal(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

// The oddity of the filler: its length field turned out one octet shorter than the room that was counted for it.
bool MayEndOneOctetShort(const Element& element) {
    return element.m_pType->m_Kind == Kind::Filler && element.m_HeaderSize == 2 && element.m_PayloadSize >= 124 &&
           element.m_PayloadSize <= 126;
}

} // namespace

std::string Describe(const std::vector<Problem>& problems) {
    std::string text;
    for (const Problem& problem : problems) {
        text += "octet " + std::to_string(problem.m_Offset) + " (" + Hexadecimal(problem.m_Offset) + "), " +
                (problem.m_Path.empty() ? "the file" : problem.m_Path) + ": " + problem.m_Text + "\n";
    }
    return text;
}

File::File(Octets octets, Ending ending) : m_Octets(std::move(octets)), m_Ending(ending) {
    Parse(0, m_Octets.size(), nullptr, m_Roots);
}

void File::Complain(std::size_t offset, const std::string& path, const std::string& text) {
    m_Problems.push_back({offset, path, text});
}

// Reads the elements that lie side by side from begin to end. After an element whose end cannot be trusted nothing more
// of this parent is read. Depth is bounded: a child is entered only below the parent that the table names.
void File::Parse(std::size_t begin, std::size_t end, const Element* parent, std::vector<Element>& children) {
    const std::string parentName = parent != nullptr ? parent->m_pType->m_Name : "";
    const std::string parentPath = parent != nullptr ? parent->m_Path : "";
    // The parent ends where the file happens to end.
    const bool mayBeCut = m_Ending == Ending::CutOff && (parent == nullptr || parent->m_UnknownSize || parent->m_Cut);
    std::map<const Type*, std::size_t> counts;
    for (std::size_t at = begin; at < end;) {
        if (parent == nullptr && !children.empty() && children.back().m_pType->m_Id == 0x18538067) {
            Complain(at, "", std::to_string(end - at) + " trailing octets after the Segment");
            return;
        }
        if (m_Octets[at] == 0 && !children.empty() && MayEndOneOctetShort(children.back()) &&
            at == children.back().End()) {
            ++at;
            continue;
        }
        const std::size_t idSize = AnnouncedWidth(m_Octets[at]);
        if (idSize == 0 || idSize > 4) {
            Complain(at, parentPath, "no identifier begins with " + Hexadecimal(m_Octets[at]));
            return;
        }
        if (idSize >= end - at) {
            if (mayBeCut) return;
            Complain(at, parentPath, "an element's header is cut off by its parent's end");
            return;
        }
        std::uint64_t id = 0;
        for (std::size_t i = 0; i < idSize; ++i) id = id << 8 | m_Octets[at + i];
        const Type* const type = FindType(id);
        if (type == nullptr) {
            Complain(at, parentPath, "unknown identifier " + Hexadecimal(id));
            return;
        }
        std::string path = parentPath + (parentPath.empty() ? "" : "/") + type->m_Name;
        const std::size_t index = counts[type]++;
        if (type->m_Many) path += "[" + std::to_string(index) + "]";

        const std::size_t lengthAt = at + idSize;
        const std::size_t lengthSize = AnnouncedWidth(m_Octets[lengthAt]);
        if (lengthSize == 0) {
            Complain(lengthAt, path, "bad length: no length begins with 0x0");
            return;
        }
        if (lengthSize > end - lengthAt) {
            if (mayBeCut) return;
            Complain(lengthAt, path, "bad length: cut off by its parent's end");
            return;
        }
        std::uint64_t size = m_Octets[lengthAt] & (0xFFU >> lengthSize);
        for (std::size_t i = 1; i < lengthSize; ++i) size = size << 8 | m_Octets[lengthAt + i];
        const bool unknown = size == (std::uint64_t{1} << (7 * lengthSize)) - 1;
        const bool isSegment = type->m_Id == 0x18538067;
        if (unknown && !isSegment) {
            Complain(lengthAt, path, "bad length: unknown size");
            return;
        }
        if (isSegment ? lengthSize != 8 : lengthSize != ShortestLength(size)) {
            Complain(lengthAt, path,
                     "bad length: " + std::to_string(lengthSize) + " octets for a size of " + std::to_string(size));
        }
        const std::size_t payloadAt = lengthAt + lengthSize;
        const bool cut = mayBeCut && !unknown && size > end - payloadAt;
        if (unknown || cut) {
            size = end - payloadAt;
        } else if (size > end - payloadAt) {
            Complain(at, path,
                     "ends " + std::to_string(size - (end - payloadAt)) + " octets past the end of " +
                         (parentPath.empty() ? "the file" : parentPath));
            return;
        }
        Element element{type, path, at, idSize, payloadAt - at, static_cast<std::size_t>(size), unknown, cut, {}};
        at = element.End();
        if (parentName != type->m_Parent) {
            Complain(element.m_Offset, path, std::string(type->m_Name) + " is no child of " + parentName);
            continue;
        }
        if (!type->m_Many && index > 0) Complain(element.m_Offset, path, "stands twice in its parent");
        if (type->m_Kind == Kind::Master) {
            Parse(element.PayloadOffset(), element.End(), &element, element.m_Children);
        } else if (!cut) {
            CheckValue(element);
        }
        children.push_back(std::move(element));
    }
}

void File::CheckValue(const Element& element) {
    const std::size_t at = element.PayloadOffset();
    const auto begin = m_Octets.begin() + static_cast<std::ptrdiff_t>(at);
    const auto end = begin + static_cast<std::ptrdiff_t>(element.m_PayloadSize);
    const std::size_t size = element.m_PayloadSize;
    switch (element.m_pType->m_Kind) {
    case Kind::Unsigned:
        if (size < 1 || size > 8) Complain(at, element.m_Path, "an integer of " + std::to_string(size) + " octets");
        if (size > 1 && *begin == 0) Complain(at, element.m_Path, "an unsigned integer with a leading zero octet");
        break;
    case Kind::Signed:
        if (size < 1 || size > 8) Complain(at, element.m_Path, "an integer of " + std::to_string(size) + " octets");
        break;
    case Kind::Float:
        if (size != 4) Complain(at, element.m_Path, "a float of " + std::to_string(size) + " octets");
        break;
    case Kind::Text:
        if (size == 0) Complain(at, element.m_Path, "an empty text");
        if (std::find(begin, end, 0) != end) Complain(at, element.m_Path, "a zero octet in a text");
        break;
    case Kind::ZeroEndedText:
        if (size < 2 || std::find(begin, end, 0) != end - 1) {
            Complain(at, element.m_Path, "not a text with one zero octet at its end");
        }
        break;
    case Kind::Binary:
        if (size == 0) Complain(at, element.m_Path, "no octets");
        break;
    case Kind::Block: {
        const std::size_t trackSize = size == 0 ? 0 : AnnouncedWidth(*begin);
        if (trackSize == 0 || trackSize + 3 > size) Complain(at, element.m_Path, "a block shorter than its header");
        break;
    }
    case Kind::Filler:
        for (auto octet = begin; octet != end; ++octet) {
            if (*octet == 0) continue;
            Complain(at + static_cast<std::size_t>(octet - begin), element.m_Path, "a filler octet that is not zero");
            break;
        }
        break;
    case Kind::Master:
        break;
    }
}

const Element* File::Find(const std::string& path) const {
    const std::vector<Element>* level = &m_Roots;
    const Element* found = nullptr;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        const bool indexed = !name.empty() && name.back() == ']';
        found = nullptr;
        for (const Element& element : *level) {
            const std::size_t slash = element.m_Path.rfind('/');
            const std::string own = slash != std::string::npos ? element.m_Path.substr(slash + 1) : element.m_Path;
            if (own == name || (!indexed && own == name + "[0]")) {
                found = &element;
                break;
            }
        }
        if (found == nullptr) return nullptr;
        level = &found->m_Children;
        begin = end + 1;
    }
    return found;
}

const Element& File::At(const std::string& path) const {
    const Element* const element = Find(path);
    if (element == nullptr) throw std::out_of_range("the file has no " + path);
    return *element;
}

Octets File::PayloadOf(const Element& element) const {
    const auto begin = m_Octets.begin() + static_cast<std::ptrdiff_t>(element.PayloadOffset());
    return {begin, begin + static_cast<std::ptrdiff_t>(element.m_PayloadSize)};
}

Octets File::OctetsOf(const Element& element) const {
    return {m_Octets.begin() + static_cast<std::ptrdiff_t>(element.m_Offset),
            m_Octets.begin() + static_cast<std::ptrdiff_t>(element.End())};
}

Octets File::Payload(const std::string& path) const { return PayloadOf(At(path)); }

std::uint64_t File::Unsigned(const std::string& path) const { return HighToLow(Payload(path)); }

std::int64_t File::Signed(const std::string& path) const { return SignedHighToLow(Payload(path)); }

float File::Float(const std::string& path) const {
    const auto bits = static_cast<std::uint32_t>(HighToLow(Payload(path)));
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string File::Text(const std::string& path) const {
    const Octets payload = Payload(path);
    return {payload.begin(), std::find(payload.begin(), payload.end(), 0)};
}

std::vector<const Element*> File::Children(const std::string& path, const std::string& name) const {
    std::vector<const Element*> found;
    const Element* const parent = Find(path);
    if (parent == nullptr) return found;
    for (const Element& child : parent->m_Children) {
        if (child.m_pType->m_Name == name) found.push_back(&child);
    }
    return found;
}

std::vector<Block> File::Blocks() const {
    std::vector<Block> blocks;
    const std::vector<const Element*> clusters = Children("Segment", "Cluster");
    for (std::size_t index = 0; index < clusters.size(); ++index) {
        std::uint64_t time = 0;
        const auto add = [&](const Element& element, std::optional<std::int64_t> reference) {
            if (element.m_Cut) return;
            const Octets payload = PayloadOf(element);
            const std::size_t width = payload.empty() ? 0 : AnnouncedWidth(payload[0]);
            if (width == 0 || width + 3 > payload.size()) return; // reported by CheckValue
            std::uint64_t track = payload[0] & (0xFFU >> width);
            for (std::size_t i = 1; i < width; ++i) track = track << 8 | payload[i];
            const auto relative = static_cast<std::int16_t>(payload[width] * 256 + payload[width + 1]);
            blocks.push_back({index, time, track, relative, payload[width + 2],
                              Octets(payload.begin() + static_cast<std::ptrdiff_t>(width) + 3, payload.end()),
                              element.m_pType->m_Id == 0xA3, reference});
        };
        for (const Element& child : clusters[index]->m_Children) {
            if (child.m_pType->m_Id == 0xE7 && !child.m_Cut) time = HighToLow(PayloadOf(child));
            if (child.m_pType->m_Id == 0xA3) add(child, std::nullopt);
            if (child.m_pType->m_Id != 0xA0) continue;
            std::optional<std::int64_t> reference;
            for (const Element& part : child.m_Children) {
                if (part.m_pType->m_Id == 0xFB && !part.m_Cut) reference = SignedHighToLow(PayloadOf(part));
                if (part.m_pType->m_Id == 0xA1) add(part, reference);
            }
        }
    }
    return blocks;
}

std::vector<Block> File::BlocksOf(std::uint64_t track) const {
    std::vector<Block> blocks = Blocks();
    blocks.erase(std::remove_if(blocks.begin(), blocks.end(), [&](const Block& b) { return b.m_Track != track; }),
                 blocks.end());
    return blocks;
}

std::vector<Cue> File::Cues() const {
    std::vector<Cue> cues;
    for (const Element* point : Children("Segment/Cues", "CuePoint")) {
        const std::string positions = point->m_Path + "/CueTrackPositions[0]/";
        Cue cue{Unsigned(point->m_Path + "/CueTime"), Unsigned(positions + "CueTrack"),
                Unsigned(positions + "CueClusterPosition"), std::nullopt};
        if (Has(positions + "CueBlockNumber5387")) cue.m_BlockNumber = Unsigned(positions + "CueBlockNumber5387");
        cues.push_back(cue);
    }
    return cues;
}

std::vector<std::uint64_t> File::ClusterTimes() const {
    std::vector<std::uint64_t> times;
    for (const Element* cluster : Children("Segment", "Cluster")) {
        times.push_back(Unsigned(cluster->m_Path + "/Timestamp"));
    }
    return times;
}

std::size_t File::WholeClusters() const {
    const std::vector<const Element*> clusters = Children("Segment", "Cluster");
    return static_cast<std::size_t>(
        std::count_if(clusters.begin(), clusters.end(), [](const Element* cluster) { return !cluster->m_Cut; }));
}

std::string File::PathAt(std::size_t offset) const {
    const std::vector<Element>* level = &m_Roots;
    const Element* innermost = nullptr;
    for (bool deeper = true; deeper;) {
        deeper = false;
        for (const Element& element : *level) {
            if (offset < element.m_Offset || offset >= element.End()) continue;
            innermost = &element;
            level = &element.m_Children;
            deeper = true;
            break;
        }
    }
    if (innermost == nullptr) return offset < m_Octets.size() ? "outside all elements" : "past the end of the file";
    if (offset < innermost->m_Offset + innermost->m_IdSize) return innermost->m_Path + ", identifier";
    if (offset < innermost->PayloadOffset()) return innermost->m_Path + ", length";
    return innermost->m_Path + ", payload octet " + std::to_string(offset - innermost->PayloadOffset());
}

namespace {

// One run of Check over one file.
class Checker {
public:
    Checker(const File& file, Times times) : m_File(file), m_Times(times), m_Problems(file.Problems()) {}

    std::vector<Problem> Run() {
        if (m_File.Roots().empty()) Complain(0, "", "no element at all");
        // The rest relies on a tree that is whole.
        if (!m_Problems.empty()) return m_Problems;
        CheckFrame();
        if (!m_Problems.empty()) return m_Problems;
        CheckTracks();
        CheckClusters();
        CheckSeekHeads();
        CheckCues();
        return m_Problems;
    }

    std::vector<Problem> RunUnfinished() {
        if (!m_Problems.empty()) return m_Problems;
        CheckOpenFrame();
        if (!m_Problems.empty()) return m_Problems;
        const Element* const tracks = m_File.Find("Segment/Tracks");
        if (tracks == nullptr || tracks->m_Cut) return m_Problems;
        CheckTracks();
        CheckClusters();
        return m_Problems;
    }

private:
    void Complain(std::size_t offset, const std::string& path, const std::string& text) {
        m_Problems.push_back({offset, path, text});
    }
    void Complain(const Element& element, const std::string& text) { Complain(element.m_Offset, element.m_Path, text); }

    // EBML and Segment fill the file; every element that must be there is there.
    void CheckFrame() {
        if (m_File.Roots().size() != 2 || m_File.Find("EBML") != &m_File.Roots()[0] || !m_File.Has("Segment")) {
            Complain(0, "", "not one EBML header followed by one Segment");
            return;
        }
        const Element& segment = m_File.At("Segment");
        if (segment.m_UnknownSize) Complain(segment, "its size was never filled in");
        if (segment.End() != m_File.Data().size()) Complain(segment, "does not end where the file ends");
        m_Start = segment.PayloadOffset();
        for (const char* path :
             {"EBML/DocType", "EBML/DocTypeVersion", "EBML/DocTypeReadVersion", "Segment/SeekHead[0]", "Segment/Info",
              "Segment/Info/TimestampScale", "Segment/Info/Duration", "Segment/Info/DateUTC", "Segment/Info/MuxingApp",
              "Segment/Tracks", "Segment/Tracks/TrackEntry[0]", "Segment/Cluster[0]", "Segment/SeekHead[1]"}) {
            if (!m_File.Has(path)) Complain(segment.m_Offset, path, "is missing");
        }
        std::string order;
        for (const Element& child : segment.m_Children) {
            const std::string name = child.m_pType->m_Name;
            if (name != "Cluster" || order.size() < 8 || order.compare(order.size() - 8, 8, "Cluster ") != 0) {
                order += name + " ";
            }
        }
        const std::string head = "SeekHead Void Info Tracks Cluster ";
        if (order != head + "SeekHead " && order != head + "Cues SeekHead ") {
            Complain(segment, "its children stand in another order: " + order);
        }
        if (m_File.Has("Segment/Info") && m_File.At("Segment/Info").m_Offset != m_Start + kReserved) {
            Complain(m_File.At("Segment/Info"), "does not follow the reserved room");
        }
    }

    // The file consists of EBML and Segment, whose children come in a fixed order, as far as the file goes.
    void CheckOpenFrame() {
        const std::vector<Element>& roots = m_File.Roots();
        if (roots.empty()) return;
        if (m_File.Find("EBML") != &roots[0]) Complain(roots[0], "stands where the EBML header should");
        const Element* const segment = m_File.Find("Segment");
        if (segment == nullptr) return;
        if (roots[0].m_Cut || segment != &roots.back()) Complain(*segment, "does not follow one EBML header");
        if (segment->m_Cut) Complain(*segment, "has its size filled in before it is whole");
        m_Start = segment->PayloadOffset();

        const std::vector<Element>& children = segment->m_Children;
        std::size_t at = 0;
        const auto pass = [&](const char* name) {
            if (at == children.size() || children[at].m_pType->m_Name != std::string(name)) return false;
            ++at;
            return true;
        };
        pass("SeekHead"); // the last thing that closing writes
        if (pass("Void") && pass("Info") && pass("Tracks")) {
            while (pass("Cluster")) {
            }
            pass("Cues");
            pass("SeekHead");
        }
        if (at != children.size()) Complain(children[at], "stands out of its order");
        for (std::size_t i = 0; i + 1 < children.size(); ++i) {
            if (children[i].m_Cut) Complain(children[i], "is cut off before the end of the file");
        }
        if (m_File.Has("Segment/Info") && m_File.At("Segment/Info").m_Offset != m_Start + kReserved) {
            Complain(m_File.At("Segment/Info"), "does not follow the reserved room");
        }
    }

    void CheckTracks() {
        std::set<std::uint64_t> numbers;
        m_CueTrack = 2;
        for (const Element* entry : m_File.Children("Segment/Tracks", "TrackEntry")) {
            for (const char* name : {"/TrackNumber", "/TrackUID", "/TrackType", "/CodecID"}) {
                if (m_File.Has(entry->m_Path + name)) continue;
                Complain(*entry, std::string("has no ") + (name + 1));
                return;
            }
            const std::uint64_t number = m_File.Unsigned(entry->m_Path + "/TrackNumber");
            const std::uint64_t type = m_File.Unsigned(entry->m_Path + "/TrackType");
            if (!numbers.insert(number).second) Complain(*entry, "a track number that is taken");
            if (type != 1 && type != 2) Complain(*entry, "neither video nor audio");
            if (m_File.Has(entry->m_Path + "/Video") != (type == 1)) Complain(*entry, "type and Video disagree");
            if (m_File.Has(entry->m_Path + "/Audio") != (type == 2)) Complain(*entry, "type and Audio disagree");
            if (number != type) Complain(*entry, "video is track 1, audio is track 2");
            if (type == 1) m_CueTrack = number;
        }
        m_Tracks = numbers;
    }

    void CheckClusters() {
        bool first = true;
        std::uint64_t last = 0;
        bool simple = false;
        bool grouped = false;
        for (const Element* cluster : m_File.Children("Segment", "Cluster")) {
            if (cluster->m_Cut) break;
            if (cluster->m_Children.empty() || cluster->m_Children[0].m_pType->m_Id != 0xE7) {
                Complain(*cluster, "does not begin with its Timestamp");
                return;
            }
            if (cluster->m_Children.size() < 2) Complain(*cluster, "holds no block");
            const std::uint64_t time = m_File.Unsigned(cluster->m_Path + "/Timestamp");
            if (time % kSpan != 0) Complain(*cluster, "its time is not on a span");
            if (!first && time <= last) Complain(*cluster, "its time is not after the last cluster's");
            if (first && time != 0) Complain(*cluster, "the first time is not 0");
            first = false;
            last = time;
            for (const Element& child : cluster->m_Children) {
                simple = simple || child.m_pType->m_Id == 0xA3;
                if (child.m_pType->m_Id != 0xA0) continue;
                grouped = true;
                if (child.m_Children.empty() || child.m_Children.back().m_pType->m_Id != 0xA1) {
                    Complain(child, "its last child is not its Block");
                }
            }
        }
        if (simple && grouped) Complain(m_Start, "Segment", "SimpleBlocks and BlockGroups in one file");
        const std::vector<const Element*> clusters = m_File.Children("Segment", "Cluster");
        for (const Block& block : m_File.Blocks()) {
            const Element& cluster = *clusters[block.m_Cluster];
            if (m_Tracks.count(block.m_Track) == 0) Complain(cluster, "a block of a track that there is not");
            if (block.m_Flags != 0 && !(block.m_Simple && block.m_Flags == 0x80)) Complain(cluster, "odd block flags");
            if (m_Times == Times::Lagging) continue;
            // Strictly inside its span: the block on the edge still belongs to the span before.
            const int least = block.m_ClusterTime == 0 ? 0 : 1;
            if (block.m_RelativeTime < least || block.m_RelativeTime > static_cast<int>(kSpan)) {
                Complain(cluster, "a block at " + std::to_string(block.m_RelativeTime) + " ms, outside its span");
            }
        }
    }

    const Element* ChildAt(std::uint64_t position) const {
        for (const Element& child : m_File.At("Segment").m_Children) {
            if (child.m_Offset - m_Start == position) return &child;
        }
        return nullptr;
    }

    // Names and offsets of the elements that a seek head points to; complains of each entry that does not resolve.
    std::vector<const Element*> Targets(const std::string& path) {
        std::vector<const Element*> targets;
        for (const Element* entry : m_File.Children(path, "Seek")) {
            if (!m_File.Has(entry->m_Path + "/SeekID") || !m_File.Has(entry->m_Path + "/SeekPosition")) {
                Complain(*entry, "is not an identifier and a position");
                continue;
            }
            const Octets id = m_File.Payload(entry->m_Path + "/SeekID");
            const std::uint64_t position = m_File.Unsigned(entry->m_Path + "/SeekPosition");
            const Element* const target = ChildAt(position);
            if (target == nullptr) {
                Complain(*entry, "position " + std::to_string(position) + " is not the start of an element");
            } else if (HighToLow(id) != target->m_pType->m_Id) {
                Complain(*entry, "names " + Hexadecimal(HighToLow(id)) + ", but at its position stands " +
                                     std::string(target->m_pType->m_Name));
            } else {
                targets.push_back(target);
            }
        }
        return targets;
    }

    void CheckSeekHeads() {
        std::vector<const Element*> expected = {m_File.Find("Segment/Info"), m_File.Find("Segment/Tracks")};
        if (m_File.Has("Segment/Cues")) expected.push_back(m_File.Find("Segment/Cues"));
        expected.push_back(m_File.Find("Segment/SeekHead[1]"));
        if (Targets("Segment/SeekHead[0]") != expected) {
            Complain(m_File.At("Segment/SeekHead[0]"), "does not list Info, Tracks, Cues and the cluster index once");
        }
        if (Targets("Segment/SeekHead[1]") != m_File.Children("Segment", "Cluster")) {
            Complain(m_File.At("Segment/SeekHead[1]"), "does not list every cluster once, in order");
        }
        const std::vector<const Element*> heads = m_File.Children("Segment", "SeekHead");
        if (heads.size() != 2) Complain(*heads.back(), "a third seek head");
    }

    // The cue points that the blocks ask for, worked out again from the clusters as they were written.
    void CheckCues() {
        for (const Element* point : m_File.Children("Segment/Cues", "CuePoint")) {
            if (point->m_Children.size() == 2 && m_File.Has(point->m_Path + "/CueTime") &&
                m_File.Has(point->m_Path + "/CueTrackPositions[0]/CueTrack") &&
                m_File.Has(point->m_Path + "/CueTrackPositions[0]/CueClusterPosition")) {
                continue;
            }
            Complain(*point, "is not a time with one position");
            return;
        }
        const std::vector<Cue> cues = m_File.Cues();
        if (m_File.Has("Segment/Cues") && cues.empty()) Complain(m_File.At("Segment/Cues"), "holds no cue point");
        const std::vector<const Element*> clusters = m_File.Children("Segment", "Cluster");
        std::size_t next = 0; // the cue point that is due
        std::size_t inCluster = 0;
        std::uint64_t counter = 0;
        std::size_t last = clusters.size();
        std::size_t cuedCluster = last; // none yet
        for (const Block& block : m_File.Blocks()) {
            if (block.m_Cluster != last) {
                last = block.m_Cluster;
                inCluster = 0;
                counter = 0;
            }
            ++inCluster;
            if (block.m_Track != m_CueTrack) continue;
            ++counter;
            if (block.m_Reference.value_or(0) != 0) continue;
            const Element& cluster = *clusters[block.m_Cluster];
            const bool matches = next < cues.size() && Matches(cues[next], block, cluster, counter, inCluster == 1);
            const bool firstOfCluster = block.m_Cluster != cuedCluster;
            if (firstOfCluster && !matches) {
                Complain(cluster, "its first key frame of track " + std::to_string(m_CueTrack) + ", at " +
                                      std::to_string(block.Time()) + " ms, has no cue point in its turn");
                return;
            }
            if (!firstOfCluster && (!matches || m_Times == Times::InOrder)) continue;
            cuedCluster = block.m_Cluster;
            ++next;
        }
        if (next != cues.size()) {
            Complain(m_File.At("Segment/Cues/CuePoint[" + std::to_string(next) + "]"),
                     "names no key frame that is due for one");
        }
    }

    bool Matches(const Cue& cue, const Block& block, const Element& cluster, std::uint64_t counter, bool opens) const {
        const auto time = static_cast<std::uint64_t>(block.Time());
        const std::optional<std::uint64_t> number = opens ? std::nullopt : std::make_optional(counter);
        // Blocks carry 16 bits of their time.
        return (m_Times == Times::InOrder ? cue.m_Time == time : cue.m_Time % 0x10000 == time % 0x10000) &&
               cue.m_Track == block.m_Track && cue.m_ClusterPosition == cluster.m_Offset - m_Start &&
               cue.m_BlockNumber == number;
    }

    const File& m_File;
    const Times m_Times;
    std::vector<Problem> m_Problems;
    std::size_t m_Start = 0; // first octet of the Segment's payload
    std::uint64_t m_CueTrack = 0;
    std::set<std::uint64_t> m_Tracks;
};

} // namespace

std::vector<Problem> Check(const File& file, Times times) { return Checker(file, times).Run(); }

std::vector<Problem> CheckUnfinished(const File& file, Times times) { return Checker(file, times).RunUnfinished(); }

std::string CompareFiles(const Octets& expected, const Octets& actual) {
    if (expected == actual) return {};
    const std::size_t common = std::min(expected.size(), actual.size());
    std::size_t at = 0;
    while (at < common && expected[at] == actual[at]) ++at;
    const auto side = [at](const char* name, const Octets& octets) {
        std::string text = std::string(name) + ":";
        const std::size_t from = at < 4 ? 0 : at - 4;
        for (std::size_t i = from; i < std::min(octets.size(), at + 12); ++i) {
            char digits[8];
            std::snprintf(digits, sizeof digits, i == at ? " [%02X]" : " %02X", octets[i]);
            text += digits;
        }
        return text + " (" + std::to_string(octets.size()) + " octets in all), in " + File(octets).PathAt(at) + "\n";
    };
    return "first difference at octet " + std::to_string(at) + " (" + Hexadecimal(at) + ")\n" +
           side("expected", expected) + side("actual", actual);
}

} // namespace Ebml
