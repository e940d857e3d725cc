// SPDX-License-Identifier: MIT
#include "SignalGuard.h"

namespace {

volatile std::sig_atomic_t g_Signal = 0;

} // namespace

SignalGuard::SignalGuard() {
    Set(SIGINT, [](int signal) { g_Signal = signal; });
    Set(SIGTERM, [](int signal) { g_Signal = signal; });
    Set(SIGHUP, [](int signal) { g_Signal = signal; });
    Set(SIGXFSZ, SIG_IGN);
    Set(SIGPIPE, SIG_IGN);
}

SignalGuard::~SignalGuard() {
    for (const auto& [signal, action] : m_Old) sigaction(signal, &action, nullptr);
}

int SignalGuard::Caught() { return g_Signal; }

void SignalGuard::Set(int signal, void (*handler)(int)) {
    struct sigaction& old = m_Old[signal];
    sigaction(signal, nullptr, &old);
    if (signal == SIGHUP && old.sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = handler;
    if (handler != SIG_IGN) action.sa_flags = SA_RESTART;
    if (signal == SIGINT) action.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
}
