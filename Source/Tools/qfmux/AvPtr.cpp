// SPDX-License-Identifier: MIT
#include "AvPtr.h"

#include <new>

AvPtr<AVPacket> NewAvPacket() {
    AvPtr<AVPacket> packet(av_packet_alloc());
    if (packet == nullptr) throw std::bad_alloc();
    return packet;
}

AvPtr<AVFrame> NewAvFrame() {
    AvPtr<AVFrame> frame(av_frame_alloc());
    if (frame == nullptr) throw std::bad_alloc();
    return frame;
}

int CheckMemory(int result) {
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    return result;
}

std::string AvReason(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(error, text, sizeof text);
    return text;
}
