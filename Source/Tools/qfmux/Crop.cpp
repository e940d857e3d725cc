// SPDX-License-Identifier: MIT
#include "Crop.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "IsoTracks.h"
#include "LossText.h"
#include "MatroskaHeader.h"
#include "MediaFile.h"

extern "C" {
#include <libavutil/avstring.h>
}

namespace {

MatroskaPicture ReadMatroska(const MediaFile& file, const AVStream* stream) {
    const AVFormatContext& context = *file.Context();
    std::size_t number = 0; // among the video streams
    for (unsigned i = 0; context.streams[i] != stream; ++i) {
        const AVStream& other = *context.streams[i];
        if (other.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !IsCover(other)) ++number;
    }
    const std::vector<MatroskaPicture> pictures = ReadMatroskaHeader(file.Path()).m_Pictures;
    return number < pictures.size() ? pictures[number] : MatroskaPicture();
}

// A file may hold any numbers. Empty if nothing would be left of the pictures.
Crop Sensible(Crop crop, const AVStream* stream) {
    for (int* const side : {&crop.m_Left, &crop.m_Top, &crop.m_Right, &crop.m_Bottom}) {
        *side = std::clamp(*side, 0, 1 << 16);
    }
    const AVCodecParameters& parameters = *stream->codecpar;
    const bool leavesSome =
        crop.m_Left + crop.m_Right < parameters.width && crop.m_Top + crop.m_Bottom < parameters.height;
    return leavesSome ? crop : Crop();
}

} // namespace

Crop ReadCrop(const MediaFile& file, const AVStream* stream) {
    Crop crop;
    if (av_match_name("mov", file.Context()->iformat->name) != 0) {
        crop = ReadIsoTracks(file.Path())[static_cast<std::uint32_t>(stream->id)].m_Crop;
    } else if (file.IsMatroska()) {
        crop = ReadMatroska(file, stream).m_Crop;
    }
    return Sensible(crop, stream);
}

AVRational PixelAspect(const MediaFile& file, AVStream* stream) {
    const AVRational told = av_guess_sample_aspect_ratio(file.Context(), stream, nullptr);
    if (!file.IsMatroska() || told.num <= 0) return told;
    const MatroskaPicture picture = ReadMatroska(file, stream);
    const Crop crop = Sensible(picture.m_Crop, stream);
    if (crop.IsEmpty() || !picture.m_HasDisplaySize) return told;
    const AVCodecParameters& parameters = *stream->codecpar;
    AVRational part{};
    av_reduce(&part.num, &part.den, std::int64_t{parameters.width} * (parameters.height - crop.m_Top - crop.m_Bottom),
              std::int64_t{parameters.height} * (parameters.width - crop.m_Left - crop.m_Right), 1 << 30);
    return av_mul_q(told, part);
}
