// SPDX-License-Identifier: MIT
#include "Facts.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>

#include "Host.h"

namespace {

namespace fs = std::filesystem;

int g_Threads = 0;
int g_Seeds = 0;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Thing>
std::string Raw(const Thing& thing) {
    const auto* const octets = reinterpret_cast<const unsigned char*>(&thing);
    return Text(Octets(octets, octets + sizeof thing));
}

template <class Function>
std::string Address(Function* function) {
    return Text(reinterpret_cast<const void*>(function));
}

std::string Umask() {
    const mode_t mask = umask(0);
    umask(mask);
    return Text(static_cast<unsigned>(mask));
}

std::string Environment() {
    std::string text;
    for (char** entry = environ; *entry != nullptr; ++entry) text += std::string(*entry) + '\n';
    return text;
}

std::string SignalHandlers() {
    std::string text;
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) != 0) continue;
        text += Text(number) + ":" + Address(action.sa_handler) + "/" + Text(static_cast<int>(action.sa_flags)) + " ";
    }
    return text;
}

std::string SignalMask() {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string text;
    for (int number = 1; number < NSIG; ++number) text += sigismember(&mask, number) == 1 ? Text(number) + " " : "";
    return text;
}

std::string Limits() {
    std::string text;
    for (int resource = 0; resource < RLIMIT_NLIMITS; ++resource) {
        rlimit limit{};
        getrlimit(static_cast<__rlimit_resource_t>(resource), &limit);
        text += Text(static_cast<unsigned long long>(limit.rlim_cur)) + " ";
    }
    return text;
}

std::string Timers() {
    std::string text;
    for (const auto which : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
        itimerval timer{};
        getitimer(which, &timer);
        text += timer.it_value.tv_sec != 0 || timer.it_value.tv_usec != 0 ? "set " : "unset ";
    }
    return text;
}

std::string Scheduling() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    sched_getaffinity(0, sizeof processors, &processors);
    return Text(getpriority(PRIO_PROCESS, 0)) + ", policy " + Text(sched_getscheduler(0)) + ", " +
           Text(CPU_COUNT(&processors)) + " processors";
}

std::string Threads() {
    return Text(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

std::string Children() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD ? "none" : "some";
}

std::string NameOfThread() {
    char name[17] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

} // namespace

Facts FactsOfProcess() {
    return {
        {"the umask", Umask()},
        {"the current directory", fs::current_path().string()},
        {"the locale", std::setlocale(LC_ALL, nullptr)},
        {"the locale of the thread", Text(static_cast<const void*>(uselocale(nullptr)))},
        {"the environment", Environment()},
        {"the handlers of signals", SignalHandlers()},
        {"the blocked signals", SignalMask()},
        {"the limits of resources", Limits()},
        {"the timers", Timers()},
        {"the priority, the policy or the processors", Scheduling()},
        {"the number of threads", Threads()},
        {"the number of threads started", Text(ThreadsStarted())},
        {"the number of calls of srand", Text(SeedsSet())},
        {"the child processes", Children()},
        {"the name of the thread", NameOfThread()},
        {"the process group", Text(static_cast<int>(getpgrp())) + "/" + Text(static_cast<int>(getsid(0)))},
        {"the rounding of floating-point numbers", Text(std::fegetround())},
        {"the floating-point exceptions that trap", Text(fegetexcept())},
        {"the terminate handler", Address(std::get_terminate())},
        {"the new handler", Address(std::get_new_handler())},
        {"being dumpable", Text(prctl(PR_GET_DUMPABLE))},
    };
}

void RequireSame(const Facts& before, const Facts& after, const std::string& what) {
    for (std::size_t i = 0; i < before.size(); ++i) {
        const std::string& was = before[i].second;
        const std::string& is = after[i].second;
        if (was == is) continue;
        // Of long ones, what follows from the first difference on.
        constexpr std::size_t kShown = 60;
        const bool isLong = std::max(was.size(), is.size()) > kShown;
        const auto from =
            isLong
                ? std::mismatch(was.begin(), was.begin() + static_cast<std::ptrdiff_t>(std::min(was.size(), is.size())),
                                is.begin())
                          .first -
                      was.begin()
                : 0;
        const auto shown = [from](const std::string& text) {
            return Text(text.substr(static_cast<std::size_t>(from), kShown));
        };
        throw Failure(what + " changed " + before[i].first + " from " + (isLong ? "..." : "") + shown(was) + " to " +
                      (isLong ? "..." : "") + shown(is));
    }
}

std::vector<std::string> OpenDescriptors() {
    std::vector<std::string> descriptors;
    for (int number = 0; number < 256; ++number) {
        std::error_code closed;
        const std::string name = std::to_string(number);
        const fs::path target = fs::read_symlink("/proc/self/fd/" + name, closed);
        if (!closed) descriptors.push_back(name + " (" + target.string() + ")");
    }
    return descriptors;
}

int ThreadsStarted() { return g_Threads; }
int SeedsSet() { return g_Seeds; }

extern "C" {

#ifndef QF_SANITIZED // a sanitizer has one of its own
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) noexcept {
    ++g_Threads;
    static auto* const hidden = Next<decltype(pthread_create)>("pthread_create");
    return hidden(thread, attributes, run, argument);
}
#endif

void srand(unsigned seed) noexcept {
    ++g_Seeds;
    static auto* const hidden = Next<decltype(srand)>("srand");
    hidden(seed);
}

void srandom(unsigned seed) noexcept {
    ++g_Seeds;
    static auto* const hidden = Next<decltype(srandom)>("srandom");
    hidden(seed);
}
}
