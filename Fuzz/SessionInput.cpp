// SPDX-License-Identifier: MIT
#include "SessionInput.h"

#include <cstring>
#include <utility>

namespace {

using Kind = HostCall::Kind;
using Model::FourCC;
using Model::MakeFourCC;

constexpr std::size_t kMostCalls = 250; // the model's time grows with their square
constexpr std::int64_t kMs = 10000;     // of the host's time units

constexpr std::array<FourCC, 4> kFormats = {MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "),
                                            MakeFourCC("WEBM")};
constexpr std::array<FourCC, 10> kVideoCodes = {
    MakeFourCC("H264"), MakeFourCC("N264"), MakeFourCC("A264"), MakeFourCC("I264"), MakeFourCC("havc"),
    MakeFourCC("MP1V"), MakeFourCC("MP2V"), MakeFourCC("MP4V"), MakeFourCC("Xvid"), MakeFourCC("VP8 ")};
constexpr std::array<FourCC, 7> kAudioCodes = {MakeFourCC("AAC "), MakeFourCC("VBIS"), MakeFourCC("AC3 "),
                                               MakeFourCC("MP3 "), MakeFourCC("MP2A"), MakeFourCC("DTS "),
                                               MakeFourCC("PCM ")};

class Reader {
public:
    explicit Reader(FuzzInput& input) : m_Input(input) {}

    RandomSession Read() {
        m_Session.clock = Clock();
        while (!m_Input.IsEmpty() && m_Session.calls.size() < kMostCalls) ReadCall();
        for (int slot = 0; slot <= RandomSession::kSlots; ++slot) Add(Kind::CloseMediaFile, slot);
        return std::move(m_Session);
    }

private:
    void ReadCall() {
        const unsigned lead = m_Input.Octet();
        const auto slot = static_cast<int>(lead / 64);
        const unsigned call = lead % 16;
        if (call < 2) return Create(slot);
        if (call < 6) return Frame(Kind::WriteVideoPacket, slot);
        if (call < 10) return Frame(Kind::WriteAudioPacket, slot);
        if (call == 10) {
            Add(Kind::WriteVosData, slot).data = Buffer();
        } else if (call == 11) {
            HostCall& added = Add(Kind::WritezXPSData, slot);
            added.data = Buffer();
            added.sequence = Buffer();
        } else if (call == 12) {
            Add(Kind::CloseMediaFile, slot);
        } else if (call == 13) {
            HostCall& added = Add(Kind::SetMuxParam, slot);
            added.nullRecord = m_Input.OneIn(16);
            added.muxParam.muxFlags = m_Input.Octet();
            added.muxParam.displayAspectX = m_Input.Number32();
            added.muxParam.displayAspectY = m_Input.Number32();
        } else if (call == 14) {
            Add(Kind::SetClock, slot).clock = Clock();
        } else {
            OrdinaryFrames(slot);
        }
    }

    // What time() may return: a little more than a thousand years to either side.
    std::int64_t Clock() { return m_Input.Number() % 40000000000; }

    template <std::size_t N>
    FourCC Code(const std::array<FourCC, N>& codes) {
        const unsigned choice = m_Input.Octet();
        return choice % 16 < 15 ? codes[choice % 16 % N] : static_cast<FourCC>(m_Input.Bits(4));
    }

    void Create(int slot) {
        Add(Kind::CloseMediaFile, slot); // of what the slot may hold
        Model::EncodeParam job;
        const Octets hosts = {static_cast<unsigned char>(m_Input.Octet())};
        job.formatFourCC = Code(kFormats);
        job.videoParam = {Code(kVideoCodes), 320, 240, 25.0, 24};
        job.audioParam = {Code(kAudioCodes), 44100, 2, 16};
        const unsigned choice = m_Input.Octet();
        job.disableVideo = choice % 4 == 1 ? choice : 0;
        job.disableAudio = choice % 4 == 2 ? choice : 0;
        if (choice % 64 == 3) job.disableVideo = job.disableAudio = 1;
        if (choice / 64 % 2 == 1) {
            Model::VideoParam& video = job.videoParam;
            video.width = m_Input.Number32();
            video.height = m_Input.Number32();
            const std::uint64_t bits = m_Input.Bits(8);
            std::memcpy(&video.frameRate, &bits, sizeof bits);
            video.bitCount = m_Input.Number32();
            Model::AudioParam& audio = job.audioParam;
            audio.sampleRate = m_Input.Number32();
            audio.channels = m_Input.Number32();
            audio.bitsPerSample = m_Input.Number32();
        }
        HostCall& call = Add(Kind::CreateMediaFile, slot);
        const unsigned path = choice / 128 == 1 ? m_Input.Octet() : 0;
        call.path = path % 8 == 1   ? ReferenceModel::Path::Null
                    : path % 8 == 2 ? ReferenceModel::Path::DoesNotOpen
                    : path % 8 == 3 ? ReferenceModel::Path::DiscImage
                                    : ReferenceModel::Path::Opens;
        call.nullRecord = path % 8 == 4;
        call.encodeParam = std::make_shared<const Model::EncodeParam>(job);
        call.hostOctets = hosts;
        // The track identifiers of both streams, if there are any.
        for (int i = 0; i < 2; ++i) {
            const auto chance = path / 8 % 2 == 1 ? m_Input.Bits(4) : 1 + m_Session.randValues.size();
            m_Session.randValues.push_back(static_cast<int>(chance & 0x7FFFFFFF));
        }
    }

    HostBuffer Buffer() {
        HostBuffer buffer;
        buffer.octets = m_Input.Payload();
        buffer.length = static_cast<std::int32_t>(buffer.octets.size());
        return buffer;
    }

    // The position of a stream: each slot has one stream of each kind.
    std::int64_t& Now(Kind kind, int slot) {
        return m_Now[kind == Kind::WriteVideoPacket ? 0 : 1][static_cast<std::size_t>(slot)];
    }

    std::int64_t Move(std::int64_t& now, std::int64_t by) {
        now = static_cast<std::int64_t>(static_cast<std::uint64_t>(now) + static_cast<std::uint64_t>(by));
        return now;
    }

    // An octet of shape: the low three bits are the step in time; key frame, duration, table of sizes, odd record.
    void Frame(Kind kind, int slot) {
        const unsigned shape = m_Input.Octet();
        std::int64_t& now = Now(kind, slot);
        std::int64_t step = 40 * kMs;
        switch (shape % 8) {
        case 1:
            step = 213333;
            break;
        case 2:
            step = m_Input.Number();
            break;
        case 3:
            step = static_cast<std::int16_t>(m_Input.Bits(2)) * kMs;
            break;
        case 4:
            step = 0;
            break;
        case 5:
            step = 1000 * kMs;
            break;
        case 6:
            now = 0;
            step = m_Input.Number();
            break;
        default:
            break;
        }
        HostCall& call = Add(kind, slot);
        call.frame.timestamp = Move(now, step);
        call.frame.frameFlags = shape / 8 % 2 == 1 ? m_Input.Octet() : (shape / 16 % 2);
        call.frame.duration = shape / 32 % 2 == 1 ? m_Input.Number32() : 400000;
        call.data = Buffer();
        if (shape / 64 % 2 == 1 && kind == Kind::WriteAudioPacket) Divide(call);
        if (shape / 128 == 1) Bend(call);
        KeepTableWithin(call);
    }

    // A table of sizes, which may promise more or fewer octets than there are. Memory behind it is inaccessible.
    void Divide(HostCall& call) {
        call.isSplit = true;
        const unsigned entries = m_Input.Octet() % 40;
        const bool isLess = m_Input.OneIn(8);
        call.frameSizes = {isLess ? std::min(m_Input.Number32(), static_cast<int>(entries))
                                  : static_cast<int>(entries)};
        for (unsigned i = 0; i < entries; ++i) call.frameSizes.push_back(m_Input.Number32());
    }

    // Less than the whole, or nothing.
    void Bend(HostCall& call) {
        const unsigned choice = m_Input.Octet();
        call.nullRecord = choice % 4 == 1;
        call.data.isNull = choice % 4 == 2;
        if (choice % 4 == 3) call.data.length = m_Input.Number32() % (call.data.length + 1);
    }

    // More seconds of frames than a fuzzer would produce one by one.
    void OrdinaryFrames(int slot) {
        const unsigned choice = m_Input.Octet();
        const Kind kind = choice % 2 == 0 ? Kind::WriteVideoPacket : Kind::WriteAudioPacket;
        const std::int64_t step = (20 + m_Input.Octet() * 4) * kMs;
        for (unsigned i = 0; i <= choice / 8; ++i) {
            HostCall& call = Add(kind, slot);
            call.frame.timestamp = Move(Now(kind, slot), step);
            call.frame.duration = static_cast<std::int32_t>(step);
            call.frame.frameFlags = i % (1 + choice / 2 % 4) == 0 ? 1 : 0;
            call.data.octets = {0,
                                0,
                                0,
                                1,
                                static_cast<unsigned char>(call.frame.frameFlags != 0 ? 0x65 : 0x41),
                                static_cast<unsigned char>(i),
                                static_cast<unsigned char>(choice)};
            call.data.length = static_cast<std::int32_t>(call.data.octets.size());
        }
    }

    HostCall& Add(Kind kind, int slot) {
        HostCall& call = m_Session.calls.emplace_back();
        call.kind = kind;
        call.slot = slot;
        return call;
    }

    FuzzInput& m_Input;
    RandomSession m_Session;
    std::array<std::array<std::int64_t, RandomSession::kSlots + 1>, 2> m_Now{};
};

} // namespace

RandomSession MakeSession(FuzzInput& input) { return Reader(input).Read(); }
