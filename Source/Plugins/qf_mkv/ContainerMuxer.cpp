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
#include "NalUnits.h"

static_assert(sizeof(std::time_t) == 8, "dates pass 2038: build with _TIME_BITS=64");

using namespace MatroskaWriter;

namespace {

constexpr std::int64_t kClusterSpan = 1000; // ms
constexpr std::size_t kClustersToFlush = 4;
constexpr std::int64_t kEarliestBlockTime = -32768; // ms; what lies before is dropped
constexpr std::uint64_t kReservedPayload = 4096;    // octets kept free for the main seek head
constexpr unsigned long kVoidId = 0xEC;

std::int64_t ToHostTicks(std::int64_t milliseconds) { return WrappingMultiply(milliseconds, kHostTicksPerMs); }

// A frame lasts one tick at least.
std::int64_t EndOf(std::int64_t start, std::int32_t duration) {
    return WrappingAdd<std::int64_t>(start, std::max(duration, 1));
}

// Takes several frames in, or none when memory runs out.
template <class TakeFrames>
int AllOrNothing(TrackStream& stream, TakeFrames takeFrames) {
    const TrackStream::Mark mark = stream.Here();
    try {
        return takeFrames();
    } catch (const std::bad_alloc&) {
        stream.ReturnTo(mark);
        throw;
    }
}

// Nanoseconds since 2001-01-01, counted from local midnight. Summer time is claimed for that midnight, deliberately:
// where there is such a thing the epoch moves by its offset. Seconds are counted in 32 bits.
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

std::int32_t ContainerMuxer::Read(void* buffer, unsigned long count, unsigned long* read) {
    if (m_pFile == nullptr) return -1;
    const unsigned long moved = m_pFile->Read(buffer, count);
    if (read != nullptr) *read = moved;
    return 0;
}

std::int32_t ContainerMuxer::Write(const void* buffer, unsigned long count, unsigned long* written) {
    if (m_pFile == nullptr) return -1;
    const unsigned long moved = m_pFile->FileEx::Write(buffer, count); // not through its table: it is never another
    if (written != nullptr) *written = moved;
    return 0;
}

std::int32_t ContainerMuxer::Seek(std::int64_t offset, unsigned long origin, std::int64_t* status) {
    if (m_pFile == nullptr) return -1;
    const int result = m_pFile->Seek(offset, static_cast<int>(origin));
    if (status != nullptr) *status = result;
    return 0;
}

// ---- creation and closing

ContainerMuxer::~ContainerMuxer() { CloseMediaFile(); }

bool ContainerMuxer::OpenMediaFile(const wchar_t* path, const EncodeParam& param) {
    CloseMediaFile();
    KeepSpareSeekEntries(3);
    m_pFile = std::make_unique<FileEx>();
    if (m_pFile->Open(path, "wb") == 0) return false;
    m_VideoParam = param.videoParam;

    // The elements, the audio duration and what is known of the first video frame keep their values, deliberately: a
    // muxer is made for each file.
    m_Streams.clear();
    m_pVideoStream = nullptr;
    m_pAudioStream = nullptr;
    m_HeaderWritten = false;
    m_TracksWritten = false;
    m_VideoStarted = false;
    m_AudioStarted = false;
    m_NoBlockYet = true;
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
    m_EndPos = 0;
    m_IsAtEnd = true;
    return true;
}

void ContainerMuxer::AddTracks(std::unique_ptr<TrackStream> video, std::unique_ptr<TrackStream> audio) {
    m_VideoStarted = video == nullptr;
    m_AudioStarted = audio == nullptr;
    if (video != nullptr) m_pVideoStream = m_Streams.emplace_back(std::move(video)).get();
    if (audio != nullptr) m_pAudioStream = m_Streams.emplace_back(std::move(audio)).get();
}

void ContainerMuxer::CloseMediaFile() noexcept {
    if (m_pFile == nullptr) return;
    try {
        if (EarliestStream() != nullptr) WritePacket();
    } catch (const std::bad_alloc&) {
        // The file is completed with what has been placed.
    }
    if (!m_NoBlockYet) {
        WriteDuration();
        WriteEndInfo();
    }
    m_pFile.reset();
}

// ---- intake

int ContainerMuxer::QueueVideo(const MEDIA_FRAME& frame, const unsigned char* data, int size, unsigned int keyFrame) {
    return m_pVideoStream->WritePacket(data, size, frame.timestamp, EndOf(frame.timestamp, frame.duration), keyFrame);
}

int ContainerMuxer::WriteN264Packet(const MEDIA_FRAME& frame) {
    return AllOrNothing(*m_pVideoStream, [&] {
        return SplitNalUnits(
            frame.videoData, frame.videoSize, [](unsigned type) { return type == kNalSlice || type == kNalIdrSlice; },
            [&](unsigned type, const unsigned char* unit, int length) {
                QueueVideo(frame, unit, length, type == kNalIdrSlice ? 1 : 0);
            });
    });
}

int ContainerMuxer::WriteAudioPacket(const MEDIA_FRAME* frame, const int* frameSizes) {
    if (frame == nullptr) return 0;
    const int taken = m_pAudioStream != nullptr ? QueueAudio(*frame, frameSizes) : 0;
    m_AudioDuration = WrappingAdd<std::int64_t>(m_AudioDuration, frame->duration); // also without a track
    return m_pAudioStream != nullptr ? AfterFrame(taken, *m_pAudioStream, m_AudioStarted, m_VideoStarted) : 0;
}

int ContainerMuxer::QueueAudio(const MEDIA_FRAME& frame, const int* frameSizes) {
    constexpr unsigned int kKeyFrame = 1;
    const auto queue = [&](const unsigned char* data, int size, std::int64_t start, std::int32_t duration) {
        return m_pAudioStream->WritePacket(data, size, start, EndOf(start, duration), kKeyFrame);
    };
    if (frameSizes == nullptr) return queue(frame.audioData, frame.audioSize, frame.timestamp, frame.duration);
    if (frame.audioData == nullptr) return 0;
    // Without a size of its own the record trusts its table.
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

int ContainerMuxer::AfterVideo(int octetsTaken) {
    return AfterFrame(octetsTaken, *m_pVideoStream, m_VideoStarted, m_AudioStarted);
}

int ContainerMuxer::AfterFrame(int octetsTaken, const TrackStream& stream, bool& started, bool otherStarted) {
    if (octetsTaken > 0) {
        started = true;
        try {
            if (otherStarted && stream.QueuedBlocks() >= m_Profile.m_QueuedBlocksToStart) WritePacket();
        } catch (const std::bad_alloc&) {
            // The frame is taken in: it stays queued, and the next one tries again.
        }
    }
    return octetsTaken;
}

// ---- codec set-up data

void ContainerMuxer::WriteVosData(const unsigned char* data, int length) {
    const ByteView setup = HostBytes(data, length);
    if (m_pAudioStream == nullptr || setup.m_Size == 0) return;
    const std::string codec = m_pAudioStream->m_TrackEntry.m_CodecID.ToString();
    if (codec != "A_AAC" && codec != "A_VORBIS") return;
    if (m_pAudioStream->SetCodecPrivate(setup)) RewriteTracks();
}

void ContainerMuxer::WritezXPSData(const unsigned char* pictureSet, int pictureSetLength,
                                   const unsigned char* sequenceSet, int sequenceSetLength) {
    if (m_pVideoStream == nullptr) return;
    const std::string codec = m_pVideoStream->m_TrackEntry.m_CodecID.ToString();
    const ByteView sequence = HostBytes(sequenceSet, sequenceSetLength);
    if (codec == "V_MPEG1" || codec == "V_MPEG2") {
        if (sequence.m_Size == 0) return;
        const ByteView header = FindSequenceHeader(sequence);
        if (header.m_Size > 0 && !m_pVideoStream->SetCodecPrivate(header)) return;
    } else if (codec == "V_MPEG4/ISO/AVC") {
        const Bytes record = AvcDecoderConfigurationRecord(HostBytes(pictureSet, pictureSetLength), sequence);
        if (!m_pVideoStream->SetCodecPrivate({record.data(), record.size()})) return;
    } else {
        return;
    }
    RewriteTracks();
}

// ---- the front of the file

std::int32_t ContainerMuxer::WriteBeginInfo() {
    // What can fail comes first. Two entries are added here, three when the file is closed.
    KeepSpareSeekEntries(5);
    m_Info.m_MuxingApp.Set(L"Tarnwell Matroska Muxer");
    EBML header{0x1A45DFA3};
    m_Profile.m_SetVersions(header);
    header.m_DocType.Set(m_VideoParam.fourCC == MakeFourCC("VP8 ") ? "webm" : "matroska");

    m_pFile->Seek(0, SEEK_SET);
    Append(header);

    m_SegmentPos = m_EndPos;
    Append(Segment{0, kSegmentId});
    m_SegmentDataPos = m_EndPos;
    const Void reserved{kReservedPayload, kVoidId};
    m_ReservedSize = static_cast<std::int64_t>(reserved.Size(true));
    Append(reserved);

    AddSeekEntry(m_SeekHead, kInfoId);
    m_InfoPos = m_EndPos;
    m_Info.m_TimecodeScale.Set(1000000);
    m_Info.m_Duration.Set(0.0F); // of its final width, so that the Info keeps its size
    m_Info.m_DateUTC.Set(DateUTC());
    Append(m_Info);

    AddSeekEntry(m_SeekHead, kTracksId); // which follow at once
    m_Cluster.m_Timecode.Set(0);
    return 1;
}

void ContainerMuxer::WriteTracks() {
    m_Tracks.m_TrackEntries.clear();
    for (const auto& stream : m_Streams) m_Tracks.m_TrackEntries.push_back(stream->m_TrackEntry);
    m_TracksPos = m_EndPos;
    Append(m_Tracks);
    m_CueTrack = m_pVideoStream != nullptr ? kVideoTrack : kAudioTrack;
    for (const auto& stream : m_Streams) stream->m_HeaderInFile = true;
    m_TracksWritten = true;
}

void ContainerMuxer::RewriteTracks() {
    if (!m_TracksWritten || m_pFile == nullptr) return;
    // Everything has kept its size, so that no memory is asked for.
    auto entry = m_Tracks.m_TrackEntries.begin();
    for (const auto& stream : m_Streams) *entry++ = stream->m_TrackEntry;
    Overwrite(m_TracksPos, m_Tracks);
    SeekToEnd();
}

// ---- interleaving

std::int32_t ContainerMuxer::WritePacket() {
    if (m_pFile == nullptr) return 0;
    const std::int64_t entry = m_EndPos;
    if (!m_HeaderWritten) m_HeaderWritten = WriteBeginInfo() != 0;
    while (TrackStream* const stream = EarliestStream()) {
        if (!m_TracksWritten) WriteTracks();
        PlaceHead(*stream);
    }
    return static_cast<std::int32_t>(m_EndPos - entry);
}

TrackStream* ContainerMuxer::EarliestStream() const {
    TrackStream* earliest = nullptr;
    std::int64_t smallest = std::numeric_limits<std::int64_t>::max();
    for (const auto& stream : m_Streams) {
        // On equal times the stream that comes first in the list wins.
        const BlockBase* const head = stream->Head();
        if (head != nullptr && head->m_Timecode < smallest) {
            smallest = head->m_Timecode;
            earliest = stream.get();
        }
    }
    return earliest;
}

// Moves the stream's oldest block into the cluster of its time. Whatever can fail comes first, so that a block is
// either still queued or placed.
void ContainerMuxer::PlaceHead(TrackStream& stream) {
    BlockBase& block = *stream.Head();
    if (m_NoBlockYet) {
        m_FirstBlockTime = block.m_Timecode;
        m_NoBlockYet = false;
    }
    const std::int64_t time = block.m_Timecode - m_FirstBlockTime;
    const std::int64_t stopTime = block.m_StopTime - m_FirstBlockTime;
    stream.m_WrittenTime = ToHostTicks(time);
    if (time < kEarliestBlockTime) {
        stream.DropHead();
        return;
    }
    OpenClusterFor(time);
    if (block.m_TrackNumber.m_Length == m_CueTrack) {
        if (CueIsDue(time) && stream.HeadMayBeCued()) AddCuePoint(time, m_CueBlockNumber + 1);
        ++m_CueBlockNumber;
    }
    if (m_Info.m_Duration.m_Value <= static_cast<float>(stopTime)) m_Info.m_Duration.Set(static_cast<float>(stopTime));
    m_LastWriteTime = ToHostTicks(time);
    block.m_Timecode = time - static_cast<std::int64_t>(m_Cluster.m_Timecode.m_Value);
    block.m_StopTime = stopTime;
    stream.MoveHeadTo(m_Cluster);
}

// Clusters span fixed seconds, their last millisecond included. Spans without a block are passed over.
void ContainerMuxer::OpenClusterFor(std::int64_t time) {
    const auto clusterTime = static_cast<std::int64_t>(m_Cluster.m_Timecode.m_Value);
    if (time <= clusterTime + kClusterSpan) return;
    if (ClusterHasBlocks()) {
        KeepSpareSeekEntries(4);
        WriteCluster();
    }
    const std::int64_t spans = (time - clusterTime - 1) / kClusterSpan;
    m_Cluster.m_Timecode.Set(static_cast<std::uint64_t>(clusterTime + spans * kClusterSpan));
    for (const auto& stream : m_Streams) stream->TakeBack(m_Cluster);
    m_Cluster.m_BlockGroups.clear(); // of tracks that are no more
    m_Cluster.m_SimpleBlocks.clear();
    m_CueBlockNumber = 0;
}

// As a rule one cue point for each cluster, at its first candidate.
bool ContainerMuxer::CueIsDue(std::int64_t time) const {
    return static_cast<std::int64_t>(SegmentOffset()) != m_LastCueClusterPos || time > m_LastCueTime + kClusterSpan;
}

// The cluster is written when its span closes, so it will begin where the file ends now.
void ContainerMuxer::AddCuePoint(std::int64_t time, std::uint64_t blockNumber) {
    const std::uint64_t position = SegmentOffset();
    CuePoint point{0xBB};
    point.m_CueTime.Set(static_cast<std::uint64_t>(time));
    CueTrackPosition& target = point.m_CueTrackPositions.emplace_back(0xB7);
    target.m_CueTrack.Set(m_CueTrack);
    target.m_CueClusterPosition.Set(position);
    // Counts the cue track's blocks only, deliberately.
    if (ClusterHasBlocks()) target.m_CueBlockNumber.Set(blockNumber);
    m_Cues.m_CuePoints.push_back(std::move(point));
    m_LastCueClusterPos = static_cast<std::int64_t>(position);
    m_LastCueTime = time;
}

void ContainerMuxer::WriteCluster() {
    AddSeekEntry(m_ClusterIndex, kClusterId);
    Append(m_Cluster);
    // What is complete outlives the process, but for the last seconds: a call of the system costs as much as some
    // frames.
    if (m_ClusterIndex.m_Seeks.size() % kClustersToFlush == 0) m_pFile->Flush();
}

void ContainerMuxer::Append(const CID& element) {
    element.Write(this);
    m_EndPos = m_pFile->GetPos();
}

bool ContainerMuxer::Overwrite(std::int64_t position, const CID& element) {
    if (m_pFile->Seek(position, SEEK_SET) != 0) return false;
    m_IsAtEnd = false;
    element.Write(this);
    return true;
}

void ContainerMuxer::SeekToEnd() {
    // A seek fails when what is in the buffer cannot be written: then it is empty, and the next one finds its way.
    if (m_pFile->Seek(0, SEEK_END) == 0 || m_pFile->Seek(0, SEEK_END) == 0) m_IsAtEnd = true;
    // Without a way back nothing more is written: it would go over what is there.
    if (!m_IsAtEnd) m_pFile->Close();
    m_EndPos = m_pFile->GetPos();
}

void ContainerMuxer::AddSeekEntry(MatroskaWriter::Seek& index, unsigned long id) {
    SeekHead& entry = m_SpareSeekEntries.front();
    entry.m_SeekID.m_SeekedID = CID{id};
    entry.m_SeekPosition.Set(SegmentOffset());
    index.m_Seeks.splice(index.m_Seeks.end(), m_SpareSeekEntries, m_SpareSeekEntries.begin());
}

void ContainerMuxer::KeepSpareSeekEntries(std::size_t count) {
    while (m_SpareSeekEntries.size() < count) m_SpareSeekEntries.emplace_back(0x4DBB);
}

// ---- finalisation

// Settles the Duration from the audio; without audio that is 0, which WriteEndInfo may correct.
std::int32_t ContainerMuxer::WriteDuration() {
    std::int64_t latest = 0;
    for (const auto& stream : m_Streams) latest = std::max(latest, stream->m_WrittenTime);
    if (latest == 0) return 1;
    // Rounded to single twice: the sum, and the quotient.
    m_Info.m_Duration.Set(static_cast<float>(static_cast<double>(static_cast<float>(m_AudioDuration)) / 10000.0));
    Overwrite(m_InfoPos, m_Info);
    return 1;
}

std::int32_t ContainerMuxer::WriteEndInfo() {
    SeekToEnd();
    if (ClusterHasBlocks()) WriteCluster();
    if (!m_Cues.m_CuePoints.empty()) {
        AddSeekEntry(m_SeekHead, kCuesId);
        Append(m_Cues);
    }
    if (!m_ClusterIndex.m_Seeks.empty()) {
        AddSeekEntry(m_SeekHead, kSeekHeadId);
        Append(m_ClusterIndex);
    }

    const std::uint64_t segmentSize = SegmentOffset();
    Overwrite(m_SegmentPos, Segment{segmentSize, kSegmentId});

    // The Duration stands unless it is more than a second away from the last block's start.
    constexpr std::int64_t kTolerance = 1000 * kHostTicksPerMs;
    const auto duration = static_cast<std::int64_t>(m_Info.m_Duration.m_Value);
    const std::int64_t difference = WrappingSubtract(m_LastWriteTime, ToHostTicks(duration));
    if (difference > kTolerance || difference < -kTolerance) {
        const std::int64_t corrected = m_LastWriteTime / kHostTicksPerMs + 1; // whole milliseconds
        m_Info.m_Duration.Set(static_cast<float>(corrected));
    }
    Overwrite(m_InfoPos, m_Info);
    WriteSeekHeadAndFiller();
    return 1;
}

// Puts the main seek head over the start of the reserved octets and a Void over the rest.
void ContainerMuxer::WriteSeekHeadAndFiller() {
    std::int64_t rest = m_ReservedSize - static_cast<std::int64_t>(m_SeekHead.Size(true));
    while (rest < 2 && !m_SeekHead.m_Seeks.empty()) { // no room for the smallest Void
        rest += static_cast<std::int64_t>(m_SeekHead.m_Seeks.back().Size(true));
        m_SeekHead.m_Seeks.pop_back();
    }
    if (!Overwrite(m_SegmentDataPos, m_SeekHead)) return;
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
