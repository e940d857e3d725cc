// SPDX-License-Identifier: MIT
// The filters that a stream needs before it is encoded.
#pragma once

#include <string>
#include <vector>

#include "MediaFile.h"
#include "Options.h"
#include "Target.h"

struct StreamFilters {
    std::string m_Text;               // in libavfilter's notation
    std::vector<std::string> m_Notes; // changes that the user did not ask for
};

// Pictures appear as in players: rotated, opaque, in standard dynamic range, with even sides where the codec needs
// them. squarePixels: the format has no place for an aspect.
StreamFilters PictureFilters(const MediaFile& file, AVStream* stream, const Target& target, const Options& options,
                             bool squarePixels);

// Sound is resampled and mixed only as far as the encoder needs.
StreamFilters SoundFilters(const Target& target, const Options& options);
