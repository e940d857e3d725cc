// SPDX-License-Identifier: MIT
// Threads PLUGIN FOLDER: 16 files of all formats, written one after the other and then by 16 threads at once, are the
// same octet for octet. Time stands still and each thread draws its own random numbers, so that nothing else may
// differ.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qf_host.h"

namespace {

thread_local int g_Random = 0;

struct Kind {
    const char* m_Extension;
    const char* m_Video; // null for none
    const char* m_Audio;
};
constexpr Kind kKinds[] = {
    {"mkv", "h264", "aac"}, {"webm", "vp8", "vorbis"}, {"mka", nullptr, "pcm"}, {"mkv", "mpeg2", "ac3"}};
constexpr int kFiles = 16;

using Octets = std::vector<unsigned char>;

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "%s: %s\n", what.c_str(), qf_error_text());
    std::_Exit(1);
}

void Need(int error, const char* what) {
    if (error != QF_OK) Fail(what);
}

Octets Header(unsigned char type) {
    Octets header{type, 'v', 'o', 'r', 'b', 'i', 's'};
    header.resize(30, type);
    return header;
}

// Where threads wait until so many are there.
class Gate {
public:
    explicit Gate(int expected) : m_Expected(expected) {}
    void Pass() {
        std::unique_lock lock(m_Mutex);
        if (--m_Expected == 0) m_AllAreThere.notify_all();
        m_AllAreThere.wait(lock, [this] { return m_Expected <= 0; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_AllAreThere;
    int m_Expected;
};

// Half of a file is written before the gate: by then all files are open.
void WriteOne(qf_plugin* plugin, const std::string& folder, int number, Gate& gate) {
    g_Random = number;
    const Kind& kind = kKinds[static_cast<std::size_t>(number) % std::size(kKinds)];
    std::mt19937 random(static_cast<unsigned>(number));
    qf_job* job = nullptr;
    qf_file* file = nullptr;
    Need(qf_job_new(&job), "a job");
    if (kind.m_Video != nullptr) Need(qf_job_set_video(job, kind.m_Video, 320, 180, 25), "video");
    Need(qf_job_set_audio(job, kind.m_Audio, 48000, 2, 16), "audio");
    Need(qf_job_set_display_aspect(job, number + 1, 1), "an aspect");
    static const unsigned char kSetup[] = {0x11, 0x90};
    if (std::string(kind.m_Audio) == "aac") Need(qf_job_set_setup(job, QF_AUDIO, kSetup, sizeof kSetup), "set-up data");
    const std::string path = folder + "/" + std::to_string(number) + "." + kind.m_Extension;
    Need(qf_file_open(plugin, path.c_str(), job, &file), "a file");
    qf_job_free(job);
    const auto write = [&](int track, const Octets& octets, std::int64_t time, bool isKey) {
        const qf_packet packet{sizeof(qf_packet), track, octets.data(), octets.size(), time, time, 400000,
                               isKey ? 1 : 0,     0};
        Need(qf_file_write(file, &packet), "a packet");
    };
    for (const int type : {1, 3, 5}) {
        if (std::string(kind.m_Audio) != "vorbis") break;
        write(QF_AUDIO, Header(static_cast<unsigned char>(type)), QF_NO_TIME, true);
    }
    for (int i = 0; i < 150; ++i) {
        if (i == 75) gate.Pass();
        const std::int64_t time = i * std::int64_t{400000};
        Octets picture{0, 0, 0, 1, 0x67, 0x64, 0, 0x1F, 0, 0, 1, 0x68, 0xEB, 0, 0, 1, 0x65};
        picture.resize(picture.size() + random() % 3000, static_cast<unsigned char>(i % 128 + 1));
        if (kind.m_Video != nullptr) write(QF_VIDEO, picture, time, i % 25 == 0);
        Octets sound(random() % 100 * 4 + 4, 0x20);
        write(QF_AUDIO, sound, time, true);
    }
    Need(qf_file_close(file), "closing");
}

Octets Read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

extern "C" {
#ifdef __SANITIZE_THREAD__
// mktime holds a lock of the C library's own there, which ThreadSanitizer does not see.
const char* __tsan_default_suppressions() { return "race:tzset_internal\n"; }
#endif
int rand() noexcept { return g_Random += 1000; }
time_t time(time_t* result) noexcept {
    if (result != nullptr) *result = 1000000000;
    return 1000000000;
}
}

int main(int count, char** arguments) {
    if (count != 3) return 2;
    const std::string folder = arguments[2];
    std::filesystem::remove_all(folder);
    for (const char* way : {"/serial", "/parallel"}) std::filesystem::create_directories(folder + way);
    qf_plugin* plugin = nullptr;
    Need(qf_plugin_open(arguments[1], &plugin), "the plug-in");
    for (int i = 0; i < kFiles; ++i) {
        Gate open(1);
        WriteOne(plugin, folder + "/serial", i, open);
    }
    // Twice, the second time with copies of the plug-in that have been used.
    for (int round = 0; round < 2; ++round) {
        std::filesystem::remove_all(folder + "/parallel");
        std::filesystem::create_directories(folder + "/parallel");
        Gate gate(kFiles);
        std::vector<std::thread> threads;
        for (int i = 0; i < kFiles; ++i)
            threads.emplace_back([&, i] { WriteOne(plugin, folder + "/parallel", i, gate); });
        for (std::thread& thread : threads) thread.join();
        int same = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder + "/serial")) {
            const Octets expected = Read(entry.path());
            const bool isSame =
                expected.size() > 8000 && expected == Read(folder + "/parallel/" + entry.path().filename().string());
            if (!isSame) std::fprintf(stderr, "%s differs\n", entry.path().filename().c_str());
            same += isSame;
        }
        if (same != kFiles) return 1;
    }
    qf_plugin_close(plugin);
    std::filesystem::remove_all(folder);
    return 0;
}
