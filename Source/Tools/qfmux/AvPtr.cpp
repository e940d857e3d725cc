// SPDX-License-Identifier: MIT
#include "AvPtr.h"

std::string AvReason(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(error, text, sizeof text);
    return text;
}
