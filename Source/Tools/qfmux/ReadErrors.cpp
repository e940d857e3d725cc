// SPDX-License-Identifier: MIT
#include "ReadErrors.h"

#include <cstring>

extern "C" {
#include <libavutil/log.h>
}

void ReadErrors::Watch(AVFormatContext& context) { context.opaque = this; }

void ReadErrors::Watch(AVCodecContext& context) { context.opaque = this; }

void ReadErrors::Take(AVFormatContext& context, int level, const char* format) {
    auto* const errors = static_cast<ReadErrors*>(context.opaque);
    if (errors == nullptr) return;
    if (std::strncmp(format, "Packet corrupt", 14) == 0) {
        ++errors->m_Packets;
    } else if (level <= AV_LOG_ERROR) {
        ++errors->m_Others;
    }
}

void ReadErrors::Take(AVCodecContext& context, int level, const char* format) {
    auto* const errors = static_cast<ReadErrors*>(context.opaque);
    if (errors == nullptr) return;
    const auto begins = [format](const char* text) { return std::strncmp(format, text, std::strlen(text)) == 0; };
    if (begins("concealing")) {
        ++errors->m_Concealed;
        return;
    }
    // Decoders that do not conceal show what they have. That of H.264 also finds fault with what it then shows well.
    const bool isPicture = context.codec_type == AVMEDIA_TYPE_VIDEO && context.codec_id != AV_CODEC_ID_H264;
    const bool isMessage = begins("SEI ") || begins("unable to decode APP"); // beside the picture
    if (level <= AV_LOG_ERROR && isPicture && !isMessage) ++errors->m_Others;
}
