// SPDX-License-Identifier: MIT
// A slow and obvious second implementation of the text conversions. Both write into targets with guarded ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "MKVFile.h"
#include "Octets.h"

using Characters = std::vector<std::uint32_t>;
using Wide = std::vector<wchar_t>;

inline Wide ToWide(const Characters& characters) { return {characters.begin(), characters.end()}; }

inline ConversionFlags FlagsFor(bool strict) { return strict ? kStrictConversion : kLenientConversion; }

// The outcome of a conversion: its result, and the whole target with some units behind its end, all of them filled
// beforehand.
template <class Unit>
struct Outcome {
    ConversionResult m_Result;
    std::vector<Unit> m_Target;
    bool operator==(const Outcome& other) const { return m_Result == other.m_Result && m_Target == other.m_Target; }
};
constexpr unsigned char kOctetCanary = 0xEE;
constexpr wchar_t kWideCanary = 0xEEEE;
constexpr std::size_t kBehind = 6; // the longest sequence that a first octet announces

inline Outcome<unsigned char> ToUtf8(const Characters& characters, std::size_t room, bool strict) {
    const Wide source = ToWide(characters);
    Octets target(room + kBehind, kOctetCanary);
    const ConversionResult result = ConvertUTF32toUTF8(source.data(), source.data() + source.size(), target.data(),
                                                       target.data() + room, FlagsFor(strict));
    return {result, target};
}

inline Outcome<wchar_t> ToUtf32(const Octets& source, std::size_t room, bool strict) {
    Wide target(room + kBehind, kWideCanary);
    const ConversionResult result = ConvertUTF8toUTF32(source.data(), source.data() + source.size(), target.data(),
                                                       target.data() + room, FlagsFor(strict));
    return {result, target};
}

// ---- a slow model of both directions

// The table of RFC 3629, section 3, for any value below 2^21.
inline Octets Encoded(std::uint32_t c) {
    const auto octet = [](std::uint32_t value) { return static_cast<unsigned char>(value); };
    const auto trail = [&](unsigned shift) { return octet(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) return {octet(c)};
    if (c < 0x800) return {octet(0xC0 | (c >> 6)), trail(0)};
    if (c < 0x10000) return {octet(0xE0 | (c >> 12)), trail(6), trail(0)};
    return {octet(0xF0 | (c >> 18)), trail(12), trail(6), trail(0)};
}

inline bool IsSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

inline Outcome<unsigned char> ModelToUtf8(const Characters& characters, std::size_t room, bool strict) {
    Octets written;
    const auto end = [&](ConversionResult result) {
        written.resize(room + kBehind, kOctetCanary);
        return Outcome<unsigned char>{result, written};
    };
    bool replaced = false;
    for (std::uint32_t c : characters) {
        if (strict && IsSurrogate(c)) return end(kSourceIllegal);
        if (c > 0x10FFFF) {
            c = 0xFFFD;
            replaced = true;
        }
        const Octets octets = Encoded(c);
        if (written.size() + octets.size() > room) return end(kTargetExhausted);
        written.insert(written.end(), octets.begin(), octets.end());
    }
    return end(replaced ? kSourceIllegal : kConverted);
}

inline Outcome<wchar_t> ModelToUtf32(const Octets& source, std::size_t room, bool strict) {
    Wide written;
    const auto end = [&](ConversionResult result) {
        written.resize(room + kBehind, kWideCanary);
        return Outcome<wchar_t>{result, written};
    };
    for (std::size_t i = 0; i < source.size();) {
        const unsigned lead = source[i];
        std::size_t length = 1; // as many octets as the first one has leading ones
        if (lead >= 0xC0) {
            for (unsigned bit = 0x40; bit != 0x02 && (lead & bit) != 0; bit >>= 1) ++length;
        }
        if (i + length > source.size()) return end(kSourceExhausted);
        // A sequence is legal if it is some character's encoding: decode its bits and encode them again.
        std::uint32_t c = length == 1 ? lead : lead & (0x7FU >> length);
        for (std::size_t k = 1; k < length; ++k) c = (c << 6) | (source[i + k] & 0x3FU);
        const Octets sequence(source.begin() + static_cast<std::ptrdiff_t>(i),
                              source.begin() + static_cast<std::ptrdiff_t>(i + length));
        if (length > 4 || c > 0x10FFFF || Encoded(c) != sequence) return end(kSourceIllegal);
        if (written.size() == room) return end(kTargetExhausted);
        if (IsSurrogate(c)) {
            if (strict) return end(kSourceIllegal);
            c = 0xFFFD;
        }
        written.push_back(static_cast<wchar_t>(c));
        i += length;
    }
    return end(kConverted);
}

// The content of a text element: the characters in front of a zero, cut where the next one would pass the capacity.
inline Octets ModelUtf8Text(const std::wstring& text) {
    Octets written;
    for (const wchar_t unit : text) {
        const auto c = static_cast<std::uint32_t>(unit);
        const Octets octets = Encoded(c > 0x10FFFF ? 0xFFFD : c);
        if (c == 0 || written.size() + octets.size() > static_cast<std::size_t>(kTextCapacity)) break;
        written.insert(written.end(), octets.begin(), octets.end());
    }
    return written;
}
