// SPDX-License-Identifier: MIT
// Counts the instructions of a call one by one: the processor traps behind each. The kernel's own instructions are not
// counted. Each takes some 25 microseconds, so the meter is for small calls only.
#pragma once

class InstructionMeter {
public:
    template <class Call>
    static long Count(Call call) {
        const InstructionMeter meter;
        Start();
        call();
        return Stop();
    }
    // Counting ends here, so that a call out of all proportion is told from others in seconds.
    static constexpr long kMost = 100000;

private:
    InstructionMeter();
    ~InstructionMeter();
    static void Start();
    static long Stop();
};
