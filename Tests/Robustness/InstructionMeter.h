// SPDX-License-Identifier: MIT
// Counts the instructions of a call, one by one: the processor traps behind each of them, and nothing but the work
// itself is measured. The kernel's own are not counted. Some 25 microseconds for each, so for small calls only.
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
