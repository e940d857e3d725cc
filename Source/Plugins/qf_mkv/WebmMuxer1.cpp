#include "WebmMuxer1.h"

using namespace MatroskaWriter;

void MatroskaStreamWebm::Init(const VideoParam* video) {
    // I264 is a Video-for-Windows code here, deliberately, unlike in the Matroska formats.
    InitVideo(*video, nullptr, video->fourCC == MakeFourCC("I264") ? nullptr : VideoCodecID(video->fourCC));
}

void MatroskaStreamWebm::Init(const AudioParam* audio) {
    InitAudio(*audio);
    m_TrackEntry.m_FlagDefault.Set(1);
    m_TrackEntry.m_FlagLacing.Set(1);
}

void MatroskaStreamWebm::QueueBlock(ByteView frame, std::int64_t start, std::int64_t end, unsigned int keyFrame) {
    SimpleBlock& block = Spare(0xA3);
    block.m_Keyframe = keyFrame;
    FillBlock(block, frame, start, end);
    QueueSpare();
}

const MuxerProfile WebmMuxer1::kProfile = {1, [](EBML& header) {
                                               header.m_EBMLVersion.Set(1);
                                               header.m_EBMLReadVersion.Set(1);
                                               header.m_EBMLMaxIDLength.Set(4);
                                               header.m_EBMLMaxSizeLength.Set(8);
                                               header.m_DocTypeVersion.Set(2);
                                               header.m_DocTypeReadVersion.Set(2);
                                           }};

std::uint32_t WebmMuxer1::CreateMediaFile(const wchar_t* path, const EncodeParam* param) {
    if (param == nullptr || !OpenMediaFile(path, *param)) return 0;
    auto video = param->disableVideo == 0 ? std::make_unique<MatroskaStreamWebm>(&param->videoParam) : nullptr;
    auto audio = param->disableAudio == 0 ? std::make_unique<MatroskaStreamWebm>(&param->audioParam) : nullptr;
    AddTracks(std::move(video), std::move(audio));
    return 1;
}

int WebmMuxer1::WriteVideoPacket(const MEDIA_FRAME* frame) {
    if (m_pVideoStream == nullptr || frame == nullptr) return 0;
    const FourCC fourCC = m_VideoParam.fourCC;
    if (fourCC == MakeFourCC("N264") || fourCC == MakeFourCC("A264")) return AfterVideo(WriteN264Packet(*frame));
    return AfterVideo(QueueVideo(*frame, frame->videoData, frame->videoSize, frame->frameFlags));
}
