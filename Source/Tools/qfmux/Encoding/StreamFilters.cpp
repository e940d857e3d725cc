// SPDX-License-Identifier: MIT
#include "StreamFilters.h"

#include "Crop.h"
#include "LossText.h"
#include "Turn.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
}

namespace {

// From this height on, players take untagged pictures for BT.709, and smaller ones for BT.601.
constexpr int kLeastHighDefinition = 720;

void Append(std::string& chain, const std::string& filter) {
    if (!filter.empty()) chain += (chain.empty() ? "" : ",") + filter;
}

// libavutil's name of a colour property if it says anything.
std::string NameOr(const char* name, const std::string& usual) {
    const std::string known = name != nullptr ? name : "unknown";
    return known == "unknown" || known == "reserved" ? usual : known;
}

std::string ToneMapping(const AVCodecParameters& parameters, bool isRgb, bool isOdd) {
    const std::string transfer = av_color_transfer_name(parameters.color_trc);
    const std::string primaries = NameOr(av_color_primaries_name(parameters.color_primaries), "bt2020");
    const std::string matrix = isRgb ? "gbr" : NameOr(av_color_space_name(parameters.color_space), "bt2020nc");
    const std::string range = isRgb || parameters.color_range == AVCOL_RANGE_JPEG ? "full" : "limited";
    // zscale refuses odd sizes with subsampled chroma.
    return "setparams=color_trc=" + transfer + ":color_primaries=" + primaries + ":colorspace=" + matrix +
           ":range=" + range + (isOdd && !isRgb ? ",format=yuv444p12" : "") +
           ",zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=hable:desat=0,"
           "zscale=t=bt709:m=bt709:r=limited" +
           (isOdd ? ",format=yuv444p" : "");
}

// The matrix of RGB is chosen as players guess it.
std::string Range(const AVCodecParameters& parameters, const AVPixFmtDescriptor& format) {
    if ((format.flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0) {
        const bool isHigh = parameters.height >= kLeastHighDefinition;
        const std::string matrix = isHigh ? "bt709" : "smpte170m";
        return "scale=out_color_matrix=" + std::string(isHigh ? "bt709" : "bt601") +
               ":out_range=limited,format=yuv420p,setparams=colorspace=" + matrix;
    }
    return parameters.color_range == AVCOL_RANGE_JPEG ? "scale=out_range=limited" : "";
}

std::string Size(const std::string& size) {
    if (size.empty()) return "";
    const std::size_t by = size.find('x');
    const std::string width = size.substr(0, by);
    const std::string height = size.substr(by + 1);
    return "scale=" + (width.empty() ? "-2" : width) + ":" + (height.empty() ? "-2" : height);
}

// Whether a side of "WxH" is an odd number.
bool HasOddSide(const std::string& size) {
    const auto isOddDigit = [](char c) { return c >= '0' && c <= '9' && (c - '0') % 2 != 0; };
    const std::size_t by = size.find('x');
    return isOddDigit(size.back()) || (by > 0 && isOddDigit(size[by - 1]));
}

template <class Item, class Describe>
void AppendList(std::string& filter, const char* name, const Item* list, Item end, Describe describe) {
    if (list == nullptr) return;
    std::string words;
    for (; *list != end; ++list) words += (words.empty() ? "" : "|") + describe(*list);
    filter += (filter.empty() ? "aformat=" : ":") + std::string(name) + "=" + words;
}

std::string LayoutText(const AVChannelLayout& layout) {
    char text[64] = "";
    av_channel_layout_describe(&layout, text, sizeof text);
    return text;
}

} // namespace

StreamFilters PictureFilters(const MediaFile& file, AVStream* stream, const Target& target, const Options& options,
                             bool squarePixels) {
    const AVCodecParameters& parameters = *stream->codecpar;
    StreamFilters filters;
    std::string& chain = filters.m_Text;
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
    if (format == nullptr) format = av_pix_fmt_desc_get(AV_PIX_FMT_YUV420P);

    if (options.m_Deinterlace) Append(chain, "bwdif=mode=send_frame:deint=interlaced");
    const Crop crop = ReadCrop(file, stream);
    const AVRational pixel = PixelAspect(file, stream);
    if (!crop.IsEmpty()) {
        const auto text = [](int number) { return std::to_string(number); };
        Append(chain, "crop=iw-" + text(crop.m_Left + crop.m_Right) + ":ih-" + text(crop.m_Top + crop.m_Bottom) + ":" +
                          text(crop.m_Left) + ":" + text(crop.m_Top));
        if (pixel.num > 0) Append(chain, "setsar=" + text(pixel.num) + "/" + text(pixel.den));
    }
    Append(chain, TurnFilter(stream));
    if ((format->flags & AV_PIX_FMT_FLAG_ALPHA) != 0 || HasAlphaPictures(stream)) {
        Append(chain, "premultiply=inplace=1");
        filters.m_Notes.emplace_back("transparent parts of the pictures become black");
    }
    const bool isOdd = (parameters.width - crop.m_Left - crop.m_Right) % 2 != 0 ||
                       (parameters.height - crop.m_Top - crop.m_Bottom) % 2 != 0;
    const bool isPq = parameters.color_trc == AVCOL_TRC_SMPTE2084;
    if (isPq || parameters.color_trc == AVCOL_TRC_ARIB_STD_B67) {
        Append(chain, ToneMapping(parameters, (format->flags & AV_PIX_FMT_FLAG_RGB) != 0, isOdd));
        filters.m_Notes.push_back(std::string("HDR (") + (isPq ? "PQ" : "HLG") + ") is tone-mapped to BT.709");
    } else {
        Append(chain, Range(parameters, *format));
    }
    Append(chain, options.m_VideoFilter);
    const bool isSquare = pixel.num <= 0 || pixel.num == pixel.den;
    if (squarePixels && (!isSquare || options.m_Aspect)) {
        if (options.m_Aspect) {
            Append(chain,
                   "setdar=" + std::to_string(options.m_Aspect->m_X) + "/" + std::to_string(options.m_Aspect->m_Y));
        }
        Append(chain, "scale=trunc(iw*sar/2+0.5)*2:ih,setsar=1");
        filters.m_Notes.emplace_back("the pictures are scaled to square pixels");
    }
    Append(chain, Size(options.m_Size));
    if (target.m_NeedsEvenSides && (isOdd || !options.m_VideoFilter.empty() || !options.m_Size.empty())) {
        Append(chain, "crop=trunc(iw/2)*2:trunc(ih/2)*2");
        if (options.m_Size.empty() ? isOdd : HasOddSide(options.m_Size)) {
            filters.m_Notes.emplace_back("one row or column of pixels is cut off: the codec needs even sizes");
        }
    }
    Append(chain, std::string("format=") + target.m_Formats);
    return filters;
}

StreamFilters SoundFilters(const Target& target, const Options& options) {
    StreamFilters filters;
    std::string wanted;
    if (const AVCodec* const encoder = avcodec_find_encoder_by_name(target.m_Encoder)) {
        AppendList(wanted, "sample_fmts", encoder->sample_fmts, AV_SAMPLE_FMT_NONE,
                   [](AVSampleFormat one) { return std::string(av_get_sample_fmt_name(one)); });
        AppendList(wanted, "sample_rates", encoder->supported_samplerates, 0,
                   [](int one) { return std::to_string(one); });
        std::string layouts = target.m_Formats != nullptr ? target.m_Formats : "";
        if (layouts.empty() && encoder->ch_layouts != nullptr) {
            for (const AVChannelLayout* one = encoder->ch_layouts; one->nb_channels != 0; ++one) {
                layouts += (layouts.empty() ? "" : "|") + LayoutText(*one);
            }
        }
        if (!layouts.empty()) wanted += (wanted.empty() ? "aformat=" : ":") + ("channel_layouts=" + layouts);
    }
    Append(filters.m_Text, options.m_AudioFilter);
    Append(filters.m_Text, wanted.empty() ? "anull" : wanted);
    return filters;
}
