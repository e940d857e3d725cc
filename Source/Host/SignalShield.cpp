// SPDX-License-Identifier: MIT
#include "SignalShield.h"

#include <pthread.h>

#include <ctime>

namespace QfHost {

namespace {

constexpr int kSignals[] = {SIGXFSZ, SIGPIPE};

sigset_t SetOfSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kSignals) sigaddset(&set, signal);
    return set;
}

} // namespace

SignalShield::SignalShield() noexcept {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_CancelState);
    const sigset_t set = SetOfSignals();
    sigpending(&m_Pending);
    pthread_sigmask(SIG_BLOCK, &set, &m_Before);
}

// The kernel sends these to the thread that writes, so signals that came since are this thread's own and are removed.
SignalShield::~SignalShield() {
    sigset_t arrived;
    sigemptyset(&arrived);
    for (const int signal : kSignals) {
        if (sigismember(&m_Pending, signal) == 0) sigaddset(&arrived, signal);
    }
    const timespec now{};
    while (sigtimedwait(&arrived, nullptr, &now) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
    pthread_setcancelstate(m_CancelState, nullptr);
}

} // namespace QfHost
