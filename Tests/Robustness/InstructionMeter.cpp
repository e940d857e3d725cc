// SPDX-License-Identifier: MIT
#include "InstructionMeter.h"

#include <signal.h>
#include <ucontext.h>
#include <x86intrin.h>

namespace {

constexpr unsigned kTrapFlag = 0x100;

volatile long g_Count = 0;
volatile bool g_Counting = false;
struct sigaction g_Before;

void OnTrap(int, siginfo_t*, void* context) {
    g_Count = g_Count + 1;
    if (g_Counting && g_Count < InstructionMeter::kMost) return;
    static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~static_cast<greg_t>(kTrapFlag);
}

} // namespace

InstructionMeter::InstructionMeter() {
    struct sigaction action {};
    action.sa_sigaction = OnTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, &g_Before);
}

InstructionMeter::~InstructionMeter() { sigaction(SIGTRAP, &g_Before, nullptr); }

void InstructionMeter::Start() {
    g_Count = 0;
    g_Counting = true;
    __writeeflags(__readeflags() | kTrapFlag);
}

long InstructionMeter::Stop() {
    g_Counting = false;
    return g_Count; // the trap flag is gone by now
}
