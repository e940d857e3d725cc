// SPDX-License-Identifier: MIT
// What signals do to a run.
#pragma once

#include <csignal>

#include <map>

// While an object of this class lives, SIGINT, SIGTERM and SIGHUP end a run in good order; a second SIGINT ends it at
// once. The others come again from programs that wait for the end, as GNU parallel does. SIGHUP stays ignored where it
// is, under nohup.
// A file that grows too large and a reader of stdout that goes away show as errors of the write, and not as signals.
class SignalGuard {
public:
    SignalGuard();
    ~SignalGuard();
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    // The signal that came, 0 for none.
    static int Caught();

private:
    void Set(int signal, void (*handler)(int));

    std::map<int, struct sigaction> m_Old;
};
