// SPDX-License-Identifier: MIT
// Writes one file of one workload with one writer and prints the cost.
//     qf_bench WRITER WORKLOAD SECONDS OUTPUT [rehearse]
// OUTPUT: a path, or - for a sink that only counts. rehearse: run once before, unmeasured, because the first
// octets of a fresh file on tmpfs cost several times as much as later ones.
// Prints one line of JSON. Under callgrind --instr-atstart=no only the measured run counts instructions; in a trace of
// system calls two calls of getppid mark it.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "HeapCount.h"
#include "Writer.h"

namespace {

// Takes the frames and ignores them, to measure the cost of feeding.
class NoWriter final : public Writer {
public:
    void Write(const Frame& frame) override { m_Octets += frame.m_Size; }
    std::uint64_t Close() override { return m_Octets; }

private:
    std::uint64_t m_Octets = 0;
};

std::unique_ptr<Writer> OpenNothing(const WorkloadKind&, const std::string& path) {
    if (!path.empty()) std::ofstream file(path);
    return std::make_unique<NoWriter>();
}

struct WriterKind {
    const char* m_Name;
    OpenWriter m_Open;
};

constexpr WriterKind kWriters[] = {
    {"none", OpenNothing},
    {"limit", OpenLimit},
    {"limit+search", OpenSearchLimit},
    {"qf_mkv", OpenPlugin},
#ifdef QF_BENCH_PEERS
    {"libwebm", OpenLibwebm},
    {"libavformat", OpenLibavformat},
    {"libavformat-crc", OpenLibavformatCrc},
    {"libmatroska", OpenLibmatroska},
#endif
};

struct Cost {
    std::uint64_t m_Frames = 0;
    std::uint64_t m_PayloadOctets = 0;
    std::uint64_t m_FileOctets = 0;
    double m_CpuSeconds = 0;
    std::int64_t m_PeakMemory = 0; // octets that the process grew by
    HeapCount m_Heap{};            // all zero without the counting library
};

double CpuSeconds() {
    std::timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// VmRSS or VmHWM, in octets.
std::int64_t ProcessMemory(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::int64_t kibibytes = 0;
    while (status >> word) {
        if (word == field + ":" && status >> kibibytes) return kibibytes * 1024;
    }
    throw std::runtime_error("/proc/self/status has no " + field);
}

HeapCount* FindHeapCount() {
    const auto find = reinterpret_cast<decltype(&qf_heap_count)>(dlsym(RTLD_DEFAULT, "qf_heap_count"));
    return find != nullptr ? find() : nullptr;
}

// Measures from opening the file to closing it. Only the counted run sets the marks.
Cost RunOnce(OpenWriter open, Workload& workload, const std::string& path, bool counts) {
    Cost cost;
    HeapCount* const heap = FindHeapCount();
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak is counted from here
    const std::int64_t memoryBefore = ProcessMemory("VmRSS");
    if (heap != nullptr) *heap = {};

    if (counts) {
        syscall(SYS_getppid);
        CALLGRIND_START_INSTRUMENTATION;
    }
    const double start = CpuSeconds();
    auto writer = open(workload.Kind(), path);
    workload.Feed([&](const Frame& frame) {
        writer->Write(frame);
        ++cost.m_Frames;
        cost.m_PayloadOctets += frame.m_Size;
    });
    cost.m_FileOctets = writer->Close();
    writer.reset();
    cost.m_CpuSeconds = CpuSeconds() - start;
    if (counts) {
        CALLGRIND_STOP_INSTRUMENTATION;
        syscall(SYS_getppid);
    }

    if (heap != nullptr) cost.m_Heap = *heap;
    cost.m_PeakMemory = ProcessMemory("VmHWM") - memoryBefore;
    if (!path.empty()) cost.m_FileOctets = std::filesystem::file_size(path);
    return cost;
}

int Run(char** arguments, bool rehearse) {
    const auto writer = std::find_if(std::begin(kWriters), std::end(kWriters), [&](const WriterKind& kind) {
        return std::strcmp(kind.m_Name, arguments[0]) == 0;
    });
    if (writer == std::end(kWriters)) throw std::runtime_error(std::string("no writer is called ") + arguments[0]);
    Workload workload(arguments[1], static_cast<unsigned>(std::stoul(arguments[2])));
    const std::string path = std::strcmp(arguments[3], "-") != 0 ? arguments[3] : "";

    if (rehearse) RunOnce(writer->m_Open, workload, path, false);
    const Cost cost = RunOnce(writer->m_Open, workload, path, true);
    // A writer that drops frames is faster but wrong.
    if (writer->m_Open != OpenNothing && cost.m_FileOctets < cost.m_PayloadOctets / 100 * 99) {
        throw std::runtime_error("the file is shorter than its frames");
    }
    std::printf("{\"frames\": %llu, \"payload\": %llu, \"file\": %llu, \"cpu_s\": %.6f, \"peak_memory\": %lld, "
                "\"allocations\": %llu, \"peak_heap\": %lld}\n",
                static_cast<unsigned long long>(cost.m_Frames), static_cast<unsigned long long>(cost.m_PayloadOctets),
                static_cast<unsigned long long>(cost.m_FileOctets), cost.m_CpuSeconds,
                static_cast<long long>(cost.m_PeakMemory), static_cast<unsigned long long>(cost.m_Heap.m_Allocations),
                static_cast<long long>(cost.m_Heap.m_Peak));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5 || argc > 6 || (argc == 6 && std::strcmp(argv[5], "rehearse") != 0)) {
        std::fputs("qf_bench WRITER WORKLOAD SECONDS OUTPUT [rehearse]\n", stderr);
        return 3;
    }
    try {
        return Run(argv + 1, argc == 6);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qf_bench: %s\n", error.what());
        return 2;
    }
}
