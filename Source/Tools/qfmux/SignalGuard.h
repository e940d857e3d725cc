// SPDX-License-Identifier: MIT
// Signals during a run.
#pragma once

#include <csignal>

#include <map>

// While an object of this class lives, SIGINT, SIGTERM and SIGHUP end a run cleanly. A second SIGINT ends it at once; a
// second SIGTERM or SIGHUP does not, because programs such as GNU parallel repeat these while they wait. SIGHUP stays
// ignored if it was, as under nohup.
// SIGXFSZ and SIGPIPE are ignored, so a file that is too large and a closed stdout are write errors.
class SignalGuard {
public:
    SignalGuard();
    ~SignalGuard();
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    // The caught signal; 0 for none.
    static int Caught();

private:
    void Set(int signal, void (*handler)(int));

    std::map<int, struct sigaction> m_Old;
};
