// SPDX-License-Identifier: MIT
// A track of a Matroska file.
#pragma once

#include "TrackStream.h"

// Queues BlockGroups, in which the absence of a reference marks a key frame.
class MatroskaStream final : public TrackStream<MatroskaWriter::BlockGroup> {
public:
    using Block = MatroskaWriter::BlockGroup;

    // *result: the result of Init. mux may be null.
    MatroskaStream(const VideoParam* video, const MuxParam* mux, long* result) { *result = Init(video, mux); }
    MatroskaStream(const AudioParam* audio, long* result) { *result = Init(audio); }

    // Fill the track's header values anew and leave the queue as it is. mux may be null. Return 0: all values are
    // accepted.
    long Init(const VideoParam* video, const MuxParam* mux);
    long Init(const AudioParam* audio);

    // The cluster's list of this kind of block.
    static std::list<Block>& BlocksOf(MatroskaWriter::Cluster& cluster) { return cluster.m_BlockGroups; }
    // A reference to 0, a frame of the same start, counts as none.
    static bool MayBeCued(const Block& block) { return block.m_ReferenceBlock.m_Value == 0; }

private:
    void Describe(Block& block, std::int64_t start, std::int64_t end, unsigned int keyFrame) const override;
};
