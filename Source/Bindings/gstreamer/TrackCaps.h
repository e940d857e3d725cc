// SPDX-License-Identifier: MIT
// The caps of the sink's pads, and the track that a stream's caps describe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "qf_host.h"

// A track as the host library takes it.
struct TrackCaps {
    std::string m_Codec;                                   // its name in qf_host.h
    std::vector<std::uint8_t> m_Setup;                     // the codec's set-up data; empty when it is in the frames
    std::vector<std::vector<std::uint8_t>> m_FirstPackets; // header packets that go in front of the frames
    int m_Framing = QF_FRAMING_AUTO;
    int m_LengthSize = 0;
    // of video
    std::int32_t m_Width = 0;
    std::int32_t m_Height = 0;
    double m_FrameRate = 0;
    std::int32_t m_AspectX = 0; // aspect ratio of the picture; 0 for square pixels
    std::int32_t m_AspectY = 0;
    // of sound
    std::int32_t m_SampleRate = 0;
    std::int32_t m_Channels = 0;
    std::int32_t m_BitsPerSample = 0;

    bool operator==(const TrackCaps& other) const;
    // Adds the track to the job. Returns QF_OK or the library's error.
    int AddTo(qf_job* job, int track) const;
};

// The caps that a pad of that kind accepts.
const char* CapsText(int track);

// Returns nothing when the caps lack a value that the track needs; reason then names it.
std::optional<TrackCaps> ReadCaps(int track, const GstCaps* caps, std::string& reason);
