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

// (t + 5000) / 10000, truncated toward zero: the nearest millisecond for t from -5000 on; below that, sometimes the
// next higher.
std::int64_t ToMilliseconds(std::int64_t hostTime);

// Track numbers and types coincide: the video track is always track 1, the audio track always track 2.
constexpr std::uint64_t kVideoTrack = 1;
constexpr std::uint64_t kAudioTrack = 2;

// Matroska's identifier for a video codec, null when it has none.
const char* VideoCodecID(FourCC fourCC);

// The base of both kinds of track. Each frame becomes a Block: BlockGroup or SimpleBlock.
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

    // The block's header, for either kind of block.
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::BlockGroup& group) { return group.m_Block; }
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::SimpleBlock& block) { return block; }

    // Takes this track's blocks back from a cluster that has been written. Later frames use them again, so that only
    // large frames allocate memory. Cannot fail.
    void TakeBack(std::list<Block>& blocks);

    // Takes back the frames queued since, when memory is too short for all frames that belong together.
    struct Mark {
        std::size_t m_QueuedBlocks;
        std::int64_t m_LastStart;
        std::int64_t m_LastEnd;
    };
    Mark Here() const { return {m_Queue.size(), m_LastStart, m_LastEnd}; }
    void ReturnTo(const Mark& mark);

    std::int64_t m_WrittenTime = 0; // start of the last block that left the queue, 100 ns units from the file's start
    std::list<Block> m_Queue;       // oldest first
    std::unique_ptr<MatroskaWriter::TrackEntry> m_pTrackEntry; // the header values; set by Init
    std::vector<MatroskaWriter::CBinary> m_Spare;              // not filled by this plug-in's muxers
    std::int64_t m_LastStart = -1; // start and end of the last frame taken in, 100 ns units; -1 for none yet
    std::int64_t m_LastEnd = -1;
    bool m_HeaderInFile = false; // a copy of the header values has been written

protected:
    // Fill the header values anew. mux: null for no display aspect. codecID: null for a Video-for-Windows track.
    void InitVideo(const VideoParam& video, const MuxParam* mux, const char* codecID);
    void InitAudio(const AudioParam& audio);

private:
    // Sets the block's values other than its frame, track and times. The block is as new.
    virtual void Describe(Block& block, std::int64_t start, std::int64_t end, unsigned int keyFrame) const = 0;

    void InitCommon(std::uint64_t track);
    void SetCodec(const char* codecID, Bytes codecPrivate);
    Bytes DeriveCodecPrivate(ByteView frame) const;
    // Resets a written block to new, except that it keeps the memory of a small frame. Requires a frame.
    static void Renew(Block& block);
    void AddBlankBlock();

    std::list<Block> m_BlankBlocks; // for later frames: each as new, with one frame
};
