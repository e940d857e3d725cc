// One track of an output file: the header values that describe it, and the blocks taken in for it and not yet written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>

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

// What the two kinds of track share. A derived class chooses the kind of block.
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

    // Makes data the CodecPrivate. Once the track's header is in the file its size is fixed: data then goes over its
    // head and the rest stays. Returns false, and changes nothing, when data does not fit.
    bool SetCodecPrivate(ByteView data);

    // The queue, oldest first. Head is null when it is empty; the next three require a block in it.
    virtual std::size_t QueuedBlocks() const = 0;
    virtual MatroskaWriter::BlockBase* Head() = 0;
    virtual bool HeadMayBeCued() const = 0;
    virtual void MoveHeadTo(MatroskaWriter::Cluster& cluster) = 0; // cannot fail
    virtual void DropHead() = 0;

    // Takes this track's blocks back from a cluster that has been written: the frames to come are put into them, so
    // that none asks for memory but a large one. Cannot fail.
    virtual void TakeBack(MatroskaWriter::Cluster& cluster) = 0;

    // Takes back the frames queued since. For frames that belong together, when memory does not last for all of them.
    struct Mark {
        std::size_t m_QueuedBlocks;
        std::int64_t m_LastStart;
        std::int64_t m_LastEnd;
    };
    Mark Here() const { return {QueuedBlocks(), m_LastStart, m_LastEnd}; }
    void ReturnTo(const Mark& mark);

    MatroskaWriter::TrackEntry m_TrackEntry{0xAE};
    bool m_HeaderInFile = false;    // a copy of m_TrackEntry has been written
    std::int64_t m_WrittenTime = 0; // start of the last block that left the queue, 100 ns units from the file's start
    std::int64_t m_LastStart = -1;  // start and end of the last frame taken in, 100 ns units; -1 for none yet
    std::int64_t m_LastEnd = -1;

protected:
    // Fill m_TrackEntry anew. mux: null for no display aspect. codecID: null for a Video-for-Windows track.
    void InitVideo(const VideoParam& video, const MuxParam* mux, const char* codecID);
    void InitAudio(const AudioParam& audio);
    // Matroska's identifier for a video codec, null when it has none.
    static const char* VideoCodecID(FourCC fourCC);

    virtual void DropTail() = 0;
    // Appends a block of that frame to the queue, or leaves the queue as it was when memory runs out.
    virtual void QueueBlock(ByteView frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) = 0;
    void FillBlock(MatroskaWriter::BlockBase& block, ByteView frame, std::int64_t start, std::int64_t end) const;
    // Readies a block for another frame. Small payloads keep their memory, for frames of about that size.
    static void EmptyBlock(MatroskaWriter::BlockBase& block);

private:
    void InitCommon(std::uint64_t track);
    void SetCodec(const char* codecID, Bytes codecPrivate);
    Bytes DeriveCodecPrivate(ByteView frame) const;
};

// The queue of a track whose clusters take their blocks in the list kBlocks.
template <class Block, std::list<Block> MatroskaWriter::Cluster::*kBlocks>
class QueuedTrackStream : public TrackStream {
public:
    std::size_t QueuedBlocks() const override { return m_Queue.size(); }
    MatroskaWriter::BlockBase* Head() override { return m_Queue.empty() ? nullptr : &BlockOf(m_Queue.front()); }
    void MoveHeadTo(MatroskaWriter::Cluster& cluster) override {
        std::list<Block>& blocks = cluster.*kBlocks;
        blocks.splice(blocks.end(), m_Queue, m_Queue.begin());
    }
    void DropHead() override { m_Queue.pop_front(); }
    void DropTail() override { m_Queue.pop_back(); }
    void TakeBack(MatroskaWriter::Cluster& cluster) override {
        std::list<Block>& blocks = cluster.*kBlocks;
        // As many as one cluster had, no more: what is left of the one before is given up.
        m_Spare.clear();
        for (auto block = blocks.begin(); block != blocks.end();) {
            const auto taken = block++;
            if (BlockOf(*taken).m_TrackNumber.m_Length != m_TrackEntry.m_TrackNumber.m_Value) continue;
            EmptyBlock(BlockOf(*taken));
            m_Spare.splice(m_Spare.end(), blocks, taken);
        }
    }

    std::list<Block> m_Queue;

protected:
    // A block to be filled: one that was written has its values still. QueueSpare appends it to the queue.
    Block& Spare(unsigned long id) { return m_Spare.empty() ? m_Spare.emplace_front(id) : m_Spare.front(); }
    void QueueSpare() { m_Queue.splice(m_Queue.end(), m_Spare, m_Spare.begin()); }

private:
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::BlockGroup& group) { return group.m_Block; }
    static MatroskaWriter::BlockBase& BlockOf(MatroskaWriter::SimpleBlock& block) { return block; }

    std::list<Block> m_Spare;
};
