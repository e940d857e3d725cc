// SPDX-License-Identifier: MIT
#include "MKVMuxer.h"

#include <cstring>

#include "NalUnits.h"

using namespace MatroskaWriter;

namespace {

// Matroska's header names no EBML versions, deliberately: their defaults hold.
const MuxerProfile kMatroskaProfile = {5, [](EBML& header) {
                                           header.m_DocTypeVersion.Set(1);
                                           header.m_DocTypeReadVersion.Set(1);
                                       }};

} // namespace

MKVMuxer::MKVMuxer() : ContainerMuxer(kMatroskaProfile) {}

std::uint32_t MKVMuxer::CreateMediaFile(const wchar_t* path, const EncodeParam* param, const MuxParam* muxParam) {
    if (param != nullptr && param->videoParam.fourCC == MakeFourCC("H264")) {
        m_IsH264 = 1;
        m_NalBufferUsed = 0;
        m_NalBufferSize = 0;
        m_pNalBuffer.reset();
    }
    CloseMediaFile();
    if (param == nullptr || !OpenMediaFile(path, *param)) return 0;
    if (param->disableVideo == 0) {
        m_pVideoStream = AddTrack(&param->videoParam, muxParam);
    } else {
        m_VideoStarted = 1;
    }
    if (param->disableAudio == 0) {
        m_pAudioStream = AddTrack(&param->audioParam);
    } else {
        m_AudioStarted = 1;
    }
    return 1;
}

int MKVMuxer::WriteVideoPacket(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    if (m_FirstVideoFrame != 0) {
        m_FirstVideoFrame = 0;
        if (m_IsH264 != 0 && FindStartCode(frame->videoData, frame->videoSize) != nullptr) m_LosslessH264 = 1;
    }
    const FourCC fourCC = m_VideoParam.fourCC;
    if (fourCC == MakeFourCC("N264") || fourCC == MakeFourCC("A264") || fourCC == MakeFourCC("I264")) {
        return AfterVideo(WriteN264Packet(frame));
    }
    if (m_LosslessH264 != 0) return AfterVideo(WriteLossless264Packet(frame));
    return AfterVideo(QueueVideo(*frame, frame->videoData, frame->videoSize, frame->frameFlags));
}

int MKVMuxer::WriteLossless264Packet(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    m_NalBufferUsed = 0;
    if (HostBytes(frame->videoData, frame->videoSize).m_Size == 0) return 0;
    if (frame->videoSize > m_NalBufferSize) {
        m_NalBufferSize = 0;
        m_pNalBuffer.reset(); // before the new buffer is allocated: two large frames need not fit in memory
        const auto size = static_cast<std::size_t>(frame->videoSize);
        m_pNalBuffer.reset(new unsigned char[size]);
        m_NalBufferSize = frame->videoSize;
    }
    const int kept = SplitNalUnits(
        frame->videoData, frame->videoSize,
        [](unsigned type) {
            return type == kNalSlice || type == kNalIdrSlice || type == kNalSequenceSet || type == kNalPictureSet ||
                   type == kNalAccessUnitDelimiter;
        },
        [this](unsigned, const unsigned char* unit, int length) {
            std::memcpy(m_pNalBuffer.get() + m_NalBufferUsed, unit, static_cast<std::size_t>(length));
            m_NalBufferUsed += length;
        });
    QueueVideo(*frame, m_pNalBuffer.get(), m_NalBufferUsed, frame->frameFlags);
    return kept;
}
