// SPDX-License-Identifier: MIT
#include "TrackSetup.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "VorbisHeaders.h"

VideoParam VideoParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.Reader().Parameters();
    VideoParam video{};
    video.fourCC = track.Plan().m_Choice.m_FourCC;
    video.width = parameters.width;
    video.height = parameters.height;
    video.frameRate = track.Reader().FrameRate();
    video.bitCount = 24;
    return video;
}

AudioParam AudioParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.Reader().Parameters();
    AudioParam audio{};
    audio.fourCC = track.Plan().m_Choice.m_FourCC;
    audio.sampleRate = parameters.sample_rate;
    audio.channels = parameters.ch_layout.nb_channels;
    const int bits = std::max(parameters.bits_per_coded_sample, av_get_bits_per_sample(parameters.codec_id));
    audio.bitsPerSample = bits > 0 ? bits : 16;
    return audio;
}

void SendSetup(HostCalls& host, void* handle, const std::optional<Track>& video, const std::optional<Track>& audio) {
    if (video) {
        const std::vector<std::uint8_t>& setup = video->Reader().SetupData();
        const AVCodecID codec = video->Reader().Parameters().codec_id;
        if (codec == AV_CODEC_ID_H264) {
            const KnownSets sets = video->FirstSets();
            host.WritezXPSData(handle, sets.Picture(), sets.Sequence());
            // The plug-in assumes start-code form if the first frame contains 00 00 00 01, for example as the length of
            // a unit of one octet. It examines only the first frame and keeps nothing of an empty frame.
            std::uint8_t none = 0;
            MEDIA_FRAME empty{};
            empty.videoData = &none;
            if (video->IsWithLengths()) host.WriteVideoPacket(handle, empty);
        } else if (codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO) {
            host.WritezXPSData(handle, {}, setup);
        }
    }
    if (audio) {
        const std::vector<std::uint8_t>& setup = audio->Reader().SetupData();
        const AVCodecID codec = audio->Reader().Parameters().codec_id;
        if (codec == AV_CODEC_ID_AAC) host.WriteVosData(handle, setup);
        if (codec == AV_CODEC_ID_VORBIS) {
            host.WriteVosData(handle, QfHost::LaceVorbisHeaders(QfHost::SplitVorbisHeaders(setup)));
        }
    }
}
