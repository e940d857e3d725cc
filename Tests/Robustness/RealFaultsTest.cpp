// SPDX-License-Identifier: MIT
// Real faults: full disks, limits of the process, folders without write permission, files that disappear.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <optional>

#include "HeapMeter.h"
#include "IsWhole.h"
#include "SameOctets.h"
#include "SmallSession.h"

namespace {

// Sets a limit of this process for as long as the object lives.
class Limit {
public:
    Limit(__rlimit_resource_t resource, rlim_t value) : m_Resource(resource) {
        EXPECT_EQ(getrlimit(m_Resource, &m_Before), 0);
        const rlimit limit{value, m_Before.rlim_max};
        EXPECT_EQ(setrlimit(m_Resource, &limit), 0);
    }
    ~Limit() { setrlimit(m_Resource, &m_Before); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    const __rlimit_resource_t m_Resource;
    rlimit m_Before{};
};

class RealFaults : public RobustnessTest {
protected:
    // Runs the work in a process with its own mounts, where m_Directory/disk is an empty file system of the given size.
    // The test fails on a machine that does not allow such mounts, because it cannot run there.
    void OnDisk(std::size_t octets, const std::function<void(const std::filesystem::path&)>& work) {
        const std::filesystem::path disk = m_Directory / "disk";
        std::filesystem::create_directory(disk);
        const pid_t child = fork();
        if (child == 0) {
            const std::string options = "size=" + std::to_string(octets);
            const bool root = geteuid() == 0;
            if (unshare(root ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("tmpfs", disk.c_str(), "tmpfs", 0, options.c_str()) != 0) {
                std::printf("cannot mount a file system (%s): this test needs root or user namespaces\n",
                            std::strerror(errno));
                std::fflush(stdout);
                _exit(2);
            }
            work(disk);
            std::fflush(stdout);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
        ASSERT_EQ(WEXITSTATUS(status), 0);
    }

    // The results of an undisturbed session's calls.
    std::vector<int> Results(const SmallJob& job) {
        SmallSession session(m_Plugin, job, m_Directory / "undisturbed");
        std::vector<int> results;
        for (int call = 0; call < session.Calls(); ++call) results.push_back(session.Call(call));
        return results;
    }

    // Runs a session whose host notices no fault: all calls return the given results, and no memory or descriptor of
    // the session is left.
    void RunUnnoticed(const SmallJob& job, const std::filesystem::path& path, const std::vector<int>& results,
                      const std::function<void(int)>& between = {}) {
        const std::size_t descriptors = OpenDescriptors();
        const long live = HeapMeter::LiveBlocks();
        {
            SmallSession session(m_Plugin, job, path);
            for (int call = 0; call < session.Calls(); ++call) {
                ASSERT_EQ(session.Call(call), results[static_cast<std::size_t>(call)]) << "call " << call;
                if (between) between(call);
            }
        }
        ASSERT_EQ(HeapMeter::LiveBlocks(), live);
        ASSERT_EQ(OpenDescriptors(), descriptors);
    }

    // A file that was cut off has the octets of the whole file up to its end, apart from the values that closing would
    // have filled in. IsWhole, which is the guide's check, finds that it was cut off.
    static void ExpectBeginningOf(const Octets& expected, const std::filesystem::path& path) {
        const Octets disk = ReadFile(path);
        ASSERT_EQ(IsWhole(path), disk == expected);
        if (disk == expected) return;
        ASSERT_EQ(Ebml::Describe(Ebml::CheckUnfinished(Ebml::File(disk, Ebml::Ending::CutOff))), "");
        ASSERT_LE(disk.size(), expected.size());
        const std::size_t front = Ebml::File(expected).At("Segment/Tracks").End();
        ASSERT_EQ(EqualUpTo(disk, expected, front), disk.size());
    }
};

const SmallJob kBothMuxers[] = {kMatroskaJob, kWebmJob};

TEST_F(RealFaults, DisksThatFillUp) {
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::vector<int> results = Results(job);
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        for (std::size_t pages = 1; (pages - 1) * page < expected.size(); ++pages) {
            SCOPED_TRACE(testing::Message() << job << ", " << pages << " pages");
            OnDisk(pages * page, [&](const std::filesystem::path& disk) {
                RunUnnoticed(job, disk / "file", results);
                ExpectBeginningOf(expected, disk / "file");
                EXPECT_EQ(IsWhole(disk / "file"), pages * page >= expected.size());
            });
            if (HasFailure()) return;
        }
    }
}

// The kernel refuses writes beyond the process's limit on file sizes. A limit may be any octet of the file.
TEST_F(RealFaults, FilesThatReachTheirLimit) {
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::vector<int> results = Results(job);
        for (std::size_t size = 0; size < expected.size(); size += size < 8000 ? 197 : 1997) {
            SCOPED_TRACE(testing::Message() << job << ", " << size << " octets");
            std::filesystem::remove(m_Directory / "file");
            {
                const Limit limit(RLIMIT_FSIZE, size);
                RunUnnoticed(job, m_Directory / "file", results);
            }
            ASSERT_NO_FATAL_FAILURE(ExpectBeginningOf(expected, m_Directory / "file"));
            if (HasFailure()) return;
        }
    }
    std::signal(SIGXFSZ, before);
}

// The limit is raised again before one of the later calls: a frame, or the close, which writes over the front. The file
// still ends where the first write failed.
TEST_F(RealFaults, FilesWhoseLimitIsRaised) {
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::vector<int> results = Results(job);
        const auto calls = static_cast<int>(results.size());
        for (std::size_t size = 0; size < expected.size(); size += size < 8000 ? 797 : 3989) {
            for (int room = 3; room < calls; room += room < calls - 8 ? 9 : 1) {
                SCOPED_TRACE(testing::Message() << job << ", " << size << " octets, until call " << room);
                std::filesystem::remove(m_Directory / "file");
                std::optional<Limit> limit(std::in_place, RLIMIT_FSIZE, size);
                RunUnnoticed(job, m_Directory / "file", results, [&](int call) {
                    if (call == room - 1) limit.reset();
                });
                ASSERT_NO_FATAL_FAILURE(ExpectBeginningOf(expected, m_Directory / "file"));
                if (HasFailure()) return;
            }
        }
    }
    std::signal(SIGXFSZ, before);
}

TEST_F(RealFaults, DevicesThatAreFullOrEmpty) {
    for (const SmallJob& job : kBothMuxers) {
        const std::vector<int> results = Results(job);
        for (const char* device : {"/dev/full", "/dev/null"}) RunUnnoticed(job, device, results);
    }
}

TEST_F(RealFaults, PlacesWhereNoFileCanBe) {
    const std::filesystem::path closed = m_Directory / "closed";
    std::filesystem::create_directory(closed);
    for (const SmallJob& job : kBothMuxers) {
        const std::size_t descriptors = OpenDescriptors();
        for (const std::filesystem::path& path :
             {m_Directory / "", closed, m_Directory / "none/file", std::filesystem::path("/proc/file"),
              std::filesystem::path("/proc/version/file"), std::filesystem::path()}) {
            SmallSession session(m_Plugin, job, path);
            for (int call = 0; call < session.Calls(); ++call) {
                EXPECT_EQ(session.Call(call), session.ReturnsNothing(call) ? 1 : 0) << path;
            }
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
    }
}

// Root may write everywhere, so the test runs these calls as another user.
TEST_F(RealFaults, FoldersThatAreClosedToTheUser) {
    const std::filesystem::path folder = m_Directory / "closed";
    std::filesystem::create_directory(folder);
    WriteFile(folder / "old", Ascii("good"));
    std::filesystem::permissions(m_Directory / "", std::filesystem::perms(0755));
    std::filesystem::permissions(folder / "old", std::filesystem::perms(0444));
    std::filesystem::permissions(folder, std::filesystem::perms(0555));
    const bool root = geteuid() == 0;
    ASSERT_TRUE(!root || seteuid(65534) == 0);
    for (const SmallJob& job : kBothMuxers) {
        EXPECT_EQ(SmallSession(m_Plugin, job, folder / "new").Call(0), 0);
        EXPECT_EQ(SmallSession(m_Plugin, job, folder / "old").Call(0), 0);
    }
    ASSERT_TRUE(!root || seteuid(0) == 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
    EXPECT_EQ(ReadFile(folder / "old"), Ascii("good"));
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
}

TEST_F(RealFaults, DisksThatAreReadOnly) {
    OnDisk(1 << 20, [&](const std::filesystem::path& disk) {
        WriteFile(disk / "old", Ascii("good"));
        ASSERT_EQ(mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << std::strerror(errno);
        for (const SmallJob& job : kBothMuxers) {
            EXPECT_EQ(SmallSession(m_Plugin, job, disk / "new").Call(0), 0);
            EXPECT_EQ(SmallSession(m_Plugin, job, disk / "old").Call(0), 0);
        }
        EXPECT_EQ(ReadFile(disk / "old"), Ascii("good"));
    });
}

// Somebody makes room on a full disk. The file still ends where the disk was full.
TEST_F(RealFaults, DisksThatAreFullForAWhile) {
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::vector<int> results = Results(job);
        OnDisk(512 << 10, [&](const std::filesystem::path& disk) {
            RunUnnoticed(job, disk / "file", results, [&](int call) {
                if (call == 3) { // before the large frame
                    const auto room = static_cast<std::size_t>(std::filesystem::space(disk).available);
                    WriteFile(disk / "ballast", Octets(room, 0x55));
                } else if (call == 40) {
                    std::filesystem::remove(disk / "ballast");
                }
            });
            ExpectBeginningOf(expected, disk / "file");
            EXPECT_FALSE(IsWhole(disk / "file"));
        });
    }
}

// A file is removed, moved or replaced while it is open. The plug-in continues the same file and touches no other.
TEST_F(RealFaults, FilesThatGoAwayWhileTheyAreOpen) {
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::vector<int> results = Results(job);
        const std::filesystem::path folder = m_Directory / "folder";
        for (int at = 0; at < static_cast<int>(results.size()) - 1; at += 9) {
            std::filesystem::create_directory(folder);
            RunUnnoticed(job, folder / "file", results, [&](int call) {
                if (call != at) return;
                std::filesystem::create_hard_link(folder / "file", m_Directory / "link");
                std::filesystem::remove_all(folder);
            });
            EXPECT_FALSE(std::filesystem::exists(folder));
            EXPECT_TRUE(SameOctets(ReadFile(m_Directory / "link"), expected)) << job << ", call " << at;

            std::filesystem::remove(m_Directory / "link");
            RunUnnoticed(job, m_Directory / "link", results, [&](int call) {
                if (call != at) return;
                std::filesystem::rename(m_Directory / "link", m_Directory / "moved");
                WriteFile(m_Directory / "link", Ascii("another"));
            });
            EXPECT_TRUE(SameOctets(ReadFile(m_Directory / "moved"), expected)) << job << ", call " << at;
            EXPECT_EQ(ReadFile(m_Directory / "link"), Ascii("another"));
            std::filesystem::remove(m_Directory / "link");
        }
    }
}

TEST_F(RealFaults, DescriptorsThatRunOut) {
    for (const SmallJob& job : kBothMuxers) {
        const Octets expected = Undisturbed(job);
        const std::size_t used = OpenDescriptors();
        const int lowest = dup(STDIN_FILENO);
        ASSERT_GE(lowest, 0);
        close(lowest);
        std::vector<std::unique_ptr<SmallSession>> sessions;
        {
            const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(lowest) + 5);
            const auto create = [&] {
                const std::string name = "file" + std::to_string(sessions.size());
                sessions.push_back(std::make_unique<SmallSession>(m_Plugin, job, m_Directory / name));
                return sessions.back()->Call(0);
            };
            while (sessions.size() < 100 && create() != 0) {
            }
            ASSERT_GE(sessions.size(), 2U);
            ASSERT_LE(sessions.size(), 6U) << "five files, and one for which no descriptor was left";
            EXPECT_FALSE(std::filesystem::exists(sessions.back()->Path()));
            EXPECT_EQ(create(), 0) << "no other file opens either";
            sessions.resize(sessions.size() - 2);
            // The open files continue. Once one of them is closed, another file can be opened.
            for (int call = 1; call < sessions[0]->Calls(); ++call) {
                for (const auto& session : sessions) session->Call(call);
                if (call + 1 < sessions[0]->Calls()) continue;
                SmallSession another(m_Plugin, job, m_Directory / "another");
                EXPECT_EQ(another.Call(0), 1);
            }
        }
        for (const auto& session : sessions) EXPECT_TRUE(SameOctets(ReadFile(session->Path()), expected));
        EXPECT_EQ(OpenDescriptors(), used);
    }
}

} // namespace
