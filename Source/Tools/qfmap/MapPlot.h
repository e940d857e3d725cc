// SPDX-License-Identifier: MIT
// The plot in a map's picture: octets across, time up. Key frames and cues are below it; bars beside it show when each
// track has blocks.
#pragma once

#include "Map.h"
#include "PictureLayout.h"
#include "SvgPage.h"

void DrawPlot(SvgPage& page, const FileMap& map, const PictureLayout& layout);
