// SPDX-License-Identifier: MIT
#include "Runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "LogLibrary.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr rlim_t kLargestFile = 256 << 20; // octets; no check needs a megabyte

volatile sig_atomic_t g_Signal = 0;

void NoteSignal(int signal) { g_Signal = signal; }

void Say(int descriptor, const std::string& words) {
    for (std::size_t at = 0; at < words.size();) {
        const ssize_t written = write(descriptor, words.data() + at, words.size() - at);
        if (written <= 0) return; // the watching process has closed its end
        at += static_cast<std::size_t>(written);
    }
}

// The verdict of a check's process, a letter and a text, and the function of the plug-in that was running.
struct Report {
    char m_Verdict;
    std::string m_Text;
    std::string m_Function;
};

std::string InFunction(const Report& report) {
    return report.m_Function.empty() ? " outside the plug-in's functions" : " in " + report.m_Function;
}

std::string SignalName(int signal) {
    const char* const name = sigabbrev_np(signal);
    if (name == nullptr) return "signal " + std::to_string(signal);
    return std::string("SIG") + name + " (" + sigdescr_np(signal) + ")";
}

// status: as waitpid has it. exceeded: the time limit in seconds if it had to be enforced, else 0.
Result Judge(const Report& report, int status, double exceeded) {
    if (report.m_Verdict == 'p') return {nullptr, Outcome::Passed, "", 0};
    std::string message = report.m_Text;
    if (report.m_Verdict == 's') return {nullptr, Outcome::Skipped, message, 0};
    if (report.m_Verdict == 'f') return {nullptr, Outcome::Failed, message, 0};
    if (exceeded > 0) {
        char limit[32];
        std::snprintf(limit, sizeof limit, "%g", exceeded);
        message = "hangs: not done after " + std::string(limit) + " s";
    } else if (WIFSIGNALED(status)) {
        message = "crashes: " + SignalName(WTERMSIG(status));
    } else {
        message = "ends the process with exit code " + std::to_string(WEXITSTATUS(status));
    }
    return {nullptr, Outcome::Failed, message + InFunction(report), 0};
}

// The process of one check. The destructor kills it and all processes that it started.
class Process {
public:
    explicit Process(pid_t pid) : m_Pid(pid) {}
    ~Process() { End(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool HasEnded() {
        if (!m_Ended) m_Ended = waitpid(m_Pid, &m_Status, WNOHANG) == m_Pid;
        return m_Ended;
    }
    void End() {
        kill(-m_Pid, SIGKILL);
        if (m_Ended) return;
        kill(m_Pid, SIGKILL);
        waitpid(m_Pid, &m_Status, 0);
        m_Ended = true;
    }
    int Status() const { return m_Status; }

private:
    pid_t m_Pid;
    int m_Status = 0;
    bool m_Ended = false;
};

// Reads what the pipe holds without waiting for more.
void Drain(int descriptor, std::string& words) {
    char buffer[4096];
    for (ssize_t n; (n = read(descriptor, buffer, sizeof buffer)) > 0;) {
        words.append(buffer, static_cast<std::size_t>(n));
    }
}

// Called in the new process before any code of the plug-in runs.
void Settle(const std::string& directory) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const rlimit file{kLargestFile, kLargestFile};
    setrlimit(RLIMIT_FSIZE, &file);
    dup2(STDERR_FILENO, STDOUT_FILENO); // stdout is for results
    if (chdir(directory.c_str()) != 0) _exit(127);
}

} // namespace

Runner::SignalWatch::SignalWatch() {
    struct sigaction action {};
    action.sa_handler = NoteSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

Runner::Runner(std::string plugin, double timeLimit) : m_Plugin(std::move(plugin)), m_TimeLimit(timeLimit) {}

Runner::~Runner() { close(m_TrailFile); }

// The program to run for a check. For a check with a log, qfcheck is copied beside that log, because the plug-in looks
// for the log beside the running executable.
std::filesystem::path Runner::PlaceFor(Log log) {
    const auto directory = m_Directory / ("host-" + std::to_string(static_cast<int>(log)));
    if (std::filesystem::create_directory(directory)) {
        std::filesystem::copy_file("/proc/self/exe", directory / "qfcheck");
        if (log == Log::FirstName || log == Log::BothNames) WriteFile(directory / "TW_Log.so", LogLibrary());
        if (log == Log::SecondName || log == Log::BothNames) WriteFile(directory / "libTW_Log.so", LogLibrary());
    }
    return directory / "qfcheck";
}

Result Runner::Run(const Check& check) {
    const auto directory = m_Directory / ("check-" + std::to_string(m_Count++));
    std::filesystem::create_directory(directory);
    std::string program;
    if (check.m_Log != Log::Unwatched) program = PlaceFor(check.m_Log).string();
    if (check.m_Log == Log::None) WriteFile(directory / "TW_Log.so", LogLibrary());

    m_Trail.Clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
    const Clock::time_point start = Clock::now();
    const auto seconds = [start] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    if (pid == 0) {
        close(ends[0]);
        Settle(directory.string());
        if (program.empty()) MakeCheck(check, m_Plugin, directory.string(), {ends[1], m_TrailFile});
        for (const int kept : {ends[1], m_TrailFile}) fcntl(kept, F_SETFD, 0);
        execl(program.c_str(), program.c_str(), kMakeOneCheck, check.m_Name, m_Plugin.c_str(), directory.c_str(),
              std::to_string(ends[1]).c_str(), std::to_string(m_TrailFile).c_str(), nullptr);
        Say(ends[1], std::string("sa copy of qfcheck does not run from ") + program + ": " + std::strerror(errno));
        _exit(127);
    }
    close(ends[1]);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);

    std::string words;
    bool inTime = true;
    Process process(pid);
    unsigned calls = 0;
    double lastCall = 0; // when it was noticed
    while (!process.HasEnded() && inTime) {
        pollfd waiting{ends[0], POLLIN, 0};
        poll(&waiting, 1, 5);                              // milliseconds
        if ((waiting.revents & POLLHUP) != 0) usleep(200); // it is about to end
        Drain(ends[0], words);
        // The limit begins anew with each call, however slow the machine is.
        if (m_Trail.Count() != calls) {
            calls = m_Trail.Count();
            lastCall = seconds();
        }
        inTime = seconds() - lastCall < m_TimeLimit;
        if (g_Signal != 0) {
            close(ends[0]);
            throw Interrupted{g_Signal};
        }
    }
    process.End();
    Drain(ends[0], words);
    close(ends[0]);
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);

    const Report report{words.empty() ? '\0' : words[0], words.substr(std::min<std::size_t>(words.size(), 1)),
                        m_Trail.Function()};
    Result result = Judge(report, process.Status(), inTime ? 0 : m_TimeLimit);
    result.m_pCheck = &check;
    result.m_Seconds = seconds();
    return result;
}

void MakeCheck(const Check& check, const std::string& plugin, const std::string& directory, Ends ends) {
    std::string verdict = "p";
    try {
        Host host(plugin, directory, Trail(ends.m_Trail));
        check.m_pRun(host);
    } catch (const CannotCheck& error) {
        verdict = std::string("s") + error.what();
    } catch (const std::exception& error) { // a Failure, or an element that a file lacks
        verdict = std::string("f") + error.what();
    }
    Say(ends.m_Verdict, verdict);
    _exit(0);
}

void MakeOneCheck(char** arguments) {
    for (const Check& check : AllChecks()) {
        if (std::string(check.m_Name) != arguments[0]) continue;
        MakeCheck(check, arguments[1], arguments[2], {std::stoi(arguments[3]), std::stoi(arguments[4])});
    }
    _exit(127);
}
