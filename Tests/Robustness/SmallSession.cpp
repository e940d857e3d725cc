// SPDX-License-Identifier: MIT
#include "SmallSession.h"

#include "FakeEnvironment.h"

namespace {

constexpr std::int64_t kFrame = kSecond / 4;
constexpr int kLateSetUp = 15; // the call, after six frames of each kind
constexpr int kLargeFrame = 3; // one frame that no stdio buffer holds

} // namespace

SmallSession::~SmallSession() {
    if (m_pHandle != nullptr) m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
}

SmallSession::Kind SmallSession::KindOf(int number) const {
    if (number == 0) return Kind::Create;
    if (number == 1 || number == kLateSetUp) return Kind::SetUpVideo;
    if (number == 2 || number == kLateSetUp + 1) return Kind::SetUpAudio;
    if (number == Calls() - 1) return Kind::Close;
    return (number < kLateSetUp ? number - 3 : number - 5) % 2 == 0 ? Kind::Video : Kind::Audio;
}

int SmallSession::FrameOf(int number) const { return (number < kLateSetUp ? number - 3 : number - 5) / 2; }

bool SmallSession::ReturnsNothing(int number) const {
    const Kind kind = KindOf(number);
    return kind == Kind::SetUpVideo || kind == Kind::SetUpAudio || kind == Kind::Close;
}

void SmallSession::Prepare(int number) {
    const auto mark = static_cast<unsigned char>(FrameOf(number));
    m_Kind = KindOf(number);
    m_Record = MEDIA_FRAME{};
    m_Record.timestamp = mark * kFrame;
    m_Record.duration = static_cast<std::int32_t>(kFrame);
    m_Record.frameFlags = mark % 8 == 0 ? kKey : kDelta;
    switch (m_Kind) {
    case Kind::Create:
        m_Param = MakeJob(m_Job.m_Format, m_Job.m_Video, m_Job.m_Audio);
        m_Param.disableVideo = m_Job.m_Video == 0 ? 1 : 0;
        m_Param.disableAudio = m_Job.m_Audio == 0 ? 1 : 0;
        m_WidePath = m_Path.wstring();
        FakeEnvironment::SetRand({7, 8});
        break;
    case Kind::SetUpVideo:
        m_Octets = {0x68, mark, 0x01};
        m_SecondOctets = {0x67, 0x42, 0x00, 0x0D, mark, 0x22};
        break;
    case Kind::SetUpAudio:
        m_Octets = {mark, 0x10};
        break;
    case Kind::Video:
        m_Octets = Hex("00 00 00 01 65 01 02 03 04 05 00 00 00 01 41 06 07 08") + Octets{mark, 0xFE, mark};
        if (mark == kLargeFrame) m_Octets.resize(270000, 0x77);
        m_Record.videoData = m_Octets.data();
        m_Record.videoSize = static_cast<std::int32_t>(m_Octets.size());
        break;
    case Kind::Audio:
        m_Octets.assign(60, static_cast<unsigned char>(0x80 + mark));
        m_Record.audioData = m_Octets.data();
        m_Record.audioSize = 60;
        break;
    case Kind::Close:
        break;
    }
}

int SmallSession::Make() {
    int sizes[] = {3, 10, 20, 30};
    const auto size = static_cast<int>(m_Octets.size());
    switch (m_Kind) {
    case Kind::Create:
        m_pHandle = m_Plugin.CreateMediaFile(m_WidePath.c_str(), &m_Param);
        return m_pHandle != nullptr ? 1 : 0;
    case Kind::SetUpVideo:
        m_Plugin.WritezXPSData(m_pHandle, m_Octets.data(), size, m_SecondOctets.data(),
                               static_cast<int>(m_SecondOctets.size()));
        return 1;
    case Kind::SetUpAudio:
        m_Plugin.WriteVosData(m_pHandle, m_Octets.data(), size);
        return 1;
    case Kind::Video:
        return m_Plugin.WriteVideoPacket(m_pHandle, &m_Record);
    case Kind::Audio:
        return m_Plugin.WriteAudioPacket(m_pHandle, &m_Record, sizes);
    case Kind::Close:
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
    }
    return 1;
}

void SmallSession::Run() {
    for (int call = 0; call < Calls(); ++call) Call(call);
}

RobustnessTest::RobustnessTest() {
    FakeEnvironment::SetTime(1704067200); // 2024-01-01 00:00:00 UTC
    FakeEnvironment::SetRand({7, 8});     // whose memory is then there
    *m_Plugin.m_pIsWebm = 0;
    m_Plugin.SetMuxParam(nullptr);
    m_Plugin.GetFileFormats(); // which looks for the host's log, once for all
}

Octets RobustnessTest::Undisturbed(const SmallJob& job, int frames) {
    SmallSession session(m_Plugin, job, m_Directory / "undisturbed", frames);
    session.Run();
    Octets octets = ReadFile(session.Path());
    EXPECT_EQ(Ebml::Describe(Ebml::Check(Ebml::File(octets))), "");
    EXPECT_GT(octets.size(), 4096U);
    return octets;
}

std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}
