// Random host sessions go through the plug-in and the reference model in step. Every return value, every frame buffer
// and every file has to be the same.
//
// QF_SESSIONS sets how many sessions, QF_FIRST_SEED the first seed; each session's seed is one more than the last.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "FakeEnvironment.h"
#include "Plugin.h"
#include "RandomSession.h"
#include "ReferenceModel.h"
#include "TempDirectory.h"

namespace {

constexpr std::uint64_t kDefaultSessions = 2000;

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

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

// Nothing when both are the same.
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

// What a self-test falsifies in the plug-in's answers, to see that it is found out.
enum class Forgery { None, Result, Buffer, File, FileLength };

class Comparison {
public:
    Comparison(const Plugin& plugin, const TempDirectory& directory) : m_Plugin(plugin), m_Directory(directory) {}

    // Plays one session on both sides. Returns the first mismatch, or nothing.
    std::string Play(const RandomSession& session, Forgery forgery = Forgery::None) {
        FakeEnvironment::SetRand(session.randValues);
        FakeEnvironment::SetTime(session.clock);
        ReferenceModel model(session.randValues, session.clock);
        m_pModel = &model;
        m_Forgery = forgery;
        m_Mismatch.clear();
        m_Slots = {};
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

    const std::map<std::string, std::uint64_t>& Reached() const { return m_Reached; }
    std::uint64_t Calls() const { return m_Calls; }
    std::uint64_t Files() const { return m_Files; }
    std::uint64_t FileOctets() const { return m_FileOctets; }

private:
    struct Slot {
        void* pluginHandle = nullptr;
        int modelHandle = 0;
        ReferenceModel::Path path = ReferenceModel::Path::Null;
    };

    // Both sides get a buffer of their own, of the very size, so that a sanitizer sees an octet too far.
    struct Copy {
        explicit Copy(const HostBuffer& buffer) : octets(buffer.octets), isNull(buffer.isNull), length(buffer.length) {}
        unsigned char* Data() { return isNull ? nullptr : octets.empty() ? &nothing : octets.data(); }
        Octets octets;
        unsigned char nothing = 0;
        bool isNull;
        std::int32_t length;
    };

    void Report(const std::string& text) {
        if (!m_Mismatch.empty()) return;
        m_Mismatch = "call " + std::to_string(m_Where) + " (" + m_What + "): " + text;
    }

    void Compare(const char* what, std::int64_t plugin, std::int64_t model) {
        if (plugin == model) return;
        Report(std::string(what) + ": plug-in " + std::to_string(plugin) + ", model " + std::to_string(model));
    }

    void CompareOctets(const char* what, const Octets& plugin, const Octets& model) {
        const std::string difference = Difference(plugin, model);
        if (!difference.empty()) Report(std::string(what) + ": " + difference);
    }

    std::filesystem::path PathOf(int slot, ReferenceModel::Path path) const {
        const std::string name = "slot" + std::to_string(slot);
        if (path == ReferenceModel::Path::DoesNotOpen) return m_Directory / "none" / name;
        return m_Directory / (path == ReferenceModel::Path::DiscImage ? name + ".iso:x" : name + ".mkv");
    }

    void Make(const HostCall& call) {
        Slot& slot = m_Slots.at(static_cast<std::size_t>(call.slot));
        switch (call.kind) {
        case HostCall::Kind::SetClock:
            FakeEnvironment::SetTime(call.clock);
            m_pModel->SetTime(call.clock);
            break;
        case HostCall::Kind::SetMuxParam: {
            MuxParam param = call.muxParam;
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

    void Create(const HostCall& call, Slot& slot) {
        const std::wstring path = PathOf(call.slot, call.path).wstring();
        auto param = std::make_unique<EncodeParam>(*call.encodeParam); // gone when the call is over
        slot.path = call.path;
        slot.pluginHandle = m_Plugin.CreateMediaFile(call.path == ReferenceModel::Path::Null ? nullptr : path.c_str(),
                                                     call.nullRecord ? nullptr : param.get());
        slot.modelHandle = m_pModel->CreateMediaFile(call.path, call.nullRecord ? nullptr : call.encodeParam.get());
        Compare("a handle", slot.pluginHandle != nullptr, slot.modelHandle != 0);
    }

    void Write(const HostCall& call, const Slot& slot) {
        const bool isVideo = call.kind == HostCall::Kind::WriteVideoPacket;
        Copy ofPlugin(call.data);
        Copy ofModel(call.data);
        std::vector<int> sizes = call.frameSizes;
        MEDIA_FRAME frame = call.frame;
        (isVideo ? frame.videoSize : frame.audioSize) = call.data.length;
        const MEDIA_FRAME* const record = call.nullRecord ? nullptr : &frame;
        const auto point = [&](Copy& at) { (isVideo ? frame.videoData : frame.audioData) = at.Data(); };

        point(ofPlugin);
        const MEDIA_FRAME before = frame;
        int result = isVideo
                         ? m_Plugin.WriteVideoPacket(slot.pluginHandle, record)
                         : m_Plugin.WriteAudioPacket(slot.pluginHandle, record, call.isSplit ? sizes.data() : nullptr);
        if (std::memcmp(&before, &frame, sizeof frame) != 0) Report("the frame's record was written to");
        if (sizes != call.frameSizes) Report("the table of sizes was written to");
        point(ofModel);
        const int expected =
            isVideo ? m_pModel->WriteVideoPacket(slot.modelHandle, record)
                    : m_pModel->WriteAudioPacket(slot.modelHandle, record, call.isSplit ? sizes.data() : nullptr);
        if (m_Forgery == Forgery::Result) ++result;
        if (m_Forgery == Forgery::Buffer && !ofPlugin.octets.empty()) ofPlugin.octets.back() ^= 1;
        Compare("result", result, expected);
        CompareOctets("frame buffer", ofPlugin.octets, ofModel.octets);
    }

    void Close(Slot& slot, int number) {
        m_Plugin.CloseMediaFile(slot.pluginHandle, nullptr, nullptr);
        const Octets expected = m_pModel->CloseMediaFile(slot.modelHandle);
        if (slot.pluginHandle != nullptr) {
            const std::filesystem::path path = PathOf(number, slot.path);
            if (slot.path == ReferenceModel::Path::DiscImage) {
                if (std::filesystem::exists(path)) Report("a file for a disc image");
            } else {
                Octets octets = ReadFile(path);
                std::filesystem::remove(path);
                ++m_Files;
                m_FileOctets += octets.size();
                if (m_Forgery == Forgery::File && !octets.empty()) octets[octets.size() / 2] ^= 0x10;
                if (m_Forgery == Forgery::FileLength) octets.push_back(0);
                CompareOctets("file", octets, expected);
            }
        }
        slot = Slot();
    }

    const Plugin& m_Plugin;
    const TempDirectory& m_Directory;
    ReferenceModel* m_pModel = nullptr;
    std::array<Slot, RandomSession::kSlots + 1> m_Slots{};
    Forgery m_Forgery = Forgery::None;
    std::size_t m_Where = 0;
    const char* m_What = "";
    std::string m_Mismatch;
    std::map<std::string, std::uint64_t> m_Reached;
    std::uint64_t m_Calls = 0;
    std::uint64_t m_Files = 0;
    std::uint64_t m_FileOctets = 0;
};

// Every turn that the model names; a run of the default length takes each of them.
const std::set<std::string> kTurns = {
    "A_AAC",
    "A_AC3",
    "A_DTS",
    "A_MPEG/L2",
    "A_MPEG/L3",
    "A_PCM/INT/LIT",
    "A_VORBIS",
    "H.264 set-up: early",
    "H.264 set-up: late, accepted",
    "H.264 set-up: late, refused",
    "H.264 set-up: no picture set",
    "H.264 set-up: no sequence set",
    "H.264 set-up: sequence set of 1 to 3 octets",
    "H264 taken as it stands",
    "MPEG frame is all sequence header",
    "MPEG frame without a sequence header",
    "MPEG sequence header within the frame",
    "MPEG set-up: early",
    "MPEG set-up: late, accepted",
    "MPEG set-up: late, refused",
    "MPEG set-up: no sequence header",
    "SetMuxParam: a term is 0",
    "SetMuxParam: negative divisor",
    "SetMuxParam: positive divisor",
    "SimpleBlock without the keyframe bit",
    "a million empty spans skipped",
    "a ninth octet is left out",
    "audio frame without a track",
    "audio set-up: early",
    "audio set-up: late, accepted",
    "audio set-up: late, refused",
    "audio set-up: nothing given or no track",
    "audio set-up: other codec",
    "block length of 1 octet",
    "block length of 2 octets",
    "block length of 3 octets",
    "block length of 4 octets",
    "clock before 2001",
    "codec I264 in WebM",
    "codec V_MPEG1",
    "codec V_MPEG2",
    "codec V_MPEG4/ISO/ASP",
    "codec V_MPEG4/ISO/AVC in Matroska",
    "codec V_MPEG4/ISO/AVC in WebM",
    "codec V_VP8 in Matroska",
    "codec V_VP8 in WebM",
    "codec havc",
    "codec other audio",
    "codec other video",
    "create: Matroska does not open",
    "create: WebM does not open",
    "create: disc image",
    "create: no track",
    "create: null argument",
    "cue: Matroska, not a keyframe by its flag",
    "cue: WebM, not a keyframe",
    "cue: audio only",
    "cue: block number 1",
    "cue: block number above 1",
    "cue: one is there already",
    "cue: second one in a cluster",
    "cue: video",
    "display aspect written",
    "drained by a video frame",
    "drained by an audio frame",
    "drained by the close",
    "dropped: before -32768",
    "duration: kept",
    "duration: of the blocks",
    "duration: of the last block",
    "empty frame",
    "empty spans skipped",
    "file stays empty",
    "format HMKV",
    "format MKA",
    "format MKV",
    "format WEBM",
    "format unknown",
    "header: Matroska, matroska",
    "header: Matroska, webm",
    "header: WebM, matroska",
    "header: WebM, webm",
    "lossless decided",
    "lossless: block",
    "lossless: none kept",
    "misrouted audio frame",
    "misrouted audio set-up data",
    "misrouted close of Matroska",
    "misrouted close of WebM",
    "misrouted from Matroska",
    "misrouted from WebM",
    "misrouted video frame",
    "misrouted video set-up data",
    "more than 5 blocks queued",
    "next span",
    "no DefaultDuration",
    "no cues",
    "no derivation: the tracks are written",
    "placeholder of 1024",
    "placeholder of 10240",
    "reference 0",
    "reference backward",
    "reference forward",
    "reference of an audio block",
    "relative time truncated",
    "split: count 0 or less",
    "split: count 1",
    "split: duration smaller than the count",
    "split: empty entry",
    "split: many",
    "split: past the end",
    "split: the product wraps",
    "stops before it starts",
    "time before the base",
    "two files open, different muxers",
    "two files open, same muxer",
    "unit: IDR slice",
    "unit: slice",
    "units: cut off before the type",
    "units: dropped by type",
    "units: garbage first",
    "units: no start code",
    "units: none kept",
    "units: only garbage",
    "units: start code after start code",
    "video frame without a track",
    "video set-up: no track",
    "video set-up: other codec",
    "written time wraps",
};

TEST(RandomSessions, PluginAndModelAgreeOnEveryOctet) {
    const std::uint64_t sessions = FromEnvironment("QF_SESSIONS", kDefaultSessions);
    const std::uint64_t firstSeed = FromEnvironment("QF_FIRST_SEED", 1);
    const Plugin plugin(QF_PLUGIN);
    const TempDirectory directory;
    Comparison comparison(plugin, directory);
    std::uint64_t ordinary = 0;
    int mismatches = 0;
    for (std::uint64_t seed = firstSeed; seed - firstSeed < sessions && mismatches < 5; ++seed) {
        const RandomSession session = MakeRandomSession(seed);
        ordinary += session.isOrdinary ? 1 : 0;
        const std::string mismatch = comparison.Play(session);
        if (mismatch.empty()) continue;
        ADD_FAILURE() << mismatch;
        ++mismatches;
    }

    std::cout << sessions << " sessions from seed " << firstSeed << ", " << ordinary
              << " of them ordinary: " << comparison.Calls() << " calls, " << comparison.Files() << " files, "
              << comparison.FileOctets() << " octets\n";
    std::set<std::string> taken;
    for (const auto& [turn, times] : comparison.Reached()) {
        std::cout << "  " << times << "\t" << turn << "\n";
        taken.insert(turn);
        EXPECT_EQ(kTurns.count(turn), 1U) << "not in the list: " << turn;
    }
    if (sessions < kDefaultSessions) return;
    for (const std::string& turn : kTurns) EXPECT_EQ(taken.count(turn), 1U) << "never taken: " << turn;
}

// The comparison is worth something only if it can fail.

TEST(RandomSessions, AFlippedOctetInAFileIsReportedWithItsPlace) {
    Octets model(100);
    for (std::size_t i = 0; i < model.size(); ++i) model[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(Difference(model, model), "");
    Octets plugin = model;
    plugin[3] = 0xFE;
    EXPECT_EQ(Difference(plugin, model), "first difference at 3 of 100 (plug-in) and 100 (model) octets\n"
                                         "  plug-in: 00 01 02 [FE] 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 \n"
                                         "  model:   00 01 02 [03] 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 ");
    plugin = model;
    plugin.resize(18);
    EXPECT_EQ(Difference(plugin, model),
              "first difference at 18 of 18 (plug-in) and 100 (model) octets\n"
              "  plug-in: 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 (ends at 18)\n"
              "  model:   02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 [12] 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F "
              "20 21 ");
}

TEST(RandomSessions, EveryForgedAnswerIsFoundOut) {
    const Plugin plugin(QF_PLUGIN);
    const TempDirectory directory;
    Comparison comparison(plugin, directory);
    // The first ordinary session: its frames have octets and its file is not empty.
    std::uint64_t seed = 1;
    while (!MakeRandomSession(seed).isOrdinary) ++seed;
    const RandomSession session = MakeRandomSession(seed);
    ASSERT_EQ(comparison.Play(session), "");
    const struct {
        Forgery forgery;
        const char* found;
    } rows[] = {{Forgery::Result, "): result: plug-in "},
                {Forgery::Buffer, "): frame buffer: first difference at "},
                {Forgery::File, " (CloseMediaFile): file: first difference at "},
                {Forgery::FileLength, " (CloseMediaFile): file: first difference at "}};
    for (const auto& row : rows) {
        const std::string report = comparison.Play(session, row.forgery);
        EXPECT_EQ(report.rfind("seed " + std::to_string(seed) + ", call ", 0), 0U) << report;
        EXPECT_NE(report.find(row.found), std::string::npos) << report;
    }
}

TEST(RandomSessions, ASeedGivesTheSameSessionAgain) {
    for (std::uint64_t seed = 1; seed <= 50; ++seed) {
        const RandomSession one = MakeRandomSession(seed);
        const RandomSession two = MakeRandomSession(seed);
        ASSERT_EQ(one.calls.size(), two.calls.size());
        EXPECT_EQ(one.clock, two.clock);
        EXPECT_EQ(one.randValues, two.randValues);
        for (std::size_t i = 0; i < one.calls.size(); ++i) {
            EXPECT_EQ(one.calls[i].kind, two.calls[i].kind);
            EXPECT_EQ(one.calls[i].data.octets, two.calls[i].data.octets);
            EXPECT_EQ(one.calls[i].frameSizes, two.calls[i].frameSizes);
            EXPECT_EQ(std::memcmp(&one.calls[i].frame, &two.calls[i].frame, sizeof(MEDIA_FRAME)), 0);
        }
    }
}

} // namespace
