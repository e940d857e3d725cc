// SPDX-License-Identifier: MIT
// What the frames of a video stream tell of it by themselves.
#pragma once

#include "MediaFile.h"

// Decodes the stream's first picture without what the container tells of its colours. Opens the file once more, whose
// place does not move. Null when no picture comes out of its first frames.
AvPtr<AVFrame> DecodeFirstPicture(const MediaFile& file, const AVStream* stream);
