// SPDX-License-Identifier: MIT
#include "PictureLosses.h"

#include <cstring>
#include <string>

#include "Crop.h"
#include "FirstPicture.h"
#include "Turn.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

namespace {

void Warn(Losses& losses, const char* kind, const std::string& text) {
    losses.push_back({kind, text, LossWeight::Warning});
}

// The stream's side data; null when it has none of that type or size.
template <class Data>
const Data* SideData(const AVStream* stream, AVPacketSideDataType type, std::size_t least = sizeof(Data)) {
    std::size_t size = 0;
    const std::uint8_t* const data = av_stream_get_side_data(stream, type, &size);
    return data != nullptr && size >= least ? reinterpret_cast<const Data*>(data) : nullptr;
}

bool HasSideData(const AVStream* stream, AVPacketSideDataType type) {
    return av_stream_get_side_data(stream, type, nullptr) != nullptr;
}

bool HasStereo(const AVStream* stream) {
    const auto* const stereo = SideData<AVStereo3D>(stream, AV_PKT_DATA_STEREO3D);
    return stereo != nullptr && stereo->type != AV_STEREO3D_2D;
}

// A file may hold codes that libavutil has no name for.
std::string NameOr(const char* name, int code) { return name != nullptr ? name : std::to_string(code); }

// Colour data that only the container has. picture: decoded without the container's data; null if that failed.
std::vector<std::string> LostColours(const AVCodecParameters& declared, const AVFrame* picture) {
    std::vector<std::string> lost;
    if (declared.color_primaries != AVCOL_PRI_UNSPECIFIED &&
        (picture == nullptr || picture->color_primaries != declared.color_primaries)) {
        lost.push_back("primaries " +
                       NameOr(av_color_primaries_name(declared.color_primaries), declared.color_primaries));
    }
    if (declared.color_trc != AVCOL_TRC_UNSPECIFIED &&
        (picture == nullptr || picture->color_trc != declared.color_trc)) {
        lost.push_back("transfer " + NameOr(av_color_transfer_name(declared.color_trc), declared.color_trc));
    }
    if (declared.color_space != AVCOL_SPC_UNSPECIFIED &&
        (picture == nullptr || picture->colorspace != declared.color_space)) {
        lost.push_back("matrix " + NameOr(av_color_space_name(declared.color_space), declared.color_space));
    }
    // Players assume the limited range if the frames do not give one.
    const AVColorRange told = picture == nullptr ? AVCOL_RANGE_UNSPECIFIED : picture->color_range;
    const bool isLimited = declared.color_range == AVCOL_RANGE_MPEG && told == AVCOL_RANGE_UNSPECIFIED;
    if (declared.color_range != AVCOL_RANGE_UNSPECIFIED && declared.color_range != told && !isLimited) {
        lost.push_back("range " + NameOr(av_color_range_name(declared.color_range), declared.color_range));
    }
    return lost;
}

bool TellsColours(const AVCodecParameters& declared) {
    return declared.color_primaries != AVCOL_PRI_UNSPECIFIED || declared.color_trc != AVCOL_TRC_UNSPECIFIED ||
           declared.color_space != AVCOL_SPC_UNSPECIFIED || declared.color_range != AVCOL_RANGE_UNSPECIFIED;
}

bool Has(const AVFrame* picture, AVFrameSideDataType type) {
    return picture != nullptr && av_frame_get_side_data(picture, type) != nullptr;
}

void TellOfColours(const PlannedTrack& video, Losses& losses) {
    const AVStream* const stream = video.m_pStream;
    const AVCodecParameters* const declared = video.m_pFile->Declared(stream);
    const auto* const stereo = SideData<AVStereo3D>(stream, AV_PKT_DATA_STEREO3D);
    const bool isStereo = HasStereo(stream);
    const bool hasMastering = HasSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA);
    const bool hasLight = HasSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL);
    const bool hasColours = declared != nullptr && TellsColours(*declared);
    if (!isStereo && !hasMastering && !hasLight && !hasColours) return;
    const AvPtr<AVFrame> picture = DecodeFirstPicture(*video.m_pFile, stream);
    if (hasColours) {
        const std::vector<std::string> lost = LostColours(*declared, picture.get());
        if (!lost.empty()) {
            Warn(losses, "colour",
                 "colour data that is not in the frames is lost: " + Joined(lost) + "; players will guess it");
        }
    }
    std::vector<std::string> lost;
    if (hasMastering && !Has(picture.get(), AV_FRAME_DATA_MASTERING_DISPLAY_METADATA)) {
        lost.emplace_back("mastering display");
    }
    if (hasLight && !Has(picture.get(), AV_FRAME_DATA_CONTENT_LIGHT_LEVEL)) lost.emplace_back("content light level");
    if (!lost.empty()) {
        Warn(losses, "HDR", "HDR data that is not in the frames is lost: " + Joined(lost));
    }
    if (isStereo && !Has(picture.get(), AV_FRAME_DATA_STEREO3D)) {
        Warn(losses, "stereo 3D",
             std::string("stereo 3D (") + av_stereo3d_type_name(stereo->type) +
                 ") is lost: players will show the two views as one picture");
    }
}

// Encoders of H.264 and MPEG-2 write into their frames what the source's frames carry, and colour data.
void TellOfEncodedFrames(const PlannedTrack& video, Losses& losses) {
    const AVStream* const stream = video.m_pStream;
    const AVCodecParameters& parameters = *stream->codecpar;
    const AVCodecID codec = video.m_Encoding->m_pTarget->m_Codec;
    const bool hasPlace = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_MPEG2VIDEO;
    const bool isStereo = HasStereo(stream);
    const AvPtr<AVFrame> picture(!hasPlace || isStereo ? DecodeFirstPicture(*video.m_pFile, stream) : nullptr);
    const bool framesTellStereo = Has(picture.get(), AV_FRAME_DATA_STEREO3D);
    if (hasPlace ? isStereo && !framesTellStereo : isStereo || framesTellStereo) {
        Warn(losses, "stereo 3D", "stereo 3D is lost: players will show the two views as one picture");
    }
    if (!hasPlace && Has(picture.get(), AV_FRAME_DATA_A53_CC)) {
        Warn(losses, "captions", "the closed captions are lost: frames of the new codec have no place for them");
    }
    const bool isHdr = parameters.color_trc == AVCOL_TRC_SMPTE2084 || parameters.color_trc == AVCOL_TRC_ARIB_STD_B67;
    if (isHdr) return;
    if (HasSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA) ||
        HasSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL)) {
        losses.push_back({"HDR", "HDR data of pictures that are not HDR is left out", LossWeight::Note});
    }
    if (hasPlace || !TellsColours(parameters)) return;
    AVCodecParameters others = parameters;
    others.color_range = AVCOL_RANGE_UNSPECIFIED; // converted to the limited range
    if (others.color_space == AVCOL_SPC_RGB) others.color_space = AVCOL_SPC_UNSPECIFIED; // to the one players guess
    const std::vector<std::string> lost = LostColours(others, nullptr);
    if (!lost.empty()) {
        losses.push_back({"colour", std::string("colour data is lost: ") + Joined(lost) + "; players will guess it",
                          LossWeight::Note});
    }
}

// Frames of these codecs carry the field order.
bool FramesTellFields(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_VC1:
        return true;
    default:
        return false;
    }
}

} // namespace

void TellOfPictures(const PlannedTrack& video, const Plan& plan, Losses& losses) {
    const AVStream* const stream = video.m_pStream;
    const bool isEncoded = video.m_Encoding.has_value();
    if (plan.m_Aspect && !plan.WritesAspect()) {
        Warn(losses, "aspect",
             "the display aspect " + std::to_string(plan.m_Aspect->m_X) + ":" + std::to_string(plan.m_Aspect->m_Y) +
                 " is lost: players will show square pixels");
    }
    if (const std::string turn = TurnText(stream); !turn.empty() && !isEncoded) {
        Warn(losses, "rotation", "the " + turn + " is lost: players will show the pictures as they were recorded");
    }
    if (!isEncoded && !ReadCrop(*video.m_pFile, stream).IsEmpty()) {
        Warn(losses, "cropping", "the cropping is lost: players will show the edges of the pictures too");
    }
    if (HasAlphaPictures(stream) && !isEncoded) {
        Warn(losses, "transparency", "transparency is lost: players will show the pictures opaque");
    }
    if (isEncoded) {
        TellOfEncodedFrames(video, losses);
    } else {
        TellOfColours(video, losses);
    }
    if (HasSideData(stream, AV_PKT_DATA_DOVI_CONF)) {
        Warn(losses, "Dolby Vision",
             std::string("the Dolby Vision configuration is lost: ") +
                 (isEncoded ? "the base layer is encoded" : "players will show the base layer"));
    }
    if (HasSideData(stream, AV_PKT_DATA_ICC_PROFILE)) {
        Warn(losses, "colour profile", "the ICC colour profile is lost");
    }
    if (const auto* const spherical = SideData<AVSphericalMapping>(stream, AV_PKT_DATA_SPHERICAL)) {
        Warn(losses, "projection",
             std::string("the spherical projection (") + av_spherical_projection_name(spherical->projection) +
                 ") is lost: players will show the pictures flat");
    }
    bool isInterlaced = stream->codecpar->field_order > AV_FIELD_PROGRESSIVE;
    if (isEncoded && stream->codecpar->field_order == AV_FIELD_UNKNOWN) {
        const AvPtr<AVFrame> picture = DecodeFirstPicture(*video.m_pFile, stream);
        isInterlaced = picture != nullptr && picture->interlaced_frame != 0;
    }
    if (isEncoded && isInterlaced && !video.m_Encoding->m_Deinterlaces) {
        Warn(losses, "field order",
             "the pictures are interlaced and encoded as they are: --deinterlace deinterlaces them");
    } else if (!isEncoded && isInterlaced && !FramesTellFields(stream->codecpar->codec_id)) {
        Warn(losses, "field order", "the field order is lost: players will show the pictures without deinterlacing");
    }
}
