// SPDX-License-Identifier: MIT
// The common part of the two muxers: one output file from creation to close.
//
// A file is laid out as EBML header, Segment header, 4,099 reserved octets, Info, Tracks, clusters, Cues and an index
// of the clusters. Header, Info and Tracks are written when the first frames are drained; at close the muxer goes back
// and writes the Info's Duration, the main seek head over the reserved octets and, last, the Segment's size. So a
// Segment of known size is complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "FileEx.h"
#include "HostRecords.h"
#include "MatroskaFile.h"
#include "TrackStream.h"

// The values in which the two muxers differ.
struct MuxerProfile {
    std::size_t m_QueuedBlocksToStart;                   // a frame drains the queues when its track has so many blocks
    void (*m_SetVersions)(MatroskaWriter::EBML& header); // fills the version members
};

// All operations are called by one thread at a time. Write errors are not reported, by design: the file ends at the
// first octet that could not be written, and its Segment's size stays unknown. When memory runs out the operation
// throws std::bad_alloc, has taken nothing in, and leaves the muxer usable. A frame that was taken in stays queued when
// there is no memory to write it: the next frame tries again.
//
// Members are public: a host sees only an opaque handle. The elements and the audio's duration outlive a file,
// deliberately: each file has a muxer of its own.
template <class Stream>
class ContainerMuxer : public IStream {
public:
    // The stream that elements write to. Read and Write fail only when no file is open.
    std::int32_t Read(void* buffer, unsigned long count, unsigned long* read) override;
    std::int32_t Write(const void* buffer, unsigned long count, unsigned long* written) override;
    std::int32_t Seek(std::int64_t offset, unsigned long origin, std::int64_t* status) override;

    // Finishes and closes the file, as CloseMediaFile does.
    ~ContainerMuxer() override;

    // Takes frames of sound in. Returns the octets taken, 0 when there is no such track, no frame, or nothing was
    // taken. Once each kind of media in the job has delivered a frame, a queue that is long enough is drained.
    // frameSizes: null, or a count n and the sizes of n frames that lie end to end in audioData. A size of 0 or below
    // is no frame. A frame that would reach past audioSize ends the list, unless audioSize is 0 or below: then the
    // sizes are trusted.
    int WriteAudioPacket(const MEDIA_FRAME* frame, const int* frameSizes);

    // Codec set-up data, at any time while the file is open, any number of times. Data that does not apply is ignored.
    // WriteVosData: AudioSpecificConfig of AAC, laced header packets of Vorbis.
    // WritezXPSData: picture and sequence parameter set of H.264 without start codes; sequence header of MPEG-1/2.
    void WriteVosData(const unsigned char* data, int length);
    void WritezXPSData(const unsigned char* pictureSet, int pictureSetLength, const unsigned char* sequenceSet,
                       int sequenceSetLength);

    // Queues each slice of a frame in start-code form as a block of its own and drops all other units.
    // Returns the octets taken.
    int WriteN264Packet(const MEDIA_FRAME* frame);
    // The first 00 00 00 01 among `length` octets, or null.
    static unsigned char* FindStartCode(unsigned char* data, int length);

    // Drains the queues, completes the file and closes it; a file without a block stays empty. Does nothing when no
    // file is open. Does not fail: blocks that there is no memory to drain are left out.
    void CloseMediaFile() noexcept;

    // The steps of writing, for the operations above. All need an open file; without one they do nothing.
    std::int32_t WritePacket();    // drains all queues in time order into clusters; returns the octets written
    std::int32_t WriteBeginInfo(); // everything in front of the Tracks; returns 1
    std::int32_t WriteDuration();  // settles the Duration from the audio; returns 1
    std::int32_t WriteEndInfo();   // writes the rest, then the values at the front; returns 1

    MatroskaWriter::Cluster m_Cluster{MatroskaWriter::kClusterId}; // being assembled
    MatroskaWriter::Cue m_Cues{MatroskaWriter::kCuesId};
    MatroskaWriter::Seek m_ClusterIndex{MatroskaWriter::kSeekHeadId}; // one entry for each written cluster
    MatroskaWriter::Seek m_SeekHead{MatroskaWriter::kSeekHeadId};     // the main one, at the front
    std::unique_ptr<MatroskaWriter::SeekHead> m_pNewSeekEntry;        // being filled before it goes into one of them
    MatroskaWriter::Info m_Info{MatroskaWriter::kInfoId};

    // Positions in the file.
    std::int64_t m_SegmentPos = 0;
    std::int64_t m_SegmentDataPos = 0; // the Segment's payload, where the reserved octets begin
    std::int64_t m_InfoPos = 0;
    std::int64_t m_TracksPos = 0;
    std::int64_t m_ReservedSize = 0;

    std::unique_ptr<FileEx> m_pFile;              // null when no file is open
    std::list<std::unique_ptr<Stream>> m_Streams; // video first
    Stream* m_pVideoStream = nullptr;
    Stream* m_pAudioStream = nullptr;

    std::uint32_t m_HeaderWritten = 0;
    std::uint32_t m_VideoStarted = 0; // a frame has been taken, or the job has no video
    std::uint32_t m_AudioStarted = 0;
    std::uint32_t m_TracksWritten = 0;
    std::uint32_t m_NoBlockYet = 1; // no block has left a queue

    // ms from the first block's time, unless stated otherwise.
    std::int64_t m_FirstBlockTime = 0; // the host's time of that block, ms
    std::int64_t m_LastWriteTime = 0;  // start of the last block placed, 100 ns units
    std::int64_t m_CueTrack = 0;       // the track that cue points name; 0 until the Tracks are written
    std::int64_t m_LastCueClusterPos = -1;
    std::int64_t m_LastCueTime = -1;
    std::int64_t m_CueBlockNumber = 0; // blocks of the cue track in the cluster being assembled
    std::int64_t m_AudioDuration = 0;  // sum over all audio frames handed in, 100 ns units

    VideoParam m_VideoParam{};

protected:
    explicit ContainerMuxer(const MuxerProfile& profile) : m_Profile(profile) {}

    // Opens path and resets what belongs to one file; an open file has been closed before. Returns false when the file
    // does not open.
    bool OpenMediaFile(const wchar_t* path, const EncodeParam& param);
    // Builds a track from the record and adds it, unless the track reports a failure; none does. Returns the track, or
    // null.
    template <class... Param>
    Stream* AddTrack(const Param*... param) {
        long result = -1;
        auto stream = std::make_unique<Stream>(param..., &result);
        return result >= 0 ? m_Streams.emplace_back(std::move(stream)).get() : nullptr;
    }

    // Queues a whole video frame.
    int QueueVideo(const MEDIA_FRAME& frame, const unsigned char* data, int size, unsigned int keyFrame);
    // Notes the result of taking a video frame and drains the queues if it is time. Returns octetsTaken.
    int AfterVideo(int octetsTaken);

private:
    int QueueAudio(const MEDIA_FRAME& frame, const int* frameSizes);
    int AfterFrame(int octetsTaken, const Stream& stream, std::uint32_t& started, std::uint32_t otherStarted);

    // Makes data a track's CodecPrivate. Once the Tracks are in the file its size is fixed: data then overwrites its
    // beginning and the rest stays. Returns false, and changes nothing, when data does not fit.
    bool SetCodecPrivate(Stream& stream, ByteView data);
    bool HasRoomFor(const Stream& stream, std::uint64_t octets) const;
    void CopyTrackEntries();
    void WriteTracks();
    void RewriteTracks();

    Stream* EarliestStream() const;
    void PlaceHead(Stream& stream);
    void OpenClusterFor(std::int64_t time);
    bool CueIsDue(std::int64_t time) const;
    void AddCuePoint(std::int64_t time);
    void WriteCluster();
    void WriteSeekHeadAndFiller();

    std::list<typename Stream::Block>& Blocks() { return Stream::BlocksOf(m_Cluster); }
    // The file's position as readers count it: from the Segment's payload.
    std::int64_t SegmentOffset() const { return m_pFile->GetPos() - m_SegmentDataPos; }
    // When the seek fails nothing more is written: it would overwrite good data.
    void SeekTo(std::int64_t offset, int origin);
    // Points at the file's position. Requires a spare entry.
    void AddSeekEntry(MatroskaWriter::Seek& index, unsigned long id);
    void KeepSpareSeekEntries(std::size_t count);

    const MuxerProfile& m_Profile;
    MatroskaWriter::Track m_Tracks{MatroskaWriter::kTracksId}; // as in the file
    std::list<MatroskaWriter::SeekHead> m_SpareSeekEntries;    // entries that closing adds, so that it needs no memory
};
