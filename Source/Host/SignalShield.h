// SPDX-License-Identifier: MIT
// While an object of this class lives, a write beyond the size that files may have, or into a pipe that nobody reads,
// shows as an error of the write and not as a signal to the thread. Other threads and handlers of the process are left
// alone. Nor is the thread cancelled meanwhile: nothing would put the file in order.
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
    sigset_t m_Pending{}; // what waited for the thread already
    int m_CancelState = 0;
};

} // namespace QfHost
