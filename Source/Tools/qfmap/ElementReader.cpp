// SPDX-License-Identifier: MIT
#include "ElementReader.h"

#include <ebml/EbmlBinary.h>
#include <ebml/EbmlFloat.h>
#include <ebml/EbmlHead.h>
#include <ebml/EbmlString.h>
#include <ebml/EbmlUInteger.h>
#include <ebml/EbmlUnicodeString.h>
#include <ebml/EbmlVoid.h>
#include <matroska/KaxBlock.h>
#include <matroska/KaxContexts.h>
#include <matroska/KaxSeekHead.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

constexpr std::uint64_t kLongestValue = 65536; // octets

// All that may stand in a Segment, and what files begin with.
constexpr std::array<std::array<unsigned char, 4>, 10> kMarks = {{{0x1A, 0x45, 0xDF, 0xA3},
                                                                  {0x18, 0x53, 0x80, 0x67},
                                                                  {0x1F, 0x43, 0xB6, 0x75},
                                                                  {0x1C, 0x53, 0xBB, 0x6B},
                                                                  {0x11, 0x4D, 0x9B, 0x74},
                                                                  {0x15, 0x49, 0xA9, 0x66},
                                                                  {0x16, 0x54, 0xAE, 0x6B},
                                                                  {0x12, 0x54, 0xC3, 0x67},
                                                                  {0x10, 0x43, 0xA7, 0x70},
                                                                  {0x19, 0x41, 0xA4, 0x69}}};

} // namespace

std::string FoundElement::Name() const {
    if (m_Id == IdOf<libebml::EbmlHead>()) return "EBML";
    if (m_Id == IdOf<libebml::EbmlVoid>()) return "Void";
    if (m_Id == IdOf<libmatroska::KaxSeekHead>()) return "SeekHead"; // libmatroska's name is another
    if (!m_pElement->IsDummy()) return EBML_NAME(m_pElement);
    char name[32];
    std::snprintf(name, sizeof name, "0x%X", m_Id);
    return name;
}

std::uint64_t ElementReader::Within(std::uint64_t position) const { return std::min(position, m_File.Size()); }

FoundElement ElementReader::Next() { return Next(libmatroska::KaxMatroska_Context, FoundElement::kOpen); }

FoundElement ElementReader::NextIn(const FoundElement& parent) {
    return Next(EBML_CONTEXT(parent.m_pElement), parent.m_End);
}

FoundElement ElementReader::Next(const libebml::EbmlSemanticContext& parent, std::uint64_t end) {
    // libebml goes on searching, octet by octet, when what stands there is no element. Whether an identifier and a
    // length can begin there is seen beforehand: four octets of identifier and eight of length at most.
    std::array<unsigned char, 12> head = {};
    m_File.GoTo(m_At);
    const std::size_t n = m_File.read(head.data(), head.size());
    const std::size_t idSize = head[0] >= 0x80 ? 1 : head[0] >= 0x40 ? 2 : head[0] >= 0x20 ? 3 : 4;
    if (head[0] < 0x10 || idSize >= n || head[idSize] == 0) return {};
    int upper = 0;
    FoundElement found;
    m_File.GoTo(m_At);
    found.m_pElement.reset(libebml::EbmlElement::FindNextElement(m_File, parent, upper, FoundElement::kOpen, true));
    if (!found || found.m_pElement->GetElementPosition() != m_At) return {};
    found.m_Id = EBML_ID_VALUE(libebml::EbmlId(*found.m_pElement));
    found.m_Position = m_At;
    found.m_Payload = m_File.getFilePointer();
    // Not IsFiniteSize: libmatroska makes Segments endless until told otherwise. A length of all ones is unknown.
    const std::uint64_t size = found.m_pElement->EbmlElement::GetSize();
    const bool isUnknown = size == (std::uint64_t{1} << 7 * found.m_pElement->GetSizeLength()) - 1;
    found.m_End = isUnknown ? FoundElement::kOpen : found.m_Payload + size;
    found.m_IsOuter = upper > 0;
    const bool overruns = end != FoundElement::kOpen && !found.IsOpen() && found.m_End > end && !found.m_IsOuter;
    const bool isGarbage = found.m_pElement->IsDummy() && found.m_End > m_File.Size();
    if (overruns || isGarbage) return {};
    return found;
}

std::uint64_t ElementReader::Unsigned(const FoundElement& found, std::uint64_t otherwise) {
    auto* const value = dynamic_cast<libebml::EbmlUInteger*>(found.m_pElement.get());
    return value != nullptr && Load(found) ? value->GetValue() : otherwise;
}

double ElementReader::Float(const FoundElement& found) {
    auto* const value = dynamic_cast<libebml::EbmlFloat*>(found.m_pElement.get());
    return value != nullptr && Load(found) ? value->GetValue() : 0;
}

std::string ElementReader::Text(const FoundElement& found) {
    if (!Load(found)) return {};
    std::string text;
    if (auto* const unicode = dynamic_cast<libebml::EbmlUnicodeString*>(found.m_pElement.get())) {
        text = unicode->GetValueUTF8();
    } else if (auto* const plain = dynamic_cast<libebml::EbmlString*>(found.m_pElement.get())) {
        text = plain->GetValue();
    }
    return text.substr(0, text.find('\0'));
}

std::vector<unsigned char> ElementReader::Binary(const FoundElement& found) {
    auto* const value = dynamic_cast<libebml::EbmlBinary*>(found.m_pElement.get());
    if (value == nullptr || !Load(found)) return {};
    return {value->GetBuffer(), value->GetBuffer() + value->GetSize()};
}

// Reads the payload of a value, if it is whole.
bool ElementReader::Load(const FoundElement& found) {
    if (found.m_End > m_File.Size() || found.m_End - found.m_Payload > kLongestValue) return false;
    m_File.GoTo(found.m_Payload);
    found.m_pElement->ReadData(m_File);
    return true;
}

std::optional<BlockHead> ElementReader::Block(const FoundElement& found) {
    // The head takes four octets at least, and libmatroska reads one more.
    auto* const block = dynamic_cast<libmatroska::KaxInternalBlock*>(found.m_pElement.get());
    if (block == nullptr || found.IsOpen() || found.m_Payload + 5 > m_File.Size()) return std::nullopt;
    m_File.GoTo(found.m_Payload);
    block->ReadData(m_File, libebml::SCOPE_PARTIAL_DATA);
    const auto* const simple = dynamic_cast<const libmatroska::KaxSimpleBlock*>(block);
    return BlockHead{block->TrackNum(), block->GetRelativeTimestamp(), std::max(1U, block->NumberFrames()),
                     simple != nullptr && simple->IsKeyframe()};
}

std::uint32_t ElementReader::IdAt(std::uint64_t position) const {
    std::array<unsigned char, 4> octets = {};
    m_File.ReadAt(position, octets.data(), octets.size());
    std::uint32_t id = 0;
    for (const unsigned char octet : octets) id = id << 8 | octet;
    return id;
}

std::uint64_t ElementReader::FindNext(std::uint64_t end) const {
    std::vector<unsigned char> window(1 << 16);
    for (std::uint64_t at = m_At + 1; at + 4 <= end;) {
        const std::size_t n = m_File.ReadAt(at, window.data(), window.size());
        if (n < 4) break;
        for (std::size_t i = 0; i + 4 <= n; ++i) {
            if (window[i] < 0x10 || window[i] > 0x1F) continue;
            const auto is = [&](const auto& mark) { return std::equal(mark.begin(), mark.end(), &window[i]); };
            if (at + i + 4 <= end && std::any_of(kMarks.begin(), kMarks.end(), is)) return at + i;
        }
        at += n - 3;
    }
    return end;
}
