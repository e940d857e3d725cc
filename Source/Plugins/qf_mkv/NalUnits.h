// SPDX-License-Identifier: MIT
// H.264 in start-code form (ISO/IEC 14496-10, Annex B), rewritten in place into length-prefixed form (14496-15).
#pragma once

#include <cstdint>

#include "ByteOrder.h"

// The first 00 00 00 01 among `length` octets, or null.
unsigned char* FindStartCode(unsigned char* data, int length);

constexpr unsigned kNalSlice = 1;
constexpr unsigned kNalIdrSlice = 5;
constexpr unsigned kNalSequenceSet = 7;
constexpr unsigned kNalPictureSet = 8;
constexpr unsigned kNalAccessUnitDelimiter = 9;

// Splits a frame at its 4-octet start codes. For each unit of a type that keep(type) accepts, the unit's length
// overwrites the start code in the frame itself, and take(type, unit, length) gets the unit with that length in front.
// Returns the number of octets taken.
//
// Shorter start codes are not recognised and stay inside their unit. A frame is expected to begin with a start code.
// One to three other octets in front of it are taken with its unit; four or more are taken separately, under that
// unit's type and with their length written over its start code. Both are deliberate. A unit whose type octet would lie
// outside the frame is ignored.
template <class Keep, class Take>
int SplitNalUnits(unsigned char* frame, int frameSize, Keep keep, Take take) {
    int kept = 0;
    if (frame == nullptr) return kept;
    for (int position = 0; position < frameSize;) {
        unsigned char* const current = frame + position;
        int length = frameSize - position;
        unsigned char* unit = FindStartCode(current, length);
        if (unit != nullptr) {
            unsigned char* const next = FindStartCode(current + 4, length - 4);
            if (next != nullptr) length = static_cast<int>(next - current);
        } else {
            unit = current;
        }
        if (unit - frame < frameSize - 4) {
            const unsigned type = unit[4] % 32U;
            if (keep(type)) {
                StoreBigEndian(unit, static_cast<std::uint32_t>(length - 4), 4);
                take(type, current, length);
                kept += length;
            }
        }
        position += length;
    }
    return kept;
}
