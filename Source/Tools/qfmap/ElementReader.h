// From element to element of a Matroska file: headers by libebml and libmatroska, payloads only where a value is asked
// for. Damage and lengths that lead astray are expected.
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

// An element's header, read.
struct FoundElement {
    static constexpr std::uint64_t kOpen = std::numeric_limits<std::uint64_t>::max(); // the end of an unknown size

    std::unique_ptr<libebml::EbmlElement> m_pElement; // null: no element that fits stands there
    std::uint32_t m_Id = 0;
    std::uint64_t m_Position = 0;
    std::uint64_t m_Payload = 0;
    std::uint64_t m_End = 0;
    bool m_IsOuter = false; // it belongs to an element further out: what it was looked for in ends here

    explicit operator bool() const { return m_pElement != nullptr; }
    bool IsOpen() const { return m_End == kOpen; }
    // Of RFC 9559; the identifier of what is unknown.
    std::string Name() const;
};

struct BlockHead {
    std::uint64_t m_Track = 0;
    std::int64_t m_RelativeTime = 0; // ticks
    std::uint64_t m_Frames = 1;
    bool m_IsKey = false; // as a SimpleBlock says of itself
};

class ElementReader {
public:
    // Throws ToolError, as reading does.
    explicit ElementReader(const std::string& path) : m_File(path) {}

    std::uint64_t Size() const { return m_File.Size(); } // of the file
    std::uint64_t Within(std::uint64_t position) const;  // the position, or the end of the file if that comes first
    std::uint64_t At() const { return m_At; }
    void GoTo(std::uint64_t position) { m_At = position; }

    // The header that stands here, of an element of the whole file or of that parent. The place stays.
    FoundElement Next();
    FoundElement NextIn(const FoundElement& parent);
    // Calls visit for each child; afterwards the place is where the parent ends. Says whether all of it could be read.
    template <class Visit>
    bool ForChildren(const FoundElement& parent, Visit visit);

    // The values of what is found, each its default when it is cut off, far too long or of another type.
    std::uint64_t Unsigned(const FoundElement& found, std::uint64_t otherwise = 0);
    double Float(const FoundElement& found);
    std::string Text(const FoundElement& found);
    std::vector<unsigned char> Binary(const FoundElement& found);
    // Of a SimpleBlock or Block; nothing when its head is cut off.
    std::optional<BlockHead> Block(const FoundElement& found);

    // Four octets as an identifier; those behind the end of the file count as 0.
    std::uint32_t IdAt(std::uint64_t position) const;
    // Where, between here and `end`, the next element begins that can be told for sure: by an identifier of four
    // octets. `end` when there is none.
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
