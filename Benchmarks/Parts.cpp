// SPDX-License-Identifier: MIT
// The small parts of the plug-in, in the objects that ship, with Google Benchmark.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "MKVFile.h"
#include "MKVMuxer.h"
#include "MatroskaFile.h"
#include "NalUnits.h"

using namespace MatroskaWriter;

namespace {

class CountingStream final : public IStream {
public:
    std::int32_t Read(void*, unsigned long, unsigned long*) override { return -1; }
    std::int32_t Write(const void* buffer, unsigned long count, unsigned long*) override {
        benchmark::DoNotOptimize(buffer);
        m_Octets += count;
        return 0;
    }
    std::int32_t Seek(std::int64_t, unsigned long, std::int64_t*) override { return -1; }

    std::uint64_t m_Octets = 0;
};

std::int64_t Times(const benchmark::State& state, std::size_t count) {
    return static_cast<std::int64_t>(count) * static_cast<std::int64_t>(state.iterations());
}

void CountOctets(benchmark::State& state, std::size_t octets) { state.SetBytesProcessed(Times(state, octets)); }
void CountItems(benchmark::State& state, std::size_t items) { state.SetItemsProcessed(Times(state, items)); }

// ---- start codes, in data that has none

std::vector<unsigned char> RandomOctets(std::size_t size) {
    std::mt19937 random(1);
    std::vector<unsigned char> octets(size);
    for (unsigned char& octet : octets) octet = static_cast<unsigned char>(random());
    for (std::size_t i = 2; i < size; ++i) {
        if (octets[i - 2] == 0 && octets[i - 1] == 0 && octets[i] <= 3) octets[i] = 0x80;
    }
    return octets;
}

void FindStartCodeInRandom(benchmark::State& state) {
    auto octets = RandomOctets(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(FindStartCode(octets.data(), static_cast<int>(octets.size())));
    CountOctets(state, octets.size());
}

// One call over the whole data: the octet sought does not occur.
void MemchrOfAbsent(benchmark::State& state) {
    auto octets = RandomOctets(static_cast<std::size_t>(state.range(0)));
    for (unsigned char& octet : octets) octet = octet == 1 ? 2 : octet;
    for (auto _ : state) benchmark::DoNotOptimize(std::memchr(octets.data(), 1, octets.size()));
    CountOctets(state, octets.size());
}

// Called anew behind each 01, one octet in 256.
void MemchrOfEach(benchmark::State& state) {
    const auto octets = RandomOctets(static_cast<std::size_t>(state.range(0)));
    const unsigned char* const end = octets.data() + octets.size();
    for (auto _ : state) {
        for (const unsigned char* at = octets.data(); at != nullptr && at < end;) {
            at = static_cast<const unsigned char*>(std::memchr(at, 1, static_cast<std::size_t>(end - at)));
            benchmark::DoNotOptimize(at);
            if (at != nullptr) ++at;
        }
    }
    CountOctets(state, octets.size());
}

// An H.264 picture of 12 KB and one of 1 MiB.
#define ON_PICTURES(function) BENCHMARK(function)->Arg(12000)->Arg(1 << 20)
ON_PICTURES(FindStartCodeInRandom);
ON_PICTURES(MemchrOfAbsent);
ON_PICTURES(MemchrOfEach);

// ---- EBML lengths, of 1 to 8 octets

std::vector<CLength> Lengths() {
    std::vector<CLength> lengths;
    for (unsigned octets = 1; octets <= 8; ++octets) lengths.emplace_back(PowerOfTwo(7 * octets - 1));
    return lengths;
}

void LengthSize(benchmark::State& state) {
    const auto lengths = Lengths();
    for (auto _ : state) {
        for (const CLength& length : lengths) benchmark::DoNotOptimize(length.Size(true));
    }
    CountItems(state, lengths.size());
}
BENCHMARK(LengthSize);

void LengthWrite(benchmark::State& state) {
    const auto lengths = Lengths();
    CountingStream stream;
    for (auto _ : state) {
        for (const CLength& length : lengths) length.Write(&stream);
    }
    CountItems(state, lengths.size());
}
BENCHMARK(LengthWrite);

// ---- a cluster of one second: 25 pictures of 12 KB, 47 frames of sound

struct SecondOfMovie {
    SecondOfMovie() {
        VideoParam video{};
        video.fourCC = MakeFourCC("H264");
        video.frameRate = 25;
        AudioParam audio{};
        audio.fourCC = MakeFourCC("AAC ");
        audio.sampleRate = 48000;
        long result = -1;
        MatroskaStream pictures(&video, nullptr, &result);
        MatroskaStream sounds(&audio, &result);
        constexpr std::int64_t kSecond = 10000000;
        Fill(pictures, 25, RandomOctets(12000), kSecond / 25);
        Fill(sounds, 47, RandomOctets(340), kSecond * 1024 / 48000);
        m_Cluster.m_Timecode.Set(0);
    }

    Cluster m_Cluster{kClusterId};

private:
    void Fill(MatroskaStream& stream, int count, const std::vector<unsigned char>& octets, std::int64_t duration) {
        for (int i = 0; i < count; ++i) {
            stream.WritePacket(octets.data(), static_cast<int>(octets.size()), i * duration, (i + 1) * duration,
                               i == 0);
        }
        m_Cluster.m_BlockGroups.splice(m_Cluster.m_BlockGroups.end(), stream.m_Queue);
    }
};

void ClusterSize(benchmark::State& state) {
    const SecondOfMovie movie;
    for (auto _ : state) benchmark::DoNotOptimize(movie.m_Cluster.Size(true));
}
BENCHMARK(ClusterSize);

void ClusterWrite(benchmark::State& state) {
    const SecondOfMovie movie;
    CountingStream stream;
    for (auto _ : state) movie.m_Cluster.Write(&stream);
    if (Times(state, movie.m_Cluster.Size(true)) != static_cast<std::int64_t>(stream.m_Octets)) {
        state.SkipWithError("octets are missing");
    }
}
BENCHMARK(ClusterWrite);

// ---- texts of 1,000 characters, of 1 to 4 octets in turn

std::wstring Text() {
    std::wstring text;
    while (text.size() < 1000) text += L"a\u00E9\u20AC\U0001F3AC";
    return text;
}

void Utf32ToUtf8(benchmark::State& state) {
    const std::wstring text = Text();
    std::vector<char> target(4 * text.size());
    for (auto _ : state) {
        if (WtoUTF8(text.c_str(), static_cast<int>(text.size()), target.data(), static_cast<int>(target.size()),
                    true) != kConverted) {
            state.SkipWithError("not converted");
        }
        benchmark::ClobberMemory();
    }
    CountItems(state, text.size());
}
BENCHMARK(Utf32ToUtf8);

void Utf8ToUtf32(benchmark::State& state) {
    const std::wstring text = Text();
    std::string source(4 * text.size(), '\0');
    WtoUTF8(text.c_str(), static_cast<int>(text.size()), source.data(), static_cast<int>(source.size()), true);
    source.resize(source.find('\0'));
    std::vector<wchar_t> target(text.size());
    for (auto _ : state) {
        if (UTF8toW(source.c_str(), static_cast<int>(source.size()), target.data(), static_cast<int>(target.size()),
                    true) != kConverted) {
            state.SkipWithError("not converted");
        }
        benchmark::ClobberMemory();
    }
    CountItems(state, text.size());
}
BENCHMARK(Utf8ToUtf32);

} // namespace

BENCHMARK_MAIN();
