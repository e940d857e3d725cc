// SPDX-License-Identifier: MIT
#include "MKVFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "ByteOrder.h"

namespace {

constexpr std::uint32_t kReplacementCharacter = 0xFFFD;
constexpr std::uint32_t kLargestCharacter = 0x10FFFF;
// A trail octet carries 6 bits of a character.
constexpr std::uint32_t kTrailStep = 64;

bool IsSurrogate(std::uint32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

unsigned EncodedLength(std::uint32_t character) {
    if (character < 0x80) return 1;
    if (character < 0x800) return 2;
    return character < 0x10000 ? 3 : 4;
}

// Octets of a sequence, the first included, by its first octet. 5 and 6 can be announced but are never legal.
unsigned AnnouncedLength(unsigned char lead) {
    if (lead < 0xC0) return 1;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    if (lead < 0xF8) return 4;
    return lead < 0xFC ? 5 : 6;
}

// The marker bits of the first octet, by announced length: 0xxxxxxx, 110xxxxx, 1110xxxx, 11110xxx.
constexpr std::array<unsigned char, 5> kLeadMark = {0x00, 0x00, 0xC0, 0xE0, 0xF0};

bool IsLegal(const unsigned char* sequence, unsigned length) {
    const unsigned char lead = sequence[0];
    if (length == 1) return lead < 0x80;
    if (lead < 0xC2 || lead > 0xF4) return false;
    for (unsigned i = 1; i < length; ++i) {
        if (sequence[i] < 0x80 || sequence[i] > 0xBF) return false;
    }
    // Overlong forms, and values above U+10FFFF.
    if (lead == 0xE0) return sequence[1] >= 0xA0;
    if (lead == 0xF0) return sequence[1] >= 0x90;
    if (lead == 0xF4) return sequence[1] <= 0x8F;
    return true;
}

std::uint32_t Decode(const unsigned char* sequence, unsigned length) {
    std::uint32_t character = sequence[0] - kLeadMark[length];
    for (unsigned i = 1; i < length; ++i) character = character * kTrailStep + (sequence[i] - 0x80U);
    return character;
}

std::size_t Length(const wchar_t* text) { return std::wcslen(text); }
std::size_t Length(const char* text) { return std::strlen(text); }

// Units of a caller's text; -1 asks for all of it with its terminating zero.
template <class Unit>
std::size_t SourceUnits(const Unit* text, int length) {
    if (text == nullptr) return 0;
    if (length == -1) return Length(text) + 1;
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

template <class Unit>
std::size_t TargetUnits(const Unit* text, int length) {
    return text != nullptr && length > 0 ? static_cast<std::size_t>(length) : 0;
}

ConversionFlags FlagsFor(bool strict) { return strict ? kStrictConversion : kLenientConversion; }

} // namespace

ConversionResult ConvertUTF32toUTF8(const wchar_t* sourceStart, const wchar_t* sourceEnd, unsigned char* targetStart,
                                    unsigned char* targetEnd, ConversionFlags flags) {
    ConversionResult result = kConverted;
    unsigned char* target = targetStart;
    for (const wchar_t* source = sourceStart; source < sourceEnd; ++source) {
        auto character = static_cast<std::uint32_t>(*source);
        if (flags == kStrictConversion && IsSurrogate(character)) return kSourceIllegal;
        if (character > kLargestCharacter) {
            character = kReplacementCharacter;
            result = kSourceIllegal;
        }
        const unsigned length = EncodedLength(character);
        if (targetEnd - target < static_cast<std::ptrdiff_t>(length)) return kTargetExhausted;
        for (unsigned i = length; i-- > 1; character /= kTrailStep) {
            target[i] = static_cast<unsigned char>(0x80 + character % kTrailStep);
        }
        target[0] = static_cast<unsigned char>(kLeadMark[length] + character);
        target += length;
    }
    return result;
}

ConversionResult ConvertUTF8toUTF32(const unsigned char* sourceStart, const unsigned char* sourceEnd,
                                    wchar_t* targetStart, wchar_t* targetEnd, ConversionFlags flags) {
    wchar_t* target = targetStart;
    for (const unsigned char* source = sourceStart; source < sourceEnd;) {
        const unsigned length = AnnouncedLength(*source);
        if (sourceEnd - source < static_cast<std::ptrdiff_t>(length)) return kSourceExhausted;
        if (!IsLegal(source, length)) return kSourceIllegal;
        if (target >= targetEnd) return kTargetExhausted;
        std::uint32_t character = Decode(source, length);
        if (IsSurrogate(character)) {
            if (flags == kStrictConversion) return kSourceIllegal;
            character = kReplacementCharacter;
        }
        *target++ = static_cast<wchar_t>(character);
        source += length;
    }
    return kConverted;
}

ConversionResult WtoUTF8(const wchar_t* source, int sourceLength, char* target, int targetLength, bool strict) {
    auto* octets = reinterpret_cast<unsigned char*>(target);
    return ConvertUTF32toUTF8(source, source + SourceUnits(source, sourceLength), octets,
                              octets + TargetUnits(target, targetLength), FlagsFor(strict));
}

ConversionResult UTF8toW(const char* source, int sourceLength, wchar_t* target, int targetLength, bool strict) {
    const auto* octets = reinterpret_cast<const unsigned char*>(source);
    return ConvertUTF8toUTF32(octets, octets + SourceUnits(source, sourceLength), target,
                              target + TargetUnits(target, targetLength), FlagsFor(strict));
}

std::string UTF16To8(const wchar_t* text) { return Utf8Text(text).Data(); }

Utf8Text::Utf8Text(const wchar_t* text) : m_Octets{} {
    WtoUTF8(text, -1, m_Octets.data(), kTextCapacity, false);
    m_Size = std::strlen(m_Octets.data());
}
