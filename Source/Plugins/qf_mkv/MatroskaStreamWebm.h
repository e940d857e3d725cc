// SPDX-License-Identifier: MIT
// A track of a WebM file.
#pragma once

#include "TrackStream.h"

// Queues SimpleBlocks, which have a key flag.
class MatroskaStreamWebm final : public TrackStream<MatroskaWriter::SimpleBlock> {
public:
    using Block = MatroskaWriter::SimpleBlock;

    // *result: the result of Init.
    MatroskaStreamWebm(const VideoParam* video, long* result) { *result = Init(video); }
    MatroskaStreamWebm(const AudioParam* audio, long* result) { *result = Init(audio); }

    // Fill the track's header values anew and leave the queue as it is. Return 0: all values are accepted.
    long Init(const VideoParam* video);
    long Init(const AudioParam* audio);

    // The cluster's list of this kind of block.
    static std::list<Block>& BlocksOf(MatroskaWriter::Cluster& cluster) { return cluster.m_SimpleBlocks; }
    // Every block is a candidate, a key frame or not, deliberately.
    static bool MayBeCued(const Block&) { return true; }

private:
    void Describe(Block& block, std::int64_t start, std::int64_t end, unsigned int keyFrame) const override;
};
