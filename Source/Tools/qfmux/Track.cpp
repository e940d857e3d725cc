#include "Track.h"

#include <utility>

#include "TimeLine.h"

Track::Track(const PlannedTrack& plan, std::shared_ptr<PacketSource> source, bool isVideo, bool isWebm, bool isVerified)
    : m_Plan(plan), m_IsVideo(isVideo), m_IsWebm(isWebm),
      m_Reader(std::move(source), plan.m_pStream->index, plan.m_Choice.m_Filters), m_Digest(isVerified) {
    Advance();
}

void Track::Send(HostCalls& host, void* handle, std::int64_t shift) {
    AVPacket& packet = *m_Next.m_Packet;
    MEDIA_FRAME frame{};
    frame.timestamp = Time() + shift;
    frame.duration = m_Next.m_Duration;
    if (!m_IsVideo) {
        if (m_Setup.empty()) m_Setup = m_Reader.SetupData();
        m_SetupHasChanged = m_SetupHasChanged || m_Reader.SetupData() != m_Setup;
        frame.audioData = packet.data;
        frame.audioSize = packet.size;
        Expect(frame.timestamp, true, packet.data, static_cast<std::size_t>(packet.size));
        host.WriteAudioPacket(handle, frame, nullptr);
        return;
    }
    frame.frameFlags = m_Next.m_Key ? 1 : 0;
    if (m_Plan.m_Choice.m_Framing == Framing::AsTheyAre) {
        frame.videoData = packet.data;
        frame.videoSize = packet.size;
        Expect(frame.timestamp, m_Next.m_Key, packet.data, static_cast<std::size_t>(packet.size));
        host.WriteVideoPacket(handle, frame);
        return;
    }
    const std::vector<QfHost::NalUnit> units = QfHost::SplitUnits(packet.data, static_cast<std::size_t>(packet.size));
    std::vector<std::uint8_t> rewritten = QfHost::WithLongStartCodes(units);
    frame.videoData = rewritten.data();
    frame.videoSize = static_cast<std::int32_t>(rewritten.size());
    if (m_IsWebm && m_Plan.m_Choice.m_Framing == Framing::StartCodes) { // no start code is made a length there
        Expect(frame.timestamp, m_Next.m_Key, rewritten.data(), rewritten.size());
    } else {
        ExpectUnits(frame.timestamp, units);
    }
    host.WriteVideoPacket(handle, frame);
}

void Track::Expect(std::int64_t time, bool isKey, const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    BeginBlock(time, isKey);
    m_Digest.Octets(data, size);
}

// In the Matroska formats a block is no key frame when it refers to the one before, which a key frame of the same time
// does too.
void Track::BeginBlock(std::int64_t time, bool isKey) {
    const bool refers = (!isKey || time == m_LastTime) && m_LastTime >= 0;
    m_Digest.Block(ToMilliseconds(time), m_IsWebm ? isKey : !refers);
    m_LastTime = time;
}

void Track::ExpectUnits(std::int64_t time, const std::vector<QfHost::NalUnit>& units) {
    const bool oneBlock = m_Plan.m_Choice.m_Framing == Framing::StartCodes;
    int slices = 0;
    bool begun = false;
    for (const QfHost::NalUnit& unit : units) {
        if (oneBlock ? !unit.IsKept() : !unit.IsSlice()) continue;
        if (unit.IsSlice()) ++slices;
        if (!oneBlock) BeginBlock(time, unit.Type() == 5);
        if (oneBlock && !begun) BeginBlock(time, m_Next.m_Key);
        begun = true;
        const std::uint8_t length[4] = {
            static_cast<std::uint8_t>(unit.m_Size / 0x1000000), static_cast<std::uint8_t>(unit.m_Size / 0x10000),
            static_cast<std::uint8_t>(unit.m_Size / 0x100), static_cast<std::uint8_t>(unit.m_Size)};
        m_Digest.Octets(length, sizeof length);
        m_Digest.Octets(unit.m_pData, unit.m_Size);
    }
    m_SlicesWereSplit = m_SlicesWereSplit || (!oneBlock && slices > 1);
}
