// SPDX-License-Identifier: MIT
// The host's log: the functions of the library TW_Log beside the host's executable.
#pragma once

// Both functions are always callable. Without the library, or without one of its functions, they do nothing.
struct HostLog {
    void (*TWLog)(const wchar_t* message);
    void (*TWLogEx)(const wchar_t* format, ...); // as wprintf, but %s takes a wide string

    // Loads the library at the first call and keeps it.
    static const HostLog& Get();
};
