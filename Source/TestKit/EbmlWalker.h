// SPDX-License-Identifier: MIT
// A reader of files, for tests and for qfcheck: an EBML (RFC 8794) and Matroska (RFC 9559) walker that shares no code
// with the writer. It accepts exactly the elements that this format may hold and reports everything else, with offset
// and path. It also reads files that their writer never finished, if the caller expects such a file.
//
// The format's deliberate oddities are entries of the element table, each by its name:
//   CodecID ends with one zero octet;
//   identifier 0x5387 stands where RFC 9559 has CueBlockNumber (0x5378);
//   a BlockGroup's Block is its last child;
//   a Void with a payload of 124 to 126 octets may end one octet before the element that follows it.
#pragma once

#include "Octets.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Ebml {

enum class Kind { Master, Unsigned, Signed, Float, Text, ZeroEndedText, Binary, Block, Filler };

// One row of the element table.
struct Type {
    std::uint32_t m_Id;   // as it stands in a file, with its marker
    const char* m_Name;   // of RFC 9559
    const char* m_Parent; // name of the master element that it lies in; "" for the file itself
    Kind m_Kind;
    bool m_Many; // may stand more than once in its parent; its path names then end in [0], [1], ...
};

struct Element {
    const Type* m_pType;
    std::string m_Path;        // "Segment/Cluster[3]/BlockGroup[0]/Block"
    std::size_t m_Offset;      // of its identifier, from the start of the file
    std::size_t m_IdSize;      // octets of the identifier
    std::size_t m_HeaderSize;  // octets of identifier and length
    std::size_t m_PayloadSize; // octets of the payload; for an unknown size or a cut one, up to the parent's end
    bool m_UnknownSize;
    bool m_Cut; // the file ends before this element does
    std::vector<Element> m_Children;

    std::size_t PayloadOffset() const { return m_Offset + m_HeaderSize; }
    std::size_t End() const { return PayloadOffset() + m_PayloadSize; }
};

struct Problem {
    std::size_t m_Offset;
    std::string m_Path;
    std::string m_Text;
};

// One line for each problem; empty when there is none.
std::string Describe(const std::vector<Problem>& problems);

// A Block or a SimpleBlock, taken apart.
struct Block {
    std::size_t m_Cluster; // index of its cluster
    std::uint64_t m_ClusterTime;
    std::uint64_t m_Track;
    std::int16_t m_RelativeTime;
    unsigned char m_Flags;
    Octets m_Frame;
    bool m_Simple;
    std::optional<std::int64_t> m_Reference; // of its BlockGroup

    std::int64_t Time() const { return static_cast<std::int64_t>(m_ClusterTime) + m_RelativeTime; }
};

struct Cue {
    std::uint64_t m_Time;
    std::uint64_t m_Track;
    std::uint64_t m_ClusterPosition; // from the first octet of the Segment's payload
    std::optional<std::uint64_t> m_BlockNumber;
};

// Whether the file may end in the middle of an element, because its writer was stopped.
enum class Ending { Whole, CutOff };

class File {
public:
    explicit File(Octets octets, Ending ending = Ending::Whole);

    const Octets& Data() const { return m_Octets; }
    const std::vector<Element>& Roots() const { return m_Roots; }
    // Problems of the file as a tree of elements.
    const std::vector<Problem>& Problems() const { return m_Problems; }

    // Null when there is none. An index of 0 may be left out.
    const Element* Find(const std::string& path) const;
    bool Has(const std::string& path) const { return Find(path) != nullptr; }

    // These throw std::out_of_range, naming the path, when there is no such element.
    const Element& At(const std::string& path) const;
    Octets Payload(const std::string& path) const;
    std::uint64_t Unsigned(const std::string& path) const;
    std::int64_t Signed(const std::string& path) const;
    float Float(const std::string& path) const;
    std::string Text(const std::string& path) const; // up to a zero octet

    Octets PayloadOf(const Element& element) const;
    // The whole element, header included.
    Octets OctetsOf(const Element& element) const;
    std::vector<const Element*> Children(const std::string& path, const std::string& name) const;

    // Blocks that are cut off are left out.
    std::vector<Block> Blocks() const;
    std::vector<Block> BlocksOf(std::uint64_t track) const;
    std::vector<Cue> Cues() const;
    std::vector<std::uint64_t> ClusterTimes() const;
    std::size_t WholeClusters() const;

    // The innermost element that holds an octet, and the part of it.
    std::string PathAt(std::size_t offset) const;

private:
    void Parse(std::size_t begin, std::size_t end, const Element* parent, std::vector<Element>& children);
    void CheckValue(const Element& element);
    void Complain(std::size_t offset, const std::string& path, const std::string& text);

    Octets m_Octets;
    Ending m_Ending;
    std::vector<Element> m_Roots;
    std::vector<Problem> m_Problems;
};

// Whether the streams of a file were drained in time order. Where one lagged behind the other, block times may lie
// before their cluster, so spans are not checked and cues less strictly.
enum class Times { InOrder, Lagging };

// Checks everything that a finished file promises: sizes that add up to the octet, a seek head and a cluster index that
// give the place of every element that they should, clusters on whole spans, and the cue points that the blocks
// require.
std::vector<Problem> Check(const File& file, Times times = Times::InOrder);

// Checks what every unfinished file promises: whole elements in order, of which only the last may be cut off; a Segment
// of unknown size, or of its real size near the end of closing; tracks and whole clusters as in a finished file. The
// file is read with Ending::CutOff. An empty file is no problem.
std::vector<Problem> CheckUnfinished(const File& file, Times times = Times::InOrder);

// Empty when the two are the same; else the first difference with its offset and the elements in which it lies.
std::string CompareFiles(const Octets& expected, const Octets& actual);

} // namespace Ebml
