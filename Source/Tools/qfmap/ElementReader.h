// SPDX-License-Identifier: MIT
// Walks the elements of a Matroska file with libebml and libmatroska. It reads headers, and payloads only of values
// that a caller asks for. Files may be damaged, and their lengths may be wrong.
#pragma once

#include <ebml/EbmlElement.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "PagedFile.h"

// The identifier of a class of libebml or libmatroska.
template <class Type>
std::uint32_t IdOf() {
    return EBML_ID_VALUE(EBML_ID(Type));
}

// The header of an element that was found.
struct FoundElement {
    static constexpr std::uint64_t kOpen = std::numeric_limits<std::uint64_t>::max(); // the end of an unknown size

    std::unique_ptr<libebml::EbmlElement> m_pElement; // null when no element that fits is there
    std::uint32_t m_Id = 0;
    std::uint64_t m_Position = 0;
    std::uint64_t m_Payload = 0;
    std::uint64_t m_End = 0;
    bool m_IsOuter = false; // it belongs to an ancestor, so the parent that was searched ends here

    explicit operator bool() const { return m_pElement != nullptr; }
    bool IsOpen() const { return m_End == kOpen; }
    // The name in RFC 9559, or the identifier in hexadecimal when it has none.
    std::string Name() const;
};

struct BlockHead {
    std::uint64_t m_Track = 0;
    std::int64_t m_RelativeTime = 0; // ticks
    std::uint64_t m_Frames = 1;
    bool m_IsKey = false; // the flag of a SimpleBlock
};

class ElementReader {
public:
    // Throws ToolError, as reading does.
    explicit ElementReader(const std::string& path) : m_File(path) {}

    std::uint64_t Size() const { return m_File.Size(); } // of the file
    std::uint64_t Within(std::uint64_t position) const;  // the position, or the end of the file if that comes first
    std::uint64_t At() const { return m_At; }
    void GoTo(std::uint64_t position) { m_At = position; }

    // Reads the header at the current position, of a top-level element or of a child of that parent. The position does
    // not move.
    FoundElement Next();
    FoundElement NextIn(const FoundElement& parent);
    // Calls visit for each child and moves to the parent's end. Returns false when part of the parent cannot be read.
    template <class Visit>
    bool ForChildren(const FoundElement& parent, Visit visit);

    // The value of an element; the default when it is cut off, far too long or of another type.
    std::uint64_t Unsigned(const FoundElement& found, std::uint64_t otherwise = 0);
    double Float(const FoundElement& found);
    std::string Text(const FoundElement& found);
    std::vector<unsigned char> Binary(const FoundElement& found);
    // Reads the head of a SimpleBlock or Block. Returns nothing when it is cut off.
    std::optional<BlockHead> Block(const FoundElement& found);

    // Four octets as an identifier. Octets beyond the end of the file count as 0.
    std::uint32_t IdAt(std::uint64_t position) const;
    // Searches from here to `end` for the next element with a four-octet identifier, which no other data is likely to
    // imitate. Returns its position, or `end` when there is none.
    std::uint64_t FindNext(std::uint64_t end) const;

private:
    FoundElement Next(const libebml::EbmlSemanticContext& parent, std::uint64_t end);
    bool Load(const FoundElement& found);

    PagedFile m_File;
    std::uint64_t m_At = 0;
};

template <class Visit>
bool ElementReader::ForChildren(const FoundElement& parent, Visit visit) {
    m_At = parent.m_Payload;
    const std::uint64_t end = Within(parent.m_End);
    while (m_At < end) {
        const FoundElement child = NextIn(parent);
        if (!child) {
            if (!parent.IsOpen()) m_At = end;
            return end < parent.m_End && !parent.IsOpen(); // cut off, which is said once for the file
        }
        if (child.m_IsOuter) return parent.IsOpen();
        visit(child);
        if (!child.IsOpen()) {
            m_At = Within(child.m_End);
        } else if (m_At == child.m_Position) {
            return false; // nobody looked for its end
        }
    }
    return true;
}
