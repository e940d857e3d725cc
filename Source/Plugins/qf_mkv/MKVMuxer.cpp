#include "MKVMuxer.h"

#include <cstring>
#include <utility>

#include "NalUnits.h"

using namespace MatroskaWriter;

void MatroskaStream::Init(const VideoParam* video, const MuxParam* mux) {
    InitVideo(*video, mux, VideoCodecID(video->fourCC));
}

void MatroskaStream::Init(const AudioParam* audio) { InitAudio(*audio); }

void MatroskaStream::QueueBlock(ByteView frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) {
    BlockGroup& group = Spare(0xA0);
    group.m_ReferenceBlock.Clear();
    group.m_BlockDuration.Clear();
    if ((keyFrame == 0 || start == m_LastStart) && m_LastStart >= 0) {
        // To the nearest millisecond, halves away from zero.
        const std::int64_t distance = WrappingSubtract(m_LastStart, start);
        const std::int64_t half = distance >= 0 ? kHostTicksPerMs / 2 : -kHostTicksPerMs / 2;
        group.m_ReferenceBlock.Set(WrappingAdd(distance, half) / kHostTicksPerMs);
    }
    constexpr std::uint64_t kSubtitles = 17; // no track of this plug-in yet
    if (m_TrackEntry.m_TrackType.m_Value == kSubtitles) {
        group.m_BlockDuration.Set(static_cast<std::uint64_t>(ToMilliseconds(WrappingSubtract(end, start))));
    }
    FillBlock(group.m_Block, frame, start, end);
    QueueSpare();
}

// Matroska's header names no EBML versions, deliberately: their defaults hold.
const MuxerProfile MKVMuxer::kProfile = {5, [](EBML& header) {
                                             header.m_DocTypeVersion.Set(1);
                                             header.m_DocTypeReadVersion.Set(1);
                                         }};

std::uint32_t MKVMuxer::CreateMediaFile(const wchar_t* path, const EncodeParam* param, const MuxParam* muxParam) {
    if (param == nullptr || !OpenMediaFile(path, *param)) return 0;
    auto video = param->disableVideo == 0 ? std::make_unique<MatroskaStream>(&param->videoParam, muxParam) : nullptr;
    auto audio = param->disableAudio == 0 ? std::make_unique<MatroskaStream>(&param->audioParam) : nullptr;
    AddTracks(std::move(video), std::move(audio));
    return 1;
}

int MKVMuxer::WriteVideoPacket(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    const FourCC fourCC = m_VideoParam.fourCC;
    if (m_FirstVideoFrame) {
        m_FirstVideoFrame = false;
        m_LosslessH264 = fourCC == MakeFourCC("H264") && FindStartCode(frame->videoData, frame->videoSize) != nullptr;
    }
    if (fourCC == MakeFourCC("N264") || fourCC == MakeFourCC("A264") || fourCC == MakeFourCC("I264")) {
        return AfterVideo(WriteN264Packet(*frame));
    }
    if (m_LosslessH264) return AfterVideo(WriteLossless264Packet(*frame));
    return AfterVideo(QueueVideo(*frame, frame->videoData, frame->videoSize, frame->frameFlags));
}

int MKVMuxer::WriteLossless264Packet(const MEDIA_FRAME& frame) {
    if (HostBytes(frame.videoData, frame.videoSize).m_Size == 0) return 0;
    m_NalBufferUsed = 0;
    if (frame.videoSize > m_NalBufferSize) {
        m_NalBufferSize = 0;
        m_pNalBuffer.reset(); // before its successor is there: two large frames need not fit in memory
        const auto size = static_cast<std::size_t>(frame.videoSize);
        m_pNalBuffer.reset(new unsigned char[size]);
        m_NalBufferSize = frame.videoSize;
    }
    const int kept = SplitNalUnits(
        frame.videoData, frame.videoSize,
        [](unsigned type) {
            return type == kNalSlice || type == kNalIdrSlice || type == kNalSequenceSet || type == kNalPictureSet ||
                   type == kNalAccessUnitDelimiter;
        },
        [this](unsigned, const unsigned char* unit, int length) {
            std::memcpy(m_pNalBuffer.get() + m_NalBufferUsed, unit, static_cast<std::size_t>(length));
            m_NalBufferUsed += length;
        });
    QueueVideo(frame, m_pNalBuffer.get(), m_NalBufferUsed, frame.frameFlags);
    return kept;
}
