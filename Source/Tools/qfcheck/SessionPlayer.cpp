// SPDX-License-Identifier: MIT
#include "SessionPlayer.h"

#include <algorithm>

#include "EbmlWalker.h"
#include "PinnedEnvironment.h"
#include "TempDirectory.h"

namespace {

using Kind = HostCall::Kind;

// The host's own octets lie between the fields.
void Fill(Record& record, const Octets& hostOctets) {
    FillWith(hostOctets, record.Data(), Interface::SizeOf(record.Type()));
}

void FillJob(Record& record, const HostCall& call) {
    Fill(record, call.hostOctets);
    const Model::EncodeParam& job = *call.encodeParam;
    record.Set("videoParam.fourCC", job.videoParam.fourCC);
    record.Set("videoParam.width", job.videoParam.width);
    record.Set("videoParam.height", job.videoParam.height);
    record.Set("videoParam.frameRate", job.videoParam.frameRate);
    record.Set("videoParam.bitCount", job.videoParam.bitCount);
    record.Set("audioParam.fourCC", job.audioParam.fourCC);
    record.Set("audioParam.sampleRate", job.audioParam.sampleRate);
    record.Set("audioParam.channels", job.audioParam.channels);
    record.Set("audioParam.bitsPerSample", job.audioParam.bitsPerSample);
    record.Set("disableVideo", job.disableVideo);
    record.Set("disableAudio", job.disableAudio);
    record.Set("formatFourCC", job.formatFourCC);
}

Octets OptionOctets(const Model::MuxParam& options) {
    const auto* const octets = reinterpret_cast<const unsigned char*>(&options);
    return {octets, octets + sizeof options};
}

// The part of a buffer that the host's length covers. wholly: a length of 0 or below stands for the whole buffer.
Octets Told(const HostBuffer& buffer, bool wholly = false) {
    if (wholly && buffer.length <= 0) return buffer.octets;
    const std::size_t size = buffer.length > 0 ? static_cast<std::size_t>(buffer.length) : 0;
    return {buffer.octets.begin(),
            buffer.octets.begin() + static_cast<std::ptrdiff_t>(std::min(size, buffer.octets.size()))};
}

std::string Describe(const HostCall& call) {
    std::string text = NameOf(call.kind);
    if (call.kind == Kind::WriteVideoPacket || call.kind == Kind::WriteAudioPacket) {
        text += " of " + Text(call.data.length) + " octets, timestamp " + Text(call.frame.timestamp);
    }
    return text;
}

// The first difference that is not a mere consequence. The tracks and the elements behind them come first, then the
// Info, then the front, whose lengths and positions change with the rest.
std::string Difference(const Octets& expected, const Octets& actual) {
    const Ebml::File wanted(expected);
    const Ebml::File found(actual);
    for (const char* first : {"Segment/Tracks", "Segment/Info"}) {
        const Ebml::Element* const here = wanted.Find(first);
        const Ebml::Element* const there = found.Find(first);
        if (here == nullptr || there == nullptr || here->m_Offset != there->m_Offset) continue;
        Octets behind = actual;
        std::copy_n(expected.begin(), here->m_Offset, behind.begin());
        if (behind != expected) return Ebml::CompareFiles(expected, behind);
    }
    return Ebml::CompareFiles(expected, actual);
}

std::string JobText(const Model::EncodeParam& job) {
    std::string text = CodeText(job.formatFourCC) + " of";
    if (job.disableVideo == 0) text += " " + CodeText(job.videoParam.fourCC);
    if (job.disableVideo == 0 && job.disableAudio == 0) text += " and";
    if (job.disableAudio == 0) text += " " + CodeText(job.audioParam.fourCC);
    return job.disableVideo != 0 && job.disableAudio != 0 ? text + " nothing" : text;
}

} // namespace

unsigned char* SessionPlayer::Memory::Place(const Octets& octets, bool isNull) {
    constexpr unsigned char kGone = 0xDB;
    if (m_pOctets == nullptr || m_Room < octets.size()) {
        m_Room = std::max<std::size_t>(2 * octets.size(), 4096);
        m_pOctets = std::make_unique<GuardedOctets>(Repeated(m_Room, kGone));
    } else {
        std::fill_n(m_pOctets->Data() + m_Room - m_Used, m_Used, kGone);
    }
    m_Used = octets.size();
    std::copy(octets.begin(), octets.end(), m_pOctets->Data() + m_Room - m_Used);
    return isNull ? nullptr : m_pOctets->Data() + m_Room - m_Used;
}

Octets SessionPlayer::Memory::Copy() const {
    const unsigned char* const end = m_pOctets->Data() + m_Room;
    return {end - m_Used, end};
}

SessionPlayer::SessionPlayer(Host& host) : m_Host(host) { PinnedEnvironment::PinZone(); }

void SessionPlayer::Play(const RandomSession& session, const std::string& name) {
    PinnedEnvironment::PinRand(session.randValues);
    PinnedEnvironment::PinTime(session.clock);
    m_pModel = std::make_unique<ReferenceModel>(session.randValues, session.clock);
    m_Slots = {};
    // Clear what the session before left over.
    m_Host.SetMuxParam(nullptr);
    m_Host.CreateMediaFile(nullptr, nullptr);
    const auto* const options = static_cast<const unsigned char*>(m_Host.Data("m_MuxParam"));
    std::size_t number = 0;
    for (const HostCall& call : session.calls) {
        ++number;
        try {
            Make(call);
            const Model::MuxParam& expected = m_pModel->StoredMuxParam();
            RequireEqual(Octets(options, options + sizeof expected), OptionOctets(expected), "m_MuxParam");
            RequireEqual(*m_Host.IsWebm(), m_pModel->IsWebm(), "IsWebm");
        } catch (const Failure& failure) {
            const std::string& job = SlotOf(call).m_Job;
            throw Failure(name + ", " + (job.empty() ? "" : job + ", ") + "call " + Text(number) + ", " +
                          Describe(call) + ": " + failure.what());
        }
    }
}

void SessionPlayer::Make(const HostCall& call) {
    Slot& slot = SlotOf(call);
    if (m_pWatch != nullptr && slot.m_HasFile) m_pWatch(slot.m_File, call);
    switch (call.kind) {
    case Kind::SetClock:
        PinnedEnvironment::PinTime(call.clock);
        m_pModel->SetTime(call.clock);
        break;
    case Kind::SetMuxParam: {
        Record options("MuxParam");
        const Octets octets = OptionOctets(call.muxParam);
        std::copy(octets.begin(), octets.end(), options.Data());
        RequireEqual(m_Host.SetMuxParam(call.nullRecord ? nullptr : &options),
                     m_pModel->SetMuxParam(call.nullRecord ? nullptr : &call.muxParam), "the result");
        break;
    }
    case Kind::CreateMediaFile:
        Create(call, slot);
        break;
    case Kind::WriteVideoPacket:
    case Kind::WriteAudioPacket:
        WriteFrame(call, slot);
        break;
    case Kind::WriteVosData: {
        const Octets data = Told(call.data);
        unsigned char* const place = m_Data.Place(data, call.data.isNull);
        m_Host.WriteVosData(slot.m_pHandle, place, call.data.length);
        Require(m_Data.Copy() == data, "the plug-in wrote into the host's data");
        m_pModel->WriteVosData(slot.m_ModelHandle, place, call.data.length);
        break;
    }
    case Kind::WritezXPSData: {
        const Octets picture = Told(call.data);
        const Octets sequence = Told(call.sequence);
        unsigned char* const pictureSet = m_Data.Place(picture, call.data.isNull);
        unsigned char* const sequenceSet = m_MoreData.Place(sequence, call.sequence.isNull);
        m_Host.WritezXPSData(slot.m_pHandle, pictureSet, call.data.length, sequenceSet, call.sequence.length);
        Require(m_Data.Copy() == picture && m_MoreData.Copy() == sequence, "the plug-in wrote into the host's data");
        m_pModel->WritezXPSData(slot.m_ModelHandle, pictureSet, call.data.length, sequenceSet, call.sequence.length);
        break;
    }
    case Kind::CloseMediaFile:
        Close(slot);
        break;
    }
}

void SessionPlayer::Create(const HostCall& call, Slot& slot) {
    const std::string name = "slot" + std::to_string(call.slot);
    slot.m_File = m_Host.Directory() / (call.path == ReferenceModel::Path::DoesNotOpen ? "none/" + name
                                        : call.path == ReferenceModel::Path::DiscImage ? name + ".iso:x"
                                                                                       : name + ".mkv");
    slot.m_Job = JobText(*call.encodeParam);
    const std::wstring path = slot.m_File.wstring();
    const auto* const begin = reinterpret_cast<const unsigned char*>(path.c_str());
    const unsigned char* const place = m_Data.Place(Octets(begin, begin + (path.size() + 1) * sizeof(wchar_t)),
                                                    call.path == ReferenceModel::Path::Null);
    FillJob(m_Job, call);
    slot.m_pHandle =
        m_Host.CreateMediaFile(reinterpret_cast<const wchar_t*>(place), call.nullRecord ? nullptr : &m_Job);
    Fill(m_Job, {0xDB}); // gone, as the path will be
    m_Data.Place({}, false);
    slot.m_ModelHandle = m_pModel->CreateMediaFile(call.path, call.nullRecord ? nullptr : call.encodeParam.get());
    Require(slot.m_pHandle == nullptr || slot.m_ModelHandle != 0, "the result is a handle, expected null");
    Require(slot.m_pHandle != nullptr || slot.m_ModelHandle == 0, "the result is null, expected a handle");
    slot.m_HasFile = slot.m_pHandle != nullptr && call.path == ReferenceModel::Path::Opens;
    if (!slot.m_HasFile) Require(!std::filesystem::exists(slot.m_File), "there is a file where none should be");
}

void SessionPlayer::WriteFrame(const HostCall& call, const Slot& slot) {
    const bool isVideo = call.kind == Kind::WriteVideoPacket;
    const Octets before = Told(call.data, call.isSplit);
    unsigned char* const data = m_Data.Place(before, call.data.isNull);
    const auto* const sizes = reinterpret_cast<const unsigned char*>(call.frameSizes.data());
    const Octets tableBefore(sizes, sizes + call.frameSizes.size() * sizeof(int));
    unsigned char* const table = m_MoreData.Place(tableBefore, !call.isSplit);
    Fill(m_Frame, call.hostOctets);
    m_Frame.Set(isVideo ? "videoData" : "audioData", data);
    m_Frame.Set(isVideo ? "videoSize" : "audioSize", call.data.length);
    if (isVideo) m_Frame.Set("frameFlags", call.frame.frameFlags);
    m_Frame.Set("timestamp", call.frame.timestamp);
    m_Frame.Set("duration", call.frame.duration);
    const Record* const record = call.nullRecord ? nullptr : &m_Frame;
    const int result = isVideo ? m_Host.WriteVideoPacket(slot.m_pHandle, record)
                               : m_Host.WriteAudioPacket(slot.m_pHandle, record, reinterpret_cast<int*>(table));
    Require(m_MoreData.Copy() == tableBefore, "the plug-in wrote into the host's table of sizes");

    Octets copy = before;
    unsigned char nothing = 0;
    Model::Frame told = call.frame;
    told.data = call.data.isNull ? nullptr : copy.empty() ? &nothing : copy.data();
    told.size = call.data.length;
    const Model::Frame* const model = call.nullRecord ? nullptr : &told;
    const int expected = isVideo ? m_pModel->WriteVideoPacket(slot.m_ModelHandle, model)
                                 : m_pModel->WriteAudioPacket(slot.m_ModelHandle, model,
                                                              call.isSplit ? call.frameSizes.data() : nullptr);
    RequireEqual(result, expected, "the result");
    RequireEqual(m_Data.Copy(), copy, "the host's buffer after the call");
    m_Data.Place({}, false);
}

void SessionPlayer::Close(Slot& slot) {
    m_Host.CloseMediaFile(slot.m_pHandle);
    const Octets expected = m_pModel->CloseMediaFile(slot.m_ModelHandle);
    if (slot.m_HasFile) {
        const Octets actual = ReadFile(slot.m_File);
        std::filesystem::remove(slot.m_File);
        if (actual != expected) {
            throw Failure("the closed file is not what the calls make: " + Difference(expected, actual));
        }
    }
    slot = {};
}
