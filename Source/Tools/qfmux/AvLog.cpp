// SPDX-License-Identifier: MIT
#include "AvLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "AvPtr.h"
#include "ReadErrors.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

thread_local std::string t_LastError;

[[gnu::format(printf, 3, 0)]] void Take(void* object, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_INFO) return;
    const AVClass* const kind = object != nullptr ? *static_cast<AVClass**>(object) : nullptr;
    const std::string name = kind != nullptr ? kind->class_name : "";
    if (object != nullptr && name == "AVCodecContext")
        ReadErrors::Take(*static_cast<AVCodecContext*>(object), level, format);
    if (level > AV_LOG_WARNING) return;
    if (object != nullptr && name == "AVFormatContext") {
        ReadErrors::Take(*static_cast<AVFormatContext*>(object), level, format);
    } else if (level <= AV_LOG_ERROR) {
        std::array<char, 200> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        t_LastError = text.data();
        t_LastError.erase(t_LastError.find_last_not_of(" \r\n.") + 1);
    }
}

} // namespace

void KeepAvErrors() { av_log_set_callback(Take); }

std::string TakeAvError(int result) {
    std::string text = std::exchange(t_LastError, {});
    return text.empty() ? AvReason(result) : text;
}
