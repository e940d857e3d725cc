// SPDX-License-Identifier: MIT
// The units of H.264 frames and the properties of a picture that they carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "H264.h"

using QfHost::NalUnit;

// Splits data into units with length prefixes of lengthSize octets. Trailing zeros of units are dropped.
// isWhole: becomes false when the last unit is cut off; this unit then ends with the data.
std::vector<NalUnit> SplitLengths(const std::uint8_t* data, std::size_t size, unsigned lengthSize, bool& isWhole);

// Joins the units, each with a length prefix of 4 octets.
std::vector<std::uint8_t> WithLengths(const std::vector<NalUnit>& units);

// Decoding can begin with a picture of these units: an IDR picture or one at a recovery point (ISO/IEC 14496-10,
// D.1.8).
bool HasInstantRefresh(const std::vector<NalUnit>& units);
bool HasRecoveryPoint(const std::vector<NalUnit>& units);
// Whether all slices are intra coded.
bool IsIntraPicture(const std::vector<NalUnit>& units);

// The number by which slices and other sets name a sequence or picture parameter set; -1 for anything else.
int ParameterSetId(const NalUnit& unit);
