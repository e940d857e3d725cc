// SPDX-License-Identifier: MIT
// One stream on its way into the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Frame.h"
#include "H264Frames.h"
#include "Plan.h"
#include "Session.h"
#include "TrackDigest.h"
#include "TrackReader.h"

class Track {
public:
    // source: of the planned track's file.
    Track(const PlannedTrack& plan, std::shared_ptr<PacketSource> source, bool isVideo, bool isWebm, bool isVerified);

    bool HasFrame() const { return m_HasFrame; }
    const Frame& Next() const { return m_Next; }
    const TrackReader& Reader() const { return m_Reader; }
    const PlannedTrack& Plan() const { return m_Plan; }
    TrackDigest& Digest() { return m_Digest; }
    bool SlicesWereSplit() const { return m_SlicesWereSplit; }
    // Of sound: a file has one set of it for each track. Pictures carry theirs with them.
    bool SetupHasChanged() const { return m_SetupHasChanged; }
    // Of H.264.
    const KnownSets& Sets() const { return m_Frames.Sets(); }
    // Whether the file's frames are units of H.264 behind lengths.
    bool HasUnits() const;

    // Of the next frame's block, 100 ns.
    std::int64_t Time() const { return m_Plan.m_Choice.m_DecodeTimes ? m_Next.m_Decode : m_Next.m_Presentation; }

    void Advance() { m_HasFrame = m_Reader.Next(m_Next); }
    // Instead of sending the next frame, which cannot have its place in the file.
    void LeaveOut();
    int LeftOut() const { return m_LeftOut; }
    // Instead of sending the next frame and advancing: it cannot be decoded with what comes behind it alone.
    void LeaveOutInFront();
    // Takes what is in front of the picture out of the next frame: the rest of one that was cut off.
    void CutFront();
    int InFront() const { return m_InFront; }
    std::int64_t LengthInFront() const { return m_LengthInFront; } // 100 ns
    // Whether the next picture needs some that are in front of the first one sent.
    bool IsLeading() const { return m_Begin && m_Next.m_Presentation < *m_Begin; }
    // Whether its frames are H.264 with lengths in front of all units.
    bool IsWithLengths() const { return m_Plan.m_Choice.m_Framing == Framing::Lengths; }

    // Hands the next frame to the plug-in, its times moved by shift. Returns whether it becomes a block.
    bool Send(HostCalls& host, void* handle, std::int64_t shift);

private:
    // Notes a block that the file must hold.
    void Expect(std::int64_t time, bool isKey, const std::uint8_t* data, std::size_t size);
    void BeginBlock(std::int64_t time, bool isKey);
    void ExpectKeptUnits(std::int64_t time, const std::vector<NalUnit>& units);

    PlannedTrack m_Plan;
    bool m_IsVideo;
    bool m_IsWebm;
    TrackReader m_Reader;
    Frame m_Next;
    bool m_HasFrame = false;
    TrackDigest m_Digest;
    H264Frames m_Frames;
    std::int64_t m_LastTime = -1;
    bool m_SlicesWereSplit = false;
    std::vector<std::uint8_t> m_Setup;
    bool m_SetupHasChanged = false;
    int m_LeftOut = 0;
    int m_InFront = 0;
    std::int64_t m_LengthInFront = 0;
    bool m_HasSent = false;
    std::optional<std::int64_t> m_Begin; // when the first picture is presented, where some behind it may need others
};
