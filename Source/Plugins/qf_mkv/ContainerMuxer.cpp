// SPDX-License-Identifier: MIT
#include "ContainerMuxer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "CodecPrivate.h"
#include "MatroskaStream.h"
#include "MatroskaStreamWebm.h"
#include "NalUnits.h"

static_assert(sizeof(std::time_t) == 8, "dates pass 2038: build with _TIME_BITS=64");

using namespace MatroskaWriter;

namespace {

constexpr std::int64_t kClusterSpan = 1000; // ms
constexpr std::size_t kClustersToFlush = 4;
constexpr std::int64_t kEarliestBlockTime = -32768; // ms; earlier blocks are dropped
constexpr std::uint64_t kReservedPayload = 4096;    // octets kept free for the main seek head
constexpr unsigned long kVoidId = 0xEC;

std::int64_t ToHostTicks(std::int64_t milliseconds) { return WrappingMultiply(milliseconds, kHostTicksPerMs); }

// A frame lasts at least one tick.
std::int64_t EndOf(std::int64_t start, std::int32_t duration) {
    return WrappingAdd<std::int64_t>(start, std::max(duration, 1));
}

// Takes several frames in, or none when memory runs out.
template <class Stream, class TakeFrames>
int AllOrNothing(Stream& stream, TakeFrames takeFrames) {
    const typename Stream::Mark mark = stream.Here();
    try {
        return takeFrames();
    } catch (const std::bad_alloc&) {
        stream.ReturnTo(mark);
        throw;
    }
}

// Nanoseconds since 2001-01-01, counted from local midnight. Summer time is claimed for that midnight, deliberately: in
// zones that have summer time the epoch moves by its offset. Seconds are counted in 32 bits.
std::int64_t DateUTC() {
    std::tm epoch{};
    epoch.tm_mday = 1;
    epoch.tm_year = 101;
    epoch.tm_isdst = 1;
    const std::int64_t epochSeconds = std::mktime(&epoch);
    const std::int64_t seconds = std::int64_t{std::time(nullptr)} - epochSeconds;
    return std::int64_t{static_cast<std::int32_t>(seconds)} * 1000000000;
}

} // namespace

// ---- the stream

template <class Stream>
std::int32_t ContainerMuxer<Stream>::Read(void* buffer, unsigned long count, unsigned long* read) {
    if (m_pFile == nullptr) return -1;
    const unsigned long moved = m_pFile->Read(buffer, count);
    if (read != nullptr) *read = moved;
    return 0;
}

template <class Stream>
std::int32_t ContainerMuxer<Stream>::Write(const void* buffer, unsigned long count, unsigned long* written) {
    if (m_pFile == nullptr) return -1;
    const unsigned long moved = m_pFile->Write(buffer, count);
    if (written != nullptr) *written = moved;
    return 0;
}

template <class Stream>
std::int32_t ContainerMuxer<Stream>::Seek(std::int64_t offset, unsigned long origin, std::int64_t* status) {
    if (m_pFile == nullptr) return -1;
    const int result = m_pFile->Seek(offset, static_cast<int>(origin));
    if (status != nullptr) *status = result;
    return 0;
}

// ---- creation and closing

template <class Stream>
ContainerMuxer<Stream>::~ContainerMuxer() {
    CloseMediaFile();
}

template <class Stream>
bool ContainerMuxer<Stream>::OpenMediaFile(const wchar_t* path, const EncodeParam& param) {
    KeepSpareSeekEntries(3);
    m_pFile = std::make_unique<FileEx>();
    if (m_pFile->Open(path, "wb") == 0) return false;
    m_VideoParam = param.videoParam;
    m_Streams.clear();
    m_pVideoStream = nullptr;
    m_pAudioStream = nullptr;
    m_HeaderWritten = 0;
    m_VideoStarted = 0;
    m_AudioStarted = 0;
    m_TracksWritten = 0;
    m_NoBlockYet = 1;
    m_FirstBlockTime = 0;
    m_LastWriteTime = 0;
    m_CueTrack = 0;
    m_LastCueClusterPos = -1;
    m_LastCueTime = -1;
    m_CueBlockNumber = 0;
    m_SegmentPos = 0;
    m_SegmentDataPos = 0;
    m_InfoPos = 0;
    m_TracksPos = 0;
    m_ReservedSize = 0;
    return true;
}

template <class Stream>
void ContainerMuxer<Stream>::CloseMediaFile() noexcept {
    if (m_pFile == nullptr) return;
    std::size_t queued = 0;
    for (const auto& stream : m_Streams) queued += stream->m_Queue.size();
    try {
        if (queued > 0) WritePacket();
    } catch (const std::bad_alloc&) {
        // The file is completed with the blocks that have been placed.
    }
    if (m_NoBlockYet == 0) {
        WriteDuration();
        WriteEndInfo();
    }
    m_pFile->Close();
    m_pFile.reset();
}

// ---- intake

template <class Stream>
int ContainerMuxer<Stream>::QueueVideo(const MEDIA_FRAME& frame, const unsigned char* data, int size,
                                       unsigned int keyFrame) {
    return m_pVideoStream->WritePacket(data, size, frame.timestamp, EndOf(frame.timestamp, frame.duration), keyFrame);
}

template <class Stream>
int ContainerMuxer<Stream>::WriteN264Packet(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    return AllOrNothing(*m_pVideoStream, [&] {
        return SplitNalUnits(
            frame->videoData, frame->videoSize, [](unsigned type) { return type == kNalSlice || type == kNalIdrSlice; },
            [&](unsigned type, const unsigned char* unit, int length) {
                QueueVideo(*frame, unit, length, type == kNalIdrSlice ? 1 : 0);
            });
    });
}

template <class Stream>
unsigned char* ContainerMuxer<Stream>::FindStartCode(unsigned char* data, int length) {
    return ::FindStartCode(data, length);
}

template <class Stream>
int ContainerMuxer<Stream>::WriteAudioPacket(const MEDIA_FRAME* frame, const int* frameSizes) {
    if (frame == nullptr) return 0;
    const int taken = m_pAudioStream != nullptr ? QueueAudio(*frame, frameSizes) : 0;
    m_AudioDuration = WrappingAdd<std::int64_t>(m_AudioDuration, frame->duration); // also without a track
    return m_pAudioStream != nullptr ? AfterFrame(taken, *m_pAudioStream, m_AudioStarted, m_VideoStarted) : 0;
}

template <class Stream>
int ContainerMuxer<Stream>::QueueAudio(const MEDIA_FRAME& frame, const int* frameSizes) {
    constexpr unsigned int kKeyFrame = 1;
    const auto queue = [&](const unsigned char* data, int size, std::int64_t start, std::int32_t duration) {
        return m_pAudioStream->WritePacket(data, size, start, EndOf(start, duration), kKeyFrame);
    };
    if (frameSizes == nullptr) return queue(frame.audioData, frame.audioSize, frame.timestamp, frame.duration);
    if (frame.audioData == nullptr) return 0;
    // Without an audioSize the sizes are trusted.
    std::int64_t rest = frame.audioSize > 0 ? frame.audioSize : std::numeric_limits<std::int64_t>::max();
    return AllOrNothing(*m_pAudioStream, [&, data = frame.audioData]() mutable {
        int taken = 0;
        const int count = frameSizes[0];
        for (int i = 0; i < count && rest > 0; ++i) {
            const int size = frameSizes[i + 1];
            if (size <= 0) continue;
            if (size > rest) break;
            // The record's duration is shared out evenly, in 32-bit arithmetic.
            const std::int32_t offset = WrappingMultiply(frame.duration, i) / count;
            const std::int64_t start = WrappingAdd<std::int64_t>(frame.timestamp, offset);
            taken = WrappingAdd(taken, queue(data, size, start, frame.duration / count));
            data += size;
            rest -= size;
        }
        return taken;
    });
}

template <class Stream>
int ContainerMuxer<Stream>::AfterVideo(int octetsTaken) {
    return AfterFrame(octetsTaken, *m_pVideoStream, m_VideoStarted, m_AudioStarted);
}

template <class Stream>
int ContainerMuxer<Stream>::AfterFrame(int octetsTaken, const Stream& stream, std::uint32_t& started,
                                       std::uint32_t otherStarted) {
    if (octetsTaken > 0) {
        started = 1;
        try {
            if (otherStarted != 0 && stream.m_Queue.size() >= m_Profile.m_QueuedBlocksToStart) WritePacket();
        } catch (const std::bad_alloc&) {
            // The frame has been taken in: it stays queued, and the next frame tries again.
        }
    }
    return octetsTaken;
}

// ---- codec set-up data

template <class Stream>
bool ContainerMuxer<Stream>::HasRoomFor(const Stream& stream, std::uint64_t octets) const {
    return m_TracksWritten == 0 || octets <= stream.m_pTrackEntry->m_CodecPrivate.m_Data.size();
}

template <class Stream>
bool ContainerMuxer<Stream>::SetCodecPrivate(Stream& stream, ByteView data) {
    Bytes& codecPrivate = stream.m_pTrackEntry->m_CodecPrivate.m_Data;
    if (!HasRoomFor(stream, data.m_Size)) return false;
    if (m_TracksWritten == 0) codecPrivate.resize(data.m_Size);
    std::copy_n(data.m_pData, data.m_Size, codecPrivate.begin());
    return true;
}

template <class Stream>
void ContainerMuxer<Stream>::WriteVosData(const unsigned char* data, int length) {
    const ByteView setup = HostBytes(data, length);
    if (m_pAudioStream == nullptr || setup.m_Size == 0) return;
    const std::string codec = m_pAudioStream->m_pTrackEntry->m_CodecID.ToString();
    if (codec != "A_AAC" && codec != "A_VORBIS") return;
    if (SetCodecPrivate(*m_pAudioStream, setup)) RewriteTracks();
}

template <class Stream>
void ContainerMuxer<Stream>::WritezXPSData(const unsigned char* pictureSet, int pictureSetLength,
                                           const unsigned char* sequenceSet, int sequenceSetLength) {
    if (m_pVideoStream == nullptr) return;
    const std::string codec = m_pVideoStream->m_pTrackEntry->m_CodecID.ToString();
    const ByteView picture = HostBytes(pictureSet, pictureSetLength);
    const ByteView sequence = HostBytes(sequenceSet, sequenceSetLength);
    if (IsMpegVideo(codec)) {
        if (sequence.m_Size == 0) return;
        const ByteView header = FindSequenceHeader(sequence);
        if (header.m_Size > 0 && !SetCodecPrivate(*m_pVideoStream, header)) return;
    } else if (IsAvc(codec)) {
        // Checked before the record is built: sets that are too large need not fit in memory either.
        if (!HasRoomFor(*m_pVideoStream, AvcRecordSize(picture, sequence))) return;
        const Bytes record = AvcDecoderConfigurationRecord(picture, sequence);
        SetCodecPrivate(*m_pVideoStream, {record.data(), record.size()});
    } else {
        return;
    }
    RewriteTracks();
}

// ---- the front of the file

template <class Stream>
std::int32_t ContainerMuxer<Stream>::WriteBeginInfo() {
    if (m_pFile == nullptr) return 1;
    // Steps that can fail come first. Two entries are added here, three when the file is closed.
    KeepSpareSeekEntries(5);
    m_Info.m_MuxingApp.Set(L"Tarnwell Matroska Muxer");
    EBML header{0x1A45DFA3};
    m_Profile.m_SetVersions(header);
    header.m_DocType.Set(m_VideoParam.fourCC == MakeFourCC("VP8 ") ? "webm" : "matroska");

    SeekTo(0, SEEK_SET);
    header.Write(this);

    m_SegmentPos = m_pFile->GetPos();
    MatroskaWriter::Segment{0, kSegmentId}.Write(this);
    m_SegmentDataPos = m_pFile->GetPos();
    const Void reserved{kReservedPayload, kVoidId};
    m_ReservedSize = static_cast<std::int64_t>(reserved.Size(true));
    reserved.Write(this);

    AddSeekEntry(m_SeekHead, kInfoId);
    m_InfoPos = m_pFile->GetPos();
    m_Info.m_TimecodeScale.Set(1000000);
    m_Info.m_Duration.Set(0.0F); // of its final width, so that the Info keeps its size
    m_Info.m_DateUTC.Set(DateUTC());
    m_Info.Write(this);

    AddSeekEntry(m_SeekHead, kTracksId); // which follow at once
    m_Cluster.m_Timecode.Set(0);
    return 1;
}

// Allocates no memory when all sizes are unchanged.
template <class Stream>
void ContainerMuxer<Stream>::CopyTrackEntries() {
    m_Tracks.m_TrackEntries.resize(m_Streams.size(), TrackEntry{0xAE});
    auto entry = m_Tracks.m_TrackEntries.begin();
    for (const auto& stream : m_Streams) *entry++ = *stream->m_pTrackEntry;
}

template <class Stream>
void ContainerMuxer<Stream>::WriteTracks() {
    CopyTrackEntries();
    for (const TrackEntry& entry : m_Tracks.m_TrackEntries) {
        const bool isVideo = entry.m_TrackType.m_Value == kVideoTrack;
        if (isVideo && m_CueTrack == 0) m_CueTrack = static_cast<std::int64_t>(entry.m_TrackNumber.m_Value);
    }
    m_TracksPos = m_pFile->GetPos();
    m_Tracks.Write(this);
    if (m_CueTrack == 0) m_CueTrack = kAudioTrack;
    for (const auto& stream : m_Streams) stream->m_HeaderInFile = true;
    m_TracksWritten = 1;
}

template <class Stream>
void ContainerMuxer<Stream>::RewriteTracks() {
    if (m_TracksWritten == 0 || m_pFile == nullptr) return;
    CopyTrackEntries();
    const std::int64_t position = m_pFile->GetPos();
    SeekTo(m_TracksPos, SEEK_SET);
    m_Tracks.Write(this);
    SeekTo(position, SEEK_SET);
}

// ---- interleaving

template <class Stream>
std::int32_t ContainerMuxer<Stream>::WritePacket() {
    if (m_pFile == nullptr) return 0;
    const std::int64_t entry = m_pFile->GetPos();
    if (m_HeaderWritten == 0) m_HeaderWritten = static_cast<std::uint32_t>(WriteBeginInfo());
    while (Stream* const stream = EarliestStream()) {
        if (m_TracksWritten == 0) WriteTracks();
        PlaceHead(*stream);
    }
    return static_cast<std::int32_t>(m_pFile->GetPos() - entry);
}

template <class Stream>
Stream* ContainerMuxer<Stream>::EarliestStream() const {
    Stream* earliest = nullptr;
    std::int64_t smallest = std::numeric_limits<std::int64_t>::max();
    for (const auto& stream : m_Streams) {
        if (stream->m_Queue.empty()) continue;
        // On equal times the stream that comes first in the list wins.
        const std::int64_t time = Stream::BlockOf(stream->m_Queue.front()).m_Timecode;
        if (time < smallest) {
            smallest = time;
            earliest = stream.get();
        }
    }
    return earliest;
}

// Moves the stream's oldest block into the cluster of its time. Steps that can fail come first, so that a block is
// either still queued or placed.
template <class Stream>
void ContainerMuxer<Stream>::PlaceHead(Stream& stream) {
    const auto head = stream.m_Queue.begin();
    BlockBase& block = Stream::BlockOf(*head);
    if (m_NoBlockYet != 0) {
        m_FirstBlockTime = block.m_Timecode;
        m_NoBlockYet = 0;
    }
    const std::int64_t time = WrappingSubtract(block.m_Timecode, m_FirstBlockTime);
    const std::int64_t stopTime = WrappingSubtract(block.m_StopTime, m_FirstBlockTime);
    stream.m_WrittenTime = ToHostTicks(time);
    if (time < kEarliestBlockTime) {
        stream.m_Queue.pop_front();
        return;
    }
    OpenClusterFor(time);
    if (block.m_TrackNumber.m_Length == static_cast<std::uint64_t>(m_CueTrack)) {
        if (Stream::MayBeCued(*head) && CueIsDue(time)) AddCuePoint(time);
        ++m_CueBlockNumber;
    }
    if (m_Info.m_Duration.m_Value <= static_cast<float>(stopTime))
        m_Info.m_Duration.m_Value = static_cast<float>(stopTime);
    m_Info.m_Duration.m_IsSet = true;
    m_LastWriteTime = ToHostTicks(time);
    block.m_Timecode = time - static_cast<std::int64_t>(m_Cluster.m_Timecode.m_Value);
    block.m_StopTime = stopTime;
    Blocks().splice(Blocks().end(), stream.m_Queue, head);
}

// Clusters span fixed seconds, their last millisecond included. Spans without a block are skipped.
template <class Stream>
void ContainerMuxer<Stream>::OpenClusterFor(std::int64_t time) {
    const auto clusterTime = static_cast<std::int64_t>(m_Cluster.m_Timecode.m_Value);
    if (time - clusterTime <= kClusterSpan) return;
    if (!Blocks().empty()) {
        KeepSpareSeekEntries(4);
        WriteCluster();
    }
    const std::int64_t spans = (time - clusterTime - 1) / kClusterSpan;
    m_Cluster.m_Timecode.Set(static_cast<std::uint64_t>(clusterTime + spans * kClusterSpan));
    for (const auto& stream : m_Streams) stream->TakeBack(Blocks());
    Blocks().clear(); // of tracks that are no more
    m_CueBlockNumber = 0;
}

// Usually one cue point for each cluster, at its first candidate.
template <class Stream>
bool ContainerMuxer<Stream>::CueIsDue(std::int64_t time) const {
    return SegmentOffset() != m_LastCueClusterPos || time > WrappingAdd(m_LastCueTime, kClusterSpan);
}

// The cluster is written when its span closes, so it will begin where the file ends now.
template <class Stream>
void ContainerMuxer<Stream>::AddCuePoint(std::int64_t time) {
    const std::int64_t position = SegmentOffset();
    CuePoint point{0xBB};
    point.m_CueTime.Set(static_cast<std::uint64_t>(time));
    CueTrackPosition& target = point.m_CueTrackPositions.emplace_back(0xB7);
    target.m_CueTrack.Set(static_cast<std::uint64_t>(m_CueTrack));
    target.m_CueClusterPosition.Set(static_cast<std::uint64_t>(position));
    // Counts the cue track's blocks only, this one included, deliberately.
    if (!Blocks().empty()) target.m_CueBlockNumber.Set(static_cast<std::uint64_t>(m_CueBlockNumber + 1));
    m_Cues.m_CuePoints.push_back(std::move(point));
    m_LastCueClusterPos = position;
    m_LastCueTime = time;
}

template <class Stream>
void ContainerMuxer<Stream>::WriteCluster() {
    AddSeekEntry(m_ClusterIndex, kClusterId);
    m_Cluster.Write(this);
    // Clusters survive the death of the process, except for those of the last seconds: a system call costs as much as
    // some frames.
    if (m_ClusterIndex.m_Seeks.size() % kClustersToFlush == 0) m_pFile->Flush();
}

template <class Stream>
void ContainerMuxer<Stream>::SeekTo(std::int64_t offset, int origin) {
    if (m_pFile->Seek(offset, origin) != 0 || m_pFile->GetPos() < 0) m_pFile->Close();
}

template <class Stream>
void ContainerMuxer<Stream>::AddSeekEntry(MatroskaWriter::Seek& index, unsigned long id) {
    m_pNewSeekEntry->m_SeekID.m_SeekedID = CID{id};
    m_pNewSeekEntry->m_SeekPosition.Set(static_cast<std::uint64_t>(SegmentOffset()));
    m_SpareSeekEntries.front() = *m_pNewSeekEntry;
    index.m_Seeks.splice(index.m_Seeks.end(), m_SpareSeekEntries, m_SpareSeekEntries.begin());
}

template <class Stream>
void ContainerMuxer<Stream>::KeepSpareSeekEntries(std::size_t count) {
    if (m_pNewSeekEntry == nullptr) m_pNewSeekEntry = std::make_unique<SeekHead>(0x4DBB);
    while (m_SpareSeekEntries.size() < count) m_SpareSeekEntries.emplace_back(0x4DBB);
}

// ---- finalisation

template <class Stream>
std::int32_t ContainerMuxer<Stream>::WriteDuration() {
    std::int64_t latest = 0;
    for (const auto& stream : m_Streams) latest = std::max(latest, stream->m_WrittenTime);
    if (m_pFile == nullptr || latest == 0) return 1;
    SeekTo(m_InfoPos, SEEK_SET);
    // Rounded to single twice: the sum, and the quotient. Without audio it is 0, which WriteEndInfo may correct.
    m_Info.m_Duration.Set(static_cast<float>(static_cast<double>(static_cast<float>(m_AudioDuration)) / 10000.0));
    m_Info.Write(this);
    return 1;
}

template <class Stream>
std::int32_t ContainerMuxer<Stream>::WriteEndInfo() {
    if (m_pFile == nullptr) return 1;
    KeepSpareSeekEntries(3); // usually there already; fewer only when called out of turn
    SeekTo(0, SEEK_END);
    if (!Blocks().empty()) WriteCluster();
    if (!m_Cues.m_CuePoints.empty()) {
        AddSeekEntry(m_SeekHead, kCuesId);
        m_Cues.Write(this);
    }
    if (!m_ClusterIndex.m_Seeks.empty()) {
        AddSeekEntry(m_SeekHead, kSeekHeadId);
        m_ClusterIndex.Write(this);
    }
    const auto segmentSize = static_cast<std::uint64_t>(SegmentOffset());

    // The Duration stands unless it is more than a second away from the last block's start.
    constexpr std::int64_t kTolerance = 1000 * kHostTicksPerMs;
    const auto duration = static_cast<std::int64_t>(m_Info.m_Duration.m_Value);
    const std::int64_t difference = WrappingSubtract(m_LastWriteTime, ToHostTicks(duration));
    if (difference > kTolerance || difference < -kTolerance) {
        const std::int64_t corrected = m_LastWriteTime / kHostTicksPerMs + 1; // whole milliseconds
        m_Info.m_Duration.Set(static_cast<float>(corrected));
    }
    SeekTo(m_InfoPos, SEEK_SET);
    m_Info.Write(this);
    WriteSeekHeadAndFiller();

    // Last: a Segment with a size is complete. After a failed write nothing is written here either.
    SeekTo(m_SegmentPos, SEEK_SET);
    MatroskaWriter::Segment{segmentSize, kSegmentId}.Write(this);
    return 1;
}

// Puts the main seek head over the start of the reserved octets and a Void over the rest.
template <class Stream>
void ContainerMuxer<Stream>::WriteSeekHeadAndFiller() {
    std::int64_t rest = m_ReservedSize - static_cast<std::int64_t>(m_SeekHead.Size(true));
    while (rest < 2 && !m_SeekHead.m_Seeks.empty()) { // no room for the smallest Void
        rest += static_cast<std::int64_t>(m_SeekHead.m_Seeks.back().Size(true));
        m_SeekHead.m_Seeks.pop_back();
    }
    SeekTo(m_SegmentDataPos, SEEK_SET);
    m_SeekHead.Write(this);
    for (unsigned k = 0; k <= 7; ++k) {
        // The identifier, a length field of k + 1 octets and the payload make up the rest. For 127 to 129 octets the
        // shortest length field is one octet less, and so is the Void, deliberately.
        const auto smallest = static_cast<std::int64_t>(PowerOfTwo(7 * k)) - 2;
        const auto largest = static_cast<std::int64_t>(PowerOfTwo(7 * (k + 1))) - 2;
        if (smallest <= rest && rest <= largest) {
            Void{static_cast<std::uint64_t>(rest - 2 - k), kVoidId}.Write(this);
            break;
        }
    }
}

template class ContainerMuxer<MatroskaStream>;
template class ContainerMuxer<MatroskaStreamWebm>;
