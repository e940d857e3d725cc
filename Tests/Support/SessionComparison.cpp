// SPDX-License-Identifier: MIT
#include "SessionComparison.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include "FakeEnvironment.h"
#include "HostCallRecords.h"

namespace {

std::string HexExcerpt(const Octets& octets, std::size_t around) {
    std::ostringstream text;
    const std::size_t begin = around < 16 ? 0 : around - 16;
    for (std::size_t i = begin; i < std::min(octets.size(), around + 16); ++i) {
        char octet[8];
        std::snprintf(octet, sizeof octet, i == around ? "[%02X] " : "%02X ", octets[i]);
        text << octet;
    }
    if (around >= octets.size()) text << "(ends at " << octets.size() << ")";
    return text.str();
}

// Both sides get a buffer of their own, of the very size, so that a sanitizer sees an octet too far.
struct Copy {
    explicit Copy(const HostBuffer& buffer) : octets(buffer.octets), isNull(buffer.isNull), length(buffer.length) {}
    unsigned char* Data() { return isNull ? nullptr : octets.empty() ? &nothing : octets.data(); }
    Octets octets;
    unsigned char nothing = 0;
    bool isNull;
    std::int32_t length;
};

} // namespace

std::string Difference(const Octets& plugin, const Octets& model) {
    if (plugin == model) return "";
    std::size_t offset = 0;
    while (offset < plugin.size() && offset < model.size() && plugin[offset] == model[offset]) ++offset;
    std::ostringstream text;
    text << "first difference at " << offset << " of " << plugin.size() << " (plug-in) and " << model.size()
         << " (model) octets\n  plug-in: " << HexExcerpt(plugin, offset)
         << "\n  model:   " << HexExcerpt(model, offset);
    return text.str();
}

std::string SessionComparison::Play(const RandomSession& session, Forgery forgery) {
    FakeEnvironment::SetRand(session.randValues);
    FakeEnvironment::SetTime(session.clock);
    ReferenceModel model(session.randValues, session.clock);
    m_pModel = &model;
    m_Forgery = forgery;
    m_Mismatch.clear();
    m_Slots = {};
    if (m_pWatcher != nullptr) m_pWatcher->Begin();
    // Nothing is left over from the session before.
    m_Plugin.SetMuxParam(nullptr);
    m_Plugin.CreateMediaFile(nullptr, nullptr);

    m_Where = 0;
    for (const HostCall& call : session.calls) {
        m_What = NameOf(call.kind);
        Make(call);
        Compare("m_MuxParam", std::memcmp(m_Plugin.m_pMuxParam, &model.StoredMuxParam(), sizeof(MuxParam)), 0);
        Compare("IsWebm", *m_Plugin.m_pIsWebm, model.IsWebm());
        ++m_Where;
    }
    for (const auto& [turn, times] : model.Reached()) m_Reached[std::string(turn)] += times;
    m_Calls += session.calls.size();
    return m_Mismatch.empty() ? "" : "seed " + std::to_string(session.seed) + ", " + m_Mismatch;
}

void SessionComparison::Report(const std::string& text) {
    if (!m_Mismatch.empty() || text.empty()) return;
    m_Mismatch = "call " + std::to_string(m_Where) + " (" + m_What + "): " + text;
}

void SessionComparison::Compare(const char* what, std::int64_t plugin, std::int64_t model) {
    if (plugin == model) return;
    Report(std::string(what) + ": plug-in " + std::to_string(plugin) + ", model " + std::to_string(model));
}

void SessionComparison::CompareOctets(const char* what, const Octets& plugin, const Octets& model) {
    const std::string difference = Difference(plugin, model);
    if (!difference.empty()) Report(std::string(what) + ": " + difference);
}

std::filesystem::path SessionComparison::PathOf(int slot, ReferenceModel::Path path) const {
    const std::string name = "slot" + std::to_string(slot);
    if (path == ReferenceModel::Path::DoesNotOpen) return m_Directory / "none" / name;
    return m_Directory / (path == ReferenceModel::Path::DiscImage ? name + ".iso:x" : name + ".mkv");
}

void SessionComparison::Make(const HostCall& call) {
    Slot& slot = m_Slots.at(static_cast<std::size_t>(call.slot));
    switch (call.kind) {
    case HostCall::Kind::SetClock:
        FakeEnvironment::SetTime(call.clock);
        m_pModel->SetTime(call.clock);
        break;
    case HostCall::Kind::SetMuxParam: {
        MuxParam param = OptionsOf(call);
        Compare("result", m_Plugin.SetMuxParam(call.nullRecord ? nullptr : &param),
                m_pModel->SetMuxParam(call.nullRecord ? nullptr : &call.muxParam));
        break;
    }
    case HostCall::Kind::CreateMediaFile:
        Create(call, slot);
        break;
    case HostCall::Kind::WriteVideoPacket:
    case HostCall::Kind::WriteAudioPacket:
        Write(call, slot);
        break;
    case HostCall::Kind::WriteVosData: {
        Copy data(call.data);
        m_Plugin.WriteVosData(slot.pluginHandle, data.Data(), data.length);
        CompareOctets("audio set-up data", data.octets, call.data.octets);
        m_pModel->WriteVosData(slot.modelHandle, data.Data(), data.length);
        break;
    }
    case HostCall::Kind::WritezXPSData: {
        Copy picture(call.data);
        Copy sequence(call.sequence);
        m_Plugin.WritezXPSData(slot.pluginHandle, picture.Data(), picture.length, sequence.Data(), sequence.length);
        CompareOctets("picture set", picture.octets, call.data.octets);
        CompareOctets("sequence set", sequence.octets, call.sequence.octets);
        m_pModel->WritezXPSData(slot.modelHandle, picture.Data(), picture.length, sequence.Data(), sequence.length);
        break;
    }
    case HostCall::Kind::CloseMediaFile:
        Close(slot, call.slot);
        break;
    }
}

void SessionComparison::Create(const HostCall& call, Slot& slot) {
    const std::wstring path = PathOf(call.slot, call.path).wstring();
    auto param = std::make_unique<EncodeParam>(JobOf(call)); // gone when the call is over
    slot.path = call.path;
    slot.pluginHandle = m_Plugin.CreateMediaFile(call.path == ReferenceModel::Path::Null ? nullptr : path.c_str(),
                                                 call.nullRecord ? nullptr : param.get());
    slot.modelHandle = m_pModel->CreateMediaFile(call.path, call.nullRecord ? nullptr : call.encodeParam.get());
    Compare("a handle", slot.pluginHandle != nullptr, slot.modelHandle != 0);
    if (m_pWatcher != nullptr) m_pWatcher->Created(call, slot.pluginHandle != nullptr);
}

void SessionComparison::Write(const HostCall& call, const Slot& slot) {
    const bool isVideo = call.kind == HostCall::Kind::WriteVideoPacket;
    Copy ofPlugin(call.data);
    Copy ofModel(call.data);
    std::vector<int> sizes = call.frameSizes;
    MEDIA_FRAME frame = FrameOf(call);
    (isVideo ? frame.videoSize : frame.audioSize) = call.data.length;
    (isVideo ? frame.videoData : frame.audioData) = ofPlugin.Data();
    const MEDIA_FRAME before = frame;
    MEDIA_FRAME* const record = call.nullRecord ? nullptr : &frame;
    int result = isVideo ? m_Plugin.WriteVideoPacket(slot.pluginHandle, record)
                         : m_Plugin.WriteAudioPacket(slot.pluginHandle, record, call.isSplit ? sizes.data() : nullptr);
    if (std::memcmp(&before, &frame, sizeof frame) != 0) Report("the frame's record was written to");
    if (sizes != call.frameSizes) Report("the table of sizes was written to");
    Model::Frame told = call.frame;
    told.data = ofModel.Data();
    told.size = call.data.length;
    const Model::Frame* const model = call.nullRecord ? nullptr : &told;
    const int expected =
        isVideo ? m_pModel->WriteVideoPacket(slot.modelHandle, model)
                : m_pModel->WriteAudioPacket(slot.modelHandle, model, call.isSplit ? sizes.data() : nullptr);
    if (m_Forgery == Forgery::Result) ++result;
    if (m_Forgery == Forgery::Buffer && !ofPlugin.octets.empty()) ofPlugin.octets.back() ^= 1;
    Compare("result", result, expected);
    CompareOctets("frame buffer", ofPlugin.octets, ofModel.octets);
    if (m_pWatcher != nullptr) Report(m_pWatcher->Wrote(call, result));
}

void SessionComparison::Close(Slot& slot, int number) {
    m_Plugin.CloseMediaFile(slot.pluginHandle, nullptr, nullptr);
    const Octets expected = m_pModel->CloseMediaFile(slot.modelHandle);
    if (slot.pluginHandle != nullptr) {
        const std::filesystem::path path = PathOf(number, slot.path);
        if (slot.path == ReferenceModel::Path::DiscImage) {
            if (std::filesystem::exists(path)) Report("a file for a disc image");
            if (m_pWatcher != nullptr) Report(m_pWatcher->Closed(number, nullptr));
        } else {
            Octets octets = ReadFile(path);
            std::filesystem::remove(path);
            ++m_Files;
            m_FileOctets += octets.size();
            if (m_Forgery == Forgery::File && !octets.empty()) octets[octets.size() / 2] ^= 0x10;
            if (m_Forgery == Forgery::FileLength) octets.push_back(0);
            CompareOctets("file", octets, expected);
            if (m_pWatcher != nullptr) Report(m_pWatcher->Closed(number, &octets));
        }
    }
    slot = Slot();
}
