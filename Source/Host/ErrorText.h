// SPDX-License-Identifier: MIT
// The text of a thread's last error. It is kept without thread_local: where memory is short, the C library ends a
// process that cannot have its thread's variables.
#pragma once

namespace QfHost {

// Keeps a copy; when there is no memory for it, a text that says so.
void SetErrorText(const char* text) noexcept;
// "" when there was no error in this thread.
const char* GetErrorText() noexcept;

} // namespace QfHost
