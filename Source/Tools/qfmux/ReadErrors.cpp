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

void ReadErrors::Take(AVCodecContext& context, const char* format) {
    auto* const errors = static_cast<ReadErrors*>(context.opaque);
    if (errors != nullptr && std::strncmp(format, "concealing", 10) == 0) ++errors->m_Concealed;
}
