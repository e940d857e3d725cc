// SPDX-License-Identifier: MIT
// The edges of pictures that the container tells players not to show. libavformat does not expose them.
#pragma once

extern "C" {
#include <libavutil/rational.h>
}

class MediaFile;
struct AVStream;

struct Crop {
    bool IsEmpty() const { return m_Left <= 0 && m_Top <= 0 && m_Right <= 0 && m_Bottom <= 0; }

    // Pixels.
    int m_Left = 0;
    int m_Top = 0;
    int m_Right = 0;
    int m_Bottom = 0;
};

// Of a video stream. Empty if nothing would be left of the pictures.
Crop ReadCrop(const MediaFile& file, const AVStream* stream);

// The shape of a video stream's pixels. libavformat 59 takes the display size of a cropped Matroska track (RFC 9559,
// DisplayWidth) for that of the whole pictures.
AVRational PixelAspect(const MediaFile& file, AVStream* stream);
