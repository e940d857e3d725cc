// SPDX-License-Identifier: MIT
#include "WebmMuxer1.h"

using namespace MatroskaWriter;

namespace {

const MuxerProfile kWebmProfile = {1, [](EBML& header) {
                                       header.m_EBMLVersion.Set(1);
                                       header.m_EBMLReadVersion.Set(1);
                                       header.m_EBMLMaxIDLength.Set(4);
                                       header.m_EBMLMaxSizeLength.Set(8);
                                       header.m_DocTypeVersion.Set(2);
                                       header.m_DocTypeReadVersion.Set(2);
                                   }};

} // namespace

WebmMuxer1::WebmMuxer1() : ContainerMuxer(kWebmProfile) {}

std::uint32_t WebmMuxer1::CreateMediaFile(const wchar_t* path, const EncodeParam* param) {
    CloseMediaFile();
    if (param == nullptr || !OpenMediaFile(path, *param)) return 0;
    if (param->disableVideo == 0) {
        m_pVideoStream = AddTrack(&param->videoParam);
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

int WebmMuxer1::WriteVideoPacket(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    const FourCC fourCC = m_VideoParam.fourCC;
    if (fourCC == MakeFourCC("N264") || fourCC == MakeFourCC("A264")) return AfterVideo(WriteN264Packet(frame));
    return AfterVideo(QueueVideo(*frame, frame->videoData, frame->videoSize, frame->frameFlags));
}
