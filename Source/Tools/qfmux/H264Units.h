// SPDX-License-Identifier: MIT
// The units of H.264 frames and the properties of a picture that they carry.
#pragma once

#include <vector>

#include "H264.h"

using QfHost::NalUnit;

// The units without trailing zeros. No unit ends with a zero (ISO/IEC 14496-10, 7.4.1): such zeros are padding.
std::vector<NalUnit> WithoutPadding(std::vector<NalUnit> units);

// Decoding can begin with a picture of these units: an IDR picture or one at a recovery point (ISO/IEC 14496-10,
// D.1.8).
bool HasInstantRefresh(const std::vector<NalUnit>& units);
bool HasRecoveryPoint(const std::vector<NalUnit>& units);
// Whether all slices are intra coded.
bool IsIntraPicture(const std::vector<NalUnit>& units);

// The number by which slices and other sets name a sequence or picture parameter set; -1 for anything else.
int ParameterSetId(const NalUnit& unit);
