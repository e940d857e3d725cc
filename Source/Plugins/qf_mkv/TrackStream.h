// SPDX-License-Identifier: MIT
// One track of an output file: the header values that describe it, and the blocks taken in for it and not yet written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "HostRecords.h"
#include "MatroskaFile.h"

// Host times are counts of 100 ns, times in the file counts of 1 ms.
constexpr std::int64_t kHostTicksPerMs = 10000;

// (t + 5000) / 10000, truncated toward zero: the nearest millisecond from -5000 on, below that the next one up at
// times.
std::int64_t ToMilliseconds(std::int64_t hostTime);

// Track numbers and types coincide: the video track is always track 1, the audio track always track 2.
constexpr std::uint64_t kVideoTrack = 1;
constexpr std::uint64_t kAudioTrack = 2;

// Matroska's identifier for a video codec, null when it has none.
const char* VideoCodecID(FourCC fourCC);

// What the two kinds of track share. Block is what one frame becomes: BlockGroup or SimpleBlock.
template <class Block>
class TrackStream {
public:
    TrackStream() = default;
    TrackStream(const TrackStream&) = delete;
    TrackStream& operator=(const TrackStream&) = delete;
    virtual ~TrackStream() = default;

    // Takes one compressed frame in and queues it as one block. Copies `size` octets: `data` may be freed on return.
    // When memory runs out nothing is queued and no state changes.
    // start, end: 100 ns units, absolute. keyFrame: non-zero when the frame needs no other.
    // Returns size; 0 when there is nothing at data or size is below 1 (nothing is queued, no state changes).
    // The first frames may also settle an empty CodecPrivate, as long as the track's header is not in the file.
    int WritePacket(const unsigned char* data, int size, std::int64_t start, std::int64_t end, unsigned int keyFrame);

    // The block's header, whichever kind it is.
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::BlockGroup& group) { return group.m_Block; }
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::SimpleBlock& block) { return block; }

    // Takes this track's blocks back from those of a cluster that has been written: the frames to come are put into
    // them, so that none asks for memory but a large one. Cannot fail.
    void TakeBack(std::list<Block>& blocks);

    // Takes back the frames queued since. For frames that belong together, when memory does not last for all of them.
    struct Mark {
        std::size_t m_QueuedBlocks;
        std::int64_t m_LastStart;
        std::int64_t m_LastEnd;
    };
    Mark Here() const { return {m_Queue.size(), m_LastStart, m_LastEnd}; }
    void ReturnTo(const Mark& mark);

    std::int64_t m_WrittenTime = 0; // start of the last block that left the queue, 100 ns units from the file's start
    std::list<Block> m_Queue;       // oldest first
    std::unique_ptr<MatroskaWriter::TrackEntry> m_pTrackEntry; // the header values; there once Init has been called
    std::vector<MatroskaWriter::CBinary> m_Spare;              // not filled by this plug-in's muxers
    std::int64_t m_LastStart = -1; // start and end of the last frame taken in, 100 ns units; -1 for none yet
    std::int64_t m_LastEnd = -1;
    bool m_HeaderInFile = false; // a copy of the header values has been written

protected:
    // Fill the header values anew. mux: null for no display aspect. codecID: null for a Video-for-Windows track.
    void InitVideo(const VideoParam& video, const MuxParam* mux, const char* codecID);
    void InitAudio(const AudioParam& audio);

private:
    // Sets what is the block's own besides its frame, track and times. The block is as new.
    virtual void Describe(Block& block, std::int64_t start, std::int64_t end, unsigned int keyFrame) const = 0;

    void InitCommon(std::uint64_t track);
    void SetCodec(const char* codecID, Bytes codecPrivate);
    Bytes DeriveCodecPrivate(ByteView frame) const;
    // Makes a written block, whoever built it, as good as new, but for the memory of a small frame. It has a frame.
    static void Renew(Block& block);
    void AddBlankBlock();

    std::list<Block> m_BlankBlocks; // for the frames to come: each as new, with one frame
};
