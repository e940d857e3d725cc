// SPDX-License-Identifier: MIT
#include "LogLibrary.h"

// A host's log is a library file beside the host's executable, so the double must be written to a file first.
asm(".pushsection .rodata\n"
    ".hidden qf_log_library\n"
    ".hidden qf_log_library_end\n"
    ".globl qf_log_library\n"
    ".globl qf_log_library_end\n"
    "qf_log_library:\n"
    ".incbin \"" QF_LOG_LIBRARY "\"\n"
    "qf_log_library_end:\n"
    ".popsection\n");

extern "C" {
extern const unsigned char qf_log_library[] __attribute__((visibility("hidden")));
extern const unsigned char qf_log_library_end[] __attribute__((visibility("hidden")));
}

Octets LogLibrary() { return {qf_log_library, qf_log_library_end}; }
