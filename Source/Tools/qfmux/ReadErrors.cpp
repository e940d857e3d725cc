// SPDX-License-Identifier: MIT
#include "ReadErrors.h"

#include <cstdarg>
#include <cstring>

extern "C" {
#include <libavutil/log.h>
}

void ReadErrors::Watch(AVFormatContext& context) {
    context.opaque = this;
    av_log_set_callback(Take);
}

void ReadErrors::Take(void* object, int level, const char* format, va_list) {
    if (object == nullptr || level > AV_LOG_WARNING) return;
    const AVClass* const kind = *static_cast<AVClass**>(object);
    if (kind == nullptr || std::strcmp(kind->class_name, "AVFormatContext") != 0) return;
    auto* const errors = static_cast<ReadErrors*>(static_cast<AVFormatContext*>(object)->opaque);
    if (errors == nullptr) return;
    if (std::strncmp(format, "Packet corrupt", 14) == 0) {
        ++errors->m_Packets;
    } else if (level <= AV_LOG_ERROR) {
        ++errors->m_Others;
    }
}
