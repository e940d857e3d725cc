// SPDX-License-Identifier: MIT
// One stream on its way into the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "FrameSource.h"
#include "H264Frames.h"
#include "Plan.h"
#include "Session.h"
#include "TrackDigest.h"

class Track {
public:
    // reader: gives the planned track's frames.
    Track(const PlannedTrack& plan, std::unique_ptr<FrameSource> reader, bool isVideo, bool isWebm, bool isVerified);

    bool HasFrame() const { return m_HasFrame; }
    const Frame& Next() const { return m_Next; }
    const FrameSource& Reader() const { return *m_Reader; }
    bool IsEncoded() const { return m_Plan.m_Encoding.has_value(); }
    // The parameters of the stream or encoder that the frames come from.
    const AVCodecParameters& SourceParameters() const;
    const PlannedTrack& Plan() const { return m_Plan; }
    TrackDigest& Digest() { return m_Digest; }
    bool SlicesWereSplit() const { return m_SlicesWereSplit; }
    // For sound only: a file has one set-up per track, while pictures carry changed set-up data in their frames.
    bool SetupHasChanged() const { return m_SetupHasChanged; }
    // For H.264, before the first frame is sent: the parameter sets for the file's set-up data.
    KnownSets FirstSets() const;
    // Whether the file's frames are H.264 units with length prefixes.
    bool HasUnits() const;

    // The time of the next frame's block, 100 ns.
    std::int64_t Time() const { return m_Plan.m_Choice.m_DecodeTimes ? m_Next.m_Decode : m_Next.m_Presentation; }

    void Advance() { m_HasFrame = m_Reader->Next(m_Next); }
    // To be called instead of Send for a frame that has no place in the file.
    void LeaveOut();
    int LeftOut() const { return m_LeftOut; }
    // To be called instead of Send and Advance for a frame before the first picture that can be decoded.
    void LeaveOutInFront();
    // Removes the rest of a truncated picture from the start of the next frame.
    void CutFront();
    int InFront() const { return m_InFront; }
    std::int64_t LengthInFront() const { return m_LengthInFront; } // 100 ns
    // Whether the next picture needs pictures before the first one sent.
    bool IsLeading() const { return m_Begin && m_Next.m_Presentation < *m_Begin; }
    // Whether its frames go to the plug-in as H.264 with length prefixes.
    bool IsWithLengths() const { return m_Plan.m_Choice.m_Framing == Framing::Lengths; }

    // Hands the next frame to the plug-in, its times moved by shift. Returns whether it becomes a block.
    bool Send(HostCalls& host, void* handle, std::int64_t shift);

private:
    // Notes a block that the file must hold.
    void Expect(std::int64_t time, bool isKey, const std::uint8_t* data, std::size_t size);
    void BeginBlock(std::int64_t time, bool isKey);
    void ExpectKeptUnits(std::int64_t time, const std::vector<NalUnit>& units);

    PlannedTrack m_Plan;
    std::unique_ptr<FrameSource> m_Reader;
    Frame m_Next;
    TrackDigest m_Digest;
    H264Frames m_Frames;
    std::vector<std::uint8_t> m_Setup;
    std::optional<std::int64_t> m_Begin; // presentation of the first picture, if later pictures may need earlier ones
    std::int64_t m_LastTime = -1;
    std::int64_t m_LengthInFront = 0;
    int m_LeftOut = 0;
    int m_InFront = 0;
    bool m_IsVideo;
    bool m_IsWebm;
    bool m_HasFrame = false;
    bool m_SlicesWereSplit = false;
    bool m_SetupHasChanged = false;
    bool m_HasSent = false;
};
