// SPDX-License-Identifier: MIT
#include "HostCallRecords.h"

#include <cstring>

namespace {

template <class Record>
Record FilledWith(const Octets& octets) {
    Record record{};
    FillWith(octets, &record, sizeof record);
    return record;
}

} // namespace

EncodeParam JobOf(const HostCall& call) {
    auto job = FilledWith<EncodeParam>(call.hostOctets);
    const Model::EncodeParam& told = *call.encodeParam;
    job.videoParam.fourCC = told.videoParam.fourCC;
    job.videoParam.width = told.videoParam.width;
    job.videoParam.height = told.videoParam.height;
    job.videoParam.frameRate = told.videoParam.frameRate;
    job.videoParam.bitCount = told.videoParam.bitCount;
    job.audioParam.fourCC = told.audioParam.fourCC;
    job.audioParam.sampleRate = told.audioParam.sampleRate;
    job.audioParam.channels = told.audioParam.channels;
    job.audioParam.bitsPerSample = told.audioParam.bitsPerSample;
    job.disableVideo = told.disableVideo;
    job.disableAudio = told.disableAudio;
    job.formatFourCC = told.formatFourCC;
    return job;
}

MuxParam OptionsOf(const HostCall& call) {
    static_assert(sizeof(MuxParam) == sizeof(Model::MuxParam));
    MuxParam options;
    std::memcpy(&options, &call.muxParam, sizeof options);
    return options;
}

MEDIA_FRAME FrameOf(const HostCall& call) {
    auto frame = FilledWith<MEDIA_FRAME>(call.hostOctets);
    frame.timestamp = call.frame.timestamp;
    frame.duration = call.frame.duration;
    if (call.kind == HostCall::Kind::WriteVideoPacket) frame.frameFlags = call.frame.frameFlags;
    return frame;
}
