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
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    if (handler == SIG_IGN) action.sa_flags = 0;
    sigaction(signal, &action, &m_Old[signal]);
}
