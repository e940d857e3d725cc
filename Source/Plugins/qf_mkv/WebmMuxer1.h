// WebM files: the format WEBM.
#pragma once

#include "ContainerMuxer.h"

// Queues SimpleBlocks, which carry their key flag with them.
class MatroskaStreamWebm final
    : public QueuedTrackStream<MatroskaWriter::SimpleBlock, &MatroskaWriter::Cluster::m_SimpleBlocks> {
public:
    explicit MatroskaStreamWebm(const VideoParam* video) { Init(video); }
    explicit MatroskaStreamWebm(const AudioParam* audio) { Init(audio); }

    // Fill the track's header values anew and leave the queue as it is.
    void Init(const VideoParam* video);
    void Init(const AudioParam* audio);

    // Every block is a candidate, a key frame or not, deliberately.
    bool HeadMayBeCued() const override { return true; }

private:
    void QueueBlock(ByteView frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) override;
};

class WebmMuxer1 final : public ContainerMuxer {
public:
    static const MuxerProfile kProfile;

    WebmMuxer1() : ContainerMuxer(kProfile) {}

    // Opens the file and builds the tracks that the job asks for; nothing is written yet.
    // Returns 1, or 0 when the file does not open.
    std::uint32_t CreateMediaFile(const wchar_t* path, const EncodeParam* param);

    int WriteVideoPacket(const MEDIA_FRAME* frame) override;
};
