// SPDX-License-Identifier: MIT
#include "RandomSession.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <map>
#include <random>
#include <utility>

namespace {

using Kind = HostCall::Kind;
using Model::EncodeParam;
using Model::FourCC;
using Model::MakeFourCC;
using Model::MuxParam;
using Calls = std::vector<HostCall>;

constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSecond = 10000000; // of the host's time units
constexpr std::size_t kJobOctets = 12432;  // of the host's record
constexpr std::size_t kFrameOctets = 128;  // of the larger record, and more

// Chance. The library's distributions differ from one library to the next; these do not. For the same reason no two
// throws stand where their order is the compiler's choice: in one argument list or on two sides of an operator.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : m_Engine(seed) {}

    std::uint64_t Bits() { return m_Engine(); }
    // From first to last, both included.
    std::int64_t Between(std::int64_t first, std::int64_t last) {
        const std::uint64_t span = static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first) + 1;
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(first) + (span == 0 ? Bits() : Bits() % span));
    }
    std::int32_t Between32(std::int32_t first, std::int32_t last) {
        return static_cast<std::int32_t>(Between(first, last));
    }
    std::size_t Count(std::size_t first, std::size_t last) {
        return static_cast<std::size_t>(Between(static_cast<std::int64_t>(first), static_cast<std::int64_t>(last)));
    }
    bool Percent(int chance) { return Between(1, 100) <= chance; }
    bool OneIn(std::int64_t sides) { return Between(1, sides) == 1; }
    template <class Value>
    Value Pick(std::initializer_list<Value> values) {
        return values.begin()[Count(0, values.size() - 1)];
    }
    void Fill(void* target, std::size_t size) {
        auto* const octets = static_cast<unsigned char*>(target);
        for (std::size_t i = 0; i < size; i += 8) {
            const std::uint64_t bits = Bits();
            std::memcpy(octets + i, &bits, std::min<std::size_t>(8, size - i));
        }
    }
    Octets Some(std::size_t size) {
        Octets octets(size);
        Fill(octets.data(), size);
        return octets;
    }
    // Octets out of a few values only, so that start codes turn up by themselves.
    Octets SomeOf(std::size_t size, std::initializer_list<unsigned char> values) {
        Octets octets(size);
        for (unsigned char& octet : octets) octet = Pick(values);
        return octets;
    }

private:
    std::mt19937_64 m_Engine;
};

void Append(Octets& octets, const Octets& more) { octets.insert(octets.end(), more.begin(), more.end()); }

HostBuffer Whole(Octets octets) {
    HostBuffer buffer;
    buffer.length = static_cast<std::int32_t>(octets.size());
    buffer.octets = std::move(octets);
    return buffer;
}

// The plan of one file of the session.
struct Job {
    bool isOrdinary;
    int slot;
    FourCC video;
    FourCC audio;
    bool startCodes; // an `H264` job in start-code form
};

class Generator {
public:
    explicit Generator(std::uint64_t seed) : m_Dice(seed) { m_Session.seed = seed; }

    RandomSession Make() {
        const bool ordinary = m_Dice.Percent(50);
        m_Session.isOrdinary = ordinary;
        for (int i = 0; i < 16; ++i) {
            const bool edge = !ordinary && m_Dice.Percent(40);
            m_Session.randValues.push_back(edge ? m_Dice.Pick<int>({0, 1, 255, 256, 65535, 65536, 16777216, kMax32})
                                                : m_Dice.Between32(0, kMax32));
        }
        m_Session.clock = Clock(ordinary);
        if (ordinary) {
            MakeOrdinary();
        } else {
            MakeOdd();
        }
        return std::move(m_Session);
    }

private:
    // Sessions.

    void MakeOrdinary() {
        const int files = m_Dice.Percent(85) ? 1 : m_Dice.Between32(2, 3);
        for (int i = 0; i < files; ++i) {
            if (m_Dice.Percent(50)) Add(m_Session.calls, MuxParamCall(true));
            AddAll(MakeFile(true, 0));
        }
    }

    void MakeOdd() {
        if (m_Dice.Percent(60)) Add(m_Session.calls, MuxParamCall(false));
        const int rounds = m_Dice.Percent(70) ? 1 : 2;
        for (int round = 0; round < rounds; ++round) {
            Calls calls = MakeFile(false, 0);
            const int others = m_Dice.Percent(60) ? 0 : m_Dice.Between32(1, RandomSession::kSlots - 1);
            for (int slot = 1; slot <= others; ++slot) calls = Shuffle(std::move(calls), MakeFile(false, slot));
            if (m_Dice.Percent(25)) calls = Shuffle(std::move(calls), StrayCalls());
            AddAll(std::move(calls));
        }
    }

    // Both rows of calls, each in its own order.
    Calls Shuffle(Calls one, Calls other) {
        // Two rows of very unlike lengths would otherwise meet at the beginning only.
        const auto left = static_cast<std::int64_t>(one.size());
        const auto right = static_cast<std::int64_t>(other.size());
        Calls both;
        std::size_t i = 0;
        std::size_t j = 0;
        while (i < one.size() || j < other.size()) {
            const bool first = j == other.size() || (i < one.size() && m_Dice.Between(1, left + right) <= left);
            both.push_back(std::move(first ? one[i++] : other[j++]));
        }
        return both;
    }

    // Other calls of a host: new clocks and options, files that cannot be created, calls without a handle.
    Calls StrayCalls() {
        Calls calls;
        const int count = m_Dice.Between32(1, 5);
        for (int i = 0; i < count; ++i) {
            const int empty = RandomSession::kSlots; // a slot that never holds a handle
            switch (m_Dice.Between(0, 6)) {
            case 0: {
                HostCall& call = Add(calls, Kind::SetClock, empty);
                call.clock = Clock(false);
                break;
            }
            case 1:
                Add(calls, MuxParamCall(false));
                break;
            case 2: {
                HostCall& call = AddCreate(calls, {false, empty, 0, 0, false});
                call.path = ReferenceModel::Path::Null;
                break;
            }
            case 3: {
                HostCall& call = AddCreate(calls, {false, empty, 0, 0, false});
                call.nullRecord = true;
                break;
            }
            case 4: {
                HostCall& call = AddCreate(calls, {false, empty, 0, 0, false});
                call.path = ReferenceModel::Path::DoesNotOpen;
                break;
            }
            case 5: {
                HostCall& call = AddCreate(calls, {false, empty, 0, 0, false});
                EncodeParam param = *call.encodeParam;
                param.formatFourCC = m_Dice.Pick<FourCC>(
                    {0, MakeFourCC("AVI "), MakeFourCC("mkv "), MakeFourCC("WEBm"), MakeFourCC("MKA\0")});
                if (m_Dice.Percent(50)) param.formatFourCC |= 0x80808080U;
                call.encodeParam = std::make_shared<const EncodeParam>(param);
                break;
            }
            default:
                AddFrame(calls, Kind::WriteVideoPacket, empty, 0, 0, m_Dice.Some(10));
                AddFrame(calls, Kind::WriteAudioPacket, empty, 0, 0, m_Dice.Some(10));
                Add(calls, Kind::WriteVosData, empty).data = Whole(m_Dice.Some(2));
                Add(calls, Kind::WritezXPSData, empty).sequence = Whole(m_Dice.Some(9));
                Add(calls, Kind::CloseMediaFile, empty);
                break;
            }
        }
        return calls;
    }

    std::int64_t Clock(bool ordinary) {
        if (ordinary || m_Dice.Percent(70)) return m_Dice.Between(1500000000, 2000000000);
        return m_Dice.Pick<std::int64_t>(
            {0, -1, 1, m_Dice.Between(-1000000000, 978307199), // before 2001, some before 1970
             978307200, 978307200 + std::int64_t{kMax32}, 978307200 + std::int64_t{kMax32} + 1,
             978307200 + std::int64_t{kMin32},
             m_Dice.Between(-40000000000, 40000000000), // more than 32 bits of seconds away
             978307200 + m_Dice.Between(-300, 300), m_Dice.Between(0, 4000000000)});
    }

    HostCall MuxParamCall(bool ordinary) {
        HostCall call;
        call.kind = Kind::SetMuxParam;
        MuxParam& param = call.muxParam;
        m_Dice.Fill(&param, sizeof param);
        if (ordinary) {
            const auto aspect = m_Dice.Pick<std::pair<std::int32_t, std::int32_t>>(
                {{1920, 1080}, {16, 9}, {4, 3}, {720, 576}, {0, 0}, {1280, 720}, {235, 100}});
            param.muxFlags = m_Dice.Pick({0U, 1U, 1U});
            param.displayAspectX = aspect.first;
            param.displayAspectY = aspect.second;
            return call;
        }
        call.nullRecord = m_Dice.Percent(10);
        param.displayAspectX = Term();
        param.displayAspectY = m_Dice.Percent(10) ? param.displayAspectX : Term();
        return call;
    }

    std::int32_t Term() {
        if (m_Dice.Percent(40)) return m_Dice.Between32(1, 4000);
        if (m_Dice.Percent(30)) return m_Dice.Between32(kMin32, kMax32);
        return m_Dice.Pick<std::int32_t>({0, 1, -1, 2, -2, 9, -16, kMin32, kMin32 + 1, kMax32, 1 << 30});
    }

    // Files.

    Calls MakeFile(bool ordinary, int slot) {
        Calls calls;
        const Job job = ordinary ? OrdinaryJob(slot) : OddJob(slot);
        const HostCall& create = ordinary ? AddCreateOrdinary(calls, job) : AddCreate(calls, job);
        const double frameRate = create.encodeParam->videoParam.frameRate;
        const bool withVideo = create.encodeParam->disableVideo == 0;
        const bool withAudio = create.encodeParam->disableAudio == 0;
        if (m_Dice.Percent(ordinary ? 85 : 40)) AddSetup(calls, job, withVideo, withAudio);
        Calls frames = ordinary ? OrdinaryFrames(job, frameRate, withVideo, withAudio) : OddFrames(job);
        if (m_Dice.Percent(ordinary ? 15 : 50)) {
            Calls late;
            const int count = ordinary ? 1 : m_Dice.Between32(1, 4);
            for (int i = 0; i < count; ++i) AddSetup(late, job, withVideo, withAudio);
            frames = Shuffle(std::move(frames), std::move(late));
        }
        for (HostCall& call : frames) calls.push_back(std::move(call));
        Add(calls, Kind::CloseMediaFile, slot);
        return calls;
    }

    Job OrdinaryJob(int slot) {
        Job job{true, slot, 0, 0, false};
        m_OrdinaryFormat = m_Dice.Pick({MakeFourCC("MKV "), MakeFourCC("MKV "), MakeFourCC("HMKV"), MakeFourCC("MKA "),
                                        MakeFourCC("WEBM"), MakeFourCC("WEBM")});
        if (m_OrdinaryFormat == MakeFourCC("WEBM")) {
            job.video = MakeFourCC("VP8 ");
            job.audio = MakeFourCC("VBIS");
        } else if (m_OrdinaryFormat == MakeFourCC("HMKV")) {
            job.video = m_Dice.Pick({MakeFourCC("I264"), MakeFourCC("A264"), MakeFourCC("havc")});
            job.audio = MakeFourCC("AC3 ");
        } else {
            job.video = m_Dice.Pick({MakeFourCC("H264"), MakeFourCC("H264"), MakeFourCC("I264"), MakeFourCC("A264"),
                                     MakeFourCC("N264"), MakeFourCC("Xvid"), MakeFourCC("MP4V"), MakeFourCC("MP2V"),
                                     MakeFourCC("MP1V"), MakeFourCC("VP8 "), MakeFourCC("WVC1")});
            job.audio = m_Dice.Pick({MakeFourCC("AAC "), MakeFourCC("AAC "), MakeFourCC("AC3 "), MakeFourCC("MP3 "),
                                     MakeFourCC("MP2A"), MakeFourCC("DTS "), MakeFourCC("PCM "), MakeFourCC("VBIS"),
                                     FourCC{0x161}});
        }
        job.startCodes = m_Dice.Percent(50);
        return job;
    }

    Job OddJob(int slot) {
        Job job{false, slot, 0, 0, m_Dice.Percent(70)};
        job.video = m_Dice.Pick({MakeFourCC("H264"), MakeFourCC("H264"), MakeFourCC("H264"), MakeFourCC("N264"),
                                 MakeFourCC("A264"), MakeFourCC("I264"), MakeFourCC("I264"), MakeFourCC("havc"),
                                 MakeFourCC("MP1V"), MakeFourCC("MP2V"), MakeFourCC("MP2V"), MakeFourCC("MP4V"),
                                 MakeFourCC("Xvid"), MakeFourCC("VP8 "), MakeFourCC("VP8 "),
                                 static_cast<FourCC>(m_Dice.Bits()), FourCC{0}});
        job.audio = m_Dice.Pick({MakeFourCC("AAC "), MakeFourCC("AAC "), MakeFourCC("VBIS"), MakeFourCC("VBIS"),
                                 MakeFourCC("AC3 "), MakeFourCC("MP3 "), MakeFourCC("MP2A"), MakeFourCC("DTS "),
                                 MakeFourCC("PCM "), static_cast<FourCC>(m_Dice.Bits()), FourCC{0x55}, FourCC{0}});
        return job;
    }

    HostCall& AddCreateOrdinary(Calls& calls, const Job& job) {
        const Octets hosts = m_Dice.Some(kJobOctets);
        EncodeParam param;
        param.formatFourCC = m_OrdinaryFormat;
        param.videoParam.fourCC = job.video;
        param.videoParam.width = m_Dice.Pick({320, 640, 720, 1280, 1920});
        param.videoParam.height = m_Dice.Pick({240, 480, 576, 720, 1080, -576});
        param.videoParam.frameRate = m_Dice.Pick({25.0, 29.97, 23.976, 30.0, 50.0, 12.5});
        param.videoParam.bitCount = 24;
        param.audioParam.fourCC = job.audio;
        param.audioParam.sampleRate = m_Dice.Pick({44100, 48000, 22050, 32000, 96000});
        param.audioParam.channels = m_Dice.Pick({1, 2, 2, 6});
        param.audioParam.bitsPerSample = m_Dice.Pick({16, 16, 24, 0});
        const bool audioOnly = m_OrdinaryFormat == MakeFourCC("MKA ");
        const int kinds = audioOnly ? 1 : m_Dice.Between32(0, 5); // mostly both kinds of media
        param.disableVideo = kinds == 1 ? 1 : 0;
        param.disableAudio = kinds == 0 ? 1 : 0;
        // A job without video seldom fills its video parameters in.
        if (audioOnly && m_Dice.Percent(70)) param.videoParam.fourCC = 0;
        return AddCreate(calls, job.slot, param, hosts);
    }

    HostCall& AddCreate(Calls& calls, const Job& job) {
        const Octets hosts = m_Dice.Some(kJobOctets);
        EncodeParam param;
        std::memcpy(&param.videoParam.bitCount, &hosts[44], sizeof param.videoParam.bitCount); // anything
        param.formatFourCC = m_Dice.Pick({MakeFourCC("MKV "), MakeFourCC("MKV "), MakeFourCC("HMKV"),
                                          MakeFourCC("MKA "), MakeFourCC("WEBM"), MakeFourCC("WEBM")});
        if (m_Dice.OneIn(40)) param.formatFourCC = static_cast<FourCC>(m_Dice.Bits());
        param.videoParam.fourCC = job.video;
        param.videoParam.width = Dimension();
        param.videoParam.height = Dimension();
        param.videoParam.frameRate = FrameRate();
        param.audioParam.fourCC = job.audio;
        param.audioParam.sampleRate = m_Dice.Pick<std::int32_t>(
            {44100, 48000, 96000, 16777217, 0, -1, kMin32, kMax32, m_Dice.Between32(kMin32, kMax32)});
        param.audioParam.channels =
            m_Dice.Pick<std::int32_t>({1, 2, 6, 0, -1, kMin32, kMax32, m_Dice.Between32(kMin32, kMax32)});
        param.audioParam.bitsPerSample =
            m_Dice.Pick<std::int32_t>({16, 24, 0, -7, kMin32, kMax32, m_Dice.Between32(kMin32, kMax32)});
        const int kinds = m_Dice.Between32(0, 15); // mostly both
        param.disableVideo = kinds < 3 ? m_Dice.Pick({1U, 0x80000000U}) : 0;
        param.disableAudio = kinds == 2 || kinds == 3 || kinds == 4 ? m_Dice.Pick({1U, 0x80000000U}) : 0;
        HostCall& call = AddCreate(calls, job.slot, param, hosts);
        if (m_Dice.OneIn(25)) {
            call.path = m_Dice.Pick({ReferenceModel::Path::Null, ReferenceModel::Path::DoesNotOpen,
                                     ReferenceModel::Path::DiscImage, ReferenceModel::Path::DiscImage});
        }
        call.nullRecord = m_Dice.OneIn(100);
        return call;
    }

    HostCall& AddCreate(Calls& calls, int slot, const EncodeParam& param, const Octets& hosts) {
        HostCall& call = Add(calls, Kind::CreateMediaFile, slot);
        call.hostOctets = hosts;
        call.encodeParam = std::make_shared<const EncodeParam>(param);
        return call;
    }

    std::int32_t Dimension() {
        if (m_Dice.Percent(60)) return m_Dice.Between32(1, 4000);
        return m_Dice.Pick<std::int32_t>(
            {0, 1, -1, -576, 255, 256, 65535, 65536, kMin32, kMin32 + 1, kMax32, m_Dice.Between32(kMin32, kMax32)});
    }

    double FrameRate() {
        if (m_Dice.Percent(50)) return m_Dice.Pick({25.0, 29.97, 23.976, 60.0, 0.5, 1e9});
        if (m_Dice.Percent(30)) {
            const std::uint64_t bits = m_Dice.Bits();
            double value = 0;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        }
        using Limits = std::numeric_limits<double>;
        return m_Dice.Pick({0.0, -0.0, -25.0, -1e300, 1e300, 1e-300, 1e-10, 5.421010862427522e-11, 5.4e-11, 5.5e-11,
                            2e9, -2e9, Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(), Limits::max(),
                            Limits::denorm_min()});
    }

    // Set-up data.

    void AddSetup(Calls& calls, const Job& job, bool withVideo, bool withAudio) {
        if (job.isOrdinary) {
            if (withAudio) {
                const bool vorbis = job.audio == MakeFourCC("VBIS");
                HostCall& call = Add(calls, Kind::WriteVosData, job.slot);
                call.data = Whole(m_Dice.Some(vorbis ? m_Dice.Count(2500, 5000) : m_Dice.Pick<std::size_t>({2, 2, 5})));
            }
            if (withVideo) {
                HostCall& call = Add(calls, Kind::WritezXPSData, job.slot);
                if (job.video == MakeFourCC("MP1V") || job.video == MakeFourCC("MP2V")) {
                    call.data.isNull = true;
                    call.sequence = Whole(MpegHeader());
                } else {
                    call.data = Whole(m_Dice.Some(m_Dice.Count(4, 8)));
                    call.sequence = Whole(m_Dice.Some(m_Dice.Count(20, 40)));
                }
            }
            return;
        }
        if (m_Dice.Percent(50)) {
            HostCall& call = Add(calls, Kind::WriteVosData, job.slot);
            call.data = SetupBuffer();
        } else {
            HostCall& call = Add(calls, Kind::WritezXPSData, job.slot);
            call.data = SetupBuffer();
            call.sequence = SetupBuffer();
            if (m_Dice.Percent(40)) {
                call.sequence = Whole(m_Dice.Percent(60) ? MpegHeader() : MpegNoise(m_Dice.Count(1, 60)));
            }
        }
    }

    HostBuffer SetupBuffer() {
        HostBuffer buffer;
        std::size_t size = m_Dice.Count(1, 60);
        if (m_Dice.Percent(40)) {
            size = m_Dice.Pick<std::size_t>({1,    2,    3,    4,    5,    126,  127,   1000,  1011,  1012,
                                             1013, 1023, 1024, 1025, 2000, 9000, 10239, 10240, 10241, 12000});
        }
        if (m_Dice.OneIn(60)) size = m_Dice.Pick<std::size_t>({65535, 65536, 70000});
        buffer = Whole(m_Dice.Some(size));
        if (m_Dice.Percent(15)) {
            buffer.length = m_Dice.Pick<std::int32_t>({0, -1, kMin32, m_Dice.Between32(1, buffer.length)});
        }
        if (m_Dice.Percent(10)) {
            buffer.isNull = true;
            if (m_Dice.Percent(50)) buffer.length = m_Dice.Pick<std::int32_t>({0, 1, 100, kMax32, kMin32});
        }
        return buffer;
    }

    // The contents of frames.

    Octets MpegHeader() {
        Octets octets{0, 0, 1, 0xB3};
        Append(octets, m_Dice.Some(8));
        if (m_Dice.Percent(60)) {
            Append(octets, {0, 0, 1, 0xB5});
            Append(octets, m_Dice.Some(6));
        }
        if (m_Dice.Percent(70)) {
            Append(octets, {0, 0, 1, m_Dice.Pick<unsigned char>({0xB8, 0x00, 0xB2, 0x01})});
            Append(octets, m_Dice.Some(4));
        }
        return octets;
    }

    Octets MpegNoise(std::size_t size) {
        if (m_Dice.Percent(50)) return m_Dice.SomeOf(size, {0, 0, 0, 0, 1, 1, 0xB3, 0xB3, 0xB5, 0xB8});
        Octets octets;
        while (octets.size() < size) {
            Append(octets, {0, 0, 1, m_Dice.Pick<unsigned char>({0xB3, 0xB3, 0xB5, 0xB8})});
            Append(octets, m_Dice.SomeOf(m_Dice.Count(0, 6), {0, 0, 1, 0xB3, 0xFF}));
        }
        return octets;
    }

    Octets MpegFrame(bool key, bool ordinary) {
        if (!ordinary && m_Dice.Percent(50)) return MpegNoise(m_Dice.Count(1, 80));
        if (!ordinary && m_Dice.Percent(20)) return MpegHeader();
        Octets octets = key || (!ordinary && m_Dice.Percent(30)) ? MpegHeader() : Octets{};
        if (!ordinary && m_Dice.Percent(30)) octets.insert(octets.begin(), {0, 0, 1, 0xB8, 7});
        Append(octets, {0, 0, 1, 0});
        Append(octets, m_Dice.Some(m_Dice.Count(20, 120)));
        return octets;
    }

    void AppendUnit(Octets& octets, int type, std::size_t size) {
        Append(octets, {0, 0, 0, 1, static_cast<unsigned char>(0x60 | type)});
        Append(octets, m_Dice.Some(size));
    }

    Octets OrdinaryAccessUnit(bool key) {
        Octets octets;
        if (m_Dice.Percent(50)) AppendUnit(octets, 9, 1);
        if (key) {
            AppendUnit(octets, 7, m_Dice.Count(10, 30));
            AppendUnit(octets, 8, m_Dice.Count(3, 6));
            if (m_Dice.Percent(50)) AppendUnit(octets, 6, 20);
        }
        const int slices = m_Dice.Percent(70) ? 1 : m_Dice.Between32(2, 4);
        for (int i = 0; i < slices; ++i) AppendUnit(octets, key ? 5 : 1, m_Dice.Count(10, 150));
        return octets;
    }

    // Start codes wherever they do harm.
    Octets OddAccessUnit() {
        if (m_Dice.Percent(25)) {
            return m_Dice.SomeOf(m_Dice.Count(1, 40), {0, 0, 0, 0, 0, 0, 1, 1, 1, 5, 0x65, 0x41, 0x67, 9});
        }
        Octets octets;
        if (m_Dice.Percent(30)) octets = m_Dice.SomeOf(m_Dice.Count(1, 12), {0, 1, 5, 7, 0x65, 0x41, 0xFF});
        const int units = m_Dice.Between32(0, 6);
        for (int i = 0; i < units; ++i) {
            if (m_Dice.Percent(85)) {
                Append(octets, {0, 0, 0, 1});
            } else if (m_Dice.Percent(60)) {
                Append(octets, {0, 0, 1});
            }
            if (m_Dice.Percent(12)) continue; // start code after start code
            const int type = m_Dice.Percent(60) ? m_Dice.Pick({1, 5, 7, 8, 9}) : m_Dice.Between32(0, 31);
            octets.push_back(static_cast<unsigned char>(m_Dice.Between32(0, 7) << 5 | type));
            if (m_Dice.Percent(10)) continue;
            Append(octets, m_Dice.Percent(50) ? m_Dice.Some(m_Dice.Count(0, 30))
                                              : m_Dice.SomeOf(m_Dice.Count(0, 10), {0, 0, 1, 0x65}));
        }
        if (m_Dice.Percent(20)) Append(octets, {0, 0, 0, 1});
        if (m_Dice.Percent(20)) octets.resize(m_Dice.Count(0, octets.size()));
        return octets;
    }

    Octets LengthPrefixed(bool key) {
        Octets octets;
        const int units = m_Dice.Between32(1, 3);
        for (int i = 0; i < units; ++i) {
            const std::size_t size = m_Dice.Count(2, 200);
            Append(octets, {0, 0, 0, static_cast<unsigned char>(size), static_cast<unsigned char>(key ? 0x65 : 0x41)});
            Append(octets, m_Dice.Some(size - 1));
        }
        return octets;
    }

    static bool IsMpeg(FourCC code) { return code == MakeFourCC("MP1V") || code == MakeFourCC("MP2V"); }
    static bool IsStartCodeJob(const Job& job) {
        return job.video == MakeFourCC("N264") || job.video == MakeFourCC("A264") || job.video == MakeFourCC("I264") ||
               (job.video == MakeFourCC("H264") && job.startCodes);
    }

    Octets VideoOctets(const Job& job, bool key) {
        if (IsMpeg(job.video)) return MpegFrame(key, job.isOrdinary);
        if (IsStartCodeJob(job)) {
            if (job.isOrdinary) return OrdinaryAccessUnit(key);
            if (m_Dice.Percent(90)) return m_Dice.Percent(70) ? OddAccessUnit() : OrdinaryAccessUnit(key);
        }
        if (job.video == MakeFourCC("H264") && m_Dice.Percent(80)) return LengthPrefixed(key);
        return m_Dice.Some(FrameSize(job.isOrdinary));
    }

    std::size_t FrameSize(bool ordinary) {
        if (m_Dice.Percent(90)) return m_Dice.Count(8, 200);
        if (m_Dice.OneIn(400)) return m_Dice.Count(2097100, 2097170);
        if (ordinary) return m_Dice.Count(200, 5000);
        return m_Dice.Pick<std::size_t>({1,     2,     3,     4,     5,     114,   115,   116,  117, 118,
                                         119,   120,   121,   122,   123,   124,   125,   126,  127, 128,
                                         16370, 16376, 16377, 16378, 16379, 16380, 16384, 40000});
    }

    // Frames: when they come.

    // A frame whose bytes lie in `data`; the caller may bend it afterwards.
    HostCall& AddFrame(Calls& calls, Kind kind, int slot, std::int64_t timestamp, std::int32_t duration,
                       Octets octets) {
        HostCall& call = Add(calls, kind, slot);
        call.hostOctets = m_Dice.Some(kFrameOctets);
        call.frame.timestamp = timestamp;
        call.frame.duration = duration;
        call.data = Whole(std::move(octets));
        return call;
    }

    // Frames of both kinds as a host would bring them: each in its decoding order, one stream a little ahead.
    Calls OrdinaryFrames(const Job& job, double frameRate, bool withVideo, bool withAudio) {
        std::multimap<std::int64_t, HostCall> frames; // by their arrival
        const std::int64_t begin = m_Dice.Percent(70) ? 0 : m_Dice.Between(0, 20 * kSecond);
        const std::int64_t length =
            m_Dice.Percent(5) ? m_Dice.Between(0, kSecond / 10) : m_Dice.Between(kSecond / 2, 6 * kSecond);
        const std::int64_t jitter = m_Dice.Pick<std::int64_t>({0, 0, 0, 5000, 30000});
        if (withVideo) {
            const auto step = static_cast<std::int64_t>(static_cast<double>(kSecond) / frameRate);
            const std::int64_t interval = m_Dice.Pick<std::int64_t>({1, 12, 25, 250});
            const bool reordered = m_Dice.Percent(30);
            const std::int64_t ahead = m_Dice.Percent(60) ? 0 : m_Dice.Between(0, 3 * kSecond);
            for (std::int64_t i = 0; i * step < length; ++i) {
                // Three frames in decoding order: the third picture goes first, as reordered codecs have it.
                const std::int64_t shown = reordered ? i + (i % 3 == 0 ? 2 : -1) : i;
                const bool key = i % interval == 0;
                const std::int64_t timestamp = begin + std::max<std::int64_t>(0, shown * step + Jitter(jitter));
                Calls one;
                HostCall& call = AddFrame(one, Kind::WriteVideoPacket, job.slot, timestamp,
                                          static_cast<std::int32_t>(step), VideoOctets(job, key));
                call.frame.frameFlags = key ? m_Dice.Pick({1U, 1U, 16U}) : 0;
                frames.emplace(i * step - ahead, std::move(call));
            }
        }
        if (withAudio) {
            const std::int64_t step = m_Dice.Pick<std::int64_t>({213333, 232200, 240000, 320000, 261224});
            const std::int64_t ahead = m_Dice.Percent(60) ? 0 : m_Dice.Between(0, 3 * kSecond);
            const std::int64_t packed = m_Dice.Percent(75) ? 1 : m_Dice.Between(2, 6);
            for (std::int64_t i = 0; i * step < length; i += packed) {
                Octets octets;
                std::vector<int> sizes{static_cast<int>(packed)};
                for (std::int64_t j = 0; j < packed; ++j) {
                    Append(octets, m_Dice.Some(m_Dice.Count(5, 60)));
                    sizes.push_back(static_cast<int>(octets.size()));
                }
                for (std::size_t j = sizes.size() - 1; j > 1; --j) sizes[j] -= sizes[j - 1];
                const std::int64_t timestamp = begin + std::max<std::int64_t>(0, i * step + Jitter(jitter));
                Calls one;
                HostCall& call = AddFrame(one, Kind::WriteAudioPacket, job.slot, timestamp,
                                          static_cast<std::int32_t>(step * packed), std::move(octets));
                if (packed > 1 || m_Dice.Percent(20)) {
                    call.isSplit = true;
                    call.frameSizes = sizes;
                }
                frames.emplace(i * step - ahead, std::move(call));
            }
        }
        Calls calls;
        for (auto& [arrival, call] : frames) calls.push_back(std::move(call));
        return calls;
    }

    std::int64_t Jitter(std::int64_t most) { return most == 0 ? 0 : m_Dice.Between(-most, most); }

    // The time stamps of one odd stream.
    struct Beat {
        int pattern;
        std::int64_t now;
        std::int64_t step;
    };

    Beat MakeBeat() {
        Beat beat{m_Dice.Between32(0, 9), 0, 0};
        beat.now = m_Dice.Pick<std::int64_t>({0, 0, 0, m_Dice.Between(-5 * kSecond, 60 * kSecond), -1, -5001, 4999,
                                              5000, m_Dice.Between(kMin64, kMax64), kMax64 - 30 * kSecond, kMin64});
        beat.step = m_Dice.Pick<std::int64_t>({400000, 213333, 5000, 1, 1000000, 10000000, 10010000, 2500000});
        return beat;
    }

    // Wraps, as a host's own counter might.
    static std::int64_t Moved(std::int64_t from, std::int64_t by) {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(from) + static_cast<std::uint64_t>(by));
    }

    std::int64_t Next(Beat& beat) {
        switch (beat.pattern) {
        case 0:
        case 1:
        case 2:
            beat.now = Moved(beat.now, beat.step);
            break;
        case 3:
            beat.now = Moved(beat.now, m_Dice.Between(-beat.step, 3 * beat.step));
            break;
        case 4: // repeating
            if (m_Dice.Percent(40)) beat.now = Moved(beat.now, beat.step);
            break;
        case 5:
            beat.now = Moved(beat.now, -beat.step * m_Dice.Between(0, 3));
            break;
        case 6: // gaps, the largest of ten years
            beat.now =
                Moved(beat.now, m_Dice.Percent(80) ? beat.step
                                                   : m_Dice.Pick<std::int64_t>({kSecond, 3 * kSecond, 3600 * kSecond,
                                                                                3650 * (86400 * kSecond)}));
            break;
        case 7: // around the earliest time that is kept
            beat.now = m_Dice.Percent(70) ? Moved(beat.now, beat.step)
                                          : Moved(beat.now, -327680000 + 10000 * m_Dice.Between(-3, 3));
            break;
        case 8: // around the edges of milliseconds and spans
            beat.now = m_Dice.Between(0, 5) * kSecond;
            beat.now += m_Dice.Pick<std::int64_t>({0, 4999, 5000, 14999, 15000, -5000, -5001, 10000});
            break;
        default:
            beat.now = m_Dice.Percent(60)
                           ? m_Dice.Between(-100 * kSecond, 100 * kSecond)
                           : m_Dice.Pick<std::int64_t>({kMin64, kMax64, kMin64 + 1, kMax64 - 5000, kMax64 - 4999,
                                                        kMin64 + 5000, -1, 0, m_Dice.Between(kMin64, kMax64)});
        }
        return beat.now;
    }

    std::int32_t Duration() {
        if (m_Dice.Percent(50)) return m_Dice.Pick<std::int32_t>({400000, 213333, 640000, 1000000});
        return m_Dice.Pick<std::int32_t>(
            {0, -1, 1, 2, 3, 7, 15000, 4999, kMin32, kMax32, kMin32 + 1, m_Dice.Between32(kMin32, kMax32)});
    }

    Calls OddFrames(const Job& job) {
        Calls video;
        Calls audio;
        const std::size_t most = m_Dice.Percent(20) ? 2 : m_Dice.Percent(75) ? 30 : 120;
        Beat beat = MakeBeat();
        const std::size_t videoFrames = m_Dice.Percent(8) ? 0 : m_Dice.Count(1, most);
        for (std::size_t i = 0; i < videoFrames; ++i) {
            const bool key = m_Dice.Percent(40);
            const std::int64_t timestamp = Next(beat);
            const std::int32_t duration = Duration();
            HostCall& call =
                AddFrame(video, Kind::WriteVideoPacket, job.slot, timestamp, duration, VideoOctets(job, key));
            call.frame.frameFlags = key ? m_Dice.Pick({1U, 2U, 0x80000000U, 0x10U}) : 0;
            if (most == 2) EndAtTheEdge(call);
            Bend(call);
        }
        // Half of the time both streams share their time, else each goes where it likes.
        Beat other = m_Dice.Percent(50) ? MakeBeat() : Beat{0, 0, 213333};
        const std::size_t audioFrames = m_Dice.Percent(8) ? 0 : m_Dice.Count(1, most);
        for (std::size_t i = 0; i < audioFrames; ++i) {
            const std::int64_t timestamp = Next(other);
            const std::int32_t duration = Duration();
            HostCall& call =
                AddFrame(audio, Kind::WriteAudioPacket, job.slot, timestamp, duration, m_Dice.Some(FrameSize(false)));
            if (m_Dice.Percent(30)) Divide(call);
            if (most == 2) EndAtTheEdge(call);
            Bend(call);
        }
        if (m_Dice.Percent(15)) { // one after the other
            if (!m_Dice.Percent(50)) std::swap(video, audio);
            for (HostCall& call : audio) video.push_back(std::move(call));
            return video;
        }
        return Shuffle(std::move(video), std::move(audio));
    }

    // Gives an audio frame a table of sizes, which may promise more or less than there is.
    void Divide(HostCall& call) {
        call.isSplit = true;
        if (m_Dice.Percent(10)) {
            call.frameSizes = {m_Dice.Pick<int>({0, -1, kMin32})};
            return;
        }
        const int count = m_Dice.Percent(25)   ? 1
                          : m_Dice.Percent(90) ? m_Dice.Between32(2, 9)
                                               : m_Dice.Between32(10, 200);
        call.frameSizes = {count};
        const int even = std::max(1, call.data.length / count);
        for (int i = 0; i < count; ++i) {
            int size = even;
            if (m_Dice.Percent(15)) {
                size = m_Dice.Pick<int>({0, -1, 1, even + 1, even * 2, kMax32, kMin32, call.data.length});
            }
            call.frameSizes.push_back(size);
        }
        if (m_Dice.Percent(20)) call.frame.duration = m_Dice.Between32(-2, count);
    }

    // Lets some frames end where a millisecond is rounded up. The end shows in the file when its blocks are few.
    void EndAtTheEdge(HostCall& call) {
        if (m_Dice.Percent(70)) return;
        const std::int64_t count = call.isSplit ? std::max(1, call.frameSizes[0]) : 1;
        const std::int64_t duration = call.frame.duration;
        call.frame.timestamp = 5000 - std::max<std::int64_t>(1, duration / count);
    }

    // Now and then less than the whole, or nothing.
    void Bend(HostCall& call) {
        if (m_Dice.Percent(90)) return;
        switch (m_Dice.Between(0, 4)) {
        case 0:
            call.data.length = m_Dice.Pick<std::int32_t>({0, -1, kMin32, -100});
            break;
        case 1:
            call.data.length = m_Dice.Between32(0, call.data.length);
            break;
        case 2:
            call.data.isNull = true;
            break;
        case 3:
            call.nullRecord = true;
            break;
        default:
            call.data = Whole({});
            break;
        }
        KeepTableWithin(call);
    }

    // The row of calls.

    static HostCall& Add(Calls& calls, HostCall call) {
        calls.push_back(std::move(call));
        return calls.back();
    }
    static HostCall& Add(Calls& calls, Kind kind, int slot) {
        HostCall call;
        call.kind = kind;
        call.slot = slot;
        return Add(calls, std::move(call));
    }
    void AddAll(Calls calls) {
        for (HostCall& call : calls) m_Session.calls.push_back(std::move(call));
    }

    Dice m_Dice;
    RandomSession m_Session;
    FourCC m_OrdinaryFormat = 0;
};

} // namespace

const char* NameOf(HostCall::Kind kind) {
    switch (kind) {
    case Kind::SetClock:
        return "SetClock";
    case Kind::SetMuxParam:
        return "SetMuxParam";
    case Kind::CreateMediaFile:
        return "CreateMediaFile";
    case Kind::WriteVideoPacket:
        return "WriteVideoPacket";
    case Kind::WriteAudioPacket:
        return "WriteAudioPacket";
    case Kind::WriteVosData:
        return "WriteVosData";
    case Kind::WritezXPSData:
        return "WritezXPSData";
    case Kind::CloseMediaFile:
        return "CloseMediaFile";
    }
    return "?";
}

void KeepTableWithin(HostCall& call) {
    if (call.data.length > 0) return;
    std::size_t rest = call.data.octets.size();
    for (std::size_t i = 1; i < call.frameSizes.size(); ++i) {
        int& size = call.frameSizes[i];
        if (size > 0 && static_cast<std::size_t>(size) > rest) size = 0;
        if (size > 0) rest -= static_cast<std::size_t>(size);
    }
}

RandomSession MakeRandomSession(std::uint64_t seed) { return Generator(seed).Make(); }
