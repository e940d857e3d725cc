// What the two muxers share: one output file from creation to close.
//
// A file is laid out as EBML header, Segment header, 4,099 reserved octets, Info, Tracks, clusters, Cues and an index
// of the clusters. Header, Info and Tracks are written when the first frames are drained; at close the Segment's size,
// the Info's Duration and, over the reserved octets, the main seek head are written back into their places.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "FileEx.h"
#include "HostRecords.h"
#include "MatroskaFile.h"
#include "TrackStream.h"

// What is one muxer's own and not the other's, where a value tells it.
struct MuxerProfile {
    std::size_t m_QueuedBlocksToStart; // blocks of a frame's track that make its arrival drain the queues
    void (*m_SetVersions)(MatroskaWriter::EBML& header); // fills the version members
};

// All operations are called by one thread at a time. Results of file operations are ignored, by design: a full disk
// shows as a truncated file. When memory runs out std::bad_alloc leaves the operation, nothing has been taken in, and
// the muxer stays usable. A frame that was taken in stays queued when there is no memory to write it: the next one
// tries again.
class ContainerMuxer : public IStream {
public:
    // The stream that elements write to. Read and Write fail only when no file is open.
    std::int32_t Read(void* buffer, unsigned long count, unsigned long* read) override;
    std::int32_t Write(const void* buffer, unsigned long count, unsigned long* written) override;
    std::int32_t Seek(std::int64_t offset, unsigned long origin, std::int64_t* status) override;

    // Finishes and closes the file, as CloseMediaFile does.
    ~ContainerMuxer() override;

    // Take frames in. Return the octets taken, 0 when there is no such track, no frame, or nothing was taken.
    // Once each kind of media that the job has has delivered a frame, a queue that is long enough is drained.
    virtual int WriteVideoPacket(const MEDIA_FRAME* frame) = 0;
    // frameSizes: null, or a count n and the sizes of n frames that lie end to end in audioData. A size of 0 or below
    // is no frame. A frame that would reach past audioSize ends the list, unless audioSize is 0 or below: then the
    // table rules.
    int WriteAudioPacket(const MEDIA_FRAME* frame, const int* frameSizes);

    // Codec set-up data, at any time while the file is open, any number of times. What does not apply is ignored.
    // WriteVosData: AudioSpecificConfig of AAC, laced header packets of Vorbis.
    // WritezXPSData: picture and sequence parameter set of H.264 without start codes; sequence header of MPEG-1/2.
    void WriteVosData(const unsigned char* data, int length);
    void WritezXPSData(const unsigned char* pictureSet, int pictureSetLength, const unsigned char* sequenceSet,
                       int sequenceSetLength);

    // Drains what is queued, completes the file and closes it; a file without a single block stays as it is, empty.
    // Does nothing when no file is open. Does not fail: what there is no memory to drain is left out.
    void CloseMediaFile() noexcept;

    const MuxerProfile& Profile() const { return m_Profile; }

protected:
    explicit ContainerMuxer(const MuxerProfile& profile) : m_Profile(profile) {}

    // Finishes any open file, opens path and resets what belongs to one file. Returns false when the file does not
    // open.
    bool OpenMediaFile(const wchar_t* path, const EncodeParam& param);
    // Each null for a job without that kind of media.
    void AddTracks(std::unique_ptr<TrackStream> video, std::unique_ptr<TrackStream> audio);

    // Queues a whole video frame.
    int QueueVideo(const MEDIA_FRAME& frame, const unsigned char* data, int size, unsigned int keyFrame);
    // Queues each slice of a frame in start-code form as a block of its own and drops all other units.
    int WriteN264Packet(const MEDIA_FRAME& frame);
    // Notes what became of a video frame and drains the queues if it is time. Returns octetsTaken.
    int AfterVideo(int octetsTaken);

    VideoParam m_VideoParam{};
    TrackStream* m_pVideoStream = nullptr;
    TrackStream* m_pAudioStream = nullptr;

private:
    int QueueAudio(const MEDIA_FRAME& frame, const int* frameSizes);
    int AfterFrame(int octetsTaken, const TrackStream& stream, bool& started, bool otherStarted);

    // Drains all queues in time order into clusters. Returns the octets written.
    std::int32_t WritePacket();
    TrackStream* EarliestStream() const;
    void PlaceHead(TrackStream& stream);
    void OpenClusterFor(std::int64_t time);
    bool CueIsDue(std::int64_t time) const;
    void AddCuePoint(std::int64_t time, std::uint64_t blockNumber);

    std::int32_t WriteBeginInfo();
    void WriteTracks();
    void RewriteTracks();

    std::int32_t WriteDuration();
    std::int32_t WriteEndInfo();
    void WriteSeekHeadAndFiller();

    bool ClusterHasBlocks() const { return !m_Cluster.m_BlockGroups.empty() || !m_Cluster.m_SimpleBlocks.empty(); }
    void WriteCluster();
    void Append(const MatroskaWriter::CID& element);
    // Writes over what stands at position, or nothing when the way there fails: what is good stays as it is.
    bool Overwrite(std::int64_t position, const MatroskaWriter::CID& element);
    void SeekToEnd();
    // The file's end as readers count it: from the Segment's payload.
    std::uint64_t SegmentOffset() const { return static_cast<std::uint64_t>(m_EndPos - m_SegmentDataPos); }
    // Points at the file's end. Requires a spare entry.
    void AddSeekEntry(MatroskaWriter::Seek& index, unsigned long id);
    void KeepSpareSeekEntries(std::size_t count);

    const MuxerProfile& m_Profile;

    MatroskaWriter::Cluster m_Cluster{MatroskaWriter::kClusterId}; // being assembled
    MatroskaWriter::Cue m_Cues{MatroskaWriter::kCuesId};
    MatroskaWriter::Seek m_ClusterIndex{MatroskaWriter::kSeekHeadId}; // one entry for each written cluster
    MatroskaWriter::Seek m_SeekHead{MatroskaWriter::kSeekHeadId};     // the main one, at the front
    std::list<MatroskaWriter::SeekHead> m_SpareSeekEntries;           // what closing adds, so that it needs no memory
    MatroskaWriter::Info m_Info{MatroskaWriter::kInfoId};
    MatroskaWriter::Track m_Tracks{MatroskaWriter::kTracksId}; // as in the file

    // Positions in the file.
    std::int64_t m_SegmentPos = 0;
    std::int64_t m_SegmentDataPos = 0; // the Segment's payload, where the reserved octets begin
    std::int64_t m_InfoPos = 0;
    std::int64_t m_TracksPos = 0;
    std::int64_t m_ReservedSize = 0;
    std::int64_t m_EndPos = 0; // behind what has been appended, where the next element goes
    bool m_IsAtEnd = true;     // no seek has led away from it

    std::unique_ptr<FileEx> m_pFile;                   // null when no file is open
    std::list<std::unique_ptr<TrackStream>> m_Streams; // video first

    bool m_HeaderWritten = false;
    bool m_TracksWritten = false;
    bool m_VideoStarted = false; // a frame has been taken, or the job has no video
    bool m_AudioStarted = false;
    bool m_NoBlockYet = true; // no block has left a queue

    // ms from the first block's time, unless said otherwise.
    std::int64_t m_FirstBlockTime = 0; // the host's time of that block, ms
    std::int64_t m_LastWriteTime = 0;  // start of the last block placed, 100 ns units
    std::int64_t m_AudioDuration = 0;  // sum over all audio frames handed in, 100 ns units
    std::uint64_t m_CueTrack = 0;      // the track that cue points name; 0 until the Tracks are written
    std::int64_t m_LastCueClusterPos = -1;
    std::int64_t m_LastCueTime = -1;
    std::uint64_t m_CueBlockNumber = 0; // blocks of the cue track in the cluster being assembled
};
