// Matroska files: the formats "MKV ", HMKV and "MKA ".
#pragma once

#include "ContainerMuxer.h"

// Queues BlockGroups, which tell a key frame by the absence of a reference.
class MatroskaStream final
    : public QueuedTrackStream<MatroskaWriter::BlockGroup, &MatroskaWriter::Cluster::m_BlockGroups> {
public:
    MatroskaStream(const VideoParam* video, const MuxParam* mux) { Init(video, mux); }
    explicit MatroskaStream(const AudioParam* audio) { Init(audio); }

    // Fill the track's header values anew and leave the queue as it is. mux may be null.
    void Init(const VideoParam* video, const MuxParam* mux);
    void Init(const AudioParam* audio);

    // A reference to 0, a frame of the same start, counts as none.
    bool HeadMayBeCued() const override { return m_Queue.front().m_ReferenceBlock.m_Value == 0; }

private:
    void QueueBlock(ByteView frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) override;
};

class MKVMuxer final : public ContainerMuxer {
public:
    static const MuxerProfile kProfile;

    MKVMuxer() : ContainerMuxer(kProfile) {}

    // Opens the file and builds the tracks that the job asks for; nothing is written yet. muxParam may be null.
    // Returns 1, or 0 when the file does not open.
    std::uint32_t CreateMediaFile(const wchar_t* path, const EncodeParam* param, const MuxParam* muxParam);

    int WriteVideoPacket(const MEDIA_FRAME* frame) override;

private:
    int WriteLossless264Packet(const MEDIA_FRAME& frame);

    bool m_FirstVideoFrame = true; // none has been looked at
    bool m_LosslessH264 = false;   // an H264 job whose first frame came in start-code form

    // The frame being rewritten; it grows to the largest one.
    std::unique_ptr<unsigned char[]> m_pNalBuffer;
    std::int32_t m_NalBufferSize = 0;
    std::int32_t m_NalBufferUsed = 0;
};
