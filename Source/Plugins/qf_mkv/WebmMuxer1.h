// SPDX-License-Identifier: MIT
// WebM files: the format WEBM.
#pragma once

#include "ContainerMuxer.h"
#include "MatroskaStreamWebm.h"

class WebmMuxer1 final : public ContainerMuxer<MatroskaStreamWebm> {
public:
    WebmMuxer1();

    // Finishes any file still open, opens the file and builds the tracks that the job asks for; nothing is written yet.
    // Returns 1, or 0 when the file does not open.
    std::uint32_t CreateMediaFile(const wchar_t* path, const EncodeParam* param);

    // Takes a frame in. Returns the octets taken, 0 when there is no such track, no frame, or nothing was taken.
    // Once each kind of media in the job has delivered a frame, the queues are drained.
    int WriteVideoPacket(const MEDIA_FRAME* frame);
};
