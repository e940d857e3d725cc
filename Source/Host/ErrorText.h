// SPDX-License-Identifier: MIT
// The text of a thread's last error. It does not use thread_local: when memory is short, the C library ends a process
// that cannot allocate its thread's variables.
#pragma once

namespace QfHost {

// Keeps a copy, or a fixed text when there is no memory for the copy.
void SetErrorText(const char* text) noexcept;
// "" when there has been no error in this thread.
const char* GetErrorText() noexcept;

} // namespace QfHost
