// The plot of a map's picture: octets across, time up; below it key frames and cues, beside it when each track has
// blocks.
#pragma once

#include "Map.h"
#include "PictureLayout.h"
#include "SvgPage.h"

void DrawPlot(SvgPage& page, const FileMap& map, const PictureLayout& layout);
