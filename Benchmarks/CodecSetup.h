// SPDX-License-Identifier: MIT
// Set-up data that the peers need for a workload's codecs.
#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "Writer.h"

struct CodecSetup {
    using Octets = std::vector<unsigned char>;

    struct Codec {
        const char* m_MatroskaID = nullptr;
        Octets m_Private;
        int m_AvCodecID = 0;
        Octets m_AvExtradata; // for H.264 in the form of the frames
    };

    explicit CodecSetup(const WorkloadKind& kind) {
        const std::string audio = kind.m_AudioCodec;
        if (kind.m_Framing != Framing::None) {
            // AVCDecoderConfigurationRecord (ISO/IEC 14496-15): profile and level, lengths of 4 octets, one set each.
            Octets record = {1, kSequenceSet[1], kSequenceSet[2], kSequenceSet[3], 0xFF, 0xE1, 0, sizeof kSequenceSet};
            Append(record, kSequenceSet);
            Append(record, {1, 0, sizeof kPictureSet});
            Append(record, kPictureSet);
            m_Video = {"V_MPEG4/ISO/AVC", record, AV_CODEC_ID_H264, record};
            if (kind.m_Framing == Framing::StartCodes) {
                Octets sets = {0, 0, 0, 1};
                Append(sets, kSequenceSet);
                Append(sets, {0, 0, 0, 1});
                Append(sets, kPictureSet);
                m_Video.m_AvExtradata = sets;
            }
        } else if (kind.m_FrameRate != 0) {
            m_Video = {"V_VP8", {}, AV_CODEC_ID_VP8, {}};
        }
        if (audio == "AAC ") {
            const Octets configuration(std::begin(kAacConfiguration), std::end(kAacConfiguration));
            m_Audio = {"A_AAC", configuration, AV_CODEC_ID_AAC, configuration};
        } else if (audio == "VBIS") {
            const Octets headers(std::begin(kVorbisHeaders), std::end(kVorbisHeaders));
            m_Audio = {"A_VORBIS", headers, AV_CODEC_ID_VORBIS, headers};
        } else {
            m_Audio = {"A_MPEG/L3", {}, AV_CODEC_ID_MP3, {}};
        }
    }

    Codec m_Video;
    Codec m_Audio;

private:
    template <std::size_t N>
    static void Append(Octets& target, const unsigned char (&source)[N]) {
        target.insert(target.end(), source, source + N);
    }
};
