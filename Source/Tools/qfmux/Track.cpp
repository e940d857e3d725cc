// SPDX-License-Identifier: MIT
#include "Track.h"

#include <algorithm>
#include <utility>

#include "TimeLine.h"

Track::Track(const PlannedTrack& plan, std::unique_ptr<FrameSource> reader, bool isVideo, bool isWebm, bool isVerified)
    : m_Plan(plan), m_Reader(std::move(reader)), m_Digest(isVerified),
      m_Frames(m_Reader->Parameters().codec_id == AV_CODEC_ID_H264 ? m_Reader->SetupData()
                                                                   : std::vector<std::uint8_t>()),
      m_IsVideo(isVideo), m_IsWebm(isWebm) {
    Advance();
}

const AVCodecParameters& Track::SourceParameters() const {
    return IsEncoded() ? m_Reader->Parameters() : *m_Plan.m_pStream->codecpar;
}

bool Track::HasUnits() const {
    const Framing framing = m_Plan.m_Choice.m_Framing;
    // In these formats the plug-in does not turn start codes into lengths.
    if (m_IsWebm) return framing == Framing::Lengths;
    return framing != Framing::AsTheyAre;
}

// Encoders may have them in their frames alone.
KnownSets Track::FirstSets() const {
    KnownSets sets = m_Frames.Sets();
    sets.Note(m_Next.m_Units);
    return sets;
}

void Track::LeaveOut() {
    ++m_LeftOut;
    m_Frames.LeaveOut(m_Next);
}

void Track::LeaveOutInFront() {
    ++m_InFront;
    m_LengthInFront += m_Next.m_Duration;
    m_Frames.LeaveOut(m_Next);
    Advance();
}

void Track::CutFront() {
    AVPacket& packet = *m_Next.m_Packet;
    const auto front = static_cast<int>(m_Next.m_Access.m_Front);
    if (std::any_of(packet.data, packet.data + front, [](std::uint8_t octet) { return octet != 0; })) {
        ++m_InFront;
        m_LengthInFront += m_Next.m_Duration;
    }
    packet.data += front;
    packet.size -= front;
    m_Next.m_Access.m_Front = 0;
}

bool Track::Send(HostCalls& host, void* handle, std::int64_t shift) {
    AVPacket& packet = *m_Next.m_Packet;
    const auto packetSize = static_cast<std::size_t>(packet.size);
    MEDIA_FRAME frame{};
    frame.timestamp = Time() + shift;
    frame.duration = m_Next.m_Duration;
    if (!m_IsVideo) {
        if (m_Setup.empty()) m_Setup = m_Reader->SetupData();
        m_SetupHasChanged = m_SetupHasChanged || m_Next.m_IsOtherSound || m_Reader->SetupData() != m_Setup;
        frame.audioData = packet.data;
        frame.audioSize = packet.size;
        Expect(frame.timestamp, true, packet.data, packetSize);
        host.WriteAudioPacket(handle, frame, nullptr);
        return packetSize > 0;
    }
    if (!m_HasSent && !m_Next.m_Access.m_IsClosed) m_Begin = m_Next.m_Presentation;
    m_HasSent = true;
    const bool isKey = m_Next.m_Access.m_IsKey;
    frame.frameFlags = isKey ? 1 : 0;
    std::vector<std::uint8_t> rewritten;
    if (m_Plan.m_Choice.m_Framing == Framing::AsTheyAre) {
        Expect(frame.timestamp, isKey, packet.data, packetSize);
        frame.videoData = packet.data;
        frame.videoSize = packet.size;
    } else if (IsWithLengths()) {
        m_Frames.Take(m_Next);
        if (m_Frames.Units().empty()) return false;
        frame.videoData = m_Frames.Data();
        frame.videoSize = static_cast<std::int32_t>(m_Frames.Size());
        BeginBlock(frame.timestamp, isKey);
        for (const NalUnit& unit : m_Frames.Units()) m_Digest.Unit(unit);
    } else {
        rewritten = QfHost::WithLongStartCodes(m_Next.m_Units);
        frame.videoData = rewritten.data();
        frame.videoSize = static_cast<std::int32_t>(rewritten.size());
        if (HasUnits()) {
            ExpectKeptUnits(frame.timestamp, m_Next.m_Units);
        } else {
            Expect(frame.timestamp, isKey, rewritten.data(), rewritten.size());
        }
    }
    host.WriteVideoPacket(handle, frame);
    return frame.videoSize > 0;
}

void Track::Expect(std::int64_t time, bool isKey, const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    BeginBlock(time, isKey);
    m_Digest.Octets(data, size);
}

// In the Matroska formats a block that refers to the block before it is no key frame. A key frame with the time of the
// block before it has such a reference too.
void Track::BeginBlock(std::int64_t time, bool isKey) {
    const bool refers = (!isKey || time == m_LastTime) && m_LastTime >= 0;
    m_Digest.Block(ToMilliseconds(time), m_IsWebm ? isKey : !refers);
    m_LastTime = time;
}

// For a frame in start-code form, which may become several blocks.
void Track::ExpectKeptUnits(std::int64_t time, const std::vector<NalUnit>& units) {
    const bool oneBlock = m_Plan.m_Choice.m_Framing == Framing::StartCodes;
    int slices = 0;
    bool begun = false;
    for (const NalUnit& unit : units) {
        if (oneBlock ? !unit.IsKept() : !unit.IsSlice()) continue;
        if (unit.IsSlice()) ++slices;
        if (!oneBlock) BeginBlock(time, unit.Type() == 5);
        if (oneBlock && !begun) BeginBlock(time, m_Next.m_Access.m_IsKey);
        begun = true;
        m_Digest.Unit(unit);
    }
    m_SlicesWereSplit = m_SlicesWereSplit || (!oneBlock && slices > 1);
}
