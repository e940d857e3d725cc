// SPDX-License-Identifier: MIT
// Text conversions between the host's wide strings (UTF-32) and UTF-8 (RFC 3629).
//
// The two core converters behave as the Unicode Consortium's reference routines do, but take their bounds by value: a
// caller learns how the conversion ended and not how far it got. None of them writes a terminating zero of its own.
#pragma once

#include <array>
#include <cstddef>
#include <string>

enum ConversionResult {
    kConverted = 0,
    kSourceExhausted = 1, // the source ends inside a sequence
    kTargetExhausted = 2, // the next character does not fit; those before it are written
    kSourceIllegal = 3
};

enum ConversionFlags {
    kStrictConversion = 0,
    kLenientConversion = 1 // surrogate code points are let through (to UTF-8) or replaced by U+FFFD (from UTF-8)
};

// A value above U+10FFFF is replaced by U+FFFD; the conversion goes on and ends with kSourceIllegal.
ConversionResult ConvertUTF32toUTF8(const wchar_t* sourceStart, const wchar_t* sourceEnd, unsigned char* targetStart,
                                    unsigned char* targetEnd, ConversionFlags flags);

// Stops at the first illegal sequence. Tests for each sequence the source's end first, then its legality, then the room
// in the target.
ConversionResult ConvertUTF8toUTF32(const unsigned char* sourceStart, const unsigned char* sourceEnd,
                                    wchar_t* targetStart, wchar_t* targetEnd, ConversionFlags flags);

// sourceLength: units of the source, or -1 for all of it with its terminating zero. targetLength: units of the target.
// Null pointers and other lengths below 1 count as no units at all.
ConversionResult WtoUTF8(const wchar_t* source, int sourceLength, char* target, int targetLength, bool strict);
ConversionResult UTF8toW(const char* source, int sourceLength, wchar_t* target, int targetLength, bool strict);

// Longest text that the plug-in converts, in units of the target; longer texts are cut at a whole character.
constexpr int kTextCapacity = 2047;

// The UTF-8 form of a wide text, empty for null. Its units are the platform's, of 32 bits despite the name.
std::string UTF16To8(const wchar_t* text);

// The same on the stack, without allocating memory.
class Utf8Text {
public:
    explicit Utf8Text(const wchar_t* text);
    const char* Data() const { return m_Octets.data(); }
    std::size_t Size() const { return m_Size; }

private:
    std::array<char, kTextCapacity + 1> m_Octets; // zero-terminated
    std::size_t m_Size;
};
