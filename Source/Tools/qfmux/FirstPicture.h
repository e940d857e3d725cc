// SPDX-License-Identifier: MIT
// The properties of a video stream that its frames carry.
#pragma once

#include "MediaFile.h"

// Decodes the stream's first picture without the container's colour data. Opens the file once more, so the position of
// `file` does not change. Null when the first frames give no picture.
AvPtr<AVFrame> DecodeFirstPicture(const MediaFile& file, const AVStream* stream);
