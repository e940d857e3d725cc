// SPDX-License-Identifier: MIT
// While an object of this class lives, a write beyond the size that files may have, or into a pipe that nobody reads,
// is an error of the write and not a signal to the thread. Other threads and the process's handlers are not affected.
// The thread is not cancelled meanwhile either, since the file would stay incomplete.
#pragma once

#include <csignal>

namespace QfHost {

class SignalShield {
public:
    SignalShield() noexcept;
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

private:
    sigset_t m_Before{};  // the thread's mask
    sigset_t m_Pending{}; // signals pending before
    int m_CancelState = 0;
};

} // namespace QfHost
