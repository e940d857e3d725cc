// SPDX-License-Identifier: MIT
// A plug-in's effects on its host's process: state, memory, descriptors, threads and the disk.
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <new>

#include "Check.h"
#include "Facts.h"
#include "HeapMeter.h"
#include "OutputFile.h"
#include "PinnedEnvironment.h"
#include "Script.h"
#include "SessionPlayer.h"
#include "TempDirectory.h"
#include "Trial.h"

namespace {

namespace fs = std::filesystem;

using Script::Calls;
using Script::Frame;

constexpr struct {
    const char* m_Format;
    const char* m_Video;
    const char* m_Audio;
} kJobs[] = {{"MKV ", "H264", "AAC "}, {"MKV ", "N264", "AC3 "}, {"HMKV", "havc", "AC3 "}, {"MKA ", "", "MP3 "},
             {"WEBM", "VP8 ", "VBIS"}, {"HMKV", "MP2V", "VBIS"}, {"WEBM", "", "VBIS"}};

// Writes both kinds of media from one reused buffer, so that memory that grows is the plug-in's.
class Feeder {
public:
    Feeder(Host& host, const std::string& format, const std::string& video, const std::string& audio,
           const std::string& name = "file")
        : m_Host(host), m_Job(MakeJob(format, video, audio)), m_Path(host.PathOf(name)) {}

    bool Create() {
        m_pHandle = m_Host.CreateMediaFile(m_Path.c_str(), &m_Job);
        return m_pHandle != nullptr;
    }
    void SetUp() {
        unsigned char data[] = {0x67, 0x64, 0, 0x0A, 0xAC};
        m_Host.WriteVosData(m_pHandle, data, 2);
        m_Host.WritezXPSData(m_pHandle, data, 3, data, 5);
    }
    // One frame of each kind, of so many octets.
    void Write(int number, std::size_t size, int audioSize) {
        m_Octets.assign(size, 0x85);
        const unsigned char head[] = {0, 0, 0, 1, static_cast<unsigned char>(number % 12 == 0 ? 0x65 : 0x41)};
        std::copy(std::begin(head), std::end(head), m_Octets.begin());
        m_Frame.Set("timestamp", std::int64_t{number} * kFrameTime);
        m_Frame.Set("duration", kFrameTime);
        m_Frame.Set("frameFlags", std::uint32_t{number % 12 == 0});
        m_Frame.Set("videoData", m_Octets.data());
        m_Frame.Set("videoSize", static_cast<std::int32_t>(size));
        m_Frame.Set("audioData", m_Octets.data());
        m_Frame.Set("audioSize", audioSize);
        m_Host.WriteVideoPacket(m_pHandle, &m_Frame);
        m_Host.WriteAudioPacket(m_pHandle, &m_Frame, nullptr);
    }
    void Close() { m_Host.CloseMediaFile(m_pHandle); }
    Octets File() const { return ReadFile(fs::path(m_Path)); }

private:
    Host& m_Host;
    const Record m_Job;
    const std::wstring m_Path;
    Record m_Frame{"MEDIA_FRAME"};
    Octets m_Octets;
    void* m_pHandle = nullptr;
};

// Files of all kinds, good and failed.
void WriteFiles(Host& host, int frames) {
    for (const auto& job : kJobs) {
        Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
        file.Create();
        file.SetUp();
        for (int i = 0; i < frames; ++i) file.Write(i, 50, 20);
        file.SetUp();
        file.Close();
    }
    for (const char* name : {"none/file", "disc.iso:", "empty"}) {
        Feeder file(host, "MKV ", "H264", "AAC ", name);
        if (file.Create()) file.Close();
    }
    const Record unknown = MakeJob("AVI ", "", "");
    host.CreateMediaFile(host.PathOf("file").c_str(), &unknown);
    host.CreateMediaFile(nullptr, nullptr);
}

// ---- the state of the process

void UntouchedByCalls(Host& host) {
    host.Load();
    Facts before = FactsOfProcess();
    host.CallBy([&before](const std::string& function, const std::function<void()>& call) {
        call();
        RequireSame(before, FactsOfProcess(), function);
    });
    host.GetFileFormats();
    host.FindFileFormat(Code("MKV "));
    host.SetMuxParam(nullptr);
    WriteFiles(host, 30);
}

void UntouchedByLoading(Host& host) {
    const Facts before = FactsOfProcess();
    host.Load();
    RequireSame(before, FactsOfProcess(), "loading the library");
    host.Unload();
    RequireSame(before, FactsOfProcess(), "unloading the library");
}

void Silent(Host& host) {
    const fs::path names[] = {host.Directory() / "stdout", host.Directory() / "stderr"};
    for (int i = 0; i < 2; ++i) {
        const int file = open(names[i].c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, i == 0 ? STDOUT_FILENO : STDERR_FILENO);
        close(file);
    }
    WriteFiles(host, 60);
    host.GetFileFormats();
    host.Unload();
    std::fflush(nullptr);
    for (const fs::path& name : names) {
        const Octets said = ReadFile(name);
        Require(said.empty(), "the plug-in wrote to " + name.filename().string() + ": " +
                                  Text(std::string(said.begin(), said.end()).substr(0, 200)));
    }
}

void Descriptors(Host& host) {
    WriteFiles(host, 10); // descriptors that are opened once and stay open
    const std::vector<std::string> before = OpenDescriptors();
    WriteFiles(host, 30);
    const std::vector<std::string> after = OpenDescriptors();
    for (const std::string& descriptor : after) {
        Require(std::find(before.begin(), before.end(), descriptor) != before.end(),
                "descriptor " + descriptor + " stays open");
    }
    RequireEqual(after.size(), before.size(), "the number of open descriptors");
    // Programs that the host starts do not inherit an open file.
    Feeder file(host, "MKV ", "Xvid", "AC3 ");
    file.Create();
    for (const std::string& descriptor : OpenDescriptors()) {
        if (descriptor.find(host.Directory().string()) == std::string::npos) continue;
        Require((fcntl(std::stoi(descriptor), F_GETFD) & FD_CLOEXEC) != 0,
                "descriptor " + descriptor + " is not closed when the host starts a program");
    }
    file.Close();
}

// Tables and lists belong to the plug-in and the host only reads them: no call changes them.
void Tables(Host& host) {
    constexpr std::size_t kEntry = 8; // octets: a code and a word
    const struct {
        const char* m_Name;
        std::size_t m_Size;
    } tables[] = {{"FormatArray", 5 * Interface::SizeOf("FileFormatInfo")},
                  {"EncoderArray", 4},
                  {"MKVAudioEncoders", 4 * kEntry},
                  {"MKVVideoEncoders", 5 * kEntry},
                  {"HMKVAudioEncoders", 2 * kEntry},
                  {"HMKVVideoEncoders", 4 * kEntry},
                  {"WEBMAudioEncoders", 2 * kEntry},
                  {"WEBMVideoEncoders", 2 * kEntry}};
    const auto read = [&] {
        std::vector<Octets> all;
        for (const auto& table : tables) {
            const auto* const data = static_cast<const unsigned char*>(host.Data(table.m_Name));
            all.emplace_back(data, data + table.m_Size);
        }
        return all;
    };
    const std::vector<Octets> before = read();
    for (std::size_t i = 1; i < before.size(); ++i) {
        for (std::size_t at = 4; at < before[i].size(); at += 8) {
            RequireEqual(Octets(&before[i][at], &before[i][at] + 4), Zeros(4),
                         std::string(tables[i].m_Name) + ": the word behind a code");
        }
    }
    host.CallBy([&](const std::string& function, const std::function<void()>& call) {
        call();
        const std::vector<Octets> after = read();
        for (std::size_t i = 0; i < after.size(); ++i) {
            Require(after[i] == before[i], function + " changed " + tables[i].m_Name);
        }
    });
    const Record options = Record("MuxParam", 0xFF);
    host.SetMuxParam(&options);
    host.GetFileFormats();
    host.GetEncoders();
    WriteFiles(host, 8);
}

// ---- loading and unloading

bool IsLoaded(const Host& host) {
    void* const library = dlopen(host.PluginPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

void Unloading(Host& host) {
    for (int i = 0; i < 5; ++i) {
        Trial(host, kFormats[i % 4]).Run();
        host.Unload();
        Require(!IsLoaded(host), "the library stays in memory when it is unloaded");
    }
    host.Load();
    RequireEqual(*host.IsWebm(), 0U, "IsWebm when the library has been loaded again");
    Trial(host, "WEBM").Run();
    host.Unload();
    // A program that ends in order after it unloaded the library.
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    int status = 0;
    Require(child > 0 && waitpid(child, &status, 0) == child, "fork");
    Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a program that has unloaded the library does not end well");
}

// A program that ends in order with the library loaded.
void Ending(Host& host) {
    WriteFiles(host, 10);
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    int status = 0;
    Require(child > 0 && waitpid(child, &status, 0) == child, "fork");
    Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a program that has closed its files does not end well");
}

// ---- memory

// Octets of the C library's heap that are in use; 0 where a sanitizer has its own, which looks for leaks itself.
std::size_t InUse() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

// A leak shows in every round, the heap's own reserves only now and then.
void RequireNoGrowth(const std::function<void()>& repeated, int times, const std::string& what) {
    std::size_t growth = 0;
    for (int round = 0; round < 4; ++round) {
        const std::size_t before = InUse();
        for (int i = 0; i < times; ++i) repeated();
        const std::size_t after = InUse();
        growth = after > before ? (after - before) / static_cast<std::size_t>(times) : 0;
        if (growth < 12) return; // the smallest piece of the heap is 16 octets
    }
    throw Failure(Text(growth) + " octets of memory stay behind after " + what);
}

void Leaks(Host& host) {
    for (const auto& job : kJobs) {
        const std::string name = std::string(" of ") + job.m_Format + " with " + job.m_Video + job.m_Audio;
        RequireNoGrowth(
            [&] {
                Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
                file.Create();
                file.SetUp();
                for (int i = 0; i < 40; ++i) file.Write(i, 60, 30);
                file.SetUp();
                file.Close();
            },
            32, "each file" + name);
        RequireNoGrowth(
            [&] {
                Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
                file.Create();
                file.Close();
            },
            32, "each empty file" + name);
        for (const char* path : {"none/file", "disc.iso:"}) {
            RequireNoGrowth(
                [&] {
                    Feeder file(host, job.m_Format, job.m_Video, job.m_Audio, path);
                    if (file.Create()) file.Close();
                },
                32, std::string("each file '") + path + "'" + name);
        }
        // An open file may take more memory for its index alone.
        Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
        file.Create();
        int number = 0;
        for (; number < 3000; ++number) file.Write(number, 60, 30);
        const std::size_t before = InUse();
        for (; number < 6000; ++number) file.Write(number, 60, 30);
        const std::size_t after = InUse();
        Require(after < before + std::size_t{120} * 1024,
                Text((after - before) / 1024) + " KiB of memory more after each 2 minutes" + name);
        file.Close();
    }
    RequireNoGrowth(
        [&] {
            host.GetFileFormats();
            host.SetMuxParam(nullptr);
            host.CreateMediaFile(nullptr, nullptr);
        },
        64, "calls that open no file");
}

void BoundedMemory(Host& host) {
    for (const auto& job : kJobs) {
        Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
        file.Create();
        constexpr int kFramesOfASecond = 25;
        constexpr std::size_t kSize = 8000;
        std::size_t before = 0;
        for (int i = 0; i < 40 * kFramesOfASecond; ++i) {
            if (i == 10 * kFramesOfASecond) before = InUse();
            file.Write(i, kSize, 4000);
        }
        const std::size_t after = InUse();
        Require(after < before + std::size_t{4} * kFramesOfASecond * (kSize + 4000),
                "after 30 s more of media, the plug-in holds " + Text((after - before) / 1024) + " KiB more of memory");
        file.Close();
    }
}

// Every allocation of a session fails once. The call throws std::bad_alloc at most, and has taken nothing in: made
// again, it makes the file that it would have made.
void OutOfMemory(Host& host) {
    const struct {
        const char* m_Format;
        const char* m_Video;
        const char* m_Audio;
    } jobs[] = {{"MKV ", "Xvid", "AAC "}, {"WEBM", "VP8 ", "VBIS"}, {"MKV ", "H264", "AC3 "}};
    for (const auto& job : jobs) {
        Calls calls;
        calls.Create(Script::Job(job.m_Format, job.m_Video, job.m_Audio));
        for (int i = 0; i < 34; ++i) {
            if (i == 0 || i == 20) calls.AudioSetUp(Hex("12 10")).VideoSetUp(Hex("68 EE"), Hex("67 64 00 0A"));
            calls.Video(Script::LengthUnits({0x65}, 30, 1), i * (2 * Script::kPicture), i % 5 == 0)
                .Audio(Frame(20, 2), i * (2 * Script::kPicture));
        }
        const RandomSession session = calls.Close().Session();
        SessionPlayer player(host);
        long total = 0;
        long failing = 0;
        host.CallBy([&](const std::string& function, const std::function<void()>& call) {
            const long first = total;
            const auto make = [&] {
                HeapMeter::FailAfter(failing > total ? failing - total : 0);
                try {
                    call();
                } catch (...) {
                    total += HeapMeter::Allocations();
                    HeapMeter::FailAfter(0);
                    throw;
                }
                total += HeapMeter::Allocations();
                HeapMeter::FailAfter(0);
            };
            if (function == "CreateMediaFile") return call(); // another check covers it
            try {
                make();
            } catch (const std::bad_alloc&) {
                Require(first < failing && failing <= total,
                        function + " threw std::bad_alloc though there was memory");
                Require(function != "CloseMediaFile", "CloseMediaFile threw std::bad_alloc");
                total = failing;
                make();
            }
        });
        player.Play(session, "memory enough");
        const long allocations = total;
        if (allocations == 0) throw CannotCheck("the plug-in has an operator new of its own");
        for (failing = 1; failing <= allocations; ++failing) {
            total = 0;
            player.Play(session, "no memory for allocation " + Text(failing) + " of " + Text(allocations));
        }
        host.CallBy(nullptr);
    }
}

void NoMemoryToCreate(Host& host) {
    bool hasFailed = true;
    const std::size_t descriptors = OpenDescriptors().size();
    for (const char* format : kFormats) {
        for (long failing = 1; hasFailed; ++failing) {
            host.CallBy([&](const std::string&, const std::function<void()>& call) {
                HeapMeter::FailAfter(failing);
                try {
                    call();
                } catch (const std::bad_alloc&) {
                    // The exception is allowed; the result stays null.
                }
                hasFailed = HeapMeter::Allocations() >= failing;
                HeapMeter::FailAfter(0);
            });
            const Record job = MakeJob(format, "DIB ", "AAC ");
            void* const handle = host.CreateMediaFile(host.PathOf("file").c_str(), &job);
            host.CallBy(nullptr);
            Require(handle != nullptr || hasFailed, "CreateMediaFile returned null though there was memory");
            if (handle != nullptr) host.CloseMediaFile(handle);
            RequireEqual(OpenDescriptors().size(), descriptors,
                         "the number of open descriptors, without memory for allocation " + Text(failing));
        }
        hasFailed = true;
        Trial(host, format).Run();
    }
}

// ---- threads

// Makes every second call on a new thread with a small stack.
void OnAThread(const std::string& function, const std::function<void()>& call) {
    static bool isOwn = false;
    isOwn = !isOwn;
    if (isOwn) return call();
    struct Work {
        const std::function<void()>& m_Call;
        std::exception_ptr m_Error;
    } work{call, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{512} * 1024);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        auto& it = *static_cast<Work*>(argument);
        try {
            it.m_Call();
        } catch (...) {
            it.m_Error = std::current_exception();
        }
        return nullptr;
    };
    const int error = pthread_create(&thread, &attributes, run, &work);
    pthread_attr_destroy(&attributes);
    Require(error == 0, "no thread for " + function);
    pthread_join(thread, nullptr);
    if (work.m_Error) std::rethrow_exception(work.m_Error);
}

void AnyThread(Host& host) {
    host.CallBy(OnAThread);
    for (const char* format : kFormats) Trial(host, format).Run();
    SessionPlayer player(host);
    Calls calls; // frames larger than the stack
    calls.Create(Script::Job("MKV ", "H264", "AC3 "));
    for (int i = 0; i < 4; ++i) {
        calls.Video(Script::Units({0x65}, 1 << 20, 1), i * Script::kPicture)
            .Video(Script::Units({0x41}, 1 << 20, 2), i * Script::kPicture);
        calls.Audio(Frame(1 << 20, 3), i * Script::kPicture);
    }
    player.Play(calls.Close().Session(), "frames larger than the stack");
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        player.Play(MakeRandomSession(seed),
                    "every second call on another thread, random session " + std::to_string(seed));
    }
}

// ---- the disk

// Everything but the last seconds is on the disk, as it will be in the finished file.
void ReachesTheDisk(Host& host) {
    constexpr int kFramesOfASecond = 25;
    for (const auto& job : kJobs) {
        for (const int audioSize : {40, 4000}) {
            const std::string what = std::string(job.m_Format) + " with " + job.m_Video + job.m_Audio + ": ";
            Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
            file.Create();
            file.SetUp();
            std::vector<Octets> stages;
            for (int i = 0; i < 31 * kFramesOfASecond; ++i) {
                file.Write(i, static_cast<std::size_t>(audioSize) * 2, audioSize);
                if (i % (10 * kFramesOfASecond) == 0 && i > 0) stages.push_back(file.File());
            }
            file.Close();
            const Octets whole = file.File();
            const Ebml::File tree(whole);
            const auto behindInfo = static_cast<std::ptrdiff_t>(tree.At("Segment/Tracks").m_Offset);
            int seconds = 0;
            for (const Octets& stage : stages) {
                seconds += 10;
                const Ebml::File unfinished(stage, Ebml::Ending::CutOff);
                const std::vector<Ebml::Problem> problems = Ebml::CheckUnfinished(unfinished);
                Require(problems.empty(),
                        what + "the file after " + Text(seconds) + " s is not sound: " + Ebml::Describe(problems));
                const auto clusters = static_cast<int>(unfinished.WholeClusters());
                Require(clusters >= seconds - 5, what + "after " + Text(seconds) +
                                                     " s of media the file on the disk has " + Text(clusters) +
                                                     " clusters, expected at least " + Text(seconds - 5));
                Require(stage.size() <= whole.size() &&
                            std::equal(stage.begin() + behindInfo, stage.end(), whole.begin() + behindInfo),
                        what + "the file after " + Text(seconds) + " s is not the beginning of the finished one");
            }
        }
    }
}

// As the guide has it: behind the EBML header, the Segment's length is that of the rest of the file.
bool IsWhole(const Octets& file) {
    const std::size_t segment = file.size() > 4 ? 5U + (file[4] & 0x7FU) : 0;
    if (segment == 0 || file.size() < segment + 12) return false;
    std::uint64_t size = 0;
    for (std::size_t i = segment + 5; i < segment + 12; ++i) size = size * 256 + file[i];
    return segment + 12 + size == file.size();
}

// When the storage is full, the file is the beginning of the complete one and never looks whole, even if space becomes
// free while the file is being written.
void FullDisk(Host& host) {
    constexpr int kFrames = 200;
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const auto giveRoom = [&limit](rlim_t room) {
        limit.rlim_cur = room;
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    for (const auto& job : kJobs) {
        const auto write = [&](rlim_t room, bool comesAgain) {
            PinnedEnvironment::PinRand({1, 2});
            PinnedEnvironment::PinTime(1700000000);
            giveRoom(room);
            Feeder file(host, job.m_Format, job.m_Video, job.m_Audio);
            Require(file.Create(), "CreateMediaFile returned null");
            file.SetUp();
            for (int i = 0; i < kFrames; ++i) {
                if (i == kFrames / 2 && comesAgain) giveRoom(limit.rlim_max);
                if (i == kFrames * 3 / 4) file.SetUp();
                file.Write(i, 700, 400);
            }
            file.Close();
            giveRoom(limit.rlim_max);
            return file.File();
        };
        const Octets whole = write(limit.rlim_max, false);
        Require(IsWhole(whole), "a file with enough room is not whole");
        const std::size_t tracks = Ebml::File(whole).At("Segment/Tracks").m_Offset;
        const std::size_t size = whole.size();
        for (const std::size_t room : {std::size_t{0}, std::size_t{1}, std::size_t{30}, std::size_t{4100}, tracks + 10,
                                       std::size_t{16384}, size / 4, size / 3, size / 2, size - 100, size - 1}) {
            for (const bool comesAgain : {false, true}) {
                const std::string what = std::string(job.m_Format) + " with " + job.m_Video + job.m_Audio +
                                         ", room for " + Text(room) + " of " + Text(size) + " octets" +
                                         (comesAgain ? ", and more after a while: " : ": ");
                const Octets file = write(room, comesAgain);
                if (comesAgain && file == whole) continue; // space became free in time
                Require(!IsWhole(file), what + "the file looks whole and is not");
                Require(file.size() <= room, what + "the file goes on behind what the disk did not take");
                const std::size_t from = std::min(tracks, file.size());
                Require(std::equal(file.begin() + static_cast<std::ptrdiff_t>(from), file.end(),
                                   whole.begin() + static_cast<std::ptrdiff_t>(from)),
                        what + "the file is not the beginning of the whole one");
            }
        }
    }
}

} // namespace

std::vector<Check> ProcessChecks() {
    return {
        {"process.untouched", "no call changes locale, signals, umask, directory, environment, threads",
         UntouchedByCalls},
        {"process.loading", "loading and unloading change none of these either", UntouchedByLoading},
        {"process.silent", "nothing is written to stdout and stderr", Silent},
        {"process.descriptors", "descriptors are closed, also in programs that the host starts", Descriptors},
        {"process.tables", "no call changes a table or a list", Tables},
        {"process.unloading", "unloading removes the library, and it works when loaded again", Unloading},
        {"process.ending", "a program ends in order with the library in it", Ending},
        {"process.any-thread", "calls may come from any thread, with a stack of 512 KiB", AnyThread},
        {"memory.leaks", "no file and no frame leaves memory behind", Leaks},
        {"memory.bounded", "memory does not grow with a file's length", BoundedMemory},
        {"memory.exhausted", "a call that runs out of memory takes nothing in and may be repeated", OutOfMemory},
        {"memory.create", "without memory no file is created, and nothing stays open", NoMemoryToCreate},
        {"disk.as-it-goes", "all but the last seconds are on the disk while a file is written", ReachesTheDisk},
        {"disk.full", "on a full disk the beginning of a file stays and never looks whole", FullDisk},
    };
}
