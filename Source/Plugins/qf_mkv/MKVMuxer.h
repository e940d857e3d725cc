// SPDX-License-Identifier: MIT
// Matroska files: the formats "MKV ", HMKV and "MKA ".
#pragma once

#include "ContainerMuxer.h"
#include "MatroskaStream.h"

class MKVMuxer final : public ContainerMuxer<MatroskaStream> {
public:
    MKVMuxer();

    // Finishes any file still open, opens the file and builds the tracks that the job asks for; nothing is written yet.
    // muxParam may be null. Returns 1, or 0 when the file does not open.
    std::uint32_t CreateMediaFile(const wchar_t* path, const EncodeParam* param, const MuxParam* muxParam);

    // Takes a frame in. Returns the octets taken, 0 when there is no such track, no frame, or nothing was taken.
    // Once each kind of media in the job has delivered a frame, a queue that is long enough is drained.
    int WriteVideoPacket(const MEDIA_FRAME* frame);
    // Queues a frame in start-code form as one block of its slices, parameter sets and access unit delimiters.
    // Returns the octets taken.
    int WriteLossless264Packet(const MEDIA_FRAME* frame);

    // State of the muxer, not of a file, deliberately.
    std::uint32_t m_FirstVideoFrame = 1; // no frame has been examined
    std::uint32_t m_LosslessH264 = 0;    // the first frame came in start-code form, after an H264 job
    std::uint32_t m_IsH264 = 0;          // there has been such a job

    // The frame being rewritten; the buffer grows to the largest one.
    std::int32_t m_NalBufferUsed = 0;
    std::int32_t m_NalBufferSize = 0;
    std::unique_ptr<unsigned char[]> m_pNalBuffer;
};
